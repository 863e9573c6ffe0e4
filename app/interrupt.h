// Ctrl-C: a flag that long work looks at.
#ifndef TESSEL_APP_INTERRUPT_H
#define TESSEL_APP_INTERRUPT_H

namespace tessel::app {

/// From now on the first SIGINT or SIGTERM sets the flag; the second one ends the process.
void watch_interrupts();

/// The signal that came, or 0.
int interrupted() noexcept;

/// @throws Interrupted  if a signal came
void check_interrupt();

} // namespace tessel::app

#endif
