#include "app/outcome.h"

#include "app/number.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <sstream>
#include <utility>

namespace tessel::app {

std::string sentence(std::string text)
{
    // A word that is not plain lower case, such as a name, keeps its first letter.
    const auto word = std::find(text.begin(), text.end(), ' ');
    if (word != text.begin() && std::all_of(text.begin(), word, [](unsigned char c) { return std::islower(c); }))
        text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    if (!text.empty() && text.back() != '.')
        text += '.';
    return text;
}

std::string sentence(const modes::Remark& remark, const std::vector<double>& frequencies, const TimeUnit& unit)
{
    std::vector<std::pair<double, std::string>> known;
    const auto add = [&](double value, const Scale& scale) {
        known.emplace_back(value, plain_form(shifted(value, scale.shift), 6) + " " + scale.name);
    };
    const auto add_time = [&](double time) { add(time, time_scale(std::abs(time), unit)); };
    for (const double frequency : frequencies)
        add(frequency, frequency_scale(std::abs(frequency), unit));
    if (remark.code == modes::RemarkCode::driveSkipped || remark.code == modes::RemarkCode::spacingTooCoarse)
        add_time(remark.value);

    std::string text, word;
    std::istringstream words(remark.text);
    while (words >> word) {
        double value = 0;
        const auto [stop, status] = std::from_chars(word.data(), word.data() + word.size(), value);
        if (status == std::errc())
            for (const auto& [exact, with_unit] : known)
                if (value != 0 && std::abs(value - exact) < 1e-5 * std::abs(exact)) {
                    word.replace(0, static_cast<std::size_t>(stop - word.data()), with_unit);
                    break;
                }
        text += (text.empty() ? "" : " ") + word;
    }
    return sentence(text);
}

std::string rounding_text(double relative, const std::vector<double>& frequencies, const std::vector<double>& errors)
{
    for (std::size_t k = 0; k < frequencies.size(); ++k)
        if (relative * std::abs(frequencies[k]) > 0.3 * errors[k])
            return "The times are rounded: all frequencies and decays are uncertain by another " +
                   plain_form(relative, 2) + " of their value. Give the spacing by --dt to avoid it.";
    return "";
}

std::vector<std::string> notes_of(const Outcome& outcome)
{
    std::vector<std::string> notes;
    for (const std::string& note : outcome.record.notes)
        notes.push_back(sentence(note));
    std::vector<double> frequencies, errors;
    for (const modes::Mode& mode : outcome.result->modes) {
        frequencies.push_back(mode.frequency);
        errors.push_back(mode.frequencyError);
    }
    if (const std::string text = rounding_text(outcome.record.spacingError, frequencies, errors); !text.empty())
        notes.push_back(text);
    return notes;
}

std::vector<std::string> remarks_of(const Outcome& outcome)
{
    std::vector<std::string> texts = notes_of(outcome);
    std::vector<double> frequencies{outcome.result->lowest, outcome.result->highest};
    for (const modes::Mode& mode : outcome.result->modes)
        frequencies.push_back(mode.frequency);
    for (const modes::Remark& remark : outcome.result->remarks)
        texts.push_back(sentence(remark, frequencies, outcome.record.unit));
    return texts;
}

std::string title_of(const Record& record)
{
    return (record.file == "-" ? "standard input" : record.file) + (record.column.empty() ? "" : ", " + record.column);
}

} // namespace tessel::app
