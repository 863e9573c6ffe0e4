#include "common/elementary.h"
#include "fields/crew.h"
#include "fields/profiles.h"
#include "fields/search.h"
#include "fields/start.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

namespace tessel::fields {

namespace {

constexpr std::size_t kMostRounds = 3; // analyses of samples
constexpr std::size_t kMostPasses = 3; // with poles of one of them
constexpr double kCertain = 5;         // standard errors beyond which a decay differs from none
constexpr double kUnexplained = 1.5;   // chi^2 per degree of freedom
constexpr double kKnownDecay = 0.5;    // relative standard error of a decay
constexpr double kResolved = 3;        // standard errors between two modes
constexpr double kPi = 3.14159265358979323846;

std::string number(double value)
{
    char text[40];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::string text_name(std::size_t n)
{
    return "poles-" + std::to_string(n);
}

/// The whole way from a field to its modes.
class Analysis
{
public:
    Analysis(Work work, const std::function<void(const Outcome&)>& begin,
             const std::function<void(const Profiles&)>& profiles)
        : work_(work), begin_(begin), profiles_(profiles)
    {}

    Outcome run()
    {
        find_start();
        for (;;) {
            if (start_.terms.empty())
                return silent();
            const Basis basis(make_span(work_.shape(), start_, work_.options.threads));
            const Pass pass = run_pass(work_, basis, start_.firstStep);
            const Poles poles = solve_poles(basis, pass.sums);
            if (!poles.settled && start_.passes + 1 < kMostPasses) {
                start_.terms = poles.terms;
                ++start_.passes;
                keep();
                continue;
            }
            const ProfileMaker maker(basis, poles);
            const std::vector<FieldMode> modes = modes_of(basis, poles, maker);
            if (drop_chance(poles, modes))
                continue;
            bool missed = false;
            if (more_modes(basis, pass, missed))
                continue;
            return finish(basis, pass, poles, maker, modes, missed);
        }
    }

private:
    void find_start()
    {
        std::optional<std::string> text;
        for (std::size_t n = 1; n <= kMostRounds * kMostPasses; ++n) {
            const std::optional<std::string> next = work_.store.text(text_name(n));
            if (!next || !from_text(*next))
                break;
            text = next;
            kept_ = n;
        }
        if (text) {
            start_ = *from_text(*text);
            return;
        }
        samples_ = choose_samples(work_, std::max<std::size_t>(1, work_.options.samples));
        if (samples_.points.empty())
            start_.remarks.push_back(
                {modes::RemarkCode::constantRecord, 0, "the samples of every point are all equal"});
        else
            start_ = analyse_samples(work_, samples_);
        keep();
    }

    void keep()
    {
        ++kept_;
        work_.together([&] {
            if (work_.team.rank() == 0)
                work_.store.keep(text_name(kept_), to_text(start_));
        });
    }

    /// Analyses the records that show what the basis lacks together with the first ones; whether that gave more modes.
    bool more_modes(const Basis& basis, const Pass& pass, bool& missed)
    {
        std::vector<std::size_t> points = find_missed(work_, basis, pass);
        points.erase(std::remove_if(points.begin(), points.end(),
                                    [&](std::size_t p) {
                                        return std::find(start_.samples.begin(), start_.samples.end(), p) !=
                                               start_.samples.end();
                                    }),
                     points.end());
        if (points.empty())
            return false;
        if (start_.rounds + 1 >= kMostRounds) {
            missed = true;
            return false;
        }
        if (samples_.points.empty())
            samples_ = read_samples(work_, start_.samples);
        const Samples more = read_samples(work_, points);
        samples_.points.insert(samples_.points.end(), more.points.begin(), more.points.end());
        samples_.records.insert(samples_.records.end(), more.records.begin(), more.records.end());
        Start next = analyse_samples(work_, samples_);
        if (next.terms.size() <= start_.terms.size() + start_.dropped)
            return false;
        next.rounds = start_.rounds + 1;
        start_ = std::move(next);
        keep();
        return true;
    }

    Outcome outcome() const
    {
        Outcome out;
        out.firstStep = start_.firstStep;
        out.referenceTime = work_.shape().start + static_cast<double>(start_.firstStep) * work_.shape().spacing;
        out.firstStepReason = start_.reason;
        out.samples = start_.samples;
        return out;
    }

    /// Nothing rings.
    Outcome silent()
    {
        Outcome out = outcome();
        out.remarks = start_.remarks;
        if (std::none_of(out.remarks.begin(), out.remarks.end(),
                         [](const modes::Remark& remark) { return remark.code == modes::RemarkCode::nothingRings; }))
            out.remarks.push_back({modes::RemarkCode::nothingRings, 0, "nothing rings in this field"});
        begin_(out);
        return out;
    }

    /// Leaves out what chance explains over the whole field; whether there was any.
    bool drop_chance(const Poles& poles, const std::vector<FieldMode>& modes)
    {
        if (start_.passes + 1 >= kMostPasses)
            return false;
        Terms kept;
        for (std::size_t j = 0; j < modes.size(); ++j)
            if (modes[j].significance >= 1)
                kept.push_back(poles.terms[j]);
        if (kept.size() == modes.size())
            return false;
        start_.dropped += modes.size() - kept.size();
        start_.terms = std::move(kept);
        ++start_.passes;
        keep();
        return true;
    }

    std::vector<FieldMode> modes_of(const Basis& basis, const Poles& poles, const ProfileMaker& maker)
    {
        const std::vector<Peak> peaks = find_peaks(basis, maker);
        std::vector<FieldMode> all;
        for (std::size_t j = 0; j < peaks.size(); ++j)
            all.push_back(mode_of(basis, poles, maker, peaks[j], j));
        return all;
    }

    Outcome finish(const Basis& basis, const Pass& pass, const Poles& poles, const ProfileMaker& maker,
                   const std::vector<FieldMode>& all, bool missed)
    {
        Outcome out = outcome();
        out.decimation = basis.grid().factor;
        const auto points = static_cast<double>(work_.shape().points());
        out.noise = std::sqrt(pass.sums.variance / (points * static_cast<double>(out.decimation))) / basis.unit();
        out.reducedChiSquare = poles.reduced;
        std::vector<std::size_t> order(all.size());
        std::iota(order.begin(), order.end(), 0);
        std::stable_sort(order.begin(), order.end(),
                         [&](std::size_t a, std::size_t b) { return all[a].frequency < all[b].frequency; });
        std::vector<modes::Remark> remarks = start_.remarks;
        select(all, order, remarks);
        for (const std::size_t j : order)
            out.modes.push_back(all[j]);
        out.remarks = tell(out, std::move(remarks), basis, missed);
        begin_(out);
        give_profiles(basis, maker, order);
        return out;
    }

    /// The blocks of this rank in batches: calls work(i, block, values) from several threads, i counting within a
    /// batch; when a batch is done, done(first block, count).
    template <class Do, class Done>
    void each_block(const Basis& basis, const Do& work, const Done& done)
    {
        const BlockLayout layout(basis);
        std::vector<std::vector<double>> values(batch());
        for (std::size_t begin = work_.firstBlock(); begin < work_.endBlock(); begin += batch()) {
            const std::size_t count = std::min(batch(), work_.endBlock() - begin);
            for (std::size_t i = 0; i < count; ++i) {
                values[i].resize(layout.size(work_.pointsOf(begin + i)));
                work_.store.get(begin + i, values[i].data(), values[i].size());
            }
            share(work_.options.threads, count, [&](std::size_t i) { work(i, begin + i, values[i].data()); });
            done(begin, count);
        }
    }
    std::size_t batch() const { return 8 * std::max(1U, work_.options.threads); }

    std::vector<Peak> find_peaks(const Basis& basis, const ProfileMaker& maker)
    {
        const std::size_t count = basis.terms().size();
        std::vector<Peak> mine(count);
        const auto raise = [](std::vector<Peak>& all, const Peak* more) {
            for (std::size_t j = 0; j < all.size(); ++j) {
                if (more[j].amplitude > all[j].amplitude) {
                    all[j].amplitude = more[j].amplitude;
                    all[j].point = more[j].point;
                }
                all[j].statistic = std::max(all[j].statistic, more[j].statistic);
            }
        };
        work_.together([&] {
            std::vector<std::vector<Peak>> found(batch());
            each_block(
                basis,
                [&](std::size_t i, std::size_t block, const double* values) {
                    found[i].assign(count, Peak());
                    maker.peaks(block * kBlock, work_.pointsOf(block), values, found[i]);
                },
                [&](std::size_t, std::size_t some) {
                    for (std::size_t i = 0; i < some; ++i)
                        raise(mine, found[i].data());
                });
        });
        const std::vector<Peak> ranks = work_.collect(mine);
        std::vector<Peak> all(count);
        for (std::size_t r = 0; r < ranks.size(); r += count)
            raise(all, &ranks[r]);
        return all;
    }

    /// What the receiver throws is thrown on all ranks: it writes together. What goes wrong before is told to all.
    void give_profiles(const Basis& basis, const ProfileMaker& maker, const std::vector<std::size_t>& terms)
    {
        bool receiving = false;
        std::string fault;
        try {
            std::vector<Profiles> made(batch());
            each_block(
                basis,
                [&](std::size_t i, std::size_t block, const double* values) {
                    made[i] = maker.profiles(block * kBlock, work_.pointsOf(block), values, terms);
                },
                [&](std::size_t, std::size_t count) {
                    receiving = true;
                    for (std::size_t i = 0; i < count; ++i)
                        profiles_(made[i]);
                    receiving = false;
                });
        } catch (const std::exception& e) {
            if (receiving)
                throw;
            fault = e.what();
        }
        if (!fault.empty())
            work_.team.agree(fault);
    }

    FieldMode mode_of(const Basis& basis, const Poles& poles, const ProfileMaker& maker, const Peak& peak,
                      std::size_t j) const
    {
        const Term& term = poles.terms[j];
        const Index at = basis.columns().parameters[j];
        const auto spacing = static_cast<Extended>(work_.shape().spacing);
        const auto span = static_cast<Extended>(basis.grid().factor * basis.grid().sums) * spacing;
        const Extended scale = std::max(1.0L, static_cast<Extended>(poles.reduced));
        const auto variance = [&](Index a, Index b) {
            return poles.covariance(at + a, at + b) * scale / (span * span);
        };
        FieldMode mode;
        mode.decay = static_cast<double>(term.decay / spacing);
        mode.frequency = static_cast<double>(term.cycles / spacing);
        const auto rounded = [](Extended v, double value) { // and what a double holds of the value
            const Extended half = 0x1p-54L * static_cast<Extended>(value);
            return static_cast<double>(std::sqrt(std::max<Extended>(0, v) + half * half));
        };
        mode.decayError = rounded(variance(0, 0), mode.decay);
        if (!term.real)
            mode.frequencyError = rounded(variance(1, 1) / (kTwoPi * kTwoPi), mode.frequency);
        const double size = std::fabs(mode.frequency);
        mode.quality = size == 0 ? 0 : mode.decay == 0 ? HUGE_VAL : kPi * size / mode.decay;
        if (size > 0 && mode.decay != 0) {
            const double df = mode.frequencyError / size, dg = mode.decayError / mode.decay;
            const auto both = static_cast<double>(variance(0, 1) / kTwoPi) / (mode.frequency * mode.decay);
            mode.qualityError = std::fabs(mode.quality) * std::sqrt(std::max(0.0, df * df + dg * dg - 2 * both));
        } else if (size > 0) {
            mode.qualityError = HUGE_VAL;
        }
        mode.kind = mode.decay < -kCertain * mode.decayError ? modes::Kind::growing
                    : term.real                              ? modes::Kind::overdamped
                                                             : modes::Kind::oscillating;
        mode.peak = peak.amplitude;
        mode.peakPoint = peak.point;
        const auto points = static_cast<double>(work_.shape().points());
        const double trials = 15 * static_cast<double>(basis.grid().sums);
        mode.significance = std::max(maker.statistic(j) / 2 / half_bound(points, rare(trials)),
                                     peak.statistic / 2 / rare(trials * points));
        return mode;
    }

    /// Those that are told of: within the band, and no more than are wanted.
    void select(const std::vector<FieldMode>& all, std::vector<std::size_t>& order,
                std::vector<modes::Remark>& remarks) const
    {
        const modes::Options& options = work_.options.modes;
        std::erase_if(order, [&](std::size_t j) {
            return (options.lowest && all[j].frequency < *options.lowest) ||
                   (options.highest && all[j].frequency > *options.highest);
        });
        if (!options.mostModes || order.size() <= *options.mostModes)
            return;
        std::stable_sort(order.begin(), order.end(),
                         [&](std::size_t a, std::size_t b) { return all[a].significance > all[b].significance; });
        order.resize(*options.mostModes);
        std::stable_sort(order.begin(), order.end(),
                         [&](std::size_t a, std::size_t b) { return all[a].frequency < all[b].frequency; });
        remarks.push_back(
            {modes::RemarkCode::searchStopped, static_cast<double>(*options.mostModes),
             "there are more modes: the " + std::to_string(*options.mostModes) + " most significant are told of"});
    }

    /// The remarks on the samples, but for those that the whole field answers anew.
    std::vector<modes::Remark> tell(const Outcome& out, std::vector<modes::Remark> remarks, const Basis& basis,
                                    bool missed) const
    {
        using modes::RemarkCode;
        std::erase_if(remarks, [](const modes::Remark& remark) {
            return remark.code == RemarkCode::recordTooShort || remark.code == RemarkCode::closeModes ||
                   remark.code == RemarkCode::growingMode || remark.code == RemarkCode::modelUnexplained;
        });
        const double span = static_cast<double>(basis.grid().factor * basis.grid().sums) * work_.shape().spacing;
        for (std::size_t j = 0; j < out.modes.size(); ++j) {
            const FieldMode& mode = out.modes[j];
            if (mode.kind == modes::Kind::growing)
                remarks.push_back({RemarkCode::growingMode, mode.frequency,
                                   "the mode at " + number(mode.frequency) + " grows: the simulation may be unstable"});
            // A decay's standard error falls with the record's length to the power 3/2.
            const double known = mode.decayError / (kKnownDecay * std::fabs(mode.decay));
            if (mode.kind == modes::Kind::oscillating && known > 1)
                remarks.push_back({RemarkCode::recordTooShort, span * exponential(logarithm(known) * 2 / 3),
                                   "the field is too short for the decay of " + number(mode.frequency)});
            if (j + 1 == out.modes.size())
                continue;
            const FieldMode& next = out.modes[j + 1];
            const double apart = next.frequency - mode.frequency, off = (next.decay - mode.decay) / (2 * kPi);
            const double error = kResolved * (mode.frequencyError + next.frequencyError);
            if (apart * apart + off * off < error * error)
                remarks.push_back({RemarkCode::closeModes, apart,
                                   "the modes at " + number(mode.frequency) + " and " + number(next.frequency) +
                                       " are closer than their errors resolve"});
        }
        if (out.reducedChiSquare > kUnexplained || missed)
            remarks.push_back({RemarkCode::modelUnexplained, out.reducedChiSquare,
                               missed ? "some points ring in more modes than were found"
                                      : "the modes do not explain the field: chi^2 per degree of freedom is " +
                                            number(out.reducedChiSquare)});
        return remarks;
    }

    Work work_;
    const std::function<void(const Outcome&)>& begin_;
    const std::function<void(const Profiles&)>& profiles_;
    Start start_;
    Samples samples_;      ///< empty where an earlier run analysed them
    std::size_t kept_ = 0; ///< texts
};

} // namespace

Outcome analyse(Source& source, Team& team, Store& store, const Options& options,
                const std::function<void(const Outcome&)>& begin, const std::function<void(const Profiles&)>& profiles)
{
    const Shape& shape = source.shape();
    if (shape.points() == 0 || shape.steps < 8)
        throw Error("a field needs at least one point and 8 steps");
    if (!(shape.spacing > 0) || !std::isfinite(shape.spacing) || !std::isfinite(shape.start))
        throw Error("the field's times are not finite, or do not rise");
    Options own = options;
    own.threads = std::max(1U, own.threads);
    const auto [first, end] = owned(shape.points(), team.rank(), team.size());
    return Analysis({source, team, store, own, first, end}, begin, profiles).run();
}

} // namespace tessel::fields
