#include "examples/resonator/analysis.h"

#include "examples/resonator/dispersion.h"
#include "examples/resonator/error.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace resonator {

namespace {

/// An analytic signal of fewer samples tells nothing.
constexpr std::size_t kLeastAnalytic = 8;

/// The first sample at or after a time.
Index sample_at(const Record& record, double time)
{
    const double k = std::ceil((time - record.start) / record.spacing - 1e-6);
    if (!(k < static_cast<double>(record.size())))
        throw Error("--start: the record ends before this time");
    return std::max<Index>(0, static_cast<Index>(k));
}

/// The spectrum of the record; of a cavity, for each ampere of the driving current.
Response driven_response(FDTDCalcAPI& api, const Subject& subject, const Window& window, const Findings& findings)
{
    std::vector<Line> lines;
    for (const Mode& mode : findings.modes)
        if (mode.kind == Kind::kept)
            lines.push_back(line_of(mode.pole));
    const StateSpace system = realise(findings.hankel, samples_of(subject.record, window));
    Response response{choose_frequencies(lines, subject.record, window), {}, {}, {}};
    for (const double frequency : response.frequencies) {
        const Complex field = spectrum_at(api, system, subject.record, window, frequency);
        response.values.push_back(subject.cavity ? field / subject.cavity->current_spectrum(frequency) : field);
    }
    if (subject.cavity)
        response.exact = exact_response(*subject.cavity, response.frequencies);
    response.peaks = peaks(response.frequencies, response.values);
    return response;
}

/// The modes of the pairs by the operator of the cavity and by its dispersion relation.
Eigensolve take_other_roads(FDTDCalcAPI& api, const Subject& subject, std::vector<Pair>& pairs,
                            const Progress& progress)
{
    double lowest = std::numeric_limits<double>::infinity(), highest = 0.0;
    for (Pair& pair : pairs)
        if (pair.exact) {
            pair.hybrj1 = pole_from_dispersion(api, *subject.cavity, pair.exact->m, pair.exact->n);
            lowest = std::min(lowest, pair.exact->pole.imag());
            highest = std::max(highest, pair.exact->pole.imag());
        }
    const auto count = std::count_if(subject.exact.begin(), subject.exact.end(), [&](const CavityMode& mode) {
        return mode.pole.imag() >= lowest && mode.pole.imag() <= highest;
    });
    const double turn = 2.0 * std::numbers::pi;
    Eigensolve solve = eigenmodes(api, *subject.cavity, lowest / turn, highest / turn, count + 1, [&](Index solves) {
        progress("ARPACK: " + std::to_string(solves) + " systems solved");
    });
    add_eigenmodes(pairs, solve.modes);
    return solve;
}

} // namespace

Window choose_window(const Options& options, const Subject& subject)
{
    const Record& record = subject.record;
    Index first = subject.cavity ? subject.cavity->pulse_steps() : 0;
    if (options.start)
        first = sample_at(record, *options.start);
    if (std::all_of(record.values.begin() + first, record.values.end(), [](const Complex& y) { return y == 0.0; }))
        throw Error("the record is zero where it would be fitted: is the probe on a node of every mode?");
    Window window{first, options.stride ? options.stride : choose_stride(record, first), 0};
    window.count = std::min(options.samples, (record.size() - 1 - first) / window.stride + 1);
    if (window.count < 4)
        throw Error("too few samples are left to fit: " + std::to_string(window.count) + ", where 4 are the least");
    return window;
}

Findings analyse(FDTDCalcAPI& api, const Options& options, const Subject& subject, const Window& window,
                 const Progress& progress)
{
    const auto orders = options.orders.empty() ? choose_orders(window.count) : options.orders;
    if (const Index highest = *std::max_element(orders.begin(), orders.end()); 2 * highest > window.count)
        throw Error("order " + std::to_string(highest) + " takes " + std::to_string(2 * highest) +
                    " samples at least; there are " + std::to_string(window.count));
    Findings findings;
    findings.fits = fit_orders(api, subject.record, window, orders,
                               [&](Index order) { progress("fitting order " + std::to_string(order)); });
    findings.fit = best_fit(findings.fits);
    findings.modes = classify(findings.fit, subject.record, window, options.threshold);

    progress("singular values");
    findings.hankel = decompose(api, samples_of(subject.record, window));
    if (subject.record.is_real())
        if (const auto samples = analytic_samples(subject.record, window); samples.size() >= kLeastAnalytic)
            findings.analytic = decompose(api, samples);
    findings.response = driven_response(api, subject, window, findings);

    if (subject.cavity) {
        findings.pairs = compare(subject.exact, findings.modes, subject.record, window, options.threshold);
        findings.eigensolve = take_other_roads(api, subject, findings.pairs, progress);
    }
    progress("");
    return findings;
}

} // namespace resonator
