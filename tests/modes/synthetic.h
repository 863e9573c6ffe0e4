/// Records built of known modes.
#pragma once

#include "tests/support/random.h"

#include <tessel/modes.h>

#include <cmath>
#include <complex>
#include <vector>

namespace tessel::modes {

constexpr long double kTwoPi = 6.283185307179586476925286766559L;

/// A mode at the first sample, the spacing being the unit of time.
struct Line
{
    double frequency, decay, amplitude, phase;
};

/// A sum of twelve uniform numbers: near enough to Gaussian, and the same on every system.
inline double normal(tessel::testing::Random& random)
{
    double sum = -6;
    for (int i = 0; i < 12; ++i)
        sum += random.uniform();
    return sum;
}

/// Adds the lines from sample `from` on; a line has its amplitude there. In extended precision: a double would lose the
/// phase of a long record.
inline void add_lines(std::vector<double>& y, const std::vector<Line>& lines, std::size_t from = 0)
{
    for (std::size_t k = from; k < y.size(); ++k) {
        const auto t = static_cast<long double>(k - from);
        long double sum = y[k];
        for (const Line& l : lines)
            sum += l.amplitude * std::exp(-l.decay * t) * std::cos(kTwoPi * l.frequency * t + l.phase);
        y[k] = static_cast<double>(sum);
    }
}

/// Adds noise of standard deviation `sigma`, of which the part `memory` of each value goes into the next.
inline void add_noise(std::vector<double>& y, double sigma, std::uint64_t seed, double memory = 0)
{
    tessel::testing::Random random(seed);
    double value = 0;
    for (double& v : y) {
        value = memory * value + sigma * normal(random);
        v += value;
    }
}

inline std::vector<double> record(const std::vector<Line>& lines, std::size_t n, double noise, std::uint64_t seed = 1)
{
    std::vector<double> y(n);
    add_lines(y, lines);
    add_noise(y, noise, seed);
    return y;
}

/// Adds a burst under a Gaussian envelope of standard deviation `width`.
inline void add_burst(std::vector<double>& y, double height, double middle, double width, double angle)
{
    for (std::size_t k = 0; k < y.size(); ++k) {
        const double u = (static_cast<double>(k) - middle) / width;
        y[k] += height * std::exp(-u * u / 2) * std::cos(angle * static_cast<double>(k));
    }
}

} // namespace tessel::modes
