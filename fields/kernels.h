/// The inner loops of a pass over a field, one set for each width of the vector units.
///
/// Every one has the same bits whatever the width: sums over time run in the order of time for each point, sums over
/// points in eight lanes that are combined in one order, and no product is fused with a sum.
#pragma once

#include "common/vector_width.h"

#include <cstddef>

namespace tessel::fields {

constexpr std::size_t kTile = 32;  ///< points that lie together
constexpr std::size_t kSlab = 128; ///< rows (decimated steps) of a tile
/// Doubles from one tile to the next: a row more, so that the same row of several tiles falls into different sets of a
/// cache.
constexpr std::size_t kTileStride = (kSlab + 1) * kTile;
constexpr std::size_t kColumnGroup = 4; ///< columns of a basis that lie together: group by group, there row by row

struct Kernels
{
    /// out[step * kTile + point] = in[point * stride + step], of at most kTile points.
    void (*turnSingle)(std::size_t points, std::size_t steps, const float* in, std::size_t stride, float* out);
    void (*turnDouble)(std::size_t points, std::size_t steps, const double* in, std::size_t stride, double* out);
    /// Adds `rows` rows of `points` samples, `stride` from one to the next, in their order: out + tile * kTileStride.
    /// `fresh`: to nothing, whatever stands there.
    void (*addSingle)(std::size_t points, std::size_t rows, const float* in, std::size_t stride, bool fresh,
                      double* out);
    void (*addDouble)(std::size_t points, std::size_t rows, const double* in, std::size_t stride, bool fresh,
                      double* out);
    /// y(c, p) := y(c, p) + sum over the rows of q(row, c) x(row, p). The sum is formed by itself.
    void (*product)(std::size_t rows, std::size_t columns, const double* q, const double* x, double* y);
    /// e(p) := e(p) + sum over the rows of (w(row) x(row, p))^2
    void (*squares)(std::size_t rows, const double* w, const double* x, double* e);
    /// z(row, lane) := z(row, lane) + sum over the points of the lane of sign(p) x(row, p); eight lanes.
    void (*project)(std::size_t rows, const double* x, const double* sign, double* z);
};

extern const Kernels kBaselineKernels;
extern const Kernels kAvx2Kernels;
extern const Kernels kAvx512Kernels;

/// Selects the kernels of another width, for comparisons: never wider than the machine's, and not while a field is
/// analysed.
void use_vectors(VectorWidth width);
/// The kernels in use: those of the widest vectors, from load on.
const Kernels& kernels();

} // namespace tessel::fields
