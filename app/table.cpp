#include "app/table.h"

#include "app/number.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tessel::app {

namespace {

/// A column of the table, aligned at the points.
struct Field
{
    std::string head;
    std::vector<std::string> cells;
    bool aligned = true;
};

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

std::string mode_lines(const Outcome& outcome)
{
    const modes::Result& result = *outcome.result;
    double highest = 0, fastest = 0;
    for (const modes::Mode& mode : result.modes) {
        highest = std::max(highest, std::abs(mode.frequency));
        fastest = std::max(fastest, std::abs(mode.decay));
    }
    const Scale hertz = frequency_scale(highest > 0 ? highest : fastest, outcome.record.unit);
    std::vector<Field> fields{{"frequency [" + hertz.name + "]", {}, true},
                              {"Q", {}, true},
                              {"amplitude", {}, true},
                              {"phase [rad]", {}, true},
                              {"significance", {}, true},
                              {"", {}, false}};
    for (const modes::Mode& mode : result.modes) {
        const bool turns = mode.kind != modes::Kind::overdamped;
        fields[0].cells.push_back(
            short_form(shifted(mode.frequency, hertz.shift), shifted(mode.frequencyError, hertz.shift)));
        fields[1].cells.push_back(turns ? short_form(mode.quality, mode.qualityError) : "-");
        fields[2].cells.push_back(short_form(mode.amplitude, mode.amplitudeError));
        fields[3].cells.push_back(short_form(mode.phase, mode.phaseError));
        fields[4].cells.push_back(plain_form(mode.significance, 3));
        std::string kind;
        if (mode.kind != modes::Kind::oscillating) {
            const Scale scale =
                time_scale(std::abs(mode.decay) > 0 ? 1 / std::abs(mode.decay) : 1, outcome.record.unit);
            const double decay = shifted(mode.decay, -scale.shift), error = shifted(mode.decayError, -scale.shift);
            kind = (mode.decay < 0 ? "grows by " : "decays by ") + short_form(std::abs(decay), error) + " /" +
                   (scale.name == "steps" ? "step" : scale.name);
        }
        fields[5].cells.push_back(kind);
    }
    return lines_of(fields);
}

} // namespace

std::string table(const Outcome& outcome, bool quiet)
{
    if (!outcome.result)
        return "";
    const Record& record = outcome.record;
    const modes::Result& result = *outcome.result;
    const std::size_t count = result.modes.size();
    std::string text = title_of(record) + ": " +
                       (count == 0   ? "no modes"
                        : count == 1 ? "1 mode"
                                     : std::to_string(count) + " modes") +
                       "\n";
    if (!quiet) {
        const Scale step = time_scale(record.spacing, record.unit);
        const Scale reference = time_scale(std::max(std::abs(result.referenceTime), record.spacing), record.unit);
        text += "  " + std::to_string(outcome.samples) + (outcome.complex ? " complex" : "") + " samples, spacing " +
                plain_form(shifted(record.spacing, step.shift), 6) + " " + step.name + "; used from " +
                plain_form(shifted(result.referenceTime, reference.shift), 6) + " " + reference.name + " on; noise " +
                plain_form(result.noise, 2) + " a sample; chi^2 " + plain_form(result.reducedChiSquare, 3) + "\n";
    }
    if (count > 0)
        text += (quiet ? "" : "\n") + mode_lines(outcome);
    const std::vector<std::string> remarks = remarks_of(outcome);
    if (!quiet && !remarks.empty()) {
        text += "\n";
        for (const std::string& remark : remarks)
            text += "  * " + remark + "\n";
    }
    return text;
}

} // namespace tessel::app
