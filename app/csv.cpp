#include "app/csv.h"

#include <array>
#include <charconv>

namespace tessel::app {

namespace {

std::string number(double value)
{
    std::array<char, 40> digits;
    return {digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr};
}

std::string field(const std::string& text)
{
    if (text.find_first_of(",\"\r\n") == text.npos)
        return text;
    std::string result(1, '"');
    for (const char c : text)
        result.append(c == '"' ? 2 : 1, c);
    result += '"';
    return result;
}

} // namespace

std::string csv_head()
{
    return "file,column,time_unit,reference_time,mode,frequency,frequency_se,decay,decay_se,q,q_se,amplitude,amplitude_"
           "se,"
           "phase,phase_se,significance,kind\n";
}

std::string csv(const Outcome& outcome)
{
    std::string text;
    if (!outcome.result)
        return text;
    std::size_t count = 0;
    for (const modes::Mode& mode : outcome.result->modes) {
        text += field(outcome.record.file) + "," + field(outcome.record.column) + "," +
                field(outcome.record.unit.name) + "," + number(outcome.result->referenceTime) + "," +
                std::to_string(++count);
        for (const double value :
             {mode.frequency, mode.frequencyError, mode.decay, mode.decayError, mode.quality, mode.qualityError,
              mode.amplitude, mode.amplitudeError, mode.phase, mode.phaseError, mode.significance})
            text += "," + number(value);
        text += std::string(",") + modes::name(mode.kind) + "\n";
    }
    return text;
}

} // namespace tessel::app
