#pragma once

#include "examples/resonator/analysis.h"

#include <string>

namespace resonator {

/// Makes the folder that files of this prefix go to, if need be. Throws what is wrong.
void make_folder(const std::string& prefix);

/// Writes PREFIX-record.dat, -modes.dat, -singular.dat and -response.dat. Throws what is wrong and names the file if
/// one cannot be written.
void write_files(const std::string& prefix, const Record& record, const Findings& findings);

/// Draws PREFIX.png and PREFIX-response.png from the files. Returns what hindered it, in one line, or nothing.
std::string draw_pictures(const std::string& prefix);

} // namespace resonator
