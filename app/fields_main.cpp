// tessel-fields: the modes of a field and their profiles.
#include "app/apart.h"
#include "app/error.h"
#include "app/fields_options.h"
#include "app/fields_outcome.h"
#include "app/hand_over.h"
#include "app/interrupt.h"
#include "app/plot.h"
#include "app/progress.h"
#include "app/run.h"
#include "app/source.h"

#include "fields/fields.h"
#include "fields/io/field_file.h"
#include "fields/io/output.h"
#include "fields/io/work_file.h"
#include "fields/processes.h"

#include <hdf5.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <string_view>
#include <thread>

using namespace tessel;
using namespace tessel::app;

namespace {

/// What can be told of a fault on the terminal: by rank 0 for all.
void say(const fields::Team& team, const std::string& text)
{
    if (team.rank() == 0)
        std::fprintf(stderr, "tessel-fields: %s\n", text.c_str());
}

bool is_same_file(const std::string& one, const std::string& other)
{
    struct stat a = {}, b = {};
    return stat(one.c_str(), &a) == 0 && stat(other.c_str(), &b) == 0 && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// Processors for this process: those that it is bound to, or its part of all.
unsigned processors(const Started& started)
{
    const unsigned all = std::max(std::thread::hardware_concurrency(), 1u);
    const bool bound = all < static_cast<unsigned>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L));
    return bound ? all : std::max(all / static_cast<unsigned>(started.here), 1u);
}

fields::Reading reading_of(const FieldsOptions& options)
{
    return {options.file, options.dataset, options.timeLast, options.spacing, options.unit, options.memory / 8};
}

/// Everything that can be said of the input before any work: what hinders, empty if nothing does. Its library does not
/// stand every damaged file, so a process of its own looks first.
std::string look_at(const FieldsOptions& options)
{
    try {
        if (options.file == "-")
            return "a field is read from a file, not from standard input";
        struct stat status = {};
        if (stat(options.file.c_str(), &status) != 0)
            return options.file + ": " + (errno == ENOENT ? "there is no such file" : std::strerror(errno));
        if (S_ISDIR(status.st_mode))
            return options.file + ": is a folder";
        if (!is_hdf5(options.file))
            return options.file + ": is no HDF5 file";
        if (is_same_file(options.file, options.output))
            return options.output + ": is the input; give another --output";
        read_apart([&] {
            const fields::FieldFile file(reading_of(options));
            return Columns();
        });
        if (!options.plot.empty())
            check_gnuplot();
    } catch (const Error& error) {
        return error.in(options.input);
    }
    return "";
}

modes::Options search_of(const FieldsOptions& options, const fields::Shape& shape, const TimeUnit& unit)
{
    modes::Options how = library_options(options, unit, {});
    how.first = first_sample(options, unit, shape.start, shape.spacing);
    if (how.first.value_or(0) >= shape.steps)
        throw Error("--start lies behind the end of the field");
    return how;
}

/// Everything that the work file's contents depend on.
std::string identity_of(const fields::FieldFile& file, const fields::Options& options)
{
    const auto number = [](const auto& value) {
        char text[48] = "-";
        if (value)
            std::snprintf(text, sizeof text, "%a", static_cast<double>(*value));
        return std::string(text);
    };
    const std::optional<double> start(file.shape().start), spacing(file.shape().spacing);
    return "tessel-fields " TESSEL_VERSION "\n" + file.identity() + "\n" + number(start) + " " + number(spacing) + " " +
           number(options.modes.lowest) + " " + number(options.modes.highest) + " " + number(options.modes.first) +
           " " + number(options.modes.noise) + " " + number(options.modes.mostModes) + " " +
           std::to_string(options.samples);
}

void print(const FieldsOutcome& outcome, const FieldsOptions& options)
{
    const std::string text = options.json ? fields_json(outcome) : fields_table(outcome, options.quiet);
    std::fwrite(text.data(), 1, text.size(), stdout);
    finish_output();
}

std::string text_of(const FieldsOptions& options, const std::exception& error)
{
    const bool memory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
    return options.input + ": " + (memory ? "needs more memory than there is" : error.what());
}

[[noreturn]] void end_all(const FieldsOptions& options, const std::exception& error)
{
    std::fprintf(stderr, "tessel-fields: %s\n", text_of(options, error).c_str());
    fields::end_all(1);
}

