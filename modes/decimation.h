/// @file
/// Decimation by means of blocks.
#ifndef TESSEL_MODES_DECIMATION_H
#define TESSEL_MODES_DECIMATION_H

#include "modes/noise.h"

namespace tessel::modes {

/// Means of `factor` samples each, from `first` on, with the noise's weights. There is no transient, white noise stays
/// white, and a sum of exponentials stays one: each residue is multiplied by block_mean of its pole.
Series decimate(const Series& series, std::size_t first, std::size_t factor, const Noise& noise);

/// Mean of exp(s k / factor) over 0 <= k < factor, with s per block.
ExtendedComplex block_mean(ExtendedComplex s, std::size_t factor);

/// d ln block_mean / d s.
ExtendedComplex block_mean_slope(ExtendedComplex s, std::size_t factor);

} // namespace tessel::modes

#endif
