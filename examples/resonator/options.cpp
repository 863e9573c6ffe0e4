#include "examples/resonator/options.h"

#include "examples/resonator/error.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

namespace resonator {

const char kHelp[] = R"(Usage: resonator [--record FILE] [options]

Finds the resonances in the record of a field solver with a least-squares Prony fit.

Without --record, a microwave cavity is simulated first (two-dimensional FDTD, a
pulse at one node, a probe at another), and three roads lead to its modes:
  Prony fit   of the record alone, which is all that a measurement would give
  ARPACK      eigenvalues of the sparse operator that makes one time step,
              shifted into the band and inverted
  HYBRJ1      zeros of the dispersion relation of the lossy grid
One table sets them beside the exact modes of the discrete cavity. Exit status 0 if
the eight lowest excited modes are found, by the fit with frequencies within 1e-8
and Q within 1e-4, by the others within 1e-11 and 1e-8, and if the two guides below
are as they should be; 1 if not.

Two guides are given for any record:
  Singular values of its Hankel matrix (DGESVD; ZGESVD for a complex record and for
              the analytic signal of a real one). Those above the noise number two
              for each mode of a real record, one of a complex or analytic one:
              the fit's order should be no lower.
  Response    of a linear system realised from the same matrix, to a steady drive at
              each frequency (ZGESV). Its peaks should stand at the modes. For the
              cavity it is per ampere of the current and compared with the exact one
              (1e-6); for a record it is the spectrum as if all had rung out.

The record
  --record FILE     columns of text: time, real part and, of a complex record,
                    imaginary part. Blanks, commas or semicolons stand between
                    columns, # starts a comment. Times are equally spaced, in s.
  --dt SECONDS      the record has no times, only real and imaginary parts; this
                    is their spacing
  --start SECONDS   fit from this time on (default: from the first sample). The
                    fit is a sum of damped oscillations: start when the source
                    is over.

The fit
  --decimate K      fit every K-th sample. A solver's step is far too short for
                    the fit; 2.5 to 5 samples per period of the highest frequency
                    serve best. By default K is chosen so, from the highest line
                    of the spectrum above 1e-4 of its peak. With more noise
                    than that, or to leave out what lies above a band that has
                    been filtered, choose K yourself.
  --samples N       fit at most N samples (default 500)
  --orders A[:B[:S]]  try the orders A, A+S, ..., B (S = 1 by default). An order is
                    the number of exponentials, two for each mode of a real record
                    and more to take up the noise. By default five orders from a
                    quarter to a third of the samples are tried. The fit whose
                    largest error measure is smallest is kept.
  --threshold X     drop modes whose share of the samples (root mean square) is
                    below X of the largest (default 1e-6), or below what the fit
                    leaves unexplained. Modes that grow are always dropped.

Files
  --output PREFIX   write PREFIX-record.dat (record, model, error), PREFIX-modes.dat,
                    PREFIX-poles.dat, PREFIX-singular.dat, PREFIX-response.dat and,
                    if gnuplot is there, PREFIX.png and PREFIX-response.png
  --library PATH    the library to load (default: libtessel.so beside this program
                    or in its build folder)
  --help            print this

Results for a program
  --json            print an object on standard output, with an array "modes" and an
                    array "fits" of all orders tried. The report goes to standard
                    error, and so it does with the other form:
  --csv             print a line of names and a line for each mode. What is said of
                    the whole record is in every line.

  samples, sample_step_s, first_sample_s
                    what is fitted
  order, err_l2, err_rms, err_peak, err_rms_mean, err_peak_mean
                    the fit that is kept; in "fits", each
  singular_values_above_noise, analytic_singular_values_above_noise
                    of the record; of its analytic signal
  frequency_hz, q, decay_per_s, amplitude, phase_rad
                    a mode: its pole is -decay_per_s + 2 pi i frequency_hz
  peak              whether the response has a peak at the mode
  Of the cavity besides:
  response_error, as_expected
                    of the driven response; the verdict on all
  m, n, exact_frequency_hz, exact_q, exact_decay_per_s, exact_amplitude,
  exact_phase_rad   the exact mode
  frequency_error, q_error, amplitude_error, phase_error_rad
                    of the fit; relative, but for the phase
  arpack_, hybrj1_  before frequency_hz, q, decay_per_s, frequency_error, q_error:
                    the other roads
  Numbers have 17 significant digits. What was not found, or is not finite, is null
  in JSON and nan, inf or -inf in CSV.

Amplitude and phase of a mode are those of its residue c at the first fitted
sample, in c exp(s t). A real record holds the complex conjugate as well, so a
cosine of amplitude 1 appears with 0.5. Exit status 2: bad input or no fit.

Examples
  resonator --output out/cavity
  resonator --record probe.dat --start 5e-9
  resonator --record probe.dat --dt 3.3e-12 --decimate 20 --orders 60:90:10
  resonator --record probe.dat --json > modes.json
)";

