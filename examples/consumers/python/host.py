"""A host in Python that loads the library: two modes of a record that rings."""

import ctypes
import sys

import numpy as np


def load_fit(path="libtessel.so.1"):
    """The library's fit as a function of samples, their spacing and the order."""
    routine = ctypes.CDLL(path).LEASTSQ_PRONY_SVD
    integer, real, samples = (
        ctypes.POINTER(ctypes.c_int32),
        ctypes.POINTER(ctypes.c_double),
        np.ctypeslib.ndpointer(np.complex128, ndim=1, flags="C_CONTIGUOUS"),
    )
    routine.restype = None
    routine.argtypes = [integer, integer, samples, real, integer, integer, samples, samples]
    routine.argtypes += [real] * 5 + [integer, ctypes.c_char_p, ctypes.c_int32]

    def fit(y, dt, order):
        """Poles, residues and the five error measures; raises RuntimeError with the library's message."""
        y = np.ascontiguousarray(y, np.complex128)
        n, m, flag = ctypes.c_int32(len(y)), ctypes.c_int32(order), ctypes.c_int32()
        residues, poles = np.empty(order, complex), np.empty(order, complex)
        measures = [ctypes.c_double() for _ in range(5)]
        message = ctypes.create_string_buffer(80)
        routine(n, n, y, ctypes.c_double(dt), m, m, residues, poles, *measures, flag, message, len(message))
        if flag.value:
            raise RuntimeError(message.raw.decode().rstrip())
        return poles, residues, [measure.value for measure in measures]

    return fit


def main():
    dt = 0.1e-9
    t = dt * np.arange(60)
    y = np.exp(-4e7 * t) * np.cos(2.4e9 * np.pi * t) + 0.3 * np.exp(-9e7 * t) * np.cos(5e9 * np.pi * t)
    poles, residues, _ = load_fit(*sys.argv[1:])(y, dt, 4)
    for s, c in zip(poles, residues):
        if s.imag > 0:
            print(f"f = {s.imag / 2e9 / np.pi:.6f} GHz, Q = {s.imag / -2 / s.real:.4f}, amplitude {2 * abs(c):.6f}")


if __name__ == "__main__":
    main()
