"""The modes of a record, and what results of several have in common with them."""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import asdict, astuple, dataclass, fields
from html import escape
from typing import Any, Callable, NamedTuple, Optional, TypeVar, Union, overload

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core
from ._errors import InputError
from ._samples import axes, html_table, number, samples, table, whole


@dataclass(frozen=True)
class Mode:
    """One mode: A exp(-g (t - t0)) cos(2 pi f (t - t0) + p) of a real record, A exp(i p) exp((-g + 2 pi i f) (t - t0))
    of a complex one, with t0 the reference time. The ending _se is for the standard error."""

    frequency: float  #: f in 1 / unit of time; of a complex record with its sign
    frequency_se: float
    decay: float  #: g in 1 / unit of time; negative if the mode grows
    decay_se: float
    q: float  #: pi |f| / g; infinite if g is zero, negative if the mode grows
    q_se: float
    amplitude: float  #: A in the unit of the record
    amplitude_se: float
    phase: float  #: p in (-pi, pi]
    phase_se: float
    significance: float  #: above 1 for all modes that are reported
    kind: str  #: "oscillating", "overdamped" or "growing"


@dataclass(frozen=True)
class Remark:
    """What should be known about a result."""

    code: str  #: such as "recordTooShort"
    value: float  #: what it is about: a time, a frequency, a number
    text: str  #: one sentence


class Progress(NamedTuple):
    """Where the work stands."""

    stage: str  #: a word such as "search"
    modes: int  #: modes held now
    part: float  #: of the record that is modelled, 0 to 1


class Column:
    """One quantity of all modes, as an array."""

    def __set_name__(self, owner: type, name: str) -> None:
        self.name = name

    @overload
    def __get__(self, modes: None, owner: type) -> Column: ...
    @overload
    def __get__(self, modes: Found[Any], owner: type) -> NDArray[Any]: ...
    def __get__(self, modes: Optional[Found[Any]], owner: type) -> Union[Column, NDArray[Any]]:
        return self if modes is None else np.array([getattr(mode, self.name) for mode in modes])


_M = TypeVar("_M")


class Found(Sequence[_M]):
    """What results of one record and of several have in common."""

    modes: tuple[_M, ...]
    remarks: tuple[Remark, ...]

    def __len__(self) -> int:
        return len(self.modes)

    @overload
    def __getitem__(self, index: int) -> _M: ...
    @overload
    def __getitem__(self, index: slice) -> tuple[_M, ...]: ...
    def __getitem__(self, index: Union[int, slice]) -> Union[_M, tuple[_M, ...]]:
        return self.modes[index]

    def has(self, code: str) -> bool:
        """Whether there is a remark with this code."""
        return any(remark.code == code for remark in self.remarks)

    @property
    def long_enough(self) -> bool:
        """Whether there are modes and the records are long enough for their decays."""
        return len(self) > 0 and not self.has("recordTooShort")

    def to_dict(self) -> dict[str, Any]:
        """Plain numbers, strings, lists and dictionaries, with the names that `tessel-modes --json` uses."""
        lists = {
            name: [asdict(item) for item in value]
            for name, value in vars(self).items()
            if name in ("modes", "records", "remarks")
        }
        return {**vars(self), **lists, "band": list(vars(self)["band"])}

    def _heading(self) -> str:
        raise NotImplementedError

    def _rows(self) -> list[list[str]]:
        raise NotImplementedError

    def __repr__(self) -> str:
        lines = [self._heading(), *([table(self._rows())] if self.modes else [])]
        return "\n".join(lines + [f"remark: {remark.text}" for remark in self.remarks])

    def _repr_html_(self) -> str:
        remarks = "".join(f"<li>{escape(remark.text)}</li>" for remark in self.remarks)
        return f"<p>{self._heading()}</p>{html_table(self._rows())}<ul>{remarks}</ul>"


