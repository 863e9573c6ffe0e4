#include "app/interrupt.h"

#include "app/error.h"

#include <csignal>

namespace tessel::app {

namespace {

volatile std::sig_atomic_t signal_that_came = 0;

extern "C" void remember_signal(int number)
{
    signal_that_came = number;
}

} // namespace

void watch_interrupts()
{
    struct sigaction action = {};
    action.sa_handler = remember_signal;
    action.sa_flags = static_cast<int>(SA_RESETHAND); // without SA_RESTART: a read that waits comes back
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

int interrupted() noexcept
{
    return signal_that_came;
}

void check_interrupt()
{
    if (signal_that_came != 0)
        throw Interrupted();
}

} // namespace tessel::app
