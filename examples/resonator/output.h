#pragma once

#include "examples/resonator/fit.h"
#include "examples/resonator/report.h"

#include <string>
#include <vector>

namespace resonator {

/// Writes PREFIX-record.dat, PREFIX-modes.dat and PREFIX-poles.dat; makes the folder if need be. `pairs` are the exact
/// modes where there are any. Throws an Error that names the file which cannot be written.
void write_files(const std::string& prefix, const Record& record, const Window& window, const Fit& fit,
                 const std::vector<Mode>& modes, const std::vector<Pair>& pairs);

/// Draws PREFIX.png from the files. Returns what hindered it, in one line, or nothing.
std::string draw_picture(const std::string& prefix);

} // namespace resonator
