"""Runs the command as its users do: command_test.py COMMAND ROOT BEHAVIOUR"""
import csv
import gzip
import io
import json
import math
import os
import random
import re
import signal
import struct
import subprocess
import sys
import tempfile
import time

COMMAND, ROOT, BEHAVIOUR = os.path.abspath(sys.argv[1]), sys.argv[2], sys.argv[3]
RECORDS = os.path.join(ROOT, "examples", "records")
DT = 1.0006922855944561e-11  # of the sample records
# Frequency and Q of the lowest modes of the cavity, as examples/records/make.py prints them.
EXACT = [(2.160129495e9, 84.88679), (3.055379548e9, 120.06751), (3.730982325e9, 146.61673), (4.130382193e9, 162.31198),
         (4.314870025e9, 169.56182)]


def run(*arguments, given=None, status=0):
    done = subprocess.run([COMMAND, *arguments], input=given, capture_output=True, timeout=300, cwd=RECORDS)
    out, err = done.stdout.decode(errors="replace"), done.stderr.decode(errors="replace")
    assert status is None or done.returncode == status, (arguments, done.returncode, out, err)
    return out, err, done.returncode


def finds_the_modes_in_every_kind_of_file():
    def check(record, per_second=1.0):
        for frequency, quality in EXACT:
            near = min(record["modes"], key=lambda m: abs(m["frequency"] * per_second - frequency))
            assert abs(near["frequency"] * per_second - frequency) < 5 * near["frequency_se"] * per_second, near
            assert abs(near["q"] - quality) < 5 * near["q_se"], near

    for arguments in (["cavity.dat"], ["cavity.dat.gz"], ["--column", "Ez there", "cavity.csv"],
                      ["--dt", repr(DT), "cavity.npy"], ["cavity.h5:/probes/there/Ez"]):
        record = json.loads(run("--json", *arguments)[0])
        assert record["first_sample_reason"] == "driveSkipped" and record["samples"] == 1400
        check(record, 1e9 if record["time_unit"] == "ns" else 1.0)
    check(json.loads(run("--json", "-", given=open(os.path.join(RECORDS, "cavity.dat.gz"), "rb").read())[0]))
    check(json.loads(run("--json", "--time-unit", "steps", "cavity.npy")[0]), 1 / DT)


def gives_results_for_programs():
    both = json.loads(run("--json", "--jobs", "2", "--band", "2GHz:4GHz", "cavity.csv", "cavity.h5:/probes/all")[0])
    assert both["format_version"] == 2 and [r.get("column") for r in both["records"]] == [
        "Ez here", "Ez there", "column 1", "column 2"]
    assert all(1.9 < m["frequency"] < 4.1 for m in both["records"][0]["modes"])
    schema = json.load(open(os.path.join(ROOT, "docs", "tessel-modes.schema.json")))["$defs"]
    for record in both["records"]:
        assert set(record) <= set(schema["record"]["properties"]), record.keys()
        assert set(schema["record"]["oneOf"][1]["required"]) <= set(record)
        assert all(set(mode) == set(schema["mode"]["required"]) for mode in record["modes"])
    out, err, _ = run("--csv", "cavity.dat")
    rows = list(csv.DictReader(io.StringIO(out)))
    modes = json.loads(run("--json", "cavity.dat")[0])["modes"]
    assert [float(row["frequency"]) for row in rows] == [mode["frequency"] for mode in modes]
    assert re.search(r"A drive was skipped: the first sample used is at 1\.4[\d ]* ns\.", err)
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, 'a "b", c.dat')
        with open(path, "w") as file:
            file.writelines(f"{t:.9e} {y:.9e}\n" for t, y in ringing(1000, 2e-12))
        rows = list(csv.DictReader(io.StringIO(run("--csv", path)[0])))
        assert rows and all(row["file"] == path for row in rows), rows
    rounded = "".join(f"{1e9 * t:.3f} {y:.9e}\n" for t, y in ringing(1000, 2.0123e-12)).encode()
    notes = json.loads(run("--json", "--time-unit", "ns", "-", given=rounded)[0])["notes"]
    assert any("times are rounded" in note for note in notes)
    assert "* Nothing rings in the band from 8 GHz to 9 GHz, but there are lines outside." in run("--band", "8GHz:9GHz", "cavity.csv")[0]
    out, err, _ = run("-q", "cavity.dat")
    assert err == "" and out.startswith("cavity.dat, Ez: ") and "2.160 1" in out and "drive" not in out
    with tempfile.TemporaryDirectory() as folder:
        for kind, first in (("png", b"\x89PNG"), ("svg", b"<?xml"), ("pdf", b"%PDF")):
            run("--plot", f"{folder}/it's.{kind}", "cavity.dat")
            assert open(f"{folder}/it's.{kind}", "rb").read(5).startswith(first)
        err = run("--plot", f"{folder}/none/x.png", "cavity.dat", status=1)[1]
        assert err == f"tessel-modes: {folder}/none/x.png: cannot be written: No such file or directory\n"


