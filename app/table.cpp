#include "app/table.h"

#include "app/aligned.h"
#include "app/number.h"

#include <algorithm>
#include <cmath>

namespace tessel::app {

namespace {

std::string mode_lines(const Outcome& outcome)
{
    Poles poles(outcome.result->modes, outcome.record.unit);
    Field amplitude{"amplitude", {}, true}, phase{"phase [rad]", {}, true};
    for (const modes::Mode& mode : outcome.result->modes) {
        amplitude.cells.push_back(short_form(mode.amplitude, mode.amplitudeError));
        phase.cells.push_back(short_form(mode.phase, mode.phaseError));
    }
    std::vector<Field> fields{poles.frequency, poles.quality, amplitude, phase, poles.significance, poles.kind};
    return lines_of(fields);
}

std::string mode_lines(const JointOutcome& joint)
{
    Poles poles(joint.result->modes, joint.records.front().record.unit);
    Field records{"records", {}, true}, amplitude{"largest amplitude", {}, true}, where{"in", {}, false};
    for (const modes::JointMode& mode : joint.result->modes) {
        records.cells.push_back(std::to_string(std::count_if(mode.residues.begin(), mode.residues.end(), shows)));
        const std::size_t most = strongest(mode);
        amplitude.cells.push_back(short_form(mode.residues[most].amplitude, mode.residues[most].amplitudeError));
        where.cells.push_back(label_of(joint, most));
    }
    std::vector<Field> fields{poles.frequency, poles.quality, poles.significance, records,
                              amplitude,       where,         poles.kind};
    return lines_of(fields);
}

std::string count_text(std::size_t count)
{
    return count == 0 ? "no modes" : count == 1 ? "1 mode" : std::to_string(count) + " modes";
}

/// "spacing 1 ps; used from 2 ns on".
std::string times_text(const Record& record, double used)
{
    const Scale step = time_scale(record.spacing, record.unit);
    const Scale reference = time_scale(std::max(std::abs(used), record.spacing), record.unit);
    const std::string unit = step.name == "steps" && record.spacing == 1 ? "step" : step.name;
    return "spacing " + plain_form(shifted(record.spacing, step.shift), 6) + " " + unit + "; used from " +
           plain_form(shifted(used, reference.shift), 6) + " " + reference.name + " on";
}

std::string remark_lines(const std::vector<std::string>& remarks)
{
    std::string text = remarks.empty() ? "" : "\n";
    for (const std::string& remark : remarks)
        text += "  * " + remark + "\n";
    return text;
}

/// "a", or "a to b".
std::string range(const std::string& low, const std::string& high)
{
    return low == high ? low : low + " to " + high;
}

/// What all records have in common, and between what they differ.
std::string summary(const JointOutcome& joint)
{
    std::size_t fewest = joint.records.front().samples, most = 0;
    double used = joint.result->records.front().referenceTime, quietest = INFINITY, loudest = 0;
    for (const Outcome& outcome : joint.records) {
        fewest = std::min(fewest, outcome.samples);
        most = std::max(most, outcome.samples);
    }
    for (const modes::JointRecord& record : joint.result->records) {
        used = std::min(used, record.referenceTime);
        if (!record.constant) {
            quietest = std::min(quietest, record.noise);
            loudest = std::max(loudest, record.noise);
        }
    }
    std::string text = "  " + range(std::to_string(fewest), std::to_string(most)) +
                       (joint.records.front().complex ? " complex" : "") + " samples a record, " +
                       times_text(joint.records.front().record, used);
    if (quietest <= loudest)
        text += "; noise " + range(plain_form(quietest, 2), plain_form(loudest, 2)) + " a sample; chi^2 " +
                plain_form(joint.result->reducedChiSquare, 3);
    return text + "\n";
}

} // namespace

std::string table(const Outcome& outcome, bool quiet)
{
    if (!outcome.result)
        return "";
    const modes::Result& result = *outcome.result;
    std::string text = title_of(outcome.record) + ": " + count_text(result.modes.size()) + "\n";
    if (!quiet)
        text += "  " + std::to_string(outcome.samples) + (outcome.complex ? " complex" : "") + " samples, " +
                times_text(outcome.record, result.referenceTime) + "; noise " + plain_form(result.noise, 2) +
                " a sample; chi^2 " + plain_form(result.reducedChiSquare, 3) + "\n";
    if (!result.modes.empty())
        text += (quiet ? "" : "\n") + mode_lines(outcome);
    return quiet ? text : text + remark_lines(remarks_of(outcome));
}

std::string table(const JointOutcome& joint, bool quiet)
{
    if (!joint.result)
        return "";
    std::string text = title_of(joint) + " together: " + count_text(joint.result->modes.size()) + "\n";
    if (!quiet)
        text += summary(joint);
    if (!joint.result->modes.empty())
        text += (quiet ? "" : "\n") + mode_lines(joint);
    return quiet ? text : text + remark_lines(remarks_of(joint));
}

} // namespace tessel::app
