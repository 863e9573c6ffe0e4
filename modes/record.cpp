#include "modes/record.h"

#include <algorithm>
#include <cmath>

namespace tessel::modes {

namespace {

constexpr std::size_t kFewest = 8;
constexpr double kDouble = 0x1p-53;

} // namespace

void check(const Series& record, double start, double spacing, const Options& options, const std::string& which)
{
    if (!std::isfinite(start))
        throw InputError(InputFault::start, 0, which + "the start is not finite");
    if (!(spacing > 0) || !std::isfinite(spacing) || !std::isfinite(1 / spacing))
        throw InputError(InputFault::spacing, 0, which + "the spacing is not a positive finite number");
    for (std::size_t k = 0; k < record.size(); ++k)
        if (!std::isfinite(record.re[k]) || (record.complex() && !std::isfinite(record.im[k])))
            throw InputError(InputFault::notFinite, k, which + "sample " + std::to_string(k) + " is not finite");
    const std::size_t first = options.first.value_or(0);
    if (first >= record.size() || record.size() - first < kFewest)
        throw InputError(InputFault::tooFewSamples, record.size(),
                         which + "at least " + std::to_string(kFewest) + " samples are needed, there are " +
                             std::to_string(record.size() - std::min(first, record.size())));
    if (options.noise && !(*options.noise > 0 && std::isfinite(*options.noise)))
        throw InputError(InputFault::option, 0, "the noise is not a positive finite number");
    if ((options.lowest && !std::isfinite(*options.lowest)) || (options.highest && !std::isfinite(*options.highest)) ||
        (options.lowest && options.highest && !(*options.lowest < *options.highest)))
        throw InputError(InputFault::option, 0, "the band is empty or not finite");
}

bool constant(const Series& record)
{
    for (std::size_t k = 1; k < record.size(); ++k)
        if (record.re[k] != record.re[0] || (record.complex() && record.im[k] != record.im[0]))
            return false;
    return true;
}

int normalise(Series& record)
{
    double peak = 0;
    for (const double v : record.re)
        peak = std::max(peak, std::abs(v));
    for (const double v : record.im)
        peak = std::max(peak, std::abs(v));
    if (peak == 0)
        return 0;
    int exponent = 0;
    std::frexp(peak, &exponent);
    for (double& v : record.re)
        v = std::ldexp(v, -exponent);
    for (double& v : record.im)
        v = std::ldexp(v, -exponent);
    return exponent;
}

double rounding_of(const Series& record)
{
    for (const auto* part : {&record.re, &record.im})
        for (const double v : *part)
            if (static_cast<double>(static_cast<float>(v)) != v)
                return kDouble;
    return 0x1p-24;
}

} // namespace tessel::modes
