#pragma once

#include <stdexcept>

namespace resonator {

/// What the user can mend, in one line that names the file, the line or the option.
struct Error : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

} // namespace resonator
