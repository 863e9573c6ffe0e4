/// @file
/// Remarks: what a result's owner should know.
#ifndef TESSEL_MODES_REMARKS_H
#define TESSEL_MODES_REMARKS_H

#include "modes/drive.h"
#include "modes/modes.h"

namespace tessel::modes {

/// Adds the remarks that follow from a finished result and the stage that it came from. `peak` is the record's.
void add_remarks(Result& result, const Stage& stage, double start, double spacing, double peak);

/// Adds one remark.
void remark(Result& result, RemarkCode code, double value, const std::string& text);

} // namespace tessel::modes

#endif
