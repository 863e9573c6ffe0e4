/// @file
/// The whole fit of a series that no drive reaches: start values, refinement over growing parts, search, selection.
#ifndef TESSEL_MODES_FIT_H
#define TESSEL_MODES_FIT_H

#include "modes/modes.h"
#include "modes/select.h"

#include <algorithm>
#include <limits>

namespace tessel::modes {

/// A model of a series.
struct Fit
{
    Terms terms;
    double chiSquare = 0;
    std::vector<double> significance; ///< of each term
    bool stopped = false;             ///< at the limit of modes
    bool exhausted = false;           ///< at the limit of work
    bool failed = false;              ///< given up: this is no sum of few exponentials and noise
    double reduced = 0;               ///< chi^2 per degree of freedom
    bool walks = false;               ///< the lines stand on feet that rounding explains
};

/// How early a fit is given up.
enum class Effort
{
    quick,    ///< another way is left: a record that may begin with a drive
    thorough, ///< none is
};

/// Tells the caller where the work stands; throws Stopped if the answer is false. Keeps account of the work.
class Watch
{
public:
    /// @param samples  of the record: the work that is allowed grows with it
    /// @param depth    least noise that is assumed, of the highest sample nearby
    Watch(const Options& options, std::size_t samples, double depth)
        : options_(options),
          depth_(depth),
          full_(kWork * std::max(1.0, static_cast<double>(samples) / 16000)),
          left_(full_)
    {}
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
    /// For a part of the work: an account of its own, of this share, that counts for this one's, too.
    Watch share(double part) const { return Watch(*this, part); }
    /// Counts a refinement: an estimate of its operations, so that the limit does not depend on the machine.
    void spend(const Refined& refined, std::size_t n) const
    {
        const auto k = static_cast<double>(refined.terms.size());
        const double work = (refined.steps + 1) * (20 * k * static_cast<double>(n) + 5000 * k * k + 40 * k * k * k);
        for (const Watch* watch = this; watch != nullptr; watch = watch->whole_)
            watch->left_ -= work;
    }
    /// Counts other work, in operations.
    void spend(double work) const
    {
        for (const Watch* watch = this; watch != nullptr; watch = watch->whole_)
            watch->left_ -= work;
    }
    /// Part of the work that is done, of what is allowed.
    double spent() const { return 1 - left_ / full_; }
    double depth() const { return depth_; }
    /// Whether the work that is allowed is done, here or in what this is a share of.
    bool exhausted() const { return left_ < 0 || (whole_ != nullptr && whole_->exhausted()); }
    void tell(const char* stage, std::size_t modes, double part) const
    {
        if (options_.progress && !options_.progress({stage, modes, part}))
            throw Stopped("the caller stopped the analysis");
    }

private:
    Watch(const Watch& whole, double part)
        : options_(whole.options_), depth_(whole.depth_), full_(whole.full_ * part), left_(full_), whole_(&whole)
    {}
    static constexpr double kWork = 1.2e10;
    const Options& options_;
    double depth_;
    double full_;
    mutable double left_;
    const Watch* whole_ = nullptr;
};

/// Whether terms cancel at the beginning: their residues are much larger than the samples.
bool cancel(const Series& series, const Terms& terms);

/// Whether terms of short life crowd at the beginning, or cancel there, as they do when they imitate a drive.
bool imitates_drive(const Series& series, const Terms& terms, double highest);

/// Periods of the highest line that a new mode of short life takes, at least: more would imitate a drive.
constexpr double kPeriodsPerMode = 6;

/// Fits a series whose lines end at `highest` cycles a sample. It gives up, with Fit::failed, when the first part stays
/// far from what noise explains: a drive is in it, or what is there is no sum of few exponentials.
Fit fit_series(const Series& series, double highest, std::size_t mostModes, Effort effort, const Watch& watch);

/// Adds terms of short life that are likely, but not certain: what is left out of a crowd of such modes moves its
/// neighbours by more than their standard errors. They stand behind the others in Fit::terms, which keep their places,
/// and are not modes to tell of. The number of them is returned.
std::size_t add_nuisance(const Series& series, Fit& fit, const Watch& watch);

/// Goes on from a model: refinement over the whole series, search, selection.
///
/// @param mostKept  given up, with Fit::stopped, as soon as more terms than these are significant by far
Fit continue_fit(const Series& series, Terms terms, std::size_t mostModes, Effort effort, const Watch& watch,
                 std::size_t mostKept = std::numeric_limits<std::size_t>::max());

} // namespace tessel::modes

#endif
