#include "fields/processes.h"

#include <algorithm>
#include <cstdlib>

namespace tessel::fields {

Started started()
{
    const auto number = [](const char* name, int otherwise) {
        const char* const text = std::getenv(name);
        return text ? std::atoi(text) : otherwise;
    };
    return {std::max(number("OMPI_COMM_WORLD_RANK", 0), 0), std::max(number("OMPI_COMM_WORLD_SIZE", 1), 1),
            std::max(number("OMPI_COMM_WORLD_LOCAL_SIZE", 1), 1)};
}

} // namespace tessel::fields
