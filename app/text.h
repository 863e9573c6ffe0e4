// Columns of numbers in text.
#ifndef TESSEL_APP_TEXT_H
#define TESSEL_APP_TEXT_H

#include "app/columns.h"

#include <string>

namespace tessel::app {

/// Reads lines of numbers, apart by blanks, tabs, commas or semicolons.
///
/// Understood besides: comments behind #, %, ! or //, up to a thousand lines in front of the numbers, the last fitting
/// one of which gives the columns' names; quotes; a byte-order mark; all three line ends; exponents with D or without a
/// letter; complex numbers as (a,b), a+bi or a+bj. A file with few long lines is taken for columns laid on their side.
///
/// @throws Error  names the line that cannot be understood
Columns read_text(std::string bytes);

} // namespace tessel::app

#endif
