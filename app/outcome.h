// What came of one record.
#ifndef TESSEL_APP_OUTCOME_H
#define TESSEL_APP_OUTCOME_H

#include "app/records.h"

#include <tessel/modes.h>

#include <optional>
#include <string>
#include <vector>

namespace tessel::app {

/// A record and its modes, or why there are none.
struct Outcome
{
    Record record; ///< without its samples once they are no longer needed
    std::size_t samples = 0;
    bool complex = false;
    std::optional<modes::Result> result;
    std::string error; ///< one line that names the file, if there is no result
};

/// A text with a capital and a full stop.
std::string sentence(std::string text);

/// The library's sentence. It knows no units: its numbers that are the given times or frequencies of modes get them.
std::string sentence(const modes::Remark& remark, const std::vector<double>& frequencies, const TimeUnit& unit);

/// What rounded times leave uncertain beyond the standard errors of frequencies; empty if it is not worth a word.
/// @param relative  standard deviation of the spacing that they leave open
std::string rounding_text(double relative, const std::vector<double>& frequencies, const std::vector<double>& errors);

/// What the reader has to say about a record with a result, as sentences.
std::vector<std::string> notes_of(const Outcome& outcome);

/// The same, and what the library has to say.
std::vector<std::string> remarks_of(const Outcome& outcome);

/// "file" or "file, column".
std::string title_of(const Record& record);

} // namespace tessel::app

#endif
