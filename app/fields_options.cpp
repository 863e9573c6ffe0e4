#include "app/fields_options.h"

#include "app/error.h"
#include "app/help_format.h"
#include "app/source.h"
#include "app/values.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <memory>
#include <tuple>
#include <utility>

namespace tessel::app {

namespace {

constexpr std::size_t kLeastMemory = std::size_t(64) << 20;

constexpr const char* kDescription =
    R"TEXT(Finds the modes of a field over time and space: frequency and Q of each with standard
errors, and its profile, amplitude and phase at every point with their standard
errors. Band, noise, the end of the drive and the number of modes are found from the
field; no option is needed.
)TEXT";

constexpr const char* kFooter = R"TEXT(
Files
  FILE.h5:/path is a dataset over time and one to three dimensions of space, time
  first or last, or a group with a dataset for each step: their names end in numbers.
  Where each step is a group, '%' stands for its number: FILE.h5:/data/%/fields/E/z.
  Numbers are of single or double precision, or complex: records {r, i}, {re, im} or
  {real, imag}. The spacing is that of an attribute (dt, time_step, sampling_rate, ...),
  of a dataset "time" beside it, or --dt; the manual page of tessel-modes lists them.

Results
  A table is printed; profiles go to NAME-modes.h5, which the manual page describes,
  with NAME-modes.xdmf for ParaView. They get their names when they are whole. While it
  works, NAME-modes.h5.work holds what --resume needs.

  mpirun -n R tessel-fields ... shares the work among R processes (package tessel-mpi);
  results do not depend on their number.

Exit status
  0  the field was analysed, even if nothing rings in it
  1  it could not be analysed; there is no output
  2  the command line means nothing

Examples
  tessel-fields cavity.h5:/Ez                          all of it
  tessel-fields --time-axis last --dt 3.3ps run.h5:/E  as some solvers write it
  tessel-fields --band 1GHz:4GHz run.h5:/steps/Ez      a dataset for each step; a band
  tessel-fields run.h5:/data/%/fields/E/z              a group for each step
  tessel-fields --plot modes.png cavity.h5:/Ez         a picture of each mode
  mpirun -n 8 tessel-fields --memory 4G big.h5:/E      eight processes, 4 GiB each
  tessel-fields --resume big.h5:/E                     after it was stopped)TEXT";

/// "2G", "500M": bytes.
std::size_t parse_memory(const std::string& text)
{
    double value = 0;
    const auto [stop, status] = std::from_chars(text.data(), text.data() + text.size(), value);
    std::string unit(stop, static_cast<std::size_t>(text.data() + text.size() - stop));
    if (unit.ends_with("iB"))
        unit.resize(unit.size() - 2);
    else if (unit.size() > 1 && unit.ends_with("B"))
        unit.pop_back();
    const std::string_view units = "KMGT";
    const std::size_t power = unit.size() == 1 ? units.find(static_cast<char>(std::toupper(unit[0]))) : units.npos;
    if (status != std::errc() || power == units.npos || !(value > 0) || !(value < 1e6))
        throw UsageError("--memory: " + quote(text) + " is no size, such as 500M or 2G");
    const double bytes = value * static_cast<double>(std::size_t(1) << (10 * (power + 1)));
    if (bytes < static_cast<double>(kLeastMemory))
        throw UsageError("--memory: " + quote(text) + " is less than 64M, the least that is needed");
    return static_cast<std::size_t>(bytes);
}

/// A word as a shell reads it.
std::string for_shell(const std::string& word)
{
    const bool plain = !word.empty() && std::all_of(word.begin(), word.end(), [](unsigned char c) {
        return std::isalnum(c) || std::string_view("-_./:=,+@%").find(static_cast<char>(c)) != std::string_view::npos;
    });
    if (plain)
        return word;
    std::string result = "'";
    for (const char c : word)
        result += c == '\'' ? "'\\''" : std::string(1, c);
    return result + "'";
}

} // namespace

