#include "app/plot.h"

#include "app/error.h"
#include "app/number.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace tessel::app {

namespace {

constexpr std::size_t kPoints = 1500; // across a picture

std::string number(double value)
{
    char text[40];
    std::snprintf(text, sizeof text, "%.10g", value);
    return text;
}

/// The modes' sum at a time; the real part of a complex one.
double model_at(const modes::Result& result, double time)
{
    double sum = 0;
    for (const modes::Mode& mode : result.modes) {
        const double after = time - result.referenceTime;
        sum +=
            mode.amplitude * std::exp(-mode.decay * after) * std::cos(2 * M_PI * mode.frequency * after + mode.phase);
    }
    return sum;
}

/// The smallest and the largest value of each of the parts that are drawn.
std::string band(const char* name, const Outcome& outcome, std::size_t first, double scale,
                 const std::function<double(std::size_t)>& value)
{
    const std::size_t count = outcome.record.size() - first;
    const std::size_t part = std::max<std::size_t>((count + kPoints - 1) / kPoints, 1);
    std::string text = std::string("$") + name + " << EOD\n";
    for (std::size_t from = first; from < outcome.record.size(); from += part) {
        double low = value(from), high = low;
        for (std::size_t k = from; k < std::min(from + part, outcome.record.size()); ++k) {
            const double v = value(k);
            low = std::min(low, v);
            high = std::max(high, v);
        }
        const double time = outcome.record.start + static_cast<double>(from) * outcome.record.spacing;
        text += number(time * scale) + " " + number(low) + "\n";
        if (part > 1)
            text += number(time * scale) + " " + number(high) + "\n";
    }
    return text + "EOD\n";
}

struct Pipe
{
    std::FILE* stream;
    ~Pipe()
    {
        if (stream)
            pclose(stream);
    }
};

} // namespace

std::string in_quotes(const std::string& text)
{
    std::string result = "'";
    for (const char c : text)
        result.append(c == '\'' ? 2 : 1, static_cast<unsigned char>(c) < 0x20 ? ' ' : c);
    return result + "'";
}

void check_gnuplot()
{
    if (std::system("command -v gnuplot >/dev/null 2>&1") != 0)
        throw Error("--plot needs gnuplot, which is not installed (gnuplot-nox)");
}

std::string plot_name(const std::string& file, std::size_t index)
{
    if (index == 0)
        return file;
    return file.substr(0, file.size() - 4) + "-" + std::to_string(index + 1) + file.substr(file.size() - 4);
}

std::string plot_script(const Outcome& outcome, const std::string& file)
{
    const Record& record = outcome.record;
    const modes::Result& result = *outcome.result;
    const auto sample = [&](std::size_t k) {
        return record.complex.empty() ? record.real[k] : record.complex[k].real();
    };
    const auto model = [&](std::size_t k) {
        return model_at(result, record.start + static_cast<double>(k) * record.spacing);
    };
    const double last = std::abs(record.start) + static_cast<double>(record.size()) * record.spacing;
    const Scale time = time_scale(last, record.unit);
    double highest = 0, strongest = 0;
    for (const modes::Mode& mode : result.modes) {
        highest = std::max(highest, std::abs(mode.frequency));
        strongest = std::max(strongest, mode.amplitude);
    }
    const Scale hertz = frequency_scale(highest, record.unit);
    const double timeFactor = shifted(1, time.shift);

    std::string script = std::string("set terminal ") +
                         (file.ends_with(".png")   ? "pngcairo size 1200,1000 font 'sans,11'"
                          : file.ends_with(".svg") ? "svg size 1200,1000 font 'sans,14'"
                                                   : "pdfcairo size 20cm,17cm font 'sans,9'") +
                         " noenhanced\nset output " + in_quotes(file) + "\n";
    script += band("record", outcome, 0, timeFactor, sample);
    if (!result.modes.empty()) {
        script += band("model", outcome, result.firstSample, timeFactor, model);
        script +=
            band("rest", outcome, result.firstSample, timeFactor, [&](std::size_t k) { return sample(k) - model(k); });
        script += "$modes << EOD\n";
        for (const modes::Mode& mode : result.modes)
            script += number(shifted(mode.frequency, hertz.shift)) + " " + number(mode.amplitude) + " " +
                      number(std::isfinite(mode.amplitudeError) ? mode.amplitudeError : 0) + " \"" +
                      (mode.kind == modes::Kind::overdamped ? "" : "Q " + plain_form(mode.quality, 3)) + "\"\n";
        script += "EOD\n";
    }
    const std::string part = record.complex.empty() ? "" : " (real part)";
    script += "set multiplot layout " + std::string(result.modes.empty() ? "1" : "3") + ",1 title " +
              in_quotes(title_of(record)) + "\nset grid\nset key top right\nset xlabel " +
              in_quotes("time [" + time.name + "]") + "\n";
    if (result.modes.empty())
        return script + "plot $record with lines lc rgb '#30507a' title " + in_quotes("record" + part) +
               "\nunset multiplot\n";
    script += "plot $record with lines lc rgb '#30507a' title " + in_quotes("record" + part) +
              ", $model with lines lc rgb '#d07020' title 'model'\n"
              "plot $rest with lines lc rgb '#30507a' title 'record - model'\n"
              "set xlabel " +
              in_quotes("frequency [" + hertz.name + "]") +
              "\nset logscale y\nset format y '%.0e'\n"
              "set offsets graph 0.05, graph 0.05, 0, 0\nset ylabel 'amplitude'\nset yrange [*:" +
              number(4 * strongest) +
              "]\n"
              "plot $modes using 1:2 with impulses lw 2 lc rgb '#30507a' notitle, "
              "$modes using 1:2:3 with yerrorbars pt 7 ps 0.6 lc rgb '#30507a' title 'modes', "
              "$modes using 1:2:4 with labels offset 0,0.8 notitle\nunset multiplot\n";
    return script;
}

void draw(const std::string& script, const std::string& file)
{
    // Where it cannot be written, gnuplot does not say why.
    if (!std::ofstream(file, std::ios::app))
        throw Error(file + ": cannot be written: " + std::strerror(errno));
    // A gnuplot that ends early must not end this program.
    struct sigaction ignore = {}, before = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &before);
    std::fflush(nullptr);
    Pipe pipe{popen("exec gnuplot >/dev/null 2>&1", "w")};
    bool good = pipe.stream != nullptr;
    if (good) {
        good = std::fwrite(script.data(), 1, script.size(), pipe.stream) == script.size();
        const int status = pclose(pipe.stream);
        pipe.stream = nullptr;
        good = good && status == 0;
    }
    sigaction(SIGPIPE, &before, nullptr);
    if (!good || access(file.c_str(), R_OK) != 0)
        throw Error(file + ": gnuplot could not draw it");
}

} // namespace tessel::app