@dataclass(frozen=True, eq=False, repr=False)
class Modes(Found[Mode]):
    """What `find_modes` found: a sequence of modes by rising frequency, and what stands beside them.

    The quantities of a mode are arrays here: `modes.frequency`, `modes.q_se` and so on.
    """

    modes: tuple[Mode, ...]
    remarks: tuple[Remark, ...]
    reference_time: float  #: of amplitudes and phases: the time of the first sample used
    first_sample: int  #: first sample used, from 0
    first_sample_reason: str  #: "wholeRecord", "given" or "driveSkipped"
    decimation: int  #: samples averaged into one
    noise: float  #: standard deviation of the noise of a sample, at the first sample used
    chi2: float  #: chi^2 per degree of freedom by the noise that was found before the fit
    band: tuple[float, float]  #: lowest and highest frequency that were searched
    complex: bool  #: whether the record was

    frequency = Column()
    frequency_se = Column()
    decay = Column()
    decay_se = Column()
    q = Column()
    q_se = Column()
    amplitude = Column()
    amplitude_se = Column()
    phase = Column()
    phase_se = Column()
    significance = Column()
    kind = Column()

    def model(self, t: ArrayLike) -> NDArray[Any]:
        """The sum of the modes at times t, in the shape of t; complex if the record was."""
        u = np.asarray(t, float) - self.reference_time
        total = np.zeros(u.shape, complex)
        for m in self:
            total += m.amplitude * np.exp(1j * m.phase + (2j * np.pi * m.frequency - m.decay) * u)
        return total if self.complex else total.real

    def to_records(self) -> NDArray[np.void]:
        """A structured array of NumPy, with a field for each quantity of a mode."""
        kinds = {field.name: "U12" if field.name == "kind" else "f8" for field in fields(Mode)}
        return np.array([astuple(mode) for mode in self], list(kinds.items()))

    def plot(self, ax: Any = None) -> Any:
        """Draws amplitudes over frequencies, with two standard errors and each mode's Q; needs Matplotlib.

        ax  the axes to draw in; a new figure's if it is None. Returned.
        """
        ax = axes(ax)
        ax.errorbar(
            self.frequency, self.amplitude, xerr=2 * self.frequency_se, yerr=2 * self.amplitude_se, fmt="o", capsize=3
        )
        ax.vlines(self.frequency, 0, self.amplitude, alpha=0.5)
        for mode in self:
            ax.annotate(f"Q {mode.q:.4g}", (mode.frequency, mode.amplitude), (4, 4), textcoords="offset points")
        ax.set_ylim(bottom=0)
        ax.set(xlabel="frequency [1 / unit of time]", ylabel="amplitude")
        return ax

    def _rows(self) -> list[list[str]]:
        rows = [["frequency", "Q", "amplitude", "phase", "kind"]]
        for m in self:
            pairs = (m.frequency, m.frequency_se), (m.q, m.q_se), (m.amplitude, m.amplitude_se), (m.phase, m.phase_se)
            rows.append([*(short(*pair) for pair in pairs), m.kind])
        return rows

    def _heading(self) -> str:
        count = f"{len(self) or 'no'} mode{'s' * (len(self) != 1)}"
        return f"{count}, amplitudes and phases at time {self.reference_time:g}, noise {self.noise:.3g}"


def short(value: float, error: float) -> str:
    """A value with the two leading digits of its standard error in brackets: 1.503091026(12)e+09, 3.4(1.2)."""
    if not (math.isfinite(value) and math.isfinite(error) and 0 < error):
        return f"{value:.6g}"
    last = math.floor(math.log10(error)) - 1  # power of ten of the error's second digit
    if round(error / 10.0**last) >= 100:
        last += 1
    power = math.floor(math.log10(max(abs(value), error)))
    last = max(last, power - 15)  # a double has no more digits
    if -4 < power < 6 and last <= 0:
        power = 0
    digits = power - last
    units = max(round(error / 10.0**last), 1)  # of the last digit
    text = f"{value / 10.0**power:.{digits}f}({units / 10 if digits == 1 and units >= 10 else units})"
    return text if power == 0 else f"{text}e{power:+03d}"


