/// A part of a test in a separate process, with its output captured.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

namespace tessel::testing {

struct Outcome
{
    bool well;          ///< the body came to its end and returned 0
    std::string output; ///< what was written to the standard output and the error stream
};

/// Runs `body()`, which returns the number of its failures, in a child that ends as a host does: buffers of every
/// runtime are flushed. A child that hangs is killed after `seconds`, just before the time limit of the test.
template <class Body>
Outcome run_in_child(Body body, unsigned seconds = 280)
{
    // Not 0: a solver that ends the process by a plain STOP leaves that.
    constexpr int all_well = 42;
    std::fflush(nullptr);
    std::FILE* const streams = std::tmpfile();
    const pid_t child = fork();
    if (child == 0) {
        alarm(seconds);
        dup2(fileno(streams), STDOUT_FILENO);
        dup2(fileno(streams), STDERR_FILENO);
        std::exit(body() == 0 ? all_well : EXIT_FAILURE);
    }
    int status = -1;
    waitpid(child, &status, 0);
    Outcome outcome{WIFEXITED(status) && WEXITSTATUS(status) == all_well, {}};
    std::rewind(streams);
    for (int c = std::fgetc(streams); c != EOF; c = std::fgetc(streams))
        outcome.output.push_back(static_cast<char>(c));
    std::fclose(streams);
    return outcome;
}

} // namespace tessel::testing
