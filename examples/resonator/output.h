#pragma once

#include "examples/resonator/analysis.h"

#include <string>

namespace resonator {

/// Writes PREFIX-record.dat, -modes.dat, -singular.dat and -response.dat. Throws an error that
/// names the file if one cannot be written.
void write_files(const std::string& prefix, const Record& record, const Findings& findings);

/// Draws PREFIX.png and PREFIX-response.png from the files. Returns the reason in one line if that fails.
std::string draw_pictures(const std::string& prefix);

} // namespace resonator
