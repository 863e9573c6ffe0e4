#include "examples/resonator/analysis.h"

#include "examples/resonator/dispersion.h"

#include <algorithm>
#include <limits>
#include <string>

namespace resonator {

namespace {

/// Of the highest frequency, in a Hankel matrix: enough to tell it from its mirror image, few enough to spread the
/// exponentials over the unit circle.
constexpr double kSamplesPerPeriod = 2.5;

/// Finds the excited modes again, by the operator of the cavity and by its dispersion relation.
Eigensolve find_without_record(FDTDCalcAPI& api, const Subject& subject, std::vector<Pair>& pairs,
                               const Progress& progress)
{
    long double lowest = std::numeric_limits<long double>::infinity(), highest = 0.0L;
    for (Pair& pair : pairs)
        if (pair.excited) {
            pair.hybrj1 = pole_from_dispersion(api, subject.cavity, pair.exact->m, pair.exact->n);
            lowest = std::min(lowest, pair.exact->frequency());
            highest = std::max(highest, pair.exact->frequency());
        }
    const auto count = std::count_if(subject.exact.begin(), subject.exact.end(), [&](const CavityMode& mode) {
        return mode.frequency() >= lowest && mode.frequency() <= highest;
    });
    Eigensolve solve =
        eigenmodes(api, subject.cavity, static_cast<double>(lowest), static_cast<double>(highest), count + 1,
                   [&](Index solves) { progress("ARPACK: " + std::to_string(solves) + " systems solved"); });
    add_eigenmodes(pairs, solve.modes);
    return solve;
}

} // namespace

Findings analyse(FDTDCalcAPI& api, const Subject& subject, const Progress& progress)
{
    Findings findings;
    tessel::modes::Options options;
    options.progress = [&](const tessel::modes::Progress& now) {
        progress("modes of the record: " + std::string(now.stage) + ", " + std::to_string(now.modes) + " modes");
        return true;
    };
    findings.result = tessel::modes::analyse(subject.record.values, 0.0, subject.record.spacing, options);
    findings.pairs = compare(subject.exact, findings.result, subject.record.spacing);
    findings.eigensolve = find_without_record(api, subject, findings.pairs, progress);

    progress("singular values and driven response");
    const std::vector<tessel::modes::Mode> strong = strong_modes(findings.result);
    const double highest = strong.empty() ? findings.result.highest : strong.back().frequency;
    const auto first = static_cast<Index>(findings.result.firstSample);
    const auto stride =
        std::max<Index>(1, static_cast<Index>(1.0 / (kSamplesPerPeriod * highest * subject.record.spacing)));
    findings.window = {first, stride, (subject.record.size() - 1 - first) / stride + 1};
    findings.hankel = decompose(api, samples_of(subject.record, findings.window));
    findings.response = driven_response(api, subject.cavity, subject.record, findings.window, findings.hankel, strong);
    progress("");
    return findings;
}

} // namespace resonator
