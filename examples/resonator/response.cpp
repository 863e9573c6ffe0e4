#include "examples/resonator/response.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace resonator {

namespace {

constexpr Index kCoarse = 600;   ///< intervals over the band
constexpr Index kFine = 16;      ///< points on each side of a line
constexpr double kMargin = 0.03; ///< on each side of the lines, relative to the highest

} // namespace

/// With the H of the samples 0 .. N-2 decomposed as U diag(w) V and the H' of the samples 1 .. N-1:
/// A = w^-1/2 U^H H' V^H w^-1/2, x(0) = w^1/2 V e1, c = e1^T U w^1/2.
StateSpace realise(const Hankel& h, const std::vector<Complex>& samples)
{
    const Index r = h.rank;
    Eigen::MatrixXcd next(h.left.rows(), h.right.cols());
    for (Index j = 0; j < next.cols(); ++j)
        for (Index i = 0; i < next.rows(); ++i)
            next(i, j) = samples[static_cast<std::size_t>(i + j + 1)];
    const auto left = h.left.leftCols(r);
    const auto right = h.right.topRows(r);
    const Eigen::VectorXd root = h.values.head(r).cwiseSqrt(), inverse = root.cwiseInverse();
    return {inverse.asDiagonal() * (left.adjoint() * next * right.adjoint()) * inverse.asDiagonal(),
            root.asDiagonal() * right.col(0), left.row(0) * root.asDiagonal()};
}

Complex spectrum_at(FDTDCalcAPI& api, const StateSpace& system, const Record& record, const Window& window,
                    double frequency)
{
    const double spacing = record.spacing * static_cast<double>(window.stride);
    const double turn = 2.0 * std::numbers::pi * frequency;
    const Complex back = std::polar(1.0, -turn * spacing);

    const auto order = static_cast<std::int32_t>(system.a.rows()), one = 1;
    Eigen::MatrixXcd matrix = Eigen::MatrixXcd::Identity(order, order) - back * system.a;
    Eigen::VectorXcd x = system.start;
    Eigen::VectorXi pivots(order);
    std::int32_t info = 0;
    if (order > 0)
        api.zgesv(&order, &one, matrix.data(), &order, pivots.data(), x.data(), &order, &info);
    if (info != 0)
        return std::numeric_limits<double>::infinity();

    Complex sum = system.c * x;
    Index k = window.first;
    while (k >= window.stride) { // what came before the window, by Horner's rule
        k -= window.stride;
        sum = sum * back + record.at(k);
    }
    return spacing * sum * std::polar(1.0, -turn * record.time(k));
}

Line line_of(const Complex& pole)
{
    return {pole.imag() / (2.0 * std::numbers::pi), std::max(-pole.real(), 0.0) / std::numbers::pi};
}

std::vector<double> choose_frequencies(const std::vector<Line>& lines, const Record& record, const Window& window)
{
    const double nyquist = 0.5 / (record.spacing * static_cast<double>(window.stride));
    const double bottom = record.is_real() ? 0.0 : -nyquist;
    double low = nyquist, high = bottom, margin = 0.0;
    for (const Line& line : lines) {
        low = std::min(low, line.frequency);
        high = std::max(high, line.frequency);
        margin = std::max({margin, kMargin * std::abs(line.frequency), 5.0 * line.width});
    }
    if (lines.empty())
        std::swap(low, high);
    low = std::max(low - margin, bottom);
    high = std::min(high + margin, nyquist);

    std::vector<double> frequencies;
    for (Index k = 0; k <= kCoarse; ++k)
        frequencies.push_back(low + (high - low) * static_cast<double>(k) / static_cast<double>(kCoarse));
    for (const Line& line : lines)
        for (Index k = -kFine; k <= kFine; ++k)
            frequencies.push_back(line.frequency + 0.5 * line.width * std::sinh(0.25 * static_cast<double>(k)));
    std::sort(frequencies.begin(), frequencies.end());
    frequencies.erase(std::unique(frequencies.begin(), frequencies.end()), frequencies.end());
    std::erase_if(frequencies, [&](double f) { return f < low || f > high; });
    return frequencies;
}

std::vector<double> peaks(const std::vector<double>& frequencies, const std::vector<Complex>& values)
{
    std::vector<double> result;
    for (std::size_t k = 1; k + 1 < values.size(); ++k)
        if (std::abs(values[k]) > std::abs(values[k - 1]) && std::abs(values[k]) > std::abs(values[k + 1]))
            result.push_back(frequencies[k]);
    return result;
}

double Response::error() const
{
    double distance = 0.0, highest = 0.0;
    for (std::size_t k = 0; k < exact.size(); ++k) {
        distance = std::max(distance, std::abs(values[k] - exact[k]));
        highest = std::max(highest, std::abs(exact[k]));
    }
    return distance / highest;
}

bool stands_out(const Line& line, const std::vector<double>& peaks)
{
    return std::any_of(peaks.begin(), peaks.end(),
                       [&](double peak) { return std::abs(peak - line.frequency) <= 0.5 * line.width; });
}

} // namespace resonator
