"""The demonstration, run as its users run it."""
import cmath
import csv
import json
import math
import os
import re
import subprocess
import sys
import tempfile

PROGRAM = [*os.environ.get("TESSEL_EMULATOR", "").split(), sys.argv[1]]


def run(*arguments, **how):
    how = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "text": True} | how
    return subprocess.run([*PROGRAM, *arguments], **how)


def record(*lines):
    path = os.path.join(folder, "record.dat")
    with open(path, "w") as file:
        file.write("".join(f"{line}\n" for line in lines))
    return "--record", path


def ringing(modes, spacing, count):
    """Samples of a sum of c exp(s t)."""
    return [sum(c * cmath.exp(s * k * spacing) for s, c in modes) for k in range(count)]


def field(values, spacing, start=0.0):
    """A record of values; a real one if they are."""
    return record(*(f"{start + k * spacing!r} {y.real!r} {y.imag!r}" for k, y in enumerate(values)))


def columns(name):
    """The rows of numbers in a file that was written, words left out."""
    with open(f"{folder}/{name}.dat") as file:
        rows = [line.split() for line in file if line.strip() and line[0] != "#"]
    return [[float(word) for word in row if not word.isalpha() or word == "nan"] for row in rows]


def fits(*arguments):
    """What a program is given, and the report."""
    done = run(*arguments, "--json")
    assert done.returncode == 0, done
    whole = json.loads(done.stdout)
    sound = [fit for fit in whole["fits"] if None not in fit.values()]
    assert min(sound, key=lambda fit: max(list(fit.values())[1:])).items() <= whole.items(), "the least largest error"
    return whole, done.stderr


def fails(arguments, message, before=""):
    """One line says why, behind what had begun to be printed; programs are given nothing."""
    wrong = run(*arguments)
    assert (wrong.returncode, wrong.stderr) == (2, f"resonator: {message}\n"), wrong
    assert wrong.stdout.startswith(before) and (before or not wrong.stdout), wrong
    assert "--csv" in arguments or run(*arguments, "--csv").stdout == ""


def results(status, *arguments):
    """The results without their modes, the modes, and the report."""
    report, as_json, as_csv = run(*arguments), run(*arguments, "--json"), run(*arguments, "--csv")
    assert {report.returncode, as_json.returncode, as_csv.returncode} == {status}, as_json.stderr
    assert as_json.stderr == as_csv.stderr == report.stdout != ""
    whole = json.loads(as_json.stdout)
    modes, _ = whole.pop("modes"), whole.pop("fits")
    header, *rows = csv.reader(as_csv.stdout.splitlines())
    assert header == [*whole, *modes[0]]
    for row, mode in zip(rows, modes, strict=True):
        for cell, value in zip(row, {**whole, **mode}.values(), strict=True):
            same = cell == str(value).lower() if isinstance(value, bool) else float(cell) == value
            assert cell != "-0"
            assert same or value is None and not math.isfinite(float(cell)), (cell, value)
    usage = run("--help").stdout
    assert all(key.removeprefix("arpack_").removeprefix("hybrj1_") in usage for key in header)
    return whole, modes, report.stdout


def finds_the_modes_and_writes_them_down():
    whole, report = fits("--orders", "90", "--output", f"{folder}/new/cavity")
    said = re.search("all 9877 exact modes to (\\S+) .* order 29833 from (\\S+) .* to (\\S+)[.]\n", report, re.DOTALL)
    distance, solves, residual = map(float, said.groups())
    assert distance < 1e-11 and solves > 100 and residual < 1e-12
    assert all(max(mode["amplitude_error"], mode["phase_error_rad"]) < 1e-6 for mode in whole["modes"])
    # The lowest is near that of the continuous cavity.
    frequency = 299792458 / math.sqrt(2.1) / 2 * math.hypot(1 / 120e-3, 1 / 84e-3)
    assert math.isclose(whole["modes"][0]["frequency_hz"], frequency, rel_tol=1e-4)
    assert math.isclose(whole["modes"][0]["decay_per_s"], 2e-3 / (2 * 2.1 * 8.8541878e-12), rel_tol=1e-4)
    for name, least in {"record": 8001, "modes": 17, "poles": 90, "singular": 132 + 88, "response": 600}.items():
        assert len(columns(f"new/cavity-{name}")) >= least, name
    assert os.path.exists(f"{folder}/new/cavity.png") and os.path.exists(f"{folder}/new/cavity-response.png")


