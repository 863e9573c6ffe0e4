// The command line of tessel-fields.
#ifndef TESSEL_APP_FIELDS_OPTIONS_H
#define TESSEL_APP_FIELDS_OPTIONS_H

#include "app/units.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tessel::app {

/// What the user said; all else is found out.
struct FieldsOptions
{
    std::string input;         ///< as given
    std::string file, dataset; ///< the two parts of it
    std::string output;        ///< NAME-modes.h5 beside the input by default
    std::string command;       ///< the whole line, as a shell reads it
    // How the file is read
    std::optional<bool> timeLast;
    std::optional<Quantity> spacing;
    std::optional<TimeUnit> unit;
    // What is looked for
    std::optional<Quantity> lowest, highest, start;
    std::optional<double> noise;
    std::optional<std::size_t> mostModes;
    std::size_t samples = 32;
    // How the work is done
    std::size_t memory = std::size_t(1) << 30;
    unsigned jobs = 0; ///< 0: as many as there are processors for this process
    bool resume = false;
    // What comes out
    bool json = false;
    std::string plot;
    bool quiet = false;
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
