#include "modes/band.h"
#include "modes/spectrum.h"

#include "common/elementary.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tessel::modes {

namespace {

// Side lobes of Kaiser's window at beta = 20 lie below 1e-10 of a line.
constexpr double kBeta = 20;
constexpr double kFalseAlarm = 1e-3;
constexpr double kLeast = 3e-8; // of the highest line, in amplitude
constexpr double kLeastSingle =
    1e-5; // the same, of a record in single precision: rounding excites every mode of a grid
constexpr double kSingle = 1e-10;
constexpr std::size_t kFine = 32768;

} // namespace

std::size_t band_length(std::size_t samples)
{
    // Kaiser's lines are several bins wide: a second value between two is of use to short records alone.
    return fast_length(std::max(samples, std::min(2 * samples, kFine)));
}

std::vector<double> floor_of(const std::vector<double>& power)
{
    const std::size_t parts = std::min<std::size_t>(16, std::max<std::size_t>(1, power.size() / 128));
    std::vector<double> medians;
    for (std::size_t p = 0; p < parts; ++p) {
        const auto from = power.begin() + static_cast<std::ptrdiff_t>(p * power.size() / parts);
        const auto to = power.begin() + static_cast<std::ptrdiff_t>((p + 1) * power.size() / parts);
        medians.push_back(median(std::vector<double>(from, to)) / std::numbers::ln2);
    }
    for (std::size_t p = 0; p + 1 < parts; ++p)
        medians[p] = std::min(medians[p], medians[p + 1]);
    return medians;
}

namespace {

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
    const std::size_t padded = band_length(length);
    std::vector<double> power = power_spectrum(re, im, padded);
    if (series.complex()) { // the two signs share a place
        const std::size_t half = padded / 2;
        for (std::size_t k = 1; k < half; ++k)
            power[k] = std::max(power[k], power[padded - k]);
        power.resize(half + 1);
    }
    const double top = *std::max_element(power.begin(), power.end());
    const std::vector<double> noise = floor_of(power);
    const double least = series.rounding > kSingle ? kLeastSingle : kLeast;
    const double above = 1.5 * logarithm(static_cast<double>(power.size()) / kFalseAlarm);
    const std::size_t last = power.size() - 1;
    if (power[last] > std::max(above * noise.back(), least * least * top) && power[last] >= power[last - 1])
        return 0.5;
    for (std::size_t k = last; k-- > 1;)
        if (power[k] > std::max(above * noise[k * noise.size() / power.size()], least * least * top) &&
            power[k] >= power[k - 1] && power[k] >= power[k + 1])
            return static_cast<double>(k) / static_cast<double>(padded);
    return 0;
}

} // namespace

double highest_line(const Series& series, std::size_t first)
{
    double highest = 0;
    const std::size_t length = series.size() - first;
    for (const std::size_t part : {1U, 4U, 16U, 64U})
        if (part == 1 || length / part >= 400)
            highest = std::max(highest, highest_in(series, first, length / part));
    return highest;
}

} // namespace tessel::modes
