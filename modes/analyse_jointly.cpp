#include "modes/chance.h"
#include "modes/errors.h"
#include "modes/joint_fit.h"
#include "modes/joint_rounding.h"
#include "modes/joint_select.h"
#include "modes/record.h"
#include "modes/remarks.h"

#include "common/elementary.h"

#include <Eigen/LU>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace tessel::modes {

namespace {

// Least noise, of the highest sample, as of one record.
constexpr double kDepths[] = {6e-16, 1e-9};
constexpr double kDepthsSingle[] = {2, 16}; // of the rounding
// Of the strongest mode's rounding: what is weaker may come from rounding alone and is not told of.
constexpr double kLeastSingle = 4;
constexpr double kLeastDouble = 100;
constexpr double kDouble = 0x1p-53;
// Of chi^2 per degree of freedom: where the noise is less than was assumed, what is left is the model's own rounding,
// which is not white.
constexpr double kLeastScale = 0.3;
// Significance that is required, as of one record: for each unit of chi^2 per degree of freedom above what chance
// gives; where noise was made white, or walks; and where the modes do not explain the records.
constexpr double kWhite = 1.1;
constexpr double kDoubt = 5;
constexpr double kUnwhite = 2;
constexpr double kUnexplained = 10;
constexpr double kColoured = 1.5;   // of the noise's largest over smallest density, in amplitude
constexpr double kCertain = 5;      // standard errors beyond which a decay differs from none
constexpr double kSeen = 1e-3;      // probability that chance shows any mode in any record where it is none
constexpr double kMostShared = 0.9; // of a record's modes, on which such a judgement may rest
constexpr double kStrange = 1e-4;   // probability of sharing so few
constexpr std::size_t kTells = 3;   // modes of a record of which it shares at most one: it belongs elsewhere

Series series_of(const Record& record)
{
    Series series;
    if (const auto* real = std::get_if<std::vector<double>>(&record.samples)) {
        series.re = *real;
        return series;
    }
    for (const std::complex<double>& v : std::get<std::vector<std::complex<double>>>(record.samples)) {
        series.re.push_back(v.real());
        series.im.push_back(v.imag());
    }
    return series;
}

/// The raw records that ring or may ring, and their places among those given.
struct Input
{
    RawSet raw;
    std::vector<std::size_t> place;
    double start = 0; ///< the earliest
};

Input prepare(const std::vector<Record>& records, double spacing, const Options& options, JointResult& result)
{
    if (records.empty())
        throw InputError(InputFault::tooFewSamples, 0, "there is no record");
    Input input;
    std::vector<double> starts;
    input.start = records.front().start;
    for (const Record& record : records)
        input.start = std::min(input.start, record.start);
    for (std::size_t p = 0; p < records.size(); ++p) {
        const std::string which = "record " + std::to_string(p) + ": ";
        if (records[p].samples.index() != records.front().samples.index())
            throw InputError(InputFault::option, 0, which + "some records are real and some complex");
        Series series = series_of(records[p]);
        Options own = options;
        own.first = 0;
        check(series, records[p].start, spacing, own, which);
        const double offset = std::round((records[p].start - input.start) / spacing);
        if (!(offset < 1e15))
            throw InputError(InputFault::start, 0, which + "it starts too late");
        if (options.first) {
            const auto late = static_cast<std::size_t>(offset);
            own.first = *options.first > late ? *options.first - late : 0;
            check(series, records[p].start, spacing, own, which);
        }
        JointRecord& out = result.records.emplace_back();
        out.referenceTime = records[p].start;
        if (constant(series)) {
            out.constant = true;
            const double value = series.complex() ? std::hypot(series.re[0], series.im[0]) : series.re[0];
            result.remarks.push_back({RemarkCode::constantRecord, value, which + "all samples are equal"});
            continue;
        }
        input.raw.unit.push_back(std::ldexp(1.0, normalise(series)));
        series.rounding = rounding_of(series);
        input.raw.records.push_back(std::move(series));
        input.raw.offset.push_back(static_cast<std::size_t>(offset));
        input.place.push_back(p);
    }
    return input;
}

/// Probability of at most this many of `count` chances of a probability each.
double at_most(std::size_t most, std::size_t count, double probability)
{
    double term = 1, sum = 0; // C(count, k) probability^k (1 - probability)^(count - k)
    for (std::size_t k = 0; k < count; ++k)
        term *= 1 - probability;
    for (std::size_t k = 0; k <= most && k <= count; ++k) {
        sum += term;
        term *= static_cast<double>(count - k) / static_cast<double>(k + 1) * probability / (1 - probability);
    }
    return sum;
}

/// A record that shares no poles with the others: records and modes as a graph, with a line where the mode is seen in
/// the record. More than one component, a record with modes of its own alone, or one that shares far fewer of them than
/// the others do. The fit itself takes the poles of all.
void tell_strangers(const std::vector<std::vector<char>>& seen, const Input& input, JointResult& result)
{
    const std::size_t count = seen.size();
    if (count < 2)
        return;
    const std::size_t modes = seen.front().size();
    std::vector<std::size_t> group(count), own(count, 0), shared(count, 0);
    std::iota(group.begin(), group.end(), 0);
    std::size_t allOwn = 0, allShared = 0;
    for (std::size_t p = 0; p < count; ++p)
        for (std::size_t j = 0; j < modes; ++j) {
            bool others = false;
            for (std::size_t q = 0; q < count && seen[p][j]; ++q)
                if (q != p && seen[q][j]) {
                    others = true;
                    std::replace(group.begin(), group.end(), std::size_t(group[p]), group[q]);
                }
            own[p] += seen[p][j] != 0;
            shared[p] += others;
        }
    std::vector<std::size_t> members(count, 0);
    for (std::size_t p = 0; p < count; ++p) {
        ++members[group[p]];
        allOwn += own[p];
        allShared += shared[p];
    }
    const auto main = static_cast<std::size_t>(std::max_element(members.begin(), members.end()) - members.begin());
    for (std::size_t p = 0; p < count; ++p) {
        if (own[p] == 0)
            continue;
        // what the others share of their modes
        const double usual =
            allOwn > own[p] ? static_cast<double>(allShared - shared[p]) / static_cast<double>(allOwn - own[p]) : 0;
        const bool few =
            (own[p] >= kTells && shared[p] <= 1) || at_most(shared[p], own[p], std::min(usual, kMostShared)) < kStrange;
        if (group[p] == main && !few)
            continue;
        result.remarks.push_back({RemarkCode::recordsDiffer, static_cast<double>(input.place[p]),
                                  "record " + std::to_string(input.place[p]) + " shares " +
                                      (shared[p] == 0 ? "no" : "few") +
                                      " modes with the others: it may not belong to them"});
    }
}

void fill(JointMode& out, const Mode& mode)
{
    out.frequency = mode.frequency;
    out.decay = mode.decay;
    out.quality = mode.quality;
    out.frequencyError = mode.frequencyError;
    out.decayError = mode.decayError;
    out.qualityError = mode.qualityError;
}

/// The modes of a fit, and what each is in each record.
void tell_modes(const Input& input, const JointStage& stage, double spacing, const Options& options,
                JointResult& result)
{
    const RecordSet set = stage.set();
    const std::size_t n = set.longest(), count = stage.fit.model.terms.size();
    const Projection projection = project(set, stage.fit.model, n);
    const JointCovariance covariance(projection, set);
    const double span = static_cast<double>(n * stage.factor) * spacing;
    // single precision leaves more than the model's own rounding
    const bool single = std::all_of(input.raw.records.begin(), input.raw.records.end(),
                                    [](const Series& series) { return series.rounding > kDouble; });
    const double least = options.noise || single ? 0 : kLeastScale;
    const double reduced = std::max(stage.fit.reduced, least);
    const double excess = std::max(1.0, stage.fit.reduced);
    const JointFeet feet(set, stage.fit.model, n);

    std::vector<std::vector<Mode>> all(set.size());
    std::vector<double> strongest(set.size(), 0);
    const Extended line =
        2.0L * half_quantile(kSeen / static_cast<double>(std::max<std::size_t>(1, count * set.size())), 1);
    std::vector<std::vector<char>> shows(set.size()); // each mode in each record, above chance
    const auto highest = [&](const Mode& mode) {
        return mode.amplitude * exponential(std::clamp(-mode.decay * span, 0.0, 300.0));
    };
    for (std::size_t p = 0; p < set.size(); ++p) {
        const Terms terms = projection.model.of(set, p, n);
        for (std::size_t j = 0; j < count; ++j) {
            const double scale = feet.any() ? std::max(excess * feet.scale(p, j), least) : reduced;
            const double ofPole = feet.any() ? std::max(excess * feet.scale(j), least) : reduced;
            const ExtendedMatrix block = covariance.block(j, p, scale, ofPole);
            all[p].push_back(mode_of(terms[j], block, stage.factor,
                                     stage.whitener.empty() ? Whitener() : stage.whitener[p], spacing, 1));
            const int linear = linearCount(terms[j]);
            ExtendedVector c(linear);
            c[0] = static_cast<Extended>(terms[j].c.real());
            if (linear == 2)
                c[1] = static_cast<Extended>(terms[j].c.imag());
            const ExtendedMatrix own = block.topLeftCorner(linear, linear);
            shows[p].push_back(c.dot(own.inverse() * c) > line * static_cast<Extended>(std::max(1.0, 1 / scale)));
            strongest[p] = std::max(strongest[p], highest(all[p][j]));
        }
    }
    double required = stage.good ? 1 + kDoubt * std::max(0.0, stage.fit.reduced - kWhite) : kUnexplained;
    if (stage.good && (!stage.whitener.empty() || feet.any()))
        required = std::max(required, kUnwhite);
    std::vector<std::vector<char>> seen(set.size());
    double background = 0;
    for (std::size_t j = 0; j < count; ++j) {
        bool shown = false; // above what rounding leaves
        double offset = 0;
        for (std::size_t p = 0; p < set.size(); ++p) {
            const double rounding = input.raw.records[p].rounding;
            shown = shown ||
                    highest(all[p][j]) >= rounding * (rounding > kDouble ? kLeastSingle : kLeastDouble) * strongest[p];
            offset = std::max(offset, all[p][j].amplitude * input.raw.unit[p]);
        }
        if (!shown || stage.fit.significance[j] < required)
            continue;
        JointMode mode;
        fill(mode, all.front()[j]);
        mode.significance = stage.fit.significance[j];
        if (stage.fit.model.terms[j].kind != Term::Kind::oscillating)
            mode.kind = Kind::overdamped;
        if (mode.decay < -kCertain * mode.decayError)
            mode.kind = Kind::growing;
        // What neither turns nor decays within the records is an offset or a drift.
        const double decay = std::abs(mode.decay);
        if (std::abs(mode.frequency) * span < 0.5 && (decay * span < 1 || decay < kCertain * mode.decayError)) {
            background = std::max(background, offset);
            continue;
        }
        if ((options.lowest && mode.frequency < *options.lowest) ||
            (options.highest && mode.frequency > *options.highest))
            continue;
        mode.residues.resize(result.records.size());
        for (Residue& residue : mode.residues)
            residue.phaseError = static_cast<double>(INFINITY); // of a constant record
        for (std::size_t p = 0; p < set.size(); ++p) {
            const double unit = input.raw.unit[p];
            mode.residues[input.place[p]] = {all[p][j].amplitude * unit, all[p][j].phase,
                                             all[p][j].amplitudeError * unit, all[p][j].phaseError};
            seen[p].push_back(shows[p][j]);
        }
        result.modes.push_back(std::move(mode));
    }
    if (options.mostModes && result.modes.size() > *options.mostModes) {
        std::stable_sort(result.modes.begin(), result.modes.end(),
                         [](const JointMode& a, const JointMode& b) { return a.significance > b.significance; });
        result.modes.resize(*options.mostModes);
        result.remarks.push_back(
            {RemarkCode::searchStopped, static_cast<double>(*options.mostModes),
             "there are more modes: the " + std::to_string(*options.mostModes) + " most significant are told of"});
    }
    std::sort(result.modes.begin(), result.modes.end(),
              [](const JointMode& a, const JointMode& b) { return a.frequency < b.frequency; });
    tell_strangers(seen, input, result);
    if (background > 0)
        result.remarks.push_back(
            {RemarkCode::background, background, "an offset or a slow drift was fitted beside the modes"});
}

/// The remarks of a single record's result, about all of them.
void add_common_remarks(const Input& input, const JointStage& joint, double spacing, double peak, JointResult& result)
{
    Result single;
    for (const JointMode& mode : result.modes) {
        Mode& own = single.modes.emplace_back();
        own.frequency = mode.frequency;
        own.decay = mode.decay;
        own.frequencyError = mode.frequencyError;
        own.decayError = mode.decayError;
        own.kind = mode.kind;
    }
    single.reducedChiSquare = result.reducedChiSquare;
    single.lowest = result.lowest;
    single.highest = result.highest;
    Stage stage;
    stage.first = joint.from;
    stage.factor = joint.factor;
    stage.highest = joint.highest;
    stage.skipped = joint.skipped;
    stage.fit.terms = joint.fit.model.terms;
    stage.fit.failed = joint.fit.failed;
    stage.fit.exhausted = joint.fit.exhausted;
    stage.fit.stopped = joint.fit.stopped;
    stage.noise.found = true;
    for (std::size_t p = 0; p < joint.noise.size(); ++p)
        if (!joint.noise[p].found) {
            stage.noise.found = false;
            single.noise = result.records[input.place[p]].noise;
        }
    for (const Series& series : joint.series)
        stage.series.re.resize(std::max(stage.series.re.size(), series.size()));
    if (joint.series.front().complex())
        stage.series.im.resize(stage.series.re.size());
    add_remarks(single, stage, input.start, spacing, peak);
    result.remarks.insert(result.remarks.end(), single.remarks.begin(), single.remarks.end());
}

} // namespace

