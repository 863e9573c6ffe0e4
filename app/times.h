// Whether times are equally spaced, as far as their printed digits tell.
#ifndef TESSEL_APP_TIMES_H
#define TESSEL_APP_TIMES_H

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tessel::app {

/// The line through the times, or where they leave it.
struct Grid
{
    double start = 0;
    double spacing = 0;
    double relativeError = 0;         ///< what the rounding of the times leaves open of the spacing, standard deviation
    bool coarse = false;              ///< the rounding is so coarse that a missing row would not be seen
    std::optional<std::size_t> fault; ///< the row that does not fit
    std::string text;                 ///< what is wrong there
};

/// Fits a line to the times and checks each against it, within the rounding of its print.
///
/// @param times      at least one
/// @param rounding   of the time of a row: the unit of its last digit; asked for only if the times are not equally
///   spaced to all digits
Grid fit_grid(const std::vector<double>& times, const std::function<std::vector<double>()>& rounding);

/// The unit of the last digit of printed numbers, all of them printed with the same number of decimals or of
/// significant digits.
///
/// @param values  the numbers
/// @param field   the text of each
std::vector<double> printed_rounding(const std::vector<double>& values,
                                     const std::function<std::string(std::size_t)>& field);

} // namespace tessel::app

#endif
