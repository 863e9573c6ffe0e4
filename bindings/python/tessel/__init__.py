"""Resonances from field records: the modes of a record, with standard errors, and the least-squares Prony fit.

>>> import numpy as np, tessel
>>> t = 1e-10 * np.arange(500)
>>> y = np.exp(-4e7 * t) * np.cos(2.4e9 * np.pi * t) + 0.3 * np.exp(-9e7 * t) * np.cos(5e9 * np.pi * t)
>>> y += 1e-5 * np.random.default_rng(1).standard_normal(500)
>>> for mode in tessel.find_modes(y, dt=1e-10):
...     print(f"{mode.frequency / 1e9:.5f} GHz, Q = {mode.q:.1f}")
1.20000 GHz, Q = 94.2
2.50000 GHz, Q = 87.3

find_modes takes a record; find_modes_jointly takes several of one structure; prony is the fit of given order. Each has
its own help, and what they return prints well.
"""

from ._core import __version__
from ._errors import FitError, InputError, Stopped
from ._joint import JointMode, JointModes, JointRecord, Residue, find_modes_jointly
from ._modes import Mode, Modes, Progress, Remark, find_modes
from ._prony import PronyFit, prony

__all__ = [
    "FitError",
    "InputError",
    "JointMode",
    "JointModes",
    "JointRecord",
    "Mode",
    "Modes",
    "Progress",
    "PronyFit",
    "Remark",
    "Residue",
    "Stopped",
    "__version__",
    "find_modes",
    "find_modes_jointly",
    "prony",
]
