/// The kernels of a diagonal front of rotations, one set for each vector width.
#pragma once

#include <cstddef>

namespace tessel {

/// x := c x + s y, y := c y - s x
struct Rotation
{
    double c, s;
};

/// Most rotations of one front.
constexpr std::ptrdiff_t kMaxFront = 4;

struct RotationKernels
{
    /// front[count - 1] applies `count` rotations, one after the other: rotation[i] to x = column k - i and
    /// y = column k - i + 1. `last` is column k + 1, of n doubles, n even; column j starts `stride` doubles behind
    /// column j - 1. Every column is loaded and stored once.
    void (*front[kMaxFront])(std::ptrdiff_t n, double* last, std::ptrdiff_t stride, const Rotation* rotation);
};

extern const RotationKernels kBaselineKernels;
extern const RotationKernels kAvx2Kernels;
extern const RotationKernels kAvx512Kernels;

} // namespace tessel
