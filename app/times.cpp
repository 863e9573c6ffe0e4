#include "app/times.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>

namespace tessel::app {

namespace {

constexpr double kHarmless = 1e-6; // of a spacing: below what any record shows
constexpr double kRounding = 0.75; // of the last digit's unit: half of it, and what the line may be off
constexpr double kUsual = 0.9;     // part of the steps that are equal where times are not really rounded

std::string number(double value)
{
    std::array<char, 40> digits;
    return {digits.data(),
            std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::general, 10).ptr};
}

/// The least-squares line; of times without rounding it is the line through the ends.
void fit_line(const std::vector<double>& times, Grid& grid)
{
    const auto n = static_cast<double>(times.size());
    const double middle = (n - 1) / 2, span = times.back() - times.front();
    long double slope = 0, offset = 0;
    for (std::size_t k = 0; k < times.size(); ++k) {
        const double guess = times.front() + span * (static_cast<double>(k) / (n - 1));
        slope += static_cast<long double>(static_cast<double>(k) - middle) * (times[k] - guess);
        offset += times[k] - guess;
    }
    const double correction = static_cast<double>(slope) / (n * (n * n - 1) / 12);
    grid.spacing = span / (n - 1) + correction;
    grid.start = times.front() + static_cast<double>(offset) / n - correction * middle;
    if (std::abs(grid.start) < kHarmless * grid.spacing)
        grid.start = 0;
}

} // namespace

Grid fit_grid(const std::vector<double>& times, const std::function<std::vector<double>()>& rounding)
{
    Grid grid;
    const std::size_t n = times.size();
    const auto bad = std::find_if(times.begin(), times.end(), [](double t) { return !std::isfinite(t); });
    const auto fail = [&](std::size_t row, const std::string& text) {
        grid.fault = row;
        grid.text = text;
        return grid;
    };
    if (bad != times.end())
        return fail(static_cast<std::size_t>(bad - times.begin()), "the time is " + number(*bad));
    if (n < 2)
        return fail(0, "there is one row alone");
    const double largest = std::max(std::abs(times.front()), std::abs(times.back()));
    const double least = 4 * std::numeric_limits<double>::epsilon() * largest;
    const auto worst = [&](double start, double spacing) {
        double most = 0;
        for (std::size_t k = 0; k < n; ++k)
            most = std::max(most, std::abs(times[k] - (start + static_cast<double>(k) * spacing)));
        return most;
    };

    // Times to all digits: the ends give the spacing best.
    grid.start = times.front();
    grid.spacing = (times.back() - times.front()) / static_cast<double>(n - 1);
    if (!std::isfinite(grid.spacing))
        return fail(n - 1, "the times span more than a double holds");
    if (grid.spacing > 0 && worst(grid.start, grid.spacing) <= least)
        return grid;
    std::vector<double> steps(n - 1);
    for (std::size_t k = 1; k < n; ++k)
        steps[k - 1] = times[k] - times[k - 1];
    std::vector<double> sorted = steps;
    const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
    std::nth_element(sorted.begin(), middle, sorted.end());
    const double usual = *middle;

    std::vector<double> unit(n, 0.0);
    const auto line_fits = [&] {
        for (std::size_t k = 0; k < n; ++k)
            if (!(std::abs(times[k] - (grid.start + static_cast<double>(k) * grid.spacing)) <=
                  kRounding * unit[k] + least + kHarmless * grid.spacing))
                return false;
        return true;
    };
    if (grid.spacing > 0) {
        fit_line(times, grid);
        const double deviation = worst(grid.start, grid.spacing);
        grid.relativeError = deviation / grid.spacing * std::pow(static_cast<double>(n), -1.5) * 2;
        if (grid.spacing > 0 && line_fits())
            return grid;
        unit = rounding();
        if (grid.spacing > 0 && line_fits()) {
            const double largestUnit = *std::max_element(unit.begin(), unit.end());
            grid.coarse = largestUnit > grid.spacing / 2;
            // 0, 1, 2, 4, 5: one that is missing, rather than 1.2 in whole numbers.
            const auto is_usual = [&](double step) { return std::abs(step - usual) <= 1e-3 * largestUnit; };
            const auto is_double = [&](double step) { return std::abs(step - usual) > 0.9 * usual; };
            const bool whole = static_cast<double>(std::count_if(steps.begin(), steps.end(), is_usual)) >
                               kUsual * static_cast<double>(steps.size());
            if (!grid.coarse || !whole || std::none_of(steps.begin(), steps.end(), is_double))
                return grid;
            unit.assign(n, 0.0);
        }
    }

    // Where it goes wrong: the first step that is not the usual one.
    for (std::size_t k = 1; k < n; ++k) {
        const double slack = kRounding * (unit[k] + unit[k - 1]) + least + kHarmless * std::abs(usual);
        if (std::abs(steps[k - 1] - usual) <= slack && (usual > 0 || n < 3))
            continue;
        const double missing = std::round(steps[k - 1] / usual) - 1;
        const std::string step = "the time " + number(times[k]) + " stands behind " + number(times[k - 1]);
        if (!(usual > 0))
            return fail(k, "the times do not rise");
        if (steps[k - 1] < 0)
            return fail(k, step + ": it goes back");
        if (steps[k - 1] == 0)
            return fail(k, step + ": it stands twice");
        if (missing >= 1 && std::abs(steps[k - 1] - (missing + 1) * usual) <= slack * (missing + 1))
            return fail(k, step + ", where the spacing is " + number(usual) + ": " +
                               (missing == 1 ? "a row is" : number(missing) + " rows are") + " missing");
        return fail(k, step + ", where the spacing is " + number(usual) + ": times must be equally spaced");
    }
    if (!(usual > 0))
        return fail(1, "the times do not rise");
    std::size_t row = 0;
    double most = -1;
    for (std::size_t k = 0; k < n; ++k)
        if (const double off = std::abs(times[k] - (grid.start + static_cast<double>(k) * grid.spacing)) - unit[k];
            off > most) {
            most = off;
            row = k;
        }
    return fail(row, "the times drift from equal spacing, the time " + number(times[row]) + " most");
}

