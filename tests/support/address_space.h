/// How much address space this process has, in bytes.
#pragma once

#include <cstddef>
#include <fstream>

#include <unistd.h>

namespace tessel::testing {

inline std::size_t address_space()
{
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

} // namespace tessel::testing