def draws_one_pole_and_none():
    for values in [1, 0.5, 0.25, 0.125], [1, -1, 1, -1], [0, 1, 0, 1], [1, 0, 0, 0]:
        fit = field(values, 1) + ("--orders", "1", "--output", f"{folder}/one")
        drawn = run(*fit)
        assert (drawn.returncode, drawn.stderr) == (0, ""), drawn
        assert all(math.isfinite(cell) for row in columns("one-record") + columns("one-response") for cell in row)
        os.remove(f"{folder}/one.png")
        missing = run(*fit, env={"PATH": "/nowhere"})
        assert missing.returncode == 0 and "no picture: gnuplot: No such file or directory\n" in missing.stdout
    assert columns("one-record")[0][-1] < 1e-12, "a zero at the origin is gone after the first sample, but not there"


def takes_a_few_samples_per_period_and_a_range_of_orders():
    strong, weak, fourth = (-0.02 + 2j * math.pi, 1), (-0.02 + 18j * math.pi, 1e-6), 8j * math.pi
    for modes, spacing, count, stride in (
            ([strong, weak, (-0.02 + fourth, 0.1)], 0.01, 4000, [9]),
            ([strong, weak, (-0.02 - fourth, 0.1)], 0.01, 4000, [9]),
            ([strong, weak, (-0.8 + fourth, 0.1)], 0.01, 4000, range(6, 11)),  # one that is soon gone
            ([(-1, 1)], 1e-4, 6400, [100]),  # one that does not oscillate
            ([(3j, 1)], 1, 400, [1])):  # one that fills the band
        whole, _ = fits(*field(ringing(modes, spacing, count), spacing), "--orders", "4")
        assert round(whole["sample_step_s"] / spacing) in stride, (modes, whole)
    for count, orders in (300, [75, 81, 87, 93, 100]), (4, [1]):
        whole, _ = fits(*field(ringing([(3j, 1)], 1, count), 1))
        assert [fit["order"] for fit in whole["fits"]] == orders
    fits(*field([0, 0, 0, 0, 0, 1], 1), "--orders", "1:3")  # all errors are alike
    whole, report = fits(*field([1e-150] * 6, 1), "--orders", "1:3")
    assert whole["order"] < 3 and "\n      3  Sub SLATEC_CSVDC: not all singular values are correct !\n" in report


def counts_the_exponentials_above_the_noise():
    def ranks(values, *fit):
        whole, _ = fits(*field(values, 0.05), "--orders", "60", *fit)
        return whole["singular_values_above_noise"], whole["analytic_singular_values_above_noise"]

    # sin(k^3) is as good as white noise.
    modes = ringing([(-0.02 + 3.1j, 1), (-0.03 + 3.7j, 0.1j), (-0.01 + 4j, 0.5)], 0.05, 1601)
    for size in 0, 1e-9, 1e-3:
        noisy = [value + size * math.sin(k**3) for k, value in enumerate(modes)]
        for values, expected in (noisy, (3, None)), ([value.real for value in noisy], (6, 3)):
            assert ranks(values, "--decimate", "8", "--samples", "200") == expected, size
    # At a step as short as this, white noise fills but half the band; slow modes leave a trace of their conjugates.
    noisy = [y.real + 1e-2 * math.sin(k**3) + 9 * math.cos(1.3 * k) for k, y in enumerate(modes[:800])]
    assert 4 <= ranks(noisy, "--decimate", "1", "--samples", "800")[1] <= 7


