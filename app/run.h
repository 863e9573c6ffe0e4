// The command's work: read, analyse, print in order.
#ifndef TESSEL_APP_RUN_H
#define TESSEL_APP_RUN_H

#include "app/options.h"
#include "app/outcome.h"

#include <functional>

namespace tessel::app {

/// Analyses one record as the options say.
/// @param progress  may be empty; false stops the work
/// @throws what the library throws, Error
modes::Result analyse(const Record& record, const Options& options,
                      const std::function<bool(const modes::Progress&)>& progress);

/// Analyses all records of all files and prints what came of them on standard output, what went wrong on standard
/// error.
///
/// Files are read one after another, their records analysed side by side; results come out in the order of the command
/// line, each as soon as it can.
/// @returns the exit status: 0, or 1 if a record could not be analysed
/// @throws Interrupted  after a signal; results that were complete are printed
int run(const Options& options);

} // namespace tessel::app

#endif
