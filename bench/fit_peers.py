#!/usr/bin/python3
"""Times whole fits by the library beside those of other methods, on the same data in the same process.

Every method gets N = 4 M samples, complex ones and then real ones, and returns poles and residues:

  own      LEASTSQ_PRONY_SVD of the library, through ctypes
  scipy    the same two-stage method: least squares (GELSD; in real arithmetic for a real record), companion-matrix
           roots, least squares
  pencil   matrix pencil: signal subspace by SVD of the prediction matrix
  esprit   ESPRIT: signal subspace by eigenvectors of the sample covariance
  harminv  filter diagonalisation with M basis functions, if its library is there

Pencil and ESPRIT are told the number of modes, a fifth of M; the others are not. All run on one thread; times are
processor times, medians over rounds in which the methods take turns. Output: JSON in the form of Google Benchmark.
"""
import os

os.environ["OPENBLAS_NUM_THREADS"] = "1"

import argparse
import ctypes
import json
import math
import sys
import time

import numpy as np
import scipy.linalg

ORDERS = (5, 10, 20, 50, 100, 200, 350, 500)


def ringdown(samples, modes, real):
    """Poles and samples of `modes` exponentials spread over the band that decay by a factor of e to e^4 over the
    record, with noise of relative size 1e-6. Those of a real record are conjugate pairs; it has a real type."""
    random = np.random.default_rng(samples)
    count = modes // 2 if real else modes
    place = (np.arange(count) + random.uniform(0.25, 0.75, count)) / count
    poles = -random.uniform(1, 4, count) / samples + 0.9j * np.pi * (place if real else 2 * place - 1)
    residues = random.uniform(0.5, 1, count) * np.exp(1j * random.uniform(0, 6, count))
    noise = random.normal(size=samples) + 1j * random.normal(size=samples)
    record = np.exp(np.outer(np.arange(samples), poles)) @ residues + 1e-6 * noise
    return (np.concatenate((poles, poles.conj())), 2 * record.real) if real else (poles, record)


class Own:
    """The library's fit."""

    def __init__(self, library, y, order):
        self.fit = library.LEASTSQ_PRONY_SVD
        self.fit.restype = None
        samples, unknowns = ctypes.c_int32(len(y)), ctypes.c_int32(order)
        self.y = np.ascontiguousarray(y, dtype=complex)
        self.residues, self.poles = np.empty(order, complex), np.empty(order, complex)
        self.flag = ctypes.c_int32()
        address = lambda array: ctypes.c_void_p(array.ctypes.data)
        measures = [ctypes.byref(ctypes.c_double()) for _ in range(5)]
        self.arguments = [
            ctypes.byref(samples), ctypes.byref(samples), address(self.y), ctypes.byref(ctypes.c_double(1.0)),
            ctypes.byref(unknowns), ctypes.byref(unknowns), address(self.residues), address(self.poles),
            *measures, ctypes.byref(self.flag), None, ctypes.c_int32(0),
        ]

    def __call__(self):
        self.fit(*self.arguments)
        if self.flag.value != 0:
            raise RuntimeError("the library's fit failed")
        return self.poles, self.residues


def residues_of(zeros, y):
    """Least-squares residues of the discrete poles."""
    return scipy.linalg.lstsq(np.vander(zeros, len(y), increasing=True).T, y, check_finite=False)[0]


def prediction_windows(y, order):
    """Rows y(i), ..., y(i + order)."""
    return np.lib.stride_tricks.sliding_window_view(y, order + 1)


def scipy_fit(y, order):
    windows = prediction_windows(y, order)
    a = scipy.linalg.lstsq(windows[:, order - 1 :: -1], -windows[:, order], check_finite=False)[0]
    zeros = np.roots(np.concatenate(([1.0], a)))
    return np.log(zeros.astype(complex)), residues_of(zeros, y)


def shift_invariance(basis):
    """Zeros from a basis of the signal subspace, one vector a column."""
    return np.linalg.eigvals(scipy.linalg.lstsq(basis[:-1], basis[1:], check_finite=False)[0])


def pencil_fit(y, order, modes):
    right = np.linalg.svd(prediction_windows(y, order), full_matrices=False)[2]
    zeros = shift_invariance(right[:modes].T)
    return np.log(zeros), residues_of(zeros, y)


