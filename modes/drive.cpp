#include "modes/drive.h"
#include "modes/band.h"
#include "modes/decimation.h"
#include "modes/errors.h"
#include "modes/search.h"

#include "common/elementary.h"

#include <algorithm>
#include <cmath>

namespace tessel::modes {

namespace {

constexpr double kBlocksPerPeriod = 8;
constexpr double kDeviations = 5;    // of a mean of squares above its expectation that chance explains
constexpr double kBlocksPerLife = 2; // of a term: fewer would average it out
constexpr double kArtefact = 1;      // samples: a term of shorter life is the first sample's alone
constexpr std::size_t kMostModes = 300;
constexpr std::size_t kFewest = 8;
constexpr double kMostNoise = 3; // of chi^2 per degree of freedom
constexpr double kMostWalking = 10;
constexpr double kRoundings = 20; // of the highest sample: noise of the size of rounding
constexpr double kLeastMeanSingle = 1e-3;
constexpr double kLeastMean = 0.1;    // of squares: rounding is not larger than the least noise that is assumed
constexpr double kHighestLevel = 0.1; // of noise that is tried, of the highest sample
constexpr double kLowestLevel = 1e-15;
constexpr double kLevelStep = 0.1;
constexpr int kMostWorse = 3;      // levels without gain after which no more are tried
constexpr double kLeastFree = 0.2; // degrees of freedom, of the samples
constexpr double kSingle = 1e-10;  // of Series::rounding: single precision
constexpr int kColourRounds = 6;
constexpr double kMostContrast = 1e3; // of noise; above it the filter takes lines for noise
constexpr double kWalking = 2.5;      // of the mean square of noise that walks at random, in a part of the record
constexpr double kSettled = 0.02;     // nepers of the noise, from round to round
constexpr double kAboveSilence = 8;   // of the largest sample of what may be silence

} // namespace

std::size_t block_factor(double highest, std::size_t samples)
{
    const double edge = std::max(highest, 1e-3);
    return std::max<std::size_t>(1, std::min(static_cast<std::size_t>(1 / (kBlocksPerPeriod * edge)), samples / 64));
}

Noise extend(const Series& record, const Noise& noise, std::size_t from, std::size_t first, double depth)
{
    Noise out = noise;
    if (first > from) { // later: the segments that are left behind go
        const std::size_t gone = std::min((first - from) / noise.segment, noise.sigma.size() - 1);
        out.sigma.erase(out.sigma.begin(), out.sigma.begin() + static_cast<std::ptrdiff_t>(gone));
        return out;
    }
    std::size_t at = from;
    while (at > first) {
        const std::size_t begin = at > first + noise.segment ? at - noise.segment : first;
        double peak = 0;
        for (std::size_t k = begin; k < at; ++k) {
            peak = std::max(peak, std::abs(record.re[k]));
            if (record.complex())
                peak = std::max(peak, std::abs(record.im[k]));
        }
        out.sigma.insert(out.sigma.begin(), std::max(noise.sigma.front(), depth * peak));
        at = begin;
    }
    return out;
}

namespace {

/// Whether the fit leaves about the noise: lines that rounding excites leave more than the model of their feet says.
bool explains(const Fit& fit)
{
    return fit.reduced < (fit.walks ? kMostWalking : kMostNoise);
}

} // namespace

double shortest_life(const Terms& terms)
{
    double life = INFINITY;
    for (const Term& term : terms)
        if (term.origin == 0 && term.decay > 0)
            life = std::min(life, 1 / static_cast<double>(term.decay));
    return life;
}

namespace {

/// Whether the first `extension` means are explained: no mean of squares from the first sample on is above that of the
/// rest by more than chance.
bool explained(const Series& series, const Terms& terms, std::size_t extension, const Stage& late)
{
    std::vector<double> residual;
    const std::size_t n = late.series.size();
    const double width = series.complex() ? 2 : 1;
    const double mean =
        evaluate(late.series, late.fit.terms, n, &residual).chiSquare / (width * static_cast<double>(n));
    // noise that walks at random is largest at the ends
    const double unit =
        std::max(series.rounding > kSingle ? kLeastMeanSingle : kLeastMean, mean) *
        (series.rounding > kSingle && feet_of(late.series, late.fit.terms, n, residual).any() ? kWalking : 1);
    const std::size_t all = series.size();
    evaluate(series, terms, all, &residual);
    double sum = 0;
    std::size_t next = 4;
    for (std::size_t k = 0; k < std::min(extension, all); ++k) {
        sum += residual[k] * residual[k] * series.weightAt(k);
        if (series.complex())
            sum += residual[all + k] * residual[all + k] * series.weightAt(k);
        if (k + 1 == next || k + 1 == extension) {
            const double count = static_cast<double>(k + 1) * width;
            if (sum / count > unit * (1 + kDeviations * std::sqrt(2 / count)))
                return false;
            next *= 2;
        }
    }
    return true;
}

} // namespace

bool stationary(const Series& series, const Terms& terms)
{
    std::vector<double> residual;
    const std::size_t n = series.size();
    const double mean = evaluate(series, terms, n, &residual).chiSquare / static_cast<double>(n);
    const std::size_t parts = std::clamp<std::size_t>(n / 64, 1, 16);
    const double most = feet_of(series, terms, n, residual).any() ? kWalking : 1;
    for (std::size_t b = 0; b < parts; ++b) {
        double sum = 0, count = 0;
        for (std::size_t k = b * n / parts; k < (b + 1) * n / parts; ++k, ++count) {
            sum += residual[k] * residual[k] * series.weightAt(k);
            if (series.complex())
                sum += residual[n + k] * residual[n + k] * series.weightAt(k);
        }
        if (sum / count > most * mean * (1 + kDeviations * std::sqrt(2 / count)))
            return false;
    }
    return true;
}

namespace {

double highest_sample(const Series& record, std::size_t first)
{
    double peak = 0;
    for (std::size_t k = first; k < record.size(); ++k)
        peak = std::max({peak, std::abs(record.re[k]), record.complex() ? std::abs(record.im[k]) : 0});
    return peak;
}

/// Fits a stage's record by block means, so few in a block that the shortest life is resolved.
void fit_decimated(const Series& record, Stage& stage, Effort effort, const Watch& watch)
{
    for (;; stage.factor = (stage.factor + 1) / 2) {
        stage.series = decimate(record, stage.first, stage.factor, stage.noise);
        stage.fit =
            fit_series(stage.series, stage.highest * static_cast<double>(stage.factor), kMostModes, effort, watch);
        if (stage.factor == 1 || stage.fit.failed || shortest_life(stage.fit.terms) > kBlocksPerLife)
            break;
    }
}

/// Length of a description of the samples by a fit, in nepers times two: -2 ln likelihood at the noise that it leaves,
/// and the chance score for each mode. Infinite if the fit leaves too few degrees of freedom to tell.
/// @par Source  J. Rissanen, Automatica 14 (1978) 465.
double description(const Stage& stage)
{
    const double rows = static_cast<double>(stage.series.size()) * (stage.series.complex() ? 2 : 1);
    const double free = freedom(stage.series, stage.fit.terms, stage.series.size());
    if (stage.fit.failed || stage.fit.stopped || !(free > kLeastFree * rows))
        return INFINITY;
    const double variance = std::max(stage.fit.chiSquare, 1e-30) / free / stage.series.weight.front();
    return rows * logarithm(variance) +
           2 * chance_score(stage.series.size()) * static_cast<double>(stage.fit.terms.size()) * rows / free;
}

/// The fit of `late`, carried to another first sample and continued there.
Stage carry(const Series& record, const Stage& late, std::size_t first, std::size_t mostModes, std::size_t mostKept,
            const Watch& watch)
{
    Stage stage;
    stage.first = first;
    stage.factor = late.factor;
    stage.highest = late.highest;
    stage.noise = extend(record, late.noise, late.first, first, watch.depth());
    stage.whitener = late.whitener;
    stage.contrast = late.contrast;
    stage.series = whiten(decimate(record, first, stage.factor, stage.noise), stage.whitener);
    const Extended shift =
        (static_cast<Extended>(late.first) - static_cast<Extended>(first)) / static_cast<Extended>(stage.factor);
    Terms terms = late.fit.terms;
    for (Term& term : terms) {
        const ExtendedComplex back = power(term, -shift - static_cast<Extended>(term.origin));
        const ExtendedComplex c = back * ExtendedComplex(term.c.real(), term.c.imag());
        term.c = Complex(static_cast<double>(c.real()), static_cast<double>(c.imag()));
        if (!(std::abs(term.c) < 1e6))
            term.c = 0;
        term.origin = 0;
    }
    stage.fit = continue_fit(stage.series, terms, mostModes, Effort::quick, watch, mostKept);
    stage.good = !stage.fit.failed && !stage.fit.stopped && explains(stage.fit);
    return stage;
}

/// Whether rounding moves the modes no more in `stage` than in the part `late` of it: what is left of a drive lies at
/// the lines too, and would pass for the feet of rounding.
bool walks_alike(const Stage& stage, const Stage& late)
{
    if (!stage.fit.walks)
        return true;
    const auto walk = [](const Stage& of) {
        std::vector<double> residual;
        const std::size_t n = of.series.size();
        evaluate(of.series, of.fit.terms, n, &residual);
        double sum = 0;
        for (const double w : feet_of(of.series, of.fit.terms, n, residual).walk)
            sum += w / of.series.weight.front();
        return sum;
    };
    return walk(stage) < kWalking * walk(late);
}

/// The fit walked back from `late` to the sample `first`; good if it stays explained by few new modes.
Stage walk_back(const Series& record, const Stage& late, std::size_t first, const Watch& watch)
{
    const double periods = static_cast<double>(late.first - first) * late.highest;
    const auto more = static_cast<std::size_t>(periods / kPeriodsPerMode);
    const std::size_t count = late.fit.terms.size();
    Stage stage = carry(record, late, first, count + more + 6, count + more, watch);
    stage.good = stage.good && stage.fit.terms.size() <= count + more &&
                 explained(stage.series, stage.fit.terms, (late.first - first) / stage.factor + 1, late) &&
                 walks_alike(stage, late);
    return stage;
}

/// The first sample that stands above what the record begins with; 0 if it begins at full size.
std::size_t onset(const Series& record)
{
    const std::size_t n = record.size();
    const auto size = [&](std::size_t k) {
        return std::max(std::abs(record.re[k]), record.complex() ? std::abs(record.im[k]) : 0);
    };
    const std::size_t head = std::max<std::size_t>(1, n / 50);
    double quiet = 0;
    for (std::size_t k = 0; k < head; ++k)
        quiet = std::max(quiet, size(k));
    for (std::size_t k = head; k < n; ++k)
        if (size(k) > kAboveSilence * quiet)
            return k;
    return 0;
}

/// Leaves out what terms of short life explain at the beginning: of a driven record where they take less than their
/// share of periods, else where they last for a sample alone.
Stage trim(const Series& record, Stage stage, bool driven, const Watch& watch)
{
    for (;;) {
        struct Life
        {
            double periods, life;
            std::size_t samples, term;
        };
        std::vector<Life> lives;
        const double sigma = 1 / std::sqrt(stage.series.weight.front());
        for (std::size_t j = 0; j < stage.fit.terms.size(); ++j) {
            const Term& term = stage.fit.terms[j];
            const double above = std::abs(term.c) / sigma;
            if (term.origin != 0 || term.decay <= 0 || above <= 1)
                continue;
            const double samples =
                logarithm(above) / static_cast<double>(term.decay) * static_cast<double>(stage.factor);
            lives.push_back({samples * stage.highest,
                             static_cast<double>(stage.factor) / static_cast<double>(term.decay),
                             static_cast<std::size_t>(samples) + 1, j});
        }
        std::sort(lives.begin(), lives.end(), [](const Life& a, const Life& b) { return a.periods < b.periods; });
        std::size_t count = 0;
        for (std::size_t j = 0; j < lives.size(); ++j)
            if (driven ? static_cast<double>(j + 1) > lives[j].periods / kPeriodsPerMode : lives[j].life < kArtefact)
                count = j + 1;
        if (count == 0 || stage.first + lives[count - 1].samples + kFewest > record.size())
            return stage;
        Stage shorter = stage;
        std::vector<char> out(stage.fit.terms.size(), 0);
        for (std::size_t j = 0; j < count; ++j)
            out[lives[j].term] = 1;
        shorter.fit.terms.clear();
        for (std::size_t j = 0; j < stage.fit.terms.size(); ++j)
            if (!out[j])
                shorter.fit.terms.push_back(stage.fit.terms[j]);
        shorter = carry(record, shorter, stage.first + lives[count - 1].samples, shorter.fit.terms.size() + 1,
                        shorter.fit.terms.size() + 1, watch);
        if (!shorter.good || shorter.fit.terms.size() >= stage.fit.terms.size() ||
            (driven && cost(shorter) > cost(stage)))
            return stage;
        stage = std::move(shorter);
    }
}

} // namespace

Stage skip_artefacts(const Series& record, Stage stage, const Watch& watch)
{
    return trim(record, std::move(stage), false, watch);
}

double cost(const Stage& stage)
{
    return static_cast<double>(stage.fit.terms.size()) +
           static_cast<double>(stage.first) * stage.highest / kPeriodsPerMode;
}

Stage fit_from(const Series& record, std::size_t first, const Options& options, double unit, Effort effort,
               const Watch& watch)
{
    Stage stage;
    stage.first = first;
    watch.tell("band", 0, 0);
    stage.highest = highest_line(record, first);
    stage.noise = measure_noise(record, first, stage.highest, watch.depth());
    if (options.noise) {
        std::fill(stage.noise.sigma.begin(), stage.noise.sigma.end(), *options.noise / unit);
        stage.noise.found = true;
    }
    stage.factor = block_factor(stage.highest, record.size() - first);
    if (stage.noise.found) {
        fit_decimated(record, stage, effort, watch);
    } else {
        // No empty band: the level for which the description is shortest.
        Stage best;
        double shortest = INFINITY;
        int worse = 0;
        const double peak = highest_sample(record, first);
        for (double level = kHighestLevel * peak; level > std::max(watch.depth(), kLowestLevel) * peak;
             level *= kLevelStep) {
            Stage trial = stage;
            std::fill(trial.noise.sigma.begin(), trial.noise.sigma.end(), level);
            fit_decimated(record, trial, effort, watch);
            const double length = description(trial);
            if (length < shortest) {
                shortest = length;
                best = std::move(trial);
                worse = 0;
            } else if (std::isfinite(shortest) && ++worse == kMostWorse) {
                break;
            }
        }
        if (std::isfinite(shortest)) {
            // the noise is what that fit leaves
            const double ratio = std::max(best.fit.reduced, 1e-30);
            for (double& sigma : best.noise.sigma)
                sigma *= std::sqrt(ratio);
            for (double& weight : best.series.weight)
                weight /= ratio;
            best.fit.chiSquare /= ratio;
            best.fit.reduced = 1;
            for (double& significance : best.fit.significance)
                significance /= ratio;
            stage = std::move(best);
        } else {
            stage.fit.failed = true;
        }
    }
    stage.good = !stage.fit.failed && !stage.fit.stopped && explains(stage.fit) && !stage.noise.bursts;
    return stage;
}

bool is_coloured(const Stage& stage)
{
    std::vector<double> residual;
    evaluate(stage.series, stage.fit.terms, stage.series.size(), &residual);
    // What rounding leaves has a spectrum of its own, as have the lines that it excites.
    const double peak = *std::max_element(stage.series.re.begin(), stage.series.re.end(),
                                          [](double a, double b) { return std::abs(a) < std::abs(b); });
    if (1 / std::sqrt(stage.series.weight.front()) < kRoundings * stage.series.rounding * std::abs(peak))
        return false;
    return !feet_of(stage.series, stage.fit.terms, stage.series.size(), residual).any() &&
           coloured(stage.series, residual, std::min(1.0, stage.fit.reduced));
}

Stage fit_coloured(const Series& record, const Stage& base, const Watch& watch)
{
    Stage best = base;
    best.good = false;
    if (base.noise.bursts)
        return best;
    const Series plain = decimate(record, base.first, base.factor, base.noise);
    const double highest = base.highest * static_cast<double>(base.factor);
    std::vector<double> residual = plain.re;
    residual.insert(residual.end(), plain.im.begin(), plain.im.end());
    std::vector<double> gains;
    for (int round = 0; round < kColourRounds; ++round) {
        Stage stage = base;
        const Colour colour = colour_of(plain, residual);
        stage.whitener = colour.whitener;
        stage.contrast = colour.contrast;
        stage.series = whiten(plain, stage.whitener);
        stage.fit = fit_series(stage.series, highest, kMostModes, Effort::thorough, watch.share(0.4));
        if (stage.fit.failed || stage.fit.stopped)
            break; // the noise that was assumed before is the least that few modes explain
        const Terms terms = through(stage.fit.terms, stage.whitener, true);
        evaluate(plain, terms, plain.size(), &residual);
        stage.good = stage.contrast < kMostContrast && explains(stage.fit) &&
                     stationary(stage.series, stage.fit.terms) && !imitates_drive(plain, terms, highest);
        best = stage;
        const double gain = stage.whitener.taps.empty() ? 0 : logarithm(std::abs(stage.whitener.taps[0]));
        // settled, or going to and fro
        if (round > 0 && (std::abs(gain - gains.back()) < kSettled ||
                          (round > 1 && std::abs(gain - gains[gains.size() - 2]) < kSettled)))
            break;
        gains.push_back(gain);
    }
    return best;
}

Stage fit_late(const Series& record, const Options& options, double unit, bool coloured_noise, const Watch& watch)
{
    watch.tell("drive", 0, 0);
    const std::size_t n = record.size();
    const std::size_t from = onset(record);
    Stage late;
    for (const double part : {0.0, 0.25, 0.5, 0.7}) {
        const auto first = from + static_cast<std::size_t>(part * static_cast<double>(n - from));
        if (first == 0 || n - first < kFewest || (part == 0 && coloured_noise))
            continue;
        late = fit_from(record, first, options, unit, part == 0 ? Effort::quick : Effort::thorough,
                        watch.share(part == 0        ? 0.1
                                    : coloured_noise ? 0.05
                                                     : 0.2));
        late.good = late.good &&
                    !imitates_drive(late.series, late.fit.terms, late.highest * static_cast<double>(late.factor)) &&
                    !is_coloured(late);
        if (!late.good && coloured_noise)
            late = fit_coloured(record, late, watch.share(0.3));
        if (late.good)
            break;
    }
    return late;
}

Stage walk_to_drive(const Series& record, Stage late, const Watch& watch)
{
    watch.tell("drive", 0, 0);
    const std::size_t from = onset(record);
    double left = 0.8;
    const double part = 0.08; // of the work, for one step
    const auto enough = std::max<std::size_t>(1, static_cast<std::size_t>(0.25 / std::max(late.highest, 1e-4)));
    // Steps halve where one fails: what a long step cannot explain, two short ones may, as modes of short life come in.
    std::size_t step = (late.first - from + 1) / 2;
    while (step >= enough && late.first > from && left > 0) {
        const Watch walk = watch.share(part);
        const std::size_t first = late.first > from + step ? late.first - step : from;
        Stage stage = walk_back(record, late, first, walk);
        left -= part * walk.spent();
        if (stage.good)
            late = std::move(stage);
        else
            step = std::min(step, late.first - from) / 2;
    }
    // A mode of short life that shows only near the drive's end is admitted by a leap alone.
    for (const double periods : {2.01, 1.01}) {
        const auto leap = static_cast<std::size_t>(periods * kPeriodsPerMode / std::max(late.highest, 1e-4));
        if (leap < late.first - from) {
            Stage stage = walk_back(record, late, late.first - leap, watch.share(part));
            if (stage.good)
                late = std::move(stage);
        }
    }
    return trim(record, std::move(late), true, watch.share(0.2));
}

} // namespace tessel::modes
