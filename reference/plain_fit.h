/// The unoptimised least-squares Prony fit: matrices built element by element, three passes a stage, the model
/// evaluated from the poles. The bit-for-bit oracle of the fast one, and its baseline in the benchmarks.
#pragma once

#include "common/types.h"

namespace tessel::reference {

/// Fits n samples by m exponentials, 2 m <= n; measures are ERR_L2, ERR_RMS, ERR_PEAK, ERR_RMS_MEAN, ERR_PEAK_MEAN.
/// Returns false if an iteration limit is met; poles that were found by then are written.
bool plain_fit(Integer n, const Complex* samples, Real dt, Integer m, Complex* residues, Complex* poles,
               Real* measures);

/// x := V diag(1/w) U^H b, zero values left out, sum by sum. Arguments as those of RECIPES_SVBKSB.
void plain_back_substitution(const Complex* U, const Complex* W, const Complex* V, Index m, Index n, Index mp, Index np,
                             const Complex* B, Complex* X);

} // namespace tessel::reference
