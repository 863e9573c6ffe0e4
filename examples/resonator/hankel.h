#pragma once

#include "examples/resonator/record.h"

#include <tessel/FDTDCalcAPI.h>

#include <Eigen/Core>

#include <vector>

namespace resonator {

/// The Hankel matrix H(i, j) = samples(i + j) of a signal and its singular values, H = left diag(values) right.
///
/// A sum of n exponentials gives a matrix of rank n: the singular values fall off a cliff behind the n-th, onto the
/// noise. An order for the fit stands at the foot of the cliff or beyond. A real signal has two exponentials for each
/// mode.
struct Hankel
{
    bool real;              ///< decomposed by dgesvd, otherwise by zgesvd
    Index rank;             ///< number of singular values above the noise
    Eigen::VectorXd values; ///< falling
    Eigen::MatrixXcd left;  ///< a column for each value
    Eigen::MatrixXcd right; ///< a row for each value
};

/// Decomposes the matrix of all samples but the last, as square as it can be. Throws an Error if that fails.
Hankel decompose(FDTDCalcAPI& api, const std::vector<Complex>& samples);

/// The analytic signal of a real record at the samples of a window: each mode c exp(s t) + conj(c exp(s t)) becomes
/// 2 c exp(s t), one exponential. The filter takes a sixth of the window at either end, where there is no signal then.
/// A mode with fewer than thirty periods in the window keeps a trace of its conjugate, which may count once more.
std::vector<Complex> analytic_samples(const Record& record, const Window& window);

} // namespace resonator
