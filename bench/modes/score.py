#!/usr/bin/python3
"""Runs programs that look for modes over the records of records.py and prints what they find, beside the goals.

    score.py --records DIR [DIR ...] [--by KEY] [--timeout S] [--core N] [--each] [--only KIND,...]
             [--json FILE] [--markdown FILE] 'NAME=COMMAND {file}' ...

The programs take turns, one process at a time. Each prints JSON:

    {"reference_time": s, "seconds": s, "remarks": [...], "modes": [{"frequency", "decay", "amplitude", "phase",
     "frequency_se", "decay_se", "amplitude_se", "phase_se"}, ...]}

The time counts from the first sample. Amplitude and phase are those of A exp(-g (t - reference)) cos(2 pi f (t -
reference) + p), of a complex record of A exp(...); a real decay has f = 0 and phase 0 or pi. Standard errors may be
missing or null; so may "seconds", the processor time of the analysis alone, for which that of the whole process is then
taken.
A program that crashes, takes too long or prints anything else has failed on this record: nothing is found there.

found       modes to be found whose frequency is within 3 bounds or 1e-6 and whose decay within 3 bounds or 1e-3; of a
            simulation within 10 bounds or 1e-6 of |s|: its rounding is no white noise
false       reported modes beside no true one: 10 bounds, 1e-3 of |s|, a quarter of the distance to the next mode
faultless   records with everything found and nothing false
error/bound medians over the noisy records' matched modes, of f and of g; an efficient estimate has 0.67
< 1, 2, 3   shares of the errors below so many standard errors, matched modes that are to be found; then the largest
"""
import argparse
import json
import math
import os
import pathlib
import shlex
import signal
import subprocess
import sys
import tempfile
import time

import numpy as np

TWO_PI = 2 * np.pi
QUANTITIES = ("frequency", "decay", "amplitude", "phase")
GROUP_TITLES = {"basic": "rings and drives, white noise", "unusual": "unusual records", "drives": "drives of any shape",
                "coloured": "coloured noise", "nothing": "nothing there", "simulated": "simulations",
                "million": "a million samples", "published": "published sets",
                "growth": "more and more samples and modes"}
OTHERWISE = {"group": "basic", "variant": "", "background": 0.0, "complex": False}  # of records made elsewhere


class Nonsense(ValueError):
    """What was printed is no result."""


def number(value, name, optional=False):
    if optional and value is None:
        return None
    if isinstance(value, bool) or not isinstance(value, (int, float)) or not math.isfinite(value):
        raise Nonsense(f"{name} is no number")
    return float(value)


def parsed(text):
    """The result that a program printed, or Nonsense."""
    try:
        printed = json.loads(text)
    except ValueError:
        raise Nonsense("no JSON") from None
    if not isinstance(printed, dict) or not isinstance(printed.get("modes"), list):
        raise Nonsense("no modes")
    modes = []
    for mode in printed["modes"]:
        if not isinstance(mode, dict):
            raise Nonsense("a mode is no object")
        entry = {key: number(mode.get(key), key, optional=key in ("amplitude", "phase")) for key in QUANTITIES}
        entry |= {f"{key}_se": number(mode.get(f"{key}_se"), f"{key}_se", optional=True) for key in QUANTITIES}
        if any((entry[f"{key}_se"] or 0) < 0 for key in QUANTITIES):
            raise Nonsense("a standard error is negative")
        modes.append(entry)
    remarks = printed.get("remarks") or []
    return {"modes": modes, "reference": number(printed.get("reference_time") or 0.0, "reference_time"),
            "seconds": number(printed.get("seconds"), "seconds", optional=True),
            "remarks": len(remarks) if isinstance(remarks, list) else 1}


def peak_memory(process):
    """Of a running process, in bytes."""
    try:
        status = pathlib.Path(f"/proc/{process}/status").read_text()
    except OSError:
        return 0
    return next((1024 * int(line.split()[1]) for line in status.splitlines() if line.startswith("VmHWM")), 0)


