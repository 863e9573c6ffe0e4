#!/usr/bin/python3
"""Published methods on a record as it is, nothing chosen by hand; prints modes as score.py reads them.

    peers.py harminv|esprit FILE

harminv  filter diagonalisation by libharminv with 100 basis functions over the whole band of the record, up to a tenth
         above the highest frequency whose line stands out; what its own error estimate puts above 0.1 is left out
esprit   ESPRIT on block means of the record, some five in a period of the highest frequency whose line stands out, the
         first 6000 of them, in windows of a third, at most 600; order by the minimum description length (M. Wax,
         T. Kailath, IEEE Trans. ASSP 33 (1985) 387)

Neither gives standard errors. The time is the processor's for the analysis, without start and reading.
"""
import os

os.environ["OPENBLAS_NUM_THREADS"] = "1"

import ctypes
import json
import sys
import time

import numpy as np
import scipy.linalg

BASIS = 100
MOST_MEANS, LONGEST_WINDOW = 6000, 600


def modes_from(poles, residues, real):
    """Of a real record the upper half of the poles: what is below belongs to them; real decays once."""
    modes = []
    for pole, residue in zip(poles, residues):
        if real and pole.imag < 0:
            continue
        size = abs(residue) * (2 if real and pole.imag > 0 else 1)
        mode = {"frequency": pole.imag / (2 * np.pi), "decay": -pole.real, "amplitude": size,
                "phase": np.angle(residue)}
        if np.all(np.isfinite(list(mode.values()))):
            modes.append({key: float(value) for key, value in mode.items()})
    return modes


def harminv(y, dt, real):
    """Frequencies of harminv are those of exp(-i omega t): of a real record as good as the others."""
    library = ctypes.CDLL("libharminv.so.3")
    library.harminv_data_create.restype = ctypes.c_void_p
    library.harminv_get_freq_error.restype = ctypes.c_double
    signal = np.ascontiguousarray(y, complex)
    highest = min(0.5, 1.1 * highest_line(y))
    band = (ctypes.c_double(0.0 if real else -highest), ctypes.c_double(highest))
    data = ctypes.c_void_p(library.harminv_data_create(len(y), ctypes.c_void_p(signal.ctypes.data), *band, BASIS))
    library.harminv_solve(data)
    poles, residues = [], []
    for k in range(library.harminv_get_num_freqs(data)):
        omega, amplitude = np.empty(1, complex), np.empty(1, complex)
        library.harminv_get_omega(ctypes.c_void_p(omega.ctypes.data), data, k)
        library.harminv_get_amplitude(ctypes.c_void_p(amplitude.ctypes.data), data, k)
        if library.harminv_get_freq_error(data, k) < 0.1:
            pole, residue = -1j * omega[0] / dt, amplitude[0]
            if real:
                pole, residue = pole.conjugate(), residue.conjugate()
            poles.append(pole)
            residues.append(residue)
    library.harminv_data_destroy(data)
    return poles, residues


def highest_line(y):
    """The highest frequency, in cycles a sample, where the spectrum is above ten medians and 1e-5 of its largest."""
    spectrum = np.abs(np.fft.fft(y * np.kaiser(len(y), 20)))
    frequency = np.abs(np.fft.fftfreq(len(y)))
    stands = spectrum > max(10 * np.median(spectrum), 1e-5 * spectrum.max())
    return max(frequency[stands].max(initial=0.0), 1 / len(y))


def order_by_mdl(singular, snapshots):
    """Wax and Kailath's criterion over the eigenvalues of the covariance."""
    p = len(singular)
    eigenvalues = np.maximum(singular**2 / snapshots, 1e-300)
    logs = np.log(eigenvalues)
    k = np.arange(p)
    tail_logs = np.cumsum(logs[::-1])[::-1] / (p - k)
    tail_means = np.cumsum(eigenvalues[::-1])[::-1] / (p - k)
    return int(np.argmin((p - k) * snapshots * (np.log(tail_means) - tail_logs)
                         + 0.5 * k * (2 * p - k) * np.log(snapshots)))


def esprit(y, dt, real):
    q = max(1, int(1 / (5 * highest_line(y))))
    count = min(len(y) // q, MOST_MEANS)
    means = y[: count * q].reshape(count, q).mean(axis=1)
    if not np.any(means) or count < 6:
        return [], []
    rows = min(count // 3, LONGEST_WINDOW)
    windows = np.lib.stride_tricks.sliding_window_view(means, rows)
    triangle = scipy.linalg.qr(windows, mode="r", check_finite=False)[0][:rows]
    _, singular, vh = scipy.linalg.svd(triangle, check_finite=False)
    u = vh.T
    order = min(order_by_mdl(singular, len(windows)), rows - 1)
    if order == 0:
        return [], []
    zeros = np.linalg.eigvals(scipy.linalg.lstsq(u[:-1, :order], u[1:, :order], check_finite=False)[0]).astype(complex)
    size = np.abs(zeros)
    zeros = zeros[(size > 0) & (size < np.exp(600 / count))]  # whose powers are numbers
    residues = scipy.linalg.lstsq(np.vander(zeros, count, increasing=True).T, means, check_finite=False)[0]
    poles = np.log(zeros) / (q * dt)
    # the mean of q samples of exp(s t) is its first one times (exp(q s dt) - 1) / (q (exp(s dt) - 1))
    step = poles * dt
    near = np.abs(step) < 1e-12
    gain = np.where(near, 1.0, np.expm1(q * step) / (q * np.expm1(np.where(near, 1.0, step))))
    return poles, residues / gain


def main():
    method = {"harminv": harminv, "esprit": esprit}[sys.argv[1]]
    columns = np.loadtxt(sys.argv[2], ndmin=2)
    real = columns.shape[1] == 2
    y = columns[:, 1] if real else columns[:, 1] + 1j * columns[:, 2]
    dt = (columns[-1, 0] - columns[0, 0]) / (len(y) - 1)
    start = time.process_time()
    with np.errstate(all="ignore"):
        modes = modes_from(*method(y, dt, real), real)
    json.dump({"reference_time": 0.0, "seconds": time.process_time() - start, "modes": modes}, sys.stdout)


if __name__ == "__main__":
    main()
