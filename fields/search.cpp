#include "fields/search.h"
#include "common/elementary.h"
#include "fields/crew.h"
#include "fields/spectrum.h"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace tessel::fields {

namespace {

constexpr std::size_t kMost = 16;    // points
constexpr std::size_t kWindow = 100; // bins on each side whose median is the level of the noise
constexpr double kLeastPart = 0.3;   // of a bin's noise that the basis leaves, to be looked at
constexpr double kStandsOut = 1.5;   // times the variance of a point's neighbours
constexpr double kRounding = 100;    // times the least score, of a line among the noise of rounding
constexpr double kDeviations = 8;    // beyond that, of its estimate

struct Proposal
{
    double score;
    std::uint64_t point;
};

/// What white noise leaves of each bin of a filter's periodogram outside of the basis.
std::vector<double> expected(const Basis& basis, const Spectrum& spectrum, const std::vector<double>& filter)
{
    std::vector<double> inside(spectrum.size(), 0), filtered(filter.size());
    double total = 0;
    for (const double f : filter)
        total += f * f;
    for (Index c = 0; c < basis.matrix().cols(); ++c) {
        for (std::size_t row = 0; row < filter.size(); ++row)
            filtered[row] = filter[row] * basis.matrix()(static_cast<Index>(row), c);
        const std::vector<double> power = spectrum.power(filtered.data());
        for (std::size_t j = 0; j < power.size(); ++j)
            inside[j] += power[j] / total;
    }
    for (double& x : inside)
        x = 1 - x;
    return inside;
}

/// Whether a sum over all blocks has a line, above the noise beside it.
bool line_in(const std::vector<double>& sum, const std::vector<double>& part, double blocks, double trials,
             bool complex)
{
    const std::size_t ends = complex ? 0 : 1; // they have one degree of freedom
    const double bound = half_bound(blocks, rare(trials)) / blocks;
    std::vector<double> level;
    for (std::size_t j = ends; j + ends < sum.size(); ++j)
        if (part[j] > kLeastPart)
            level.push_back(sum[j] / part[j]);
    std::vector<double> near;
    for (std::size_t j = 0; j < level.size(); ++j) {
        const std::size_t from = j > kWindow ? j - kWindow : 0, to = std::min(level.size(), j + kWindow + 1);
        near.assign(level.begin() + static_cast<std::ptrdiff_t>(from), level.begin() + static_cast<std::ptrdiff_t>(to));
        std::nth_element(near.begin(), near.begin() + static_cast<std::ptrdiff_t>(near.size() / 2), near.end());
        // the median of a few blocks' sum lies below its mean
        if (level[j] > bound * near[near.size() / 2] / std::max(0.69, 1 - 0.32 / blocks))
            return true;
    }
    return false;
}

} // namespace

double rare(double trials)
{
    return logarithm(trials * 1e3);
}

double half_bound(double pairs, double rare)
{
    return pairs <= 1 ? rare : pairs + std::sqrt(2 * pairs * rare) + rare;
}

std::vector<std::size_t> find_missed(Work& work, const Basis& basis, const Pass& pass)
{
    const std::size_t points = work.shape().points();
    const auto blocks = static_cast<double>((points + kBlock - 1) / kBlock);
    const auto& sums = pass.search.periodograms;
    const double trials = static_cast<double>(sums.size() * sums.front().size());
    const Grid& grid = basis.grid();
    const Spectrum spectrum(grid.sums, grid.complex);
    const auto filters = filters_of(grid);
    std::atomic<bool> sum = false;
    share(work.options.threads, sums.size(), [&](std::size_t level) {
        if (line_in(sums[level], expected(basis, spectrum, filters[level]), blocks, trials, grid.complex))
            sum = true;
    });
    const double one = rare(blocks * trials);
    std::vector<Proposal> mine;
    for (const BlockSearch& block : pass.search.blocks) {
        // what rounding leaves is not white
        const bool shows = block.score > one * (block.rounded ? kRounding : 1);
        const double stand = kStandsOut + kDeviations * std::sqrt(2 / std::max(1.0, block.freedom));
        for (int k = 0; k < 2; ++k)
            if (block.ratio[k] > stand)
                mine.push_back({1e3 * block.ratio[k], block.point[k]});
            else if (block.ratio[k] > 0 && (shows || (sum && !block.rounded)))
                mine.push_back({(shows ? block.score : 1e-3 * block.score) * block.ratio[k], block.point[k]});
    }
    const auto better = [](const Proposal& a, const Proposal& b) {
        return a.score > b.score || (a.score == b.score && a.point < b.point);
    };
    std::sort(mine.begin(), mine.end(), better);
    mine.resize(std::min(mine.size(), kMost));
    std::vector<Proposal> all = work.collect(mine);
    std::sort(all.begin(), all.end(), better);
    std::vector<std::size_t> out;
    for (const Proposal& proposal : all)
        if (out.size() < kMost)
            out.push_back(proposal.point);
    return out;
}

} // namespace tessel::fields
