#include "app/units.h"

#include "app/error.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <utility>

namespace tessel::app {

namespace {

struct Prefix
{
    std::string_view name;
    int exponent;
};

constexpr std::array<Prefix, 10> kPrefixes{{
    {"a", -18},
    {"f", -15},
    {"p", -12},
    {"n", -9},
    {"u", -6},
    {"m", -3},
    {"", 0},
    {"k", 3},
    {"M", 6},
    {"G", 9},
}};
constexpr std::array<Prefix, 3> kHighPrefixes{{{"T", 12}, {"P", 15}, {"E", 18}}};
constexpr std::string_view kMicro = "\xc2\xb5"; // the micro sign in UTF-8

std::string lower(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](unsigned char c) { return std::tolower(c); });
    return result;
}

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
        text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.remove_suffix(1);
    return text;
}

/// The exponent of the prefix in front of `base`; none if the name is no such unit.
std::optional<int> exponent_of(std::string_view name, std::string_view base)
{
    if (!name.ends_with(base))
        return {};
    name.remove_suffix(base.size());
    if (name == kMicro)
        return -6;
    for (const Prefix& prefix : kPrefixes)
        if (name == prefix.name)
            return prefix.exponent;
    for (const Prefix& prefix : kHighPrefixes)
        if (name == prefix.name)
            return prefix.exponent;
    return {};
}

Quantity parse_quantity(const std::string& option, std::string_view text, std::string_view base, const char* kind)
{
    const std::string_view word = trimmed(text);
    const std::string_view digits = word.substr(word.starts_with('+') ? 1 : 0);
    Quantity quantity;
    const auto [stop, status] = std::from_chars(digits.data(), digits.data() + digits.size(), quantity.value);
    const std::string_view unit = trimmed(digits.substr(static_cast<std::size_t>(stop - digits.data())));
    if (status == std::errc() && std::isfinite(quantity.value)) {
        if (unit.empty())
            return quantity;
        quantity.exponent = exponent_of(unit, base);
        if (quantity.exponent)
            return quantity;
    }
    throw UsageError(option + ": " + quote(std::string(text)) + " is no " + kind);
}

Scale scale(double size, int exponent, std::string_view base)
{
    // Three digits in front of the point at most.
    const double power = size > 0 && std::isfinite(size) ? std::log10(size) + exponent : exponent;
    Scale best{exponent, std::string(base)};
    const auto consider = [&](const Prefix& prefix) {
        if (power >= prefix.exponent - 1e-9 || prefix.exponent == kPrefixes.front().exponent)
            best = {exponent - prefix.exponent, std::string(prefix.name).append(base)};
    };
    std::for_each(kPrefixes.begin(), kPrefixes.end(), consider);
    std::for_each(kHighPrefixes.begin(), kHighPrefixes.end(), consider);
    return best;
}

} // namespace

double shifted(double value, int shift)
{
    if (shift == 0 || value == 0 || !std::isfinite(value))
        return value;
    // In decimal digits: 3.3 ps are 3.3e-12 s to the last bit.
    std::array<char, 48> digits;
    char* end = std::to_chars(digits.data(), digits.data() + 32, value, std::chars_format::scientific).ptr;
    char* const exponent = std::find(digits.data(), end, 'e') + 1;
    int power = 0;
    std::from_chars(exponent + (*exponent == '+' ? 1 : 0), end, power);
    end = std::to_chars(exponent, digits.data() + digits.size(), power + shift).ptr;
    double result = 0;
    const auto [stop, status] = std::from_chars(digits.data(), end, result);
    return status == std::errc() ? result : value * std::pow(10.0, shift);
}

std::optional<TimeUnit> known_unit(std::string_view name)
{
    if (const std::optional<int> exponent = exponent_of(name, "s"); exponent && *exponent <= 0)
        return TimeUnit{name == "\xc2\xb5s" ? "us" : std::string(name), exponent};
    const std::string plain = lower(name);
    if (plain == "sec" || plain == "second" || plain == "seconds")
        return TimeUnit{};
    for (const char* word : {"step", "steps", "timestep", "timesteps", "samples"})
        if (plain == word)
            return TimeUnit{"steps", {}};
    return {};
}

std::optional<TimeUnit> unit_in_name(std::string_view name)
{
    name = trimmed(name);
    for (const auto& [open, close] : {std::pair{'(', ')'}, std::pair{'[', ']'}})
        if (const std::size_t at = name.rfind(open); name.ends_with(close) && at != name.npos)
            return known_unit(trimmed(name.substr(at + 1, name.size() - at - 2)));
    if (const std::size_t at = name.find_last_of("/_ "); at != name.npos && at > 0)
        return known_unit(name.substr(at + 1));
    return {};
}

Quantity parse_time(const std::string& option, std::string_view text)
{
    return parse_quantity(option, text, "s", "time, such as 3.3e-12 or 3.3ps");
}

Quantity parse_frequency(const std::string& option, std::string_view text)
{
    return parse_quantity(option, text, "Hz", "frequency, such as 1.5e9 or 1.5GHz");
}

double in_unit(const Quantity& time, const TimeUnit& unit)
{
    if (!time.exponent)
        return time.value;
    if (!unit.exponent)
        throw Error("a time in seconds was given, but the record's times are in " + unit.name);
    return shifted(time.value, *time.exponent - *unit.exponent);
}

double in_inverse_unit(const Quantity& frequency, const TimeUnit& unit)
{
    if (!frequency.exponent)
        return frequency.value;
    if (!unit.exponent)
        throw Error("a frequency in hertz was given, but the record's times are in " + unit.name);
    return shifted(frequency.value, *frequency.exponent + *unit.exponent);
}

Scale time_scale(double size, const TimeUnit& unit)
{
    return unit.exponent ? scale(size, *unit.exponent, "s") : Scale{0, unit.name};
}

Scale frequency_scale(double size, const TimeUnit& unit)
{
    if (unit.exponent)
        return scale(size, -*unit.exponent, "Hz");
    return {0, unit.name == "steps" ? "1/step" : "1/" + unit.name};
}

} // namespace tessel::app