/// Reads, analyses, writes and prints. What is thrown, is thrown on all processes.
void work(const FieldsOptions& options, fields::Team& team)
{
    // Each process reads by itself.
    std::unique_ptr<fields::FieldFile> file;
    fields::Options how;
    std::string fault;
    try {
        file = std::make_unique<fields::FieldFile>(reading_of(options));
        how.modes = search_of(options, file->shape(), file->unit());
    } catch (const Error& error) {
        fault = error.what();
    }
    team.agree(fault);

    how.samples = options.samples;
    how.memory = options.memory - options.memory / 4;
    how.threads = options.jobs > 0 ? options.jobs : processors(started());
    ProgressLine line(!options.quiet && team.rank() == 0);
    how.progress = [&](const fields::Progress& progress) {
        const double part =
            progress.all > 0 ? static_cast<double>(progress.done) / static_cast<double>(progress.all) : 0;
        line.say(options.input + ": " + progress.stage + ", " +
                 std::to_string(static_cast<int>(100 * std::clamp(part, 0.0, 1.0))) + " %");
        return interrupted() == 0;
    };

    FieldsOutcome outcome;
    outcome.input = options.input;
    outcome.path = file->path();
    outcome.output = options.output;
    outcome.shape = file->shape();
    outcome.unit = file->unit();
    outcome.spacingError = file->spacingError();
    outcome.notes = file->notes();
    fields::WorkFile store(options.output + ".work", identity_of(*file, how), outcome.shape.points(), options.resume,
                           team);
    if (options.resume)
        outcome.notes.push_back(store.resumed() ? "a run that was stopped was gone on with"
                                                : "there was nothing to go on with: all was done anew");
    const fields::Provenance provenance{options.input,  outcome.path, options.command,
                                        TESSEL_VERSION, outcome.unit, outcome.shape.timeFirst};
    fields::Output output(options.output, outcome.shape, provenance, team, options.memory / 8,
                          [] { return interrupted() != 0; });
    outcome.xdmf = output.xdmf();
    try {
        outcome.result = fields::analyse(
            *file, team, store, how,
            [&](const fields::Outcome& result) {
                outcome.result = result;
                output.begin(result, remarks_of(outcome));
            },
            [&](const fields::Profiles& profiles) { output.add(profiles); });
        output.finish();
    } catch (const modes::Stopped&) {
        throw;
    } catch (const fields::Error& error) {
        // What could not be written may be, after a while; what was wrong with the field stays wrong.
        if (std::string_view(error.what()).find("cannot be written") == std::string_view::npos)
            store.remove();
        throw;
    } catch (const std::exception& error) {
        // The others know nothing of it, and wait.
        if (team.size() > 1)
            end_all(options, error);
        throw;
    }
    store.remove();
    line.clear();
    if (team.rank() == 0) {
        print(outcome, options);
        if (!options.plot.empty())
            draw(fields_plot_script(outcome, options.plot), options.plot);
    }
}

int run(const FieldsOptions& options, fields::Team& team)
{
    try {
        work(options, team);
        return 0;
    } catch (const modes::Stopped&) {
        say(team, "stopped; the same command with --resume goes on from here");
        return -1;
    } catch (const fields::Error& error) {
        say(team, options.input + ": " + error.what());
    } catch (const Error& error) {
        say(team, error.what());
    } catch (const std::exception& error) {
        if (team.size() > 1)
            end_all(options, error);
        say(team, text_of(options, error));
    }
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    const Started started = app::started();
    // What the environment says is believed until all have joined: only one process speaks.
    const bool speaks = started.rank == 0;
#ifndef TESSEL_WITH_MPI
    if (const std::string text = hand_over("tessel-fields", argv); !text.empty()) {
        if (speaks)
            std::fprintf(stderr, "tessel-fields: %s\n", text.c_str());
        return speaks ? 1 : 0; // the first to fail would end the one that speaks
    }
#endif
    FieldsCommandLine line;
    int status = 0;
    std::string fault;
    try {
        line = parse_fields_command_line({argv + 1, argv + argc});
        if (line.text && speaks) {
            std::fputs(line.text->c_str(), stdout);
            status = std::fflush(stdout) == 0 ? 0 : 1;
        }
    } catch (const UsageError& error) {
        fault = error.what();
        fault += "\nTry tessel-fields --help.";
        status = 2;
    }
    if (!fault.empty() || line.text) {
        if (!fault.empty() && speaks)
            std::fprintf(stderr, "tessel-fields: %s\n", fault.c_str());
        return speaks ? status : 0;
    }

    std::signal(SIGXFSZ, SIG_IGN); // a file that may grow no more is a full disk
    H5dont_atexit();
    watch_interrupts();
    try {
        if (speaks)
            fault = look_at(line.options);
    } catch (const Interrupted&) {
        fault = "stopped";
    }
    {
        fields::Processes processes(argc, argv);
        fields::Team& team = processes.team();
        if (team.any(!fault.empty())) {
            if (!fault.empty())
                std::fprintf(stderr, "tessel-fields: %s\n", fault.c_str());
            status = interrupted() != 0 ? -1 : 1;
        } else {
            status = run(line.options, team);
        }
    }
    if (status >= 0)
        return status;
    // The caller sees which signal it was.
    const int number = interrupted() != 0 ? interrupted() : SIGINT;
    std::signal(number, SIG_DFL);
    std::raise(number);
    return 1;
}
