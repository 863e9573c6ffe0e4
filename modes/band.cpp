#include "modes/band.h"
#include "modes/spectrum.h"

#include <algorithm>
#include <cmath>

namespace tessel::modes {

namespace {

// Side lobes of Kaiser's window at beta = 20 lie below 1e-10 of a line.
constexpr double kBeta = 20;
constexpr double kFalseAlarm = 1e-3;
constexpr double kLeast = 3e-8; // of the highest line, in amplitude

/// Noise of a power spectrum: the least of the medians of its sixteen parts, for white noise.
double floor_of(const std::vector<double>& power)
{
    const std::size_t parts = std::min<std::size_t>(16, std::max<std::size_t>(1, power.size() / 128));
    double least = INFINITY;
    for (std::size_t p = 0; p < parts; ++p) {
        const auto from = power.begin() + static_cast<std::ptrdiff_t>(p * power.size() / parts);
        const auto to = power.begin() + static_cast<std::ptrdiff_t>((p + 1) * power.size() / parts);
        least = std::min(least, median(std::vector<double>(from, to)));
    }
    return least / std::log(2.0);
}

double highest_in(const Series& series, std::size_t first, std::size_t length)
{
    const std::vector<double> window = kaiser(length, kBeta);
    std::vector<double> re(length), im(series.complex() ? length : 0);
    double mean = 0;
    for (std::size_t k = 0; k < length; ++k)
        mean += series.re[first + k] / static_cast<double>(length);
    for (std::size_t k = 0; k < length; ++k)
        re[k] = (series.re[first + k] - (series.complex() ? 0 : mean)) * window[k];
    for (std::size_t k = 0; k < im.size(); ++k)
        im[k] = series.im[first + k] * window[k];
    const std::size_t padded = fast_length(2 * length);
    std::vector<double> power = power_spectrum(re, im, padded);
    const double noise = floor_of(power);
    if (series.complex()) { // the two signs share a place
        const std::size_t half = padded / 2;
        for (std::size_t k = 1; k < half; ++k)
            power[k] = std::max(power[k], power[padded - k]);
        power.resize(half + 1);
    }
    const double top = *std::max_element(power.begin(), power.end());
    const double threshold = std::max(noise * std::log(static_cast<double>(power.size()) / kFalseAlarm) * 1.5,
                                      kLeast * kLeast * top);
    for (std::size_t k = power.size() - 1; k-- > 1;)
        if (power[k] > threshold && power[k] >= power[k - 1] && power[k] >= power[k + 1])
            return static_cast<double>(k) / static_cast<double>(padded);
    return 0;
}

} // namespace

double highest_line(const Series& series, std::size_t first)
{
    double highest = 0;
    const std::size_t length = series.size() - first;
    for (const std::size_t part : {1, 4, 16, 64})
        if (part == 1 || length / part >= 400)
            highest = std::max(highest, highest_in(series, first, length / part));
    return highest;
}

} // namespace tessel::modes
