"""The Python package: the bits of the library's interface for C, its errors, other threads meanwhile, the docstrings."""

import _thread
import ctypes
import doctest
import importlib
import json
import os
import signal
import sys
import threading
import time
import unittest
from functools import partial

import numpy as np
import tessel


def record(n=2000, kind=float):
    """Two lines and a little noise."""
    t = np.arange(n)
    y = np.exp((-0.0004 + 0.13j) * t + 0.3j) + 0.4 * np.exp((-0.002 + 0.21j) * t)
    noise = np.random.default_rng(1).standard_normal((2, n))
    y += 1e-5 * (noise[0] + 1j * noise[1])
    return y if kind is complex else y.real.copy()


def modes_through_c(y, dt, t0):
    """Frequency, decay, Q, amplitude, phase, their errors in the same order, and significance: through C."""
    library = ctypes.CDLL(os.environ["TESSEL_MODES"])
    analyse = library.tessel_modes_analyse_complex if np.iscomplexobj(y) else library.tessel_modes_analyse
    library.tessel_modes_list.restype = ctypes.c_size_t
    size, real = ctypes.c_size_t, ctypes.c_double
    result = ctypes.c_void_p()
    data = y.ctypes.data_as(ctypes.c_void_p)
    assert analyse(data, size(len(y)), real(t0), real(dt), None, ctypes.byref(result), None, size(0)) == 0
    rows = np.zeros(20, [("values", "f8", 11), ("kind", "i4"), ("end", "i4")])
    out = rows.ctypes.data_as(ctypes.c_void_p)
    count = library.tessel_modes_list(result, size(0), out, size(20), size(rows.itemsize))
    library.tessel_modes_free(result)
    return rows["values"][:count]


def values(modes):
    names = ["frequency", "decay", "q", "amplitude", "phase"]
    return np.transpose([getattr(modes, name) for name in names + [f"{name}_se" for name in names] + ["significance"]])


