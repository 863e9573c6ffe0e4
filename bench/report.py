#!/usr/bin/python3
"""Prints the table of ratios, with goals, and the growth exponents of what the benchmarks measured.

    report.py RESULTS

RESULTS is the folder that scripts/bench fills: <vectors>.json from tessel_bench, one for each vector width, and
fit_peers.json from fit_peers.py. Beside them go ratios.csv and the data of the plots, fit_time.dat and svd_ratio.dat.
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


def is_moderate(shape):
    rows, columns = extents(shape)
    return rows <= 4 * columns and 20 <= columns <= 100


def is_large(shape):
    rows, columns = extents(shape)
    return rows <= 3 * columns and columns >= 200


# What, ratio or share, the shapes it holds for, and the most that it may be with AVX-512 and with AVX2.
GOALS = (
    ("svd", "own/zgesvd", is_moderate, 0.70, 0.90),
    ("svd", "own/zgesvd", is_large, 0.65, 0.85),
    ("svd", "own/plain", lambda shape: extents(shape)[1] >= 100, 0.65, 0.75),
    ("svd_leading_dimension", "ld1024/ld1000", lambda shape: True, 1.12, 1.12),
    ("zeros", "own/zgeev", lambda shape: order(shape) == 20, 0.25, 0.25),
    ("zeros", "own/zgeev", lambda shape: order(shape) == 100, 0.08, 0.08),
    ("slots", "slot/stock", lambda shape: True, 1.03, 1.03),
    ("fit", "own/plain", lambda shape: 50 <= order(shape) <= 350, 0.65, 0.80),
    ("fit", "rest_share", lambda shape: order(shape) >= 50, 0.05, 0.05),
    ("fit_storage", "eightfold/tight", lambda shape: True, 1.15, 1.15),
    ("fit_peers", "own/scipy", lambda shape: order(shape) <= 200, 0.90, 1.00),
)

# What is shown of each kind of benchmark: the ratios, and then what is not one.
COLUMNS = {
    "svd": ("own/zgesvd", "own/zgesdd", "own/plain", "own/avx2", "own/baseline", "residual_own", "residual_zgesvd"),
    "svd_leading_dimension": ("ld1024/ld1000",),
    "zeros": ("own/zgeev", "residual_own", "residual_zgeev"),
    "slots": ("slot/stock",),
    "fit": ("own/plain", "svd_share", "zeros_share", "rest_share", "error_own"),
    "fit_storage": ("eightfold/tight",),
    "fit_peers": ("own/scipy", "own/pencil", "own/esprit", "own/harminv",
                  "error_own", "error_scipy", "error_pencil", "error_esprit", "error_harminv"),
}


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
        cells = (f"{benchmark[key]:.3g}".rjust(width) for key, width in zip(columns, widths))
        goals = dict(goals_of(kind, shape, vectors))
        met = {key: benchmark[key] <= most for key, most in goals.items()}
        verdicts = (f"{key} <= {most:g}: {'met' if met[key] else 'NOT met'}" for key, most in goals.items())
        print(f"  {shape:<19}  {'  '.join(cells)}  {'; '.join(verdicts)}".rstrip())
        for key in columns:
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


def write_plot_data(folder, own, peers):
    """Columns of numbers; a missing one is NaN, which gnuplot leaves out."""
    methods = ("own", "scipy", "pencil", "esprit", "harminv")
    with open(folder / "fit_time.dat", "w") as out:
        print("# M, milliseconds: plain", *methods, file=out)
        for shape, benchmark in peers.get("fit_peers", {}).items():
            plain = own.get("fit", {}).get(shape, {}).get("plain", math.nan)
            print(shape, *(f"{1e3 * t:.6g}" for t in (plain, *(benchmark.get(m, math.nan) for m in methods))), file=out)
    with open(folder / "svd_ratio.dat", "w") as out:
        print("# shape, own / zgesvd zgesdd plain: toeplitz, then vandermonde", file=out)
        svd = own.get("svd", {})
        for shape in dict.fromkeys(name.split("/")[1] for name in svd):
            pair = (svd.get(f"{kind}/{shape}", {}) for kind in ("toeplitz", "vandermonde"))
            keys = ("own/zgesvd", "own/zgesdd", "own/plain")
            print(shape, *(f"{b.get(key, math.nan):.6g}" for b in pair for key in keys), file=out)


def main():
    folder = pathlib.Path(sys.argv[1])
    rows = []
    peers = load(folder / "fit_peers.json")[0]
    widest = None
    for vectors in WIDTHS:
        path = folder / f"{vectors}.json"
        if not path.exists():
            continue
        results, context = load(path)
        print(f"\n== Own kernels: {vectors} (this machine's widest: {context['widest_vectors']}). "
              f"BLAS kernels: {context['blas_kernels']}, of the peers {context['peers_kernels']}.")
        if widest is None:
            widest = vectors
            write_plot_data(folder, results, peers)
            results |= peers
        for kind in COLUMNS:
            if kind in results:
                show_table(kind, results[kind], vectors, rows)
        print("\nGrowth exponents")
        for kind in ("fit", "fit_peers"):
            names = ("own", *(key[4:] for key in COLUMNS[kind] if key.startswith("own/")))
            first = next(iter(results.get(kind, {}).values()), {})
            show_growth(kind, "M", results.get(kind, {}), [n for n in names if n in first], order, 50)
        show_growth("zeros", "degree", results.get("zeros", {}), ("own", "zgeev"), order, 20)
        show_growth("svd", "n p^2", results.get("svd", {}), ("own", "zgesvd", "zgesdd", "plain"),
                    lambda shape: extents(shape)[0] * extents(shape)[1] ** 2, 1e6)
    with open(folder / "ratios.csv", "w", newline="") as out:
        table = csv.writer(out)
        table.writerow(("vectors", "kind", "shape", "quantity", "value", "goal", "met"))
        table.writerows(rows)
    judged = [row for row in rows if row[6]]
    print(f"\n{sum(row[6] == 'yes' for row in judged)} of {len(judged)} goals are met.")


if __name__ == "__main__":
    main()
