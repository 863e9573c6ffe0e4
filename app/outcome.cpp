#include "app/outcome.h"

#include "app/number.h"

#include <algorithm>
#include <cctype>
#include <cmath>

namespace tessel::app {

namespace {

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

} // namespace

std::vector<std::string> remarks_of(const Outcome& outcome)
{
    std::vector<std::string> texts;
    for (const std::string& note : outcome.record.notes)
        texts.push_back(sentence(note));
    if (!outcome.result)
        return texts;
    for (const modes::Remark& remark : outcome.result->remarks)
        texts.push_back(sentence(remark.text));
    // Rounded times leave the spacing uncertain, which no standard error knows.
    const double relative = outcome.record.spacingError;
    for (const modes::Mode& mode : outcome.result->modes)
        if (relative * std::abs(mode.frequency) > 0.3 * mode.frequencyError) {
            texts.push_back("The times are rounded: all frequencies and decays are uncertain by another " +
                            plain_form(relative, 2) + " of their value. Give the spacing by --dt to avoid it.");
            break;
        }
    return texts;
}

std::string title_of(const Record& record)
{
    return (record.file == "-" ? "standard input" : record.file) + (record.column.empty() ? "" : ", " + record.column);
}

} // namespace tessel::app
