// Results as JSON; docs/tessel-modes.schema.json describes them.
#ifndef TESSEL_APP_JSON_H
#define TESSEL_APP_JSON_H

#include "app/outcome.h"

#include <string>
#include <vector>

namespace tessel::app {

/// Of one record its object; of several an object with all of them in "records".
std::string json(const std::vector<Outcome>& outcomes);

} // namespace tessel::app

#endif