def tells_modes_from_the_rest():
    # At a step that spreads the modes over the band: close together, at the true order, they would be lost to rounding.
    step, count = 0.5, 40
    values = ringing([(-3, 0.5), (1j, 0.5j), (-0.1 + 2j, 1), (0.05 + 3j, 10), (-0.1 + 4j, 1e-5)], step, count)
    for values, threshold, kinds in (
            (values, "1e-6", "kept kept kept growing kept"),
            ([value.real for value in values], "1e-3",
             "negligible growing conjugate conjugate kept kept kept growing negligible")):
        fits(*field(values, step), "--decimate", "1", "--orders", str(len(kinds.split())), "--threshold", threshold,
             "--output", f"{folder}/out")
        with open(f"{folder}/out-poles.dat") as file:
            assert [line.split()[-1] for line in file][1:] == kinds.split()
        for real, imaginary, *z, amplitude, share in columns("out-poles"):
            square = sum(math.exp(2 * real * step * k) for k in range(count)) / count
            assert math.isclose(share, amplitude * math.sqrt(square), rel_tol=1e-5)
            assert cmath.isclose(complex(*z), cmath.exp(step * complex(real, imaginary)), rel_tol=1e-12)
        assert max(row[-1] for row in columns("out-record")) < 1e-6, "the model is the record"
    # What the fit leaves unexplained hides what is smaller.
    noisy = [1e6 * (y.real + 1e-3 * math.sin(k**3)) for k, y in enumerate(ringing([(-0.1 + 2j, 1)], 0.1, 200))]
    _, report = fits(*field(noisy, 0.1), "--decimate", "1", "--orders", "16:20", "--threshold", "0")
    assert " poles: 1 modes, 1 complex conjugates of modes, " in report, report


def gives_the_spectrum_of_the_whole_record():
    values = ringing([(-0.008 - 1.3j, 0.1 + 0.3j), (-0.1 - 0.9j, 1e-3), (-0.2 + 1.1j, 0.5)], 0.5, 6000)
    values[0] += 3  # before the fit, but among its samples
    values[3] += 100  # not among them
    for values, order, band, peaks in (
            (values, "3", (-0.25, 0.25), [True, False, True]),
            ([value.real for value in values], "6", (0, 0.25), [False, True, True])):
        whole, _ = fits(*field(values, 0.5, -7.0), "--start", "-3", "--decimate", "4", "--samples", "40",
                        "--orders", order, "--output", f"{folder}/out")
        rows = columns("out-response")
        for frequency, real, imaginary, _ in rows:
            turn = -2j * math.pi * frequency
            exact = 2 * sum(y * cmath.exp(turn * (2 * k - 7)) for k, y in enumerate(values[::4]))
            assert abs(complex(real, imaginary) - exact) < 1e-6, frequency
        # The curve is fine around each mode, and a weak one beside a strong one has no peak.
        frequencies = [row[0] for row in rows]
        assert frequencies == sorted(frequencies) and (frequencies[0], frequencies[-1]) == band
        for mode, peak in zip(whole["modes"], peaks, strict=True):
            place = frequencies.index(mode["frequency_hz"])
            assert frequencies[place + 1] - frequencies[place - 1] < 0.26 * mode["decay_per_s"] / math.pi
            assert mode["peak"] == peak, mode