class FindModes(unittest.TestCase):
    def test_bits_of_the_library(self):
        for kind in (float, complex):
            y = record(kind=kind)
            modes = tessel.find_modes(y, 0.5, t0=2)
            self.assertEqual(len(modes), 2)
            self.assertEqual(values(modes).tobytes(), modes_through_c(y, 0.5, 2).tobytes())
            self.assertLess(np.abs(modes.model(2 + 0.5 * np.arange(2000)) - y).max(), 1e-4)

    def test_numbers_of_any_type_and_stride(self):
        whole = np.round(1e4 * record(1000)).astype(np.int16)
        expected = values(tessel.find_modes(whole.astype(float), 1)).tobytes()
        spread = np.zeros((1000, 3), np.float32)
        spread[:, 1] = whole
        for y in (whole, whole.tolist(), spread[:, 1], whole[::-1].copy()[::-1], whole.astype(">f8"), np.longdouble(whole)):
            self.assertEqual(values(tessel.find_modes(y, 1)).tobytes(), expected)
        y = record(1000, complex).astype(np.complex64)
        self.assertEqual(
            values(tessel.find_modes(y[::-1][::-1], 1)).tobytes(), values(tessel.find_modes(y.astype(complex), 1)).tobytes()
        )

    def test_options(self):
        y = record()
        modes = tessel.find_modes(y, 1, band=(None, 0.03), first=np.int32(100), noise=1e-5, max_modes=20)
        self.assertEqual((len(modes), modes.first_sample, modes.band[1]), (1, 100, 0.03))
        self.assertEqual(modes.first_sample_reason, "given")

    def test_input_errors(self):
        y, broken = record(200), record(200)
        broken[42] = np.nan
        for arguments, fault, words in (
            (([1, 2, 3], 1), "tooFewSamples", "at least 8"),
            ((broken, 1), "notFinite", "sample 42"),
            ((y, 0), "spacing", "dt = 0.0"),
            ((y, 1, np.inf), "start", "t0 = inf"),
            ((np.zeros((9, 9)), 1), "samples", "2 dimensions"),
            (([[1, 2], [3]], 1), "samples", "one-dimensional"),
            (([None] * 9, 1), "samples", "type object"),
            ((["1"] * 9, 1), "samples", "y is text"),
            ((np.ma.masked_greater(y, 0.5), 1), "samples", "masked"),
        ):
            with self.subTest(words), self.assertRaisesRegex(ValueError, words) as caught:
                tessel.find_modes(*arguments)
            self.assertIsInstance(caught.exception, tessel.InputError)
            self.assertEqual(caught.exception.fault, fault)
        for options, words in (
            ({"noise": -1}, "noise = -1"),
            ({"band": (3, 1)}, r"band = \(3, 1\)"),
            ({"first": -2}, "-2"),
            ({"max_modes": -1}, "-1"),
        ):
            with self.subTest(words), self.assertRaisesRegex(tessel.InputError, words) as caught:
                tessel.find_modes(y, 1, **options)
            self.assertEqual(caught.exception.fault, "option")
        with self.assertRaises(tessel.InputError) as caught:
            tessel.find_modes(broken, 1)
        self.assertEqual(caught.exception.index, 42)
        for options in ({"dt": "a"}, {"dt": 1, "band": 3}, {"dt": 1, "first": 1.5}, {"dt": 1, "noise": [1, 2]}):
            with self.assertRaisesRegex(TypeError, "must be"):
                tessel.find_modes(y, **options)

    def test_results_print_and_convert(self):
        modes = tessel.find_modes(record(), 1)
        self.assertRegex(repr(modes), r"^2 modes(.|\n)*\n *0\.0206901\d*\(\d\d\) ")
        self.assertEqual(modes._repr_html_().count("<tr>"), 3)
        self.assertEqual(json.loads(json.dumps(modes.to_dict()))["modes"][1]["q_se"], modes[1].q_se)
        self.assertEqual(modes.to_records()["amplitude_se"].tolist(), modes.amplitude_se.tolist())
        nothing = tessel.find_modes(np.zeros(50), 1)
        self.assertTrue(nothing.has("constantRecord") and not nothing.long_enough)
        self.assertEqual((len(nothing.to_records()), len(nothing.frequency)), (0, 0))
        self.assertIn("remark: nothing rings", repr(nothing))

    def test_plots_need_matplotlib_alone(self):
        results = tessel.find_modes(record(), 1), tessel.prony(record(60), 1, 5)
        try:
            import matplotlib
        except ImportError:
            for result in results:
                self.assertRaisesRegex(ImportError, "python3-matplotlib", result.plot)
            return
        matplotlib.use("Agg")
        for result in results:
            ax = result.plot()
            self.assertIs(result.plot(ax), ax)
            ax.figure.canvas.draw()

    def test_values_with_errors_in_short(self):
        from tessel._modes import short

        for pair, text in {
            (1503091026.4, 12.3): "1.503091026(12)e+09",
            (94.2478, 0.0996): "94.25(10)",
            (0.30001, 0.00012): "0.30001(12)",
            (1e-12, 3e-10): "0.0(3.0)e-10",
            (220.1, 6.7): "220.1(6.7)",
            (199.0, 29.0): "199(29)",
            (123456.0, 2000.0): "1.235(20)e+05",
            (2.5e9, 4e-10): "2.500000000000000(1)e+09",
            (-2.5, 0.0): "-2.5",
            (np.inf, 1.0): "inf",
        }.items():
            self.assertEqual(short(*pair), text)


