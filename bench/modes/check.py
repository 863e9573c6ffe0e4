#!/usr/bin/python3
"""Checks the records, their bounds and the scorer against what is known otherwise; fails if any is off.

    check.py FOLDER          (a folder made by records.py with at least four records of a kind)

bound       against the inverse Fisher matrix from difference quotients and the noise's dense covariance
drive       against convolution with the drive, in double precision, before and behind its end
simulation  the record against its modes, their poles against roots to 40 digits
scorer      an oracle with errors drawn from the bound, and one with all faults
"""
import json
import pathlib
import sys

import mpmath
import numpy as np
import scipy.linalg
import scipy.signal

import cavities
import oracle
import records
import score
from exponentials import LD, evaluate

failed = []


def report(what, value, limit):
    good = value <= limit
    print(f"  {what:58}{value:10.2g}  <= {limit:<8g}{'ok' if good else 'OFF'}")
    if not good:
        failed.append(what)


def plain_model(parameters, t, trend, complex_record):
    """The record from its definition; the parameters count from t = 0."""
    y = np.zeros(len(t), np.clongdouble)
    rows = parameters[: len(parameters) - trend].reshape(-1, 4)
    for f, g, ln_a, p in rows:
        y += np.exp(ln_a - g * t) * np.exp(1j * (2 * cavities.PI * f * t + p))
    y = y if complex_record else y.real
    for k in range(trend):
        y = y + parameters[len(parameters) - trend + k] * (t / t[-1]) ** k
    return np.concatenate((y.real, y.imag)) if complex_record else y


def check_bounds(truths):
    """Decays and frequencies in units of 1 / span and differences of 1e-5 of what changes the record by its size."""
    print("bound, worst relative difference")
    done = {}
    for record in truths:
        kind = record["kind"]
        modes = records.modes_of(record)
        count = record["samples"] - record["end"]
        if (done.get(kind, 0) >= 2 or record["group"] in ("simulated", "nothing") or not 1 <= len(modes) <= 12
                or count > (6000 if record["colour"] else 12000)):
            continue
        trend, dt, is_complex = record["trend"], record["dt"], record["complex"]
        end = LD(record["end"]) * LD(dt)
        t = np.arange(count).astype(LD) * LD(dt)
        first = np.array([(f, g, np.log(LD(a)) - g * end, p + 2 * cavities.PI * ((LD(f) * end) % 1))
                          for f, g, a, p in modes.astype(LD)], LD).ravel()
        parameters = np.concatenate((first, np.zeros(trend, LD)))
        steps = np.array([0.1, 1, 1, 1] * len(modes) + [1] * trend, LD) * LD(1e-6)
        life = np.minimum(1 / np.maximum(np.abs(modes[:, 1]), 1e-300), count * dt)
        scale = np.ones(len(parameters), LD)
        scale[0: 4 * len(modes): 4] = scale[1: 4 * len(modes): 4] = 1 / life
        scale[4 * len(modes):] = np.abs(plain_model(parameters, t, trend, is_complex)).max()
        columns = []
        for k, step in enumerate(steps * scale):
            shift = np.zeros(len(parameters), LD)
            shift[k] = step
            change = plain_model(parameters + shift, t, trend, is_complex) - plain_model(parameters - shift, t, trend,
                                                                                         is_complex)
            columns.append((change / (2 * steps[k])).astype(float))
        j = np.array(columns).T
        real_decay = [k for k, mode in enumerate(modes) if mode[0] == 0.0 and not is_complex]
        gone = {4 * k for k in real_decay} | {4 * k + 3 for k in real_decay}
        kept = [k for k in range(len(parameters)) if k not in gone]
        j = j[:, kept]
        if record["colour"]:
            impulse = scipy.signal.lfilter([1.0], np.concatenate(([1.0], record["colour"])),
                                           np.eye(1, 40000)[0])  # x = sum_k impulse(k) e(n - k)
            covariance = scipy.signal.fftconvolve(impulse, impulse[::-1])[len(impulse) - 1:][:count]
            fisher = j.T @ scipy.linalg.solve(scipy.linalg.toeplitz(covariance / covariance[0]), j, assume_a="pos")
        else:
            fisher = j.T @ j
        norm = np.sqrt(np.diag(fisher))
        variance = np.diag(scipy.linalg.inv(fisher / np.outer(norm, norm))) / norm**2
        sd = record["sigma"] * np.sqrt(variance) * scale[kept].astype(float)
        entries = [mode for mode in record["modes"] if not mode.get("trend")]
        own = np.array([[m[f"sd_{key}"] for key in ("frequency", "decay", "ln_amplitude", "phase")] for m in entries])
        own = np.delete(own.ravel(), sorted(gone))
        report(f"{record['file']} ({len(modes)} modes)", np.abs(sd[: len(own)] / own - 1).max(), 1e-4)
        done[kind] = done.get(kind, 0) + 1