def takes_several_records_together():
    def probe(amplitudes, seed, dt=2e-12, unit=1.0, head="", count=900):
        noise, rows = random.Random(seed), []
        for k in range(count):
            y = sum(a * math.exp(-g * k) * math.cos(w * k + seed) for a, g, w in
                    zip(amplitudes, (0.002, 0.003, 0.0025), (0.31, 0.42, 0.53)))
            rows.append(f"{k * dt / unit:.10e} {y + 1e-3 * noise.gauss(0, 1):.9e}\n")
        return head + "".join(rows)

    # The third line shows in none of six records; one file counts in ns, one is longer; one cannot be read, one is too short.
    expected = [w / (2 * math.pi * 2e-12) for w in (0.31, 0.42, 0.53)]
    with tempfile.TemporaryDirectory() as folder:
        def write(name, text):
            with open(os.path.join(folder, name), "w") as stream:
                stream.write(text)
            return os.path.join(folder, name)

        files = [write(f"{k}.txt", probe((1, 0 if k == 2 else 0.1, 3.5e-4), k, unit=1e-9 if k == 1 else 1.0,
                                         head="time[ns] Ez\n" if k == 1 else "", count=900 + 100 * k)) for k in range(6)]
        files[3:3] = [write("short.txt", probe((1, 1, 1), 9, count=5)), os.path.join(folder, "none.txt")]
        out, err, _ = run("--json", "--joint", *files, status=1)
        found = json.loads(out)
        assert len(err.splitlines()) == 2 and "short.txt: at least 8" in err and "none.txt: there is no such file" in err
        assert [os.path.basename(f["file"]) for f in found["failed"]] == ["none.txt", "short.txt"]
        assert [r["samples"] for r in found["records"]] == [900, 1000, 1100, 1200, 1300, 1400]
        assert found["time_unit"] == "s" and len(found["modes"]) == 3, found["modes"]
        for mode, frequency in zip(found["modes"], expected):
            assert abs(mode["frequency"] - frequency) < 5 * mode["frequency_se"], mode
        for k, residue in enumerate(found["modes"][0]["residues"]):
            assert abs(residue["amplitude"] - 1) < 5 * residue["amplitude_se"], residue
            assert abs(math.remainder(residue["phase"] - k, 2 * math.pi)) < 5 * residue["phase_se"], residue
        schema = json.load(open(os.path.join(ROOT, "docs", "tessel-modes.schema.json")))["$defs"]["joint"]
        assert set(found) - {"format", "format_version", "program_version"} == set(schema["required"] + schema["oneOf"][1]["required"])
        for part in ("records", "modes"):
            item = schema["properties"][part]["items"]
            assert all(set(item["required"]) <= set(object_) <= set(item["properties"]) for object_ in found[part])

        lines = run("--joint", "--start", "100ps", *files, status=1)[0].splitlines()
        assert lines[0] == "6 records of 6 files together: 3 modes" and "used from 100 ps on" in lines[1]
        assert re.search(r" 6 +0\.9\d", lines[4]) and re.search(r" 5 +0\.08", lines[5]) and "2.txt" not in lines[5], lines
        rows = list(csv.DictReader(io.StringIO(run("--csv", "--joint", *files, status=1)[0])))
        assert len(rows) == 18 and [r["mode"] for r in rows[:3]] == ["1", "2", "3"]
        assert float(rows[-1]["amplitude"]) == found["modes"][2]["residues"][5]["amplitude"]
        assert "2.txt: It has the samples of " in run("--joint", files[0], files[2], files[2])[0]
        assert "has the samples" not in "".join(lines)
        run("--joint", "--plot", f"{folder}/p.svg", *files, status=1)
        assert os.path.exists(f"{folder}/p-6.svg") and not os.path.exists(f"{folder}/p-7.svg")

        for name, text, says in (("other", probe((1, 1, 1), 1, dt=3e-12), "other: spacing 3 ps, but 2 ps in "),
                                 ("steps", "step Ez\n" + probe((1, 1, 1), 1, dt=1), "steps: times in steps, but s in "),
                                 ("complex", "".join(l.replace("\n", " 1\n") for l in probe((1, 1, 1), 1).splitlines(True)),
                                  "complex: complex samples, but real in ")):
            file = write(name, ("t Re Im\n" if name == "complex" else "") + text)
            out, err, _ = run("--joint", files[0], file, status=1)
            assert out == "" and says in err.replace(", Ez", "").replace("Re ", "") and len(err.splitlines()) == 1, err
            assert "error" in json.loads(run("--json", "--joint", files[0], file, status=1)[0])


