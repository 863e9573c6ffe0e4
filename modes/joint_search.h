/// @file
/// What a joint model leaves: matched filters on the residuals of all records.
#ifndef TESSEL_MODES_JOINT_SEARCH_H
#define TESSEL_MODES_JOINT_SEARCH_H

#include "modes/joint_rounding.h"
#include "modes/search.h"

namespace tessel::modes {

/// Half the gain in chi^2 that chance does not explain, of a term in the first n samples: of all records together, or
/// of one of them. Among many records a mode that only one sees would drown in the sum.
struct JointThreshold
{
    JointThreshold(const RecordSet& set, std::size_t n);
    double all;
    double one;
    double common; ///< of what all records see alike: the sum has the freedom of one of them
};

/// Candidates in the residuals over the first n samples, best first, at most `most`: above a threshold and 2 % of the
/// largest. Their scores are relative to the threshold.
std::vector<Candidate> search(const RecordSet& set, const JointModel& model, std::size_t n, std::size_t most);

} // namespace tessel::modes

#endif
