#include "modes/decimation.h"

#include "common/elementary.h"

#include <algorithm>
#include <cmath>

namespace tessel::modes {

Series decimate(const Series& series, std::size_t first, std::size_t factor, const Noise& noise)
{
    const std::size_t count = (series.size() - first) / factor;
    Series out;
    const auto mean = [&](const std::vector<double>& from, std::vector<double>& to) {
        to.resize(count);
        for (std::size_t b = 0; b < count; ++b) {
            // In extended precision: a mean is as good as its samples.
            Extended sum = 0;
            for (std::size_t k = 0; k < factor; ++k)
                sum += static_cast<Extended>(from[first + b * factor + k]);
            to[b] = static_cast<double>(sum / static_cast<Extended>(factor));
        }
    };
    mean(series.re, out.re);
    if (series.complex())
        mean(series.im, out.im);
    out.rounding = series.rounding * std::sqrt(static_cast<double>(factor));
    out.segment = std::max<std::size_t>(1, noise.segment / factor);
    for (const double sigma : noise.sigma)
        out.weight.push_back(static_cast<double>(factor) / (sigma * sigma));
    return out;
}

ExtendedComplex block_mean(ExtendedComplex s, std::size_t factor)
{
    ExtendedComplex sum = 0;
    for (std::size_t k = 0; k < factor; ++k) {
        const Extended x = static_cast<Extended>(k) / static_cast<Extended>(factor);
        sum += exponential(s * x);
    }
    return sum / static_cast<Extended>(factor);
}

ExtendedComplex block_mean_slope(ExtendedComplex s, std::size_t factor)
{
    ExtendedComplex sum = 0, slope = 0;
    for (std::size_t k = 0; k < factor; ++k) {
        const Extended x = static_cast<Extended>(k) / static_cast<Extended>(factor);
        const ExtendedComplex e = exponential(s * x);
        sum += e;
        slope += x * e;
    }
    return slope / sum;
}

} // namespace tessel::modes
