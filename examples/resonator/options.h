#pragma once

#include "examples/resonator/record.h"

#include <optional>
#include <string>
#include <vector>

namespace resonator {

/// What standard output is given.
enum class Format
{
    report,
    json,
    csv
};

struct Options
{
    bool help = false;
    std::string record;            ///< file to fit; empty: simulate the cavity
    std::optional<double> spacing; ///< of a record without times [s]
    std::optional<double> start;   ///< time of the first fitted sample [s]
    Index stride = 0;              ///< 0: chosen from the record's spectrum
    Index samples = 500;           ///< most samples to fit
    std::vector<Index> orders;     ///< empty: chosen from the number of samples
    double threshold = 1e-6;       ///< least share of a mode, relative to the largest
    std::string output;            ///< prefix of the files to write; empty: none
    Format format = Format::report;
    std::string library; ///< empty: default_library()
};

/// Reads the command line; throws an Error that names the option at fault.
Options parse_options(const std::vector<std::string>& arguments);

/// What `--help` prints.
extern const char kHelp[];

} // namespace resonator
