"""The demonstration on a whole field, run as its users run it: field_test.py PROGRAM TESSEL-FIELDS BEHAVIOUR"""
import os
import re
import shutil
import subprocess
import sys
import tempfile

import h5py
import numpy as np

PROGRAM, COMMAND = map(os.path.abspath, sys.argv[1:3])


def run(*arguments, first=os.path.dirname(COMMAND)):
    """With this folder the first where programs are looked for."""
    environment = {**os.environ, "PATH": first + os.pathsep + os.environ["PATH"], "ASAN_OPTIONS": "detect_leaks=0"}
    return subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, env=environment)


def finds_all_modes_and_notices_what_is_wrong():
    done = run(f"{folder}/new/cavity")
    assert (done.returncode, done.stderr) == (0, "") and "MISSED" not in done.stdout, done
    assert re.search(r"modes +11 of 11 found, and 0 not there: as expected\n", done.stdout), done.stdout
    worst = [float(number) for number in re.findall(r"\(worst: (\S+)\)", done.stdout)]
    assert worst[0] < 1e-14 and worst[1] < 1e-10, done.stdout
    assert os.path.getsize(f"{folder}/new/cavity-profiles.png") > 10000
    results = f"{folder}/new/cavity-field-modes.h5"
    # The lowest mode's profile has the continuous cavity's form.
    with h5py.File(results) as file:
        assert file["modes/frequency"].shape[0] >= 11
        part = file["profiles/real"][0] / file["profiles/real"][0, 45, 44]
    x, y = np.pi * np.arange(91) / 90, np.pi * np.arange(90) / 89
    assert np.allclose(part, np.outer(np.sin(x), np.sin(y)) / np.sin(y[44]), atol=1e-10)

    def altered(change):
        """As if tessel-fields had left this."""
        shutil.copy(results, f"{folder}/changed.h5")
        with h5py.File(f"{folder}/changed.h5", "r+") as file:
            change(file)
        fake = f"{folder}/fake/tessel-fields"
        os.makedirs(os.path.dirname(fake), exist_ok=True)
        with open(fake, "w") as script:
            script.write(f'#!/bin/sh\ncp {folder}/changed.h5 "$2"\n')
        os.chmod(fake, 0o755)
        return run(f"{folder}/other/cavity", first=os.path.dirname(fake))

    def shift(file, name, at, by):
        file[name][at] = file[name][at] + by

    with h5py.File(results) as file:
        peaks, frequency = file["modes/peak"][:], file["modes/frequency"][:]
    strong = peaks > 1e-4 * max(peaks)
    third, weak = np.flatnonzero(strong)[2], np.flatnonzero(~strong)[-1]
    good = altered(lambda file: (shift(file, "profiles/imag", (third, 7, 70), 0.9e-6 * peaks[third]),
                                 shift(file, "modes/frequency", third, 0.9e-10 * frequency[third]),
                                 shift(file, "modes/frequency", weak, 0.01 * frequency[weak])))
    assert (good.returncode, good.stderr) == (0, ""), good
    for change, line in [
            (lambda file: shift(file, "profiles/imag", (third, 7, 70), 1.1e-6 * peaks[third]), "profiles   10 within"),
            (lambda file: shift(file, "profiles/real", (third, 7, 70), np.nan), "profiles   10 within"),
            (lambda file: shift(file, "modes/frequency", third, 1.1e-10 * frequency[third]), "poles      10 within"),
            (lambda file: shift(file, "modes/decay", third, 1.1e-10 * 2 * np.pi * frequency[third]), "poles      10"),
            (lambda file: shift(file, "modes/frequency", third, 0.01 * frequency[third]), "10 of 11 found, and 1 not"),
            (lambda file: shift(file, "profiles/real", weak, peaks[third]), "11 of 11 found, and 1 not there"),
            (lambda file: file.attrs.modify("first_step", np.int64(file.attrs["first_step"] + 1)), "profiles   0 within"),
    ]:
        bad = altered(change)
        assert bad.returncode == 1, bad
        assert any(line in each and each.endswith("MISSED") for each in bad.stdout.splitlines()), (line, bad.stdout)


def says_what_hinders():
    for arguments in [], ["a", "b"], ["--output", "x"], ["-x"]:
        wrong = run(*arguments)
        assert (wrong.returncode, wrong.stdout) == (2, "") and wrong.stderr.count("\n") == 1, wrong
    assert run("--help").stdout.startswith("Usage: resonator-field PREFIX\n")
    open(f"{folder}/file", "w").close()
    early = run(f"{folder}/file/x")
    assert (early.returncode, early.stdout) == (2, ""), early
    os.symlink("/bin/false", f"{folder}/tessel-fields")
    failed = run(f"{folder}/x", first=folder)
    assert (failed.returncode, failed.stderr) == (2, "resonator-field: tessel-fields failed\n"), failed
    os.remove(f"{folder}/tessel-fields")
    os.symlink("/bin/true", f"{folder}/tessel-fields")
    nothing = run(f"{folder}/x", first=folder)
    assert nothing.returncode == 2 and nothing.stderr.endswith("x-field-modes.h5: cannot be read\n"), nothing


with tempfile.TemporaryDirectory() as folder:
    globals()[sys.argv[3]]()
