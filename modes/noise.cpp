#include "modes/noise.h"
#include "modes/spectrum.h"

#include "common/elementary.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace tessel::modes {

namespace {

// Side lobes 330 dB down: what is left of the lines is below the rounding of a double.
constexpr double kBeta = 38;
constexpr double kHalfWidth = 13; // of the main lobe, in bins
constexpr std::size_t kSegments = 32;
constexpr double kConstant = 1.6; // largest over smallest, of noise that is taken as constant

constexpr double kBurst = 4;         // of the median level
constexpr double kStep = 0.2;        // nepers between levels of noise that varies
constexpr double kCorrelation = 3.5; // bins that share one value under the window

/// Standard deviation in the band above `highest` of the samples [begin, begin + length).
double level(const Series& series, std::size_t begin, std::size_t length, double highest,
             const std::vector<double>& window, Spectra& spectra)
{
    std::vector<double> re(length), im(series.complex() ? length : 0);
    for (std::size_t k = 0; k < length; ++k)
        re[k] = series.re[begin + k] * window[k];
    for (std::size_t k = 0; k < im.size(); ++k)
        im[k] = series.im[begin + k] * window[k];
    // of a length without large factors: the transform of a prime is slow
    const std::size_t padded = fast_length(length);
    const std::vector<double>& power = spectra.power(re, im, padded);
    const auto ratio = static_cast<double>(padded) / static_cast<double>(length);
    const auto edge = static_cast<std::size_t>(highest * static_cast<double>(padded) + (kHalfWidth + 1) * ratio);
    std::vector<double> empty;
    empty.reserve(power.size());
    for (std::size_t k = edge; k < padded - edge && k < power.size(); ++k)
        if (series.complex() || 2 * k != padded)
            empty.push_back(power[k]);
    return std::sqrt(median(std::move(empty)) / std::numbers::ln2 / (series.complex() ? 2 : 1));
}

/// Geometric means of each value and its neighbours: one segment alone varies by chance.
std::vector<double> smooth(const std::vector<double>& sigma)
{
    std::vector<double> out(sigma.size());
    for (std::size_t b = 0; b < sigma.size(); ++b) {
        double sum = 0, count = 0;
        for (std::size_t k = b > 0 ? b - 1 : b; k < std::min(b + 2, sigma.size()); ++k) {
            sum += logarithm(std::max(sigma[k], 1e-300));
            ++count;
        }
        out[b] = exponential(sum / count);
    }
    return out;
}

} // namespace

Noise measure_noise(const Series& series, std::size_t first, double highest, double depth)
{
    const std::size_t n = series.size() - first;
    Noise noise;
    std::size_t segments = kSegments;
    // Each part is windowed over twice a segment, and must leave twenty bins above the lines.
    const auto bins = [&](std::size_t parts) {
        const double length =
            std::min(static_cast<double>(n), 2.0 * static_cast<double>(n) / static_cast<double>(parts));
        return (0.5 - highest) * length - kHalfWidth - 1;
    };
    while (segments > 1 && bins(segments) < 40)
        segments /= 2;
    noise.segment = (n + segments - 1) / segments;
    segments = (n + noise.segment - 1) / noise.segment;
    noise.found = bins(segments) >= 8;
    const std::size_t length = std::min(n, 2 * noise.segment);
    const std::vector<double> window = kaiser(length, kBeta);
    std::vector<double> floor;
    Spectra spectra;
    for (std::size_t b = 0; b < segments; ++b) {
        const std::size_t middle = first + b * noise.segment + noise.segment / 2;
        const std::size_t begin =
            std::clamp(middle, first + length / 2, first + n - (length - length / 2)) - length / 2;
        double peak = 0;
        for (std::size_t k = begin; k < begin + length; ++k) {
            peak = std::max(peak, std::abs(series.re[k]));
            if (series.complex())
                peak = std::max(peak, std::abs(series.im[k]));
        }
        floor.push_back(depth * peak);
        noise.sigma.push_back(noise.found ? level(series, begin, length, highest, window, spectra) : 0);
    }
    // A part in which nothing is left of the record, not even noise, tells of none: the next that does counts.
    for (std::size_t b = 1; b < segments; ++b)
        if (!(floor[b] > 0)) {
            floor[b] = floor[b - 1];
            noise.sigma[b] = noise.sigma[b - 1];
        }
    for (std::size_t b = segments; b-- > 1;)
        if (!(floor[b - 1] > 0)) {
            floor[b - 1] = floor[b];
            noise.sigma[b - 1] = noise.sigma[b];
        }
    if (noise.found && segments > 1) {
        noise.sigma = smooth(noise.sigma);
        const double largest = *std::max_element(noise.sigma.begin(), noise.sigma.end());
        const double middle = median(noise.sigma);
        const double least = *std::min_element(noise.sigma.begin(), noise.sigma.end());
        // chance alone spreads the segments' values by their number of bins
        const double spread = std::max(kConstant, 1 + 3 / std::sqrt(bins(segments) / kCorrelation));
        noise.varies = largest > spread * middle || least * spread < middle;
        if (!noise.varies)
            std::fill(noise.sigma.begin(), noise.sigma.end(),
                      level(series, first, n, highest, kaiser(n, kBeta), spectra));
    }
    // Noise may follow the samples' size, as rounding does. What exceeds that is no noise.
    if (noise.varies) {
        const double middle = median(noise.sigma), size = median(floor);
        for (std::size_t b = 0; b < noise.sigma.size(); ++b)
            noise.bursts =
                noise.bursts || noise.sigma[b] > kBurst * std::max(middle, floor[b]) * std::max(1.0, floor[b] / size);
    }
    for (std::size_t b = 0; b < noise.sigma.size(); ++b)
        if (noise.sigma[b] < floor[b]) {
            noise.sigma[b] = floor[b];
            noise.varies = true;
        }
    // Levels a quarter apart will do: segments of equal level cost less.
    if (noise.varies)
        for (double& sigma : noise.sigma)
            if (sigma > 0)
                sigma = exponential(std::round(logarithm(sigma) / kStep) * kStep);
    return noise;
}

} // namespace tessel::modes
