#include "fields/profiles.h"
#include "common/elementary.h"

#include <Eigen/LU>

#include <algorithm>
#include <cmath>

namespace tessel::fields {

namespace {

constexpr double kNegligible = 1e-2; // of a variance
constexpr double kPi = 3.14159265358979323846;

/// sqrt(x^2 + y^2) without overflow, the same on every processor.
double length(double x, double y)
{
    const Extended a = x, b = y;
    return static_cast<double>(std::sqrt(a * a + b * b));
}

double square(double x)
{
    return x * x;
}

/// An angle in (-pi, pi].
double wrapped(double angle)
{
    if (angle > kPi)
        angle -= 2 * kPi;
    if (angle <= -kPi)
        angle += 2 * kPi;
    return angle;
}

} // namespace

ProfileMaker::ProfileMaker(const Basis& basis, const Poles& poles) : basis_(basis), poles_(poles)
{
    const Columns& columns = basis.columns();
    const Matrix inverse = poles.inverse.topRows(columns.modes).transpose().cast<double>(); // rows are components
    for (Index row = 0; row < inverse.rows(); row += kSlab) {
        const std::vector<double> slab = packed(inverse.middleRows(row, std::min<Index>(kSlab, inverse.rows() - row)));
        inverse_.insert(inverse_.end(), slab.begin(), slab.end());
    }
    const auto steps = static_cast<std::ptrdiff_t>(basis.grid().factor);
    const auto span = static_cast<Extended>(basis.grid().factor * basis.grid().sums);
    ExtendedMatrix carried = poles.carried.topRows(columns.modes);
    for (std::size_t j = 0; j < poles.terms.size(); ++j) {
        const Term& term = poles.terms[j];
        const Index at = columns.linear[j], width = columns.widths[j];
        Mode mode;
        mode.covariance.setIdentity();
        mode.covariance.topLeftCorner(width, width) = poles.linear.block(at, at, width, width).cast<double>();
        mode.precision = mode.covariance.inverse();
        // A sum of factor steps has sum_k exp(s k) times the coefficient of a sample, at the sum's first step.
        ExtendedComplex sum = 0, slope = 0;
        for (std::ptrdiff_t k = 0; k < steps; ++k) {
            const ExtendedComplex e = power(term, k);
            sum += e;
            slope += static_cast<Extended>(k) * e;
        }
        const ExtendedComplex inverseSum = std::conj(sum) / (sum.real() * sum.real() + sum.imag() * sum.imag());
        const auto origin = static_cast<std::ptrdiff_t>(basis.origin(j)) * steps;
        const ExtendedComplex scale = product(inverseSum, power(term, -origin)) / static_cast<Extended>(basis.unit());
        mode.scale = {static_cast<double>(scale.real()), static_cast<double>(scale.imag())};
        mode.size = length(mode.scale.real(), mode.scale.imag());
        mode.turn = arc_tangent(mode.scale.imag(), mode.scale.real());
        const Index first = columns.parameters[j], count = term.real ? 1 : 2;
        mode.poleError = std::sqrt(static_cast<double>(poles.covariance.block(first, first, count, count).trace()));
        modes_.push_back(mode);
        // d ln scale / d s, which adds to the coefficient's own answer
        const ExtendedComplex own =
            (product(slope, inverseSum) + ExtendedComplex(static_cast<Extended>(origin))) / span;
        for (Index c = 0; c < width; ++c)
            carried(at + c, at + c) += own.real();
        if (width == 2) {
            carried(at, at + 1) -= own.imag();
            carried(at + 1, at) += own.imag();
        }
    }
    carried_ = carried.cast<double>();
    const auto count = static_cast<Index>(modes_.size());
    strength_.resize(count, count);
    for (Index j = 0; j < count; ++j)
        for (Index l = 0; l < count; ++l) {
            const auto a = static_cast<std::size_t>(j), b = static_cast<std::size_t>(l);
            strength_(j, l) =
                carried_.block(columns.linear[a], columns.linear[b], columns.widths[a], columns.widths[b]).norm() *
                modes_[b].poleError;
        }
    covariance_ = poles.covariance.cast<double>();
}

Matrix ProfileMaker::linear(std::size_t points, const double* values) const
{
    const std::size_t width = basis_.width(), stride = width + 1;
    const auto modes = static_cast<std::size_t>(basis_.columns().modes);
    Matrix out(static_cast<Index>(modes), static_cast<Index>(points));
    std::vector<double> x(kSlab * kTile), y(modes * kTile);
    for (std::size_t begin = 0; begin < points; begin += kTile) {
        const std::size_t count = std::min(kTile, points - begin);
        std::fill(y.begin(), y.end(), 0.0);
        for (std::size_t row = 0; row < width; row += kSlab) {
            const std::size_t rows = std::min(kSlab, width - row);
            std::fill(x.begin(), x.end(), 0.0);
            for (std::size_t p = 0; p < count; ++p)
                for (std::size_t k = 0; k < rows; ++k)
                    x[k * kTile + p] = values[(begin + p) * stride + row + k];
            kernels().product(rows, modes, inverse_.data() + row * modes, x.data(), y.data());
        }
        for (std::size_t p = 0; p < count; ++p)
            for (std::size_t c = 0; c < modes; ++c)
                out(static_cast<Index>(c), static_cast<Index>(begin + p)) = y[c * kTile + p];
    }
    return out;
}

void ProfileMaker::peaks(std::size_t firstPoint, std::size_t points, const double* values,
                         std::vector<Peak>& peaks) const
{
    const Matrix c = linear(points, values);
    const Columns& columns = basis_.columns();
    for (std::size_t j = 0; j < modes_.size(); ++j) {
        const Index at = columns.linear[j], width = columns.widths[j];
        for (std::size_t p = 0; p < points; ++p) {
            const double variance = values[p * (basis_.width() + 1) + basis_.width()];
            if (!(variance > 0))
                continue;
            Eigen::Vector2d own(c(at, static_cast<Index>(p)), 0);
            if (width == 2)
                own[1] = c(at + 1, static_cast<Index>(p));
            const double amplitude = length(own[0], own[1]) * modes_[j].size;
            if (amplitude > peaks[j].amplitude) {
                peaks[j].amplitude = amplitude;
                peaks[j].point = firstPoint + p;
            }
            peaks[j].statistic = std::max(peaks[j].statistic, own.dot(modes_[j].precision * own) / variance);
        }
    }
}

double ProfileMaker::statistic(std::size_t term) const
{
    const Index at = basis_.columns().linear[term], width = basis_.columns().widths[term];
    const Matrix own = poles_.squares.block(at, at, width, width).cast<double>();
    return (modes_[term].precision.topLeftCorner(width, width) * own).trace();
}

Profiles ProfileMaker::profiles(std::size_t firstPoint, std::size_t points, const double* values,
                                const std::vector<std::size_t>& terms) const
{
    const Matrix c = linear(points, values);
    const Columns& columns = basis_.columns();
    Profiles out;
    out.firstPoint = firstPoint;
    out.points = points;
    for (std::vector<double>* each :
         {&out.amplitude, &out.phase, &out.amplitudeError, &out.phaseError, &out.real, &out.imag})
        each->assign(terms.size() * points, 0);
    Matrix turned(2, columns.parameterTotal);
    std::vector<double> sizes(modes_.size());
    for (std::size_t p = 0; p < points; ++p) {
        const double variance = values[p * (basis_.width() + 1) + basis_.width()];
        if (!(variance > 0)) { // a point that is zero
            for (std::size_t i = 0; i < terms.size(); ++i)
                out.phaseError[i * points + p] = kPi;
            continue;
        }
        const auto at = c.col(static_cast<Index>(p));
        const auto value = [&](std::size_t j) {
            const Index first = columns.linear[j];
            return Eigen::Vector2d(at[first], columns.widths[j] == 2 ? at[first + 1] : 0);
        };
        for (std::size_t j = 0; j < modes_.size(); ++j)
            sizes[j] = length(value(j)[0], value(j)[1]);
        for (std::size_t i = 0; i < terms.size(); ++i) {
            const std::size_t j = terms[i];
            const Mode& mode = modes_[j];
            Eigen::Matrix2d spread = variance * mode.covariance;
            double bound = 0; // as if poles erred independently, but for a factor of two
            for (std::size_t l = 0; l < modes_.size(); ++l)
                bound += square(strength_(static_cast<Index>(j), static_cast<Index>(l)) * sizes[l]);
            const Index width = columns.widths[j];
            if (2 * bound > kNegligible * spread.topLeftCorner(width, width).trace()) {
                // the columns of d coefficient / d parameter: -c for a decay, i c for an angle
                turned.setZero();
                for (std::size_t l = 0; l < modes_.size(); ++l) {
                    const Eigen::Vector2d v = value(l);
                    const Index w = columns.widths[l], to = columns.parameters[l];
                    const auto block = carried_.block(columns.linear[j], columns.linear[l], width, w);
                    turned.block(0, to, width, 1) = -block * v.head(w);
                    if (!poles_.terms[l].real)
                        turned.block(0, to + 1, width, 1) = block * Eigen::Vector2d(-v[1], v[0]).head(w);
                }
                spread += turned.lazyProduct(covariance_).eval().lazyProduct(turned.transpose());
            }
            const Eigen::Vector2d v = value(j);
            const double size = sizes[j];
            const Eigen::Vector2d along = size > 0 ? Eigen::Vector2d(v / size) : Eigen::Vector2d(1, 0);
            const Eigen::Vector2d across(-along[1], along[0]);
            const std::size_t to = i * points + p;
            out.amplitude[to] = size * mode.size;
            out.amplitudeError[to] =
                length(std::sqrt(along.dot(spread * along)) * mode.size, 0x1p-54 * out.amplitude[to]);
            if (width == 1) { // in phase or against it
                out.phase[to] = v[0] * mode.scale.real() < 0 ? kPi : 0;
            } else {
                out.phase[to] = wrapped(arc_tangent(v[1], v[0]) + mode.turn);
                out.phaseError[to] =
                    size > 0 ? std::min(kPi, length(std::sqrt(across.dot(spread * across)) / size, 0x1p-53 * kPi))
                             : kPi;
            }
            const SineCosine turn = sine_cosine(out.phase[to]);
            out.real[to] = out.amplitude[to] * turn.cosine;
            out.imag[to] = out.amplitude[to] * turn.sine;
        }
    }
    return out;
}

} // namespace tessel::fields
