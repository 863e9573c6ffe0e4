#include "examples/resonator/output.h"

#include "examples/resonator/files.h"

#include <cmath>
#include <limits>
#include <numbers>

namespace resonator {

namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

/// The modes found, at a time counted from the first sample used.
double model_at(const std::vector<tessel::modes::Mode>& modes, long double time)
{
    constexpr long double turn = 2.0L * std::numbers::pi_v<long double>;
    long double sum = 0.0L;
    for (const tessel::modes::Mode& mode : modes)
        sum += mode.amplitude * std::exp(-mode.decay * time) * std::cos(turn * mode.frequency * time + mode.phase);
    return static_cast<double>(sum);
}

void write_record(const std::string& path, const Record& record, const tessel::modes::Result& result)
{
    File file(path);
    file.print("# The model is the sum of all modes found, from the first sample used on.\n"
               "# time [s], record [V/m], model [V/m], |model - record| [V/m]\n");
    const auto first = static_cast<Index>(result.firstSample);
    for (Index k = 0; k < record.size(); ++k) {
        const double model =
            k < first ? kNone : model_at(result.modes, static_cast<long double>(k - first) * record.spacing);
        file.print("%.17g %.17g %.17g %.3e\n", record.time(k), record.at(k), model, std::abs(model - record.at(k)));
    }
    file.finish();
}

void write_modes(const std::string& path, const std::vector<Pair>& pairs)
{
    File file(path);
    file.print(
        "# m, n; found, exact value, error, standard error of the frequency [Hz], of Q, of the amplitude [V/m] and of\n"
        "# the phase [degrees], errors relative but for the phase; frequency and Q by ARPACK; by HYBRJ1\n");
    for (const Pair& pair : pairs)
        if (pair.exact && pair.found) {
            file.print("%td %td", pair.exact->m, pair.exact->n);
            for (const Quantity quantity : kQuantities) {
                const Estimate estimate = pair.estimate(quantity);
                file.print(" %.17g %.17g %.6e %.6e", estimate.found, estimate.exact, estimate.error,
                           estimate.standard_error);
            }
            for (const auto& pole : {pair.arpack, pair.hybrj1})
                file.print(" %.17g %.17g", pole ? pole->imag() / (2.0 * std::numbers::pi) : kNone,
                           pole ? pole->imag() / (-2.0 * pole->real()) : kNone);
            file.print("\n");
        }
    file.finish();
}

void write_singular_values(const std::string& path, const Hankel& hankel)
{
    File file(path);
    file.print("# number, singular value of the Hankel matrix relative to the first, 1 above the noise and 0 in it\n");
    for (Index k = 0; k < hankel.values.size(); ++k)
        file.print("%td %.6e %d\n", k + 1, hankel.values[k] / hankel.values[0], k < hankel.rank ? 1 : 0);
    file.finish();
}

void write_response(const std::string& path, const Response& response)
{
    File file(path);
    file.print("# frequency [Hz], response to a steady drive [V/(m A)] (real, imaginary, modulus); the exact one\n");
    for (std::size_t k = 0; k < response.values.size(); ++k) {
        file.print("%.17g", response.frequencies[k]);
        for (const Complex& value : {response.values[k], response.exact[k]})
            file.print(" %.17g %.17g %.17g", value.real(), value.imag(), std::abs(value));
        file.print("\n");
    }
    file.finish();
}

} // namespace

void write_files(const std::string& prefix, const Record& record, const Findings& findings)
{
    write_record(prefix + "-record.dat", record, findings.result);
    write_modes(prefix + "-modes.dat", findings.pairs);
    write_singular_values(prefix + "-singular.dat", findings.hankel);
    write_response(prefix + "-response.dat", findings.response);
}

std::string draw_pictures(const std::string& prefix)
{
    std::string hindrance = draw("plot.gp", prefix);
    return hindrance.empty() ? draw("plot_response.gp", prefix) : hindrance;
}

} // namespace resonator
