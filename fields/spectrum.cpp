#include "fields/spectrum.h"
#include "fields/basis.h"

#include <bit>
#include <utility>

namespace tessel::fields {

namespace {

using Complex = std::complex<double>;

Complex times(Complex a, Complex b)
{
    return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

double square(Complex a)
{
    return a.real() * a.real() + a.imag() * a.imag();
}

} // namespace

Spectrum::Spectrum(std::size_t count, bool complex)
    : count_(count), bins_(std::bit_ceil(std::max<std::size_t>(2, count) * 2)), complex_(complex)
{
    Term back;
    back.cycles = -1 / static_cast<Extended>(bins_);
    for (std::size_t j = 0; j < bins_ / 2; ++j) {
        const ExtendedComplex e = fields::power(back, static_cast<std::ptrdiff_t>(j));
        turn_.emplace_back(static_cast<double>(e.real()), static_cast<double>(e.imag()));
    }
}

void Spectrum::transform(std::vector<Complex>& x) const
{
    const std::size_t n = x.size();
    for (std::size_t i = 1, j = 0; i < n; ++i) {
        std::size_t bit = n >> 1;
        for (; j & bit; bit >>= 1)
            j ^= bit;
        j ^= bit;
        if (i < j)
            std::swap(x[i], x[j]);
    }
    for (std::size_t half = 1; half < n; half *= 2) {
        const std::size_t step = bins_ / (2 * half);
        for (std::size_t begin = 0; begin < n; begin += 2 * half)
            for (std::size_t k = 0; k < half; ++k) {
                Complex& a = x[begin + k];
                Complex& b = x[begin + k + half];
                const Complex t = times(turn_[k * step], b);
                b = a - t;
                a = a + t;
            }
    }
}

std::vector<double> Spectrum::power(const double* values) const
{
    std::vector<double> out(size());
    if (complex_) {
        std::vector<Complex> x(bins_);
        for (std::size_t k = 0; k < count_; ++k)
            x[k] = {values[2 * k], values[2 * k + 1]};
        transform(x);
        for (std::size_t j = 0; j < bins_; ++j)
            out[j] = square(x[j]);
        return out;
    }
    // Two neighbours as one complex value; the transform of the whole from that of half the length.
    std::vector<Complex> x(bins_ / 2);
    for (std::size_t k = 0; k < count_; ++k)
        reinterpret_cast<double*>(x.data())[k] = values[k];
    transform(x);
    const std::size_t half = bins_ / 2;
    for (std::size_t j = 0; j <= half; ++j) {
        const Complex a = x[j % half], b = std::conj(x[(half - j) % half]);
        const Complex even = 0.5 * (a + b), difference = 0.5 * (a - b);
        const Complex odd(difference.imag(), -difference.real()); // over i
        const Complex w = j < half ? turn_[j] : Complex(-1, 0);
        out[j] = square(even + times(w, odd));
    }
    return out;
}

} // namespace tessel::fields
