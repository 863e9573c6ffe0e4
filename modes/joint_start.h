/// @file
/// Start values of several records: the band, and poles by rotational invariance of all their Hankel matrices.
#ifndef TESSEL_MODES_JOINT_START_H
#define TESSEL_MODES_JOINT_START_H

#include "modes/joint.h"
#include "modes/start.h"

namespace tessel::modes {

/// Highest frequency, in cycles a sample, at which a line stands out of the raw records from `first` on: of one, or of
/// the sum of all periodograms, each over its noise; 0 if none does.
double highest_line(const std::vector<Series>& records, const std::vector<std::size_t>& first);

/// Poles of the first samples of all records, whose lines end at `highest` cycles a sample: as start_values() of one,
/// from the sum of the records' covariances, each over its noise.
Start start_values(const RecordSet& set, double highest);

} // namespace tessel::modes

#endif