def gives_results_of_a_cavity():
    # The fit finds a part of the modes, and something that is not there.
    whole, modes, report = results(1, "--orders", "30")
    assert (whole["samples"], whole["order"], whole["as_expected"]) == (264, 30, False) and "MISSED" in report
    found = [mode["frequency_hz"] is not None for mode in modes]
    assert any(found) and not all(found) and modes[-1]["m"] is None
    for mode in modes[:found.index(False)]:
        errors = "".join(f"     {mode[road + 'frequency_error']:7.1e}  {mode[road + 'q_error']:7.1e}"
                         for road in ("", "arpack_", "hybrj1_"))
        assert f"{mode['exact_frequency_hz'] / 1e9:15.10f} {mode['exact_q']:10.5f}{errors}\n" in report
        phases = mode["phase_rad"], mode["exact_phase_rad"]
        assert math.isclose(mode["phase_error_rad"], abs(phases[0] - phases[1]), rel_tol=1e-4), phases


def gives_results_of_a_record():
    decaying = record(*(f"{k}e-12 {math.exp(-5e-4 * k) * math.cos(0.12 * math.pi * k)!r}" for k in range(400)))
    whole, (mode,), report = results(0, *decaying, "--start", "40e-12", "--decimate", "4", "--orders", "1:27:26",
                                     "--output", f"{folder}/out")
    assert [mode["frequency_hz"], mode["q"], mode["amplitude"]] == columns("out-modes")[0][:3]
    frequencies = [row[0] for row in columns("out-response")]
    assert math.isclose(frequencies[0], 58.2e9) and math.isclose(frequencies[-1], 61.8e9)
    assert (whole["samples"], whole["singular_values_above_noise"]) == (90, 2)
    for value, expected in ((whole["first_sample_s"], 40e-12), (whole["sample_step_s"], 4e-12),
                            (mode["frequency_hz"], 60e9), (mode["decay_per_s"], 5e8),
                            (mode["amplitude"], 0.5 * math.exp(-0.02)), (mode["phase_rad"], 0.8 * math.pi)):
        assert math.isclose(value, expected, rel_tol=1e-9), (value, expected)
    assert f"* {whole['order']:5}  {whole['err_l2']:9.2e}  {whole['err_rms']:9.2e}" in report
    assert "Singular values above noise: 2 of 45 of the record, 2 of 30 of its" in report
    assert (f"{mode['frequency_hz'] / 1e9:16.10f}  {mode['q']:14.7g}  {mode['amplitude']:12.5e}  "
            f"{math.degrees(mode['phase_rad']):12.6f}   yes\n") in report

    growing = record(*(math.exp(1e-8 * k) for k in range(20)))  # by less than what counts as growth
    _, modes, _ = results(0, *growing, "--dt", "1")
    assert any(mode["q"] is None for mode in modes), "no loss"
    constant = record(*[1] * 20)
    _, _, report = results(0, *constant, "--dt", "1", "--orders", "1")
    assert "-0.0" not in report, report


def takes_the_usual_forms_of_records_and_options():
    lines = "# a probe", "", "  1.0e-9, +1 , -2.5 # first\r", "2D-9;3;4", "3.0000001e-09\t5\t1d2", "4e-9 6 7"
    for lines, arguments, expected in (
            (lines, [], [1e-9, 1, -2.5, 2e-9, 3, 4, 3e-9, 5, 100, 4e-9, 6, 7]),
            (["0.5 1", "0.25 2", "1 3", "2 4"], ["--dt=0.5"], [0, 0.5, 1, 0.5, 0.25, 2, 1, 1, 3, 1.5, 2, 4])):
        written = run(*record(*lines), *arguments, "--orders=1", "--output", f"{folder}/out", env={"PATH": "/nowhere"})
        assert written.returncode == 0, written
        read = [cell for row in columns("out-record") for cell in row[:3]]
        assert all(math.isclose(*pair, rel_tol=1e-7) for pair in zip(read, expected, strict=True)), read
    whole, _ = fits(*record(*range(1, 21)), "--dt", "1", "--orders", "4:9:2", "--start", "-1.5", "--json")
    assert [fit["order"] for fit in whole["fits"]] == [4, 6, 8]


