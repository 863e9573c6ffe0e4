#include "modes/errors.h"
#include "modes/decimation.h"
#include "modes/refine.h"

#include "common/elementary.h"

#include <Eigen/Cholesky>

#include <cmath>

namespace tessel::modes {

namespace {
constexpr double kHalfUnit = 0x1p-53;
constexpr Extended kPi = 3.14159265358979323846264338327950288L;
} // namespace

ExtendedMatrix inverse_normal(const ExtendedMatrix& normal)
{
    const auto n = normal.rows();
    if (n == 0) // no term: Eigen has no minimum of nothing
        return {};
    ExtendedVector scale(n);
    for (Eigen::Index i = 0; i < n; ++i)
        scale[i] = normal(i, i) > 0 ? 1 / std::sqrt(normal(i, i)) : 0;
    ExtendedMatrix m = scale.asDiagonal() * normal * scale.asDiagonal();
    for (Eigen::Index i = 0; i < n; ++i)
        m(i, i) += scale[i] > 0 ? 1e-17L : 1;
    // As in the refinement: double precision serves unless terms nearly depend on each other.
    const Eigen::LLT<Eigen::MatrixXd> fast(m.cast<double>());
    if (fast.info() == Eigen::Success && fast.matrixLLT().diagonal().minCoeff() > kWellConditioned) {
        const Eigen::MatrixXd inverse = fast.solve(Eigen::MatrixXd::Identity(n, n));
        return scale.asDiagonal() * inverse.cast<Extended>() * scale.asDiagonal();
    }
    const Eigen::LDLT<ExtendedMatrix> factor(m);
    const ExtendedMatrix identity = ExtendedMatrix::Identity(n, n);
    const ExtendedMatrix inverse = factor.solve(identity);
    return scale.asDiagonal() * inverse * scale.asDiagonal();
}

Mode mode_of(const Term& term, const ExtendedMatrix& covariance, std::size_t factor, const Whitener& whitener,
             double spacing, double scale)
{
    const Extended step = static_cast<Extended>(spacing) * static_cast<Extended>(factor);
    const ExtendedComplex s(-term.decay, term.angle);
    const ExtendedComplex mean = block_mean(s, factor) * whitener.response(s);
    const ExtendedComplex slope = block_mean_slope(s, factor) + whitener.slope(s);
    const ExtendedComplex c(term.c.real(), term.c.imag());
    const auto origin = static_cast<Extended>(term.origin);
    const ExtendedComplex c0 = c * power(term, -origin) / mean;
    Mode mode;
    mode.frequency = static_cast<double>(term.angle / (2 * kPi * step));
    mode.decay = static_cast<double>(term.decay / step);
    mode.amplitude = static_cast<double>(std::abs(c0));
    mode.phase = arc_tangent(static_cast<double>(c0.imag()), static_cast<double>(c0.real()));
    mode.quality = static_cast<double>(std::abs(term.angle) / (2 * term.decay));
    // parameters: real and imaginary part of c, decay, angle; rows: frequency, decay, ln amplitude, phase
    const bool real = term.kind != Term::Kind::oscillating;
    const int count = real ? 2 : 4;
    ExtendedMatrix map = ExtendedMatrix::Zero(4, count);
    const ExtendedComplex dpole = ExtendedComplex(origin, 0) + slope; // d ln c0 / d decay
    if (real) {
        map(1, 1) = 1 / step;
        map(2, 0) = 1 / c.real();
        map(2, 1) = dpole.real();
    } else {
        const ExtendedComplex unit = ExtendedComplex(1) / c;
        const ExtendedComplex columns[4] = {unit, ExtendedComplex(0, 1) * unit, dpole, ExtendedComplex(0, -1) * dpole};
        map(0, 3) = 1 / (2 * kPi * step);
        map(1, 2) = 1 / step;
        for (int k = 0; k < 4; ++k) {
            map(2, k) = columns[k].real();
            map(3, k) = columns[k].imag();
        }
    }
    const ExtendedMatrix v = map * covariance * map.transpose();
    const auto error = [&](int k) {
        return static_cast<double>(std::sqrt(std::max<Extended>(0, v(k, k)) * static_cast<Extended>(scale)));
    };
    mode.frequencyError = error(0);
    mode.decayError = error(1);
    mode.amplitudeError = mode.amplitude * error(2);
    mode.phaseError = error(3);
    const double relativeF = mode.frequency != 0 ? mode.frequencyError / mode.frequency : 0;
    const double relativeG = mode.decayError / mode.decay;
    mode.qualityError = std::abs(mode.quality) * std::hypot(relativeF, relativeG);
    // what a double holds of each value
    mode.frequencyError = std::hypot(mode.frequencyError, kHalfUnit * mode.frequency);
    mode.decayError = std::hypot(mode.decayError, kHalfUnit * mode.decay);
    mode.amplitudeError = std::hypot(mode.amplitudeError, kHalfUnit * mode.amplitude);
    if (!real)
        mode.phaseError = std::hypot(mode.phaseError, kHalfUnit * 3.14);
    return mode;
}

std::vector<Mode> modes_of(const Series& series, const Terms& terms, std::size_t factor, const Whitener& whitener,
                           double spacing, const std::vector<double>& scale)
{
    std::vector<Mode> out;
    if (terms.empty())
        return out;
    const ExtendedMatrix covariance = inverse_normal(Products(series, terms, series.size()).normal(terms));
    const Layout layout(terms);
    for (std::size_t j = 0; j < terms.size(); ++j) {
        const Term& term = terms[j];
        const bool real = term.kind != Term::Kind::oscillating;
        const int count = real ? 2 : 4;
        int at[4] = {layout.linear[j], layout.linear[j] + 1, layout.pole[j], layout.pole[j] + 1};
        if (real)
            at[1] = layout.pole[j];
        ExtendedMatrix block(count, count);
        for (int a = 0; a < count; ++a)
            for (int b = 0; b < count; ++b)
                block(a, b) = covariance(at[a], at[b]);
        out.push_back(mode_of(term, block, factor, whitener, spacing, scale[j]));
    }
    return out;
}

} // namespace tessel::modes
