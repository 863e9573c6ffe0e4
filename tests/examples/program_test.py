"""The demonstration, run as its users run it."""
import csv
import json
import math
import os
import subprocess
import sys
import tempfile

PROGRAM = sys.argv[1]


def run(*arguments, **how):
    how = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "text": True} | how
    return subprocess.run([PROGRAM, *arguments], **how)


def record(*lines):
    path = os.path.join(folder, "record.dat")
    with open(path, "w") as file:
        file.write("".join(f"{line}\n" for line in lines))
    return "--record", path


def fails(arguments, message, before=""):
    """One line says why, behind what had begun to be printed; programs are given nothing."""
    wrong = run(*arguments)
    assert (wrong.returncode, wrong.stderr) == (2, f"resonator: {message}\n"), wrong
    assert wrong.stdout.startswith(before) and (before or not wrong.stdout), wrong
    assert "--csv" in arguments or run(*arguments, "--csv").stdout == ""


def refuse(word):
    raise ValueError(f"{word} is no number in JSON")


def results(status, *arguments):
    """The results without their modes, the modes, and the report."""
    report, as_json, as_csv = run(*arguments), run(*arguments, "--json"), run(*arguments, "--csv")
    assert {report.returncode, as_json.returncode, as_csv.returncode} == {status}, as_json.stderr
    assert as_json.stderr == as_csv.stderr == report.stdout != ""
    whole = json.loads(as_json.stdout, parse_constant=refuse)
    modes, fits = whole.pop("modes"), whole.pop("fits")
    header, *rows = csv.reader(as_csv.stdout.splitlines())
    assert header == [*whole, *modes[0]]
    assert len(rows) == len(modes)
    for row, mode in zip(rows, modes):
        for cell, value in zip(row, {**whole, **mode}.values(), strict=True):
            same = cell == str(value).lower() if isinstance(value, bool) else float(cell) == value
            assert cell != "-0"
            assert same or value is None and not math.isfinite(float(cell)), (cell, value)
    best = next(fit for fit in fits if fit["order"] == whole["order"])
    assert best.items() <= whole.items()
    usage = run("--help").stdout
    assert usage.startswith("Usage: resonator ")
    assert all(key.removeprefix("arpack_").removeprefix("hybrj1_") in usage for key in header)
    return whole, modes, report.stdout


def finds_the_modes_and_writes_them_down():
    cavity = run("--output", f"{folder}/new/cavity", "--orders", "90")
    assert (cavity.returncode, cavity.stderr) == (0, ""), cavity
    for name, least in {"record": 8001, "modes": 8, "poles": 90, "singular": 132 + 88, "response": 600}.items():
        with open(f"{folder}/new/cavity-{name}.dat") as file:
            assert sum(line.strip() != "" and line[0] != "#" for line in file) >= least, name
    assert os.path.exists(f"{folder}/new/cavity.png") and os.path.exists(f"{folder}/new/cavity-response.png")


def draws_one_pole_and_none():
    for field in [1, 0.5, 0.25, 0.125], [1, -1, 1, -1], [0, 1, 0, 1]:
        fit = record(*field) + ("--dt", "1", "--orders", "1", "--output", f"{folder}/one")
        drawn = run(*fit)
        assert (drawn.returncode, drawn.stderr) == (0, ""), drawn
        os.remove(f"{folder}/one.png")
        missing = run(*fit, env={"PATH": "/nowhere"})
        assert missing.returncode == 0 and "no picture: gnuplot: No such file or directory\n" in missing.stdout


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
        phases = [math.degrees(mode[key]) for key in ("phase_rad", "exact_phase_rad", "phase_error_rad")]
        assert (f"{mode['m']:4} {mode['n']:2}  {mode['amplitude']:15.7e} {mode['exact_amplitude']:14.7e}  "
                f"{mode['amplitude_error']:7.1e}  {phases[0]:10.5f} {phases[1]:10.5f}  {phases[2]:7.1e}\n") in report
        for road in ("", "exact_", "arpack_", "hybrj1_"):
            damping = math.pi * mode[road + "frequency_hz"] / mode[road + "decay_per_s"]
            assert math.isclose(mode[road + "q"], damping, rel_tol=1e-14)


