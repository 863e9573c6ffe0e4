/// @file
/// What chance reaches: thresholds on sums of squares of noise.
#ifndef TESSEL_MODES_CHANCE_H
#define TESSEL_MODES_CHANCE_H

#include <cstddef>

namespace tessel::modes {

/// Half the value that chi^2 with 2 `pairs` degrees of freedom exceeds with the given probability.
double half_quantile(double probability, std::size_t pairs);

/// Probability 1e-3 over the independent cells of frequency and decay of m samples.
double alarm_of(std::size_t m);

} // namespace tessel::modes

#endif
