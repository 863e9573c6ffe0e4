/// @file
/// What rounding adds to a simulation: every step disturbs the fields by its rounding errors, which excite the modes
/// themselves. The amplitude of each mode walks at random, and its line stands on a foot that falls with the square of
/// the distance from it, far above the noise between lines.
#ifndef TESSEL_MODES_ROUNDING_H
#define TESSEL_MODES_ROUNDING_H

#include "modes/model.h"

namespace tessel::modes {

/// The feet of the lines in what a fit leaves.
struct Feet
{
    std::vector<double> walk;   ///< of each term: power density times the square of the distance in angle
    std::vector<double> angles; ///< of each term
    double common = 0;          ///< of all lines together, where no foot can be told from the noise
    double level = 1;           ///< of the noise between the lines, over the weights'

    bool any() const { return !walk.empty(); }
    /// Noise at an angle over the weights' noise, seen over this many samples.
    double excess(double angle, std::size_t samples) const { return 1 + foot(angle, samples); }
    /// The lines' part of it.
    double foot(double angle, std::size_t samples) const;
};

/// Finds the feet of the terms' lines in the residual of a fit over [0, n). None, where the feet are higher than
/// rounding explains (Series::rounding) or do not rise above the noise at most of the lines.
Feet feet_of(const Series& series, const Terms& terms, std::size_t n, const std::vector<double>& residual);

/// Mean square of the weighted residual over its expectation: chi^2 per degree of freedom, feet included.
double reduced_with_feet(const Series& series, const Terms& terms, std::size_t n, bool* any = nullptr);

} // namespace tessel::modes

#endif
