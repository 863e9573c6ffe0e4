/// The end of the process, for the routines whose contract is to stop on bad input.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace tessel {

/// Writes the stop text and a newline to the error stream and ends the process with a failure status.
[[noreturn]] inline void stop(const char* text)
{
    std::fprintf(stderr, "%s\n", text);
    std::exit(EXIT_FAILURE);
}

} // namespace tessel
