/// The kernels of the decomposition: operations on columns of real or complex elements, one set for each vector width.
///
/// Every kernel has the bits of the corresponding operations of the published reference BLAS, done one after the other:
/// a sum runs in the order of its elements, a product is rounded before it is added, and nothing is fused. They are
/// fast because they work on several columns at once: a vector holds a few elements of one column while products are
/// formed, and one row of a few columns while these are summed.
#pragma once

#include "common/vector_width.h"

#include <cstddef>

namespace tessel {

/// x := c x + s y, y := c y - s x
struct Rotation
{
    double c, s;
};

/// Most rotations of one wavefront.
constexpr std::ptrdiff_t kMaxWavefront = 4;

/// Operations on `columns` columns y(0), y(1), ... of `rows` elements, column j + 1 `ld` elements behind column j. An
/// element is one double, or two if it is complex; coefficients, sums, w and h are arrays of such elements. Columns
/// do not overlap, nor does anything else with them.
///
/// A coefficient of zero is not skipped, unlike in ZAXPY: the caller does that.
struct ColumnKernels
{
    /// y(j) := y(j) + a(j) w, then d(j) := d(j) + h^H y(j). From the last columns to the first.
    void (*update_dot)(std::ptrdiff_t rows, std::ptrdiff_t columns, double* y, std::ptrdiff_t ld, const double* w,
                       const double* a, const double* h, double* d);
    /// d(j) := d(j) + h^H y(j)
    void (*dot)(std::ptrdiff_t rows, std::ptrdiff_t columns, const double* y, std::ptrdiff_t ld, const double* h,
                double* d);
    /// y(j) := y(j) + a(j) h, then w := w + e(j) y(j), in the order of j. From the first columns to the last.
    void (*update_sum)(std::ptrdiff_t rows, std::ptrdiff_t columns, double* y, std::ptrdiff_t ld, const double* h,
                       const double* a, double* w, const double* e);
    /// y(j) := y(j) + a(j) h
    void (*update)(std::ptrdiff_t rows, std::ptrdiff_t columns, double* y, std::ptrdiff_t ld, const double* h,
                   const double* a);
    /// w := w + e(j) y(j), in the order of j
    void (*sum)(std::ptrdiff_t rows, std::ptrdiff_t columns, const double* y, std::ptrdiff_t ld, double* w,
                const double* e);
    /// y := a y
    void (*scale)(std::ptrdiff_t rows, double* y, const double* a);
};

struct Kernels
{
    ColumnKernels real, complex;

    /// wavefront[count - 1] applies `count` rotations, one after the other: rotation[i] to x = column k - i and
    /// y = column k - i + 1. `last` is column k + 1, of n doubles; column j starts `stride` doubles behind column
    /// j - 1. Every column is loaded and stored once.
    void (*wavefront[kMaxWavefront])(std::ptrdiff_t n, double* last, std::ptrdiff_t stride, const Rotation* rotation);
};

extern const Kernels kBaselineKernels;
extern const Kernels kAvx2Kernels;
extern const Kernels kAvx512Kernels;

/// Selects the kernels of another width, for comparisons; never wider than the machine's. No other thread may be in a
/// routine.
void use_vectors(VectorWidth width);
/// The kernels in use: those of the widest vectors, from load on.
const Kernels& kernels();

} // namespace tessel
