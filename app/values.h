// Values on command lines. What means nothing is a UsageError, one line that says which option.
#ifndef TESSEL_APP_VALUES_H
#define TESSEL_APP_VALUES_H

#include "app/units.h"

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>

namespace tessel::app {

/// A whole number from 1 on.
std::size_t parse_count(const std::string& option, const std::string& text);

double parse_positive(const std::string& option, const std::string& text);

/// LOW:HIGH, either of which may be left out.
std::pair<std::optional<Quantity>, std::optional<Quantity>> parse_band(const std::string& text);

/// Of --dt.
Quantity parse_spacing(const std::string& text);

/// Of --time-unit: one of seconds, or a name.
TimeUnit parse_unit(const std::string& text);

/// Of --plot: the end of the name says what kind of picture it is; empty is none.
void check_picture(const std::string& file);

/// Values in seconds or hertz, where times are in no unit of seconds.
void check_units(const std::optional<TimeUnit>& unit, std::initializer_list<std::optional<Quantity>> quantities);

/// Text without line breaks.
std::string one_line(std::string text);

} // namespace tessel::app

#endif
