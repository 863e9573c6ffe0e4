/// @file
/// Rounding of a simulation in its records together: the feet of their lines.
#ifndef TESSEL_MODES_JOINT_ROUNDING_H
#define TESSEL_MODES_JOINT_ROUNDING_H

#include "modes/joint.h"
#include "modes/rounding.h"

namespace tessel::modes {

/// The feet of the lines in what a joint model leaves. The walk of a mode's amplitude is the run's: it is seen in every
/// record, as the mode itself is, and does not average out over the records.
///
/// It is measured in the few records in which the modes stand highest, and taken to the others by the squares of the
/// modes' amplitudes over the noise.
class JointFeet
{
public:
    JointFeet() = default;
    JointFeet(const RecordSet& set, const JointModel& model, std::size_t n);

    bool any() const { return all_.any(); }
    /// Noise that the feet add, over the weights' noise, to what a filter of the given decay sees at an angle: of all
    /// records together and of one.
    double foot(double angle, double decay) const { return foot(all_, angle, decay); }
    double foot(std::size_t record, double angle, double decay) const { return foot(each_[record], angle, decay); }
    /// What a unit of chi^2 is, where it is above one by more than chance: the feet explain the other part of it.
    double part() const { return part_; }
    /// Variance of the noise over that of the weights, of a term's pole and of its residue in one record.
    double scale(std::size_t term) const;
    double scale(std::size_t record, std::size_t term) const
    {
        return all_.level + each_[record].foot(all_.angles[term], samples_);
    }

private:
    double foot(const Feet& feet, double angle, double decay) const;
    std::size_t samples_ = 0;
    std::vector<double> life_; ///< of each term's walk, in samples
    Feet all_;                 ///< sums over the records
    std::vector<double> more_; ///< of each term: the walk of all lines where that of its own is not seen
    std::vector<Feet> each_;   ///< of each record
    double part_ = 1;
};

} // namespace tessel::modes

#endif