def check_drives(seed, count):
    """The free part is the sum of the modes by construction; that the drive's response goes over into it is not."""
    print("drive, largest difference from convolution / peak")
    for kind in ("driven", *records.GROUPS["drives"]):
        worst = 0.0
        for number in range(count):
            rng = np.random.default_rng([seed, number])
            draft = records.free_of(kind, rng, number)
            how, length = draft.drive, draft.end - draft.drive["silence"] + 500
            d = np.full(length, how["rest"])
            d[: len(how["samples"])] = how["samples"]
            k = np.arange(length).astype(LD)[:, None]
            impulse = (np.exp(np.log(how["z"]) * k) @ how["c"]).real.astype(float)
            y = scipy.signal.fftconvolve(d, impulse)[:length] + how["through"] * d
            exact = records.exact_samples(draft)[how["silence"]:][:length].astype(float)
            worst = max(worst, float(np.abs(y[: len(exact)] - exact).max() / np.abs(exact).max()))
        report(f"{kind}, {count} records", worst, 1e-12)


def check_simulations(folder, truths):
    print("simulation, rms difference of record and modes / peak")
    for record in (record for record in truths if record["group"] == "simulated"):
        y = np.loadtxt(folder / record["file"])[record["end"]:, 1]
        left = y - evaluate(records.modes_of(record), record["dt"], record["end"], record["samples"]).astype(float)
        single = record["kind"].endswith("single")
        report(f"{record['file']} ({record['variant']}, {record['samples']} samples)",
               float(np.sqrt(np.mean(left**2)) / np.abs(y).max()), 3e-6 if single else 2e-13)
    mpmath.mp.dps = 40
    worst = 0.0
    for real in (np.float64, np.float32):
        for s, loss, cells in ((0.9, 0.02, 11), (0.5, 1e-4, 40), (0.9, 0.0, 25)):
            a, one = real(loss), real(1)
            c, b = (one - a) / (one + a), real(s) / (one + a)
            m = np.arange(1, cells)
            q = LD(real(s)) * LD(b) * 4 * cavities.sine(m, 1, 2 * cells) ** 2
            decay, angle = cavities.poles(LD(c), q)
            for k, own_angle in zip(m, angle):
                shape = mpmath.sin(mpmath.pi * int(k) / (2 * cells))
                step = mpmath.mpf(float(real(s))) * mpmath.mpf(float(b))
                middle = (1 + mpmath.mpf(float(c)) - step * 4 * shape**2) / 2
                pole = mpmath.log(middle + mpmath.sqrt(middle**2 - mpmath.mpf(float(c))))
                own = mpmath.mpc(*(mpmath.mpf(np.format_float_scientific(x, precision=22, unique=False))
                                   for x in (-decay, own_angle)))
                worst = max(worst, float(abs(own - pole) / abs(pole)))
    report("poles against roots to 40 digits, relative", worst, 1e-18)
    q = LD(0.9) * LD(0.9) / LD(1.02) * 4 * cavities.sine(np.arange(1, 11), 1, 22) ** 2
    decay, angle = cavities.poles(LD(0.98) / LD(1.02), q)
    own, known = (decay, angle[0], angle[9]), (0.0200026673068, 0.256109615795, 2.198523562352)
    report("eleven cells, S = 0.9, a = 0.02: decay and two angles",
           max(abs(float(value) - digits) for value, digits in zip(own, known)), 1e-12)


def check_scorer(folder, truths, draws):
    print("scorer")
    rng = np.random.default_rng(5)
    outcomes = []
    for record in (record for record in truths if record["group"] not in ("simulated", "nothing") and record["level"]):
        for _ in range(draws if record["samples"] < 20000 else 1):
            told = score.parsed(json.dumps(oracle.answer("drawn", record, rng)))
            rows, false = score.judge(record, told)
            found = sum(row["wanted"] and row["right_f"] and row["right_g"] for row in rows)
            wanted = sum(mode["identifiable"] for mode in record["modes"])
            outcomes.append({"record": record, "rows": rows, "wanted": wanted, "found": found, "false": false,
                             "seconds": 0, "faultless": found == wanted, "remarks": 0, "memory": 0, "failure": ""})
    figures = score.summary(outcomes)
    print(f"  {figures['modes']} modes drawn from the bound, found {figures['found']:.2%}, "
          f"false {figures['false']:.3f} a record")
    for key in ("frequency", "decay"):
        # limits are four standard deviations of what is drawn
        report(f"error / bound of the {key} less 0.674", abs(figures[f"error_{key}"] - 0.6745),
               round(4 * 0.787 / figures["modes"] ** 0.5, 4))
    for key, bars in figures["bars"].items():
        for part, expected in zip(bars["within"], (0.6827, 0.9545, 0.9973)):
            report(f"{key}: share {part:.4f} less {expected}", abs(part - expected),
                   round(4 * (expected * (1 - expected) / bars["count"]) ** 0.5, 4))
    report("not found (3 of 1000 errors are beyond three bounds)", 1 - figures["found"], 0.012)
    command = f"{sys.executable} {pathlib.Path(oracle.__file__)} bad {{file}}"
    for number, expected in ((7, "exit code 1"), (17, "no end within"), (27, "nonsense")):
        failure = score.run(command, folder / truths[number]["file"], 3.0)[3]
        report(f"named: {failure}", 0.0 if failure.startswith(expected) else 1.0, 0.0)


def main():
    folder = pathlib.Path(sys.argv[1])
    truths = json.loads((folder / "truth.json").read_text())
    check_bounds(truths)
    check_drives(1, 6)
    check_simulations(folder, truths)
    check_scorer(folder, truths, 6)
    print(f"{len(failed)} are off" if failed else "all is as it should be")
    sys.exit(bool(failed))


if __name__ == "__main__":
    main()