def run(command, path, timeout):
    """Result, seconds, memory in bytes and failure ("" if none) of one process."""
    words = [word.replace("{file}", str(path)) for word in shlex.split(command)]
    environment = os.environ | {"OPENBLAS_NUM_THREADS": "1", "OMP_NUM_THREADS": "1"}
    nothing = {"modes": [], "reference": 0.0, "seconds": None, "remarks": 0}
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        try:
            process = subprocess.Popen(words, stdout=out, stderr=err, stdin=subprocess.DEVNULL, env=environment,
                                       start_new_session=True)
        except OSError as error:
            return nothing, 0.0, 0, f"does not start: {error.strerror}"
        # The peak is read while the program runs: the one given at its end counts this process before exec, too.
        memory, late, end = 0, False, time.monotonic() + timeout
        while True:
            ended, status, usage = os.wait4(process.pid, os.WNOHANG)
            if ended:
                break
            memory = max(memory, peak_memory(process.pid))
            if not late and time.monotonic() > end:
                late = True
                os.killpg(process.pid, signal.SIGKILL)
            time.sleep(0.004)
        process.returncode = os.waitstatus_to_exitcode(status)
        seconds = usage.ru_utime + usage.ru_stime
        if late:
            return nothing, max(seconds, timeout), memory, f"no end within {timeout:g} s"
        if process.returncode:
            err.seek(0)
            said = err.read(4096).decode(errors="replace").strip().splitlines()
            return nothing, seconds, memory, f"exit code {process.returncode}" + (f": {said[-1][:60]}" if said else "")
        out.seek(0)
        try:
            result = parsed(out.read(1 << 26).decode(errors="replace"))
        except Nonsense as error:
            return nothing, seconds, memory, f"nonsense: {error}"
        return result, seconds if result["seconds"] is None else result["seconds"], memory, ""


def poles_of(modes):
    return np.array([complex(-mode["decay"], TWO_PI * mode["frequency"]) for mode in modes], complex)


def match(truth, found):
    """Pairs (true, reported), one to one, nearest first in units of the bound, modes that are to be found before the
    others."""
    if not truth or not found:
        return []
    true, told = poles_of(truth), poles_of(found)
    apart = np.abs(true[:, None] - true[None, :])
    np.fill_diagonal(apart, np.inf)
    near = apart.min(axis=1) / 4
    sd = np.array([np.hypot(TWO_PI * mode["sd_frequency"], mode["sd_decay"]) for mode in truth])
    limit = np.maximum(10 * sd, np.minimum(near, np.maximum(1e-3 * np.abs(true), 0.25 * np.abs(true.real))))
    away = np.abs(true[:, None] - told[None, :])
    rows, columns = np.nonzero(away < limit[:, None])
    first = np.array([not mode["identifiable"] for mode in truth])[rows]
    order = np.lexsort((away[rows, columns] / np.maximum(sd, 1e-9 * np.abs(true))[rows], first))
    pairs, taken_rows, taken_columns = [], set(), set()
    for i, j in zip(rows[order].tolist(), columns[order].tolist()):
        if i not in taken_rows and j not in taken_columns:
            taken_rows.add(i)
            taken_columns.add(j)
            pairs.append((i, j))
    return pairs


def errors_of(mode, told, reference, complex_record):
    """(error, what doubles cannot hold of the quantity and of its way to the reference time) of each quantity."""
    turns = float((np.longdouble(mode["frequency"]) * np.longdouble(reference)) % 1)
    amplitude = mode["amplitude"] * math.exp(min(700.0, -mode["decay"] * reference))
    errors = {"frequency": told["frequency"] - mode["frequency"], "decay": told["decay"] - mode["decay"]}
    if told["amplitude"] is not None and told["phase"] is not None:
        errors["amplitude"] = told["amplitude"] - amplitude
        errors["phase"] = (told["phase"] - mode["phase"] - TWO_PI * turns + np.pi) % TWO_PI - np.pi
    least = {"frequency": abs(mode["frequency"]), "decay": abs(mode["decay"]),
             "amplitude": amplitude * (1 + abs(mode["decay"] * reference)),
             "phase": TWO_PI * abs(mode["frequency"] * reference) + np.pi}
    if mode["frequency"] == 0.0 and not complex_record:  # a real decay has neither
        errors.pop("frequency")
        errors.pop("phase", None)
    return {key: (abs(error), 4.5e-16 * least[key]) for key, error in errors.items()}


