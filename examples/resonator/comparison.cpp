#include "examples/resonator/comparison.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace resonator {

namespace {

constexpr long double kTurn = 2.0L * std::numbers::pi_v<long double>;
constexpr long double kDegree = kTurn / 360.0L;

/// Two poles are the same mode if they differ by less than this part: modes lie farther apart.
constexpr long double kSamePole = 1e-3L;

/// And their amplitudes by less than this factor: among thousands of modes too weak to be seen, one is near every pole.
constexpr long double kSameAmplitude = 2.0L;

long double distance(const CavityMode& exact, const ExtendedComplex& pole)
{
    return std::abs(pole - exact.pole) / std::abs(exact.pole);
}

ExtendedComplex pole_of(const tessel::modes::Mode& mode)
{
    return {-static_cast<long double>(mode.decay), kTurn * mode.frequency};
}

long double amplitude_of(const CavityMode& mode)
{
    return 2.0L * std::abs(mode.residue);
}

bool is_same(const CavityMode& exact, const tessel::modes::Mode& found)
{
    const long double ratio = found.amplitude / amplitude_of(exact);
    return distance(exact, pole_of(found)) < kSamePole && ratio < kSameAmplitude && ratio > 1.0L / kSameAmplitude;
}

double relative_error(long double found, long double exact)
{
    return static_cast<double>((found - exact) / exact);
}

/// Relative, of numbers; absolute, of angles.
Estimate estimate_of(double found, long double error, double standard_error, long double exact, long double unit)
{
    const double rounding = 0.5 * std::numeric_limits<double>::epsilon() * std::abs(found);
    return {found, static_cast<double>(exact), static_cast<double>(error / unit),
            static_cast<double>(std::hypot(standard_error, rounding) / unit)};
}

} // namespace

std::optional<double> Pair::frequency_error(Method method) const
{
    if (method == Method::record)
        return found ? std::optional(relative_error(found->frequency, exact->frequency())) : std::nullopt;
    const auto& pole = method == Method::arpack ? arpack : hybrj1;
    return pole ? std::optional(relative_error(pole->imag() / kTurn, exact->frequency())) : std::nullopt;
}

std::optional<double> Pair::quality_error(Method method) const
{
    if (method == Method::record)
        return found ? std::optional(relative_error(found->quality, exact->quality())) : std::nullopt;
    const auto& pole = method == Method::arpack ? arpack : hybrj1;
    return pole ? std::optional(relative_error(pole->imag() / (-2.0L * pole->real()), exact->quality())) : std::nullopt;
}

Estimate Pair::estimate(Quantity quantity) const
{
    const auto relative = [](double value, double standard_error, long double truth) {
        return estimate_of(value, value - truth, standard_error, truth, truth);
    };
    switch (quantity) {
    case Quantity::frequency:
        return relative(found->frequency, found->frequencyError, exact->frequency());
    case Quantity::quality:
        return relative(found->quality, found->qualityError, exact->quality());
    case Quantity::amplitude:
        return relative(found->amplitude, found->amplitudeError, amplitude_of(*exact));
    case Quantity::phase:
        break;
    }
    const long double truth = std::arg(exact->residue), error = std::remainder(found->phase - truth, kTurn);
    Estimate phase = estimate_of(found->phase, error, found->phaseError, truth / kDegree, kDegree);
    phase.found = static_cast<double>(found->phase / kDegree);
    return phase;
}

std::vector<tessel::modes::Mode> strong_modes(const tessel::modes::Result& result)
{
    double strongest = 0.0;
    for (const tessel::modes::Mode& mode : result.modes)
        strongest = std::max(strongest, mode.amplitude);
    std::vector<tessel::modes::Mode> strong = result.modes;
    std::erase_if(strong, [&](const tessel::modes::Mode& mode) { return !(mode.amplitude >= kWeakest * strongest); });
    return strong;
}

std::vector<Pair> compare(std::vector<CavityMode> exact, const tessel::modes::Result& result, double spacing)
{
    const long double reference = static_cast<long double>(result.firstSample) * spacing; // not rounded to a double
    long double strongest = 0.0L;
    for (CavityMode& mode : exact) {
        mode.residue = mode.residue_at(reference);
        strongest = std::max(strongest, amplitude_of(mode));
    }
    std::sort(exact.begin(), exact.end(),
              [](const CavityMode& a, const CavityMode& b) { return a.pole.imag() < b.pole.imag(); });

    std::vector<tessel::modes::Mode> rest = result.modes;
    std::vector<Pair> pairs;
    for (const CavityMode& mode : exact) {
        const bool excited = amplitude_of(mode) >= kWeakest * strongest;
        const auto nearest = std::min_element(rest.begin(), rest.end(), [&](const auto& a, const auto& b) {
            return distance(mode, pole_of(a)) < distance(mode, pole_of(b));
        });
        if (nearest != rest.end() && is_same(mode, *nearest)) {
            pairs.push_back({mode, *nearest, excited});
            rest.erase(nearest);
        } else if (excited) {
            pairs.push_back({mode, {}, true});
        }
    }
    for (const tessel::modes::Mode& mode : rest)
        pairs.push_back({{}, mode, mode.amplitude >= kWeakest * strongest});
    return pairs;
}

void add_eigenmodes(std::vector<Pair>& pairs, const std::vector<Eigenmode>& modes)
{
    for (const Eigenmode& mode : modes)
        for (Pair& pair : pairs)
            if (pair.excited && pair.exact && distance(*pair.exact, ExtendedComplex(mode.pole)) < kSamePole)
                pair.arpack = mode.pole;
}

} // namespace resonator
