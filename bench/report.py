#!/usr/bin/python3
"""Prints the table of ratios, with goals, and the growth exponents of what the benchmarks measured.

    report.py RESULTS

RESULTS is the folder that scripts/bench fills: <vectors>.json from tessel_bench and fit_peers_<vectors>.json from
fit_peers.py, one for each vector width. Beside them go ratios.csv, summary.md (tables in Markdown for both kinds of
processor, a number a cell) and the data of the plots, fit_time.dat and svd_ratio.dat.
A ratio is own time / peer's time: below 1 the library is faster.
"""
import csv
import json
import math
import pathlib
import sys

WIDTHS = ("avx512", "avx2", "baseline")


def order(shape):
    return int(shape.split("/")[-1])


def extents(shape):
    return [int(text) for text in shape.split("/")[-1].split("x")]


def is_real(shape):
    return shape.startswith("real/")


def complex_from(smallest, largest):
    """Complex matrices or records of so many rows or exponentials."""
    return lambda shape: not is_real(shape) and smallest <= extents(shape)[0] <= largest


def real_from(smallest, largest=math.inf):
    return lambda shape: is_real(shape) and smallest <= extents(shape)[0] <= largest


def complex_of_aspect(above, most):
    """Complex matrices of more than `above` and at most `most` times as many rows as columns."""
    return lambda shape: not is_real(shape) and above < extents(shape)[0] / extents(shape)[1] <= most


# What, ratio or share, the shapes it holds for, and the most that it may be with AVX-512 and with AVX2.
GOALS = (
    ("svd", "own/plain", complex_from(200, 1500), 0.55, 0.72),
    ("svd", "own/plain", real_from(200, 200), 0.35, 0.42),
    ("svd", "own/plain", real_from(400), 0.25, 0.35),
    ("svd", "own/zgesvd", complex_of_aspect(0, 4), 0.55, 0.75),
    ("svd", "own/zgesvd", complex_of_aspect(4, 5), 0.60, 0.90),
    ("svd", "own/zgesvd", complex_of_aspect(5, 9), 0.75, 1.00),
    ("svd_leading_dimension", "ld1024/ld1000", lambda shape: True, 1.10, 1.10),
    ("zeros", "own/zgeev", lambda shape: order(shape) == 20, 0.25, 0.25),
    ("zeros", "own/zgeev", lambda shape: order(shape) == 100, 0.08, 0.08),
    ("fit", "own/plain", real_from(20, 20), 0.55, 0.66),
    ("fit", "own/plain", real_from(50, 350), 0.45, 0.57),
    ("fit", "own/plain", complex_from(50, 350), 0.58, 0.75),
    ("fit_dimension", "power/other", lambda shape: True, 1.10, 1.10),
    ("fit_peers", "own/scipy", real_from(5, 200), 0.90, 1.00),
    ("slots", "slot/stock", lambda shape: True, 1.03, 1.03),
)

# What is shown of each kind of benchmark: the ratios, and then what is not one.
COLUMNS = {
    "svd": ("own/zgesvd", "own/zgesdd", "own/dgesvd", "own/plain", "own/avx2", "own/baseline",
            "residual_own", "residual_zgesvd"),
    "svd_leading_dimension": ("ld1024/ld1000",),
    "zeros": ("own/zgeev", "residual_own", "residual_zgeev"),
    "fit": ("own/plain", "svd_share", "zeros_share", "rest_share", "error_own"),
    "fit_dimension": ("power/other",),
    "fit_storage": ("eightfold/tight",),
    "fit_peers": ("own/scipy", "own/pencil", "own/esprit", "own/harminv",
                  "error_own", "error_scipy", "error_pencil", "error_esprit", "error_harminv"),
    "slots": ("slot/stock",),
}

