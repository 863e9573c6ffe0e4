/// Periodograms, the same on every processor.
#pragma once

#include <complex>
#include <cstddef>
#include <vector>

namespace tessel::fields {

class Spectrum
{
public:
    /// Of `count` values, real or complex, with at least twice as many bins.
    Spectrum(std::size_t count, bool complex);

    std::size_t bins() const { return bins_; } ///< of a whole turn
    /// Values of a periodogram: all bins of complex values, those from 0 to half a turn of real ones.
    std::size_t size() const { return complex_ ? bins_ : bins_ / 2 + 1; }
    /// |sum_k x_k exp(-2 pi i j k / bins)|^2. The values are the real parts, or real and imaginary parts in turn.
    std::vector<double> power(const double* values) const;

private:
    using Complex = std::complex<double>;
    void transform(std::vector<Complex>& x) const;

    std::size_t count_, bins_;
    bool complex_;
    std::vector<Complex> turn_; ///< exp(-2 pi i j / bins), j < bins / 2
};

} // namespace tessel::fields
