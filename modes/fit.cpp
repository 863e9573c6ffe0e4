#include "modes/fit.h"
#include "modes/search.h"
#include "modes/start.h"

#include "common/elementary.h"

#include <algorithm>
#include <cmath>

namespace tessel::modes {

namespace {

constexpr std::size_t kRounds = 12; // of search at one length
constexpr std::size_t kMostARound = 6;
constexpr std::size_t kPatience = 6;      // rounds after which a fit far from the noise is given up
constexpr std::size_t kQuickPatience = 2; // the same, where another way is left
constexpr int kSteps = 8;                 // of refinement in a round
constexpr std::size_t kNuisanceRounds = 3;
constexpr std::size_t kManyCandidates = 64;
constexpr std::size_t kMostTried = 8; // of them a round
constexpr double kPossible = 5;       // score in the residual: neighbours take up most of what a missing term leaves
constexpr double kLikely = 9;         // half the gain in chi^2 of a term that is likely
constexpr Extended kBeside = 3;       // widths of two lines that overlap
constexpr Extended kLeastDecay = 1;   // nepers over the record
constexpr Extended kShort = 16;       // the same: a short life
constexpr Extended kTwoPi = 6.28318530717958647692528676655900577L;
constexpr Extended kSlow = 6; // of the distance of a pole from zero, over the record
// Of its terms' amplitudes: what two terms, or more, leave of each other where they imitate a drive.
constexpr double kCancelled = 0.25;
constexpr double kCancelledMany = 0.35;
constexpr double kByFar = 5;     // times the threshold
constexpr double kHopeless = 10; // chi^2 per degree of freedom of such a fit

/// Refines and searches over [0, n) until the residual asks for nothing more.
Refined complete(const Series& series, Terms terms, std::size_t n, std::size_t mostModes, Fit& fit, Effort effort,
                 const Watch& watch)
{
    const double part = static_cast<double>(n) / static_cast<double>(series.size());
    Refined model = refine(series, std::move(terms), n, 2 * kSteps);
    watch.spend(model, n);
    for (std::size_t round = 0; round < kRounds; ++round) {
        watch.tell("search", model.terms.size(), part);
        if (model.terms.size() >= mostModes) {
            fit.stopped = true;
            break;
        }
        if (watch.exhausted()) {
            fit.failed = fit.exhausted = true;
            break;
        }
        if (round >= (effort == Effort::quick ? kQuickPatience : kPatience) &&
            model.chiSquare > kHopeless * freedom(series, model.terms, n) &&
            reduced_with_feet(series, model.terms, n) > kHopeless) {
            fit.failed = true;
            break;
        }
        const std::vector<Candidate> found = search(series, model.terms, n, kMostARound, 1.0);
        if (found.empty())
            break;
        Terms more = model.terms;
        for (const Candidate& c : found)
            more.push_back(c.term);
        const Refined next = refine(series, more, n, kSteps);
        watch.spend(next, n);
        if (!(model.chiSquare - next.chiSquare > chance_score(n)))
            break;
        model = next;
        model.terms = prune(series, model.terms, n);
    }
    if (n < series.size() && !fit.failed) {
        model = thin(series, std::move(model), n, [&](const Refined& r) {
            watch.spend(r, n);
            return !watch.exhausted();
        });
    }
    return model;
}

/// Terms that are a drift together, and may cancel.
bool slow(const Term& term, std::size_t samples)
{
    return std::abs(term.decay) + std::abs(term.angle) < kSlow / static_cast<Extended>(samples);
}

} // namespace

bool cancel(const Series& series, const Terms& terms)
{
    const std::size_t head = std::min<std::size_t>(series.size(), 16);
    double sum = 0, peak = 0;
    for (const Term& term : terms)
        if (term.origin == 0 && term.decay > 0 && !slow(term, series.size()))
            sum += std::abs(term.c);
    for (std::size_t k = 0; k < head; ++k)
        peak = std::max(peak, std::abs(series.re[k]));
    return sum > 30 * peak;
}

bool imitates_drive(const Series& series, const Terms& terms, double highest)
{
    const double sigma = 1 / std::sqrt(series.weight.front());
    struct Short
    {
        double periods, samples;
        const Term* term;
    };
    std::vector<Short> life;
    for (const Term& term : terms) {
        if (term.origin != 0 || term.decay <= 0 || slow(term, series.size()))
            continue;
        const double above = std::abs(term.c) / sigma;
        if (above > 1 && term.decay < 1) { // of shorter life: an artefact of the first sample
            const double samples = logarithm(above) / static_cast<double>(term.decay);
            life.push_back({samples * highest, samples, &term});
        }
    }
    std::sort(life.begin(), life.end(), [](const Short& a, const Short& b) { return a.periods < b.periods; });
    std::size_t many = 0; // terms in less than their share of periods
    for (std::size_t j = 0; j < life.size(); ++j) {
        if (static_cast<double>(j + 1) > 3 + life[j].periods / kPeriodsPerMode)
            return true;
        if (static_cast<double>(j + 1) > life[j].periods / kPeriodsPerMode)
            many = j + 1;
    }
    if (many > 1) {
        Terms brief;
        double parts = 0, whole = 0;
        for (std::size_t j = 0; j < many; ++j) {
            brief.push_back(*life[j].term);
            parts += std::abs(brief.back().c);
        }
        const std::size_t n = std::min(series.size(), static_cast<std::size_t>(life[many - 1].samples) + 1);
        Series nothing = series;
        std::fill(nothing.re.begin(), nothing.re.end(), 0);
        std::fill(nothing.im.begin(), nothing.im.end(), 0);
        std::vector<double> values;
        evaluate(nothing, brief, n, &values);
        for (std::size_t k = 0; k < n; ++k)
            whole = std::max(whole, series.complex() ? std::hypot(values[k], values[n + k]) : std::abs(values[k]));
        if (whole < (many > 2 ? kCancelledMany : kCancelled) * parts)
            return true;
    }
    return cancel(series, terms);
}

Fit continue_fit(const Series& series, Terms terms, std::size_t mostModes, Effort effort, const Watch& watch,
                 std::size_t mostKept)
{
    Fit fit;
    Refined model = complete(series, std::move(terms), series.size(), mostModes, fit, effort, watch);
    // A limit met on the way is none if elimination comes back below it.
    const double reduced = model.chiSquare / freedom(series, model.terms, series.size());
    if (fit.failed || (fit.stopped && reduced > 2 && reduced_with_feet(series, model.terms, series.size()) > 2)) {
        fit.terms = model.terms;
        fit.chiSquare = model.chiSquare;
        fit.significance.assign(model.terms.size(), 1);
        fit.reduced = fit.chiSquare / freedom(series, fit.terms, series.size());
        return fit;
    }
    watch.tell("select", model.terms.size(), 1);
    if (model.terms.size() > mostKept) {
        std::size_t certain = 0;
        for (const double w : wald(series, model.terms, series.size()))
            certain += w > kByFar * 2 * chance_score(series.size()) * std::max(1.0, reduced);
        if (certain > mostKept) {
            fit.terms = model.terms;
            fit.chiSquare = model.chiSquare;
            fit.significance.assign(model.terms.size(), 1);
            fit.reduced = reduced;
            fit.stopped = true;
            return fit;
        }
    }
    model = refine(series, std::move(model.terms), series.size());
    model = eliminate(series, std::move(model), series.size(), fit.significance, [&](const Refined& r) {
        watch.spend(r, series.size());
        return !watch.exhausted();
    });
    fit.failed = fit.exhausted = watch.exhausted();
    fit.stopped = fit.stopped && model.terms.size() >= mostModes;
    fit.terms = model.terms;
    fit.chiSquare = model.chiSquare;
    fit.reduced = fit.chiSquare / freedom(series, fit.terms, series.size());
    if (fit.reduced > 1.5) {
        const double other = reduced_with_feet(series, fit.terms, series.size(), &fit.walks);
        fit.reduced = std::min(fit.reduced, other);
    }
    return fit;
}

std::size_t add_nuisance(const Series& series, Fit& fit, const Watch& watch)
{
    const std::size_t n = series.size();
    const auto samples = static_cast<Extended>(n);
    const auto beside = [&](const Term& c, const Term& t) {
        return std::abs(c.angle - t.angle) < kBeside * (kTwoPi / samples + std::abs(c.decay) + std::abs(t.decay));
    };
    std::size_t added = 0;
    for (std::size_t round = 0; round < kNuisanceRounds && !watch.exhausted(); ++round) {
        Refined model{fit.terms, fit.chiSquare, 0};
        std::size_t tried = 0;
        for (const Candidate& c : search(series, model.terms, n, kManyCandidates, kPossible / chance_score(n))) {
            if (c.term.origin != 0 || c.term.decay * samples < kLeastDecay ||
                std::none_of(model.terms.begin(), model.terms.end(), [&](const Term& t) { return beside(c.term, t); }))
                continue;
            if (++tried > kMostTried || watch.exhausted())
                break;
            Terms more = model.terms;
            more.push_back(c.term);
            const Refined next = refine(series, more, n, kSteps);
            watch.spend(next, n);
            const Term& last = next.terms.back();
            if (model.chiSquare - next.chiSquare > 2 * kLikely && last.origin == 0 && last.decay * samples > kShort)
                model = next;
        }
        if (model.terms.size() == fit.terms.size())
            break;
        added += model.terms.size() - fit.terms.size();
        fit.terms = model.terms;
        fit.chiSquare = model.chiSquare;
    }
    fit.significance.resize(fit.terms.size(), 0);
    fit.reduced = fit.chiSquare / freedom(series, fit.terms, n);
    return added;
}

Fit fit_series(const Series& series, double highest, std::size_t mostModes, Effort effort, const Watch& watch)
{
    watch.tell("start", 0, 0);
    Fit early;
    if (watch.exhausted()) {
        early.failed = early.exhausted = true;
        return early;
    }
    Start start = start_values(series, highest);
    watch.spend(start.work);
    const std::size_t m = series.size();
    if (start.saturated || (effort == Effort::quick && start.terms.size() > start.samplesUsed / 8)) {
        early.failed = true;
        return early;
    }
    std::size_t n = start.samples > 0 ? std::min(start.samples, m) : m;
    start.terms = prune(series, solve_residues(series, start.terms, n).terms, n);
    while (n < m) {
        start.terms = complete(series, start.terms, n, mostModes, early, effort, watch).terms;
        if (effort == Effort::quick && imitates_drive(series, start.terms, highest))
            early.failed = true;
        if (early.failed || early.stopped) {
            early.terms = start.terms;
            early.significance.assign(early.terms.size(), 1);
            return early;
        }
        n = 2 * n > m - m / 8 ? m : 2 * n;
    }
    return continue_fit(series, start.terms, mostModes, effort, watch);
}

} // namespace tessel::modes
