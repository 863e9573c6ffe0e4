// From a FILE argument to the records in it.
#ifndef TESSEL_APP_RECORDS_H
#define TESSEL_APP_RECORDS_H

#include "app/columns.h"
#include "app/options.h"

#include <complex>
#include <string>
#include <vector>

namespace tessel::app {

/// Equally spaced samples, ready for the analysis.
struct Record
{
    std::string file;   ///< as the user gave it
    std::string column; ///< name or number; empty if the file has no other
    std::vector<double> real;
    std::vector<std::complex<double>> complex; ///< empty if the record is real
    double start = 0;
    double spacing = 0;
    double spacingError = 0; ///< relative standard deviation that rounded times leave open
    TimeUnit unit;
    std::vector<std::string> notes; ///< what was decided on reading; sentences

    std::size_t size() const { return complex.empty() ? real.size() : complex.size(); }
};

/// Reads a file, whatever its kind.
/// @throws Error  one line that says what hinders
Columns read_columns(const std::string& argument, const Options& options);

/// Decides which columns are times and which are samples.
///
/// Times are a column named time or t, or the first of several if it rises in equal steps, unless the file says a
/// spacing elsewhere. A column named step, or one that counts 0, 1, 2, ..., counts steps: --dt is welcome then. With
/// times, --dt is a mistake. All other columns are records, or those of --column; columns named by real and imaginary
/// parts, or all in turn by --complex, make complex records.
///
/// @throws Error  one line that says what hinders
std::vector<Record> make_records(Columns columns, const std::string& file, const Options& options);

} // namespace tessel::app

#endif
