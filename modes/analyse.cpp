#include "modes/decimation.h"
#include "modes/drive.h"
#include "modes/errors.h"
#include "modes/modes.h"
#include "modes/record.h"
#include "modes/remarks.h"
#include "modes/rounding.h"
#include "modes/select.h"

#include "common/elementary.h"

#include <algorithm>
#include <cmath>

namespace tessel::modes {

InputError::~InputError() = default;
Stopped::~Stopped() = default;

namespace {

// Least noise, of the highest sample: what double precision keeps; rounding that a simulation has accumulated; tails
// that are no sum of modes. The first that can be explained is taken.
constexpr double kDepths[] = {6e-16, 1e-9};
// The same in single precision, of its rounding. The steps of a simulation round too: what they leave lies above the
// noise between lines, and excites every mode of a grid.
constexpr double kDepthsSingle[] = {2, 16};
// Of the strongest mode's rounding: what is weaker may come from rounding alone and is not told of. Nor is what is
// weaker than the rounding of the record's largest sample.
constexpr double kLeastSingle = 4;
constexpr double kLeastDouble = 100;
constexpr double kDouble = 0x1p-53;
constexpr double kLives = 2; // of a term: where it is seen
constexpr std::size_t kLeastLocal = 16;
constexpr double kChance = 2; // standard deviations
constexpr double kPi = 3.14159265358979323846;
constexpr double kWhite = 1.1;      // chi^2 per degree of freedom that chance gives
constexpr double kDoubt = 5;        // of the significance that is required, for each unit above
constexpr double kUnwhite = 2;      // significance that is required where the noise was made white, or walks
constexpr double kUnexplained = 10; // and where the modes do not explain the record
constexpr double kColoured = 1.5;   // of the noise's largest over smallest density, in amplitude
constexpr double kShort = 16;       // nepers over the record: a short life
constexpr double kHalfKnown = 0.5;  // standard error of such a mode's amplitude, over the amplitude
constexpr double kCertain = 5;      // standard errors beyond which a decay differs from none

} // namespace

Stage fit_stage(const Series& record, const Options& options, double unit, const Watch& watch)
{
    Stage stage = fit_from(record, options.first.value_or(0), options, unit,
                           options.first ? Effort::thorough : Effort::quick, watch.share(options.first ? 1 : 0.3));
    const bool begins =
        stage.good && (options.first || !imitates_drive(stage.series, stage.fit.terms,
                                                        stage.highest * static_cast<double>(stage.factor)));
    if (options.noise ? false : begins ? is_coloured(stage) : options.first.has_value()) {
        Stage other = fit_coloured(record, stage, watch.share(0.5));
        if (other.good)
            stage = std::move(other);
    } else if (!begins) {
        // A drive before white noise, coloured noise, or both.
        Stage late = fit_late(record, options, unit, false, watch.share(0.5));
        if (!late.good) {
            if (!stage.good && !stage.fit.exhausted) { // more modes than a quick look admits
                Stage whole = fit_from(record, 0, options, unit, Effort::thorough, watch.share(0.4));
                if (whole.good &&
                    !imitates_drive(whole.series, whole.fit.terms, whole.highest * static_cast<double>(whole.factor)) &&
                    !is_coloured(whole))
                    return whole;
            }
            Stage other;
            if (!options.noise)
                other = fit_coloured(record, stage, watch.share(0.5));
            if (other.good)
                return other;
            late = fit_late(record, options, unit, !options.noise, watch.share(0.6));
        }
        if (late.good)
            late = walk_to_drive(record, std::move(late), watch);
        if (late.good && (!stage.good || cancel(stage.series, stage.fit.terms) || cost(late) < cost(stage))) {
            stage = std::move(late);
            stage.skipped = stage.first > 0;
        }
    }
    if (stage.good && !options.first)
        stage = skip_artefacts(record, std::move(stage), watch.share(0.2));
    return stage;
}

namespace {

/// Variance of the noise at each term over that of the weights.
std::vector<double> noise_scale(const Stage& stage)
{
    std::vector<double> residual;
    evaluate(stage.series, stage.fit.terms, stage.series.size(), &residual);
    const Feet feet = feet_of(stage.series, stage.fit.terms, stage.series.size(), residual);
    std::vector<double> scale;
    const std::size_t n = stage.series.size();
    const double near = kPi / static_cast<double>(n);
    for (std::size_t j = 0; j < stage.fit.terms.size(); ++j) {
        if (!feet.any()) {
            scale.push_back(stage.fit.reduced);
            continue;
        }
        // a foot of one line alone is lost in the noise long before it widens the line's bars
        const double more = std::max(0.0, feet.common - feet.walk[j]) / (near * near);
        scale.push_back(std::max(1.0, stage.fit.reduced) * (feet.level + feet.foot(feet.angles[j], n) + more));
    }
    return scale;
}

/// Mean square of what the fit leaves where each term lives, over that of the noise, as far as chance does not explain
/// it: noise may vary within the record.
std::vector<double> local_noise(const Stage& stage)
{
    const Series& series = stage.series;
    const std::size_t n = series.size(), width = series.complex() ? 2 : 1;
    // where amplitudes walk, what they leave belongs to the noise that the significance knows
    const double usual = stage.fit.walks ? std::max(1.0, stage.fit.chiSquare / freedom(series, stage.fit.terms, n)) : 1;
    std::vector<double> residual, out;
    evaluate(series, stage.fit.terms, n, &residual);
    for (const Term& term : stage.fit.terms) {
        const double life = 1 / std::max(1e-12, static_cast<double>(std::abs(term.decay)));
        const std::size_t count = std::min(n, std::max(kLeastLocal, static_cast<std::size_t>(kLives * life) + 1));
        double sum = 0;
        for (std::size_t k = 0; k < count; ++k) {
            const std::size_t at = term.origin == 0 ? k : n - 1 - k;
            for (std::size_t part = 0; part < width; ++part)
                sum += residual[part * n + at] * residual[part * n + at] * series.weightAt(at);
        }
        const auto values = static_cast<double>(count * width);
        out.push_back(std::max(1.0, sum / values / usual - kChance * std::sqrt(2 / values)));
    }
    return out;
}

/// Adds the modes that a fit tells of, and the offset or drift beside them.
void tell_modes(Result& result, const Stage& stage, std::size_t nuisance, const Options& options, double spacing,
                double unit, double rounding)
{
    const Fit& fit = stage.fit;
    const double span = static_cast<double>(stage.series.size() * stage.factor) * spacing;
    const std::vector<Mode> modes =
        modes_of(stage.series, fit.terms, stage.factor, stage.whitener, spacing, noise_scale(stage));
    const auto highest_amplitude = [&](const Mode& mode) {
        return mode.amplitude * exponential(std::clamp(-mode.decay * span, 0.0, 300.0));
    };
    double strongest = 0;
    for (const Mode& mode : modes)
        strongest = std::max(strongest, highest_amplitude(mode));
    const double least = rounding * (rounding > kDouble ? kLeastSingle : kLeastDouble);
    // Where the noise is known less well, a mode must stand further above it.
    double required = stage.good ? 1 + kDoubt * std::max(0.0, fit.reduced - kWhite) : kUnexplained;
    if (stage.good && (stage.whitener.order() > 0 || fit.walks))
        required = std::max(required, kUnwhite);
    const std::vector<double> local = local_noise(stage);
    double background = 0;
    bool slow = false;
    for (std::size_t j = 0; j + nuisance < modes.size(); ++j) {
        Mode mode = modes[j];
        if (highest_amplitude(mode) < std::max(least * strongest, kDouble) || fit.significance[j] < required * local[j])
            continue;
        // a crowd of short lives, each of which takes the others' part, and none of which is known
        if (static_cast<double>(fit.terms[j].decay) * static_cast<double>(stage.series.size()) > kShort &&
            mode.amplitudeError > kHalfKnown * mode.amplitude)
            continue;
        mode.amplitude *= unit;
        mode.amplitudeError *= unit;
        mode.significance = fit.significance[j];
        if (fit.terms[j].kind != Term::Kind::oscillating)
            mode.kind = Kind::overdamped;
        if (mode.decay < -kCertain * mode.decayError)
            mode.kind = Kind::growing;
        // What neither turns nor decays within the record is an offset or a drift; its terms may cancel.
        const double decay = std::abs(mode.decay);
        if (std::abs(mode.frequency) * span < 0.5 && (decay * span < 1 || decay < kCertain * mode.decayError)) {
            background += mode.amplitude * sine_cosine(mode.phase).cosine;
            slow = true;
            continue;
        }
        if ((options.lowest && mode.frequency < *options.lowest) ||
            (options.highest && mode.frequency > *options.highest))
            continue;
        result.modes.push_back(mode);
    }
    if (slow)
        remark(result, RemarkCode::background, std::abs(background),
               "an offset or a slow drift was fitted beside the modes");
    if (options.mostModes && result.modes.size() > *options.mostModes) {
        std::stable_sort(result.modes.begin(), result.modes.end(),
                         [](const Mode& a, const Mode& b) { return a.significance > b.significance; });
        result.modes.resize(*options.mostModes);
        remark(result, RemarkCode::searchStopped, static_cast<double>(*options.mostModes),
               "there are more modes: the " + std::to_string(*options.mostModes) + " most significant are told of");
    }
    std::sort(result.modes.begin(), result.modes.end(),
              [](const Mode& a, const Mode& b) { return a.frequency < b.frequency; });
}

/// Standard deviation of the noise at the first sample used: of a sample, of a mean of samples if the noise is
/// coloured.
double noise_of(const Series& record, const Stage& stage)
{
    if (stage.whitener.order() == 0)
        return stage.noise.sigma.front();
    std::vector<double> residual;
    const Series plain = decimate(record, stage.first, stage.factor, stage.noise);
    evaluate(plain, through(stage.fit.terms, stage.whitener, true), plain.size(), &residual);
    double sum = 0;
    for (const double r : residual)
        sum += r * r;
    return std::sqrt(sum / static_cast<double>(residual.size()));
}

Result run(Series record, double start, double spacing, const Options& options)
{
    check(record, start, spacing, options);
    Result result;
    if (constant(record)) {
        result.referenceTime = start;
        const double value = record.complex() ? std::hypot(record.re[0], record.im[0]) : record.re[0];
        remark(result, RemarkCode::constantRecord, value, "all samples are equal");
        remark(result, RemarkCode::nothingRings, std::abs(value), "nothing rings in this record");
        return result;
    }
    const double unit = std::ldexp(1.0, normalise(record));
    record.rounding = rounding_of(record);
    Stage stage;
    const bool single = record.rounding > kDouble;
    const double rounding = record.rounding;
    const double depths[] = {single ? kDepthsSingle[0] * rounding : kDepths[0],
                             single ? kDepthsSingle[1] * rounding : kDepths[1]};
    for (const double depth : depths) {
        const bool first = depth == depths[0];
        if (!first && stage.noise.sigma.front() > depth)
            continue;
        const Watch watch(options, record.size(), depth);
        stage = fit_stage(record, options, unit, watch.share(first ? 1 : 0.5));
        if (stage.good)
            break;
    }
    Fit& fit = stage.fit;
    std::size_t nuisance = 0;
    if (stage.good && !fit.walks && !fit.terms.empty())
        nuisance = add_nuisance(stage.series, fit, Watch(options, stage.series.size(), kDepths[0]).share(0.2));
    result.firstSample = stage.first;
    if (options.first)
        result.firstSampleReason = FirstSampleReason::given;
    else if (stage.first > 0)
        result.firstSampleReason = FirstSampleReason::driveSkipped;
    result.referenceTime = start + static_cast<double>(stage.first) * spacing;
    result.decimation = stage.factor;
    result.noise = noise_of(record, stage) * unit;
    if (fit.failed) // nothing is told of a fit that was given up
        fit.reduced = std::max(fit.reduced, solve_residues(stage.series, fit.terms, stage.series.size()).chiSquare /
                                                freedom(stage.series, fit.terms, stage.series.size()));
    else
        tell_modes(result, stage, nuisance, options, spacing, unit, record.rounding);
    result.reducedChiSquare = fit.reduced;
    result.highest = options.highest.value_or(std::max(stage.highest / spacing, options.lowest.value_or(0)));
    result.lowest =
        options.lowest.value_or(record.complex() ? -stage.highest / spacing : std::min(0.0, result.highest));
    if (stage.whitener.order() > 0 && stage.contrast > kColoured)
        remark(result, RemarkCode::colouredNoise, stage.contrast,
               "the noise is not white: it was weighted by its spectrum");
    double peak = 0;
    for (std::size_t k = 0; k < record.size(); ++k)
        peak = std::max(peak, record.complex() ? std::hypot(record.re[k], record.im[k]) : std::abs(record.re[k]));
    add_remarks(result, stage, start, spacing, peak * unit);
    return result;
}

} // namespace

Result analyse(const std::vector<double>& samples, double start, double spacing, const Options& options)
{
    Series record;
    record.re = samples;
    return run(std::move(record), start, spacing, options);
}

Result analyse(const std::vector<std::complex<double>>& samples, double start, double spacing, const Options& options)
{
    Series record;
    for (const std::complex<double>& v : samples) {
        record.re.push_back(v.real());
        record.im.push_back(v.imag());
    }
    return run(std::move(record), start, spacing, options);
}

} // namespace tessel::modes
