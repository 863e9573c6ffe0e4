"""What both entries do with their arguments."""

from __future__ import annotations

import operator
from html import escape
from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from ._errors import InputError


def samples(y: ArrayLike) -> NDArray[Any]:
    """The record as an array of numbers, not copied if it is one."""
    try:
        array = np.asarray(y)
    except ValueError:  # lists of different lengths
        array = np.empty((), object)
    if array.dtype.kind in "SU":
        raise InputError("y is text, not an array of samples: read the file first, as with numpy.loadtxt", "samples")
    if array.ndim != 1 or array.dtype.kind not in "iufc":
        hint = "; take a row or a column of it" if array.ndim == 2 else ""
        raise InputError(
            f"y must be a one-dimensional array of real or complex numbers, not of {array.ndim} dimensions "
            f"and type {array.dtype}{hint}",
            "samples",
        )
    if isinstance(y, np.ma.MaskedArray) and np.any(y.mask):
        raise InputError("y has masked samples: a record has a value for each time", "samples")
    return array


def number(name: str, value: Any) -> float:
    """A real number of any type."""
    try:
        if not isinstance(value, (str, bytes)):
            return float(value)
    except (TypeError, ValueError):
        pass
    raise TypeError(f"{name} must be a number, not {value!r}")


def whole(name: str, value: Any) -> int:
    """A whole number of any type."""
    try:
        return operator.index(value)
    except TypeError:
        raise TypeError(f"{name} must be a whole number, not {value!r}") from None


def table(rows: list[list[str]]) -> str:
    """Columns of text, right-aligned."""
    widths = [max(map(len, column)) for column in zip(*rows)]
    return "\n".join("  ".join(cell.rjust(width) for cell, width in zip(row, widths)).rstrip() for row in rows)


def html_table(rows: list[list[str]]) -> str:
    """The same for a notebook; the first row is the header."""

    def line(tag: str, row: list[str]) -> str:
        return "<tr>" + "".join(f"<{tag}>{escape(cell)}</{tag}>" for cell in row) + "</tr>"

    body = "".join(line("td", row) for row in rows[1:])
    return f"<table><thead>{line('th', rows[0])}</thead><tbody>{body}</tbody></table>"


def axes(ax: Any) -> Any:
    """The given axes, or those of a new figure."""
    if ax is not None:
        return ax
    try:
        from matplotlib import pyplot  # type: ignore[import]
    except ImportError as error:
        raise ImportError("plot() needs Matplotlib (python3-matplotlib)") from error
    return pyplot.subplots()[1]
