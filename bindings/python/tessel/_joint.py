"""The modes of several records together."""

from __future__ import annotations

from collections.abc import Iterable
from dataclasses import asdict, dataclass, fields
from typing import Any, Callable, Optional, Union

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core
from ._errors import InputError
from ._modes import Call, Column, Found, Mode, Modes, Progress, Remark, short
from ._samples import axes, number, samples


@dataclass(frozen=True)
class Residue:
    """What a mode is in one of several records."""

    amplitude: float  #: A at the record's reference time, in the unit of the record
    amplitude_se: float  #: the amplitude may be smaller
    phase: float  #: p at the record's reference time, in (-pi, pi]
    phase_se: float  #: pi or more says nothing about it


@dataclass(frozen=True)
class JointMode:
    """A mode of several records: one frequency and decay, and a residue in each record."""

    frequency: float  #: as of Mode, and so the others
    frequency_se: float
    decay: float
    decay_se: float
    q: float
    q_se: float
    significance: float  #: of all records, or of the one that the mode matters most to
    kind: str
    residues: tuple[Residue, ...]  #: in each record, in the order in which they were given


@dataclass(frozen=True)
class JointRecord:
    """What was found about one of several records."""

    reference_time: float  #: of its amplitudes and phases: the time of its first sample used
    first_sample: int  #: first sample used, from 0
    noise: float  #: standard deviation of the noise of a sample, at the first sample used
    chi2: float  #: its chi^2 per degree of freedom
    constant: bool  #: all its samples are equal: no mode shows in it


class _Residues(Column):
    """One quantity of all modes in all records, as an array of two dimensions."""

    def __get__(self, modes: Any, owner: type) -> Any:
        if modes is None:
            return self
        values = [[getattr(residue, self.name) for residue in mode.residues] for mode in modes]
        return np.array(values, float).reshape(len(modes), len(modes.records))


@dataclass(frozen=True, eq=False, repr=False)
class JointModes(Found[JointMode]):
    """What `find_modes_jointly` found: a sequence of modes by rising frequency, and what stands beside them.

    The quantities of a mode are arrays here, `modes.frequency`, `modes.q_se` and so on; amplitudes, phases and their
    errors have a row for each mode and a column for each record. `modes.of(2)` is the part of one record.
    """

    modes: tuple[JointMode, ...]
    records: tuple[JointRecord, ...]
    remarks: tuple[Remark, ...]
    first_sample_reason: str  #: "wholeRecord", "given" or "driveSkipped"
    decimation: int  #: samples averaged into one
    chi2: float  #: chi^2 per degree of freedom of all records
    band: tuple[float, float]  #: lowest and highest frequency that were searched
    complex: bool  #: whether the records were

    frequency = Column()
    frequency_se = Column()
    decay = Column()
    decay_se = Column()
    q = Column()
    q_se = Column()
    significance = Column()
    kind = Column()
    amplitude = _Residues()
    amplitude_se = _Residues()
    phase = _Residues()
    phase_se = _Residues()

    def of(self, record: int) -> Modes:
        """The part of one record, from 0: the modes with its own amplitudes and phases, and the remarks about it."""
        own = self.records[record]
        place = range(len(self.records))[record]
        modes = []
        for mode in self:
            pole = {field.name: getattr(mode, field.name) for field in fields(mode) if field.name != "residues"}
            modes.append(Mode(**pole, **asdict(mode.residues[place])))
        others = {"constantRecord": own.constant}
        remarks = tuple(
            remark
            for remark in self.remarks
            if others.get(remark.code, True) and (remark.code != "recordsDiffer" or remark.value == place)
        )
        return Modes(
            tuple(modes),
            remarks,
            own.reference_time,
            own.first_sample,
            self.first_sample_reason,
            self.decimation,
            own.noise,
            own.chi2,
            self.band,
            self.complex,
        )

    def to_records(self) -> NDArray[np.void]:
        """A structured array of NumPy, with a field for each quantity of a mode; those of residues have a value for
        each record."""
        residue = [(field.name, "f8", (len(self.records),)) for field in fields(Residue)]
        names = [field.name for field in fields(JointMode) if field.name not in ("kind", "residues")]
        out = np.zeros(len(self), [*((name, "f8") for name in names), ("kind", "U12"), *residue])
        for name in out.dtype.names or ():
            out[name] = getattr(self, name)
        return out

    def plot(self, ax: Any = None) -> Any:
        """Draws amplitudes over frequencies, those of each record in a colour, with two standard errors; needs
        Matplotlib.

        ax  the axes to draw in; a new figure's if it is None. Returned.
        """
        ax = axes(ax)
        for p in range(len(self.records)):
            ax.errorbar(
                self.frequency, self.amplitude[:, p], yerr=2 * self.amplitude_se[:, p], fmt="o", capsize=3, label=str(p)
            )
        for mode in self:
            ax.axvline(mode.frequency, alpha=0.2)
        ax.set_ylim(bottom=0)
        ax.set(xlabel="frequency [1 / unit of time]", ylabel="amplitude")
        ax.legend(title="record")
        return ax

    def _rows(self) -> list[list[str]]:
        rows = [["frequency", "Q", "significance", "largest amplitude", "in record", "kind"]]
        for m in self:
            # Of the records where it shows, if there are any.
            sizes = [(r.amplitude > 4 * r.amplitude_se, r.amplitude) for r in m.residues]
            most = max(range(len(sizes)), key=sizes.__getitem__)
            largest = m.residues[most]
            pairs = (m.frequency, m.frequency_se), (m.q, m.q_se), (largest.amplitude, largest.amplitude_se)
            frequency, q, amplitude = (short(*pair) for pair in pairs)
            rows.append([frequency, q, f"{m.significance:.3g}", amplitude, str(most), m.kind])
        return rows

    def _heading(self) -> str:
        count = f"{len(self) or 'no'} mode{'s' * (len(self) != 1)}"
        return f"{count} in {len(self.records)} record{'s' * (len(self.records) != 1)}"