def esprit_fit(y, order, modes):
    windows = prediction_windows(y, order)
    covariance = windows.T @ windows.conj()
    largest = [order + 1 - modes, order]
    zeros = shift_invariance(scipy.linalg.eigh(covariance, subset_by_index=largest, check_finite=False)[1])
    return np.log(zeros), residues_of(zeros, y)


class Harminv:
    """Filter diagonalisation over the whole band by libharminv."""

    def __init__(self, y, order):
        self.library = ctypes.CDLL("libharminv.so")
        self.library.harminv_data_create.restype = ctypes.c_void_p
        self.y = np.ascontiguousarray(y, dtype=complex)
        self.order = order

    def __call__(self):
        call = self.library
        signal, lowest, highest = ctypes.c_void_p(self.y.ctypes.data), ctypes.c_double(-0.5), ctypes.c_double(0.5)
        data = ctypes.c_void_p(call.harminv_data_create(len(self.y), signal, lowest, highest, self.order))
        call.harminv_solve(data)
        count = call.harminv_get_num_freqs(data)
        omega, amplitude = np.empty(count, complex), np.empty(count, complex)
        for k in range(count):
            call.harminv_get_omega(ctypes.c_void_p(omega.ctypes.data + 16 * k), data, k)
            call.harminv_get_amplitude(ctypes.c_void_p(amplitude.ctypes.data + 16 * k), data, k)
        call.harminv_data_destroy(data)
        return -1j * omega, amplitude


def worst_pole_error(known, found):
    """Largest relative distance of a known pole from the nearest of those found."""
    if len(found) == 0:
        return math.inf
    nearest = np.min(np.abs(known[:, None] - found[None, :]), axis=1)
    return float(np.max(nearest / np.abs(known)))


def timed(run):
    start = time.process_time()
    run()
    return time.process_time() - start


def compare(library, kind, order, seconds, fewest):
    modes = 2 if order < 10 else order // 5
    known, y = ringdown(4 * order, modes, kind == "real")
    modes = len(known)
    methods = {
        "own": Own(library, y, order),
        "scipy": lambda: scipy_fit(y, order),
        "pencil": lambda: pencil_fit(y, order, modes),
        "esprit": lambda: esprit_fit(y, order, modes),
    }
    try:
        methods["harminv"] = Harminv(y, order)
    except OSError:
        print("libharminv is not installed: left out", file=sys.stderr)

    result = {"name": f"fit_peers/{kind}/{order}"}
    for name, run in methods.items():
        result[f"error_{name}"] = worst_pole_error(known, run()[0])
    rounds = max(fewest, min(2000, int(seconds / sum(timed(run) for run in methods.values()))))
    times = {name: [] for name in methods}
    names = list(methods)
    for turn in range(rounds):
        for k in range(len(names)):
            name = names[(k + turn) % len(names)]
            times[name].append(timed(methods[name]))
    for name in names:
        result[name] = float(np.median(times[name]))
        if name != "own":
            result[f"own/{name}"] = float(np.median(np.divide(times["own"], times[name])))
    return result | {"rounds": rounds}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--library", required=True, help="path of libtessel.so, or of the benchmarks' libtessel_avx2.so")
    parser.add_argument("--seconds", type=float, default=4.0, help="processor time for each order")
    parser.add_argument("--rounds", type=int, default=3, help="fewest rounds, which wins")
    parser.add_argument("--largest", type=int, default=max(ORDERS), help="largest order")
    arguments = parser.parse_args()
    library = ctypes.CDLL(arguments.library)
    if hasattr(library, "use_avx2"):
        library.use_avx2()
    results = []
    for kind in ("complex", "real"):
        for order in (order for order in ORDERS if order <= arguments.largest):
            results.append(compare(library, kind, order, arguments.seconds, arguments.rounds))
            print(f"{results[-1]['name']}: {results[-1]['rounds']} rounds", file=sys.stderr)
    versions = {"numpy": np.__version__, "scipy": scipy.__version__}
    json.dump({"context": versions, "benchmarks": results}, sys.stdout, indent=1)


if __name__ == "__main__":
    main()