def goes_on_behind_a_bad_file():
    out, err, _ = run("--json", "none.dat", "cavity.dat", ".", status=1)
    records = json.loads(out)["records"]
    assert [("error" in r) for r in records] == [True, False, True] and len(err.splitlines()) == 2
    assert err.splitlines()[0] == "tessel-modes: none.dat: there is no such file"
    assert "1 mode" not in run("--dt", "1", "-", given=b"0\n" * 100)[0]


def is_the_same_for_any_number_of_processes():
    files = ["cavity.dat", "none.dat", "cavity.csv", "cavity.h5:/probes/here/Ez", "cavity.dat.gz"]
    environment = {**os.environ, "OMPI_ALLOW_RUN_AS_ROOT": "1", "OMPI_ALLOW_RUN_AS_ROOT_CONFIRM": "1",
                   "OMPI_MCA_btl_vader_single_copy_mechanism": "none", "ASAN_OPTIONS": "detect_leaks=0"}
    for how, ranks in (([], 1), ([], 4), (["--csv"], 2), (["--json"], 3)):
        expected = run(*how, *files, status=1)
        done = subprocess.run(["mpirun", "--oversubscribe", "--bind-to", "none", "-n", str(ranks), COMMAND, *how, *files],
                              capture_output=True, timeout=300, cwd=RECORDS, env=environment)
        err = done.stderr.decode().split("-----")[0].rstrip("\n") + "\n"  # mpirun speaks of the status behind it
        assert (done.stdout.decode(), err, done.returncode) == expected, (how, ranks, err)
    done = subprocess.run(["mpirun", "--oversubscribe", "-n", "2", COMMAND, "--joint", *files], capture_output=True,
                          timeout=300, cwd=RECORDS, env=environment)
    assert done.returncode == 1 and done.stderr.startswith(b"tessel-modes: --joint takes all records together"), done


def says_in_one_line_what_hinders():
    for given, arguments, status, says in (
            (b"", ["-"], 1, "is empty"), (b"", ["."], 1, "is a folder"), (b"", [], 2, "a file is missing"),
            (b"", ["--jsn", "x"], 2, "--jsn"), (b"", ["--dt", "1", "--dt", "2", "x"], 2, "--dt"),
            (b"", ["cavity.h5"], 1, "say which"), (b"", ["cavity.dat:/x"], 1, "no HDF5 file"),
            (b"", ["--dt", "1", "cavity.dat"], 1, "leave out --dt"), (b"1\n2\n3\n", ["--dt", "1", "-"], 1, "8"),
            (b"", ["--start", "1", "cavity.dat"], 1, "--start lies behind"),
            (b"", ["/dev/null"], 1, "is empty"), (b"", ["make.py"], 1, "make.py")):
        out, err, _ = run(*arguments, given=given, status=status)
        lines = err.splitlines()
        assert says in lines[0] and len(lines) == (1 if status == 1 else 2) and out == "", (arguments, out, err)
    with open("/dev/full", "w") as full:
        done = subprocess.run([COMMAND, "--help"], stdout=full, stderr=subprocess.PIPE)
        assert done.returncode == 1
        done = subprocess.run([COMMAND, "-q", "cavity.dat"], stdout=full, stderr=subprocess.PIPE, cwd=RECORDS)
        assert done.returncode == 1 and b"cannot be written" in done.stderr