def find_modes_jointly(
    records: Iterable[ArrayLike],
    dt: float,
    t0: Union[float, Iterable[float]] = 0.0,
    *,
    band: Optional[tuple[Optional[float], Optional[float]]] = None,
    first: Optional[int] = None,
    noise: Optional[float] = None,
    max_modes: Optional[int] = None,
    progress: Optional[Callable[[Progress], object]] = None,
) -> JointModes:
    """Finds the modes of several records of one structure, such as those of a solver's probes, together.

    All records have the modes' frequencies and decays in common; amplitudes and phases are each record's own, and may
    be nothing in some. Frequencies and decays are known better than from one record, and modes are found that are weak
    in every one.

    records    the records, each as of `find_modes`: a list of arrays of any lengths, or an array with a record in each
               row; all are real, or all are complex
    dt         time from one sample to the next, of all records
    t0         time of the first sample: of all records, or for each its own
    first      first sample that no drive reaches, counted from the earliest start of a record

    The other arguments, what is raised and what runs meanwhile are those of `find_modes`; noise is that of every record,
    and texts of errors and remarks count records from 0.

    >>> t = 0.25 * np.arange(1000)
    >>> noise = 1e-4 * np.random.default_rng(1).standard_normal((3, 1000))
    >>> y = [a * np.exp(-0.02 * t) * np.cos(2 * t + 0.5) + e for a, e in zip([3, 0, 1], noise)]
    >>> modes = find_modes_jointly(y, dt=0.25)
    >>> len(modes), np.round(2 * np.pi * modes.frequency, 4), np.round(modes.amplitude, 2)
    (1, array([2.]), array([[3., 0., 1.]]))
    >>> bool(np.abs(modes.of(2).model(t) - y[2]).max() < 1e-3)
    True
    """
    arrays = []
    for place, y in enumerate(records):
        try:
            arrays.append(samples(y))
        except InputError as error:
            raise InputError(f"record {place}: {error}", error.fault, error.index) from None
    dt = number("dt", dt)
    starts = [number("t0", t0)] * len(arrays) if np.ndim(t0) == 0 else [number("t0", t) for t in t0]  # type: ignore
    if len(starts) != len(arrays):
        raise InputError(f"t0 has {len(starts)} values for {len(arrays)} records", "start")
    given = [(y, y.dtype.kind == "c", start) for y, start in zip(arrays, starts)]
    with Call(dt, t0, band, first, noise, max_modes, progress) as call:
        found = _core.find_modes_jointly(given, dt, *call.options)
    modes = ((*pole, tuple(Residue(*residue) for residue in residues)) for *pole, residues in found["modes"])
    found["modes"] = tuple(JointMode(*mode) for mode in modes)
    found["records"] = tuple(JointRecord(*record) for record in found["records"])
    found["remarks"] = tuple(Remark(*remark) for remark in found["remarks"])
    return JointModes(**found, complex=given[0][1])
