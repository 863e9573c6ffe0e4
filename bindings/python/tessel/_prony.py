"""The least-squares Prony fit."""

from __future__ import annotations

import math
from dataclasses import dataclass
from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core
from ._errors import FitError, InputError
from ._samples import axes, html_table, number, samples, table, whole

_LARGEST = 2**31 - 1  # of the library's integers
_MOST = 5000  # exponentials
_LEAST_SPACING = 1e-102


@dataclass(frozen=True, eq=False, repr=False)
class PronyFit:
    """What `prony` found: y(k) ~ sum_j residues[j] exp(poles[j] k dt), k from 0."""

    poles: NDArray[np.complex128]  #: in 1 / unit of time
    residues: NDArray[np.complex128]  #: in the unit of the record
    err_l2: float  #: root of the sum of squared errors over that of squared samples
    err_rms: float  #: root of the mean squared error over the highest sample
    err_peak: float  #: highest error over the highest sample
    err_rms_mean: float  #: root of the mean squared error over the mean of the samples' magnitudes
    err_peak_mean: float  #: highest error over the mean of the samples' magnitudes

    @property
    def frequency(self) -> NDArray[np.float64]:
        """Im(pole) / (2 pi), in 1 / unit of time."""
        return np.asarray(self.poles.imag / (2 * np.pi))

    @property
    def q(self) -> NDArray[np.float64]:
        """|Im(pole)| / (-2 Re(pole)); negative if the exponential grows."""
        with np.errstate(divide="ignore", invalid="ignore"):
            return np.asarray(np.abs(self.poles.imag) / (-2 * self.poles.real))

    def __len__(self) -> int:
        return len(self.poles)

    def model(self, t: ArrayLike) -> NDArray[np.complex128]:
        """The sum of the exponentials at times t from the first sample on, in the shape of t."""
        return np.asarray(np.exp(np.multiply.outer(np.asarray(t, float), self.poles)) @ self.residues)

    def to_dict(self) -> dict[str, Any]:
        """Plain numbers and lists, as for JSON; a complex number is a pair."""
        arrays = {"poles": self.poles, "residues": self.residues}
        return {
            **vars(self),
            **{name: np.stack([array.real, array.imag], axis=1).tolist() for name, array in arrays.items()},
        }

    def to_records(self) -> NDArray[np.void]:
        """A structured array of NumPy with the fields pole, residue, frequency and q."""
        columns = {"pole": self.poles, "residue": self.residues, "frequency": self.frequency, "q": self.q}
        records = np.empty(len(self), [(name, column.dtype) for name, column in columns.items()])
        for name, column in columns.items():
            records[name] = column
        return records

    def plot(self, ax: Any = None) -> Any:
        """Draws the poles, larger with larger residues; needs Matplotlib.

        ax  the axes to draw in; a new figure's if it is None. Returned.
        """
        ax = axes(ax)
        size = np.abs(self.residues)
        ax.scatter(self.frequency, self.poles.real, 100 * size / max(size.max(initial=0), np.finfo(float).tiny))
        ax.axhline(0, lw=0.5, color="k")
        ax.set(xlabel="frequency [1 / unit of time]", ylabel="real part of the pole [1 / unit of time]")
        return ax

    def _rows(self) -> list[list[str]]:
        order = np.argsort(self.frequency, kind="stable")
        columns = self.frequency[order], self.q[order], np.abs(self.residues)[order]
        return [["frequency", "Q", "|residue|"], *([f"{value:.6g}" for value in row] for row in zip(*columns))]

    def _heading(self) -> str:
        return f"{len(self)} exponential{'s' * (len(self) != 1)}, relative error {self.err_l2:.3g}"

    def __repr__(self) -> str:
        return f"{self._heading()}\n{table(self._rows())}"

    def _repr_html_(self) -> str:
        return f"<p>{self._heading()}</p>{html_table(self._rows())}"


def prony(y: ArrayLike, dt: float, m: int) -> PronyFit:
    """Fits m damped complex exponentials to equally spaced samples, in the least-squares sense.

    y   the samples, at least 2 m numbers of any type, in one dimension
    dt  time from one sample to the next
    m   number of exponentials, 1 to 5000; two for each mode of a real record, and more if there is noise

    Raises InputError if an argument is out of bounds, FitError if an iteration meets its limit, both with the library's
    words, and MemoryError. Samples that are not finite, or all zero, give results that are not numbers. Other threads
    run meanwhile; the samples must not change.

    >>> t = 0.25 * np.arange(40)
    >>> fit = prony(np.exp(-0.1 * t) * np.cos(2 * t), dt=0.25, m=2)
    >>> print(np.sort_complex(np.round(fit.poles, 9)), fit.err_l2 < 1e-12)
    [-0.1-2.j -0.1+2.j] True
    """
    array = samples(y)
    m, n, dt = whole("m", m), len(array), number("dt", dt)
    if not math.isfinite(dt):
        raise InputError(f"the spacing is not a positive finite number: dt = {dt}", "spacing")
    if abs(m) > _LARGEST or n > _LARGEST:
        raise InputError(f"more than {_LARGEST} samples or exponentials: {n} samples, m = {m}", "order")
    flag, text, poles, residues, measures = _core.prony(array, dt, m)
    if flag == 0:
        return PronyFit(poles, residues, *measures)
    if "storage" in text:
        raise MemoryError(text)
    if "bounds" not in text:
        raise FitError(text)
    if dt < _LEAST_SPACING:
        raise InputError(f"{text} dt = {dt}, at least {_LEAST_SPACING} is needed", "spacing")
    if not 1 <= m <= _MOST:
        raise InputError(f"{text} m = {m}, from 1 to {_MOST} are possible", "order")
    raise InputError(f"{text} m = {m} needs {max(2 * m, 2)} samples, there are {n}", "tooFewSamples", n)