def ends_cleanly_on_an_interrupt():
    # While it waits for input, and while it analyses many records.
    for arguments, wait in ((["-"], 0.3), (["--jobs", "2"] + ["cavity.csv"] * 400, 1.5)):
        with tempfile.TemporaryFile() as printed:
            process = subprocess.Popen([COMMAND, *arguments], stdin=subprocess.PIPE, stdout=printed,
                                       stderr=subprocess.PIPE, cwd=RECORDS)
            time.sleep(wait)
            process.send_signal(signal.SIGINT)
            process.wait(timeout=60)
            err = process.stderr.read()
            process.stdin.close()
            printed.seek(0)
            out = printed.read()
        assert process.returncode == -signal.SIGINT and err == b"tessel-modes: stopped\n", (process.returncode, err)
        assert out == b"" or out.endswith(b"\n")


def ringing(count, dt):
    return [(k * dt, sum(a * math.exp(-g * k) * math.cos(w * k + p) for a, g, w, p in
                         ((1.0, 0.004, 0.31, 0.4), (0.4, 0.002, 0.52, -1.0))) + 1e-5 * random.gauss(0, 1))
            for k in range(count)]


def mutations():
    """(name, bytes, arguments, whether the spacing must come out right if anything does)."""
    rows = ringing(260, 2e-12)
    text = "".join(f"{t:.6e} {y:.9e}\n" for t, y in rows)
    lines = text.splitlines(keepends=True)
    comma, semicolon = text.replace(" ", ","), text.replace(" ", ";")
    header = b"\x93NUMPY\x01\x00v\x00{'descr': '<f8', 'fortran_order': False, 'shape': (260,), }"
    npy = header.ljust(127) + b"\n" + struct.pack("<260d", *(y for _, y in rows))
    h5 = open(os.path.join(RECORDS, "cavity.h5"), "rb").read()

    for name, made in {
            "plain": text, "commas": comma, "semicolons": semicolon, "tabs": text.replace(" ", "\t"),
            "crlf": text.replace("\n", "\r\n"), "cr": text.replace("\n", "\r"), "names": "time,Ez\n" + comma,
            "many names": "a b c d\n" * 40 + text, "no end": text.rstrip("\n"), "blank lines": text.replace("\n", "\n\n \n"),
            "D": text.replace("e", "D"), "quotes": "".join('"' + l.strip().replace(" ", '","') + '"\n' for l in lines),
            "mixed": "".join(l.replace(" ", ",;\t "[k % 4]) for k, l in enumerate(lines)),
            "decimal commas": semicolon.replace(".", ","), "nan": text.replace(lines[99], "1.98e-10 nan\n"),
            "inf": text.replace(lines[99].split()[1], "-inf"), "nul": text[:3000] + "\0" + text[3000:],
            "twice": text + text, "reversed": "".join(reversed(lines)), "shuffled": "".join(random.sample(lines, len(lines))),
            "one row": lines[0], "two rows": lines[0] + lines[1], "seven rows": "".join(lines[:7]),
            "huge line": " ".join(repr(y) for _, y in rows) * 200, "huge word": "0 " + "1" * 300000 + "\n" + text,
            "huge name": "x" * 300000 + " y\n" + text, "brackets": "(" * 5000 + text, "long comment": "#" * 300000 + "\n" + text,
            "wide": "\n".join(" ".join("1.5" for _ in range(3000)) for _ in range(9)), "quote left open": text[:500] + '"' + text[500:],
            "times alone": "".join(l.split()[0] + "\n" for l in lines), "zeros": "".join(l.split()[0] + " 0\n" for l in lines),
            "tiny": "".join(l.split()[0] + " 1e-310\n" for l in lines), "vast": "".join(l.split()[0] + " 1e308\n" for l in lines),
            "alternating": "".join(f"{l.split()[0]} {(-1) ** k}\n" for k, l in enumerate(lines)),
            "spike": "".join(l.split()[0] + (" 1\n" if k == 30 else " 0\n") for k, l in enumerate(lines)),
            "ones": "1\n" * 300, "signs": "+-+-\n" * 300, "exponents": "1e 2e\n" * 300, "controls": "\x01\x02\n" * 99,
            "latin": "t\xe9 \xb5\n" + text}.items():
        yield name, made.encode("latin-1"), [], True
    yield "utf16", text.encode("utf-16"), [], True
    yield "utf16be", text.encode("utf-16-be"), [], True
    yield "utf32", text.encode("utf-32"), [], True
    yield "bomb", gzip.compress(b" " * 30_000_000), [], True
    yield "gz twice", gzip.compress(text[:len(lines[0]) * 100].encode()) + gzip.compress(text[len(lines[0]) * 100:].encode()), [], True
    yield "gz of gz", gzip.compress(gzip.compress(text.encode())), [], True
    for k in range(8):
        yield f"gz cut {k}", gzip.compress(text.encode())[:random.randrange(1, 3000)], [], True
    for k in range(60):
        made = bytearray(random.choice([text, comma, semicolon]).encode())
        for _ in range(random.choice([1, 1, 3, 20])):
            at, length = random.randrange(len(made)), random.choice([1, 1, 2, 20, 200])
            how = random.randrange(4)
            if how == 0:
                made[at:at + length] = b""
            elif how == 1:
                made[at:at + length] = bytes(random.choice(b"0123456789.,;-+eED \t\n\"#()") for _ in range(length))
            elif how == 2:
                made[at:at] = made[random.randrange(len(made)):][:length]
            else:
                made = made[:max(at, 1)]
        yield f"text {k}", bytes(made), [], True
    for k in range(50):
        made = bytearray(npy)
        for _ in range(random.choice([1, 2, 5])):
            made[random.randrange(random.choice([90, len(made)]))] = random.randrange(256)
        yield f"npy {k}", bytes(made[:random.choice([len(made), random.randrange(len(made))])]), ["--dt", "2e-12"], True
    for k in range(50):
        made = bytearray(h5)
        for _ in range(random.choice([1, 4, 40])):
            made[random.randrange(random.choice([2000, len(made)]))] = random.randrange(256)
        yield f"h5 {k}", bytes(made[:random.choice([len(made), len(made), random.randrange(len(made))])]), [], False