def judge(record, result):
    truth = [mode for mode in record["modes"] if not mode.get("trend")]
    told = result["modes"]
    if not record["complex"]:
        told = [mode | {"frequency": abs(mode["frequency"])} for mode in told]
    pairs = match(truth, told)
    rows = []
    for i, j in pairs:
        mode, reported = truth[i], told[j]
        errors = errors_of(mode, reported, result["reference"], record["complex"])
        error = {key: max(0.0, size - least) for key, (size, least) in errors.items()}
        bounds, slack_f, slack_g = 3, 1e-6 * abs(mode["frequency"]), 1e-3 * abs(mode["decay"])
        if record["group"] == "simulated":
            bounds, slack_g = 10, 1e-6 * np.hypot(TWO_PI * mode["frequency"], mode["decay"])
        of_f, of_g = error.get("frequency", 0.0), error["decay"]
        z = {}
        for key, value in error.items():
            se = reported[f"{key}_se"]
            if se is not None:
                z[key] = value / se if se > 0 else (math.inf if value > 0 else 0.0)
        rows.append({
            "wanted": mode["identifiable"], "z": z,
            "error": {key: max(pair) for key, pair in errors.items()},
            "se": {key: reported[f"{key}_se"] for key in error},
            "in_bounds": (of_f / mode["sd_frequency"] if "frequency" in error else None, of_g / mode["sd_decay"]),
            "right_f": bool(of_f <= max(bounds * mode["sd_frequency"], slack_f)),
            "right_g": bool(of_g <= max(bounds * mode["sd_decay"], slack_g))})
    used = {j for _, j in pairs}
    sizes = np.abs(poles_of(told))
    false = sum(j not in used and size >= record["background"] for j, size in enumerate(sizes))
    return rows, int(false)


def median(values):
    return float(np.median(values)) if len(values) else None


def share(values):
    return float(np.mean(values)) if len(values) else None


def summary(outcomes):
    """The figures of some records of one program."""
    rows = [(row, outcome["record"]) for outcome in outcomes for row in outcome["rows"] if row["wanted"]]
    wanted = sum(outcome["wanted"] for outcome in outcomes)
    noisy = [row for row, record in rows if record["level"]]
    found = sum(outcome["found"] for outcome in outcomes)
    result = {
        "records": len(outcomes), "modes": wanted, "found": found / wanted if wanted else None,
        "found_frequency": sum(row["right_f"] for row, _ in rows) / wanted if wanted else None,
        "false": sum(outcome["false"] for outcome in outcomes) / len(outcomes),
        "faultless": share([outcome["faultless"] for outcome in outcomes]),
        "remarked": share([outcome["remarks"] > 0 for outcome in outcomes]),
        "failed": sum(bool(outcome["failure"]) for outcome in outcomes),
        "error_frequency": median([row["in_bounds"][0] for row in noisy if row["in_bounds"][0] is not None]),
        "error_decay": median([row["in_bounds"][1] for row in noisy]),
        "seconds": median([outcome["seconds"] for outcome in outcomes]),
        "seconds_worst": max(outcome["seconds"] for outcome in outcomes),
        "memory": max(outcome["memory"] / (8 * outcome["record"]["samples"]) for outcome in outcomes),
        "bars": {}, "bars_noisy": {}}
    for name, chosen in (("bars", [row for row, _ in rows]), ("bars_noisy", noisy)):
        for key in QUANTITIES:
            z = np.array([row["z"][key] for row in chosen if key in row["z"]])
            if len(z):
                result[name][key] = {"count": len(z), "worst": float(z.max()),
                                     "within": [float(np.mean(z < limit)) for limit in (1, 2, 3)]}
    # of simulations: how much larger the standard errors are than the typical error of the record
    wide, z = [], []
    for outcome in outcomes:
        for key in ("frequency", "decay"):
            both = [(row["se"][key], row["error"][key]) for row in outcome["rows"]
                    if row["wanted"] and row["se"].get(key) is not None]
            if both:
                se, error = np.median(both, axis=0)
                wide.append(se / error)
            z += [row["z"][key] for row in outcome["rows"] if row["wanted"] and key in row["z"]]
    result["outside_two"] = share([value > 2 for value in z])
    result["bars_over_error"] = median(wide)
    return result


