from typing import Any, Callable, Optional

import numpy as np
from numpy.typing import NDArray

__version__: str

def find_modes(
    y: NDArray[Any],
    complex: bool,
    dt: float,
    t0: float,
    lowest: Optional[float],
    highest: Optional[float],
    first: Optional[int],
    noise: Optional[float],
    max_modes: Optional[int],
    progress: Optional[Callable[[str, int, float], object]],
    /,
) -> dict[str, Any]: ...
def find_modes_jointly(
    records: list[tuple[NDArray[Any], bool, float]],
    dt: float,
    lowest: Optional[float],
    highest: Optional[float],
    first: Optional[int],
    noise: Optional[float],
    max_modes: Optional[int],
    progress: Optional[Callable[[str, int, float], object]],
    /,
) -> dict[str, Any]: ...
def prony(
    y: NDArray[Any], dt: float, m: int, /
) -> tuple[int, str, NDArray[np.complex128], NDArray[np.complex128], list[float]]: ...