def stands_mutated_files():
    random.seed(7)
    count = good = 0
    with tempfile.TemporaryDirectory() as folder:
        for name, made, arguments, spaced in mutations():
            file = os.path.join(folder, "record")
            with open(file, "wb") as stream:
                stream.write(made)
            path = file + (":/probes/here/Ez" if name.startswith("h5") else "")
            out, err, status = run("--json", "--max-modes", "8", *arguments, path, status=None)
            assert status in (0, 1), (name, status, err)
            object_ = json.loads(out)
            records = object_.get("records", [object_])
            lines = err.splitlines()
            assert len(lines) == sum("error" in record for record in records) == (status if len(records) == 1 else len(lines)), (name, err)
            assert all(line.startswith("tessel-modes: ") and len(line) < 600 for line in lines), (name, err)
            for record in records:
                if "modes" in record and spaced:
                    assert record["time_unit"] == "s" and abs(record["spacing"] / 2e-12 - 1) < 1e-3, (name, record["spacing"])
                good += "modes" in record
            if count % 4 == 0:
                out, _, status = run("--joint", *arguments, path, status=None)
                assert status == 1 or (status == 0 and " together: " in out), (name, status, out)
            count += 1
    print(count, "files,", good, "records with results")
    assert count > 200 and good > 30


globals()[BEHAVIOUR]()
