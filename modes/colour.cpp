#include "modes/colour.h"
#include "modes/spectrum.h"

#include "common/elementary.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

namespace tessel::modes {

namespace {

constexpr std::size_t kMostTaps = 32;
constexpr std::size_t kLeastHalfWidth = 8; // of the running median, in bins
constexpr double kPart = 1.0 / 64;         // of the spectrum, on each side of the running median
constexpr double kBeta = 8;                // side lobes 60 dB down
constexpr double kFloor = 1e-12;           // of the largest density: what an autoregressive model can follow
constexpr std::size_t kBands = 16;
constexpr double kDeviations = 6;
constexpr double kExcess = 1.25; // of a band's density above the rest that is worth a filter

/// Periodogram of the weighted residual, one-sided, with the expectation 1 for white noise of the series' weights.
std::vector<double> periodogram(const Series& series, const std::vector<double>& residual)
{
    const std::size_t n = series.size();
    const std::vector<double> window = kaiser(n, kBeta);
    std::vector<double> re(n), im(series.complex() ? n : 0);
    for (std::size_t k = 0; k < n; ++k) {
        const double w = window[k] * std::sqrt(series.weightAt(k));
        re[k] = residual[k] * w;
        if (series.complex())
            im[k] = residual[n + k] * w;
    }
    const std::size_t padded = fast_length(n);
    std::vector<double> power = power_spectrum(re, im, padded);
    const std::size_t half = padded / 2;
    if (series.complex()) // both signs together
        for (std::size_t k = 0; k <= half; ++k)
            power[k] = (power[k] + power[(padded - k) % padded]) / 4;
    power.resize(half + 1);
    return power;
}

std::vector<double> running_median(const std::vector<double>& power, std::size_t halfWidth)
{
    const std::size_t n = power.size();
    std::vector<double> out(n), around;
    for (std::size_t k = 0; k < n; ++k) {
        around.clear();
        // mirrored at the ends, where the spectrum is symmetric
        for (std::size_t d = 0; d <= 2 * halfWidth; ++d) {
            std::ptrdiff_t at = static_cast<std::ptrdiff_t>(k + d) - static_cast<std::ptrdiff_t>(halfWidth);
            if (at < 0)
                at = -at;
            if (at >= static_cast<std::ptrdiff_t>(n))
                at = 2 * static_cast<std::ptrdiff_t>(n) - 2 - at;
            around.push_back(
                power[static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(at, 0, static_cast<std::ptrdiff_t>(n) - 1))]);
        }
        out[k] = median(around) / std::numbers::ln2;
    }
    return out;
}

} // namespace

ExtendedComplex Whitener::response(ExtendedComplex s) const
{
    if (taps.empty())
        return 1;
    const ExtendedComplex z = exponential(s);
    ExtendedComplex sum = 0;
    for (const double a : taps)
        sum = sum * z + static_cast<Extended>(a);
    return sum;
}

ExtendedComplex Whitener::slope(ExtendedComplex s) const
{
    if (taps.empty())
        return 0;
    const ExtendedComplex z = exponential(s);
    ExtendedComplex sum = 0, slope = 0;
    for (const double a : taps) {
        slope = slope * z + sum;
        sum = sum * z + static_cast<Extended>(a);
    }
    return z * slope / sum;
}

Colour colour_of(const Series& series, const std::vector<double>& residual)
{
    Colour out;
    const std::vector<double> power = periodogram(series, residual);
    const auto part = static_cast<std::size_t>(kPart * static_cast<double>(power.size()));
    std::vector<double> density = running_median(power, std::max(kLeastHalfWidth, part));
    const double top = *std::max_element(density.begin(), density.end());
    if (!(top > 0))
        return out;
    for (double& d : density)
        d = std::max(d, kFloor * top);
    out.contrast = std::sqrt(top / *std::min_element(density.begin(), density.end()));
    // autocovariance of the density
    const std::size_t half = density.size() - 1;
    const std::size_t order = std::min({kMostTaps, series.size() / 12, half});
    std::vector<double> both(2 * half);
    for (std::size_t k = 0; k < both.size(); ++k)
        both[k] = density[std::min(k, both.size() - k)];
    const std::vector<Complex> transformed = Spectra().transform(both, {}, both.size());
    std::vector<Extended> r;
    for (std::size_t lag = 0; lag <= order; ++lag)
        r.push_back(static_cast<Extended>(transformed[lag].real()) / static_cast<Extended>(both.size()));
    // Levinson's recursion
    std::vector<Extended> a{1};
    Extended error = r[0];
    for (std::size_t p = 1; p <= order; ++p) {
        Extended sum = 0;
        for (std::size_t i = 0; i < p; ++i)
            sum += a[i] * r[p - i];
        const Extended reflection = -sum / error;
        std::vector<Extended> next = a;
        next.push_back(0);
        for (std::size_t i = 1; i <= p; ++i)
            next[i] += reflection * a[p - i];
        a = next;
        error *= 1 - reflection * reflection;
    }
    for (const Extended v : a)
        out.whitener.taps.push_back(static_cast<double>(v / std::sqrt(error)));
    return out;
}

bool coloured(const Series& series, const std::vector<double>& residual, double level)
{
    const std::vector<double> power = periodogram(series, residual);
    const std::size_t bands = std::min(kBands, power.size() / 8);
    if (bands == 0)
        return false;
    std::vector<double> means;
    for (std::size_t b = 0; b < bands; ++b) {
        const auto begin = power.begin() + static_cast<std::ptrdiff_t>(b * power.size() / bands);
        const auto end = power.begin() + static_cast<std::ptrdiff_t>((b + 1) * power.size() / bands);
        means.push_back(std::accumulate(begin, end, 0.0) / static_cast<double>(end - begin));
    }
    const auto count = static_cast<double>(power.size() / bands);
    // neighbours share the window's width of 2.5 bins
    const double most = level * std::max(kExcess, 1 + kDeviations * std::sqrt(2.5 / count));
    return *std::max_element(means.begin(), means.end()) > most;
}

Series whiten(const Series& series, const Whitener& whitener)
{
    const std::size_t p = whitener.order();
    if (p == 0)
        return series;
    Series out = series;
    const std::size_t count = series.size() - p;
    const auto filter = [&](const std::vector<double>& from, std::vector<double>& to) {
        to.resize(count);
        for (std::size_t k = 0; k < count; ++k) {
            // in extended precision: what the filter takes away may be far above the noise
            Extended sum = 0;
            for (std::size_t i = 0; i <= p; ++i)
                sum += static_cast<Extended>(whitener.taps[i]) * static_cast<Extended>(from[k + p - i]);
            to[k] = static_cast<double>(sum);
        }
    };
    filter(series.re, out.re);
    if (series.complex())
        filter(series.im, out.im);
    return out;
}

Terms through(const Terms& terms, const Whitener& whitener, bool back)
{
    Terms out = terms;
    for (Term& term : out) {
        const ExtendedComplex p = whitener.response(ExtendedComplex(-term.decay, term.angle));
        const ExtendedComplex c(term.c.real(), term.c.imag());
        const ExtendedComplex to = back ? c / p : c * p;
        term.c = Complex(static_cast<double>(to.real()), static_cast<double>(to.imag()));
    }
    return out;
}

} // namespace tessel::modes
