#include "examples/resonator/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <numbers>

namespace resonator {

namespace {

/// What is asked of a method.
struct Standard
{
    const char* name;
    double frequency, quality; ///< relative errors
};

Standard standard(Method method)
{
    switch (method) {
    case Method::record:
        return {"record", 1e-8, 1e-4};
    case Method::arpack:
        return {"ARPACK", 1e-11, 1e-8};
    case Method::hybrj1:
        return {"HYBRJ1", 1e-11, 1e-8};
    }
    return {};
}

/// Of an error: a Gaussian one is larger once in 16,000 times.
constexpr double kStandardErrors = 4.0;

/// Of the driven response, relative to its highest peak; higher modes may be hidden by stronger neighbours.
constexpr double kResponseTolerance = 1e-6;
constexpr std::size_t kPeaks = 8;

/// The excited modes of the cavity, by rising frequency.
std::vector<Pair> excited_modes(const std::vector<Pair>& pairs)
{
    std::vector<Pair> result;
    std::copy_if(pairs.begin(), pairs.end(), std::back_inserter(result),
                 [](const Pair& pair) { return pair.excited && pair.exact; });
    return result;
}

/// Prints the end of a line.
bool judge(bool met)
{
    std::printf(": %s\n", met ? "as expected" : "MISSED");
    return met;
}

bool judge_modes(const std::vector<Pair>& pairs)
{
    const std::vector<Pair> excited = excited_modes(pairs);
    const auto found = std::count_if(excited.begin(), excited.end(), [](const Pair& pair) { return pair.found; });
    const auto strange = std::count_if(pairs.begin(), pairs.end(), [](const Pair& pair) { return !pair.exact; });
    const auto strong_strange =
        std::count_if(pairs.begin(), pairs.end(), [](const Pair& pair) { return pair.excited && !pair.exact; });
    const auto weaker =
        std::count_if(pairs.begin(), pairs.end(), [](const Pair& pair) { return !pair.excited && pair.exact; });
    std::printf("\nWeaker modes: %td found, and %td not there. Of the others, above %.0e of the strongest:\n", weaker,
                strange - strong_strange, kWeakest);
    std::printf("  modes      %td of %zu found, and %td not there", found, excited.size(), strong_strange);
    return judge(!excited.empty() && found == static_cast<std::ptrdiff_t>(excited.size()) && strong_strange == 0);
}

/// How many errors lie within 1, 2 and kStandardErrors standard errors.
bool judge_standard_errors(const std::vector<Pair>& excited)
{
    std::ptrdiff_t all = 0, within_one = 0, within_two = 0, within = 0;
    double worst = 0.0;
    for (const Pair& pair : excited)
        for (const Quantity quantity : kQuantities)
            if (pair.found) {
                const double deviation = std::abs(pair.estimate(quantity).deviation());
                ++all;
                within_one += deviation <= 1.0;
                within_two += deviation <= 2.0;
                within += deviation <= kStandardErrors;
                worst = std::max(worst, deviation);
            }
    std::printf("  errors     of %td: %td within one standard error, %td within two, %td within %.0f (worst: %.1f)",
                all, within_one, within_two, within, kStandardErrors, worst);
    return judge(within == all);
}

bool judge_method(const std::vector<Pair>& excited, Method method)
{
    const auto [name, frequency_tolerance, quality_tolerance] = standard(method);
    std::size_t good = 0;
    double worst_frequency = 0.0, worst_quality = 0.0;
    for (const Pair& pair : excited) {
        if (!pair.frequency_error(method))
            continue;
        double frequency = std::abs(*pair.frequency_error(method)), quality = std::abs(*pair.quality_error(method));
        if (method == Method::record) { // a standard error that large would be as bad
            frequency = std::max(frequency, pair.estimate(Quantity::frequency).standard_error);
            quality = std::max(quality, pair.estimate(Quantity::quality).standard_error);
        }
        worst_frequency = std::max(worst_frequency, frequency);
        worst_quality = std::max(worst_quality, quality);
        good += frequency <= frequency_tolerance && quality <= quality_tolerance;
    }
    std::printf("  %-9s  %zu with frequency within %.0e and Q within %.0e (worst: %.1e, %.1e)", name, good,
                frequency_tolerance, quality_tolerance, worst_frequency, worst_quality);
    return judge(good == excited.size());
}

bool judge_singular_values(const Hankel& hankel, const std::vector<Pair>& excited)
{
    const auto modes = static_cast<Index>(excited.size());
    std::printf("  order      2 x %td modes <= %td singular values above noise, of %td", modes, hankel.rank,
                hankel.values.size());
    return judge(2 * modes <= hankel.rank);
}

bool judge_response(const Response& response, const std::vector<Pair>& excited)
{
    const std::size_t lowest = std::min(kPeaks, excited.size());
    const auto peaks =
        std::count_if(excited.begin(), excited.begin() + static_cast<Index>(lowest), [&](const Pair& pair) {
            const CavityMode& mode = *pair.exact;
            return response.has_peak(static_cast<double>(mode.frequency()),
                                     static_cast<double>(mode.frequency() / mode.quality()));
        });
    std::printf("  response   %td of the %zu lowest with a peak, within %.0e of the exact one (worst: %.1e)", peaks,
                lowest, kResponseTolerance, response.error());
    return judge(peaks == static_cast<Index>(lowest) && response.error() <= kResponseTolerance);
}

void print_errors(const Estimate& estimate)
{
    const double deviation = std::abs(estimate.deviation()) < 0.05 ? 0.0 : estimate.deviation(); // not -0.0
    std::printf(" %8.1e %7.1e %5.1f", estimate.error, estimate.standard_error, deviation);
}

} // namespace

void print_subject(const Subject& subject)
{
    const Cavity& cavity = subject.cavity;
    std::printf("Cavity: %td x %td cells of %g mm, relative permittivity %g, conductivity %g mS/m\n", cavity.cells_x,
                cavity.cells_y, cavity.cell * 1e3, cavity.permittivity, cavity.conductivity * 1e3);
    std::printf("        %td steps of %.4f ps; pulse of %g +- %g GHz, over after %td steps, %.2f ns\n", cavity.steps,
                cavity.time_step() * 1e12, cavity.carrier / 1e9, cavity.bandwidth / 1e9, cavity.pulse_steps(),
                cavity.time_step() * static_cast<double>(cavity.pulse_steps()) * 1e9);
    std::printf("        the record is the sum of all %zu exact modes to %.0e of its peak\n", subject.exact.size(),
                distance_from_closed_form(subject.exact, cavity, subject.record));
}

void print_result(const Subject& subject, const tessel::modes::Result& result)
{
    const auto first = static_cast<Index>(result.firstSample);
    std::printf("Record: used from sample %td on (%s), where the pulse is at %.0e of its peak\n", first,
                name(result.firstSampleReason), subject.cavity.envelope_after(first));
    std::printf("        %zu modes in %.2f to %.2f GHz, noise %.0e V/m, chi^2 per degree of freedom %.2f\n",
                result.modes.size(), result.lowest / 1e9, result.highest / 1e9, result.noise, result.reducedChiSquare);
    for (const tessel::modes::Remark& remark : result.remarks)
        std::printf("        %s\n", remark.text.c_str());
}

void print_eigensolve(const Eigensolve& solve)
{
    double residual = 0.0;
    for (const Eigenmode& mode : solve.modes)
        residual = std::max(residual, mode.residual);
    std::printf("ARPACK: %zu modes of the update operator of order %td from %td solved systems, residuals to %.0e\n\n",
                solve.modes.size(), solve.order, solve.solves, residual);
}

void print_methods(const std::vector<Pair>& pairs)
{
    std::printf("      exact modes                ");
    for (const Method method : kMethods)
        std::printf("  %19s", standard(method).name);
    std::printf("\n   m  n  frequency [GHz]          Q");
    for ([[maybe_unused]] const Method method : kMethods)
        std::printf("  error of f     of Q");
    std::printf("\n");
    for (const Pair& pair : excited_modes(pairs)) {
        std::printf("%4td %2td  %15.10Lf %10.5Lf", pair.exact->m, pair.exact->n, pair.exact->frequency() / 1e9L,
                    pair.exact->quality());
        for (const Method method : kMethods)
            if (pair.frequency_error(method))
                std::printf("    %8.1e %8.1e", *pair.frequency_error(method), *pair.quality_error(method));
            else
                std::printf("  %19s", "not found");
        std::printf("\n");
    }
}

void print_estimates(const std::vector<Pair>& pairs)
{
    std::vector<Pair> both;
    std::copy_if(pairs.begin(), pairs.end(), std::back_inserter(both),
                 [](const Pair& pair) { return pair.exact && pair.found; });
    std::printf(
        "\nFrom the record, with standard errors (se); relative, but for the phase\n"
        "                 frequency [GHz]                                             Q\n"
        "  m  n        exact        found    error      se  e/se      exact     found    error      se  e/se\n");
    for (const Pair& pair : both) {
        const Estimate frequency = pair.estimate(Quantity::frequency), quality = pair.estimate(Quantity::quality);
        std::printf("%3td %2td %12.9f %12.9f", pair.exact->m, pair.exact->n, frequency.exact / 1e9,
                    frequency.found / 1e9);
        print_errors(frequency);
        std::printf("  %9.4f %9.4f", quality.exact, quality.found);
        print_errors(quality);
        std::printf("\n");
    }
    std::printf(
        "\n"
        "                 amplitude [V/m]                                        phase [deg]\n"
        "  m  n        exact        found    error      se  e/se      exact     found    error      se  e/se\n");
    for (const Pair& pair : both) {
        const Estimate amplitude = pair.estimate(Quantity::amplitude), phase = pair.estimate(Quantity::phase);
        std::printf("%3td %2td %12.5e %12.5e", pair.exact->m, pair.exact->n, amplitude.exact, amplitude.found);
        print_errors(amplitude);
        std::printf("  %9.4f %9.4f", phase.exact, phase.found);
        print_errors(phase);
        std::printf("\n");
    }
    for (const Pair& pair : pairs)
        if (!pair.exact)
            std::printf("  -  -  not there: %.4f GHz, Q %.4g, amplitude %.1e V/m\n", pair.found->frequency / 1e9,
                        pair.found->quality, pair.found->amplitude);
}

bool print_verdicts(const Findings& findings)
{
    const std::vector<Pair> excited = excited_modes(findings.pairs);
    bool met = judge_modes(findings.pairs);
    for (const Method method : kMethods)
        met &= judge_method(excited, method);
    met &= judge_standard_errors(excited);
    met &= judge_singular_values(findings.hankel, excited);
    met &= judge_response(findings.response, excited);
    return met;
}

void print_files(const std::string& prefix, const std::string& hindrance)
{
    std::printf("\nWritten: %s\n         -record.dat, -modes.dat, -singular.dat, -response.dat%s\n", prefix.c_str(),
                hindrance.empty() ? ", .png, -response.png" : "");
    if (!hindrance.empty())
        std::printf("%s\n", hindrance.c_str());
}

} // namespace resonator