class FindModesJointly(unittest.TestCase):
    """Records with the lines of record(), of other lengths, starts and units; the third is constant."""

    @staticmethod
    def found(kind=float, **options):
        rng = np.random.default_rng(2)
        lengths, units, starts = (2000, 1200, 50, 1500), (1, 1e6, 0, 1e-3), (2, 4, 2, 6)
        records = [unit * (record(n, kind) + 1e-5 * rng.standard_normal(n)) for n, unit in zip(lengths, units)]
        return records, tessel.find_modes_jointly(iter(records), 0.5, t0=starts, **options)

    def test_each_record_has_its_part(self):
        for kind in (float, complex):
            records, modes = self.found(kind)
            self.assertEqual((len(modes), modes.amplitude.shape, modes.complex), (2, (2, 4), kind is complex))
            self.assertEqual([r.reference_time for r in modes.records], [2, 4, 2, 6])
            self.assertEqual([r.constant for r in modes.records], [False, False, True, False])
            for p, y in enumerate(records):
                part = modes.of(p)
                self.assertIsInstance(part, tessel.Modes)
                t = modes.records[p].reference_time + 0.5 * np.arange(len(y))
                self.assertLess(np.abs(part.model(t) - y).max(), 1e-4 * max(np.abs(y).max(), 1e-9))
                self.assertEqual(part.has("constantRecord"), p == 2)
                self.assertEqual(part.frequency_se.tolist(), modes.frequency_se.tolist())
            self.assertEqual(modes.of(-1).amplitude.tolist(), modes.amplitude[:, 3].tolist())
            alone = tessel.find_modes(records[0], 0.5, t0=2)
            self.assertTrue(np.all(modes.frequency_se < alone.frequency_se))

    def test_results_print_and_convert(self):
        modes = self.found()[1]
        self.assertRegex(repr(modes), r"^2 modes in 4 records(.|\n)* 1  oscillating\nremark: record 2: all samples")
        self.assertEqual(modes._repr_html_().count("<tr>"), 3)
        plain = json.loads(json.dumps(modes.to_dict(), allow_nan=True))
        self.assertEqual(plain["modes"][1]["residues"][3]["phase_se"], modes.phase_se[1, 3])
        self.assertEqual(plain["records"][3]["noise"], modes.records[3].noise)
        self.assertEqual(modes.to_records()["amplitude"].tolist(), modes.amplitude.tolist())
        self.assertEqual(modes.to_records()["kind"].tolist(), ["oscillating"] * 2)
        nothing = tessel.find_modes_jointly(np.zeros((3, 50)), 1)
        self.assertEqual((nothing.amplitude.shape, nothing.to_records().shape), ((0, 3), (0,)))
        try:
            import matplotlib
        except ImportError:
            return
        matplotlib.use("Agg")
        modes.plot().figure.canvas.draw()

    def test_input_errors(self):
        y = record(200)
        for records, options, fault, words in (
            ([], {}, "tooFewSamples", "there is no record"),
            ([y, [1, 2, 3]], {}, "tooFewSamples", "record 1: at least 8"),
            ([y, np.where(np.arange(200) == 7, np.nan, y)], {}, "notFinite", "record 1: sample 7"),
            ([y, y.astype(complex)], {}, "option", "record 1: some records are real and some complex"),
            ([y, ["1"] * 9], {}, "samples", "record 1: y is text"),
            (y, {}, "samples", "record 0: y must be a one-dimensional"),
            ([y, y], {"t0": [1, 2, 3]}, "start", "t0 has 3 values for 2 records"),
            ([y, y], {"dt": 0}, "spacing", "dt = 0.0"),
            ([y, y], {"noise": -1}, "option", "noise = -1"),
        ):
            with self.subTest(words), self.assertRaisesRegex(tessel.InputError, words) as caught:
                tessel.find_modes_jointly(records, **{"dt": 1, **options})
            self.assertEqual(caught.exception.fault, fault)
        with self.assertRaises(tessel.Stopped):
            tessel.find_modes_jointly([y, y], 1, progress=lambda progress: False)


