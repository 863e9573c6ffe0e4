#include "modes/joint_fit.h"
#include "modes/band.h"
#include "modes/chance.h"
#include "modes/colour.h"
#include "modes/decimation.h"
#include "modes/joint_rounding.h"
#include "modes/joint_search.h"
#include "modes/joint_select.h"
#include "modes/joint_start.h"

#include "common/elementary.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <set>
#include <utility>

namespace tessel::modes {

namespace {

constexpr std::size_t kRounds = 12; // of search at one length
constexpr std::size_t kMostARound = 6;
constexpr std::size_t kPatience = 6; // rounds after which a fit far from the noise is given up
constexpr std::size_t kQuickPatience = 2;
constexpr std::size_t kCrowded = 4;  // such rounds, each of which finds all that it may
constexpr int kSteps = 8;            // of refinement in a round
constexpr double kHopeless = 10;     // chi^2 per degree of freedom of such a fit
constexpr double kBlocksPerLife = 2; // of a term: fewer would average it out
constexpr std::size_t kMostModes = 300;
constexpr std::size_t kFewest = 8;
constexpr double kMostNoise = 2; // of chi^2 per degree of freedom
constexpr double kMostWalking = 10;
constexpr double kUnexplained = 1.5;
constexpr double kWalking = 2.5;      // of the mean square of noise that walks at
                                      // random, in a part of a record
constexpr double kAlike = 2;          // largest over smallest, of the quotient of two records' noise of one shape
constexpr double kMostContrast = 1e3; // of noise; above it the filter takes lines for noise
constexpr double kSettled = 0.02;     // nepers of the noise, from round to round
constexpr int kColourRounds = 6;
constexpr std::size_t kFew = 6;    // records that show whether all begin with a drive
constexpr std::size_t kScouts = 4; // that may show where it ends
constexpr std::size_t kAgree = 2;  // of them that are enough
constexpr int kWalks = 6;          // steps back, from later
constexpr double kLater = 0.1;     // of the record
constexpr double kBrief = 10;      // nepers in that part, of a term that lives briefly
constexpr double kUnlikely = 1e-4; // of a beginning that noise explains

void spend(const Watch& watch, const RecordSet& set, const JointModel& model, std::size_t n)
{
    Refined done;
    done.terms = model.terms;
    done.steps = model.steps;
    std::set<std::pair<std::size_t, std::size_t>> grids;
    for (std::size_t p = 0; p < set.size(); ++p)
        grids.emplace(set.profile[p], set.samples(p, n));
    watch.spend(done, set.total(n));
    for (std::size_t g = 1; g < grids.size(); ++g)
        watch.spend(done, 0);
}

/// chi^2 per degree of freedom, without what feet of lines explain.
double reduced_of(const RecordSet& set, const JointModel& model, std::size_t n, bool* walks = nullptr)
{
    const double reduced = model.chiSquare / freedom(set, model.terms, n);
    if (reduced < kUnexplained)
        return reduced;
    const JointFeet feet(set, model, n);
    if (walks != nullptr)
        *walks = feet.any();
    return reduced * feet.part();
}

/// Whether terms imitate a drive, as imitates_drive() of one record finds it in most of some records.
bool imitates_drive(const RecordSet& set, const JointModel& model, double highest)
{
    const std::size_t count = std::min(set.size(), kFew);
    std::size_t found = 0;
    for (std::size_t k = 0; k < count; ++k) {
        const std::size_t p = k * set.size() / count;
        found += imitates_drive(set.records[p], model.of(set, p, set.longest()), highest);
    }
    return 2 * found > count;
}

/// Refines and searches over the first n samples until the residuals ask for nothing more.
JointModel complete(const RecordSet& set, JointModel model, std::size_t n, std::size_t mostModes, double highest,
                    JointFit& fit, Effort effort, const Watch& watch)
{
    const double part = static_cast<double>(n) / static_cast<double>(set.longest());
    const double enough = JointThreshold(set, n).one;
    model = refine(set, std::move(model), n, 2 * kSteps);
    spend(watch, set, model, n);
    bool crowded = true;
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
        const bool quick = effort == Effort::quick;
        if ((round >= (quick ? kQuickPatience : kPatience) && reduced_of(set, model, n) > kHopeless) ||
            (quick && round > 0 && imitates_drive(set, model, highest))) {
            fit.failed = true;
            break;
        }
        const std::vector<Candidate> found = search(set, model, n, kMostARound);
        if (found.empty())
            break;
        crowded = crowded && found.size() == kMostARound;
        if (quick && crowded && round >= kCrowded) { // noise that is not white asks for more and more
            fit.failed = true;
            break;
        }
        JointModel next = model;
        for (const Candidate& c : found)
            next.add(c.term);
        next = refine(set, std::move(next), n, kSteps);
        spend(watch, set, next, n);
        if (!(model.chiSquare - next.chiSquare > enough))
            break;
        model = prune(set, next, n);
    }
    if (n < set.longest() && !fit.failed)
        model = thin(set, std::move(model), n, [&](const JointModel& m) {
            spend(watch, set, m, n);
            return !watch.exhausted();
        });
    return model;
}

JointFit continue_fit(const RecordSet& set, JointModel model, std::size_t mostModes, double highest, Effort effort,
                      const Watch& watch)
{
    const std::size_t n = set.longest();
    JointFit fit;
    model = complete(set, std::move(model), n, mostModes, highest, fit, effort, watch);
    fit.reduced = reduced_of(set, model, n);
    if (fit.failed || (fit.stopped && fit.reduced > 2)) {
        fit.significance.assign(model.terms.size(), 1);
        fit.model = std::move(model);
        return fit;
    }
    watch.tell("select", model.terms.size(), 1);
    model = refine(set, std::move(model), n);
    fit.model = eliminate(set, std::move(model), n, fit.significance, [&](const JointModel& m) {
        spend(watch, set, m, n);
        return !watch.exhausted();
    });
    fit.failed = fit.exhausted = watch.exhausted();
    fit.stopped = fit.stopped && fit.model.terms.size() >= mostModes;
    fit.reduced = reduced_of(set, fit.model, n, &fit.walks);
    return fit;
}

JointFit fit_set(const RecordSet& set, double highest, std::size_t mostModes, Effort effort, const Watch& watch)
{
    watch.tell("start", 0, 0);
    const Start start = start_values(set, highest);
    const std::size_t m = set.longest();
    JointFit early;
    early.model.residues.resize(set.size());
    if (start.saturated || (effort == Effort::quick && start.terms.size() > start.samplesUsed / 8)) {
        early.failed = true;
        return early;
    }
    std::size_t n = start.samples > 0 ? std::min(start.samples, m) : m;
    JointModel model = early.model;
    for (const Term& term : start.terms)
        model.add(term);
    model = prune(set, model, n);
    while (n < m) {
        model = complete(set, std::move(model), n, mostModes, highest, early, effort, watch);
        if (effort == Effort::quick && imitates_drive(set, model, highest))
            early.failed = true;
        if (early.failed || early.stopped) {
            early.significance.assign(model.terms.size(), 1);
            early.model = std::move(model);
            return early;
        }
        n = 2 * n > m - m / 8 ? m : 2 * n;
    }
    return continue_fit(set, std::move(model), mostModes, highest, effort, watch);
}

/// The decimated records of a stage, behind its filters.
void decimate(const RawSet& raw, JointStage& stage)
{
    stage.series.clear();
    for (std::size_t p = 0; p < raw.records.size(); ++p) {
        stage.series.push_back(decimate(raw.records[p], raw.first(p, stage.from), stage.factor, stage.noise[p]));
        if (!stage.whitener.empty())
            stage.series[p] = whiten(stage.series[p], stage.whitener[p]);
    }
}

bool bursts(const JointStage& stage)
{
    return std::any_of(stage.noise.begin(), stage.noise.end(), [](const Noise& noise) { return noise.bursts; });
}

bool explains(const JointStage& stage)
{
    return !stage.fit.failed && !stage.fit.stopped &&
           stage.fit.reduced < (stage.fit.walks ? kMostWalking : kMostNoise) && !bursts(stage);
}

/// Whether a stage begins with something else than modes.
bool imitates_drive(const JointStage& stage)
{
    return imitates_drive(stage.set(), stage.fit.model, stage.highest * static_cast<double>(stage.factor));
}

/// Noise that varies little is taken for constant, and noise that varies in much the same way in several records is
/// given one shape: such records share a grid.
void share_shapes(std::vector<Noise>& noise)
{
    std::vector<std::size_t> shapes;
    for (std::size_t p = 0; p < noise.size(); ++p) {
        if (!noise[p].varies)
            continue;
        std::vector<double>& own = noise[p].sigma;
        const auto [least, most] = std::minmax_element(own.begin(), own.end());
        if (*most <= kAlike * *least) {
            double sum = 0;
            for (const double sigma : own)
                sum += sigma * sigma;
            std::fill(own.begin(), own.end(), std::sqrt(sum / static_cast<double>(own.size())));
            noise[p].varies = false;
            continue;
        }
        bool shared = false;
        for (const std::size_t q : shapes) {
            const std::vector<double>& other = noise[q].sigma;
            if (shared || other.size() != own.size() || noise[q].segment != noise[p].segment)
                continue;
            double low = INFINITY, high = 0, sum = 0;
            for (std::size_t k = 0; k < own.size(); ++k) {
                const double ratio = own[k] / other[k];
                low = std::min(low, ratio);
                high = std::max(high, ratio);
                sum += ratio * ratio;
            }
            if (!(high <= kAlike * low))
                continue;
            shared = true;
            const double level = std::sqrt(sum / static_cast<double>(own.size()));
            for (std::size_t k = 0; k < own.size(); ++k)
                own[k] = level * other[k];
        }
        if (!shared)
            shapes.push_back(p);
    }
}

/// The records from an instant on, not yet fitted.
JointStage stage_from(const RawSet& raw, std::size_t from, const Options& options, const Watch& watch)
{
    JointStage stage;
    stage.from = from;
    stage.fit.model.residues.resize(raw.records.size());
    watch.tell("band", 0, 0);
    stage.highest = highest_line(raw.records, raw.firsts(from));
    std::size_t samples = 0;
    for (std::size_t p = 0; p < raw.records.size(); ++p) {
        const std::size_t first = raw.first(p, from);
        stage.noise.push_back(measure_noise(raw.records[p], first, stage.highest, watch.depth()));
        samples = std::max(samples, raw.records[p].size() - first);
        if (options.noise) {
            std::fill(stage.noise[p].sigma.begin(), stage.noise[p].sigma.end(), *options.noise / raw.unit[p]);
            stage.noise[p].found = true;
        }
    }
    share_shapes(stage.noise);
    stage.factor = block_factor(stage.highest, samples);
    decimate(raw, stage);
    return stage;
}

/// Fits the records from an instant on, anew.
JointStage fit_from(const RawSet& raw, std::size_t from, const Options& options, Effort effort, const Watch& watch)
{
    JointStage stage = stage_from(raw, from, options, watch);
    if (effort == Effort::quick && bursts(stage)) { // a drive: nothing that follows would be taken
        stage.fit.failed = true;
        return stage;
    }
    for (;; stage.factor = (stage.factor + 1) / 2, decimate(raw, stage)) {
        stage.fit = fit_set(stage.set(), stage.highest * static_cast<double>(stage.factor), kMostModes, effort, watch);
        if (stage.factor == 1 || stage.fit.failed || shortest_life(stage.fit.model.terms) > kBlocksPerLife)
            break;
    }
    stage.good = explains(stage);
    return stage;
}

/// A model of records behind filters, as one of the records before them.
JointModel through(JointModel model, const std::vector<Whitener>& whitener)
{
    for (std::size_t p = 0; p < model.residues.size(); ++p) {
        Terms terms = model.terms;
        for (std::size_t j = 0; j < terms.size(); ++j)
            terms[j].c = model.residues[p][j];
        terms = through(terms, whitener[p], true);
        for (std::size_t j = 0; j < terms.size(); ++j)
            model.residues[p][j] = terms[j].c;
    }
    return model;
}

/// A stage of one of the records.
Stage stage_of(const JointStage& joint, const RecordSet& set, std::size_t p)
{
    Stage stage;
    stage.series = set.records[p];
    stage.fit.terms = joint.fit.model.of(set, p, set.longest());
    stage.fit.reduced = joint.fit.model.chiSquares[p] / freedom(set, joint.fit.model.terms, set.longest(), p);
    return stage;
}

/// Whether the noise of a record is coloured.
bool is_coloured(const JointStage& stage)
{
    const RecordSet set = stage.set();
    for (std::size_t p = 0; p < set.size(); ++p) {
        const Stage own = stage_of(stage, set, p);
        std::vector<double> residual;
        evaluate(own.series, own.fit.terms, own.series.size(), &residual);
        if (coloured(own.series, residual, std::min(1.0, own.fit.reduced)) && is_coloured(own))
            return true;
    }
    return false;
}

/// Fits a stage's records anew, the noise of each coloured, as fit_coloured() of one record.
/// @param known  terms to begin with; none: start values of its own
JointStage fit_coloured(const RawSet& raw, JointStage base, Terms known, const Watch& watch)
{
    base.good = false;
    base.whitener.clear();
    if (bursts(base))
        return base;
    decimate(raw, base);
    const std::vector<Series> plain = base.series;
    const double highest = base.highest * static_cast<double>(base.factor);
    std::vector<std::vector<double>> residuals;
    for (const Series& series : plain) {
        residuals.push_back(series.re);
        residuals.back().insert(residuals.back().end(), series.im.begin(), series.im.end());
    }
    JointStage best = base;
    std::vector<double> gains;
    for (int round = 0; round < kColourRounds; ++round) {
        JointStage stage = base;
        double gain = 0;
        for (std::size_t p = 0; p < plain.size(); ++p) {
            const Colour colour = colour_of(plain[p], residuals[p]);
            if (!colour.whitener.taps.empty())
                gain += logarithm(std::abs(colour.whitener.taps[0])) / static_cast<double>(plain.size());
            stage.whitener.push_back(colour.whitener);
            stage.contrast = std::max(stage.contrast, colour.contrast);
        }
        decimate(raw, stage);
        const RecordSet set = stage.set();
        if (!known.empty()) {
            JointModel model;
            model.residues.resize(set.size());
            for (const Term& term : known)
                model.add(term);
            stage.fit = continue_fit(set, std::move(model), kMostModes, highest, Effort::thorough, watch.share(0.4));
        }
        if (known.empty() || stage.fit.failed)
            stage.fit = fit_set(set, highest, kMostModes, Effort::thorough, watch.share(0.4));
        known = stage.fit.model.terms;
        if (stage.fit.failed || stage.fit.stopped)
            break; // the noise that was assumed before is the least that few modes
                   // explain
        stage.good = stage.contrast < kMostContrast && explains(stage);
        const JointModel before = through(stage.fit.model, stage.whitener);
        for (std::size_t p = 0; p < plain.size(); ++p) {
            evaluate(plain[p], before.of(set, p, set.longest()), plain[p].size(), &residuals[p]);
            double sum = 0;
            for (const double r : residuals[p])
                sum += r * r;
            stage.level.push_back(std::sqrt(sum / static_cast<double>(residuals[p].size())));
            const Stage own = stage_of(stage, set, p);
            stage.good = stage.good && stationary(own.series, own.fit.terms);
        }
        const bool drive = imitates_drive(RecordSet(plain), before, highest);
        stage.good = stage.good && !drive;
        best = std::move(stage);
        if (drive)
            break;
        // settled, or going to and fro
        if (round > 0 && (std::abs(gain - gains.back()) < kSettled ||
                          (round > 1 && std::abs(gain - gains[gains.size() - 2]) < kSettled)))
            break;
        gains.push_back(gain);
    }
    return best;
}

/// The fit of `late`, carried to another instant and continued there. The noise is that of the late part: the drive
/// must not count as noise.
JointStage carry(const RawSet& raw, const JointStage& late, std::size_t from, std::size_t mostModes, const Watch& watch)
{
    JointStage stage = late;
    stage.from = from;
    for (std::size_t p = 0; p < stage.noise.size(); ++p)
        stage.noise[p] =
            extend(raw.records[p], late.noise[p], raw.first(p, late.from), raw.first(p, from), watch.depth());
    decimate(raw, stage);
    const RecordSet set = stage.set();
    JointModel model;
    model.terms = late.fit.model.terms;
    model.residues.assign(set.size(), Residues(model.terms.size(), 0));
    stage.fit = continue_fit(set, std::move(model), mostModes, INFINITY, Effort::quick, watch);
    stage.good = explains(stage);
    return stage;
}

/// Whether the first `extension` means are explained, of all records together and of each.
bool explained(const JointStage& stage, std::size_t extension)
{
    const RecordSet set = stage.set();
    const std::size_t n = set.longest();
    // noise that walks at random is largest at the ends
    const double unit = std::max(1.0, stage.fit.reduced) * (stage.fit.walks ? kWalking : 1);
    std::vector<std::vector<double>> squares;
    for (std::size_t p = 0; p < set.size(); ++p) {
        const Series& series = set.records[p];
        std::vector<double> residual, own;
        evaluate(series, stage.fit.model.of(set, p, n), series.size(), &residual);
        for (std::size_t k = 0; k < std::min(extension, series.size()); ++k) {
            double square = residual[k] * residual[k];
            if (set.complex())
                square += residual[series.size() + k] * residual[series.size() + k];
            own.push_back(square * series.weightAt(k));
        }
        squares.push_back(std::move(own));
    }
    const auto likely = [&](double sum, std::size_t count, std::size_t tests) {
        const std::size_t pairs = set.complex() ? count : (count + 1) / 2;
        return sum < 2 * unit * half_quantile(kUnlikely / static_cast<double>(tests), pairs);
    };
    for (std::size_t length = 4;; length = std::min(2 * length, extension)) {
        double all = 0;
        std::size_t total = 0;
        for (const std::vector<double>& own : squares) {
            const std::size_t count = std::min(length, own.size());
            double sum = 0;
            for (std::size_t k = 0; k < count; ++k)
                sum += own[k];
            if (count > 0 && !likely(sum, count, set.size()))
                return false;
            all += sum;
            total += count;
        }
        if (!likely(all, total, 1))
            return false;
        if (length >= extension)
            return true;
    }
}

/// The fit walked back from `late`; good if it stays explained by few new modes.
JointStage walk_back(const RawSet& raw, const JointStage& late, std::size_t from, const Watch& watch)
{
    const double periods = static_cast<double>(late.from - from) * late.highest;
    const auto more = static_cast<std::size_t>(periods / kPeriodsPerMode);
    const std::size_t count = late.fit.model.terms.size();
    JointStage stage = carry(raw, late, from, count + more + 6, watch);
    stage.good = !stage.fit.failed && !stage.fit.stopped && stage.fit.model.terms.size() <= count + more &&
                 stage.fit.reduced < 1.3 * late.fit.reduced + 0.5 &&
                 explained(stage, (late.from - from) / stage.factor + 1);
    return stage;
}

double cost(const JointStage& stage)
{
    return static_cast<double>(stage.fit.model.terms.size()) +
           static_cast<double>(stage.from) * stage.highest / kPeriodsPerMode;
}

/// Leaves out what terms of short life explain at the beginning of driven records, where they take less than their
/// share of periods.
JointStage trim(const RawSet& raw, JointStage stage, const Watch& watch)
{
    for (;;) {
        struct Life
        {
            double samples;
            std::size_t term;
        };
        const RecordSet set = stage.set();
        std::vector<Life> lives;
        for (std::size_t j = 0; j < stage.fit.model.terms.size(); ++j) {
            const Term& term = stage.fit.model.terms[j];
            double above = 0;
            for (std::size_t p = 0; p < set.size(); ++p)
                above = std::max(above, std::abs(stage.fit.model.residues[p][j]) * std::sqrt(set.weight[p]));
            if (term.decay > 0 && above > 1)
                lives.push_back(
                    {logarithm(above) / static_cast<double>(term.decay) * static_cast<double>(stage.factor), j});
        }
        std::sort(lives.begin(), lives.end(), [](const Life& a, const Life& b) { return a.samples < b.samples; });
        std::size_t most = 0;
        for (std::size_t j = 0; j < lives.size(); ++j)
            if (static_cast<double>(j + 1) > lives[j].samples * stage.highest / kPeriodsPerMode)
                most = j + 1;
        JointStage best = stage;
        for (std::size_t count = 1; count <= most; ++count) {
            const std::size_t from = stage.from + static_cast<std::size_t>(lives[count - 1].samples) + 1;
            if (from > raw.latest(kFewest))
                break;
            std::vector<char> kept(stage.fit.model.terms.size(), 1);
            for (std::size_t j = 0; j < count; ++j)
                kept[lives[j].term] = 0;
            JointStage rest = stage;
            rest.fit.model = stage.fit.model.with(kept);
            rest = carry(raw, rest, from, rest.fit.model.terms.size() + 1, watch);
            if (!rest.fit.failed && cost(rest) < cost(best))
                best = std::move(rest);
        }
        if (best.from == stage.from)
            return stage;
        best.skipped = true;
        stage = std::move(best);
    }
}

/// The records that stand highest above their noise behind an instant, best first.
std::vector<std::size_t> highest_records(const RawSet& raw, std::size_t from, double depth)
{
    std::vector<double> height;
    for (std::size_t p = 0; p < raw.records.size(); ++p) {
        const Series& series = raw.records[p];
        const std::size_t first = raw.first(p, from);
        const Noise noise = measure_noise(series, first, highest_line(series, first), depth);
        double sum = 0;
        for (std::size_t k = first; k < series.size(); ++k)
            sum += series.re[k] * series.re[k];
        const double sigma = *std::max_element(noise.sigma.begin(), noise.sigma.end());
        height.push_back(sigma > 0 ? sum / (sigma * sigma) : 0);
    }
    std::vector<std::size_t> order(raw.records.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return height[a] > height[b]; });
    return order;
}

