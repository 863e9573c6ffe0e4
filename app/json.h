// Results as JSON; docs/tessel-modes.schema.json describes them.
#ifndef TESSEL_APP_JSON_H
#define TESSEL_APP_JSON_H

#include "app/joint.h"
#include "app/outcome.h"

#include <string>
#include <vector>

namespace tessel::app {

/// The object of one record.
std::string json_object(const Outcome& outcome);

/// Of one record its object; of several an object with all of them in "records".
/// @param objects  what json_object() gave
std::string json(const std::vector<std::string>& objects);

/// Of a set: its modes, each with a residue for each of the records.
std::string json(const JointOutcome& joint);

} // namespace tessel::app

#endif
