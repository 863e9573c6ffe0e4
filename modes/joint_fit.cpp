#include "modes/joint_fit.h"
#include "modes/chance.h"
#include "modes/decimation.h"
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
constexpr int kSteps = 8;        // of refinement in a round
constexpr double kHopeless = 10; // chi^2 per degree of freedom of such a fit
constexpr Extended kSlow = 6;    // of the distance of a pole from zero, over the records
constexpr double kCancel = 30;   // sum of residues over the highest sample: terms that cancel
constexpr double kBlocksPerPeriod = 8;
constexpr double kBlocksPerLife = 2; // of a term: fewer would average it out
constexpr std::size_t kMostModes = 300;
constexpr std::size_t kFewest = 8;
constexpr double kMostNoise = 2;   // of chi^2 per degree of freedom
constexpr std::size_t kFew = 6;    // records that show the end of the drive
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

double reduced_of(const RecordSet& set, const JointModel& model, std::size_t n)
{
    return model.chiSquare / freedom(set, model.terms, n);
}

/// Refines and searches over the first n samples until the residuals ask for nothing more.
JointModel complete(const RecordSet& set, JointModel model, std::size_t n, std::size_t mostModes, JointFit& fit,
                    Effort effort, const Watch& watch)
{
    const double part = static_cast<double>(n) / static_cast<double>(set.longest());
    const double enough = JointThreshold(set, n).one;
    model = refine(set, std::move(model), n, 2 * kSteps);
    spend(watch, set, model, n);
    for (std::size_t round = 0; round < kRounds; ++round) {
        watch.tell("search", model.terms.size(), part);
        if (model.terms.size() >= mostModes) {
            fit.stopped = true;
            break;
        }
        if (watch.exhausted() || (round >= (effort == Effort::quick ? kQuickPatience : kPatience) &&
                                  reduced_of(set, model, n) > kHopeless)) {
            fit.failed = true;
            break;
        }
        const std::vector<Candidate> found = search(set, model, n, kMostARound);
        if (found.empty())
            break;
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

JointFit continue_fit(const RecordSet& set, JointModel model, std::size_t mostModes, Effort effort, const Watch& watch)
{
    const std::size_t n = set.longest();
    JointFit fit;
    model = complete(set, std::move(model), n, mostModes, fit, effort, watch);
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
    fit.failed = watch.exhausted();
    fit.stopped = fit.stopped && fit.model.terms.size() >= mostModes;
    fit.reduced = reduced_of(set, fit.model, n);
    return fit;
}

/// Whether terms of short life crowd at the beginning, or cancel there, as they do when they imitate a drive.
bool imitates_drive(const RecordSet& set, const JointModel& model, double highest)
{
    const auto n = static_cast<Extended>(set.longest());
    std::vector<double> life;
    std::vector<double> sum(set.size(), 0);
    for (std::size_t j = 0; j < model.terms.size(); ++j) {
        const Term& term = model.terms[j];
        if (term.decay <= 0 || std::abs(term.decay) + std::abs(term.angle) < kSlow / n)
            continue;
        double above = 0;
        for (std::size_t p = 0; p < set.size(); ++p) {
            above = std::max(above, std::abs(model.residues[p][j]) * std::sqrt(set.weight[p]));
            sum[p] += std::abs(model.residues[p][j]);
        }
        if (above > 1)
            life.push_back(logarithm(above) / static_cast<double>(term.decay) * highest);
    }
    std::sort(life.begin(), life.end());
    for (std::size_t j = 0; j < life.size(); ++j)
        if (static_cast<double>(j + 1) > 3 + life[j] / kPeriodsPerMode)
            return true;
    for (std::size_t p = 0; p < set.size(); ++p) {
        const Series& series = set.records[p];
        double peak = 3 / std::sqrt(set.weight[p]);
        for (std::size_t k = 0; k < std::min<std::size_t>(series.size(), 16); ++k)
            peak = std::max(peak, std::abs(series.re[k]));
        if (sum[p] > kCancel * peak)
            return true;
    }
    return false;
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
        model = complete(set, std::move(model), n, mostModes, early, effort, watch);
        if (effort == Effort::quick && imitates_drive(set, model, highest))
            early.failed = true;
        if (early.failed || early.stopped) {
            early.significance.assign(model.terms.size(), 1);
            early.model = std::move(model);
            return early;
        }
        n = 2 * n > m - m / 8 ? m : 2 * n;
    }
    return continue_fit(set, std::move(model), mostModes, effort, watch);
}

std::size_t block_factor(double highest, std::size_t samples)
{
    const double edge = std::max(highest, 1e-3);
    return std::max<std::size_t>(1, std::min(static_cast<std::size_t>(1 / (kBlocksPerPeriod * edge)), samples / 64));
}

double shortest_life(const Terms& terms)
{
    double life = INFINITY;
    for (const Term& term : terms)
        if (term.decay > 0)
            life = std::min(life, 1 / static_cast<double>(term.decay));
    return life;
}

void decimate(const RawSet& raw, JointStage& stage)
{
    stage.series.clear();
    for (std::size_t p = 0; p < raw.records.size(); ++p)
        stage.series.push_back(decimate(raw.records[p], raw.first(p, stage.from), stage.factor, stage.noise[p]));
}

bool bursts(const JointStage& stage)
{
    return std::any_of(stage.noise.begin(), stage.noise.end(), [](const Noise& noise) { return noise.bursts; });
}

bool explains(const JointStage& stage)
{
    return !stage.fit.failed && !stage.fit.stopped && stage.fit.reduced < kMostNoise && !bursts(stage);
}

/// Fits the records from an instant on, anew.
JointStage fit_from(const RawSet& raw, std::size_t from, const Options& options, Effort effort, const Watch& watch)
{
    JointStage stage;
    stage.from = from;
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
    if (effort == Effort::quick && bursts(stage)) { // a drive: nothing that follows would be taken
        stage.fit.failed = true;
        stage.fit.model.residues.resize(raw.records.size());
        decimate(raw, stage);
        return stage;
    }
    for (stage.factor = block_factor(stage.highest, samples);; stage.factor = (stage.factor + 1) / 2) {
        decimate(raw, stage);
        stage.fit = fit_set(stage.set(), stage.highest * static_cast<double>(stage.factor), kMostModes, effort, watch);
        if (stage.factor == 1 || stage.fit.failed || shortest_life(stage.fit.model.terms) > kBlocksPerLife)
            break;
    }
    stage.good = explains(stage);
    return stage;
}

/// The fit of `late`, carried to an earlier instant and continued there. The noise is that of the late part: the drive
/// must not count as noise.
JointStage carry(const RawSet& raw, const JointStage& late, std::size_t from, std::size_t mostModes, const Watch& watch)
{
    JointStage stage;
    stage.from = from;
    stage.factor = late.factor;
    stage.highest = late.highest;
    stage.noise = late.noise;
    for (std::size_t p = 0; p < stage.noise.size(); ++p) {
        Noise& noise = stage.noise[p];
        const std::size_t more = raw.first(p, late.from) - raw.first(p, from);
        if (noise.varies)
            noise.sigma.insert(noise.sigma.begin(), (more + noise.segment - 1) / noise.segment, noise.sigma.front());
    }
    decimate(raw, stage);
    const RecordSet set = stage.set();
    JointModel model;
    model.terms = late.fit.model.terms;
    model.residues.assign(set.size(), Residues(model.terms.size(), 0));
    stage.fit = continue_fit(set, std::move(model), mostModes, Effort::quick, watch);
    stage.good = explains(stage);
    return stage;
}

/// Whether the first `extension` means are explained, of all records together and of each.
bool explained(const JointStage& stage, std::size_t extension)
{
    const RecordSet set = stage.set();
    const std::size_t n = set.longest();
    const double unit = std::max(1.0, stage.fit.reduced);
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
            for (std::size_t p = 0; p < rest.noise.size(); ++p) {
                Noise& noise = rest.noise[p];
                const std::size_t gone = (raw.first(p, from) - raw.first(p, stage.from)) / noise.segment;
                noise.sigma.erase(noise.sigma.begin(), noise.sigma.begin() + static_cast<std::ptrdiff_t>(std::min(
                                                                                 gone, noise.sigma.size() - 1)));
            }
            rest.from = from;
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

/// Walks a late fit back, to `lowest` at the earliest, in steps that halve where one fails: what a long step cannot
/// explain, two short ones may, as modes of short life come in.
JointStage walk(const RawSet& raw, JointStage late, std::size_t lowest, const Watch& watch)
{
    double left = 0.8;
    const double part = 0.08; // of the work, for one step
    const auto enough = std::max<std::size_t>(1, static_cast<std::size_t>(0.25 / std::max(late.highest, 1e-4)));
    std::size_t step = late.from - lowest;
    while (step >= enough && late.from > lowest && left > 0) {
        const Watch share = watch.share(part);
        JointStage stage = walk_back(raw, late, late.from - std::min(step, late.from - lowest), share);
        left -= part * share.spent();
        if (stage.good)
            late = std::move(stage);
        else
            step = std::min(step, late.from - lowest) / 2;
    }
    // A mode of short life that shows only near the drive's end is admitted by a leap alone.
    for (const double periods : {2.01, 1.01}) {
        const auto leap = static_cast<std::size_t>(periods * kPeriodsPerMode / std::max(late.highest, 1e-4));
        if (leap < late.from - lowest) {
            JointStage stage = walk_back(raw, late, late.from - leap, watch.share(part));
            if (stage.good)
                late = std::move(stage);
        }
    }
    return late;
}

/// The walk of the few records that stand highest above their noise: as a drive ends at one instant, they show it.
JointStage walk_few(const RawSet& raw, const JointStage& late, const Watch& watch)
{
    std::vector<std::size_t> order(raw.records.size());
    std::iota(order.begin(), order.end(), 0);
    std::vector<double> height;
    for (std::size_t p = 0; p < late.series.size(); ++p) {
        double sum = 0;
        for (std::size_t k = 0; k < late.series[p].size(); ++k)
            sum += late.series[p].re[k] * late.series[p].re[k] * late.series[p].weightAt(k);
        height.push_back(sum);
    }
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return height[a] > height[b]; });
    order.resize(std::min(order.size(), kFew));
    const RawSet few = raw.some(order);
    JointStage stage = late;
    stage.noise.clear();
    for (const std::size_t p : order)
        stage.noise.push_back(late.noise[p]);
    return walk(few, carry(few, stage, late.from, late.fit.model.terms.size() + 1, watch.share(0.1)), 0, watch);
}