# The tables for readers: what their columns are, and for each row what it is called, the kind of benchmark, the ratio
# and the kinds of shapes, of which the largest ratio is taken.
COMPLEX = ("toeplitz/", "vandermonde/")
SUMMARY = (
    ("singular values", (
        ("complex / ZGESVD", "svd", "own/zgesvd", COMPLEX),
        ("complex / ZGESDD", "svd", "own/zgesdd", COMPLEX),
        ("complex / plain", "svd", "own/plain", COMPLEX),
        ("real / DGESVD", "svd", "own/dgesvd", ("real/",)),
        ("real / ZGESVD", "svd", "own/zgesvd", ("real/",)),
        ("real / plain", "svd", "own/plain", ("real/",)))),
    ("fit of order", (
        ("real / SciPy", "fit_peers", "own/scipy", ("real/",)),
        ("real / matrix pencil", "fit_peers", "own/pencil", ("real/",)),
        ("real / ESPRIT", "fit_peers", "own/esprit", ("real/",)),
        ("real / libharminv", "fit_peers", "own/harminv", ("real/",)),
        ("real / plain", "fit", "own/plain", ("real/",)),
        ("complex / SciPy", "fit_peers", "own/scipy", ("complex/",)),
        ("complex / matrix pencil", "fit_peers", "own/pencil", ("complex/",)),
        ("complex / ESPRIT", "fit_peers", "own/esprit", ("complex/",)),
        ("complex / libharminv", "fit_peers", "own/harminv", ("complex/",)),
        ("complex / plain", "fit", "own/plain", ("complex/",)))),
    ("zeros of degree", (("zeros / ZGEEV", "zeros", "own/zgeev", ("",)),)),
    ("slots", (
        ("ZGESVD / stock", "slots", "slot/stock", ("zgesvd/",)),
        ("DGESVD / stock", "slots", "slot/stock", ("dgesvd/",)))),
    ("slots, order", (("ZGESV / stock", "slots", "slot/stock", ("zgesv/",)),)),
)
PROCESSORS = {"avx512": "AVX-512", "avx2": "AVX2", "baseline": "SSE2"}


def load(path):
    """Benchmarks by kind and shape, and the context."""
    report = json.loads(path.read_text())
    results = {}
    for benchmark in report["benchmarks"]:
        name = benchmark["name"].split("/iterations:")[0]
        kind, shape = name.split("/", 1)
        results.setdefault(kind, {})[shape] = benchmark
    return results, report["context"]


def goals_of(kind, shape, vectors):
    for what, key, applies, avx512, avx2 in GOALS:
        if what == kind and applies(shape):
            yield key, avx512 if vectors == "avx512" else avx2


def show_table(kind, results, vectors, rows):
    """Prints one kind of benchmark and appends its values to the rows of the CSV file."""
    columns = [key for key in COLUMNS[kind] if any(key in benchmark for benchmark in results.values())]
    widths = [max(len(key), 8) for key in columns]
    header = "  ".join(key.rjust(width) for key, width in zip(columns, widths))
    print(f"\n{kind:<21}  {header}  goals")
    for shape, benchmark in results.items():
        cells = ((f"{benchmark[key]:.3g}" if key in benchmark else "").rjust(width)
                 for key, width in zip(columns, widths))
        goals = dict(goals_of(kind, shape, vectors))
        met = {key: benchmark[key] <= most for key, most in goals.items()}
        verdicts = (f"{key} <= {most:g}: {'met' if met[key] else 'NOT met'}" for key, most in goals.items())
        print(f"  {shape:<19}  {'  '.join(cells)}  {'; '.join(verdicts)}".rstrip())
        for key in (key for key in columns if key in benchmark):
            verdict = {True: "yes", False: "no", None: ""}[met.get(key)]
            rows.append((vectors, kind, shape, key, f"{benchmark[key]:.6g}", goals.get(key, ""), verdict))


def growth_exponent(points):
    """Slope of log t over log x by least squares."""
    logs = [(math.log(x), math.log(t)) for x, t in points]
    mean_x, mean_t = (sum(column) / len(logs) for column in zip(*logs))
    return sum((x - mean_x) * (t - mean_t) for x, t in logs) / sum((x - mean_x) ** 2 for x, _ in logs)


def show_growth(kind, what, results, names, size, smallest):
    shapes = [shape for shape in results if size(shape) >= smallest]
    if len(shapes) < 2:
        return
    exponents = (f"{name} {growth_exponent([(size(s), results[s][name]) for s in shapes]):.2f}" for name in names)
    print(f"  {kind}, time over {what}, from {smallest:g}: " + ", ".join(exponents))


