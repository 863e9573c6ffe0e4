#pragma once

#include "examples/resonator/cavity.h"
#include "examples/resonator/fit.h"

#include <optional>
#include <vector>

namespace resonator {

/// A mode that the probe sees, a mode of the fit, or both, beside each other.
struct Pair
{
    std::optional<CavityMode> exact; ///< residue at the first fitted sample
    std::optional<Mode> found;

    double frequency_error() const; ///< relative, like the next two
    double quality_error() const;
    double amplitude_error() const;
    double phase_error() const; ///< [degrees]
};

/// The exact modes whose share reaches the threshold, by rising frequency, each with the kept mode nearest to it; then
/// kept modes that are near no exact one.
std::vector<Pair> compare(const std::vector<CavityMode>& exact, const std::vector<Mode>& modes, const Record& record,
                          const Window& window, double threshold);

void print_measures(const std::vector<Fit>& fits, const Fit& best);

/// The kept modes of a record of which nothing else is known.
void print_modes(const std::vector<Mode>& modes);

/// The kept modes beside the exact ones, with errors.
void print_comparison(const std::vector<Pair>& pairs);

/// Prints the verdict on a comparison and returns whether it is good: the eight lowest modes found with frequencies
/// within 1e-8 and Q within 1e-4, and nothing found that is not there.
bool print_verdict(const std::vector<Pair>& pairs);

} // namespace resonator
