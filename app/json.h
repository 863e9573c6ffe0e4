// Results as JSON; docs/tessel-modes.schema.json describes them.
#ifndef TESSEL_APP_JSON_H
#define TESSEL_APP_JSON_H

#include "app/joint.h"
#include "app/outcome.h"

#include <string>
#include <vector>

namespace tessel::app {

/// Of one record its object; of several an object with all of them in "records".
std::string json(const std::vector<Outcome>& outcomes);

/// Of a set: its modes, each with a residue for each of the records.
std::string json(const JointOutcome& joint);

} // namespace tessel::app

#endif
