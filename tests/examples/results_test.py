"""What the demonstration prints for programs: valid, the same in JSON and CSV, and the numbers of the report."""
import csv
import json
import math
import subprocess
import sys
import tempfile


def run(*arguments):
    return subprocess.run([sys.argv[1], *arguments], capture_output=True, text=True)


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
            assert same or value is None and not math.isfinite(float(cell)), (cell, value)
    best = next(fit for fit in fits if fit["order"] == whole["order"])
    assert best.items() <= whole.items()
    return whole, modes, report.stdout


# A cavity of which the fit finds a part, and something that is not there.
whole, modes, report = results(1, "--orders", "30")
assert whole["as_expected"] is False and "MISSED" in report
assert (whole["samples"], whole["order"]) == (264, 30)
found = [mode["frequency_hz"] is not None for mode in modes]
assert any(found) and not all(found) and modes[-1]["m"] is None
for mode in modes[:found.index(False)]:
    roads = [f"     {mode[road + 'frequency_error']:7.1e}  {mode[road + 'q_error']:7.1e}"
             for road in ("", "arpack_", "hybrj1_")]
    assert f"{mode['exact_frequency_hz'] / 1e9:15.10f} {mode['exact_q']:10.5f}{''.join(roads)}\n" in report
    assert (f"{mode['m']:4} {mode['n']:2}  {mode['amplitude']:15.7e} {mode['exact_amplitude']:14.7e}  "
            f"{mode['amplitude_error']:7.1e}  {math.degrees(mode['phase_rad']):10.5f} "
            f"{math.degrees(mode['exact_phase_rad']):10.5f}  {math.degrees(mode['phase_error_rad']):7.1e}\n") in report
    for road in ("", "exact_", "arpack_", "hybrj1_"):
        damping = math.pi * mode[road + "frequency_hz"] / mode[road + "decay_per_s"]
        assert math.isclose(mode[road + "q"], damping, rel_tol=1e-14)

# Records of one mode with loss and of a constant, whose quality is infinite.
with tempfile.NamedTemporaryFile("w", suffix=".dat") as file:
    for k in range(400):
        field = math.exp(-5e-4 * k) * math.cos(0.12 * math.pi * k)
        file.write(f"{k}e-12 {field!r}\n")
    file.flush()
    whole, modes, report = results(0, "--record", file.name, "--start", "40e-12", "--decimate", "4")
    assert math.isclose(whole["first_sample_s"], 40e-12) and math.isclose(whole["sample_step_s"], 4e-12), whole
    assert (whole["samples"], whole["singular_values_above_noise"]) == (90, 2)
    assert f"* {whole['order']:5}  {whole['err_l2']:9.2e}  {whole['err_rms']:9.2e}" in report
    mode, = modes
    assert math.isclose(mode["decay_per_s"], 5e8, rel_tol=1e-9) and mode["peak"] is True
    assert (f"{mode['frequency_hz'] / 1e9:16.10f}  {mode['q']:14.7g}  {mode['amplitude']:12.5e}  "
            f"{math.degrees(mode['phase_rad']):12.6f}   yes\n") in report
with tempfile.NamedTemporaryFile("w", suffix=".dat") as file:
    file.write("1\n" * 20)
    file.flush()
    whole, modes, report = results(0, "--record", file.name, "--dt", "1")
    assert any(mode["q"] is None for mode in modes) and "-0.0" not in report, report

# What cannot be written is said; nothing else is on standard output.
for form in ("--json", "--csv"):
    wrong = run(form, "--record", "/no/such/file")
    assert (wrong.returncode, wrong.stdout) == (2, "") and wrong.stderr.count("\n") == 1
