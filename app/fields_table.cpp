#include "app/aligned.h"
#include "app/fields_outcome.h"
#include "app/number.h"
#include "app/outcome.h"

#include "fields/io/place.h"

#include <algorithm>
#include <cmath>

namespace tessel::app {

namespace {

std::string extents_text(const std::vector<std::size_t>& space)
{
    std::string text;
    for (const std::size_t extent : space)
        text += (text.empty() ? "" : " x ") + std::to_string(extent);
    return text;
}

std::string place_text(std::size_t point, const std::vector<std::size_t>& space)
{
    std::string text;
    for (const std::size_t index : fields::place_of(point, space))
        text += (text.empty() ? "" : ", ") + std::to_string(index);
    return "(" + text + ")";
}

std::string mode_lines(const FieldsOutcome& outcome)
{
    Poles poles(outcome.result.modes, outcome.unit);
    Field peak{"peak", {}, true}, where{"at", {}, false};
    for (const fields::FieldMode& mode : outcome.result.modes) {
        peak.cells.push_back(plain_form(mode.peak, 6));
        where.cells.push_back(place_text(mode.peakPoint, outcome.shape.space));
    }
    std::vector<Field> columns{poles.frequency, poles.quality, peak, where, poles.significance, poles.kind};
    return lines_of(columns);
}

} // namespace

std::vector<std::string> remarks_of(const FieldsOutcome& outcome)
{
    std::vector<std::string> texts;
    std::vector<double> frequencies, errors;
    for (const std::string& note : outcome.notes)
        texts.push_back(sentence(note));
    for (const fields::FieldMode& mode : outcome.result.modes) {
        frequencies.push_back(mode.frequency);
        errors.push_back(mode.frequencyError);
    }
    if (const std::string text = rounding_text(outcome.spacingError, frequencies, errors); !text.empty())
        texts.push_back(text);
    for (const modes::Remark& remark : outcome.result.remarks)
        texts.push_back(sentence(remark, frequencies, outcome.unit));
    return texts;
}

std::string fields_table(const FieldsOutcome& outcome, bool quiet)
{
    const fields::Outcome& result = outcome.result;
    const fields::Shape& shape = outcome.shape;
    const std::size_t count = result.modes.size();
    std::string text = outcome.input + ": " +
                       (count == 0   ? "no modes"
                        : count == 1 ? "1 mode"
                                     : std::to_string(count) + " modes") +
                       "\n";
    if (!quiet) {
        const Scale step = time_scale(shape.spacing, outcome.unit);
        const Scale reference = time_scale(std::max(std::abs(result.referenceTime), shape.spacing), outcome.unit);
        text += "  " + extents_text(shape.space) + (shape.complex ? " complex" : "") + " points, " +
                std::to_string(shape.steps) + " steps, spacing " + plain_form(shifted(shape.spacing, step.shift), 6) +
                " " + step.name + "; used from " + plain_form(shifted(result.referenceTime, reference.shift), 6) + " " +
                reference.name + " on";
        if (count > 0)
            text +=
                "; noise " + plain_form(result.noise, 2) + " a sample; chi^2 " + plain_form(result.reducedChiSquare, 3);
        text += "\n";
    }
    if (count > 0)
        text += (quiet ? "" : "\n") + mode_lines(outcome);
    if (!quiet) {
        text += count > 0 ? "\n  Profiles: " + outcome.output + ", for viewers " + outcome.xdmf + "\n" : "";
        const std::vector<std::string> remarks = remarks_of(outcome);
        if (!remarks.empty())
            text += "\n";
        for (const std::string& remark : remarks)
            text += "  * " + remark + "\n";
    }
    return text;
}

} // namespace tessel::app
