#include "modes/drive.h"
#include "modes/band.h"
#include "modes/decimation.h"
#include "modes/errors.h"
#include "modes/search.h"

#include <algorithm>
#include <cmath>

namespace tessel::modes {

namespace {

constexpr double kBlocksPerPeriod = 8;
constexpr double kDeviations = 5; // of a mean of squares above its expectation that chance explains
constexpr std::size_t kMostModes = 300;

std::size_t block_factor(double highest, std::size_t samples)
{
    const double edge = std::max(highest, 1e-3);
    return std::max<std::size_t>(
        1, std::min(static_cast<std::size_t>(1 / (kBlocksPerPeriod * edge)), samples / 64));
}

/// The noise of a late part, carried to an earlier first sample: the drive must not count as noise.
Noise extend(const Series& record, const Noise& noise, std::size_t from, std::size_t first, double depth)
{
    Noise out = noise;
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

/// Whether the first `extension` means are explained: no mean of squares from the first sample on is above that of the
/// rest by more than chance.
bool explained(const Series& series, const Terms& terms, std::size_t extension, double reduced)
{
    std::vector<double> residual;
    evaluate(series, terms, series.size(), &residual);
    const double unit = std::max(1.0, reduced);
    double sum = 0;
    std::size_t next = 4;
    for (std::size_t k = 0; k < std::min(extension, series.size()); ++k) {
        sum += residual[k] * residual[k] * series.weightAt(k);
        if (series.complex())
            sum += residual[series.size() + k] * residual[series.size() + k] * series.weightAt(k);
        if (k + 1 == next || k + 1 == extension) {
            const double count = static_cast<double>(k + 1) * (series.complex() ? 2 : 1);
            if (sum / count > unit * (1 + kDeviations * std::sqrt(2 / count)))
                return false;
            next *= 2;
        }
    }
    return true;
}

/// The fit walked back from `late` to the sample `first`; good if it stays explained by few new modes.
Stage walk_back(const Series& record, const Stage& late, std::size_t first, const Watch& watch)
{
    Stage stage;
    stage.first = first;
    stage.factor = late.factor;
    stage.highest = late.highest;
    stage.noise = extend(record, late.noise, late.first, first, watch.depth());
    stage.series = decimate(record, first, stage.factor, stage.noise);
    const auto shift = static_cast<Extended>(late.first - first) / static_cast<Extended>(stage.factor);
    Terms terms = late.fit.terms;
    for (Term& term : terms) {
        const ExtendedComplex back = power(term, -shift - static_cast<Extended>(term.origin));
        const ExtendedComplex c = back * ExtendedComplex(term.c.real(), term.c.imag());
        term.c = Complex(static_cast<double>(c.real()), static_cast<double>(c.imag()));
        if (!(std::abs(term.c) < 1e6))
            term.c = 0;
        term.origin = 0;
    }
    const double periods = static_cast<double>(late.first - first) * late.highest;
    const auto more = static_cast<std::size_t>(periods / kPeriodsPerMode);
    stage.fit = continue_fit(stage.series, terms, terms.size() + more + 6, Effort::quick, watch);
    stage.good = !stage.fit.failed && !stage.fit.stopped && stage.fit.terms.size() <= late.fit.terms.size() + more &&
                 explained(stage.series, stage.fit.terms, static_cast<std::size_t>(shift) + 1, late.fit.reduced);
    return stage;
}

} // namespace

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
    stage.series = decimate(record, first, stage.factor, stage.noise);
    stage.fit = fit_series(stage.series, stage.highest * static_cast<double>(stage.factor),
                           options.mostModes.value_or(kMostModes), effort, watch);
    stage.good = !stage.fit.failed && !stage.fit.stopped && stage.fit.reduced < 2;
    return stage;
}

Stage skip_drive(const Series& record, const Options& options, double unit, const Watch& watch)
{
    watch.tell("drive", 0, 0);
    const std::size_t n = record.size();
    Stage late;
    for (const double part : {0.25, 0.5, 0.7}) {
        late = fit_from(record, static_cast<std::size_t>(part * static_cast<double>(n)), options, unit, Effort::thorough, watch);
        if (late.good)
            break;
    }
    if (!late.good)
        return late;
    const auto enough =
        std::max<std::size_t>(1, static_cast<std::size_t>(0.25 / std::max(late.highest, 1e-4)));
    Stage whole = walk_back(record, late, 0, watch);
    if (whole.good)
        return whole;
    std::size_t bad = 0; // the earliest is not good
    while (late.first > bad + enough) {
        const std::size_t middle = bad + (late.first - bad) / 2;
        Stage stage = walk_back(record, late, middle, watch);
        if (stage.good)
            late = std::move(stage);
        else
            bad = middle;
    }
    // A mode of short life that shows only near the drive's end is admitted by a leap alone.
    for (const double periods : {2.01, 1.01}) {
        const auto leap = static_cast<std::size_t>(periods * kPeriodsPerMode / std::max(late.highest, 1e-4));
        if (leap < late.first) {
            Stage stage = walk_back(record, late, late.first - leap, watch);
            if (stage.good)
                late = std::move(stage);
        }
    }
    return late;
}

} // namespace tessel::modes
