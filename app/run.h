// The command's work: read, analyse, print in order.
#ifndef TESSEL_APP_RUN_H
#define TESSEL_APP_RUN_H

#include "app/options.h"
#include "app/outcome.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace tessel::app {

/// The records of one file, or what hinders.
/// @throws Interrupted  after a signal
std::vector<Outcome> read_outcomes(const std::string& file, const Options& options);

/// What the library is told, but for the first sample: that hangs on the record.
modes::Options library_options(const Options& options, const TimeUnit& unit,
                               const std::function<bool(const modes::Progress&)>& progress);

/// The first sample at or behind --start; none without it.
std::optional<std::size_t> first_sample(const Options& options, const TimeUnit& unit, double start, double spacing);

/// Analyses one record as the options say.
/// @param progress  may be empty; false stops the work
/// @throws what the library throws, Error
modes::Result analyse(const Record& record, const Options& options,
                      const std::function<bool(const modes::Progress&)>& progress);

/// Where an analysis stands, for a terminal.
std::string progress_text(const std::string& title, const modes::Progress& progress);

/// @throws std::runtime_error  if standard output could not be written
void finish_output();

/// What is printed of one record, or of a file that cannot be read.
struct Printed
{
    std::size_t file = 0; ///< its place on the command line
    std::string out;      ///< a table, lines of CSV or an object in JSON
    std::string err;      ///< lines
};

/// Puts records on standard output and standard error, with what stands around and between them.
class Printer
{
public:
    explicit Printer(const Options& options);
    void print(const Printed& printed);
    /// What stands behind the last one.
    void finish();

private:
    const Options& options_;
    std::vector<std::string> objects_; ///< of JSON
    bool any_ = false;
};

/// Does what run() does without --joint for some of the files, and gives what is to be printed in their order.
/// @param files  places on the command line
/// @throws Interrupted  after a signal
int run(const Options& options, const std::vector<std::size_t>& files,
        const std::function<void(const Printed&)>& print);

/// Analyses all records of all files and prints what came of them on standard output, what went wrong on standard
/// error.
///
/// Files are read one after another, their records analysed side by side; results come out in the order of the command
/// line, each as soon as it can. With --joint they make one set: see app/joint.h.
/// @returns the exit status: 0, or 1 if a record could not be analysed
/// @throws Interrupted  after a signal; results that were complete are printed
int run(const Options& options);

} // namespace tessel::app

#endif
