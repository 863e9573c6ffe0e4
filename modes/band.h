/// @file
/// The band: the highest frequency present in a record.
#ifndef TESSEL_MODES_BAND_H
#define TESSEL_MODES_BAND_H

#include "modes/model.h"

namespace tessel::modes {

/// Highest frequency, in cycles a sample, at which a line stands out of the record from `first` on; 0 if none does.
double highest_line(const Series& series, std::size_t first);

} // namespace tessel::modes

#endif
