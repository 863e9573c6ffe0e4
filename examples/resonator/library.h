#pragma once

#include <string>

namespace resonator {

/// Where the library is when nobody says: in the build folder or the `lib` beside this program, otherwise wherever
/// the system's loader finds its name.
std::string default_library();

} // namespace resonator
