/// @file
/// Start values: poles of the first part of a record by rotational invariance of its Hankel matrix.
#ifndef TESSEL_MODES_START_H
#define TESSEL_MODES_START_H

#include "modes/model.h"

namespace tessel::modes {

/// Start values and the part of the series that they describe.
struct Start
{
    Terms terms;
    std::size_t samples = 0;
    double work = 0;             ///< operations that it took, by estimate
    std::size_t samplesUsed = 0; ///< rows and columns of the matrix
    bool saturated = false;      ///< the matrix has full rank above the noise: no sum of few exponentials
};

/// Poles of the first samples of `series`, whose lines end at `highest` cycles a sample.
///
/// The Hankel matrix of some 2.6 samples a period of the highest line; its singular values above those of noise give
/// the order, the shift of its singular vectors the poles (ESPRIT).
Start start_values(const Series& series, double highest);

/// Terms, without residues, of the poles by which an orthonormal basis of a signal space turns from each of its rows,
/// which stand `stride` samples apart, to the next (ESPRIT).
Terms poles_of(const Eigen::MatrixXd& basis, std::size_t stride);
Terms poles_of(const Eigen::MatrixXcd& basis, std::size_t stride);

} // namespace tessel::modes

#endif