/// What single records show: where the drive ends, and whether noise is coloured.
struct Scouts
{
    std::vector<std::size_t> ends; ///< instants, latest first
    Terms terms;                   ///< of all of them, in raw samples
    bool coloured = false;
};

Scouts send_scouts(const RawSet& raw, const Options& options, const Watch& watch)
{
    Scouts out;
    std::vector<std::size_t> order = highest_records(raw, raw.latest(0) / 2, watch.depth());
    order.resize(std::min(order.size(), kScouts));
    for (const std::size_t p : order) {
        if (out.ends.size() == kAgree)
            break;
        const Watch alone(options, raw.records[p].size(), watch.depth());
        const Stage stage = fit_stage(raw.records[p], options, raw.unit[p], alone.share(0.5));
        if (!stage.good || stage.fit.terms.empty())
            continue;
        out.ends.push_back(stage.first > 0 ? raw.offset[p] + stage.first : 0);
        out.coloured = out.coloured || stage.whitener.order() > 0;
        const auto factor = static_cast<Extended>(stage.factor);
        const auto width = 1 / static_cast<Extended>(raw.records[p].size());
        for (Term term : stage.fit.terms) {
            term.angle /= factor;
            term.decay /= factor;
            term.origin = 0;
            const bool known = std::any_of(out.terms.begin(), out.terms.end(), [&](const Term& own) {
                return std::hypot(own.angle - term.angle, own.decay - term.decay) < width;
            });
            if (!known)
                out.terms.push_back(term);
        }
    }
    std::sort(out.ends.rbegin(), out.ends.rend());
    out.ends.erase(std::unique(out.ends.begin(), out.ends.end()), out.ends.end());
    return out;
}

