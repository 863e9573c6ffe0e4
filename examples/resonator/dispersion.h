#pragma once

#include "examples/resonator/cavity.h"

#include <tessel/FDTDCalcAPI.h>

namespace resonator {

/// The pole of the mode (m, n) [1/s], Im > 0, as the zero of the dispersion relation of the lossy Yee grid,
///
///     sinh^2(s dt/2) + (a/2) sinh(s dt) + K = 0,    K = S^2 (sin^2(m pi/(2 Nx)) + sin^2(n pi/(2 Ny))),
///
/// by Powell's hybrid method (slot hybrj1), from the frequency of the continuous lossless cavity. Throws if
/// the iteration does not end at a zero.
Complex pole_from_dispersion(FDTDCalcAPI& api, const Cavity& cavity, Index m, Index n);

} // namespace resonator
