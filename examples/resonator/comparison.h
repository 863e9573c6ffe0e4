#pragma once

#include "examples/resonator/cavity.h"
#include "examples/resonator/eigenmodes.h"

#include <tessel/modes.h>

#include <optional>
#include <vector>

namespace resonator {

/// Modes weaker than this part of the strongest are shown and not judged.
constexpr double kWeakest = 1e-6;

/// The methods that are compared.
enum class Method
{
    record, ///< the record alone
    arpack, ///< eigenvalues of the update operator
    hybrj1  ///< zeros of the dispersion relation
};
constexpr Method kMethods[] = {Method::record, Method::arpack, Method::hybrj1};

/// What the record tells of a mode.
enum class Quantity
{
    frequency,
    quality,
    amplitude,
    phase
};
constexpr Quantity kQuantities[] = {Quantity::frequency, Quantity::quality, Quantity::amplitude, Quantity::phase};

/// One quantity of one mode. Frequencies are in Hz, amplitudes of a cosine in V/m, phases in degrees; both errors are
/// relative, but for a phase.
struct Estimate
{
    double found, exact;
    double error;          ///< found - exact
    double standard_error; ///< as the library gives it, and the rounding of what is found to a double
    double deviation() const { return error / standard_error; }
};

/// A mode that the probe sees and what each method found of it; or a mode found that is not there.
struct Pair
{
    std::optional<CavityMode> exact; ///< residue at the reference time
    std::optional<tessel::modes::Mode> found;
    bool excited = false;                            ///< above kWeakest of the strongest
    std::optional<Complex> arpack = {}, hybrj1 = {}; ///< poles

    /// Relative errors, unless nothing was found.
    std::optional<double> frequency_error(Method method) const;
    std::optional<double> quality_error(Method method) const;
    /// Of a mode that was found and is there.
    Estimate estimate(Quantity quantity) const;
};

/// The modes found whose amplitude is above kWeakest of the strongest.
std::vector<tessel::modes::Mode> strong_modes(const tessel::modes::Result& result);

/// Each mode found with the exact mode that it is, and exact modes above kWeakest that were not found, by rising
/// frequency; then modes that are not there. The record begins at time 0.
std::vector<Pair> compare(std::vector<CavityMode> exact, const tessel::modes::Result& result, double spacing);

/// Puts each eigenvalue beside the excited mode that it belongs to.
void add_eigenmodes(std::vector<Pair>& pairs, const std::vector<Eigenmode>& modes);

} // namespace resonator
