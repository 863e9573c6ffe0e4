#include "fields/io/boxes.h"

#include <algorithm>
#include <utility>

namespace tessel::fields {

namespace {

/// The boxes of points in the part of space that the indices `before` leave open; `offset` is its first point.
void add_boxes(const std::vector<hsize_t>& dims, std::size_t first, std::size_t end, std::vector<hsize_t> before,
               std::size_t offset, std::vector<Box>& boxes)
{
    if (first == end)
        return;
    const std::size_t axis = before.size();
    std::size_t inner = 1;
    for (std::size_t k = axis + 1; k < dims.size(); ++k)
        inner *= dims[k];
    const auto add_part = [&](std::size_t row, std::size_t from, std::size_t to) {
        std::vector<hsize_t> inside = before;
        inside.push_back(row);
        add_boxes(dims, from, to, inside, offset + row * inner, boxes);
    };
    std::size_t row = first / inner;
    if (first % inner != 0) {
        add_part(row, first - row * inner, std::min(end - row * inner, inner));
        ++row;
    }
    if (const std::size_t rows = end / inner; rows > row) {
        Box box{before, std::vector<hsize_t>(axis, 1), offset + row * inner, (rows - row) * inner};
        box.start.push_back(row);
        box.count.push_back(rows - row);
        for (std::size_t k = axis + 1; k < dims.size(); ++k) {
            box.start.push_back(0);
            box.count.push_back(dims[k]);
        }
        boxes.push_back(std::move(box));
        row = rows;
    }
    if (row * inner < end && end % inner != 0 && end / inner == row)
        add_part(row, 0, end - row * inner);
}

} // namespace

std::vector<Box> boxes_of(const std::vector<hsize_t>& dims, std::size_t first, std::size_t end)
{
    std::vector<Box> boxes;
    add_boxes(dims, first, end, {}, 0, boxes);
    return boxes;
}

} // namespace tessel::fields