/// Fits what follows the drive: a fit that begins late enough is walked back.
JointStage skip_drive(const RawSet& raw, const Options& options, const Watch& watch)
{
    watch.tell("drive", 0, 0);
    JointStage late;
    const std::size_t n = raw.latest(0), latest = raw.latest(kFewest);
    for (const double part : {0.25, 0.5, 0.7}) {
        const auto from = std::min(latest, static_cast<std::size_t>(part * static_cast<double>(n)));
        if (from == 0)
            continue;
        late = fit_from(raw, from, options, Effort::thorough, watch.share(0.3));
        late.good =
            late.good && !imitates_drive(late.set(), late.fit.model, late.highest * static_cast<double>(late.factor));
        if (late.good)
            break;
    }
    if (!late.good)
        return late;
    if (raw.records.size() <= 2 * kFew) {
        late = walk(raw, std::move(late), 0, watch);
    } else {
        const JointStage few = walk_few(raw, late, watch.share(0.5));
        // The terms that came in go along.
        JointStage more = late;
        const auto width = 1 / static_cast<Extended>(late.set().longest());
        for (const Term& term : few.fit.model.terms) {
            bool known = false;
            for (const Term& own : late.fit.model.terms)
                known = known || std::hypot(own.angle - term.angle, own.decay - term.decay) < width;
            if (!known)
                more.fit.model.add(term);
        }
        JointStage stage = walk_back(raw, more, few.from, watch.share(0.3));
        late = stage.good ? std::move(stage) : walk(raw, std::move(late), few.from, watch);
    }
    late.skipped = late.from > 0;
    return trim(raw, std::move(late), watch.share(0.2));
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
    if (options.first)
        return fit_from(raw, *options.first, options, Effort::thorough, watch);
    const auto begins = [](const JointStage& stage) {
        return stage.good &&
               !imitates_drive(stage.set(), stage.fit.model, stage.highest * static_cast<double>(stage.factor));
    };
    // What many records begin with shows in a few of them.
    bool likely = true;
    if (raw.records.size() > 2 * kFew) {
        std::vector<std::size_t> spread;
        for (std::size_t k = 0; k < kFew; ++k)
            spread.push_back(k * raw.records.size() / kFew);
        likely = begins(fit_from(raw.some(spread), 0, options, Effort::quick, watch.share(0.03)));
    }
    JointStage stage;
    if (likely) {
        stage = fit_from(raw, 0, options, Effort::quick, watch.share(0.35));
        if (begins(stage))
            return stage;
    }
    JointStage late = skip_drive(raw, options, watch);
    if (late.good && (!stage.good || cost(late) < cost(stage)))
        return late;
    return likely ? stage : fit_from(raw, 0, options, Effort::thorough, watch);
}

} // namespace tessel::modes
