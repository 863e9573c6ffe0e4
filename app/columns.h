// What every reader gives: columns of numbers, and what the file says of its times.
#ifndef TESSEL_APP_COLUMNS_H
#define TESSEL_APP_COLUMNS_H

#include "app/units.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tessel::app {

/// One column of a file. All columns of a file are equally long.
struct Column
{
    std::string name; ///< empty if the file gives none
    std::vector<double> real;
    std::vector<double> imag; ///< empty if the column is real
    bool single = false;      ///< the file holds single precision
};

/// A file, read.
struct Columns
{
    std::vector<Column> columns;
    std::optional<double> spacing;                              ///< that the file gives beside the columns
    std::string spacingFrom;                                    ///< what gives it, for people
    double start = 0;                                           ///< time of the first sample, where `spacing` is given
    std::optional<TimeUnit> unit;                               ///< of the times, if the file names it
    std::optional<Column> times;                                ///< that stand beside the columns
    std::vector<std::string> notes;                             ///< what a reader decided that a user may want to know
    std::function<std::size_t(std::size_t)> line;               ///< of a row; empty if the file has no lines
    std::function<std::string(std::size_t, std::size_t)> field; ///< as printed, by row and column; empty if not text

    std::size_t rows() const { return columns.empty() ? 0 : columns.front().real.size(); }
};

} // namespace tessel::app

#endif
