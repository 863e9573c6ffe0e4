#include "app/options.h"

#include "app/error.h"
#include "app/help_format.h"
#include "app/values.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <tuple>
#include <utility>

namespace tessel::app {

namespace {

constexpr const char* kDescription =
    R"TEXT(Finds the modes in records of a field solver: frequency, Q, amplitude and phase of
each, with standard errors. Band, noise, the end of the drive and the number of
modes are found from the record; no option is needed.
)TEXT";

constexpr const char* kFooter = R"TEXT(
Files
  Text with columns apart by blanks, tabs, commas or semicolons: time and samples,
  one record for each column of samples. A line of names is used if there is one:
  "time (ns)" names the unit, "Re Ez" and "Im Ez" make one complex record. One
  column alone holds samples; give --dt. Gzip is read, - is standard input.
  NumPy's .npy, of one dimension (give --dt) or of two, read like columns of text.
  HDF5 as FILE.h5:/path/to/dataset. The spacing is that of an attribute (dt,
  time_step, sampling_rate, ...; the manual page lists them) of the dataset or of
  what holds it, or of a dataset "time" beside it, or --dt.

Results
  1.503 091 026(12) GHz is 1.503091026 GHz with a standard error of 12 in the last
  digits. Amplitude and phase are those at the time of the first sample used:
  A exp(-g t) cos(2 pi f t + p), or A exp(i p) exp((2 pi i f - g) t) in a complex
  record. Significance is above 1 for all modes that are listed: 1 is what chance
  reaches once in a thousand records.

Exit status
  0  every record was analysed, even if nothing rings in it
  1  a record could not be analysed; the others are
  2  the command line means nothing

Examples
  tessel-modes probe.dat                           all columns of a text file
  tessel-modes --column Ez --time-unit ns run.csv  one column; times in ns
  tessel-modes --dt 3.3ps samples.npy              samples without times
  tessel-modes --band 1GHz:4GHz run.h5:/probes/Ez  a dataset; a band
  tessel-modes --joint probes.csv more.csv         probes of one structure, together
  tessel-modes --json probe.dat | jq '.modes[].q'  for programs
  tessel-modes --plot modes.png probe.dat          record, model, error and modes
  zcat probe.gz | tessel-modes -                   standard input

Records to try it on lie in /usr/share/doc/tessel/examples/records. All that is not
said here: man tessel-modes.)TEXT";

} // namespace

CommandLine parse_command_line(const std::vector<std::string>& arguments)
{
    CommandLine result;
    Options& options = result.options;
    std::string spacing, unit, band, start, noise, most, jobs, axis;
    bool json = false, csv = false, help = false, version = false;

    CLI::App app(kDescription, "tessel-modes");
    app.set_help_flag();
    app.formatter(std::make_shared<HelpFormat>("tessel-modes [OPTIONS] FILE..."));
    app.footer(kFooter);
    app.add_option("FILE", options.files);

    const auto text = [&](const char* name, std::string& value, const char* type, const char* group,
                          const char* description) {
        return app.add_option(name, value, description)->type_name(type)->group(group)->expected(1);
    };
    constexpr const char *reading = "Reading", *search = "Searching", *output = "Output";
    app.add_option("-c,--column", options.columns,
                   "Analyse these columns: names or numbers from 1, with\ncommas between: Ez,Hy or 2,3")
        ->type_name("NAME|N")
        ->group(reading)
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);
    text("--dt", spacing, "TIME", reading, "Spacing of samples without times: 3.3ps or 3.3e-12");
    text("--time-unit", unit, "UNIT", reading,
         "What times are in: s, ms, us, ns, ps, fs, steps, or a\nname of your own (default: what the file says, or s)");
    text("--axis", axis, "0|1", reading,
         "Time runs down the columns (0) or along the rows (1)\nof an array (default: the longer of the two)");
    app.add_flag("--complex", options.complexPairs, "Columns are real and imaginary parts in turn")->group(reading);

    app.add_flag("--joint", options.joint,
                 "Take all records for probes of one structure: one set\nof modes, an amplitude in each record")
        ->group(search);
    text("--band", band, "LOW:HIGH", search,
         "Report modes in this band alone: 1GHz:4GHz, 1GHz: or\n:4GHz; without a unit, in the inverse of the times'");
    text("--start", start, "TIME", search,
         "Use the record from this time on: 1.5ns\n(default: where the drive has ended)");
    text("--noise", noise, "SIGMA", search,
         "Standard deviation of the noise of a sample, in the\nunit of the samples: 1e-4 (default: found)");
    text("--max-modes", most, "N", search, "List the N most significant modes (default: 300)");

    app.add_flag("--json", json, "Print JSON, with all digits")->group(output);
    app.add_flag("--csv", csv, "Print comma-separated values: a line for each mode")->group(output);
    text("--plot", options.plot, "FILE", output,
         "Draw record, model, error and modes: modes.png, .svg\nor .pdf; the second record goes to modes-2.png");
    text("-j,--jobs", jobs, "N", output,
         "Analyse so many records at a time (default: as many as\nthere are processors)");
    app.add_flag("-q,--quiet", options.quiet, "Print results alone, without progress and remarks")->group(output);
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
        result.text = "tessel-modes " TESSEL_VERSION "\n";
        return result;
    }

    if (options.files.empty())
        throw UsageError("a file is missing, such as: tessel-modes probe.dat");
    if (std::count(options.files.begin(), options.files.end(), "-") > 1)
        throw UsageError("standard input can be read once");
    if (json && csv)
        throw UsageError("one of --json and --csv is enough");
    options.format = json ? Format::json : csv ? Format::csv : Format::table;
    const auto given = [&](const char* name) { return app.count(name) > 0; };
    if (given("--dt"))
        options.spacing = parse_spacing(spacing);
    if (given("--time-unit"))
        options.unit = parse_unit(unit);
    if (given("--axis")) {
        if (axis != "0" && axis != "1")
            throw UsageError("--axis: " + quote(axis) + " is neither 0 nor 1");
        options.axis = axis == "1";
    }
    if (given("--band"))
        std::tie(options.lowest, options.highest) = parse_band(band);
    if (given("--start"))
        options.start = parse_time("--start", start);
    if (given("--noise"))
        options.noise = parse_positive("--noise", noise);
    if (given("--max-modes"))
        options.mostModes = parse_count("--max-modes", most);
    if (given("--jobs"))
        options.jobs = static_cast<unsigned>(std::min<std::size_t>(parse_count("--jobs", jobs), 1024));
    check_picture(options.plot);
    check_units(options.unit, {options.spacing, options.start, options.lowest, options.highest});
    return result;
}

} // namespace tessel::app
