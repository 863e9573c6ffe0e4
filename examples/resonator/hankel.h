#pragma once

#include "examples/resonator/record.h"

#include <tessel/FDTDCalcAPI.h>

#include <Eigen/Core>

#include <vector>

namespace resonator {

/// The Hankel matrix H(i, j) = samples(i + j) of a real signal and its singular values, H = left diag(values) right.
///
/// A sum of n exponentials gives a matrix of rank n, two for each mode: behind the n-th the singular values drop
/// steeply to the noise.
struct Hankel
{
    Index rank = 0;         ///< number of singular values above the noise
    Eigen::VectorXd values; ///< descending
    Eigen::MatrixXd left;   ///< a column for each value
    Eigen::MatrixXd right;  ///< a row for each value
};

/// The samples of a window.
std::vector<double> samples_of(const Record& record, const Window& window);

/// Decomposes the matrix of all samples but the last, as square as it can be (slot dgesvd). Throws if that fails.
Hankel decompose(FDTDCalcAPI& api, const std::vector<double>& samples);

} // namespace resonator
