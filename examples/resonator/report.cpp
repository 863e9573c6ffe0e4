#include "examples/resonator/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>

namespace resonator {

namespace {

constexpr std::size_t kRequiredModes = 8;
constexpr double kFrequencyTolerance = 1e-8, kQualityTolerance = 1e-4;

/// A mode of the fit and an exact one are the same if their poles differ by less than this part: modes lie farther
/// apart, and a mode of the fit that misses by more is reported as one that is not there.
constexpr double kSamePole = 1e-3;

struct Unit
{
    double size;
    const char* name;
};

/// The unit in which the largest of the frequencies reads well.
Unit frequency_unit(double largest)
{
    for (const Unit unit : {Unit{1e12, "THz"}, {1e9, "GHz"}, {1e6, "MHz"}, {1e3, "kHz"}})
        if (largest >= unit.size)
            return unit;
    return {1.0, "Hz"};
}

double frequency(const CavityMode& mode)
{
    return mode.pole.imag() / (2.0 * std::numbers::pi);
}

double quality(const CavityMode& mode)
{
    return mode.pole.imag() / (-2.0 * mode.pole.real());
}

double degrees(const Complex& residue)
{
    return std::arg(residue) * 180.0 / std::numbers::pi;
}

} // namespace

double Pair::frequency_error() const
{
    return std::abs(found->frequency() / resonator::frequency(*exact) - 1.0);
}

double Pair::quality_error() const
{
    return std::abs(found->quality() / resonator::quality(*exact) - 1.0);
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

void print_measures(const std::vector<Fit>& fits, const Fit& best)
{
    std::printf("  order     ERR_L2    ERR_RMS   ERR_PEAK  ERR_RMS_MEAN  ERR_PEAK_MEAN\n");
    for (const Fit& fit : fits) {
        std::printf("%c %5td", &fit == &best ? '*' : ' ', fit.order);
        if (fit.failure.empty())
            std::printf("  %9.2e  %9.2e  %9.2e     %9.2e      %9.2e\n", fit.err_l2, fit.err_rms, fit.err_peak,
                        fit.err_rms_mean, fit.err_peak_mean);
        else
            std::printf("  %s\n", fit.failure.c_str());
    }
}

void print_modes(const std::vector<Mode>& modes)
{
    double largest = 0.0;
    for (const Mode& mode : modes)
        if (mode.kind == Kind::kept)
            largest = std::max(largest, std::abs(mode.frequency()));
    const Unit unit = frequency_unit(largest);
    std::printf("  frequency [%s]              Q     amplitude   phase [deg]\n", unit.name);
    for (const Mode& mode : modes)
        if (mode.kind == Kind::kept)
            std::printf("%16.10f  %14.7g  %12.5e  %12.6f\n", mode.frequency() / unit.size, mode.quality(),
                        mode.amplitude(), mode.phase());
}

void print_comparison(const std::vector<Pair>& pairs)
{
    std::printf("   m  n  frequency [GHz]          exact    error           Q      exact    error\n");
    for (const Pair& pair : pairs) {
        if (pair.exact)
            std::printf("%4td %2td", pair.exact->m, pair.exact->n);
        else
            std::printf("   -  -");
        if (pair.exact && pair.found)
            std::printf("  %14.10f %14.10f  %7.1e  %10.5f %10.5f  %7.1e\n", pair.found->frequency() / 1e9,
                        frequency(*pair.exact) / 1e9, pair.frequency_error(), pair.found->quality(),
                        quality(*pair.exact), pair.quality_error());
        else if (pair.exact)
            std::printf("  %14s %14.10f  %7s  %10s %10.5f\n", "not found", frequency(*pair.exact) / 1e9, "", "",
                        quality(*pair.exact));
        else
            std::printf("  %14.10f %14s  %7s  %10.5f\n", pair.found->frequency() / 1e9, "no such mode", "",
                        pair.found->quality());
    }
    std::printf("\n   m  n  amplitude [V/m]          exact    error  phase[deg]      exact    error\n");
    for (const Pair& pair : pairs)
        if (pair.exact && pair.found)
            std::printf("%4td %2td  %14.7e %14.7e  %7.1e  %10.5f %10.5f  %7.1e\n", pair.exact->m, pair.exact->n,
                        pair.found->amplitude(), std::abs(pair.exact->residue), pair.amplitude_error(),
                        pair.found->phase(), degrees(pair.exact->residue), pair.phase_error());
}

bool print_verdict(const std::vector<Pair>& pairs)
{
    std::size_t excited = 0, found = 0, good = 0, not_there = 0;
    double frequency_error = 0.0, quality_error = 0.0;
    for (const Pair& pair : pairs) {
        if (!pair.exact) {
            ++not_there;
            continue;
        }
        const bool required = ++excited <= kRequiredModes;
        if (!pair.found)
            continue;
        ++found;
        if (!required)
            continue;
        frequency_error = std::max(frequency_error, pair.frequency_error());
        quality_error = std::max(quality_error, pair.quality_error());
        good += pair.frequency_error() <= kFrequencyTolerance && pair.quality_error() <= kQualityTolerance;
    }
    const bool met = good >= kRequiredModes && not_there == 0;
    std::printf("%zu of %zu excited modes found, %zu that are not there.\n", found, excited, not_there);
    std::printf("The %zu lowest: %zu with frequencies within %.0e and Q within %.0e (worst: %.1e, %.1e): %s.\n",
                kRequiredModes, good, kFrequencyTolerance, kQualityTolerance, frequency_error, quality_error,
                met ? "as expected" : "MISSED");
    return met;
}

} // namespace resonator
