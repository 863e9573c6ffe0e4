#include "examples/resonator/record.h"

#include "examples/resonator/error.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <string_view>

namespace resonator {

namespace {

/// A step between two times may differ from the usual one by this part of it: printed times are rounded.
constexpr double kSpacingTolerance = 0.1;

[[noreturn]] void fail_at(const std::string& path, Index line, const std::string& what)
{
    throw Error(path + ":" + std::to_string(line) + ": " + what);
}

std::string text(double value)
{
    char digits[32];
    return {digits, std::to_chars(digits, digits + sizeof digits, value, std::chars_format::general, 10).ptr};
}

std::string quoted(std::string_view word)
{
    std::string result(1, '\'');
    return result.append(word).append(1, '\'');
}

std::string columns(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " column" : " columns");
}

double parse_number(const std::string& path, Index line, std::string_view word)
{
    std::string plain(word.substr(word.front() == '+' ? 1 : 0));
    std::replace_if(
        plain.begin(), plain.end(), [](char c) { return c == 'D' || c == 'd'; }, 'e');
    const char* const end = plain.data() + plain.size();
    double value = 0.0;
    const auto [stop, status] = std::from_chars(plain.data(), end, value);
    if (status == std::errc::invalid_argument || stop != end)
        fail_at(path, line, quoted(word) + " is not a number");
    if (status != std::errc() || !std::isfinite(value))
        fail_at(path, line, quoted(word) + " is not a finite number in double precision");
    return value;
}

/// The words of one line; none on an empty line or one that is all comment.
std::vector<std::string_view> split(std::string_view rest)
{
    constexpr std::string_view separators = " \t\r,;";
    rest = rest.substr(0, rest.find('#'));
    std::vector<std::string_view> words;
    for (;;) {
        rest.remove_prefix(std::min(rest.find_first_not_of(separators), rest.size()));
        if (rest.empty())
            return words;
        words.push_back(rest.substr(0, rest.find_first_of(separators)));
        rest.remove_prefix(words.back().size());
    }
}

/// The spacing of the times, which must be equal; `lines` tells where each stood.
double equal_spacing(const std::string& path, const std::vector<double>& times, const std::vector<Index>& lines)
{
    // The median step is the usual one, wherever in the file a line is missing or too many.
    std::vector<double> steps;
    for (std::size_t k = 1; k < times.size(); ++k)
        steps.push_back(times[k] - times[k - 1]);
    std::vector<double> sorted = steps;
    const auto middle = sorted.begin() + static_cast<Index>(sorted.size() / 2);
    std::nth_element(sorted.begin(), middle, sorted.end());
    const double usual = *middle;
    for (std::size_t k = 0; k < steps.size(); ++k)
        if (!(steps[k] > 0.0))
            fail_at(path, lines[k + 1], "time " + text(times[k + 1]) + " does not come after " + text(times[k]));
        else if (!(std::abs(steps[k] - usual) <= kSpacingTolerance * usual))
            fail_at(path, lines[k + 1],
                    "the times are not equally spaced: a step of " + text(steps[k]) + " to " + text(times[k + 1]) +
                        ", where " + text(usual) + " is usual");

    // Each step may be right within its rounding and the sum of them still drift away from a straight line.
    const double spacing = (times.back() - times.front()) / static_cast<double>(steps.size());
    for (std::size_t k = 0; k < times.size(); ++k) {
        const double expected = times.front() + static_cast<double>(k) * spacing;
        if (!(std::abs(times[k] - expected) <= kSpacingTolerance * spacing))
            fail_at(path, lines[k],
                    "the times are not equally spaced: " + text(times[k]) + ", where equal steps lead to " +
                        text(expected));
    }
    return spacing;
}

} // namespace

bool Record::is_real() const
{
    return std::all_of(values.begin(), values.end(), [](const Complex& value) { return value.imag() == 0.0; });
}

std::vector<Complex> samples_of(const Record& record, const Window& window)
{
    std::vector<Complex> samples;
    for (Index k = 0; k < window.count; ++k)
        samples.push_back(record.at(window.first + k * window.stride));
    return samples;
}

Record read_record(const std::string& path, std::optional<double> spacing)
{
    std::ifstream file(path);
    if (!file)
        throw Error(path + ": cannot be opened: " + std::strerror(errno));

    const std::size_t time_columns = spacing ? 0 : 1;
    const std::string layout =
        spacing ? "with --dt the columns are: real part [imaginary part]"
                : "the columns are: time, real part [imaginary part]; for a record without times give --dt";
    Record record;
    std::vector<double> times;
    std::vector<Index> lines;
    std::size_t width = 0;
    std::string text_of_line;
    for (Index line = 1; std::getline(file, text_of_line); ++line) {
        const std::vector<std::string_view> words = split(text_of_line);
        if (words.empty())
            continue;
        if (width == 0) {
            width = words.size();
            if (width < time_columns + 1 || width > time_columns + 2)
                fail_at(path, line, columns(width) + "; " + layout);
        }
        if (words.size() != width)
            fail_at(path, line, columns(words.size()) + ", where the lines before have " + std::to_string(width));
        std::vector<double> numbers;
        numbers.reserve(width);
        for (const std::string_view word : words)
            numbers.push_back(parse_number(path, line, word));
        if (!spacing)
            times.push_back(numbers[0]);
        lines.push_back(line);
        record.values.emplace_back(numbers[time_columns], width > time_columns + 1 ? numbers[time_columns + 1] : 0.0);
    }
    if (file.bad())
        throw Error(path + ": cannot be read: " + std::strerror(errno));
    if (record.size() < 2)
        throw Error(path + ": no record: the file has fewer than two samples");

    record.start = spacing ? 0.0 : times.front();
    record.spacing = spacing ? *spacing : equal_spacing(path, times, lines);
    return record;
}

} // namespace resonator