def between(low, high):
    return lambda value: low <= value <= high


def goals_of(outcomes):
    """(what, value, goal, whether it is met) of one program; value None: nothing was measured."""
    def chosen(group):
        return [outcome for outcome in outcomes if outcome["record"]["group"] == group]

    def worst_kind(some):
        kinds = {}
        for outcome in some:
            kinds.setdefault(outcome["record"]["kind"], []).append(outcome)
        shares = {kind: summary(members)["found"] for kind, members in kinds.items()}
        shares = {kind: value for kind, value in shares.items() if value is not None}
        kind = min(shares, key=shares.get, default="")
        return shares.get(kind), f" ({kind})" if kind else ""

    def judged(what, value, text, test, show="{:.3g}"):
        shown = "none" if value is None else show.format(value)
        met = value is not None and bool(test(value))
        return {"what": what, "value": value, "shown": shown, "goal": text, "met": met}

    percent = "{:.1%}"
    basic = chosen("basic")
    if basic:
        s = summary(basic)
        value, kind = worst_kind(basic)
        yield judged("basic: found", s["found"], ">= 99.5 %", lambda v: v >= 0.995, percent)
        yield judged(f"basic: found, worst kind{kind}", value, ">= 98.5 %", lambda v: v >= 0.985, percent)
        yield judged("basic: false a record", s["false"], "<= 0.01", lambda v: v <= 0.01)
        yield judged("basic: faultless records", s["faultless"], ">= 95 %", lambda v: v >= 0.95, percent)
        for key in ("frequency", "decay"):
            yield judged(f"basic: error / bound, {key}", s[f"error_{key}"], "<= 0.75", lambda v: v <= 0.75)
        for key in QUANTITIES:
            bars = s["bars_noisy"].get(key, {"within": (None,) * 3, "worst": None})
            rows = zip((1, 2, 3), bars["within"], ("68 +- 3 %", "95 +- 1.5 %", ">= 99.5 %"),
                       (between(0.65, 0.71), between(0.935, 0.965), between(0.995, 1.0)))
            for limit, value, text, test in rows:
                yield judged(f"basic, noisy: {key} within {limit}", value, text, test, percent)
            yield judged(f"basic, noisy: {key}, worst", bars["worst"], "<= 6", lambda v: v <= 6)
    simulated = chosen("simulated")
    if simulated:
        s = summary(simulated)
        yield judged("simulated: found", s["found"], "100 %", lambda v: v == 1, percent)
        yield judged("simulated: outside two standard errors", s["outside_two"], "<= 5 %", lambda v: v <= 0.05, percent)
        yield judged("simulated: standard error / error", s["bars_over_error"], "<= 10", lambda v: v <= 10)
    for group, least, most in (("unusual", 0.97, 0.02), ("drives", 0.95, 0.02), ("coloured", 0.9, 0.05)):
        some = chosen(group)
        if some:
            s = summary(some)
            value, kind = worst_kind(some)
            yield judged(f"{group}: found", s["found"], f">= {least:.0%}", lambda v, least=least: v >= least, percent)
            if group != "coloured":
                yield judged(f"{group}: found, worst kind{kind}", value, f">= {least:.0%}",
                             lambda v, least=least: v >= least, percent)
            yield judged(f"{group}: false a record", s["false"], f"<= {most:g}", lambda v, most=most: v <= most)
    nothing = chosen("nothing")
    if nothing:
        s = summary(nothing)
        yield judged("nothing there: false a record", s["false"], "0", lambda v: v == 0)
        yield judged("nothing there: records with a remark", s["remarked"], "100 %", lambda v: v == 1, percent)
    short = [outcome["seconds"] for outcome in outcomes if outcome["record"]["samples"] <= 16000]
    if short:
        yield judged("seconds, N <= 16000: median", median(short), "<= 0.1", lambda v: v <= 0.1)
        yield judged("seconds, N <= 16000: worst", max(short), "<= 3", lambda v: v <= 3)
    million = chosen("million")
    if million:
        s = summary(million)
        yield judged("a million samples: seconds", s["seconds_worst"], "<= 2", lambda v: v <= 2)
        yield judged("a million samples: memory / record", s["memory"], "<= 20", lambda v: v <= 20)
    for kind, axis, first, most in (("by-length", lambda record: record["samples"], 8000, 1.1),
                                    ("by-modes", lambda record: len(record["modes"]), 8, 3.0)):
        points = [(axis(outcome["record"]), outcome["seconds"]) for outcome in chosen("growth")
                  if outcome["record"]["kind"] == kind and axis(outcome["record"]) >= first]
        if len(points) > 1:
            slope = float(np.polyfit(*np.log(np.maximum(points, 1e-4)).T, 1)[0])
            yield judged(f"{kind}: exponent of time, from {first} on", slope, f"<= {most:g}",
                         lambda v, most=most: v <= most)
    yield judged("failures", sum(bool(outcome["failure"]) for outcome in outcomes), "0", lambda v: v == 0)


