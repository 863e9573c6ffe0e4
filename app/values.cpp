#include "app/values.h"

#include "app/error.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace tessel::app {

std::size_t parse_count(const std::string& option, const std::string& text)
{
    std::size_t value = 0;
    const auto [stop, status] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (status != std::errc() || stop != text.data() + text.size() || value == 0)
        throw UsageError(option + ": " + quote(text) + " is no whole number from 1 on");
    return value;
}

double parse_positive(const std::string& option, const std::string& text)
{
    double value = 0;
    const auto [stop, status] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (status != std::errc() || stop != text.data() + text.size() || !(value > 0) || !std::isfinite(value))
        throw UsageError(option + ": " + quote(text) + " is no number above zero");
    return value;
}

std::pair<std::optional<Quantity>, std::optional<Quantity>> parse_band(const std::string& text)
{
    std::optional<Quantity> lowest, highest;
    const std::size_t colon = text.find(':');
    if (colon == text.npos || text.size() == 1)
        throw UsageError("--band: " + quote(text) + " is not LOW:HIGH, such as 1e9:4e9, 1GHz:4GHz or 1GHz:");
    if (colon > 0)
        lowest = parse_frequency("--band", text.substr(0, colon));
    if (colon + 1 < text.size())
        highest = parse_frequency("--band", text.substr(colon + 1));
    if (!lowest || !highest)
        return {lowest, highest};
    const auto& [low, high] = std::pair{*lowest, *highest};
    if (low.exponent.has_value() != high.exponent.has_value())
        throw UsageError("--band: " + quote(text) + ": give both ends with a unit, or none");
    const int apart = low.exponent.value_or(0) - high.exponent.value_or(0);
    if (!(shifted(low.value, apart) < high.value))
        throw UsageError("--band: " + quote(text) + " ends before it begins");
    return {lowest, highest};
}

std::string one_line(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

Quantity parse_spacing(const std::string& text)
{
    const Quantity spacing = parse_time("--dt", text);
    if (!(spacing.value > 0))
        throw UsageError("--dt: " + quote(text) + " is not above zero");
    return spacing;
}

TimeUnit parse_unit(const std::string& text)
{
    if (text.empty() || text.size() > 40 ||
        std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x20; }))
        throw UsageError("--time-unit: " + quote(text) + " is no name");
    return known_unit(text).value_or(TimeUnit{text, {}});
}

void check_picture(const std::string& file)
{
    if (!file.empty() && !file.ends_with(".png") && !file.ends_with(".svg") && !file.ends_with(".pdf"))
        throw UsageError("--plot: " + quote(file) + " does not end in .png, .svg or .pdf");
}

void check_units(const std::optional<TimeUnit>& unit, std::initializer_list<std::optional<Quantity>> quantities)
{
    if (!unit || unit->exponent)
        return;
    for (const auto& quantity : quantities)
        if (quantity && quantity->exponent)
            throw UsageError("--time-unit " + unit->name + " and a value in seconds or hertz exclude each other");
}

} // namespace tessel::app
