#include "modes/spectrum.h"

#include <unsupported/Eigen/FFT>

#include <algorithm>
#include <cmath>

namespace tessel::modes {

namespace {

/// Modified Bessel function of order zero by its series.
double bessel_i0(double x)
{
    double sum = 1, term = 1;
    for (int k = 1; k < 500 && term > 1e-18 * sum; ++k) {
        term *= (x / (2 * k)) * (x / (2 * k));
        sum += term;
    }
    return sum;
}

} // namespace

std::vector<double> kaiser(std::size_t n, double beta)
{
    std::vector<double> window(n);
    double sum = 0;
    for (std::size_t k = 0; k < n; ++k) {
        const double x = (2.0 * static_cast<double>(k) + 1) / static_cast<double>(n) - 1;
        window[k] = 2 * k < n ? bessel_i0(beta * std::sqrt(std::max(0.0, 1 - x * x))) : window[n - 1 - k];
        sum += window[k] * window[k];
    }
    for (double& w : window)
        w /= std::sqrt(sum);
    return window;
}

std::size_t fast_length(std::size_t n)
{
    std::size_t best = 1;
    while (best < n)
        best *= 2;
    for (std::size_t five = 1; five < 2 * n; five *= 5)
        for (std::size_t three = five; three < 2 * n; three *= 3) {
            std::size_t length = 2 * three;
            while (length < n)
                length *= 2;
            best = std::min(best, length);
        }
    return best;
}

std::vector<Complex> transform(const std::vector<double>& re, const std::vector<double>& im, std::size_t length)
{
    Eigen::FFT<double> fft;
    std::vector<Complex> out;
    if (im.empty()) {
        fft.SetFlag(Eigen::FFT<double>::HalfSpectrum);
        std::vector<double> in(length, 0.0);
        std::copy(re.begin(), re.end(), in.begin());
        fft.fwd(out, in);
    } else {
        std::vector<Complex> in(length, 0.0);
        for (std::size_t k = 0; k < re.size(); ++k)
            in[k] = Complex(re[k], im[k]);
        fft.fwd(out, in);
    }
    return out;
}

std::vector<double> power_spectrum(const std::vector<double>& re, const std::vector<double>& im, std::size_t length)
{
    const std::vector<Complex> f = transform(re, im, length);
    std::vector<double> power(f.size());
    for (std::size_t k = 0; k < f.size(); ++k)
        power[k] = std::norm(f[k]);
    return power;
}

double median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace tessel::modes
