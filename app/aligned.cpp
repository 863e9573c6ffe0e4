#include "app/aligned.h"

#include "app/number.h"

#include <algorithm>

namespace tessel::app {

namespace {

/// Characters on a terminal; column names may hold UTF-8.
std::size_t width_of(const std::string& text)
{
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

std::string padded(std::string text, std::size_t width)
{
    text.append(width - std::min(width, width_of(text)), ' ');
    return text;
}

} // namespace

std::string lines_of(std::vector<Field>& fields)
{
    const std::size_t rows = fields.front().cells.size();
    for (Field& field : fields) {
        std::size_t left = 0;
        for (const std::string& cell : field.cells)
            left = std::max(left, point_of(cell));
        for (std::string& cell : field.cells)
            if (field.aligned)
                cell.insert(0, left - point_of(cell), ' ');
        std::size_t width = width_of(field.head);
        for (const std::string& cell : field.cells)
            width = std::max(width, width_of(cell));
        field.head = padded(field.head, width);
        for (std::string& cell : field.cells)
            cell = padded(cell, width);
    }
    std::string text;
    const auto add_line = [&](const auto& cell_of) {
        std::string line;
        for (const Field& field : fields)
            line += "  " + cell_of(field);
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    };
    add_line([](const Field& field) { return field.head; });
    for (std::size_t row = 0; row < rows; ++row)
        add_line([row](const Field& field) { return field.cells[row]; });
    return text;
}

} // namespace tessel::app