def cell(value, form, width):
    return ("-" if value is None else form.format(value)).rjust(width)


def grouped(outcomes, key):
    groups = {}
    for outcome in outcomes:
        groups.setdefault(str(outcome["record"][key]), []).append(outcome)
    return groups | {"all": outcomes}


def show(name, outcomes, key):
    groups = {title: summary(members) for title, members in grouped(outcomes, key).items()}
    print(f"\n{name}\n{'':16}{'records':>8}{'modes':>7}{'found':>8}{'of f':>8}{'false':>7}{'faultless':>10}"
          f"{'f/bound':>8}{'g/bound':>8}{'remarked':>9}{'failed':>7}{'s, median':>10}{'worst':>8}")
    for title, s in groups.items():
        print(f"{title:16}{s['records']:8d}{s['modes']:7d}{cell(s['found'], '{:.1%}', 8)}"
              f"{cell(s['found_frequency'], '{:.1%}', 8)}{s['false']:7.2f}{s['faultless']:10.1%}"
              f"{cell(s['error_frequency'], '{:.2f}', 8)}{cell(s['error_decay'], '{:.2f}', 8)}{s['remarked']:9.0%}"
              f"{s['failed']:7d}{s['seconds']:10.3f}{s['seconds_worst']:8.2f}")
    if not groups["all"]["bars"]:
        print("  It gives no standard errors.")
    else:
        print(f"\n{'within, in %':16}" + "".join(f"{quantity + ' < 1    2    3 worst':>31}" for quantity in QUANTITIES)
              + f"{'bars/error':>12}")
        for title, s in groups.items():
            line = f"{title:16}"
            for quantity in QUANTITIES:
                bars = s["bars"].get(quantity)
                line += ("-" if bars is None else "".join(f"{100 * part:5.1f}" for part in bars["within"])
                         + f"{bars['worst']:6.1f}").rjust(31)
            print(line + cell(s["bars_over_error"], "{:.1f}", 12))
    print(f"\n{name}: goals")
    for goal in goals_of(outcomes):
        print(f"  {goal['what']:52}{goal['shown']:>10}  {goal['goal']:12}{'met' if goal['met'] else 'NOT met'}")
    curves = [outcome for outcome in outcomes if outcome["record"]["group"] == "growth"]
    if curves:
        print(f"\n{name}: samples, modes, seconds, memory / record")
    for outcome in curves:
        record = outcome["record"]
        memory = outcome["memory"] / (8 * record["samples"])
        print(f"  {record['samples']:9d}{len(record['modes']):6d}{outcome['seconds']:10.3f}{memory:10.1f}")
    failures = [outcome for outcome in outcomes if outcome["failure"]]
    for outcome in failures[:40]:
        print(f"  failed on {outcome['path']}: {outcome['failure']}")
    if len(failures) > 40:
        print(f"  and on {len(failures) - 40} more")


