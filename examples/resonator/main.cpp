// Finds the resonances in the record of a field solver: simulates a cavity, or reads a record; decimates and fits it
// through the library, over a small range of orders; drops what is no mode; takes other roads to the same modes where
// it can; reports and draws.

#include "examples/resonator/analysis.h"
#include "examples/resonator/error.h"
#include "examples/resonator/library.h"
#include "examples/resonator/options.h"
#include "examples/resonator/output.h"
#include "examples/resonator/report.h"
#include "examples/resonator/results.h"

#include <tessel/Loader.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

using namespace resonator;

namespace {

/// Says on a terminal what is being done, in place of what was said before; nothing clears the line.
void progress(const std::string& text)
{
    static const bool watched = isatty(STDERR_FILENO) != 0;
    if (watched)
        std::fprintf(stderr, "\r\033[K%s", text.c_str());
}

/// Opens standard output for what a program reads. Whatever else is printed there, by gnuplot too, goes to standard
/// error from now on.
std::FILE* take_standard_output()
{
    std::FILE* const output = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0), "w");
    if (!output || dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
        throw Error(std::string("standard output: ") + std::strerror(errno));
    return output;
}

/// Finds what went wrong in printing, such as a full disk.
void finish(std::FILE* output)
{
    if (std::fflush(output) != 0 || std::ferror(output))
        throw Error(std::string("standard output: cannot be written: ") + std::strerror(errno));
}

Subject simulate_cavity()
{
    Subject subject{{}, Cavity{}, {}};
    const Cavity& cavity = *subject.cavity;
    print_cavity(cavity);
    subject.record = simulate(cavity, [&](Index step) {
        if (step % 100 == 0)
            progress("simulating: " + std::to_string(100 * step / cavity.steps) + " %");
    });
    progress("");
    subject.exact = exact_modes(cavity);
    return subject;
}

Subject read_subject(const Options& options)
{
    Subject subject{read_record(options.record, options.spacing), {}, {}};
    std::printf("Record: %s, %td %s samples, spacing %g s\n", options.record.c_str(), subject.record.size(),
                subject.record.is_real() ? "real" : "complex", subject.record.spacing);
    return subject;
}

/// Returns whether all is well.
bool run(const Options& options)
{
    std::FILE* const output = options.format == Format::report ? stdout : take_standard_output();
    const tessel::Library library(options.library.empty() ? default_library() : options.library);
    const tessel::Api api = library.create();
    const Subject subject = options.record.empty() ? simulate_cavity() : read_subject(options);
    const Window window = choose_window(options, subject);
    print_window(subject, window);

    const Findings findings = analyse(*api, options, subject, window, progress);
    print_measures(findings.fits, findings.fit.order);
    print_singular_values(findings.hankel, findings.analytic);
    print_kinds(findings.modes);
    bool met = true;
    if (subject.cavity) {
        print_eigensolve(*findings.eigensolve);
        print_comparison(findings.pairs);
        met = print_verdicts(findings);
    } else {
        print_modes(findings.modes, findings.response);
    }

    if (!options.output.empty()) {
        write_files(options.output, subject.record, window, findings);
        print_files(options.output, draw_pictures(options.output));
    }
    if (options.format != Format::report)
        std::fputs(results(options.format, subject, window, findings, met).c_str(), output);
    finish(output);
    return met;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const Options options = parse_options({argv + 1, argv + argc});
        if (options.help) {
            std::fputs(kHelp, stdout);
            return 0;
        }
        return run(options) ? 0 : 1;
    } catch (const std::exception& error) {
        progress("");
        std::fflush(stdout);
        std::fprintf(stderr, "resonator: %s\n", error.what());
        return 2;
    }
}
