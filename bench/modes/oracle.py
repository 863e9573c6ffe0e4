#!/usr/bin/python3
"""Programs that know the truth, to try the scorer with.

    oracle.py exact|drawn|fitted|bad FILE

exact   the modes that are to be found, with the bound for standard errors
drawn   the same with errors drawn from the bound: what an efficient estimate would print
fitted  least squares on the record itself, from the true modes, the noise's colour known: what a program can reach that
        makes no mistake in start, order and end of the drive
bad     loses modes, moves some by thirty bounds, invents some, has bars three times too small, and on some records
        crashes, hangs or prints nonsense
"""
import json
import math
import pathlib
import sys
import time
import zlib

import numpy as np

import records
from exponentials import LD, PI, evaluate, jacobian


def bad(modes, rng, number):
    if number % 40 == 7:
        raise SystemExit("crashed on purpose")
    if number % 40 == 17:
        time.sleep(3600)
    if number % 40 == 27:
        print('{"modes": [{"frequency": NaN, "decay": 1}]}')
        raise SystemExit(0)
    kept = [mode for mode in modes if rng.random() < 0.9]
    for mode in kept:
        if rng.random() < 0.1:
            mode["decay"] += 30 * mode["decay_se"] + 0.02 * mode["decay"]
        for key in ("frequency", "decay", "amplitude", "phase"):
            mode[f"{key}_se"] /= 3
    if kept and rng.random() < 0.5:
        kept.append(kept[0] | {"frequency": 1.37 * kept[-1]["frequency"] + 1.0})
    return kept


def answer(what, record, rng):
    """What exact and drawn print."""
    true = [mode for mode in record["modes"] if not mode.get("trend")]
    shift = np.zeros((len(true), 4))
    if what != "exact" and true and record["group"] != "simulated":
        factor = records.factor_of(record, records.modes_of(record))
        shift = (factor @ rng.standard_normal(factor.shape[1])).reshape(-1, 4)
    end = record["end"] * record["dt"]
    modes = []
    for mode, (df, dg, da, dp) in zip(true, shift):
        amplitude = mode["amplitude"] * math.exp(-mode["decay"] * end)
        turns = float((np.longdouble(mode["frequency"]) * np.longdouble(end)) % 1)
        if mode["identifiable"]:
            modes.append({"frequency": mode["frequency"] + df, "decay": mode["decay"] + dg,
                          "amplitude": amplitude * (1 + da), "phase": mode["phase"] + 2 * np.pi * turns + dp,
                          "frequency_se": mode["sd_frequency"], "decay_se": mode["sd_decay"],
                          "amplitude_se": amplitude * mode["sd_ln_amplitude"], "phase_se": mode["sd_phase"]})
    return {"reference_time": end, "modes": modes, "remarks": [] if modes else ["nothing rings"]}


def fitted(record, path):
    """Gauss-Newton steps on the trend and all modes that can be seen at all; bars from the residual's own size."""
    true = [mode for mode in record["modes"] if not mode.get("trend")]
    seen = [mode["identifiable"] or mode["sd_ln_amplitude"] < 0.3 for mode in true]
    if not true:
        return answer("exact", record, None)
    if len(true) * record["samples"] > 3_000_000:
        raise SystemExit("too large for a dense Jacobian")
    columns = np.loadtxt(path)[record["end"]:]
    y = columns[:, 1] + 1j * columns[:, 2] if record["complex"] else columns[:, 1]
    is_complex, dt, count = record["complex"], record["dt"], len(y)
    end = record["end"] * record["dt"]
    true = [mode for mode, shown in zip(true, seen) if shown]
    p = records.modes_of(record)[seen].astype(LD)  # f, g, A and phase from here on at the first free sample
    cycles = p[:, 0] * LD(record["end"]) * LD(dt)
    p[:, 2] *= np.exp(-p[:, 1] * LD(record["end"]) * LD(dt))
    p[:, 3] += 2 * PI * (cycles - np.floor(cycles))
    free = np.ones(p.shape, bool)
    if not is_complex:
        free[p[:, 0] == 0] = (False, True, True, False)
    whiten = records.Colour(record["colour"]).whiten if record["colour"] else lambda columns: columns
    for _ in range(6):
        left = y - evaluate(p, dt, 0, count, is_complex)
        left = (np.concatenate((left.real, left.imag)) if is_complex else left).astype(float)
        j = whiten(jacobian(p, dt, 0, np.arange(count), record["trend"], is_complex))
        left = whiten(left[:, None])[:, 0]
        scale = np.sqrt((j**2).sum(0))
        q, r = np.linalg.qr(j / scale)
        step = np.linalg.lstsq(r, q.T @ left, rcond=None)[0] / scale
        change = np.zeros(p.shape)
        change[free] = step[: free.sum()]
        p[:, [0, 1, 3]] += change[:, [0, 1, 3]]
        p[:, 2] *= np.exp(np.clip(change[:, 2], -1, 1))
    left -= j @ step
    sigma = np.sqrt(np.mean(left**2) * len(left) / max(1, len(left) - len(step)))
    sd = np.zeros(p.shape)
    sd[free] = (sigma * np.sqrt((np.linalg.pinv(r) ** 2).sum(1)) / scale)[: free.sum()]
    modes = [{"frequency": float(row[0]), "decay": float(row[1]), "amplitude": float(row[2]), "phase": float(row[3]),
              "frequency_se": s[0], "decay_se": s[1], "amplitude_se": float(row[2]) * s[2], "phase_se": s[3]}
             for row, s, mode in zip(p, sd, true) if mode["identifiable"]]
    return {"reference_time": end, "modes": modes, "remarks": []}


def main():
    what, path = sys.argv[1], pathlib.Path(sys.argv[2])
    truths = json.loads((path.parent / "truth.json").read_text())
    number = next(k for k, record in enumerate(truths) if record["file"] == path.name)
    rng = np.random.default_rng(zlib.crc32(str(path).encode()))
    told = fitted(truths[number], path) if what == "fitted" else answer(
        "exact" if what == "exact" else "drawn", truths[number], rng)
    if what == "bad":
        told["modes"] = bad(told["modes"], rng, number)
    json.dump(told, sys.stdout)


if __name__ == "__main__":
    main()
