#include "examples/resonator/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>

namespace resonator {

namespace {

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

/// Keeps what rounds to zero from being printed as -0.
double rounded(double value, int digits)
{
    return std::abs(value) <= 0.5 * std::pow(10.0, -digits) ? 0.0 : value;
}

constexpr std::size_t kRequiredModes = 8;

/// What is asked of a road.
struct Standard
{
    const char* name;
    double frequency, quality; ///< relative errors
};

Standard standard(Road road)
{
    switch (road) {
    case Road::fit:
        return {"Prony fit", 1e-8, 1e-4};
    case Road::arpack:
        return {"ARPACK", 1e-11, 1e-8};
    case Road::hybrj1:
        return {"HYBRJ1", 1e-11, 1e-8};
    }
    return {};
}

/// Of the driven response, relative to its highest peak.
constexpr double kResponseTolerance = 1e-6;

/// The pairs with an exact mode, by rising frequency.
std::vector<Pair> with_exact(const std::vector<Pair>& pairs)
{
    std::vector<Pair> result;
    std::copy_if(pairs.begin(), pairs.end(), std::back_inserter(result), [](const Pair& pair) { return !!pair.exact; });
    return result;
}

const char* verdict(bool met)
{
    return met ? "as expected" : "MISSED";
}

} // namespace

void print_cavity(const Cavity& cavity)
{
    std::printf("Cavity: %td x %td cells of %g mm, relative permittivity %g, conductivity %g mS/m\n", cavity.cells_x,
                cavity.cells_y, cavity.cell * 1e3, cavity.permittivity, cavity.conductivity * 1e3);
    std::printf("        %td steps of %.4f ps; pulse of %g +- %g GHz, over after %.2f ns\n", cavity.steps,
                cavity.time_step() * 1e12, cavity.carrier / 1e9, cavity.bandwidth / 1e9,
                static_cast<double>(cavity.pulse_steps()) * cavity.time_step() * 1e9);
}

void print_window(const Subject& subject, const Window& window)
{
    const Record& record = subject.record;
    if (subject.cavity)
        std::printf("        the record is the sum of all %zu exact modes to %.0e of its peak\n", subject.exact.size(),
                    distance_from_closed_form(subject.exact, record, window));
    std::printf("Fit:    %td samples, one in %td, from %.6g s to %.6g s\n\n", window.count, window.stride,
                record.time(window.first), record.time(window.last()));
}

void print_measures(const std::vector<Fit>& fits, Index best_order)
{
    std::printf("  order     ERR_L2    ERR_RMS   ERR_PEAK  ERR_RMS_MEAN  ERR_PEAK_MEAN\n");
    for (const Fit& fit : fits) {
        std::printf("%c %5td", fit.order == best_order ? '*' : ' ', fit.order);
        if (fit.failure.empty())
            std::printf("  %9.2e  %9.2e  %9.2e     %9.2e      %9.2e\n", fit.err_l2, fit.err_rms, fit.err_peak,
                        fit.err_rms_mean, fit.err_peak_mean);
        else
            std::printf("  %s\n", fit.failure.c_str());
    }
}

void print_kinds(const std::vector<Mode>& modes)
{
    const auto count = [&](Kind kind) {
        return std::count_if(modes.begin(), modes.end(), [&](const Mode& mode) { return mode.kind == kind; });
    };
    std::printf("Of %zu poles: %td modes, %td complex conjugates of modes, %td negligible, %td growing.\n",
                modes.size(), count(Kind::kept), count(Kind::conjugate), count(Kind::negligible), count(Kind::growing));
}

void print_singular_values(const Hankel& record, const std::optional<Hankel>& analytic)
{
    std::printf("\nSingular values above noise: %td of %td of the record", record.rank, record.values.size());
    if (analytic)
        std::printf(", %td of %td of its analytic signal", analytic->rank, analytic->values.size());
    std::printf(".\n");
}

void print_modes(const std::vector<Mode>& modes, const Response& spectrum)
{
    double largest = 0.0;
    for (const Mode& mode : modes)
        if (mode.kind == Kind::kept)
            largest = std::max(largest, std::abs(mode.frequency()));
    const Unit unit = frequency_unit(largest);
    std::printf("\n  frequency [%s]              Q     amplitude   phase [deg]  peak\n", unit.name);
    for (const Mode& mode : modes)
        if (mode.kind == Kind::kept)
            std::printf("%16.10f  %14.7g  %12.5e  %12.6f  %4s\n", rounded(mode.frequency() / unit.size, 10),
                        mode.quality(), mode.amplitude(), rounded(mode.phase(), 6),
                        stands_out(line_of(mode.pole), spectrum.peaks) ? "yes" : "no");
}

void print_eigensolve(const Eigensolve& solve)
{
    double residual = 0.0;
    for (const Eigenmode& mode : solve.modes)
        residual = std::max(residual, mode.residual);
    std::printf("ARPACK: %zu modes of the update operator of order %td from %td solved systems, residuals to %.0e.\n\n",
                solve.modes.size(), solve.order, solve.solves, residual);
}

void print_comparison(const std::vector<Pair>& pairs)
{
    std::printf("      exact modes                ");
    for (const Road road : kRoads)
        std::printf("  %19s", standard(road).name);
    std::printf("\n   m  n  frequency [GHz]          Q");
    for ([[maybe_unused]] const Road road : kRoads)
        std::printf("  error of f     of Q");
    std::printf("\n");
    for (const Pair& pair : pairs) {
        if (!pair.exact) {
            std::printf("   -  -  %15.10f %10.5f  no such mode\n", rounded(pair.found->frequency() / 1e9, 10),
                        pair.found->quality());
            continue;
        }
        std::printf("%4td %2td  %15.10f %10.5f", pair.exact->m, pair.exact->n, frequency_of(pair.exact->pole) / 1e9,
                    quality_of(pair.exact->pole));
        for (const Road road : kRoads)
            if (pair.pole(road))
                std::printf("     %7.1e  %7.1e", pair.frequency_error(road), pair.quality_error(road));
            else
                std::printf("  %19s", "not found");
        std::printf("\n");
    }
    std::printf("\n   m  n  amplitude [V/m]          exact    error  phase[deg]      exact    error\n");
    for (const Pair& pair : pairs)
        if (pair.exact && pair.found) {
            const double amplitude = std::abs(pair.exact->residue), phase = degrees(pair.exact->residue);
            std::printf("%4td %2td  %15.7e %14.7e  %7.1e  %10.5f %10.5f  %7.1e\n", pair.exact->m, pair.exact->n,
                        pair.found->amplitude(), amplitude, pair.amplitude_error(), rounded(pair.found->phase(), 5),
                        rounded(phase, 5), pair.phase_error());
        }
}

bool print_verdict(const std::vector<Pair>& pairs)
{
    const std::vector<Pair> excited = with_exact(pairs);
    const std::size_t not_there = pairs.size() - excited.size();
    const auto found = std::count_if(excited.begin(), excited.end(), [](const Pair& pair) { return pair.found; });
    std::printf("\nThe fit finds %td of %zu excited modes and %zu that are not there: %s. Of the %zu lowest:\n", found,
                excited.size(), not_there, verdict(not_there == 0), kRequiredModes);
    bool all_met = not_there == 0;
    for (const Road road : kRoads) {
        const auto [name, frequency_tolerance, quality_tolerance] = standard(road);
        std::size_t good = 0;
        double frequency_error = 0.0, quality_error = 0.0;
        for (std::size_t k = 0; k < std::min(kRequiredModes, excited.size()); ++k)
            if (excited[k].pole(road)) {
                frequency_error = std::max(frequency_error, excited[k].frequency_error(road));
                quality_error = std::max(quality_error, excited[k].quality_error(road));
                good += excited[k].frequency_error(road) <= frequency_tolerance &&
                        excited[k].quality_error(road) <= quality_tolerance;
            }
        const bool met = good == kRequiredModes;
        std::printf("  %-9s  %zu with frequency within %.0e and Q within %.0e (worst: %.1e, %.1e): %s\n", name, good,
                    frequency_tolerance, quality_tolerance, frequency_error, quality_error, verdict(met));
        all_met = all_met && met;
    }
    return all_met;
}

bool print_order_verdict(const Hankel& record, const std::optional<Hankel>& analytic, Index order,
                         const std::vector<Pair>& pairs)
{
    const auto modes = static_cast<Index>(with_exact(pairs).size());
    const bool met = 2 * modes <= record.rank && record.rank <= order && analytic && modes <= analytic->rank &&
                     analytic->rank < record.rank;
    std::printf("  Order      2 x %td modes <= %td singular values <= order %td; analytic signal: %td: %s\n", modes,
                record.rank, order, analytic ? analytic->rank : 0, verdict(met));
    return met;
}

bool print_response_verdict(const Response& response, const std::vector<Pair>& pairs)
{
    std::size_t good = 0;
    const std::vector<Pair> excited = with_exact(pairs);
    for (std::size_t k = 0; k < std::min(kRequiredModes, excited.size()); ++k)
        good += stands_out(line_of(excited[k].exact->pole), response.peaks);
    const bool met = good == kRequiredModes && response.error() <= kResponseTolerance;
    std::printf("  Response   %zu with a peak, the whole within %.0e of the exact response (worst: %.1e): %s\n", good,
                kResponseTolerance, response.error(), verdict(met));
    return met;
}

bool print_verdicts(const Findings& findings)
{
    const bool roads = print_verdict(findings.pairs);
    const bool order = print_order_verdict(findings.hankel, findings.analytic, findings.fit.order, findings.pairs);
    const bool response = print_response_verdict(findings.response, findings.pairs);
    return roads && order && response;
}

void print_files(const std::string& prefix, const std::string& hindrance)
{
    std::printf("\nWritten: %s\n         -record.dat, -modes.dat, -poles.dat, -singular.dat, -response.dat%s\n",
                prefix.c_str(), hindrance.empty() ? ", .png, -response.png" : "");
    if (!hindrance.empty())
        std::printf("%s\n", hindrance.c_str());
}

} // namespace resonator
