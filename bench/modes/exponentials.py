"""Sums of damped exponentials in extended precision, and the Cramer-Rao bound of what can be known of them.

A mode is a row (frequency, decay, amplitude, phase), the last two at the record's first sample:

    real record     y(t) = sum_j A_j exp(-g_j t) cos(2 pi f_j t + p_j)
    complex record  y(t) = sum_j A_j exp(-g_j t + i (2 pi f_j t + p_j))

A mode of a real record with f = 0 is a real decay: it has a decay and an amplitude, its phase is 0 or pi.
"""
import numpy as np
import scipy.linalg
import scipy.signal

LD = np.longdouble
PI = LD("3.14159265358979323846264338327950288")
TWO_PI = 2 * np.pi
BLOCK = 1024


def powers(modes, dt, index):
    """exp(s_j dt k) for each k of the index (rows) and each mode (columns). The cycles are reduced in extended
    precision: a double would lose the phase of a long record."""
    f, g = np.asarray(modes, LD).T[:2]
    k = np.asarray(index).astype(LD)[:, None]
    cycles = k * (f * LD(dt))
    angle = 2 * PI * (cycles - np.floor(cycles))
    return np.exp(-k * (g * LD(dt))) * (np.cos(angle) + 1j * np.sin(angle))


def amplitudes(modes):
    a, p = np.asarray(modes, LD).T[2:4]
    return a * (np.cos(p) + 1j * np.sin(p))


def evaluate(modes, dt, first, last, complex_record=False):
    """Samples first..last-1 of the sum: exp(s k) as the product of two short tables, k = BLOCK b + j."""
    if len(modes) == 0:
        return np.zeros(last - first, np.clongdouble if complex_record else LD)
    inner = powers(modes, dt, np.arange(BLOCK))
    outer = powers(modes, dt, np.arange(first, last, BLOCK)) * amplitudes(modes)
    y = (outer @ inner.T).ravel()[: last - first]
    return y if complex_record else y.real


def jacobian(modes, dt, first, rows, trend, complex_record):
    """Derivatives of the samples first + rows by f, g, ln A, p at sample `first` of each mode (by g and ln A alone of
    a real decay), then by the coefficients of a polynomial of `trend` terms. A complex record gives its real
    parts, then its imaginary parts."""
    e = (powers(modes, dt, rows + first) * amplitudes(modes)).astype(complex)
    u = (rows * dt)[:, None]
    slopes = np.stack((2j * np.pi * u * e, -u * e, e, 1j * e), axis=2)
    keep = np.ones((len(modes), 4), bool)
    if not complex_record:
        keep[np.asarray(modes)[:, 0] == 0.0] = (False, True, True, False)
    j = slopes.reshape(len(rows), -1)[:, keep.ravel()]
    j = np.hstack((j, (rows[:, None] * dt) ** np.arange(trend)))
    return np.vstack((j.real, j.imag)) if complex_record else j.real


def triangle_of(modes, dt, first, last, trend, complex_record, whiten):
    """R of the Jacobian's QR decomposition, by slabs of rows: the whole of a long record would not fit."""
    if whiten is not None:
        return np.linalg.qr(whiten(jacobian(modes, dt, first, np.arange(last - first), trend, complex_record)), "r")
    r = None
    for start in range(0, last - first, 16 * BLOCK):
        rows = np.arange(start, min(start + 16 * BLOCK, last - first))
        slab = jacobian(modes, dt, first, rows, trend, complex_record)
        r = np.linalg.qr(slab if r is None else np.vstack((r, slab)), "r")
    return r


