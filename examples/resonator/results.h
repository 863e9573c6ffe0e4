#pragma once

#include "examples/resonator/analysis.h"

#include <string>

namespace resonator {

/// The results for a program to read, with the keys that `--help` lists: a JSON object, or CSV with a line for each
/// mode. A number has 17 significant digits and is never -0. What was not found or is not finite is null in JSON and
/// nan, inf or -inf in CSV. `as_expected` is the verdict on a cavity.
std::string results(Format format, const Subject& subject, const Window& window, const Findings& findings,
                    bool as_expected);

} // namespace resonator