FieldsCommandLine parse_fields_command_line(const std::vector<std::string>& arguments)
{
    FieldsCommandLine result;
    FieldsOptions& options = result.options;
    std::vector<std::string> inputs;
    std::string spacing, unit, band, start, noise, most, samples, memory, jobs, axis;
    bool help = false, version = false;

    CLI::App app(kDescription, "tessel-fields");
    app.set_help_flag();
    app.formatter(std::make_shared<HelpFormat>("tessel-fields [OPTIONS] FILE.h5:/PATH"));
    app.footer(kFooter);
    app.add_option("FILE", inputs);
    const auto text = [&](const char* name, std::string& value, const char* type, const char* group,
                          const char* description) {
        return app.add_option(name, value, description)->type_name(type)->group(group)->expected(1);
    };
    constexpr const char *reading = "Reading", *search = "Searching", *work = "Working", *output = "Output";
    text("--time-axis", axis, "first|last", reading, "Axis of time (default: what the file tells, or the first)");
    text("--dt", spacing, "TIME", reading,
         "Time from one step to the next: 3.3e-12, 3.3ps;\nof numbered datasets, of one number");
    text("--time-unit", unit, "UNIT", reading,
         "What times are in: s, ms, us, ns, ps, fs, steps,\nor a name of your own (default: s, or the file's)");

    text("--band", band, "LOW:HIGH", search, "Report modes in this band alone: 1GHz:4GHz");
    text("--start", start, "TIME", search, "Use the field from this time on\n(default: where the drive has ended)");
    text("--noise", noise, "SIGMA", search, "Standard deviation of the noise of a sample");
    text("--max-modes", most, "N", search, "List no more, the most significant first (default: 300)");
    text("--samples", samples, "N", search, "Points whose records determine the first poles\n(default: 32)");

    text("--memory", memory, "SIZE", work, "Memory that a process may take, such as 2G (default: 1G)");
    text("-j,--jobs", jobs, "N", work, "Threads of a process (default: one a processor)");
    app.add_flag("--resume", options.resume, "Go on where a run of the same command stopped")->group(work);

    text("-o,--output", options.output, "FILE.h5", output, "Results (default: NAME-modes.h5 beside the input)");
    app.add_flag("--json", options.json, "Print JSON, with all digits")->group(output);
    text("--plot", options.plot, "FILE", output, "Draw a picture of each mode: .png, .svg or .pdf\n(gnuplot)");
    app.add_flag("-q,--quiet", options.quiet, "Print results alone: no progress, no remarks")->group(output);
    app.add_flag("-h,--help", help, "Print this")->group(output);
    app.add_flag("--version", version, "Print the version")->group(output);

    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::ParseError& error) {
        throw UsageError(one_line(error.what()));
    }
    if (help) {
        result.text = app.help();
        return result;
    }
    if (version) {
        result.text = "tessel-fields " TESSEL_VERSION "\n";
        return result;
    }

    if (inputs.size() != 1)
        throw UsageError(inputs.empty() ? "a field is missing, such as: tessel-fields cavity.h5:/Ez"
                                        : "one field at a time");
    options.input = inputs[0];
    const Source source = parse_source(options.input);
    options.file = source.file;
    options.dataset = source.dataset;
    const auto given = [&](const char* name) { return app.count(name) > 0; };
    if (given("--time-axis")) {
        if (axis != "first" && axis != "last")
            throw UsageError("--time-axis: " + quote(axis) + " is neither first nor last");
        options.timeLast = axis == "last";
    }
    if (given("--dt"))
        options.spacing = parse_spacing(spacing);
    if (given("--time-unit"))
        options.unit = parse_unit(unit);
    if (given("--band"))
        std::tie(options.lowest, options.highest) = parse_band(band);
    if (given("--start"))
        options.start = parse_time("--start", start);
    if (given("--noise"))
        options.noise = parse_positive("--noise", noise);
    if (given("--max-modes"))
        options.mostModes = parse_count("--max-modes", most);
    if (given("--samples"))
        options.samples = std::min<std::size_t>(parse_count("--samples", samples), 4096);
    if (given("--memory"))
        options.memory = parse_memory(memory);
    if (given("--jobs"))
        options.jobs = static_cast<unsigned>(std::min<std::size_t>(parse_count("--jobs", jobs), 1024));
    check_picture(options.plot);
    check_units(options.unit, {options.spacing, options.start, options.lowest, options.highest});
    if (!given("--output")) {
        const std::size_t name = options.file.rfind('/') + 1, dot = options.file.rfind('.');
        options.output = options.file;
        if (dot != options.file.npos && dot > name)
            options.output.resize(dot);
        options.output += "-modes.h5";
    } else if (options.output.empty() || options.output.back() == '/') {
        throw UsageError("--output: " + quote(options.output) + " is no file");
    }
    options.command = "tessel-fields";
    for (const std::string& word : arguments)
        options.command += " " + for_shell(word);
    return result;
}

} // namespace tessel::app
