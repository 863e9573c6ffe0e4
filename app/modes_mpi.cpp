// tessel-modes on several processes: each takes every so-many-th file, the first prints all in order.
#include "app/error.h"
#include "app/hand_over.h"
#include "app/interrupt.h"
#include "app/options.h"
#include "app/run.h"

#include "fields/processes.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string_view>
#include <vector>

using namespace tessel;
using namespace tessel::app;

namespace {

void put(std::string& bytes, const std::string& text)
{
    const std::uint64_t length = text.size();
    bytes.append(reinterpret_cast<const char*>(&length), sizeof length).append(text);
}

std::string take(std::string_view& bytes)
{
    std::uint64_t length = 0;
    std::memcpy(&length, bytes.data(), sizeof length);
    std::string text(bytes.substr(sizeof length, length));
    bytes.remove_prefix(sizeof length + length);
    return text;
}

/// What all processes have to print, on the first, in the order of the command line.
std::vector<Printed> gather(const std::vector<Printed>& mine, fields::Team& team)
{
    std::string bytes;
    for (const Printed& printed : mine) {
        put(bytes, std::to_string(printed.file));
        put(bytes, printed.out);
        put(bytes, printed.err);
    }
    const auto ranks = static_cast<std::size_t>(team.size());
    const std::size_t length = bytes.size();
    std::vector<std::size_t> lengths(ranks), words(ranks, sizeof length);
    team.gather(&length, sizeof length, lengths.data(), words.data());
    std::size_t total = 0;
    for (const std::size_t one : lengths)
        total += one;
    std::string all(total, '\0');
    team.gather(bytes.data(), bytes.size(), all.data(), lengths.data());
    std::vector<Printed> result;
    for (std::string_view rest = all; team.rank() == 0 && !rest.empty();) {
        const std::size_t file = std::stoull(take(rest));
        std::string out = take(rest), err = take(rest);
        result.push_back({file, std::move(out), std::move(err)});
    }
    std::stable_sort(result.begin(), result.end(), [](const Printed& a, const Printed& b) { return a.file < b.file; });
    return result;
}

int run_shared(Options options, fields::Team& team)
{
    std::vector<std::size_t> files;
    for (auto file = static_cast<std::size_t>(team.rank()); file < options.files.size();
         file += static_cast<std::size_t>(team.size()))
        files.push_back(file);
    if (options.jobs == 0)
        options.jobs = 1;
    std::vector<Printed> mine;
    int status = 0;
    try {
        status = run(options, files, [&](const Printed& printed) { mine.push_back(printed); });
    } catch (const Interrupted&) {
        // What is complete is printed.
    }
    const std::vector<Printed> all = gather(mine, team);
    if (team.rank() == 0) {
        Printer printer(options);
        for (const Printed& printed : all)
            printer.print(printed);
        printer.finish();
    }
    return team.any(status != 0) ? 1 : 0;
}

/// What several processes cannot do; empty if they can.
std::string hindrance(const Options& options)
{
    if (options.joint)
        return "--joint takes all records together: run it without mpirun";
    if (!options.plot.empty())
        return "--plot draws on one process: run it without mpirun";
    if (std::find(options.files.begin(), options.files.end(), "-") != options.files.end())
        return "standard input cannot be read by several processes";
    return "";
}

} // namespace

int main(int argc, char** argv)
{
    const bool speaks = started().rank == 0;
    CommandLine line;
    std::string fault;
    int status = 2;
    try {
        line = parse_command_line({argv + 1, argv + argc});
        if (line.text && speaks)
            std::fputs(line.text->c_str(), stdout);
        if (line.text)
            return std::fflush(stdout) == 0 ? 0 : 1;
        fault = hindrance(line.options);
        status = 1;
    } catch (const UsageError& error) {
        fault = error.what();
        fault += "\nTry tessel-modes --help.";
    }
    if (!fault.empty()) {
        if (speaks)
            std::fprintf(stderr, "tessel-modes: %s\n", fault.c_str());
        return speaks ? status : 0; // the first to fail would end the one that speaks
    }
    watch_interrupts();
    {
        fields::Processes processes(argc, argv);
        try {
            status = run_shared(line.options, processes.team());
        } catch (const std::exception& error) {
            std::fprintf(stderr, "tessel-modes: %s\n", error.what());
            fields::end_all(1);
        }
    }
    if (interrupted() == 0)
        return status;
    if (speaks)
        std::fputs("tessel-modes: stopped\n", stderr);
    std::signal(interrupted(), SIG_DFL);
    std::raise(interrupted());
    return 1;
}
