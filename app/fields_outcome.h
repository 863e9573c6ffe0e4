// What came of a field: for people, for programs, as a picture.
#ifndef TESSEL_APP_FIELDS_OUTCOME_H
#define TESSEL_APP_FIELDS_OUTCOME_H

#include "fields/fields.h"

#include "app/units.h"

#include <string>
#include <vector>

namespace tessel::app {

/// A field that was read, and its modes.
struct FieldsOutcome
{
    std::string input, path; ///< as the user gave it; the dataset inside
    std::string output, xdmf;
    fields::Shape shape;
    TimeUnit unit;
    double spacingError = 0; ///< relative, that rounded times leave open
    std::vector<std::string> notes;
    fields::Outcome result;
};

/// What the reader and the analysis have to say, as sentences.
std::vector<std::string> remarks_of(const FieldsOutcome& outcome);

/// A heading, a line for each mode, and the remarks.
/// @param quiet  the modes alone
std::string fields_table(const FieldsOutcome& outcome, bool quiet);

std::string fields_json(const FieldsOutcome& outcome);

/// What gnuplot is told: a picture of each mode, at most 36 of the strongest. Profiles are read from the output. In two
/// dimensions the colour is amplitude times the cosine of the phase from that at the peak, over the peak; of three
/// dimensions the plane through the peak is shown that its slowest axis stands on.
/// @throws Error  if the output cannot be read
std::string fields_plot_script(const FieldsOutcome& outcome, const std::string& file);

} // namespace tessel::app

#endif
