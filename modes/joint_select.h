/// @file
/// Which terms of a joint model are real: backward elimination.
#ifndef TESSEL_MODES_JOINT_SELECT_H
#define TESSEL_MODES_JOINT_SELECT_H

#include "modes/joint.h"

#include <functional>

namespace tessel::modes {

/// Called after every refinement; false ends the work.
using JointAccount = std::function<bool(const JointModel&)>;

/// The covariance of a joint model at unit noise.
class JointCovariance
{
public:
    explicit JointCovariance(const Projection& projection, const RecordSet& set);
    /// Of the parameters of one term in one record: those linear first, then those of its pole.
    /// With the noise's variance over that of the weights, for the record and for the poles.
    ExtendedMatrix block(std::size_t term, std::size_t record, double scale = 1, double poleScale = 1) const;
    /// Wald's statistics of a term: the rise of chi^2 without it in all records, and in each alone, to first order. The
    /// term's pole and the nearest others are free.
    struct Statistic
    {
        double all = 0;
        std::vector<double> each;
    };
    Statistic wald(std::size_t term) const;

private:
    /// Covariance of that residue at known poles.
    ExtendedMatrix own(std::size_t term, std::size_t record) const;
    ExtendedVector residue(std::size_t term, std::size_t record) const;
    const Projection& projection_;
    const RecordSet& set_;
    Layout layout_;
    ExtendedMatrix poles_;
};

/// Takes terms out while chi^2 rises by no more than chance when all others are refined without it: in all records
/// together and in each of them. `significance` receives the rise over that of chance, of each term that is left.
JointModel eliminate(const RecordSet& set, JointModel model, std::size_t n, std::vector<double>& significance,
                     const JointAccount& account);

/// Takes out, many at a time, terms that the statistic calls insignificant and that the others can replace.
JointModel thin(const RecordSet& set, JointModel model, std::size_t n, const JointAccount& account);

/// Takes out at once what is nothing beside the noise, without refinement.
JointModel prune(const RecordSet& set, const JointModel& model, std::size_t n);

} // namespace tessel::modes

#endif
