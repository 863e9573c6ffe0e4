#include "examples/resonator/fit.h"

#include "examples/resonator/error.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace resonator {

namespace {

using std::numbers::pi;

/// Lines below this part of the highest are taken for the skirt of the window function (-92 dB) or for noise.
constexpr double kSpectralFloor = 1e-4;

/// The lowest number of samples per period. Lines are wider than their frequency, so that there are rather more.
constexpr double kSamplesPerPeriod = 2.5;

/// A mode that grows by less than this part over the fitted samples is taken for one without loss.
constexpr double kGrowthTolerance = 1e-6;

/// In-place discrete Fourier transform of a power-of-two number of values (Cooley, Tukey 1965).
void transform(std::vector<Complex>& x)
{
    const std::size_t n = x.size();
    for (std::size_t i = 1, j = 0; i < n; ++i) { // order by reversed bits
        std::size_t bit = n >> 1;
        for (; j & bit; bit >>= 1)
            j ^= bit;
        j ^= bit;
        if (i < j)
            std::swap(x[i], x[j]);
    }
    for (std::size_t length = 2; length <= n; length *= 2)
        for (std::size_t k = 0; k < length / 2; ++k) {
            const Complex root = std::polar(1.0, -2.0 * pi * static_cast<double>(k) / static_cast<double>(length));
            for (std::size_t block = k; block < n; block += length) {
                const Complex low = x[block], high = root * x[block + length / 2];
                x[block] = low + high;
                x[block + length / 2] = low - high;
            }
        }
}

/// The highest frequency whose line stands above the floor, in `count` samples from `first` on.
double highest_line(const Record& record, Index first, Index count)
{
    std::size_t padded = 2;
    while (padded < static_cast<std::size_t>(count))
        padded *= 2;
    std::vector<Complex> x(padded);
    for (Index k = 0; k < count; ++k) {
        // The four-term Blackman-Harris window (F. J. Harris, Proc. IEEE 66 (1978) 51, table 1: -92 dB)
        const double u = 2.0 * pi * static_cast<double>(k) / static_cast<double>(count);
        const double window =
            0.35875 - 0.48829 * std::cos(u) + 0.14128 * std::cos(2.0 * u) - 0.01168 * std::cos(3.0 * u);
        x[static_cast<std::size_t>(k)] = window * record.at(first + k);
    }
    transform(x);

    double peak = 0.0;
    for (const Complex& line : x)
        peak = std::max(peak, std::abs(line));
    std::size_t highest = 0; // element k stands for frequency k and, in the upper half, for k - size
    for (std::size_t k = 0; k < padded; ++k)
        if (std::abs(x[k]) > kSpectralFloor * peak)
            highest = std::max(highest, std::min(k, padded - k));
    return static_cast<double>(highest) / (static_cast<double>(padded) * record.spacing);
}

/// sqrt(mean |c exp(s k DT)|^2) over k = 0..N-1, the sum in closed form.
double root_mean_square(const Complex& pole, const Complex& residue, double spacing, Index count)
{
    const double decay = 2.0 * pole.real() * spacing, n = static_cast<double>(count);
    const double sum = decay == 0.0 ? n : std::expm1(n * decay) / std::expm1(decay);
    return std::abs(residue) * std::sqrt(sum / n);
}

} // namespace

double highest_frequency(const Record& record, Index first)
{
    // The whole shows slow modes best; a mode that is gone after the first part of the record shows there alone.
    const Index n = record.size() - first;
    return std::max(highest_line(record, first, n), highest_line(record, first, (n + 3) / 4));
}

Index choose_stride(const Record& record, Index first)
{
    const double frequency = highest_frequency(record, first);
    const double stride = 1.0 / (kSamplesPerPeriod * frequency * record.spacing);
    const double most = static_cast<double>(record.size() - first) / 64.0; // whatever decays without oscillation
    return std::max<Index>(1, static_cast<Index>(std::min(stride, most)));
}

std::vector<Index> choose_orders(Index samples)
{
    const Index low = std::max<Index>(samples / 4, 1), high = std::max<Index>(samples / 3, 1);
    std::vector<Index> orders;
    for (Index k = 0; k <= 4; ++k)
        if (const Index order = low + (high - low) * k / 4; orders.empty() || order > orders.back())
            orders.push_back(order);
    return orders;
}