def markdown(programs):
    """One table: a row for each group of records and program."""
    yield ("| records | modes | program | found % | false a record | faultless % | error / bound f, g | "
           "within 1, 2 standard errors % | seconds, median | worst |")
    yield "|---|---|---|---|---|---|---|---|---|---|"
    first = next(iter(programs.values()))
    for title in grouped(first, "group"):
        for place, (name, outcomes) in enumerate(programs.items()):
            s = summary(grouped(outcomes, "group")[title])
            both = [s[f"error_{key}"] for key in ("frequency", "decay")]
            bars = [s["bars"][key]["within"] for key in QUANTITIES if key in s["bars"]]
            ranges = (f"{100 * min(part):.0f} to {100 * max(part):.0f}" for part in zip(*[bar[:2] for bar in bars]))
            cells = (
                f"{GROUP_TITLES.get(title, title)}: {s['records']}" if place == 0 else "",
                str(s["modes"]) if place == 0 else "", name,
                "" if s["found"] is None else f"{100 * s['found']:.1f}", f"{s['false']:.2f}",
                f"{100 * s['faultless']:.0f}", "" if None in both else f"{both[0]:.2f}, {both[1]:.2f}",
                ", ".join(ranges), f"{s['seconds']:.2f}", f"{s['seconds_worst']:.1f}")
            yield "| " + " | ".join(cells) + " |"


def plain(value):
    """The same of types that JSON knows; what is not finite becomes null."""
    if isinstance(value, dict):
        return {key: plain(item) for key, item in value.items()}
    if isinstance(value, (list, tuple)):
        return [plain(item) for item in value]
    if isinstance(value, (float, np.floating)):
        return float(value) if math.isfinite(value) else None
    return value


def measure(commands, folders, arguments):
    """Outcomes by program; the programs take turns on each record."""
    programs = {name: [] for name in commands}
    only = set(arguments.only.split(",")) if arguments.only else None
    for folder in folders:
        for record in json.loads((folder / "truth.json").read_text()):
            record = OTHERWISE | record
            if only and record["kind"] not in only and record["group"] not in only:
                continue
            path = folder / record["file"]
            wanted = sum(mode["identifiable"] for mode in record["modes"])
            for name, command in commands.items():
                result, seconds, memory, failure = run(command, path, arguments.timeout)
                rows, false = judge(record, result)
                found = sum(row["wanted"] and row["right_f"] and row["right_g"] for row in rows)
                programs[name].append({
                    "record": record, "path": str(path), "rows": rows, "wanted": wanted, "found": found, "false": false,
                    "faultless": found == wanted and false == 0 and not failure, "remarks": result["remarks"],
                    "seconds": seconds, "memory": memory, "failure": failure})
                if arguments.each:
                    print(f"{record['file']:26} {name:10} N {record['samples']:7d} found {found:3d} of {wanted:3d}, "
                          f"false {false:3d}, {seconds:7.3f} s {failure}", file=sys.stderr, flush=True)
    return programs


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("commands", nargs="+", metavar="NAME=COMMAND")
    parser.add_argument("--records", type=pathlib.Path, nargs="+", required=True)
    parser.add_argument("--by", default="kind", choices=("kind", "group", "variant", "level", "file"))
    parser.add_argument("--timeout", type=float, default=60.0)
    parser.add_argument("--core", type=int, help="the one core to run on")
    parser.add_argument("--each", action="store_true", help="a line for each record, on standard error")
    parser.add_argument("--only", help="kinds or groups, separated by commas")
    parser.add_argument("--json", type=pathlib.Path)
    parser.add_argument("--markdown", type=pathlib.Path)
    # the commands may stand behind the folders
    words = sys.argv[1:]
    commands = [word for word in words if "=" in word and not word.startswith("-")]
    arguments = parser.parse_args([word for word in words if word not in commands] + ["--"] + commands)
    if arguments.core is not None:
        os.sched_setaffinity(0, {arguments.core})
    programs = measure(dict(word.split("=", 1) for word in arguments.commands), arguments.records, arguments)
    if not any(programs.values()):
        parser.error("there are no such records")
    for name, outcomes in programs.items():
        show(name, outcomes, arguments.by)
    if arguments.markdown:
        arguments.markdown.write_text("\n".join(markdown(programs)) + "\n")
    if arguments.json:
        report = {name: {
            "kinds": {title: summary(some) for title, some in grouped(outcomes, "kind").items()},
            "groups": {title: summary(some) for title, some in grouped(outcomes, "group").items()},
            "goals": list(goals_of(outcomes)),
            "records": [{key: value for key, value in outcome.items() if key not in ("record", "rows")}
                        for outcome in outcomes]} for name, outcomes in programs.items()}
        arguments.json.write_text(json.dumps(plain(report), indent=1, allow_nan=False) + "\n")


if __name__ == "__main__":
    main()