class Progress(unittest.TestCase):
    def test_stops_and_lets_exceptions_pass(self):
        seen = []

        def third(progress):
            seen.append(progress)
            return len(seen) < 3

        with self.assertRaises(tessel.Stopped):
            tessel.find_modes(record(), 1, progress=third)
        self.assertEqual(len(seen), 3)
        self.assertIsInstance(seen[0].stage, str)
        tessel.find_modes(record(), 1, progress=lambda progress: None)
        with self.assertRaises(ZeroDivisionError):
            tessel.find_modes(record(), 1, progress=lambda progress: 1 / 0)

    def test_interrupt_from_the_keyboard_ends_the_work(self):
        with self.assertRaises(KeyboardInterrupt):
            tessel.find_modes(record(), 1, progress=lambda progress: signal.raise_signal(signal.SIGINT))

        # Without a function: nothing but C runs between the signal, the analysis and what comes behind it.
        behind = []
        analyse = partial(tessel._core.find_modes, record(), False, 1.0, 0.0, None, None, None, None, None, None)
        with self.assertRaises(KeyboardInterrupt):
            list(map(partial.__call__, [partial(_thread.interrupt_main), analyse, partial(behind.append, "end")]))
        self.assertEqual(behind, [])

    # Python hands its lock over by itself after 1000 s only, and the callback does not let go of it: another thread that
    # runs between two callbacks of one analysis runs while the library works.
    def test_other_threads_run_meanwhile(self):
        events, done = [], False

        def other():
            while not done:
                events.append("other")
                time.sleep(1e-4)  # lets go of the lock

        interval = sys.getswitchinterval()
        sys.setswitchinterval(1000)
        thread = threading.Thread(target=other)
        thread.start()
        try:
            for _ in range(1000):
                del events[:]
                tessel.find_modes(record(), 1, progress=events.append)
                callbacks = [j for j, event in enumerate(events) if event != "other"]
                if "other" in events[callbacks[0] : callbacks[-1]]:
                    break
            else:
                self.fail("no other thread ran")
        finally:
            done = True
            sys.setswitchinterval(interval)
            thread.join()


class Prony(unittest.TestCase):
    def test_recovers_poles_from_any_type(self):
        t = 0.25 * np.arange(60)
        y = np.exp(-0.1 * t) * np.cos(2 * t) + 0.5 * np.exp(-0.2 * t) * np.cos(3 * t)
        fit = tessel.prony(y, 0.25, 4)
        self.assertLess(np.abs(np.sort_complex(np.round(fit.poles, 11)) - [-0.2 - 3j, -0.2 + 3j, -0.1 - 2j, -0.1 + 2j]).max(), 1e-10)
        self.assertLess(np.abs(fit.model(t) - y).max(), 1e-12)
        strided = np.zeros((60, 2), complex)
        strided[:, 1] = y
        self.assertEqual(tessel.prony(strided[:, 1], 0.25, 4).poles.tobytes(), fit.poles.tobytes())
        self.assertEqual(json.loads(json.dumps(fit.to_dict()))["poles"][3], [fit.poles[3].real, fit.poles[3].imag])
        self.assertEqual(fit.to_records()["q"].tolist(), fit.q.tolist())
        self.assertIn("4 exponentials", repr(fit))

    def test_errors_have_the_words_of_the_library(self):
        y = record(40)
        bounds = "^Sub LEASTSQ_PRONY_SVD: input parameters out of bounds ! "
        for arguments, words in (
            ((y, 1, 21), bounds + "m = 21 needs 42 samples, there are 40"),
            ((y, 1, 0), bounds + "m = 0"),
            ((y, 1, -(2**31)), "m = -2147483648"),
            ((y, 1, 2**40), "m = 1099511627776"),
            ((y, 1, 5001), bounds + "m = 5001, from 1 to 5000"),
            ((y, 0, 3), bounds + "dt = 0.0"),
            ((y, np.nan, 3), "dt = nan"),
            (([], 1, 1), bounds + "m = 1 needs 2 samples, there are 0"),
        ):
            with self.subTest(words), self.assertRaisesRegex(tessel.InputError, words):
                tessel.prony(*arguments)
        wide = np.exp(-3.0 * np.arange(400)) * 10.0 ** np.where(np.arange(400) % 2, 150, -150)
        with self.assertRaisesRegex(tessel.FitError, "^Sub "):
            tessel.prony(wide * np.nan, 1, 100)


def load_tests(loader, tests, pattern):
    for name in ("tessel", "tessel._joint", "tessel._modes", "tessel._prony", "tessel._samples"):
        tests.addTests(doctest.DocTestSuite(importlib.import_module(name)))
    return tests


if __name__ == "__main__":
    unittest.main()
