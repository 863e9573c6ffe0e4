#include "modes/rounding.h"
#include "modes/spectrum.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>

namespace tessel::modes {

namespace {

constexpr double kBeta = 8;      // side lobes 60 dB down
constexpr double kNearest = 2.5; // bins: from the main lobe's half on
constexpr double kFarthest = 9;
constexpr double kShown = 3;   // of the white noise, at kNearest: a foot that counts
constexpr double kLikely = 30; // of the white noise at a bin, of what all lines have: some three standard errors of it
constexpr std::size_t kAround = 9; // lines, at most, that tell what a walk usually is
constexpr double kUsual = 1.5;     // of the second largest walk around a line: what its own may be
constexpr double kPi = 3.14159265358979323846;

/// Periodogram of the weighted residual, mean 1 for white noise of the series' weights; its length is that of the
/// transform.
std::vector<double> weighted_periodogram(const Series& series, std::size_t n, const std::vector<double>& residual,
                                         std::size_t& padded)
{
    const std::vector<double> window = kaiser(n, kBeta);
    std::vector<double> re(n), im(series.complex() ? n : 0);
    for (std::size_t k = 0; k < n; ++k) {
        const double w = window[k] * std::sqrt(series.weightAt(k));
        re[k] = residual[k] * w;
        if (series.complex())
            im[k] = residual[n + k] * w;
    }
    padded = fast_length(n);
    std::vector<double> power = power_spectrum(re, im, padded);
    if (series.complex())
        for (double& p : power)
            p /= 2;
    return power;
}

} // namespace

double Feet::foot(double angle, std::size_t samples) const
{
    double sum = 0;
    const double near = kPi / static_cast<double>(samples);
    for (std::size_t j = 0; j < walk.size(); ++j) {
        double apart = std::abs(angle - angles[j]);
        if (apart > kPi)
            apart = 2 * kPi - apart;
        sum += walk[j] / (apart * apart + near * near);
    }
    return sum;
}

Feet feet_of(const Series& series, const Terms& terms, std::size_t n, const std::vector<double>& residual)
{
    Feet feet;
    if (terms.empty() || n < 64 || !(series.rounding > 0))
        return feet;
    std::size_t padded = 0;
    const std::vector<double> power = weighted_periodogram(series, n, residual, padded);
    const double bin = 2 * kPi / static_cast<double>(padded);
    const double resolution = 2 * kPi / static_cast<double>(n);
    double strongest = 0;
    for (const Term& term : terms)
        strongest = std::max(strongest, std::abs(term.c) * std::sqrt(series.weightAt(term.origin)));
    feet.level = std::min(1.0, median(power) / std::numbers::ln2);
    struct Value
    {
        double power, apart;
    };
    // The walk that explains these values: with it half of them lie above the median of white noise.
    const auto walk_of = [&](const std::vector<Value>& values) {
        const auto ratio = [&](double walk) {
            std::vector<double> of;
            for (const Value& v : values)
                of.push_back(v.power / (feet.level + walk / (v.apart * v.apart)));
            return median(of) / std::numbers::ln2;
        };
        double high = 0;
        for (const Value& v : values)
            high = std::max(high, v.power * v.apart * v.apart / std::numbers::ln2);
        if (ratio(0) <= 1)
            return 0.0;
        double low = 0;
        for (int k = 0; k < 40; ++k) {
            const double middle = (low + high) / 2;
            (ratio(middle) > 1 ? low : high) = middle;
        }
        return high;
    };
    std::vector<double> own;
    std::vector<Value> all;
    std::size_t lines = 0;
    for (const Term& term : terms) {
        const auto angle = static_cast<double>(term.angle);
        std::vector<Value> values;
        const auto centre = static_cast<std::ptrdiff_t>(std::llround(angle / bin));
        const auto reach = static_cast<std::ptrdiff_t>(kFarthest * resolution / bin) + 1;
        for (std::ptrdiff_t d = -reach; d <= reach; ++d) {
            std::ptrdiff_t at = centre + d;
            const double apart = static_cast<double>(at) * bin - angle;
            if (std::abs(apart) < kNearest * resolution || std::abs(apart) > kFarthest * resolution)
                continue;
            if (series.complex()) {
                at = (at % static_cast<std::ptrdiff_t>(padded) + static_cast<std::ptrdiff_t>(padded)) %
                     static_cast<std::ptrdiff_t>(padded);
            } else if (at < 0 || at >= static_cast<std::ptrdiff_t>(power.size())) {
                continue;
            }
            bool nearest = true; // the foot of another line would be taken for this one's
            for (const Term& other : terms)
                nearest = nearest && (&other == &term ||
                                      std::abs(static_cast<double>(other.angle) - (angle + apart)) > std::abs(apart));
            if (nearest)
                values.push_back({power[static_cast<std::size_t>(at)], apart});
        }
        own.push_back(values.size() < 4 ? -1 : walk_of(values));
        lines += values.size() >= 4;
        all.insert(all.end(), values.begin(), values.end());
    }
    if (lines == 0)
        return feet;
    const double common = walk_of(all);
    const double least = kShown * feet.level * kNearest * kNearest * resolution * resolution;
    const double most = series.rounding * series.rounding * strongest * strongest;
    if (common > most)
        return feet;
    const double certain = kLikely * feet.level * resolution * resolution / std::sqrt(static_cast<double>(all.size()));
    feet.common = common > certain ? common : 0;
    const double all_have = common < least ? 0 : common / 4;
    // Walks vary with the probe's place in each mode, and little with the frequency. One that is far larger than those
    // around it is no walk: another line, not in the model yet, stands in the foot.
    const auto usual = [&](std::size_t j) {
        std::vector<std::size_t> known;
        for (std::size_t i = 0; i < terms.size(); ++i)
            if (i != j && own[i] >= 0)
                known.push_back(i);
        std::stable_sort(known.begin(), known.end(), [&](std::size_t a, std::size_t b) {
            return std::abs(terms[a].angle - terms[j].angle) < std::abs(terms[b].angle - terms[j].angle);
        });
        known.resize(std::min(known.size(), kAround));
        std::vector<double> around;
        for (const std::size_t i : known)
            around.push_back(own[i]);
        std::sort(around.begin(), around.end(), std::greater<>());
        const bool most_walk = around.size() > kAround / 2 && around[around.size() / 2] > 0;
        return most_walk ? kUsual * around[1] : most;
    };
    bool any = feet.common > 0;
    for (std::size_t j = 0; j < terms.size(); ++j) {
        double walk = std::min({own[j], most, usual(j)});
        if (walk < least / kShown)
            walk = 0;
        feet.walk.push_back(std::max(walk, all_have));
        feet.angles.push_back(static_cast<double>(terms[j].angle));
        any = any || feet.walk.back() > 0;
    }
    return any ? feet : Feet();
}

double reduced_with_feet(const Series& series, const Terms& terms, std::size_t n, bool* any)
{
    std::vector<double> residual;
    evaluate(series, terms, n, &residual);
    const Feet feet = feet_of(series, terms, n, residual);
    if (any != nullptr)
        *any = feet.any();
    std::size_t padded = 0;
    const std::vector<double> power = weighted_periodogram(series, n, residual, padded);
    double sum = 0;
    for (std::size_t k = 0; k < power.size(); ++k)
        sum += power[k] / feet.excess(2 * kPi * static_cast<double>(k) / static_cast<double>(padded), n);
    return sum / static_cast<double>(power.size());
}

} // namespace tessel::modes