namespace {

template <class Number>
Number parse(const std::string& option, std::string_view word, Number least, const char* kind)
{
    Number value{};
    const auto [stop, status] = std::from_chars(word.data(), word.data() + word.size(), value);
    const bool whole = status == std::errc() && stop == word.data() + word.size();
    if (!whole || !(value >= least) || (std::is_floating_point_v<Number> && !std::isfinite(static_cast<double>(value))))
        throw Error(option + ": '" + std::string(word) + "' is not " + kind);
    return value;
}

Index parse_count(const std::string& option, std::string_view word)
{
    const Index value = parse<Index>(option, word, 1, "a whole number from 1 on");
    if (value > std::numeric_limits<int32_t>::max())
        throw Error(option + ": '" + std::string(word) + "' is too large");
    return value;
}

std::vector<Index> parse_orders(const std::string& option, const std::string& word)
{
    std::vector<Index> parts;
    for (std::size_t from = 0; from <= word.size();) {
        const std::size_t to = std::min(word.find(':', from), word.size());
        parts.push_back(parse_count(option, std::string_view(word).substr(from, to - from)));
        from = to + 1;
    }
    if (parts.size() > 3)
        throw Error(option + ": '" + word + "' is not FIRST, FIRST:LAST or FIRST:LAST:STEP");
    const Index first = parts[0], last = parts.size() > 1 ? parts[1] : first, step = parts.size() > 2 ? parts[2] : 1;
    if (last < first)
        throw Error(option + ": '" + word + "' ends before it begins");
    std::vector<Index> orders;
    for (Index order = first; order <= last; order += step)
        orders.push_back(order);
    return orders;
}

} // namespace

Options parse_options(const std::vector<std::string>& arguments)
{
    constexpr double any = std::numeric_limits<double>::lowest(), positive = std::numeric_limits<double>::min();
    Options options;
    for (std::size_t k = 0; k < arguments.size(); ++k) {
        const std::string& argument = arguments[k];
        const std::size_t equals = argument.find('=');
        const std::string option = argument.substr(0, equals);
        const auto value = [&]() -> std::string {
            if (equals != std::string::npos)
                return argument.substr(equals + 1);
            if (k + 1 == arguments.size())
                throw Error(option + ": a value is missing");
            return arguments[++k];
        };
        const auto flag = [&](const char* name) {
            if (option == name && equals != std::string::npos)
                throw Error(option + ": takes no value");
            return option == name;
        };
        const auto choose = [&](Format format) {
            if (options.format != Format::report && options.format != format)
                throw Error(option + ": one of --json and --csv is enough");
            options.format = format;
        };
        if (flag("--help") || flag("-h"))
            options.help = true;
        else if (flag("--json"))
            choose(Format::json);
        else if (flag("--csv"))
            choose(Format::csv);
        else if (option == "--record")
            options.record = value();
        else if (option == "--dt")
            options.spacing = parse<double>(option, value(), positive, "a time above zero");
        else if (option == "--start")
            options.start = parse<double>(option, value(), any, "a time");
        else if (option == "--decimate")
            options.stride = parse_count(option, value());
        else if (option == "--samples")
            options.samples = parse_count(option, value());
        else if (option == "--orders")
            options.orders = parse_orders(option, value());
        else if (option == "--threshold")
            options.threshold = parse<double>(option, value(), 0.0, "a number from 0 on");
        else if (option == "--output")
            options.output = value();
        else if (option == "--library")
            options.library = value();
        else
            throw Error(argument + ": unknown option; --help lists them");
    }
    if (options.spacing && options.record.empty())
        throw Error("--dt: the spacing belongs to a record, which --record names");
    return options;
}

} // namespace resonator
