#pragma once

#include "examples/resonator/cavity.h"
#include "examples/resonator/eigenmodes.h"
#include "examples/resonator/fit.h"

#include <optional>
#include <vector>

namespace resonator {

/// The ways to the modes.
enum class Road
{
    fit,    ///< from the record alone
    arpack, ///< eigenvalues of the update operator
    hybrj1  ///< zeros of the dispersion relation
};
constexpr Road kRoads[] = {Road::fit, Road::arpack, Road::hybrj1};

/// A mode that the probe sees and what each road found of it; or a mode of the fit that is not there.
struct Pair
{
    std::optional<CavityMode> exact;                 ///< residue at the first fitted sample
    std::optional<Mode> found;                       ///< by the fit
    std::optional<Complex> arpack = {}, hybrj1 = {}; ///< poles

    std::optional<Complex> pole(Road road) const;
    double frequency_error(Road road) const; ///< relative, like the next two
    double quality_error(Road road) const;
    double amplitude_error() const; ///< of the fit, like the next
    double phase_error() const;     ///< [degrees]
};

/// The exact modes whose share reaches the threshold, by rising frequency, each with the kept mode nearest to it; then
/// kept modes that are near no exact one.
std::vector<Pair> compare(const std::vector<CavityMode>& exact, const std::vector<Mode>& modes, const Record& record,
                          const Window& window, double threshold);

/// Puts each eigenvalue beside the exact mode that it belongs to.
void add_eigenmodes(std::vector<Pair>& pairs, const std::vector<Eigenmode>& modes);

} // namespace resonator
