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
    constexpr double none = std::numeric_limits<double>::quiet_NaN();
    File file(path);
    file.print(
        "# The model is evaluated at every sample from the first fitted one to the last; every %td-th is fitted.\n"
        "# time [s], record (real, imaginary), model (real, imaginary), |model - record|\n",
        window.stride);
    for (Index k = 0; k < record.size(); ++k) {
        const Complex value = record.at(k);
        const bool inside = k >= window.first && k <= window.last();
        const Complex model = inside ? model_at(fit, record.time(k) - record.time(window.first)) : Complex(none, none);
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
                   "# relative errors of frequency, Q and amplitude, error of the phase [degrees]\n");
        for (const Pair& pair : pairs)
            if (pair.exact && pair.found) {
                const Mode exact{pair.exact->pole, pair.exact->residue, 0.0, Kind::kept};
                file.print("%td %td ", pair.exact->m, pair.exact->n);
                print_mode(*pair.found);
                file.print(" ");
                print_mode(exact);
                file.print(" %.2e %.2e %.2e %.2e\n", pair.frequency_error(), pair.quality_error(),
                           pair.amplitude_error(), pair.phase_error());
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

} // namespace

void write_files(const std::string& prefix, const Record& record, const Window& window, const Fit& fit,
                 const std::vector<Mode>& modes, const std::vector<Pair>& pairs)
{
    if (const auto folder = std::filesystem::path(prefix).parent_path(); !folder.empty()) {
        std::error_code status;
        std::filesystem::create_directories(folder, status);
        if (status)
            throw Error(folder.string() + ": cannot be made: " + status.message());
    }
    write_record(prefix + "-record.dat", record, window, fit);
    write_modes(prefix + "-modes.dat", modes, pairs);
    write_poles(prefix + "-poles.dat", modes, record.spacing * static_cast<double>(window.stride));
}

std::string draw_picture(const std::string& prefix)
{
    std::error_code ignored;
    const std::string script = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path() / "plot.gp";
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

} // namespace resonator