def gives_results_of_a_record():
    field = record(*(f"{k}e-12 {math.exp(-5e-4 * k) * math.cos(0.12 * math.pi * k)!r}" for k in range(400)))
    whole, (mode,), report = results(0, *field, "--start", "40e-12", "--decimate", "4", "--orders", "1:27:26",
                                      "--output", f"{folder}/out")
    with open(f"{folder}/out-modes.dat") as file:
        digits = [float(word) for word in file.readlines()[1].split()[:3]]
    assert [mode["frequency_hz"], mode["q"], mode["amplitude"]] == digits
    assert (whole["samples"], whole["singular_values_above_noise"]) == (90, 2)
    for value, expected in ((whole["first_sample_s"], 40e-12), (whole["sample_step_s"], 4e-12),
                            (mode["frequency_hz"], 60e9), (mode["decay_per_s"], 5e8),
                            (mode["amplitude"], 0.5 * math.exp(-0.02)), (mode["phase_rad"], 0.8 * math.pi)):
        assert math.isclose(value, expected, rel_tol=1e-9), (value, expected)
    assert f"* {whole['order']:5}  {whole['err_l2']:9.2e}  {whole['err_rms']:9.2e}" in report
    assert "Singular values above noise: 2 of 45 of the record, 2 of 30 of its" in report
    assert "poles: 1 modes, 1 complex conjugates of modes" in report
    assert (f"{mode['frequency_hz'] / 1e9:16.10f}  {mode['q']:14.7g}  {mode['amplitude']:12.5e}  "
            f"{math.degrees(mode['phase_rad']):12.6f}   yes\n") in report

    constant = record(*[1] * 20)
    _, modes, _ = results(0, *constant, "--dt", "1")
    assert any(mode["q"] is None for mode in modes), "no loss"
    _, _, report = results(0, *constant, "--dt", "1", "--orders", "1")
    assert "-0.0" not in report, report


def takes_the_usual_forms_of_records_and_options():
    lines = "# a probe", "", "  1.0e-9, +1 , -2.5 # first\r", "2D-9;3;4", "3.0000001e-09\t5\t1d2", "4e-9 6 7"
    for lines, arguments, expected in (
            (lines, [], [1e-9, 1, -2.5, 2e-9, 3, 4, 3e-9, 5, 100, 4e-9, 6, 7]),
            (["0.5 1", "0.25 2", "1 3", "2 4"], ["--dt=0.5"], [0, 0.5, 1, 0.5, 0.25, 2, 1, 1, 3, 1.5, 2, 4])):
        written = run(*record(*lines), *arguments, "--orders=1", "--output", f"{folder}/out", env={"PATH": "/nowhere"})
        assert written.returncode == 0, written
        with open(f"{folder}/out-record.dat") as file:
            read = [float(word) for line in file if line[0] != "#" for word in line.split()[:3]]
        assert all(math.isclose(*pair, rel_tol=1e-7) for pair in zip(read, expected, strict=True)), read
    orders = run(*record(*range(1, 21)), "--dt", "1", "--orders", "4:9:2", "--start", "-1.5", "--json", "--json")
    assert [fit["order"] for fit in json.loads(orders.stdout)["fits"]] == [4, 6, 8], orders


def names_the_line_or_option_at_fault():
    spaced = ": the times are not equally spaced: "
    layout = "part [imaginary part]"
    for lines, options, message in (
            (["# x", "0 1", "1 one"], [], ":3: 'one' is not a number"),
            (["0 1", "1 2.5.1"], [], ":2: '2.5.1' is not a number"),
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
