#include "app/error.h"
#include "app/fields_outcome.h"
#include "app/hdf5_objects.h"
#include "app/number.h"
#include "app/plot.h"

#include "fields/io/place.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

namespace tessel::app {

namespace {

constexpr std::size_t kMostTiles = 36;
constexpr std::size_t kMostPixels = 240; // along an edge of a tile
constexpr std::size_t kMostAlong = 2000; // of a curve

/// What is shown of a profile: every so-many-th point of a plane, or of a line, which has one row.
struct View
{
    std::size_t rows = 1, columns = 1;
    std::size_t rowStride = 1, columnStride = 1;
    std::vector<double> values; ///< over the peak
};

View view_of(hid_t file, std::size_t index, const fields::FieldMode& mode, const std::vector<std::size_t>& space)
{
    const std::vector<std::size_t> peak = fields::place_of(mode.peakPoint, space);
    View view;
    std::vector<hsize_t> start{index}, stride{1}, count{1};
    const auto add = [&](std::size_t extent, std::size_t most, std::size_t& shown, std::size_t& every) {
        every = (extent + most - 1) / most;
        shown = (extent + every - 1) / every;
        start.push_back(0);
        stride.push_back(every);
        count.push_back(shown);
    };
    if (space.size() == 3) {
        start.push_back(peak[0]);
        stride.push_back(1);
        count.push_back(1);
    }
    if (space.size() > 1)
        add(space[space.size() - 2], kMostPixels, view.rows, view.rowStride);
    add(space.back(), space.size() > 1 ? kMostPixels : kMostAlong, view.columns, view.columnStride);

    const hsize_t size = view.rows * view.columns;
    const auto read = [&](const char* name, const std::vector<hsize_t>& from, const std::vector<hsize_t>& every,
                          const std::vector<hsize_t>& extent) {
        std::vector<double> values(std::accumulate(extent.begin(), extent.end(), std::size_t{1}, std::multiplies<>()));
        const hsize_t length = values.size();
        const Id dataset(H5Dopen2(file, name, H5P_DEFAULT), H5Dclose), all(H5Dget_space(dataset), H5Sclose),
            memory(H5Screate_simple(1, &length, nullptr), H5Sclose);
        if (!dataset ||
            H5Sselect_hyperslab(all, H5S_SELECT_SET, from.data(), every.data(), extent.data(), nullptr) < 0 ||
            H5Dread(dataset, H5T_NATIVE_DOUBLE, memory, all, H5P_DEFAULT, values.data()) < 0)
            throw Error("cannot be read, to draw what is in it");
        return values;
    };
    // Along the peak's direction in the complex plane: a standing wave lies on it.
    std::vector<hsize_t> there{index};
    there.insert(there.end(), peak.begin(), peak.end());
    const std::vector<hsize_t> one(there.size(), 1);
    const double atPeak = read("profiles/phase", there, one, one)[0];
    const std::vector<double> real = read("profiles/real", start, stride, count),
                              imag = read("profiles/imag", start, stride, count);
    const double along = std::cos(atPeak) / mode.peak, across = std::sin(atPeak) / mode.peak;
    view.values.resize(size);
    for (std::size_t k = 0; k < size; ++k)
        view.values[k] = real[k] * along + imag[k] * across;
    return view;
}

std::string number(double value)
{
    char text[40];
    std::snprintf(text, sizeof text, "%.4g", value);
    return text;
}

} // namespace

std::string fields_plot_script(const FieldsOutcome& outcome, const std::string& picture)
{
    const std::vector<fields::FieldMode>& modes = outcome.result.modes;
    const std::vector<std::size_t>& space = outcome.shape.space;
    std::vector<std::size_t> shown(modes.size());
    std::iota(shown.begin(), shown.end(), std::size_t{0});
    std::stable_sort(shown.begin(), shown.end(),
                     [&](std::size_t a, std::size_t b) { return modes[a].peak > modes[b].peak; });
    shown.resize(std::min(shown.size(), kMostTiles));
    std::sort(shown.begin(), shown.end());

    const auto tiles = static_cast<double>(std::max<std::size_t>(shown.size(), 1));
    // Tiles of the fields' shape, some 300 pixels wide, in about a square.
    const double ratio =
        space.size() == 1
            ? 0.6
            : std::clamp(static_cast<double>(space[space.size() - 2]) / static_cast<double>(space.back()), 0.3, 3.0);
    const auto across =
        std::clamp<int>(static_cast<int>(std::ceil(std::sqrt(tiles * ratio))), 1, static_cast<int>(tiles));
    const int down = (static_cast<int>(tiles) + across - 1) / across;
    const int width = 320 * across, height = static_cast<int>(320 * ratio + 20) * down + 40;
    const std::string size = std::to_string(width) + "," + std::to_string(height);
    std::string script = "set terminal " +
                         (picture.ends_with(".png")   ? "pngcairo size " + size + " font 'sans,10'"
                          : picture.ends_with(".svg") ? "svg size " + size + " font 'sans,12'"
                                                      : "pdfcairo size " + number(width / 100.0) + "in," +
                                                            number(height / 100.0) + "in font 'sans,10'") +
                         " noenhanced\nset output " + in_quotes(picture) + "\nset multiplot layout " +
                         std::to_string(down) + "," + std::to_string(across) + " title " +
                         in_quotes(outcome.input + (shown.size() < modes.size()
                                                        ? ", the " + std::to_string(shown.size()) + " strongest of " +
                                                              std::to_string(modes.size()) + " modes"
                                                        : "")) +
                         "\nunset key\nunset colorbox\nset cbrange [-1:1]\nset tics scale 0.5\n"
                         "set palette defined (-1 '#2040a0', 0 '#ffffff', 1 '#b03020')\n";
    if (space.size() == 1)
        script += "set yrange [-1.1:1.1]\nset grid\n";
    else
        script += "set size ratio -1\nset autoscale fix\n";
    if (shown.empty())
        script += "set title 'no modes'\nset xrange [0:1]\nset yrange [0:1]\nplot NaN\n";

    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    const Id file(shown.empty() ? -1 : H5Fopen(outcome.output.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT), H5Fclose);
    if (!shown.empty() && !file)
        throw Error(outcome.output + ": cannot be read, to draw what is in it");
    for (const std::size_t index : shown) {
        const fields::FieldMode& mode = modes[index];
        const View view = view_of(file, index, mode, space);
        std::string data;
        for (std::size_t row = 0; row < view.rows; ++row) {
            for (std::size_t column = 0; column < view.columns; ++column)
                data += number(view.values[row * view.columns + column]) + (space.size() == 1 ? "\n" : " ");
            data += space.size() == 1 ? "" : "\n";
        }
        const Scale hertz = frequency_scale(std::abs(mode.frequency), outcome.unit);
        const std::string title =
            plain_form(shifted(mode.frequency, hertz.shift), 6) + " " + hertz.name +
            (mode.kind == modes::Kind::overdamped ? "" : ", Q " + plain_form(mode.quality, 3)) +
            (space.size() == 3 ? ", plane " + std::to_string(fields::place_of(mode.peakPoint, space)[0]) : "");
        script += "set title " + in_quotes(title) + "\n$data << EOD\n" + data + "EOD\n";
        script += space.size() == 1 ? "plot $data using ($0*" + std::to_string(view.columnStride) +
                                          "):1 with lines lc rgb '#30507a'\n"
                                    : "plot $data matrix using ($1*" + std::to_string(view.columnStride) + "):($2*" +
                                          std::to_string(view.rowStride) + "):3 with image\n";
    }
    return script + "unset multiplot\n";
}

} // namespace tessel::app
