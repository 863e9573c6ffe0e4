/// @file
/// The noise of a record, from the band above its highest line.
#ifndef TESSEL_MODES_NOISE_H
#define TESSEL_MODES_NOISE_H

#include "modes/model.h"

namespace tessel::modes {

/// Noise over time.
struct Noise
{
    bool found = false; ///< false: no empty band
    bool varies = false;
    bool bursts = false;       ///< it is larger somewhere than the samples there explain: a drive, a pulse
    std::size_t segment = 1;   ///< samples in a segment, from the first sample used
    std::vector<double> sigma; ///< standard deviation of each segment
};

/// Noise of the record from `first` on, whose lines end at `highest` cycles a sample; not less than `depth` of the
/// highest sample nearby.
Noise measure_noise(const Series& series, std::size_t first, double highest, double depth);

} // namespace tessel::modes

#endif
