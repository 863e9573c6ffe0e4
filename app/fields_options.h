// The command line of tessel-fields.
#ifndef TESSEL_APP_FIELDS_OPTIONS_H
#define TESSEL_APP_FIELDS_OPTIONS_H

#include "app/options.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tessel::app {

/// What the user said; all else is found out. Of the options of tessel-modes it has spacing and unit, what is looked
/// for, the picture, quiet and jobs, which are threads.
struct FieldsOptions : Options
{
    std::string input;            ///< as given
    std::string file, dataset;    ///< the two parts of it
    std::string output;           ///< NAME-modes.h5 beside the input by default
    std::string command;          ///< the whole line, as a shell reads it
    std::optional<bool> timeLast; ///< the axis of time
    std::size_t samples = 32;     ///< points whose records determine the first poles
    std::size_t memory = std::size_t(1) << 30;
    bool resume = false;
    bool json = false;
};

/// A command line, read: options, or a text that was asked for instead (help, version).
struct FieldsCommandLine
{
    FieldsOptions options;
    std::optional<std::string> text;
};

/// @param arguments  without the program's name
/// @throws UsageError  one line that says what is wrong
FieldsCommandLine parse_fields_command_line(const std::vector<std::string>& arguments);

} // namespace tessel::app

#endif
