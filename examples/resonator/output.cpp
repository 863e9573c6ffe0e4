#include "examples/resonator/output.h"

#include "examples/resonator/error.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>

namespace resonator {

namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

/// A file that is being written; whatever goes wrong is found when it is finished.
class File
{
public:
    explicit File(const std::string& path) : path_(path), file_(std::fopen(path.c_str(), "w"), std::fclose)
    {
        if (!file_)
            fail();
    }

    template <class... Values>
    void print(const char* format, Values... values)
    {
        std::fprintf(file_.get(), format, values...);
    }
    void finish()
    {
        if (std::fflush(file_.get()) != 0 || std::ferror(file_.get()))
            fail();
    }

private:
    [[noreturn]] void fail() const { throw Error(path_ + ": cannot be written: " + std::strerror(errno)); }

    std::string path_;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
};

const char* name(Kind kind)
{
    switch (kind) {
    case Kind::kept:
        return "kept";
    case Kind::conjugate:
        return "conjugate";
    case Kind::growing:
        return "growing";
    case Kind::negligible:
        return "negligible";
    }
    return "";
}

void write_record(const std::string& path, const Record& record, const Window& window, const Fit& fit)
{
    File file(path);
    file.print(
        "# The model is evaluated at every sample from the first fitted one to the last; every %td-th is fitted.\n"
        "# time [s], record (real, imaginary), model (real, imaginary), |model - record|\n",
        window.stride);
    for (Index k = 0; k < record.size(); ++k) {
        const Complex value = record.at(k);
        const bool inside = k >= window.first && k <= window.last();
        const Complex model =
            inside ? model_at(fit, record.time(k) - record.time(window.first)) : Complex(kNone, kNone);
        file.print("%.17g %.17g %.17g %.17g %.17g %.3e\n", record.time(k), value.real(), value.imag(), model.real(),
                   model.imag(), std::abs(model - value));
    }
    file.finish();
}

void write_modes(const std::string& path, const std::vector<Mode>& modes, const std::vector<Pair>& pairs)
{
    File file(path);
    const auto print_mode = [&](const Mode& mode) {
        file.print("%.17g %.17g %.17g %.17g", mode.frequency(), mode.quality(), mode.amplitude(), mode.phase());
    };
    if (pairs.empty()) {
        file.print("# frequency [Hz], Q, amplitude, phase [degrees]\n");
        for (const Mode& mode : modes)
            if (mode.kind == Kind::kept) {
                print_mode(mode);
                file.print("\n");
            }
    } else {
        file.print("# m, n, frequency [Hz], Q, amplitude [V/m], phase [degrees]; the same four of the exact mode;\n"
                   "# relative errors of frequency, Q and amplitude, error of the phase [degrees];\n"
                   "# frequency and Q by ARPACK; by HYBRJ1\n");
        for (const Pair& pair : pairs)
            if (pair.exact && pair.found) {
                const Mode exact{pair.exact->pole, pair.exact->residue, 0.0, Kind::kept};
                file.print("%td %td ", pair.exact->m, pair.exact->n);
                print_mode(*pair.found);
                file.print(" ");
                print_mode(exact);
                file.print(" %.2e %.2e %.2e %.2e", pair.frequency_error(Road::fit), pair.quality_error(Road::fit),
                           pair.amplitude_error(), pair.phase_error());
                for (const auto& pole : {pair.arpack, pair.hybrj1})
                    file.print(" %.17g %.17g", pole ? frequency_of(*pole) : kNone, pole ? quality_of(*pole) : kNone);
                file.print("\n");
            }
    }
    file.finish();
}

void write_poles(const std::string& path, const std::vector<Mode>& modes, double spacing)
{
    File file(path);
    file.print(
        "# s (real, imaginary) [1/s], z = exp(s DT) (real, imaginary) with DT = %.17g s, |residue|, share, kind\n",
        spacing);
    for (const Mode& mode : modes) {
        const Complex z = std::polar(std::exp(mode.pole.real() * spacing), mode.pole.imag() * spacing);
        file.print("%.17g %.17g %.17g %.17g %.6e %.6e %s\n", mode.pole.real(), mode.pole.imag(), z.real(), z.imag(),
                   mode.amplitude(), mode.share, name(mode.kind));
    }
    file.finish();
}

/// A block for each signal, two empty lines between them.
void write_singular_values(const std::string& path, const Hankel& record, const std::optional<Hankel>& analytic)
{
    File file(path);
    file.print("# number, singular value of the Hankel matrix relative to the first, 1 above the noise and 0 in it:\n"
               "# of the record; of its analytic signal, if there is one\n");
    const auto write = [&](const Hankel& hankel) {
        for (Index k = 0; k < hankel.values.size(); ++k)
            file.print("%td %.6e %d\n", k + 1, hankel.values[k] / hankel.values[0], k < hankel.rank ? 1 : 0);
    };
    write(record);
    if (analytic) {
        file.print("\n\n");
        write(*analytic);
    }
    file.finish();
}

void write_response(const std::string& path, const Response& response)
{
    File file(path);
    if (response.exact.empty())
        file.print("# frequency [Hz], spectrum of the record (real, imaginary, modulus)\n");
    else
        file.print(
            "# frequency [Hz], response to a steady drive [V/(m A)] (real, imaginary, modulus); the exact one\n");
    for (std::size_t k = 0; k < response.values.size(); ++k) {
        const auto print = [&](const Complex& value) {
            file.print(" %.17g %.17g %.17g", value.real(), value.imag(), std::abs(value));
        };
        file.print("%.17g", response.frequencies[k]);
        print(response.values[k]);
        if (!response.exact.empty())
            print(response.exact[k]);
        file.print("\n");
    }
    file.finish();
}

/// Draws one picture by the script of that name beside this program. Returns what hindered it, or nothing.
std::string draw(const char* name, const std::string& prefix)
{
    std::error_code ignored;
    const std::string script = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path() / name;
    if (!std::filesystem::exists(script, ignored))
        return "no picture: " + script + " is missing";

    std::string words[] = {"gnuplot", "-c", script, prefix};
    char* const arguments[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(), nullptr};
    pid_t child = 0;
    if (const int status = posix_spawnp(&child, "gnuplot", nullptr, nullptr, arguments, environ); status != 0)
        return std::string("no picture: gnuplot: ") + std::strerror(status);
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            return std::string("no picture: gnuplot: ") + std::strerror(errno);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? "" : "no picture: gnuplot failed";
}

} // namespace

void write_files(const std::string& prefix, const Record& record, const Window& window, const Findings& findings)
{
    if (const auto folder = std::filesystem::path(prefix).parent_path(); !folder.empty()) {
        std::error_code status;
        std::filesystem::create_directories(folder, status);
        if (status)
            throw Error(folder.string() + ": cannot be made: " + status.message());
    }
    write_record(prefix + "-record.dat", record, window, findings.fit);
    write_modes(prefix + "-modes.dat", findings.modes, findings.pairs);
    write_poles(prefix + "-poles.dat", findings.modes, record.spacing * static_cast<double>(window.stride));
    write_singular_values(prefix + "-singular.dat", findings.hankel, findings.analytic);
    write_response(prefix + "-response.dat", findings.response);
}

std::string draw_pictures(const std::string& prefix)
{
    std::string hindrance = draw("plot.gp", prefix);
    return hindrance.empty() ? draw("plot_response.gp", prefix) : hindrance;
}

} // namespace resonator
