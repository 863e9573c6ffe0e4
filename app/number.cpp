#include "app/number.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace tessel::app {

namespace {

constexpr int kDigits = 16; // that a double holds

std::string printed(const char* format, int digits, double value)
{
    std::array<char, 512> text;
    std::snprintf(text.data(), text.size(), format, digits, value);
    return text.data();
}

/// Power of ten of the first digit, after rounding to so many digits.
int top_digit(double value, int digits)
{
    if (value == 0)
        return 0;
    const std::string text = printed("%.*e", digits - 1, value);
    return std::atoi(text.c_str() + text.find('e') + 1);
}

/// value / 10^shift with so many decimals, from the decimal digits of the value.
std::string fixed(double value, int shift, int decimals)
{
    if (shift == 0)
        return printed("%.*f", decimals, value);
    // %e rounds the exact value; the point is moved in the text.
    const int top = top_digit(value, 18), digits = top - shift + decimals;
    if (value == 0 || digits < 0)
        return printed("%.*f", decimals, value == 0 ? 0.0 : value * std::pow(10.0, -shift));
    const std::string text = printed("%.*e", digits, value);
    std::string mantissa;
    for (const char c : text.substr(0, text.find('e')))
        if (c >= '0' && c <= '9')
            mantissa += c;
    const int whole = std::atoi(text.c_str() + text.find('e') + 1) - shift + 1; // digits in front of the point
    if (whole <= 0)
        mantissa.insert(0, static_cast<std::size_t>(1 - whole), '0');
    const auto point = static_cast<std::size_t>(std::max(whole, 1));
    mantissa.resize(std::max(mantissa.size(), point + static_cast<std::size_t>(decimals)), '0');
    mantissa.resize(point + static_cast<std::size_t>(decimals));
    if (decimals > 0)
        mantissa.insert(point, 1, '.');
    if (std::signbit(value))
        mantissa.insert(mantissa.begin(), '-');
    return mantissa;
}

/// Blanks between groups of three digits, on both sides of the point.
std::string grouped(const std::string& digits)
{
    const std::size_t first = digits.find_first_of("0123456789");
    const std::size_t point = std::min(digits.find('.'), digits.size());
    std::string result;
    for (std::size_t k = 0; k < digits.size(); ++k) {
        if (k > first && k < point && (point - k) % 3 == 0)
            result += ' ';
        if (k > point + 1 && (k - point - 1) % 3 == 0)
            result += ' ';
        result += digits[k];
    }
    return result;
}

std::string with_power(int shift)
{
    std::string text;
    if (shift != 0)
        text.append(1, 'e').append(std::to_string(shift));
    return text;
}

int shift_for(int top)
{
    return top < -3 || top >= 6 ? top : 0;
}

} // namespace

std::string short_form(double value, double error)
{
    if (!std::isfinite(value))
        return std::isnan(value) ? "-" : value > 0 ? "inf" : "-inf";
    const int top = top_digit(value, kDigits);
    if (!std::isfinite(error) || error < 0)
        return plain_form(value, 6) + "(?)";
    const bool exact = error == 0 || (value != 0 && error < std::abs(value) * 1e-15);
    if (exact)
        return plain_form(value, kDigits);
    int last = top_digit(error, 2) - 1;
    const double digits = std::clamp(std::round(error * std::pow(10.0, -last)), 10.0, 99.0);
    const int shift = shift_for(value == 0 ? last + 1 : std::max(top, last + 1));
    last -= shift;
    if (last >= 0)
        // No digit of the value below those of the error.
        return grouped(
                   fixed(std::round(value / std::pow(10.0, last + shift)) * std::pow(10.0, last + shift), shift, 0)) +
               "(" + grouped(printed("%.*f", 0, digits * std::pow(10.0, last))) + ")" + with_power(shift);
    const std::string brackets = digits * std::pow(10.0, last) >= 1
                                     ? printed("%.*f", -last, digits * std::pow(10.0, last))
                                     : printed("%.*f", 0, digits);
    return grouped(fixed(value, shift, -last)) + "(" + brackets + ")" + with_power(shift);
}

std::string plain_form(double value, int digits)
{
    if (!std::isfinite(value))
        return std::isnan(value) ? "-" : value > 0 ? "inf" : "-inf";
    if (value == 0)
        return "0";
    const int top = top_digit(value, digits), shift = shift_for(top);
    value = std::strtod(printed("%.*e", digits - 1, value).c_str(), nullptr);
    std::string text = fixed(value, shift, std::max(digits - 1 - (top - shift), 0));
    if (text.find('.') != text.npos) {
        text.erase(text.find_last_not_of('0') + 1);
        if (text.back() == '.')
            text.pop_back();
    }
    return grouped(text) + with_power(shift);
}

std::size_t point_of(const std::string& number)
{
    return std::min(number.find_first_of(".(e"), number.size());
}

} // namespace tessel::app
