#include "app/json.h"

#include <nlohmann/json.hpp>

namespace tessel::app {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kFormat = 2; // rises when a reader of the last one would stumble

/// What a mode of one record and a mode of several have in common. What is not finite becomes null.
template <typename Mode>
Json pole_of(const Mode& mode)
{
    return {{"frequency", mode.frequency}, {"frequency_se", mode.frequencyError},
            {"decay", mode.decay},         {"decay_se", mode.decayError},
            {"q", mode.quality},           {"q_se", mode.qualityError}};
}

/// Amplitude and phase of a mode, or of one of its residues.
template <typename Residue>
Json residue_of(const Residue& residue)
{
    return {{"amplitude", residue.amplitude},
            {"amplitude_se", residue.amplitudeError},
            {"phase", residue.phase},
            {"phase_se", residue.phaseError}};
}

Json object_of(const modes::Mode& mode)
{
    Json object = pole_of(mode);
    object.update(residue_of(mode));
    object["significance"] = mode.significance;
    object["kind"] = modes::name(mode.kind);
    return object;
}

Json object_of(const modes::JointMode& mode)
{
    Json object = pole_of(mode);
    object["significance"] = mode.significance;
    object["kind"] = modes::name(mode.kind);
    object["residues"] = Json::array();
    for (const modes::Residue& residue : mode.residues)
        object["residues"].push_back(residue_of(residue));
    return object;
}

Json object_of(const modes::Remark& remark)
{
    return {{"code", modes::name(remark.code)}, {"value", remark.value}, {"text", remark.text}};
}

Json object_of(const Outcome& outcome);

template <typename Items>
Json list_of(const Items& items)
{
    Json list = Json::array();
    for (const auto& item : items)
        list.push_back(object_of(item));
    return list;
}

/// The beginning of every document.
Json head()
{
    return {{"format", "tessel-modes"}, {"format_version", kFormat}, {"program_version", TESSEL_VERSION}};
}

std::string printed(const Json& object)
{
    return object.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

/// The record's name, and why there are no modes.
Json name_of(const Outcome& outcome)
{
    Json object;
    object["file"] = outcome.record.file;
    if (!outcome.record.column.empty())
        object["column"] = outcome.record.column;
    if (!outcome.error.empty())
        object["error"] = outcome.error;
    return object;
}

Json object_of(const Outcome& outcome)
{
    Json object = name_of(outcome);
    if (!outcome.result)
        return object;
    const modes::Result& result = *outcome.result;
    object["time_unit"] = outcome.record.unit.name;
    object["samples"] = outcome.samples;
    object["complex"] = outcome.complex;
    object["start"] = outcome.record.start;
    object["spacing"] = outcome.record.spacing;
    object["reference_time"] = result.referenceTime;
    object["first_sample"] = result.firstSample;
    object["first_sample_reason"] = modes::name(result.firstSampleReason);
    object["decimation"] = result.decimation;
    object["noise"] = result.noise;
    object["chi2"] = result.reducedChiSquare;
    object["band"] = {result.lowest, result.highest};
    object["modes"] = list_of(result.modes);
    object["remarks"] = list_of(result.remarks);
    object["notes"] = notes_of(outcome);
    return object;
}

} // namespace

std::string json_object(const Outcome& outcome)
{
    return object_of(outcome).dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string json(const std::vector<std::string>& objects)
{
    Json object = head();
    if (objects.size() == 1)
        object.update(Json::parse(objects.front()));
    else
        object["records"] = Json::array();
    for (std::size_t k = 0; objects.size() != 1 && k < objects.size(); ++k)
        object["records"].push_back(Json::parse(objects[k]));
    return printed(object);
}

std::string json(const JointOutcome& joint)
{
    Json object = head();
    object["joint"] = true;
    object["failed"] = Json::array();
    for (const Outcome& outcome : joint.failed)
        object["failed"].push_back(name_of(outcome));
    if (!joint.result) {
        object["error"] = joint.error.empty() ? "there is no record" : joint.error;
        return printed(object);
    }
    const modes::JointResult& result = *joint.result;
    const Record& first = joint.records.front().record;
    object["time_unit"] = first.unit.name;
    object["complex"] = joint.records.front().complex;
    object["spacing"] = first.spacing;
    object["first_sample_reason"] = modes::name(result.firstSampleReason);
    object["decimation"] = result.decimation;
    object["chi2"] = result.reducedChiSquare;
    object["band"] = {result.lowest, result.highest};
    object["records"] = Json::array();
    for (std::size_t p = 0; p < joint.records.size(); ++p) {
        const modes::JointRecord& found = result.records[p];
        Json record = name_of(joint.records[p]);
        record["samples"] = joint.records[p].samples;
        record["start"] = joint.records[p].record.start;
        record["reference_time"] = found.referenceTime;
        record["first_sample"] = found.firstSample;
        record["noise"] = found.noise;
        record["chi2"] = found.reducedChiSquare;
        record["constant"] = found.constant;
        object["records"].push_back(record);
    }
    object["modes"] = list_of(result.modes);
    object["remarks"] = list_of(result.remarks);
    object["notes"] = notes_of(joint);
    return printed(object);
}

} // namespace tessel::app
