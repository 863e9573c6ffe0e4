/// @file
/// The band: the highest frequency present in a record.
#ifndef TESSEL_MODES_BAND_H
#define TESSEL_MODES_BAND_H

#include "modes/model.h"

namespace tessel::modes {

/// Highest frequency, in cycles a sample, at which a line stands out of the record from `first` on; 0 if none does.
double highest_line(const Series& series, std::size_t first);

/// Length of the transform in which the band of so many samples is looked for.
std::size_t band_length(std::size_t samples);

/// Noise of a power spectrum: for each of its sixteen parts the median there or in the next above, whichever is less,
/// so that lines that crowd a part do not count.
std::vector<double> floor_of(const std::vector<double>& power);

} // namespace tessel::modes

#endif