Fit fit_samples(FDTDCalcAPI& api, const std::vector<Complex>& samples, double spacing, Index order)
{
    const auto n = static_cast<int32_t>(samples.size()), m = static_cast<int32_t>(order);
    Fit fit;
    fit.order = order;
    fit.poles.resize(static_cast<std::size_t>(order));
    fit.residues.resize(static_cast<std::size_t>(order));
    int32_t flag = 0;
    std::string message(80, ' ');
    api.leastsqPronySvd(&n, &n, samples.data(), &spacing, &m, &m, fit.residues.data(), fit.poles.data(), &fit.err_l2,
                        &fit.err_rms, &fit.err_peak, &fit.err_rms_mean, &fit.err_peak_mean, &flag, message.data(),
                        static_cast<int32_t>(message.size()));
    if (flag != 0)
        fit.failure = message.substr(0, message.find_last_not_of(' ') + 1);
    return fit;
}

std::vector<Fit> fit_orders(FDTDCalcAPI& api, const Record& record, const Window& window,
                            const std::vector<Index>& orders, const std::function<void(Index)>& on_fit)
{
    const std::vector<Complex> samples = samples_of(record, window);
    std::vector<Fit> fits;
    for (const Index order : orders) {
        on_fit(order);
        fits.push_back(fit_samples(api, samples, record.spacing * static_cast<double>(window.stride), order));
    }
    return fits;
}

const Fit& best_fit(const std::vector<Fit>& fits)
{
    const Fit* best = nullptr;
    double smallest = std::numeric_limits<double>::infinity();
    for (const Fit& fit : fits) {
        const auto measures = fit.measures();
        const bool usable = fit.failure.empty() && std::all_of(measures.begin(), measures.end(),
                                                               [](double value) { return std::isfinite(value); });
        if (!usable)
            continue;
        if (const double largest = *std::max_element(measures.begin(), measures.end()); largest < smallest) {
            smallest = largest;
            best = &fit;
        }
    }
    if (!best)
        throw Error(fits.empty() || fits.back().failure.empty() ? "no fit has finite measures" : fits.back().failure);
    return *best;
}

double frequency_of(const Complex& pole)
{
    return pole.imag() / (2.0 * pi);
}

double quality_of(const Complex& pole)
{
    return pole.real() < 0.0 ? std::abs(pole.imag()) / (-2.0 * pole.real()) : std::numeric_limits<double>::infinity();
}

double degrees(const Complex& residue)
{
    return std::arg(residue) * 180.0 / pi;
}

std::vector<Mode> classify(const Fit& fit, const Record& record, const Window& window, double threshold)
{
    const double spacing = record.spacing * static_cast<double>(window.stride);
    const double span = spacing * static_cast<double>(window.count - 1);
    double largest_sample = 0.0;
    for (Index k = 0; k < window.count; ++k)
        largest_sample = std::max(largest_sample, std::abs(record.at(window.first + k * window.stride)));
    const double unexplained = fit.err_rms * largest_sample;

    std::vector<Mode> modes;
    double largest = 0.0;
    for (std::size_t j = 0; j < fit.poles.size(); ++j) {
        const Complex pole = fit.poles[j], residue = fit.residues[j];
        const Kind kind = pole.real() * span > kGrowthTolerance ? Kind::growing : Kind::kept;
        modes.push_back({pole, residue, root_mean_square(pole, residue, spacing, window.count), kind});
        if (kind == Kind::kept)
            largest = std::max(largest, modes.back().share);
    }
    const double floor = std::max(threshold * largest, unexplained);
    const bool mirrored = record.is_real();
    for (Mode& mode : modes)
        if (mode.kind == Kind::kept) {
            if (!(mode.share >= floor))
                mode.kind = Kind::negligible;
            else if (mirrored && mode.pole.imag() * span < -kGrowthTolerance)
                mode.kind = Kind::conjugate;
        }
    std::stable_sort(modes.begin(), modes.end(),
                     [](const Mode& a, const Mode& b) { return a.pole.imag() < b.pole.imag(); });
    return modes;
}

Complex model_at(const Fit& fit, double time_since_first)
{
    Complex sum = 0.0;
    for (std::size_t j = 0; j < fit.poles.size(); ++j)
        if (std::isfinite(fit.poles[j].real()))
            sum += fit.residues[j] * std::exp(fit.poles[j] * time_since_first);
        else if (time_since_first == 0.0) // a zero at the origin is gone after the first sample
            sum += fit.residues[j];
    return sum;
}

} // namespace resonator
