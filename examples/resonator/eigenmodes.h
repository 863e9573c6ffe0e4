#pragma once

#include "examples/resonator/cavity.h"

#include <tessel/FDTDCalcAPI.h>

#include <functional>
#include <vector>

namespace resonator {

struct Eigenmode
{
    Complex pole;    ///< [1/s], Im > 0
    double residual; ///< |P x - z x| / |x|
};

struct Eigensolve
{
    Index order = 0;  ///< number of field components, the order of P
    Index solves = 0; ///< number of systems solved
    std::vector<Eigenmode> modes;
};

/// The modes of the cavity between two frequencies [Hz] and on either side of them, `count` in all, as eigenvalues
/// z = exp(pole dt) of the real, sparse, non-symmetric operator P that carries all field components over one time step.
/// ARPACK (slots dnaupd and dneupd) in its shift-and-invert mode; the shifted operator is factored by a sparse LU.
/// `on_solve` is told the number of systems solved. Throws if ARPACK fails.
Eigensolve eigenmodes(FDTDCalcAPI& api, const Cavity& cavity, double lowest, double highest, Index count,
                      const std::function<void(Index)>& on_solve);

} // namespace resonator