def write_plot_data(folder, results):
    """Columns of numbers; a missing one is NaN, which gnuplot leaves out."""
    methods = ("own", "scipy", "pencil", "esprit", "harminv")
    with open(folder / "fit_time.dat", "w") as out:
        print("# M, milliseconds for a real record: plain", *methods, file=out)
        for shape, benchmark in results.get("fit_peers", {}).items():
            if is_real(shape):
                plain = results.get("fit", {}).get(shape, {}).get("plain", math.nan)
                times = (plain, *(benchmark.get(method, math.nan) for method in methods))
                print(order(shape), *(f"{1e3 * t:.6g}" for t in times), file=out)
    with open(folder / "svd_ratio.dat", "w") as out:
        print("# shape, own / zgesvd zgesdd plain: toeplitz, vandermonde, real", file=out)
        svd = results.get("svd", {})
        for shape in dict.fromkeys(name.split("/")[1] for name in svd):
            kinds = (svd.get(f"{kind}/{shape}", {}) for kind in ("toeplitz", "vandermonde", "real"))
            keys = ("own/zgesvd", "own/zgesdd", "own/plain")
            print(shape, *(f"{b.get(key, math.nan):.6g}" for b in kinds for key in keys), file=out)


def summary(by_width):
    """Tables in Markdown: a row for each peer and processor, a number a cell."""
    for heading, lines in SUMMARY:
        rows, columns = [], {}
        for name, kind, key, prefixes in lines:
            for vectors, results in by_width.items():
                cells = {}
                for shape, benchmark in results.get(kind, {}).items():
                    if shape.startswith(prefixes) and key in benchmark:
                        column = shape.split("/")[-1]
                        cells[column] = max(cells.get(column, 0.0), benchmark[key])
                if cells:
                    columns |= dict.fromkeys(cells)
                    rows.append((name, PROCESSORS[vectors], cells))
        if rows:
            yield "\n| " + " | ".join((heading, "processor", *columns)) + " |"
            yield "|" + "---|" * (2 + len(columns))
        for name, processor, cells in rows:
            numbers = (f"{cells[column]:.2f}" if column in cells else "" for column in columns)
            yield "| " + " | ".join((name, processor, *numbers)) + " |"


def main():
    folder = pathlib.Path(sys.argv[1])
    rows = []
    by_width = {}
    for vectors in WIDTHS:
        if not (folder / f"{vectors}.json").exists():
            continue
        results, context = load(folder / f"{vectors}.json")
        results |= load(folder / f"fit_peers_{vectors}.json")[0]
        by_width[vectors] = results
        print(f"\n== Own kernels: {vectors} (this machine's widest: {context['widest_vectors']}). "
              f"BLAS kernels: {context['blas_kernels']}, of the peers {context['peers_kernels']}.")
        for kind in COLUMNS:
            if kind in results:
                show_table(kind, results[kind], vectors, rows)
        print("\nGrowth exponents")
        for kind in ("fit", "fit_peers"):
            names = ("own", *(key[4:] for key in COLUMNS[kind] if key.startswith("own/")))
            for record in ("complex", "real"):
                shapes = {s: b for s, b in results.get(kind, {}).items() if s.startswith(record)}
                first = next(iter(shapes.values()), {})
                show_growth(f"{kind}/{record}", "M", shapes, [n for n in names if n in first], order, 50)
        show_growth("zeros", "degree", results.get("zeros", {}), ("own", "zgeev"), order, 20)
        show_growth("svd", "n p^2", results.get("svd", {}), ("own", "zgesvd", "zgesdd", "plain"),
                    lambda shape: extents(shape)[0] * extents(shape)[1] ** 2, 1e6)
    if by_width:
        write_plot_data(folder, next(iter(by_width.values())))
    tables = "\n".join(summary(by_width))
    (folder / "summary.md").write_text(tables.lstrip() + "\n")
    print(tables)
    with open(folder / "ratios.csv", "w", newline="") as out:
        table = csv.writer(out)
        table.writerow(("vectors", "kind", "shape", "quantity", "value", "goal", "met"))
        table.writerows(rows)
    judged = [row for row in rows if row[6]]
    print(f"\n{sum(row[6] == 'yes' for row in judged)} of {len(judged)} goals are met.")


if __name__ == "__main__":
    main()
