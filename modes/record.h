/// @file
/// A record as it comes: whether it can be analysed, and its scale.
#ifndef TESSEL_MODES_RECORD_H
#define TESSEL_MODES_RECORD_H

#include "modes/model.h"
#include "modes/modes.h"

namespace tessel::modes {

/// Throws InputError if the record cannot be analysed. Its text begins with `which`.
void check(const Series& record, double start, double spacing, const Options& options, const std::string& which = "");

/// Whether all samples are equal.
bool constant(const Series& record);

/// Scales the record by a power of two to magnitudes near one, which loses nothing; returns the exponent.
int normalise(Series& record);

/// The relative rounding of the arithmetic that made the record: single precision if every sample is such a number.
double rounding_of(const Series& record);

} // namespace tessel::modes

#endif
