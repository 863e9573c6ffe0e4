/// The kernels of apply_sweeps on a packed panel, one set for each vector width.
///
/// A panel is a stretch of kPanelRows rows of the matrix. Its columns lie one behind the other, packed, in a ring of
/// kRingColumns columns: column j stands at place j mod kRingColumns.
#pragma once

#include <cstddef>

namespace tessel {

/// x := c x + s y, y := c y - s x
struct Rotation
{
    double c, s;
};

constexpr std::ptrdiff_t kPanelRows = 16; // complex values: 256 bytes a column
constexpr std::ptrdiff_t kPanelDoubles = 2 * kPanelRows;
constexpr std::ptrdiff_t kRingColumns = 64; // a power of two; 16 KiB in all

struct RotationKernels
{
    /// Rotations a[0], a[1], ... of columns k, k+1 for k = first..end-1.
    void (*single)(double* ring, std::ptrdiff_t first, std::ptrdiff_t end, const Rotation* a);
    /// Two sweeps in a diagonal front: for k = first..end-1 the next rotation of `a` on columns k, k+1, then the next
    /// rotation of `b` on columns k-1, k. A column is loaded once and stored once for both.
    void (*pair)(double* ring, std::ptrdiff_t first, std::ptrdiff_t end, const Rotation* a, const Rotation* b);
    /// One rotation of two columns of n doubles anywhere; n is even.
    void (*columns)(std::ptrdiff_t n, double* x, double* y, double c, double s);
};

extern const RotationKernels kBaselineKernels;
extern const RotationKernels kAvx2Kernels;
extern const RotationKernels kAvx512Kernels;

} // namespace tessel
