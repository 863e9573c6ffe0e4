// Units of time and frequency, and values on the command line that carry one.
#ifndef TESSEL_APP_UNITS_H
#define TESSEL_APP_UNITS_H

#include <optional>
#include <string>
#include <string_view>

namespace tessel::app {

/// What times are counted in. Frequencies are in its inverse.
struct TimeUnit
{
    std::string name = "s";
    std::optional<int> exponent = 0; ///< the unit is 10^exponent seconds; none if it is no unit of seconds

    bool operator==(const TimeUnit& other) const { return name == other.name && exponent == other.exponent; }
};

/// A unit of seconds by its name, such as "ns" or "seconds", or "steps"; none if there is no such unit.
std::optional<TimeUnit> known_unit(std::string_view name);

/// The unit in a column's name: "time (ns)", "t [ps]", "Time/us" or "t_ns".
std::optional<TimeUnit> unit_in_name(std::string_view name);

/// A number with a unit, or without: then it is in the unit of the record.
struct Quantity
{
    double value = 0;
    std::optional<int> exponent; ///< of seconds or hertz
};

/// Reads "3.3e-12", "3.3ps" or "3.3 ps".
/// @throws UsageError  if it is no finite time; `option` is named
Quantity parse_time(const std::string& option, std::string_view text);

/// Reads "1.5e9" or "1.5GHz".
Quantity parse_frequency(const std::string& option, std::string_view text);

/// The time in a record's unit.
/// @throws Error  if it is in seconds and the record is not
double in_unit(const Quantity& time, const TimeUnit& unit);

/// The frequency in the inverse of a record's unit.
double in_inverse_unit(const Quantity& frequency, const TimeUnit& unit);

/// A scale for numbers that people read: they are multiplied by 10^shift and followed by `name`.
struct Scale
{
    int shift = 0;
    std::string name;
};

/// For times of about `size` units: picoseconds, say.
Scale time_scale(double size, const TimeUnit& unit);

/// For frequencies of about `size` per unit: gigahertz, say.
Scale frequency_scale(double size, const TimeUnit& unit);

/// value 10^shift, rounded once where a double holds the shortest digits of the value.
double shifted(double value, int shift);

} // namespace tessel::app

#endif
