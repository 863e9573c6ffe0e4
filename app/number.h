// Numbers as people read them.
#ifndef TESSEL_APP_NUMBER_H
#define TESSEL_APP_NUMBER_H

#include <string>

namespace tessel::app {

/// A value with its standard error in the last digits: "1.503 091 026(12)", "87.80(14)", "3.4(1.2)", "1.230(45)e-6".
///
/// Two digits of the error are given; digits stand in groups of three. A power of ten is split off below 1e-3 and from
/// 1e6 on. An error of zero, or below what a double holds, leaves 16 digits.
std::string short_form(double value, double error);

/// A value in so many significant digits, in groups of three, without an exponent where that is readable.
std::string plain_form(double value, int digits);

/// Where the point of a number stands, or would stand: texts are aligned there.
std::size_t point_of(const std::string& number);

} // namespace tessel::app

#endif