def _count(name: str, value: Any) -> int:
    """A number of samples or modes, which the library takes in 64 bits."""
    count = whole(name, value)
    if count < 0:
        raise InputError(f"{name} is negative: {count}", "option")
    return min(count, 2**63 - 1)


class Call:
    """What the library is told, in its order; as a context, names the values that it finds fault with."""

    def __init__(self, dt: float, t0: Any, band: Any, first: Any, noise: Any, max_modes: Any, progress: Any) -> None:
        try:
            low, high = (None, None) if band is None else band
        except (TypeError, ValueError):
            raise TypeError(f"band must be a pair of a lowest and a highest frequency, not {band!r}") from None
        lowest, highest = (None if edge is None else number("band", edge) for edge in (low, high))
        level = None if noise is None else number("noise", noise)
        counts = (None if n is None else _count(name, n) for name, n in (("first", first), ("max_modes", max_modes)))
        begin, most = counts

        def listener(stage: str, modes: int, part: float) -> object:
            return progress(Progress(stage, modes, part))

        listen: Optional[Callable[[str, int, float], object]] = None if progress is None else listener
        self.options = lowest, highest, begin, level, most, listen
        self.arguments: dict[str, dict[str, object]] = {
            "spacing": {"dt": dt},
            "start": {"t0": t0},
            "option": {"band": band, "first": first, "noise": noise, "max_modes": max_modes},
        }

    def __enter__(self) -> Call:
        return self

    def __exit__(self, kind: object, error: Optional[BaseException], trace: object) -> None:
        if not isinstance(error, InputError):
            return
        given = self.arguments.get(error.fault, {})
        values = ", ".join(f"{name} = {value}" for name, value in given.items() if value is not None)
        raise InputError(f"{error}: {values}" if values else str(error), error.fault, error.index) from None


def find_modes(
    y: ArrayLike,
    dt: float,
    t0: float = 0.0,
    *,
    band: Optional[tuple[Optional[float], Optional[float]]] = None,
    first: Optional[int] = None,
    noise: Optional[float] = None,
    max_modes: Optional[int] = None,
    progress: Optional[Callable[[Progress], object]] = None,
) -> Modes:
    """Finds the modes of a real or complex record, each with its standard error. Nothing needs to be chosen.

    y          the record: at least 8 equally spaced samples, numbers of any type, in one dimension
    dt         time from one sample to the next
    t0         time of the first sample
    band       lowest and highest frequency of modes to report, each a number or None
    first      first sample that no drive reaches, from 0
    noise      standard deviation of a sample's noise (of each of its two parts, of a complex record)
    max_modes  number of modes to tell of, the most significant first; 300 if it is None
    progress   called often with a Progress; False stops the work

    What is None is found from the record. Raises InputError if the record cannot be analysed, Stopped if the progress
    function said so; its own exceptions, and the interrupt from the keyboard, end the work too. Other threads run
    meanwhile; the record must not change.

    >>> t = 0.25 * np.arange(1000)
    >>> y = 3 * np.exp(-0.02 * t) * np.cos(2 * t + 0.5) + 1e-4 * np.random.default_rng(1).standard_normal(1000)
    >>> modes = find_modes(y, dt=0.25)
    >>> len(modes), np.round(2 * np.pi * modes.frequency, 4), np.round(modes.decay, 4), np.round(modes.amplitude, 2)
    (1, array([2.]), array([0.02]), array([3.]))
    >>> bool(np.abs(modes.model(t) - y).max() < 1e-3)
    True
    """
    array = samples(y)
    dt, t0 = number("dt", dt), number("t0", t0)
    with Call(dt, t0, band, first, noise, max_modes, progress) as call:
        found = _core.find_modes(array, array.dtype.kind == "c", dt, t0, *call.options)
    found["modes"] = tuple(Mode(*mode) for mode in found["modes"])
    found["remarks"] = tuple(Remark(*remark) for remark in found["remarks"])
    return Modes(**found, complex=array.dtype.kind == "c")
