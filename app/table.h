// Results for people.
#ifndef TESSEL_APP_TABLE_H
#define TESSEL_APP_TABLE_H

#include "app/joint.h"
#include "app/outcome.h"

#include <string>

namespace tessel::app {

/// A heading, a line for each mode, and the remarks.
/// @param quiet  the modes alone
std::string table(const Outcome& outcome, bool quiet);

/// The same of a set: for each mode in how many records it shows, and its largest amplitude.
std::string table(const JointOutcome& joint, bool quiet);

} // namespace tessel::app

#endif
