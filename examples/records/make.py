#!/usr/bin/python3
"""Makes the records in this folder: the field at two probes of a lossy microwave cavity, driven by a short pulse, with
noise, in each kind of file that tessel-modes reads; and prints the modes that the cavity has.

Usage: make.py [FOLDER]

The cavity is two-dimensional, 24 x 17 cells of 5 mm with metal walls. Eliminating the magnetic field from the program
H += s dE, E = c E + b dH, every mode obeys e(k+1) - (1 + c - q) e(k) + c e(k-1) = 0 with
q = 4 s b (sin^2(m pi / 48) + sin^2(n pi / 34)), so that frequency and decay are known in closed form.
"""
import gzip
import os
import sys

import h5py
import numpy as np

CELLS = 24, 17
STEPS = 1400
COURANT = 0.6
DT = COURANT * 5e-3 / 299792458.0
LOSS = 8e-4  # of a step
C, B = (1 - LOSS) / (1 + LOSS), COURANT / (1 + LOSS)


def modes(highest):
    """(frequency, Q, m, n) below `highest`."""
    found = []
    for m in range(1, CELLS[0]):
        for n in range(1, CELLS[1]):
            q = 4 * COURANT * B * (np.sin(m * np.pi / (2 * CELLS[0])) ** 2 + np.sin(n * np.pi / (2 * CELLS[1])) ** 2)
            angle = np.arccos((1 + C - q) / (2 * np.sqrt(C)))
            frequency, decay = angle / (2 * np.pi * DT), -np.log(C) / (2 * DT)
            if frequency < highest:
                found.append((frequency, np.pi * frequency / decay, m, n))
    return sorted(found)


def simulate():
    e = np.zeros((CELLS[0] + 1, CELLS[1] + 1))
    hx, hy = np.zeros((CELLS[0] + 1, CELLS[1])), np.zeros((CELLS[0], CELLS[1] + 1))
    probes = np.empty((STEPS, 2))
    for k in range(STEPS):
        probes[k] = e[7, 5], e[19, 12]
        hx -= COURANT * np.diff(e, axis=1)
        hy += COURANT * np.diff(e, axis=0)
        e[1:-1, 1:-1] = C * e[1:-1, 1:-1] + B * (np.diff(hy, axis=0)[:, 1:-1] - np.diff(hx, axis=1)[1:-1, :])
        after = (k - 100) * DT
        e[4, 13] += np.exp(-((after / 200e-12) ** 2)) * np.cos(2 * np.pi * 3.2e9 * after)
    noise = np.random.default_rng(14).standard_normal(probes.shape)
    return probes + 1e-4 * np.abs(probes).max() * noise


def main():
    folder = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.abspath(__file__))
    os.chdir(folder)
    field, times = simulate(), np.arange(STEPS) * DT
    np.savetxt("cavity.dat", np.column_stack([times, field[:, 0]]), fmt=["%.9e", "%.9e"], header="time Ez")
    np.savetxt("cavity.csv", np.column_stack([times * 1e9, field]), fmt=["%.6f", "%.7e", "%.7e"], delimiter=",",
               header='"time (ns)","Ez here","Ez there"', comments="", newline="\r\n")
    with open("cavity.dat.gz", "wb") as file, gzip.GzipFile("cavity.dat", "wb", mtime=0, fileobj=file) as packed:
        packed.write(open("cavity.dat", "rb").read())
    np.save("cavity.npy", field[:, 0])
    with h5py.File("cavity.h5", "w", track_order=True) as file:
        file.attrs["dt"] = DT
        for name, column in zip(("here", "there"), field.T):
            file.create_dataset(f"probes/{name}/Ez", data=column)
        file.create_dataset("probes/all", data=field.T, compression="gzip")
    print(f"dt = {DT!r}")
    for frequency, quality, m, n in modes(6e9):
        print(f"{m} {n}  {frequency / 1e9:.9f} GHz  Q {quality:.5f}")


if __name__ == "__main__":
    main()
