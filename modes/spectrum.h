/// @file
/// Windows and Fourier transforms.
#ifndef TESSEL_MODES_SPECTRUM_H
#define TESSEL_MODES_SPECTRUM_H

#include "modes/fourier.h"

#include <optional>
#include <vector>

namespace tessel::modes {

/// Kaiser's window of n samples, its squares summing to one.
std::vector<double> kaiser(std::size_t n, double beta);

/// Fourier transforms of records; what one of a length needs is kept for the next. One thread at a time.
class Spectra
{
public:
    /// sum_k x_k exp(-2 pi i j k / length), zero-padded, j < length; with im empty the first half up to length / 2
    /// alone.
    /// @param re, im  the samples, no more than `length`
    /// @param length  a fast_length
    std::vector<Complex> transform(const std::vector<double>& re, const std::vector<double>& im, std::size_t length);

    /// |.|^2 of transform; a real record gives length / 2 + 1 values. They stay until the next call.
    std::vector<double>& power(const std::vector<double>& re, const std::vector<double>& im, std::size_t length);

private:
    template <class Take>
    void each(const std::vector<double>& re, const std::vector<double>& im, std::size_t length, const Take& take);
    std::optional<Fourier> fourier_;
    std::vector<double> power_;
};

/// Spectra::power of one record.
std::vector<double> power_spectrum(const std::vector<double>& re, const std::vector<double>& im, std::size_t length);

/// Middle of the values, by copy.
double median(std::vector<double> values);

} // namespace tessel::modes

#endif