def bound_factor(modes, dt, first, last, sigma, trend=0, complex_record=False, whiten=None):
    """A matrix F with F F^T = the Cramer-Rao bound of (f, g, ln A, p) of each mode at sample `first`, all modes and the
    trend unknown, for Gaussian noise of standard deviation sigma (of each part of a complex record), white or
    whitened by `whiten`. Four rows a mode; those of a real decay's frequency and phase are zero."""
    r = triangle_of(modes, dt, first, last, trend, complex_record, whiten)
    scale = np.sqrt((r**2).sum(0))
    scale[scale == 0.0] = 1e-300
    r = r / scale
    if r.shape[0] < r.shape[1]:  # fewer samples than unknowns
        r = np.vstack((r, np.zeros((r.shape[1] - r.shape[0], r.shape[1]))))
    weak = np.abs(np.diag(r)) < 1e-13  # what double precision cannot tell from dependent is taken for unknown
    r[np.diag_indices_from(r)] = np.where(weak, 1e-13, np.diag(r))
    inverse = sigma * scipy.linalg.solve_triangular(r, np.eye(len(r))) / scale[:, None]
    keep = np.ones((len(modes), 4), bool)
    if not complex_record:
        keep[np.asarray(modes)[:, 0] == 0.0] = (False, True, True, False)
    factor = np.zeros((4 * len(modes), len(r)))
    factor[keep.ravel()] = inverse[: keep.sum()]
    return factor


def resolved(modes, sd, complex_record=False):
    """Whether the bound resolves each mode: its amplitude is known to 20 %, its pole to a fifth of the distance from
    the next mode and its decay to a fifth of |omega|, or of itself if it is a real decay."""
    poles = -modes[:, 1] + 2j * np.pi * modes[:, 0]
    apart = np.abs(poles[:, None] - poles[None, :])
    np.fill_diagonal(apart, np.inf)
    size = TWO_PI * np.abs(modes[:, 0])
    if not complex_record:
        size = np.where(size == 0.0, np.abs(modes[:, 1]), size)
    of_pole = np.hypot(TWO_PI * sd[:, 0], sd[:, 1])
    return (sd[:, 2] < 0.2) & (of_pole < 0.2 * apart.min(axis=1)) & (sd[:, 1] < 0.2 * size)


class Colour:
    """Autoregressive noise x(k) = e(k) - a(1) x(k-1) - ... - a(p) x(k-p), scaled to unit variance."""

    def __init__(self, coefficients):
        self.a = np.concatenate(([1.0], coefficients))
        response = np.abs(np.fft.rfft(self.a, 1 << 18)) ** -2.0
        covariance = np.fft.irfft(response)[: len(self.a)]
        self.deviation = np.sqrt(covariance[0])
        order = len(self.a) - 1
        self.start = np.linalg.cholesky(scipy.linalg.toeplitz(covariance[:order])) if order else None

    @classmethod
    def draw(cls, rng, name):
        if name == "white":
            return cls([])
        if name == "red":
            return cls([-rng.uniform(0.7, 0.98)])
        if name == "blue":
            return cls([rng.uniform(0.4, 0.9)])
        if name == "hump":  # a broad line
            radius, angle = rng.uniform(0.7, 0.93), np.pi * rng.uniform(0.05, 0.9)
            return cls([-2 * radius * np.cos(angle), radius**2])
        if name == "pink":  # a fractional difference of order a half, cut: 1 / f above a hundredth of the band
            k = np.arange(1, 65)
            return cls(np.cumprod((k - 1.5) / k))
        raise ValueError(name)

    def noise(self, rng, count):
        order = len(self.a) - 1
        white = rng.standard_normal(count)
        if order == 0:
            return white
        x = np.empty(count)
        x[:order] = self.start @ white[:order]
        state = scipy.signal.lfiltic([1.0], self.a, x[order - 1 :: -1] if order > 1 else x[:1])
        x[order:] = scipy.signal.lfilter([1.0], self.a, white[order:], zi=state)[0]
        return x / self.deviation

    def whiten(self, columns):
        """Makes such noise of unit variance white, of unit variance; the first p rows by their own covariance."""
        order = len(self.a) - 1
        if order == 0:
            return columns
        out = scipy.signal.lfilter(self.a, [1.0], columns, axis=0)
        out[:order] = scipy.linalg.solve_triangular(self.start, columns[:order], lower=True)
        return out * self.deviation
