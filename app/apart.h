// A reader in a process of its own.
#ifndef TESSEL_APP_APART_H
#define TESSEL_APP_APART_H

#include "app/columns.h"

#include <functional>

namespace tessel::app {

/// Runs a reader in a child process and takes over what it read. For a library that may crash on a damaged file, or
/// never end on one: the child is killed after ten minutes of computing, and on Ctrl-C.
///
/// @param reader  gives columns without `line` and `field`; what it throws but Error is told by its text
/// @throws Error        what the reader threw, or that it crashed
/// @throws Interrupted  after a signal
Columns read_apart(const std::function<Columns()>& reader);

} // namespace tessel::app

#endif
