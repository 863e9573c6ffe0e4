// Results for people.
#ifndef TESSEL_APP_TABLE_H
#define TESSEL_APP_TABLE_H

#include "app/outcome.h"

#include <string>

namespace tessel::app {

/// A heading, a line for each mode, and the remarks.
/// @param quiet  the modes alone
std::string table(const Outcome& outcome, bool quiet);

} // namespace tessel::app

#endif