/// Fits the records from an instant on, from the modes of the scouts.
JointStage fit_from(const RawSet& raw, std::size_t from, const Scouts& scouts, const Options& options,
                    const Watch& watch)
{
    JointStage stage = stage_from(raw, from, options, watch);
    while (stage.factor > 1 && !(shortest_life(scouts.terms) > kBlocksPerLife * static_cast<double>(stage.factor)))
        stage.factor = (stage.factor + 1) / 2;
    decimate(raw, stage);
    for (Term term : scouts.terms) {
        term.angle *= static_cast<Extended>(stage.factor);
        term.decay *= static_cast<Extended>(stage.factor);
        stage.fit.model.add(term);
    }
    stage.fit = continue_fit(stage.set(), std::move(stage.fit.model), kMostModes, INFINITY, Effort::quick, watch);
    stage.good = explains(stage);
    return stage;
}

/// Fits the records from the instant on from which single ones are sums of modes: the latest, then the earlier ones as
/// long as the fit goes on to explain all records.
JointStage fit_behind(const RawSet& raw, Scouts scouts, const Options& options, const Watch& watch)
{
    const std::size_t latest = raw.latest(kFewest);
    const std::size_t from = std::min(scouts.ends.front(), latest);
    JointStage stage;
    if (scouts.coloured) {
        stage = fit_coloured(raw, stage_from(raw, from, options, watch), {}, watch.share(0.4));
    } else {
        // A record may hear late of a drive that others see: then what comes in beside the scouts' modes lives briefly.
        const double n = static_cast<double>(raw.latest(0) - from);
        const auto brief = [&](const Terms& terms, std::size_t factor) {
            return std::count_if(terms.begin(), terms.end(), [&](const Term& term) {
                return static_cast<double>(term.decay) * kLater * n > kBrief * static_cast<double>(factor);
            });
        };
        for (const double part : {0.0, kLater, 0.25, 0.5}) {
            if (stage.good && brief(stage.fit.model.terms, stage.factor) <= brief(scouts.terms, 1))
                break;
            const std::size_t later = std::min(from + static_cast<std::size_t>(part * n), latest);
            JointStage other = fit_from(raw, later, scouts, options, watch.share(0.2));
            // a mode that the scouts do not see may be strong elsewhere: start values of all records
            if (part > 0 && !other.good)
                other = fit_from(raw, later, options, Effort::thorough, watch.share(0.2));
            other.good = other.good && !imitates_drive(other);
            if (!stage.good || (other.good && cost(other) < cost(stage)))
                stage = std::move(other);
        }
        if (stage.good && !options.noise && is_coloured(stage)) {
            JointStage other = fit_coloured(raw, stage, stage.fit.model.terms, watch.share(0.4));
            if (other.good)
                stage = std::move(other);
        }
    }
    const auto enough = std::max<std::size_t>(1, static_cast<std::size_t>(0.25 / std::max(stage.highest, 1e-4)));
    std::size_t step = (stage.from - from) / 2;
    for (int k = 0; k < kWalks && stage.good && stage.from > from && step >= enough; ++k) {
        JointStage more = walk_back(raw, stage, stage.from - std::min(step, stage.from - from), watch.share(0.1));
        if (more.good)
            stage = std::move(more);
        else
            step /= 2;
    }
    for (const std::size_t earlier : scouts.ends)
        if (stage.good && earlier < stage.from) {
            JointStage more = walk_back(raw, stage, earlier, watch.share(0.1));
            if (!more.good)
                break;
            stage = std::move(more);
        }
    stage.skipped = stage.from > 0;
    return stage.good ? trim(raw, std::move(stage), watch.share(0.2)) : stage;
}

} // namespace