Result JointResult::of(std::size_t record) const
{
    const JointRecord& own = records[record];
    Result part;
    for (const JointMode& m : modes) {
        const Residue& r = m.residues[record];
        part.modes.push_back({m.frequency, m.decay, m.quality, r.amplitude, r.phase, m.frequencyError, m.decayError,
                              m.qualityError, r.amplitudeError, r.phaseError, m.significance, m.kind});
    }
    part.referenceTime = own.referenceTime;
    part.firstSample = own.firstSample;
    part.firstSampleReason = firstSampleReason;
    part.decimation = decimation;
    part.noise = own.noise;
    part.reducedChiSquare = own.reducedChiSquare;
    part.lowest = lowest;
    part.highest = highest;
    for (const Remark& remark : remarks)
        if (remark.code == RemarkCode::constantRecord  ? own.constant
            : remark.code == RemarkCode::recordsDiffer ? remark.value == static_cast<double>(record)
                                                       : true)
            part.remarks.push_back(remark);
    return part;
}

JointResult analyseJointly(const std::vector<Record>& records, double spacing, const Options& options)
{
    JointResult result;
    const Input input = prepare(records, spacing, options, result);
    if (input.raw.records.empty()) {
        result.remarks.push_back({RemarkCode::nothingRings, 0, "nothing rings in these records"});
        return result;
    }
    std::size_t samples = 0;
    for (const Series& series : input.raw.records)
        samples += series.size();
    JointStage stage;
    double rounding = INFINITY;
    for (const Series& series : input.raw.records)
        rounding = std::min(rounding, series.rounding);
    const bool single = rounding > kDouble;
    for (const std::size_t k : {0U, 1U}) {
        const double depth = single ? kDepthsSingle[k] * rounding : kDepths[k];
        double least = INFINITY;
        for (const Noise& noise : stage.noise)
            least = std::min(least, noise.sigma.front());
        if (k > 0 && least > depth)
            continue;
        stage = fit_records(input.raw, options, Watch(options, samples, depth));
        if (stage.good)
            break;
    }
    const bool complex = input.raw.records.front().complex();
    double peak = 0;
    result.decimation = stage.factor;
    result.reducedChiSquare = stage.fit.reduced;
    result.lowest = options.lowest.value_or(complex ? -stage.highest / spacing : 0);
    result.highest = options.highest.value_or(stage.highest / spacing);
    if (options.first)
        result.firstSampleReason = FirstSampleReason::given;
    else if (stage.from > 0)
        result.firstSampleReason = FirstSampleReason::driveSkipped;
    const RecordSet set = stage.set();
    for (std::size_t p = 0; p < input.place.size(); ++p) {
        JointRecord& out = result.records[input.place[p]];
        out.firstSample = input.raw.first(p, stage.from);
        out.referenceTime += static_cast<double>(out.firstSample) * spacing;
        out.noise = (stage.whitener.empty() ? stage.noise[p].sigma.front() : stage.level[p]) * input.raw.unit[p];
        if (p < stage.fit.model.chiSquares.size())
            out.reducedChiSquare =
                stage.fit.model.chiSquares[p] / freedom(set, stage.fit.model.terms, set.longest(), p);
        peak = std::max(peak, input.raw.unit[p]);
    }
    if (!stage.fit.failed)
        tell_modes(input, stage, spacing, options, result);
    if (!stage.whitener.empty() && stage.contrast > kColoured)
        result.remarks.push_back({RemarkCode::colouredNoise, stage.contrast,
                                  "the noise is not white: each record's was weighted by its spectrum"});
    add_common_remarks(input, stage, spacing, peak, result);
    return result;
}

} // namespace tessel::modes
