// Results as comma-separated values.
#ifndef TESSEL_APP_CSV_H
#define TESSEL_APP_CSV_H

#include "app/outcome.h"

#include <string>

namespace tessel::app {

/// The line of names.
std::string csv_head();

/// A line for each mode; of a record without a mode, none.
std::string csv(const Outcome& outcome);

} // namespace tessel::app

#endif