std::vector<std::size_t> RawSet::firsts(std::size_t from) const
{
    std::vector<std::size_t> out;
    for (std::size_t p = 0; p < records.size(); ++p)
        out.push_back(first(p, from));
    return out;
}

RawSet RawSet::some(const std::vector<std::size_t>& which) const
{
    RawSet out;
    for (const std::size_t p : which) {
        out.records.push_back(records[p]);
        out.offset.push_back(offset[p]);
        out.unit.push_back(unit[p]);
    }
    return out;
}

std::size_t RawSet::latest(std::size_t fewest) const
{
    std::size_t out = offset.front() + records.front().size();
    for (std::size_t p = 0; p < records.size(); ++p)
        out = std::min(out, offset[p] + records[p].size());
    return out > fewest ? out - fewest : 0;
}

JointStage fit_records(const RawSet& raw, const Options& options, const Watch& watch)
{
    const auto fit_white_or_coloured = [&](JointStage stage) {
        if (options.noise || (stage.good && !is_coloured(stage)))
            return stage;
        JointStage other = fit_coloured(raw, stage, {}, watch.share(0.5));
        return other.good ? other : stage;
    };
    if (options.first)
        return fit_white_or_coloured(fit_from(raw, *options.first, options, Effort::thorough, watch));
    const auto begins = [](const JointStage& stage) { return stage.good && !imitates_drive(stage); };
    // What many records begin with, and whether their noise is coloured, shows in a few of them.
    RawSet few = raw;
    if (raw.records.size() > 2 * kFew) {
        std::vector<std::size_t> spread;
        for (std::size_t k = 0; k < kFew; ++k)
            spread.push_back(k * raw.records.size() / kFew);
        few = raw.some(spread);
    }
    const bool many = few.records.size() < raw.records.size();
    JointStage stage;
    if (many)
        stage = fit_from(few, 0, options, Effort::quick, watch.share(0.03));
    const bool likely = !many || begins(stage);
    if (likely) {
        stage = fit_from(raw, 0, options, Effort::quick, watch.share(0.35));
        if (begins(stage))
            return fit_white_or_coloured(std::move(stage));
    }
    if (!options.noise) {
        const double part = static_cast<double>(few.records.size()) / static_cast<double>(raw.records.size());
        JointStage coloured =
            fit_coloured(few, likely && many ? stage_from(few, 0, options, watch) : stage, {}, watch.share(0.1 * part));
        if (coloured.good && many) {
            JointStage all = stage_from(raw, 0, options, watch);
            all.factor = coloured.factor;
            coloured = fit_coloured(raw, std::move(all), coloured.fit.model.terms, watch.share(0.4));
        }
        if (coloured.good)
            return coloured;
    }
    const Scouts scouts = send_scouts(raw, options, watch);
    if (!scouts.ends.empty()) {
        JointStage behind = fit_behind(raw, scouts, options, watch);
        if (behind.good && (!stage.good || cost(behind) < cost(stage)))
            return behind;
    }
    return likely && stage.good ? stage
                                : fit_white_or_coloured(fit_from(raw, 0, options, Effort::thorough, watch.share(0.3)));
}

} // namespace tessel::modes
