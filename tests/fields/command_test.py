"""Runs tessel-fields as its users do: command_test.py COMMAND BEHAVIOUR"""
import json
import os
import resource
import signal
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as xml

import h5py
import numpy as np

COMMAND, BEHAVIOUR = os.path.abspath(sys.argv[1]), sys.argv[2]
SCHEMA = json.load(open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../docs/tessel-fields.schema.json")))
MPI = os.path.exists(os.path.join(os.path.dirname(COMMAND), "mpi", "tessel-fields"))
DT, STEPS, NY, NX = 1e-11, 700, 48, 90
# Frequency, Q, nodal lines, amplitude and phase of the modes.
MODES = [(1.1e9, 60, (1, 1), 1.0, 0.3), (1.9e9, 90, (2, 1), 0.5, -1.2), (2.6e9, 120, (1, 2), 0.3, 2.0),
         (3.0e9, 150, (3, 2), 0.1, 0.9)]
SHAPES = [np.sin(np.pi * m * (np.arange(NX) + 1) / (NX + 1)) * np.sin(np.pi * n * (np.arange(NY) + 1) / (NY + 1))[:, None]
          for _, _, (m, n), _, _ in MODES]
NOISE = 1e-4


def field():
    t = DT * np.arange(STEPS)
    noise = np.random.default_rng(5).standard_normal((STEPS, NY, NX))
    return NOISE * noise + sum(
        (a * np.exp(-np.pi * f / q * t) * np.cos(2 * np.pi * f * t + p))[:, None, None] * shape
        for (f, q, _, a, p), shape in zip(MODES, SHAPES))


def write(folder, name="field.h5", data=None, attribute=("dt", DT), **how):
    path = os.path.join(folder, name)
    with h5py.File(path, "w") as file:
        dataset = file.create_dataset("Ez", data=field() if data is None else data, **how)
        if attribute:
            dataset.attrs[attribute[0]] = attribute[1]
    return path


# As root too, and where a container forbids processes to copy from each other.
ENVIRONMENT = {**os.environ, "OMPI_ALLOW_RUN_AS_ROOT": "1", "OMPI_ALLOW_RUN_AS_ROOT_CONFIRM": "1",
               "OMPI_MCA_btl_vader_single_copy_mechanism": "none", "ASAN_OPTIONS": "detect_leaks=0"}


def mpirun(ranks):
    return ["mpirun", "--oversubscribe", "--bind-to", "none", "-n", str(ranks)] if ranks else []


def run(*arguments, ranks=0, status=0, **how):
    done = subprocess.run([*mpirun(ranks), COMMAND, *arguments], capture_output=True, timeout=300, env=ENVIRONMENT, **how)
    out, err = done.stdout.decode(), done.stderr.decode()
    assert status is None or done.returncode == status, (arguments, done.returncode, out, err)
    return out, err


def check(value, schema, place="result"):
    """What the schema of the JSON uses of the language of schemas."""
    if "$ref" in schema:
        schema = SCHEMA["$defs"][os.path.basename(schema["$ref"])]
    kinds = {"object": dict, "array": list, "string": str, "boolean": bool, "null": type(None), "integer": int,
             "number": (int, float)}
    names = schema.get("type", list(kinds))
    names = names if isinstance(names, list) else [names]
    assert any(isinstance(value, kinds[name]) for name in names), (place, value)
    assert not isinstance(value, bool) or "boolean" in names, (place, value)
    assert value in schema.get("enum", [value]) and value == schema.get("const", value), (place, value)
    if isinstance(value, dict):
        assert set(schema.get("required", [])) <= set(value) <= set(schema["properties"]), (place, list(value))
        for name, part in value.items():
            check(part, schema["properties"][name], f"{place}.{name}")
    if isinstance(value, list):
        assert schema.get("minItems", 0) <= len(value) <= schema.get("maxItems", len(value)), (place, value)
        for part in value:
            check(part, schema["items"], place)


def said(err):
    """Lines of the program itself: mpirun adds some about a program that failed."""
    return [line for line in err.splitlines() if line.startswith("tessel-fields: ")]


def gives_modes_and_profiles():
    with tempfile.TemporaryDirectory() as folder:
        path = write(folder)
        result = json.loads(run("--json", "--plot", f"{folder}/modes.png", path + ":/Ez")[0])
        check(result, SCHEMA)
        assert result["space"] == [NY, NX] and result["steps"] == STEPS and len(result["modes"]) == len(MODES)
        assert sorted(os.listdir(folder)) == ["field-modes.h5", "field-modes.xdmf", "field.h5", "modes.png"]
        assert open(f"{folder}/modes.png", "rb").read(4) == b"\x89PNG"
        with h5py.File(f"{folder}/field-modes.h5") as file:
            assert file.attrs["dataset"] == b"/Ez" and b"--plot" in file.attrs["command"]
            profiles = {name: file["profiles"][name][()] for name in file["profiles"]}
            for k, (found, (f, q, _, a, p), shape) in enumerate(zip(result["modes"], MODES, SHAPES)):
                assert abs(found["frequency"] - f) < 5 * found["frequency_se"] < 1e-6 * f, found
                assert abs(found["q"] - q) < 5 * found["q_se"], found
                assert file["modes/frequency"][k] == found["frequency"] and file["modes/kind"][k] == b"oscillating"
                y, x = found["peak_at"]
                assert profiles["amplitude"][k, y, x] == found["peak"] == profiles["amplitude"][k].max()
                phase = p + 2 * np.pi * f * result["reference_time"]
                size = a * np.exp(-np.pi * f / q * result["reference_time"])
                error = profiles["real"][k] + 1j * profiles["imag"][k] - size * shape * np.exp(1j * phase)
                spread = np.abs(error) / profiles["amplitude_se"][k] / np.sqrt(2)
                assert 0.8 < np.sqrt(np.mean(spread ** 2)) < 1.25, spread
                there = np.abs(shape) > 0.5
                wrong = (np.angle(np.exp(1j * (profiles["phase"][k] - phase))) / profiles["phase_se"][k])[there & (shape > 0)]
                assert 0.8 < np.sqrt(np.mean(wrong ** 2)) < 1.25

        # What a viewer needs: the parts of the datasets that the text names are there.
        grids = xml.parse(f"{folder}/field-modes.xdmf").getroot().findall("./Domain/Grid/Grid")
        assert len(grids) == len(MODES)
        for k, grid in enumerate(grids):
            assert grid.find("Topology").get("Dimensions") == f"1 {NY} {NX}"
            attributes = grid.findall("Attribute")
            assert [a.get("Name") for a in attributes] == ["amplitude", "amplitude_se", "phase", "phase_se", "real", "imag"]
            for attribute in attributes:
                assert attribute.find("DataItem").get("Dimensions") == f"1 {NY} {NX}"
                slab, data = attribute.findall("./DataItem/DataItem")
                assert [int(n) for n in slab.text.split()] == [k, 0, 0, 1, 1, 1, 1, NY, NX]
                file, name = data.text.strip().split(":")
                assert [int(n) for n in data.get("Dimensions").split()] == list(profiles[os.path.basename(name)].shape)
                assert file == "field-modes.h5"

        # The same field as others would write it, and a line of it.
        last = write(folder, "last.h5", np.moveaxis(field(), 0, -1)) + ":/Ez"
        assert json.loads(run("--json", "--time-axis", "last", last)[0])["modes"] == result["modes"]
        table, err = run(write(folder, "line.h5", field()[:, 17]) + ":/Ez")
        assert err == "" and "line-modes.h5" in table and table.splitlines()[0].endswith(": 4 modes"), table
        none = write(folder, "none.h5", NOISE * np.random.default_rng(1).standard_normal((200, 20, 30))) + ":/Ez"
        assert "no modes" in run(none)[0]
        check(json.loads(run("--json", none)[0]), SCHEMA)


def says_in_one_line_what_hinders():
    with tempfile.TemporaryDirectory() as folder:
        data = field()
        path = write(folder, data=data[:, :8, :8]) + ":/Ez"
        bare = write(folder, "bare.h5", data[:, :8, :8], None) + ":/Ez"
        data[300, 20, 33] = np.nan
        nan = write(folder, "nan.h5", data) + ":/Ez"
        whole = open(nan[:-4], "rb").read()
        with open(f"{folder}/cut.h5", "wb") as file:
            file.write(whole[:len(whole) // 2])
        before = set(os.listdir(folder))
        for arguments, status, says in (
                ([], 2, "a field is missing"), (["--memory", "3", path], 2, "--memory"), (["--jsn", path], 2, "--jsn"),
                (["--time-axis", "middle", path], 2, "--time-axis"), (["--plot", "x.bmp", path], 2, "--plot"),
                (["--memory", "1M", path], 2, "64M"), ([path, path], 2, "one field"),
                ([f"{folder}/none.h5:/Ez"], 1, "there is no such file"), ([f"{folder}/field.h5:/Hz"], 1, "no '/Hz'"),
                ([__file__], 1, "is no HDF5 file"), ([folder], 1, "is a folder"), ([bare], 1, "--dt"),
                (["--start", "1", path], 1, "behind the end"), (["--dt", "1", path], 1, "leave out --dt"),
                (["--output", f"{folder}/field.h5", path], 1, "is the input"),
                (["--output", f"{folder}/no/where.h5", path], 1, "cannot be written"),
                ([f"{folder}/cut.h5:/Ez"], 1, "damaged, cut"), ([nan], 1, "not finite")):
            for ranks in (0, 2) if status == 1 and MPI else (0,):
                out, err = run(*arguments, ranks=ranks, status=status)
                lines = said(err) if ranks else err.splitlines()
                assert len(lines) == status and says in lines[0] and out == "", (arguments, ranks, out, err)
                assert set(os.listdir(folder)) == before, (arguments, ranks, os.listdir(folder))


def says_what_is_wrong_with_the_file():
    # With one process and with two, of which one alone meets the fault.
    with tempfile.TemporaryDirectory() as folder:
        data = field()
        path = write(folder, "packed.h5", data, chunks=(100, 16, 45), compression="gzip", compression_opts=1)
        damage = []
        with h5py.File(path) as file:
            chunks = file["Ez"].id
            last = chunks.get_chunk_info(chunks.get_num_chunks() - 1)
            damage.append((path, last.byte_offset + last.size // 2))
        for order, name in ((data, "first.h5"), (np.moveaxis(data, 0, -1), "last.h5")):
            with h5py.File(write(folder, name, order)) as file:
                damage.append((file.filename, file["Ez"].id.get_offset() + 8 * (data.size - 50)))
        for name, place in damage:
            with open(name, "r+b") as file:
                file.seek(place)
                file.write(b"\xff" * 64)
        before = set(os.listdir(folder))
        for arguments, says in (([path + ":/Ez"], "the file is damaged"), ([f"{folder}/first.h5:/Ez"], "is not finite"),
                                (["--time-axis", "last", f"{folder}/last.h5:/Ez"], "is not finite")):
            for ranks in (0, 2) if MPI else (0,):
                out, err = run(*arguments, ranks=ranks, status=1)
                lines = said(err) if ranks else err.splitlines()
                assert len(lines) == 1 and says in lines[0] and out == "", (arguments, ranks, out, err)
                assert set(os.listdir(folder)) == before, (arguments, ranks, os.listdir(folder))

        # A file that grows while it is read: the time of its last change moves all the while.
        whole = write(folder, "grows.h5", data)
        for ranks in (0, 2) if MPI else (0,):
            with open(whole, "ab") as file:
                grow = subprocess.Popen(["sh", "-c", "while echo; do :; done"], stdout=file)
            try:
                out, err = run("--output", f"{folder}/grown.h5", whole + ":/Ez", ranks=ranks, status=1)
            finally:
                grow.kill()
                grow.wait()
            lines = said(err) if ranks else err.splitlines()
            assert len(lines) == 1 and "still being written" in lines[0] and out == "", (ranks, out, err)
            assert set(os.listdir(folder)) == before | {"grows.h5"}, (ranks, os.listdir(folder))


def goes_on_where_it_stopped():
    # The disk is full after so many bytes: before the first block of the pass, behind some, behind most.
    with tempfile.TemporaryDirectory() as folder:
        path = write(folder) + ":/Ez"
        expected = run(path)[0]
        with h5py.File(f"{folder}/field-modes.h5") as file:
            profiles = file["profiles/amplitude"][()]
        most, block = (1 << 24) + 8192, 0
        for blocks in (0, 1.5, 3.5):
            limit = int(most + blocks * block)
            for file in ("field-modes.h5", "field-modes.xdmf"):
                os.remove(f"{folder}/{file}")
            _, err = run("--jobs", "1", path, status=1,
                         preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))
            assert len(err.splitlines()) == 1 and "cannot be written" in err, err
            assert sorted(os.listdir(folder)) == ["field-modes.h5.work", "field.h5"], os.listdir(folder)
            with open(f"{folder}/field-modes.h5.work", "rb") as file:
                block = 8 * int.from_bytes(file.read(64)[32:40], "little")
            assert run("--resume", "--max-modes", "9", path, status=1)[1].count("belongs to another field") == 1
            table = run("--resume", path)[0]
            assert "gone on with" in table and set(expected.splitlines()) <= set(table.splitlines()), table
            with h5py.File(f"{folder}/field-modes.h5") as file:
                assert (file["profiles/amplitude"][()] == profiles).all()
            assert not os.path.exists(f"{folder}/field-modes.h5.work")


def ends_cleanly_on_an_interrupt():
    with tempfile.TemporaryDirectory() as folder:
        path = write(folder, data=np.tile(field(), (1, 2, 2)))
        process = subprocess.Popen([COMMAND, path + ":/Ez"], stderr=subprocess.PIPE, stdout=subprocess.PIPE)
        while process.poll() is None and not os.path.exists(f"{folder}/field-modes.h5.work"):
            pass
        process.send_signal(signal.SIGINT)
        out, err = process.communicate(timeout=120)
        assert process.returncode == -signal.SIGINT and out == b"" and err.count(b"\n") == 1 and b"--resume" in err, err
        assert set(os.listdir(folder)) <= {"field.h5", "field-modes.h5.work"}


def is_the_same_for_any_number_of_processes():
    with tempfile.TemporaryDirectory() as folder:
        path = write(folder, data=np.tile(field(), (1, 2, 3))) + ":/Ez"
        results = []
        for ranks in (0, 1, 2, 3, 4):
            out, err = run("--jobs", "1", path, ranks=ranks)
            assert err == "", err
            results.append((out, open(f"{folder}/field-modes.h5", "rb").read()))
            for file in ("field-modes.h5", "field-modes.xdmf"):
                os.remove(f"{folder}/{file}")
        assert all(result == results[0] for result in results), [out for out, _ in results]
        # One of them is killed at work: all end, nothing could be taken for a result, and what is left hinders nobody.
        for more in ([], ["--resume"]):
            process = subprocess.Popen([*mpirun(2), COMMAND, path], env=ENVIRONMENT, stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL)
            while process.poll() is None and not os.path.exists(f"{folder}/field-modes.h5.part"):
                pass
            with open(f"/proc/{process.pid}/task/{process.pid}/children") as children:
                os.kill(int(children.read().split()[-1]), signal.SIGKILL)
            assert process.wait(timeout=120) != 0
            assert not os.path.exists(f"{folder}/field-modes.h5") and os.path.exists(f"{folder}/field-modes.h5.work")
            out, err = run("--jobs", "1", *more, path)
            assert err == "" and set(results[0][0].splitlines()) <= set(out.splitlines()), (out, err)
            assert set(os.listdir(folder)) == {"field.h5", "field-modes.h5", "field-modes.xdmf"}, os.listdir(folder)
            for file in ("field-modes.h5", "field-modes.xdmf"):
                os.remove(f"{folder}/{file}")


globals()[BEHAVIOUR]()
