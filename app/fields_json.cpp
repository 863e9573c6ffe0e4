#include "app/fields_outcome.h"

#include "fields/io/place.h"

#include <nlohmann/json.hpp>

namespace tessel::app {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kFormat = 1; // rises when a reader of the last one would stumble

} // namespace

std::string fields_json(const FieldsOutcome& outcome)
{
    const fields::Outcome& result = outcome.result;
    const fields::Shape& shape = outcome.shape;
    Json object{{"format", "tessel-fields"},
                {"format_version", kFormat},
                {"program_version", TESSEL_VERSION},
                {"file", outcome.input},
                {"dataset", outcome.path},
                {"output", outcome.output},
                {"xdmf", outcome.result.modes.empty() ? Json() : Json(outcome.xdmf)},
                {"time_unit", outcome.unit.name},
                {"space", shape.space},
                {"steps", shape.steps},
                {"complex", shape.complex},
                {"time_axis", shape.timeFirst ? "first" : "last"},
                {"start", shape.start},
                {"spacing", shape.spacing},
                {"reference_time", result.referenceTime},
                {"first_step", result.firstStep},
                {"first_step_reason", modes::name(result.firstStepReason)},
                {"decimation", result.decimation},
                {"noise", result.noise},
                {"chi2", result.reducedChiSquare}};
    object["samples"] = Json::array();
    for (const std::size_t point : result.samples)
        object["samples"].push_back(fields::place_of(point, shape.space));
    object["modes"] = Json::array();
    for (const fields::FieldMode& mode : result.modes)
        // What is not finite becomes null.
        object["modes"].push_back({{"frequency", mode.frequency},
                                   {"frequency_se", mode.frequencyError},
                                   {"decay", mode.decay},
                                   {"decay_se", mode.decayError},
                                   {"q", mode.quality},
                                   {"q_se", mode.qualityError},
                                   {"peak", mode.peak},
                                   {"peak_at", fields::place_of(mode.peakPoint, shape.space)},
                                   {"significance", mode.significance},
                                   {"kind", modes::name(mode.kind)}});
    object["remarks"] = Json::array();
    for (const modes::Remark& remark : result.remarks)
        object["remarks"].push_back(
            {{"code", modes::name(remark.code)}, {"value", remark.value}, {"text", remark.text}});
    object["notes"] = outcome.notes;
    return object.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace tessel::app
