// Finds the resonances in the record of a field solver: simulates a cavity, or reads a record; decimates and fits it
// through the library's exported fit, over a small range of orders; drops what is no mode; reports and draws.

#include "examples/resonator/cavity.h"
#include "examples/resonator/error.h"
#include "examples/resonator/fit.h"
#include "examples/resonator/library.h"
#include "examples/resonator/options.h"
#include "examples/resonator/output.h"
#include "examples/resonator/record.h"
#include "examples/resonator/report.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
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

/// The first sample at or after a time.
Index sample_at(const Record& record, double time)
{
    const double k = std::ceil((time - record.start) / record.spacing - 1e-6);
    if (!(k < static_cast<double>(record.size())))
        throw Error("--start: the record ends before this time");
    return std::max<Index>(0, static_cast<Index>(k));
}

Window choose_window(const Options& options, const Record& record, Index first)
{
    if (options.start)
        first = sample_at(record, *options.start);
    if (std::all_of(record.values.begin() + first, record.values.end(), [](const Complex& y) { return y == 0.0; }))
        throw Error("the record is zero where it would be fitted: is the probe on a node of every mode?");
    Window window{first, options.stride ? options.stride : choose_stride(record, first), 0};
    window.count = std::min(options.samples, (record.size() - 1 - first) / window.stride + 1);
    if (window.count < 4)
        throw Error("too few samples are left to fit: " + std::to_string(window.count) + ", where 4 are the least");
    return window;
}

void print_cavity(const Cavity& cavity)
{
    std::printf("Cavity: %td x %td cells of %g mm, relative permittivity %g, conductivity %g mS/m\n", cavity.cells_x,
                cavity.cells_y, cavity.cell * 1e3, cavity.permittivity, cavity.conductivity * 1e3);
    std::printf("        %td steps of %.4f ps; pulse of %g +- %g GHz, over after %.2f ns\n", cavity.steps,
                cavity.time_step() * 1e12, cavity.carrier / 1e9, cavity.bandwidth / 1e9,
                static_cast<double>(cavity.pulse_steps()) * cavity.time_step() * 1e9);
}

void print_kinds(const std::vector<Mode>& modes)
{
    const auto count = [&](Kind kind) {
        return std::count_if(modes.begin(), modes.end(), [&](const Mode& mode) { return mode.kind == kind; });
    };
    std::printf("\nOf %zu poles: %td modes, %td complex conjugates of modes, %td negligible, %td growing.\n\n",
                modes.size(), count(Kind::kept), count(Kind::conjugate), count(Kind::negligible), count(Kind::growing));
}

/// Returns whether all is well.
bool run(const Options& options)
{
    const Library library(options.library.empty() ? default_library() : options.library);

    const bool simulated = options.record.empty();
    const Cavity cavity;
    Record record;
    std::vector<CavityMode> exact;
    if (simulated) {
        print_cavity(cavity);
        record = simulate(cavity, [&](Index step) {
            if (step % 100 == 0)
                progress("simulating: " + std::to_string(100 * step / cavity.steps) + " %");
        });
        exact = exact_modes(cavity);
    } else {
        record = read_record(options.record, options.spacing);
        std::printf("Record: %s, %td %s samples, spacing %g s\n", options.record.c_str(), record.size(),
                    record.is_real() ? "real" : "complex", record.spacing);
    }

    const Window window = choose_window(options, record, simulated ? cavity.pulse_steps() : 0);
    if (simulated)
        std::printf("        the record is the sum of all %zu exact modes to %.0e of its peak\n", exact.size(),
                    distance_from_closed_form(exact, record, window));
    std::printf("Fit:    %td samples, one in %td, from %.6g s to %.6g s\n\n", window.count, window.stride,
                record.time(window.first), record.time(window.last()));

    const auto orders = options.orders.empty() ? choose_orders(window.count) : options.orders;
    if (const Index highest = *std::max_element(orders.begin(), orders.end()); 2 * highest > window.count)
        throw Error("order " + std::to_string(highest) + " takes " + std::to_string(2 * highest) +
                    " samples at least; there are " + std::to_string(window.count));
    const std::vector<Fit> fits = fit_orders(library, record, window, orders,
                                             [](Index order) { progress("fitting order " + std::to_string(order)); });
    progress("");
    const Fit& fit = best_fit(fits);
    print_measures(fits, fit);

    const std::vector<Mode> modes = classify(fit, record, window, options.threshold);
    print_kinds(modes);
    std::vector<Pair> pairs;
    bool met = true;
    if (simulated) {
        pairs = compare(exact, modes, record, window, options.threshold);
        print_comparison(pairs);
        std::printf("\n");
        met = print_verdict(pairs);
    } else {
        print_modes(modes);
    }

    if (!options.output.empty()) {
        write_files(options.output, record, window, fit, modes, pairs);
        const std::string hindrance = draw_picture(options.output);
        std::printf("\nWritten: %s-record.dat, -modes.dat, -poles.dat%s\n", options.output.c_str(),
                    hindrance.empty() ? ", .png" : "");
        if (!hindrance.empty())
            std::printf("%s\n", hindrance.c_str());
    }
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