std::vector<double> printed_rounding(const std::vector<double>& values,
                                     const std::function<std::string(std::size_t)>& field)
{
    // Decimals count where the point is fixed, significant digits where the exponent is written; %g drops zeros, so the
    // most that any row shows is what was printed.
    int lowest = std::numeric_limits<int>::max(), digits = 1;
    for (std::size_t k = 0; k < values.size(); ++k) {
        const std::string text = field(k);
        int significant = 0, decimals = 0, exponent = 0;
        bool point = false;
        std::size_t at = 0;
        for (; at < text.size(); ++at) {
            const auto c = static_cast<unsigned char>(text[at]);
            if (c == '.')
                point = true;
            else if (std::isdigit(c)) {
                decimals += point;
                significant += significant > 0 || c != '0';
            } else if (c != '+' && c != '-')
                break;
        }
        while (at < text.size() && std::isalpha(static_cast<unsigned char>(text[at])))
            ++at;
        if (at < text.size() && text[at] == '+')
            ++at;
        std::from_chars(text.data() + at, text.data() + text.size(), exponent);
        lowest = std::min(lowest, std::clamp(exponent, -1000, 1000) - decimals);
        digits = std::max(digits, significant);
    }
    std::vector<double> unit(values.size());
    for (std::size_t k = 0; k < values.size(); ++k) {
        const double top = values[k] == 0 ? lowest : std::floor(std::log10(std::abs(values[k])));
        unit[k] = std::pow(10.0, std::max<double>(lowest, top - digits + 1));
    }
    return unit;
}

} // namespace tessel::app
