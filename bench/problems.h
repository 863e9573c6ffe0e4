/// The matrices and polynomials that fits of a known signal pass through.
#pragma once

#include "common/types.h"

#include <vector>

namespace tessel::bench {

/// A tight column-major matrix.
struct Dense
{
    Index rows, columns;
    std::vector<Complex> data;

    Complex& operator()(Index i, Index j) { return data[static_cast<std::size_t>((i - 1) + (j - 1) * rows)]; }
    const Complex* column(Index j) const { return &data[static_cast<std::size_t>((j - 1) * rows)]; }
};

/// A probe records real values; complex ones come of two fields in quadrature or of a record that was mixed down.
enum class Record
{
    complex,
    real
};

/// n samples, one a unit of time, of a field that rings down: `modes` exponentials spread over the band that decay by
/// a factor of e to e^4 over the record, and noise of relative size 1e-6. Those of a real record are conjugate pairs.
struct Ringdown
{
    std::vector<Complex> poles, y;
};
Ringdown make_ringdown(Index n, Index modes, Record record);

/// The number of modes in the record that a fit of order m is given here.
inline Index modes_of_order(Index m)
{
    return m < 10 ? 2 : m / 5;
}

/// Linear prediction of the samples y by the m before: (y.size() - m) x m, Toeplitz.
Dense prediction_matrix(const std::vector<Complex>& y, Index m);
/// The characteristic polynomial of that prediction, m coefficients without the leading 1, constant term first.
std::vector<Complex> prediction_polynomial(const std::vector<Complex>& y, Index m);
/// Zeros of a monic polynomial given by its coefficients.
std::vector<Complex> zeros_of(const std::vector<Complex>& polynomial);
/// Powers 0..n-1 of each zero, a column for each.
Dense vandermonde_matrix(const std::vector<Complex>& zeros, Index n);

} // namespace tessel::bench
