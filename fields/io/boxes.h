/// @file
/// Consecutive points of a field as boxes in its space, which files are read and written by.
#ifndef TESSEL_FIELDS_IO_BOXES_H
#define TESSEL_FIELDS_IO_BOXES_H

#include <hdf5.h>

#include <cstddef>
#include <vector>

namespace tessel::fields {

/// Points [first, first + points) that lie in a box.
struct Box
{
    std::vector<hsize_t> start, count;
    std::size_t first = 0, points = 0;
};

/// Points [first, end): parts of rows, whole rows, whole planes, in the order of their numbers.
std::vector<Box> boxes_of(const std::vector<hsize_t>& dims, std::size_t first, std::size_t end);

} // namespace tessel::fields

#endif
