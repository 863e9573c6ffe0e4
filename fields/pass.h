/// One pass over a field: the records' components in a basis, each point's noise, and what sums of them the poles need.
#pragma once

#include "fields/basis.h"
#include "fields/work.h"

#include <cstdint>

namespace tessel::fields {

/// The modes of a field over its points, as far as the poles need them.
struct Sums
{
    ExtendedMatrix y;    ///< sum over the points of Y Y' over the point's variance
    double points = 0;   ///< that are not zero
    double variance = 0; ///< sum of their variances, of a row
    double freedom = 0;  ///< of a point's variance, where noise is not lost beside the signal
};

/// What the residual of a block shows.
struct BlockSearch
{
    std::uint64_t block = 0;
    double score = 0;     ///< the largest value of its projection's periodograms, over their noise
    double freedom = 0;   ///< of its points' variances
    bool rounded = false; ///< most of its points hold no noise but that of rounding
    double ratio[2] = {}; ///< of the points that stand out most: variance over the median of their neighbours
    std::uint64_t point[2] = {};
};

/// What the residuals of the blocks show together.
struct Search
{
    /// Of matched filters of several decays: sums over the blocks, each over its noise.
    std::vector<std::vector<double>> periodograms;
    std::vector<BlockSearch> blocks; ///< of this rank
};

struct Pass
{
    Sums sums;
    Search search;
};

/// Matched filters of a few decays: factors of each row.
std::vector<std::vector<double>> filters_of(const Grid& grid);

/// What is kept of a block: components and variance of each point, then the residual of the block's projection.
/// A point that is zero has the variance zero.
struct BlockLayout
{
    explicit BlockLayout(const Basis& basis) : width(basis.width()), rows(basis.grid().rows()) {}
    std::size_t width, rows;
    std::size_t stride() const { return width + 1; }
    std::size_t size(std::size_t points) const { return points * stride() + rows; }
};

/// Reads the field from its first step used on; blocks that the store has are not read.
Pass run_pass(Work& work, const Basis& basis, std::size_t firstStep);

/// The name under which a store keeps the blocks of a pass.
std::string pass_name(const Basis& basis, std::size_t firstStep);

} // namespace tessel::fields
