#include "examples/resonator/response.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>

namespace resonator {

namespace {

using std::numbers::pi;

constexpr Index kCoarse = 600;   ///< intervals over the band
constexpr Index kFine = 16;      ///< points on each side of a line
constexpr double kMargin = 0.03; ///< on each side of the lines, relative to the highest

/// The free ringing as a linear system, x(k+1) = A x(k), sample(k) = c x(k).
struct StateSpace
{
    Eigen::MatrixXcd a;
    Eigen::VectorXcd start; ///< x(0)
    Eigen::RowVectorXcd c;
};

/// With the H of the samples 0 .. N-2 decomposed as U diag(w) V and the H' of the samples 1 .. N-1:
/// A = w^-1/2 U^T H' V^T w^-1/2, x(0) = w^1/2 V e1, c = e1^T U w^1/2.
StateSpace realise(const Hankel& h, const std::vector<double>& samples)
{
    Eigen::MatrixXd next(h.left.rows(), h.right.cols());
    for (Index j = 0; j < next.cols(); ++j)
        for (Index i = 0; i < next.rows(); ++i)
            next(i, j) = samples[static_cast<std::size_t>(i + j + 1)];
    const auto left = h.left.leftCols(h.rank);
    const auto right = h.right.topRows(h.rank);
    const Eigen::VectorXd root = h.values.head(h.rank).cwiseSqrt(), inverse = root.cwiseInverse();
    const Eigen::MatrixXd a =
        inverse.asDiagonal() * (left.transpose() * next * right.transpose()) * inverse.asDiagonal();
    const Eigen::VectorXd start = root.asDiagonal() * right.col(0);
    const Eigen::RowVectorXd c = left.row(0) * root.asDiagonal();
    return {a.cast<Complex>(), start.cast<Complex>(), c.cast<Complex>()};
}

/// spacing sum_k sample(k) exp(-2 pi i f t(k)) over the samples of the window, those a whole number of strides before
/// it, and all that the system predicts.
Complex spectrum_at(FDTDCalcAPI& api, const StateSpace& system, const Record& record, const Window& window,
                    double frequency)
{
    const double spacing = record.spacing * static_cast<double>(window.stride);
    const double turn = 2.0 * pi * frequency;
    const Complex back = std::polar(1.0, -turn * spacing);

    const auto order = static_cast<std::int32_t>(system.a.rows()), one = 1;
    Eigen::MatrixXcd matrix = Eigen::MatrixXcd::Identity(order, order) - back * system.a;
    Eigen::VectorXcd x = system.start;
    Eigen::VectorXi pivots(order);
    std::int32_t info = 0;
    api.zgesv(&order, &one, matrix.data(), &order, pivots.data(), x.data(), &order, &info);
    if (info != 0)
        throw std::runtime_error("no driven response: ZGESV: INFO = " + std::to_string(info));

    Complex sum = system.c * x;
    Index k = window.first;
    while (k >= window.stride) { // the samples before the window, by Horner's rule
        k -= window.stride;
        sum = sum * back + record.at(k);
    }
    return spacing * sum * std::polar(1.0, -turn * record.time(k));
}

/// Evenly over a band that holds the modes, and closely around each.
std::vector<double> choose_frequencies(const std::vector<tessel::modes::Mode>& modes, double nyquist)
{
    double low = nyquist, high = 0.0, margin = 0.0;
    for (const tessel::modes::Mode& mode : modes) {
        low = std::min(low, mode.frequency);
        high = std::max(high, mode.frequency);
        margin = std::max({margin, kMargin * mode.frequency, 5.0 * mode.decay / pi});
    }
    low = std::max(low - margin, 0.0);
    high = std::min(high + margin, nyquist);

    std::vector<double> frequencies;
    for (Index k = 0; k <= kCoarse; ++k)
        frequencies.push_back(low + (high - low) * static_cast<double>(k) / static_cast<double>(kCoarse));
    for (const tessel::modes::Mode& mode : modes)
        for (Index k = -kFine; k <= kFine; ++k)
            frequencies.push_back(mode.frequency + 0.5 * mode.decay / pi * std::sinh(0.25 * static_cast<double>(k)));
    std::sort(frequencies.begin(), frequencies.end());
    frequencies.erase(std::unique(frequencies.begin(), frequencies.end()), frequencies.end());
    std::erase_if(frequencies, [&](double f) { return f < low || f > high; });
    return frequencies;
}

} // namespace

double Response::error() const
{
    double distance = 0.0, highest = 0.0;
    for (std::size_t k = 0; k < exact.size(); ++k) {
        distance = std::max(distance, std::abs(values[k] - exact[k]));
        highest = std::max(highest, std::abs(exact[k]));
    }
    return distance / highest;
}

bool Response::has_peak(double frequency, double width) const
{
    for (std::size_t k = 1; k + 1 < values.size(); ++k)
        if (std::abs(values[k]) > std::abs(values[k - 1]) && std::abs(values[k]) > std::abs(values[k + 1]) &&
            std::abs(frequencies[k] - frequency) <= 0.5 * width)
            return true;
    return false;
}

Response driven_response(FDTDCalcAPI& api, const Cavity& cavity, const Record& record, const Window& window,
                         const Hankel& hankel, const std::vector<tessel::modes::Mode>& modes)
{
    const StateSpace system = realise(hankel, samples_of(record, window));
    Response response;
    response.frequencies = choose_frequencies(modes, 0.5 / (record.spacing * static_cast<double>(window.stride)));
    for (const double frequency : response.frequencies)
        response.values.push_back(spectrum_at(api, system, record, window, frequency) /
                                  cavity.current_spectrum(frequency));
    response.exact = exact_response(cavity, response.frequencies);
    return response;
}

} // namespace resonator
