"""The demonstration, run as its users run it."""
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


def columns(name):
    """The rows of numbers in a file that was written."""
    with open(f"{folder}/{name}.dat") as file:
        return [[float(word) for word in line.split()] for line in file if line[0] != "#"]


def finds_the_modes_and_writes_them_down():
    done = run("--output", f"{folder}/new/cavity")
    assert (done.returncode, done.stderr) == (0, ""), done
    said = re.search("all 9877 exact modes to (\\S+) .* order 29833 from (\\S+) .* to (\\S+)\n", done.stdout, re.DOTALL)
    distance, solves, residual = map(float, said.groups())
    assert distance < 1e-12 and solves > 100 and residual < 1e-12
    assert "(driveSkipped)" in done.stdout and "a drive was skipped" in done.stdout and "MISSED" not in done.stdout

    modes = columns("new/cavity-modes")
    strong = [row for row in modes if row[10] > 1e-6 * max(row[10] for row in modes)]
    assert len(strong) == 17
    for row in modes:  # m, n, (found, exact, error, standard error) of four, ARPACK, HYBRJ1
        for at in (2, 6, 10):
            assert math.isclose(row[at] / row[at + 1] - 1, row[at + 2], rel_tol=0.01, abs_tol=1e-15)
        assert f"{row[3] / 1e9:12.9f} {row[2] / 1e9:12.9f} {row[4]:8.1e} {row[5]:7.1e}" in done.stdout
        assert f"{row[15]:9.4f} {row[14]:9.4f} {row[16]:8.1e} {row[17]:7.1e}" in done.stdout
        assert row not in strong or math.isclose(row[18], row[20], rel_tol=1e-11), row
    # The lowest is near that of the continuous cavity, and so is its decay.
    frequency = 299792458 / math.sqrt(2.1) / 2 * math.hypot(1 / 120e-3, 1 / 84e-3)
    assert math.isclose(strong[0][2], frequency, rel_tol=1e-4)
    assert math.isclose(math.pi * strong[0][2] / strong[0][6], 2e-3 / (2 * 2.1 * 8.8541878e-12), rel_tol=1e-4)

    times, fields, models, errors = zip(*columns("new/cavity-record"))
    assert len(times) == 8001 and math.isnan(models[0]) and math.isnan(errors[0])
    assert max(error for error in errors if error == error) < 1e-12 * max(fields), "the model is the record"
    assert len(columns("new/cavity-singular")) >= 54 and len(columns("new/cavity-response")) >= 600
    for picture in "", "-response":
        assert os.path.getsize(f"{folder}/new/cavity{picture}.png") > 10000


def says_what_hinders():
    for arguments in ["--record", "x"], ["--output"], ["--output", "x", "y"]:
        wrong = run(*arguments)
        assert (wrong.returncode, wrong.stdout) == (2, "") and wrong.stderr.count("\n") == 1, wrong
    assert run("--help").stdout.startswith("Usage: resonator [--output PREFIX]\n")
    open(f"{folder}/file", "w").close()
    early = run("--output", f"{folder}/file/x")
    assert (early.returncode, early.stdout) == (2, ""), early
    assert early.stderr == f"resonator: {folder}/file: cannot be made: Not a directory\n"
    with open("/dev/full", "w") as full:
        late = run(stdout=full)
    assert late.returncode == 2
    assert late.stderr == "resonator: standard output: cannot be written: No space left on device\n"
    missing = run("--output", f"{folder}/out", env={"PATH": "/nowhere"})
    assert missing.returncode == 0 and "no picture: gnuplot: No such file or directory\n" in missing.stdout


with tempfile.TemporaryDirectory() as folder:
    globals()[sys.argv[2]]()
