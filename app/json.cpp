#include "app/json.h"

#include <nlohmann/json.hpp>

namespace tessel::app {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kFormat = 1; // rises when a reader of the last one would stumble

Json object_of(const modes::Mode& mode)
{
    // What is not finite becomes null.
    return {{"frequency", mode.frequency},
            {"frequency_se", mode.frequencyError},
            {"decay", mode.decay},
            {"decay_se", mode.decayError},
            {"q", mode.quality},
            {"q_se", mode.qualityError},
            {"amplitude", mode.amplitude},
            {"amplitude_se", mode.amplitudeError},
            {"phase", mode.phase},
            {"phase_se", mode.phaseError},
            {"significance", mode.significance},
            {"kind", modes::name(mode.kind)}};
}

Json object_of(const Outcome& outcome)
{
    Json object;
    object["file"] = outcome.record.file;
    if (!outcome.record.column.empty())
        object["column"] = outcome.record.column;
    if (!outcome.result) {
        object["error"] = outcome.error;
        return object;
    }
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
    object["modes"] = Json::array();
    for (const modes::Mode& mode : result.modes)
        object["modes"].push_back(object_of(mode));
    object["remarks"] = Json::array();
    for (const modes::Remark& remark : result.remarks)
        object["remarks"].push_back(
            {{"code", modes::name(remark.code)}, {"value", remark.value}, {"text", remark.text}});
    object["notes"] = notes_of(outcome);
    return object;
}

} // namespace

std::string json(const std::vector<Outcome>& outcomes)
{
    Json object{{"format", "tessel-modes"}, {"format_version", kFormat}, {"program_version", TESSEL_VERSION}};
    if (outcomes.size() == 1) {
        object.update(object_of(outcomes.front()));
    } else {
        object["records"] = Json::array();
        for (const Outcome& outcome : outcomes)
            object["records"].push_back(object_of(outcome));
    }
    return object.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace tessel::app
