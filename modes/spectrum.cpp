#include "modes/spectrum.h"

#include "common/elementary.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace tessel::modes {

std::vector<double> kaiser(std::size_t n, double beta)
{
    // I_0(beta u^(1/2)) by powers of u, all of one sign
    std::vector<double> series{1};
    double sum = 1;
    for (int k = 1; series.back() > 1e-18 * sum; ++k) {
        series.push_back(series.back() * (beta / (2 * k)) * (beta / (2 * k)));
        sum += series.back();
    }
    using Tile = Eigen::Array<double, 32, 1>;
    constexpr auto kTile = static_cast<std::size_t>(Tile::SizeAtCompileTime);
    std::vector<double> window(n);
    double energy = 0;
    for (std::size_t begin = 0; 2 * begin < n; begin += kTile) {
        Tile u, value = Tile::Constant(series.back());
        for (std::size_t k = 0; k < kTile; ++k) {
            const double x = (2.0 * static_cast<double>(begin + k) + 1) / static_cast<double>(n) - 1;
            u[static_cast<Eigen::Index>(k)] = std::max(0.0, 1 - x * x);
        }
        for (std::size_t k = series.size() - 1; k-- > 0;)
            value = value * u + series[k];
        for (std::size_t k = begin; k < begin + kTile && 2 * k < n; ++k) {
            const double w = value[static_cast<Eigen::Index>(k - begin)];
            window[k] = window[n - 1 - k] = w;
            energy += 2 * k + 1 == n ? w * w : 2 * w * w;
        }
    }
    const double scale = 1 / std::sqrt(energy);
    for (double& w : window)
        w *= scale;
    return window;
}

/// Calls take(j, real part, imaginary part) with each value of a transform.
template <class Take>
void Spectra::each(const std::vector<double>& re, const std::vector<double>& im, std::size_t length, const Take& take)
{
    const bool complex = !im.empty();
    const std::size_t n = complex ? length : length / 2;
    if (!fourier_ || fourier_->size() != n) {
        fourier_.reset();
        fourier_.emplace(n);
    }
    double *a = fourier_->re(), *b = fourier_->im();
    if (complex) {
        std::fill(std::copy(re.begin(), re.end(), a), a + n, 0.0);
        std::fill(std::copy(im.begin(), im.end(), b), b + n, 0.0);
        fourier_->forward();
        a = fourier_->re();
        b = fourier_->im();
        for (std::size_t k = 0; k < n; ++k)
            take(k, a[k], b[k]);
        return;
    }
    // The even samples and i times the odd ones in one transform Z of half the length:
    //
    //     E = (Z_k + conj Z_(n-k)) / 2,   O = -i (Z_k - conj Z_(n-k)) / 2,
    //     X_k = E + w^k O,                X_(n-k) = conj(E - w^k O)
    const std::size_t pairs = re.size() / 2;
    for (std::size_t k = 0; k < pairs; ++k) {
        a[k] = re[2 * k];
        b[k] = re[2 * k + 1];
    }
    std::fill(a + pairs, a + n, 0.0);
    std::fill(b + pairs, b + n, 0.0);
    if (re.size() % 2 != 0)
        a[pairs] = re.back();
    fourier_->forward();
    a = fourier_->re();
    b = fourier_->im();
    const SineCosine step = sine_cosine(std::numbers::pi / static_cast<double>(n));
    take(0, a[0] + b[0], 0.0);
    take(n, a[0] - b[0], 0.0);
    for (std::size_t k = 1; 2 * k <= n; ++k) {
        const Complex root = fourier_->root(k / 2); // w^k, or w^(k - 1)
        const double c = k % 2 == 0 ? root.real() : root.real() * step.cosine + root.imag() * step.sine;
        const double s = k % 2 == 0 ? root.imag() : root.imag() * step.cosine - root.real() * step.sine;
        const double er = (a[k] + a[n - k]) / 2, ei = (b[k] - b[n - k]) / 2;
        const double odd_r = (b[k] + b[n - k]) / 2, odd_i = (a[n - k] - a[k]) / 2;
        const double tr = c * odd_r - s * odd_i, ti = c * odd_i + s * odd_r;
        take(k, er + tr, ei + ti);
        take(n - k, er - tr, ti - ei);
    }
}

std::vector<Complex> Spectra::transform(const std::vector<double>& re, const std::vector<double>& im,
                                        std::size_t length)
{
    std::vector<Complex> out(im.empty() ? length / 2 + 1 : length);
    each(re, im, length, [&](std::size_t k, double r, double i) { out[k] = Complex(r, i); });
    return out;
}

std::vector<double>& Spectra::power(const std::vector<double>& re, const std::vector<double>& im, std::size_t length)
{
    power_.resize(im.empty() ? length / 2 + 1 : length);
    each(re, im, length, [&](std::size_t k, double r, double i) { power_[k] = r * r + i * i; });
    return power_;
}

std::vector<double> power_spectrum(const std::vector<double>& re, const std::vector<double>& im, std::size_t length)
{
    Spectra spectra;
    return std::move(spectra.power(re, im, length));
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
