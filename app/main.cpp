// tessel-modes: the modes in records of a field solver.
#include "app/error.h"
#include "app/hand_over.h"
#include "app/interrupt.h"
#include "app/options.h"
#include "app/plot.h"
#include "app/run.h"

#include <malloc.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

using namespace tessel::app;

int main(int argc, char** argv)
{
    if (const std::string fault = hand_over("tessel-modes", argv); !fault.empty()) {
        if (started().rank == 0)
            std::fprintf(stderr, "tessel-modes: %s\n", fault.c_str());
        return started().rank == 0 ? 1 : 0; // the first to fail would end the one that speaks
    }
    // Arrays of a whole record come and go: their pages stay with the process, which spares faulting them in again.
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    try {
        const CommandLine line = parse_command_line({argv + 1, argv + argc});
        if (line.text) {
            std::fputs(line.text->c_str(), stdout);
            return std::fflush(stdout) == 0 ? 0 : 1;
        }
        if (!line.options.plot.empty())
            check_gnuplot();
        watch_interrupts();
        return run(line.options);
    } catch (const UsageError& error) {
        std::fprintf(stderr, "tessel-modes: %s\nTry tessel-modes --help.\n", error.what());
        return 2;
    } catch (const Interrupted&) {
        // The caller sees which signal it was.
        std::fputs("tessel-modes: stopped\n", stderr);
        const int number = interrupted() != 0 ? interrupted() : SIGINT;
        std::signal(number, SIG_DFL);
        std::raise(number);
        return 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tessel-modes: %s\n", error.what());
        return 1;
    }
}
