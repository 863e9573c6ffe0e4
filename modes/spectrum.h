/// @file
/// Windows and Fourier transforms.
#ifndef TESSEL_MODES_SPECTRUM_H
#define TESSEL_MODES_SPECTRUM_H

#include "modes/model.h"

#include <vector>

namespace tessel::modes {

/// Kaiser's window of n samples, its squares summing to one.
std::vector<double> kaiser(std::size_t n, double beta);

/// Smallest 2^a 3^b 5^c that is at least n.
std::size_t fast_length(std::size_t n);

/// sum_k x_k exp(-2 pi i j k / length), zero-padded, j < length; with im empty the first half up to length / 2 alone.
std::vector<Complex> transform(const std::vector<double>& re, const std::vector<double>& im, std::size_t length);

/// |.|^2 of transform; a real record gives length / 2 + 1 values.
std::vector<double> power_spectrum(const std::vector<double>& re, const std::vector<double>& im, std::size_t length);

/// Middle of the values, by copy.
double median(std::vector<double> values);

} // namespace tessel::modes

#endif
