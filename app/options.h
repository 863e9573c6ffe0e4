// The command line.
#ifndef TESSEL_APP_OPTIONS_H
#define TESSEL_APP_OPTIONS_H

#include "app/units.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tessel::app {

enum class Format
{
    table,
    json,
    csv
};

/// What the user said; all else is found out.
struct Options
{
    std::vector<std::string> files;
    // How files are read
    std::vector<std::string> columns; ///< names or numbers, each of which may be a list with commas
    std::optional<Quantity> spacing;
    std::optional<TimeUnit> unit;
    std::optional<int> axis;   ///< of time, in arrays of two dimensions
    bool complexPairs = false; ///< columns of values are real and imaginary parts in turn
    // What is looked for
    bool joint = false; ///< all records have one set of modes
    std::optional<Quantity> lowest, highest, start;
    std::optional<double> noise;
    std::optional<std::size_t> mostModes;
    // What comes out
    Format format = Format::table;
    std::string plot; ///< empty: nothing is drawn
    bool quiet = false;
    unsigned jobs = 0; ///< 0: as many as there are processors
};

/// A command line, read: options, or a text that was asked for instead (help, version).
struct CommandLine
{
    Options options;
    std::optional<std::string> text;
};

/// @param arguments  without the program's name
/// @throws UsageError  one line that says what is wrong
CommandLine parse_command_line(const std::vector<std::string>& arguments);

} // namespace tessel::app

#endif
