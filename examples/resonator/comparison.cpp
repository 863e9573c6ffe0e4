#include "examples/resonator/comparison.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace resonator {

namespace {

/// A mode of the fit and an exact one are the same if their poles differ by less than this part: modes lie farther
/// apart, and a mode of the fit that misses by more is reported as one that is not there.
constexpr double kSamePole = 1e-3;

} // namespace

std::optional<Complex> Pair::pole(Road road) const
{
    if (road == Road::arpack)
        return arpack;
    if (road == Road::hybrj1)
        return hybrj1;
    return found ? std::optional(found->pole) : std::nullopt;
}

double Pair::frequency_error(Road road) const
{
    return std::abs(frequency_of(*pole(road)) / frequency_of(exact->pole) - 1.0);
}

double Pair::quality_error(Road road) const
{
    return std::abs(quality_of(*pole(road)) / quality_of(exact->pole) - 1.0);
}

double Pair::amplitude_error() const
{
    return std::abs(found->amplitude() / std::abs(exact->residue) - 1.0);
}

double Pair::phase_error() const
{
    return std::abs(degrees(found->residue / exact->residue));
}

std::vector<Pair> compare(const std::vector<CavityMode>& exact, const std::vector<Mode>& modes, const Record& record,
                          const Window& window, double threshold)
{
    // All modes of the cavity decay alike, so their shares are as their residues.
    std::vector<CavityMode> seen = exact;
    double largest = 0.0;
    for (CavityMode& mode : seen) {
        mode.residue *= std::exp(mode.pole * record.time(window.first));
        largest = std::max(largest, std::abs(mode.residue));
    }
    std::sort(seen.begin(), seen.end(),
              [](const CavityMode& a, const CavityMode& b) { return a.pole.imag() < b.pole.imag(); });

    std::vector<Mode> rest;
    std::copy_if(modes.begin(), modes.end(), std::back_inserter(rest),
                 [](const Mode& mode) { return mode.kind == Kind::kept; });
    std::vector<Pair> pairs;
    for (const CavityMode& mode : seen) {
        const auto nearest = std::min_element(rest.begin(), rest.end(), [&](const Mode& a, const Mode& b) {
            return std::abs(a.pole - mode.pole) < std::abs(b.pole - mode.pole);
        });
        const bool excited = std::abs(mode.residue) >= threshold * largest;
        // A mode just below the threshold may be kept on account of rounding; far below it there is none.
        const bool visible = std::abs(mode.residue) >= 0.1 * threshold * largest;
        if (visible && nearest != rest.end() && std::abs(nearest->pole - mode.pole) < kSamePole * std::abs(mode.pole)) {
            pairs.push_back({mode, *nearest});
            rest.erase(nearest);
        } else if (excited) {
            pairs.push_back({mode, {}});
        }
    }
    for (const Mode& mode : rest)
        pairs.push_back({{}, mode});
    return pairs;
}

void add_eigenmodes(std::vector<Pair>& pairs, const std::vector<Eigenmode>& modes)
{
    for (const Eigenmode& mode : modes)
        for (Pair& pair : pairs)
            if (pair.exact && std::abs(mode.pole - pair.exact->pole) < kSamePole * std::abs(pair.exact->pole))
                pair.arpack = mode.pole;
}

} // namespace resonator
