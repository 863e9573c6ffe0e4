/// The plain least-squares Prony fit: matrices built element by element, three passes a stage, the model evaluated
/// anew. The oracle of the fast one, bit for bit, and its peer in the benchmarks.
#pragma once

#include "common/types.h"

namespace tessel::testing {

/// Fits n samples by m exponentials, 2 m <= n; measures are ERR_L2, ERR_RMS, ERR_PEAK, ERR_RMS_MEAN, ERR_PEAK_MEAN.
/// Returns false if an iteration limit is met.
bool plain_fit(Integer n, const Complex* samples, Real dt, Integer m, Complex* residues, Complex* poles,
               Real (&measures)[5]);

} // namespace tessel::testing
