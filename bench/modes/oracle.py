#!/usr/bin/python3
"""Programs that know the truth, to try the scorer with.

    oracle.py exact|drawn|bad FILE

exact   the modes that are to be found, with the bound for standard errors
drawn   the same with errors drawn from the bound: what an efficient estimate would print
bad     loses modes, moves some by ten bounds, invents some, has bars three times too small, and on some records crashes,
        hangs or prints nonsense
"""
import json
import math
import pathlib
import sys
import time
import zlib

import numpy as np

import records


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


def main():
    what, path = sys.argv[1], pathlib.Path(sys.argv[2])
    truths = json.loads((path.parent / "truth.json").read_text())
    number = next(k for k, record in enumerate(truths) if record["file"] == path.name)
    rng = np.random.default_rng(zlib.crc32(str(path).encode()))
    told = answer("exact" if what == "exact" else "drawn", truths[number], rng)
    if what == "bad":
        told["modes"] = bad(told["modes"], rng, number)
    json.dump(told, sys.stdout)


if __name__ == "__main__":
    main()