def names_the_line_or_option_at_fault():
    spaced = ": the times are not equally spaced: "
    layout = "part [imaginary part]"
    for lines, options, message in (
            (["# x", "0 1", "1 2.5.1"], [], ":3: '2.5.1' is not a number"),
            (["0 1", "1 nan"], [], ":2: 'nan' is not a finite number in double precision"),
            (["0 1", "1 1e999"], [], ":2: '1e999' is not a finite number in double precision"),
            (["0 1 2", "", "2 3"], [], ":3: 2 columns, where the lines before have 3"),
            (["7", "8"], [], f":1: 1 column; the columns are: time, real {layout}; for a record without times give --dt"),
            (["0 1 2"], ["--dt", "1"], f":1: 3 columns; with --dt the columns are: real {layout}"),
            (["0 1", "1 1", "2 1", "4 1", "5 1"], [], f":4{spaced}a step of 2 to 4, where 1 is usual"),
            (["0 1", "1 1", "2 1", "2 1", "3 1"], [], ":4: time 2 does not come after 2"),
            # Every step is within its tolerance of the usual one, but they do not add up to a straight line.
            ([f"{t} 1" for t in (0, 1, 2, 3, 4, 5.09, 6.18, 7.27, 8.36)], [],
             f":4{spaced}3, where equal steps lead to 3.135"),
            (["# nothing"], [], ": no record: the file has fewer than two samples")):
        fails((*record(*lines), *options), record(*lines)[1] + message)
    fails(("--record", "/no/such/file"), "/no/such/file: cannot be opened: No such file or directory")
    fails(("--record", folder), f"{folder}: cannot be read: Is a directory")
    for arguments, message in (
            (["--records", "x"], "--records: unknown option; --help lists them"),
            (["--start"], "--start: a value is missing"),
            (["--decimate", "0"], "--decimate: '0' is not a whole number from 1 on"),
            (["--samples=1e3"], "--samples: '1e3' is not a whole number from 1 on"),
            (["--samples=3000000000"], "--samples: '3000000000' is too large"),
            (["--record", "x", "--dt", "nan"], "--dt: 'nan' is not a time above zero"),
            (["--dt", "1"], "--dt: the spacing belongs to a record, which --record names"),
            (["--orders", "3:1"], "--orders: '3:1' ends before it begins"),
            (["--orders", "1:2:3:4"], "--orders: '1:2:3:4' is not FIRST, FIRST:LAST or FIRST:LAST:STEP"),
            (["--json", "--csv"], "--csv: one of --json and --csv is enough"),
            (["--json=x"], "--json: takes no value")):
        fails(arguments, message)


def says_in_one_line_what_hinders():
    zero = record("0 0", "1 0", "2 0", "3 0")
    fails(zero, "the record is zero where it would be fitted: is the probe on a node of every mode?", "Record: ")
    fails(field([1e-200] * 6, 1), "Sub SLATEC_CSVDC: not all singular values are correct !", "Record: ")
    fails(field([0, 0, 0, 1e-200], 1), "no fit has finite measures", "Record: ")
    ramp = record("0 1", "1 2", "2 3", "3 4", "4 5")
    for arguments, message in (
            (["--start", "2"], "too few samples are left to fit: 3, where 4 are the least"),
            (["--start", "9"], "--start: the record ends before this time"),
            (["--orders", "3"], "order 3 takes 6 samples at least; there are 5"),
            (["--output", ramp[1] + "/x"], f"{ramp[1]}: cannot be made: Not a directory")):
        fails((*ramp, *arguments), message, "Record: ")
    fails(["--library", "/no/such.so"], "Tessel cannot be loaded: /no/such.so: cannot open shared object file: "
                                        "No such file or directory")
    for form in (), ("--json",):
        with open("/dev/full", "w") as full:
            wrong = run(*ramp, *form, stdout=full)
        assert wrong.returncode == 2
        assert wrong.stderr.endswith("resonator: standard output: cannot be written: No space left on device\n")


with tempfile.TemporaryDirectory() as folder:
    globals()[sys.argv[2]]()
