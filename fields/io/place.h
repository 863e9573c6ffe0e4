/// @file
/// Points by their indices.
#ifndef TESSEL_FIELDS_IO_PLACE_H
#define TESSEL_FIELDS_IO_PLACE_H

#include <cstddef>
#include <vector>

namespace tessel::fields {

/// Indices of a point in a space of these extents, the slowest first.
inline std::vector<std::size_t> place_of(std::size_t point, const std::vector<std::size_t>& space)
{
    std::vector<std::size_t> place(space.size());
    for (std::size_t k = space.size(); k-- > 0; point /= space[k])
        place[k] = point % space[k];
    return place;
}

} // namespace tessel::fields

#endif
