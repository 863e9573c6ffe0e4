// Columns of text that are aligned at the points of numbers.
#ifndef TESSEL_APP_ALIGNED_H
#define TESSEL_APP_ALIGNED_H

#include <string>
#include <vector>

namespace tessel::app {

/// A column of the table, aligned at the points.
struct Field
{
    std::string head;
    std::vector<std::string> cells;
    bool aligned = true;
};

/// A line of heads and a line for each row. All columns have as many cells.
std::string lines_of(std::vector<Field>& fields);

} // namespace tessel::app

#endif
