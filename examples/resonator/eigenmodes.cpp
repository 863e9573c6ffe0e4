#include "examples/resonator/eigenmodes.h"

#include <Eigen/SparseLU>

#include <cmath>
#include <numbers>
#include <stdexcept>
#include <string>

namespace resonator {

namespace {

using Vector = Eigen::VectorXd;
using ComplexVector = Eigen::VectorXcd;
using Sparse = Eigen::SparseMatrix<double>;
using ComplexSparse = Eigen::SparseMatrix<Complex>;

/// S times the differences of Ez that drive the magnetic field: a row for each Hx, then one for each Hy, a column for
/// each Ez inside the walls.
Sparse differences(const Cavity& cavity)
{
    const Index nx = cavity.cells_x, ny = cavity.cells_y;
    std::vector<Eigen::Triplet<double>> entries;
    Index row = 0;
    const auto add = [&](Index i, Index j, double sign) {
        if (i > 0 && i < nx && j > 0 && j < ny)
            entries.emplace_back(static_cast<int>(row), static_cast<int>((i - 1) * (ny - 1) + j - 1),
                                 sign * cavity.courant);
    };
    for (Index i = 1; i < nx; ++i)
        for (Index j = 0; j < ny; ++j, ++row)
            add(i, j + 1, -1.0), add(i, j, 1.0);
    for (Index i = 0; i < nx; ++i)
        for (Index j = 1; j < ny; ++j, ++row)
            add(i + 1, j, 1.0), add(i, j, -1.0);
    Sparse d(row, (nx - 1) * (ny - 1));
    d.setFromTriplets(entries.begin(), entries.end());
    return d;
}

/// One time step of the freely ringing cavity, (h, e) -> (h', e'), with the magnetic field in units in which it is as
/// large as the electric one (times the wave impedance) and D the differences:
///
///     h' = h + D e,    (1 + a) e' = (1 - a) e - D^T h'.
class Step
{
public:
    explicit Step(const Cavity& cavity) : d_(differences(cavity)), loss_(cavity.loss()) {}

    Index order() const { return d_.rows() + d_.cols(); }
    Index electric() const { return d_.cols(); }

    ComplexVector operator()(const ComplexVector& x) const
    {
        ComplexVector next(order());
        next.head(d_.rows()) = x.head(d_.rows()) + d_ * x.tail(d_.cols());
        next.tail(d_.cols()) =
            ((1.0 - loss_) * x.tail(d_.cols()) - d_.transpose() * next.head(d_.rows())) / (1.0 + loss_);
        return next;
    }

    /// (P - sigma)^-1. With the magnetic field eliminated there remains a matrix of the order of the electric field,
    ///
    ///     ((1 - sigma) (1 - a - sigma (1 + a)) + sigma D^T D) e = (1 - sigma) (1 + a) f + D^T g,
    ///     (1 - sigma) h = g - D e,
    ///
    /// which has five entries in a row, where P itself fills up when it is factored.
    class Inverse
    {
    public:
        Inverse(const Step& step, Complex sigma) : step_(step), sigma_(sigma)
        {
            const double a = step.loss_;
            const Sparse laplacian = step.d_.transpose() * step.d_;
            ComplexSparse unit(step.electric(), step.electric());
            unit.setIdentity();
            lu_.compute((1.0 - sigma) * (1.0 - a - sigma * (1.0 + a)) * unit + sigma * laplacian.cast<Complex>());
            if (lu_.info() != Eigen::Success)
                throw std::runtime_error("the shifted update operator cannot be factored: " + lu_.lastErrorMessage());
        }

        ComplexVector operator()(const Vector& r) const
        {
            const auto g = r.head(step_.d_.rows()), f = r.tail(step_.d_.cols());
            const ComplexVector right = (1.0 - sigma_) * (1.0 + step_.loss_) * f + step_.d_.transpose() * g;
            ComplexVector x(step_.order());
            x.tail(step_.d_.cols()) = lu_.solve(right);
            x.head(step_.d_.rows()) = (g - step_.d_ * x.tail(step_.d_.cols())) / (1.0 - sigma_);
            return x;
        }

    private:
        const Step& step_;
        Complex sigma_;
        Eigen::SparseLU<ComplexSparse> lu_;
    };

private:
    Sparse d_;
    double loss_;
};

void check(const char* routine, std::int32_t info)
{
    if (info != 0)
        throw std::runtime_error(std::string(routine) + " found no modes: INFO = " + std::to_string(info));
}

} // namespace

Eigensolve eigenmodes(FDTDCalcAPI& api, const Cavity& cavity, double lowest, double highest, Index count,
                      const std::function<void(Index)>& on_solve)
{
    // For a real problem ARPACK's operator is the real part of the shifted inverse, which sees the shift and its
    // conjugate: a mode at f stands out as f / |f^2 - shift^2|, at both ends of the band alike for their geometric
    // mean.
    const double dt = cavity.time_step();
    const Complex sigma = std::polar(1.0, 2.0 * std::numbers::pi * std::sqrt(lowest * highest) * dt);
    const Step step(cavity);
    const Step::Inverse inverse(step, sigma);

    // Every mode is a complex pair. Four times as many Arnoldi vectors as modes are twice as many as values.
    const auto n = static_cast<std::int32_t>(step.order());
    const auto values = static_cast<std::int32_t>(2 * count), width = 2 * values + 1;
    const std::int32_t work_size = 3 * width * width + 6 * width, vectors_too = 1;
    Eigen::MatrixXd v(n, width);
    Vector shift_work(3 * n), work(work_size), extra(3 * width), real(values + 1), imaginary(values + 1);
    std::vector<std::int32_t> select(static_cast<std::size_t>(width));
    const char standard = 'I', eigenvectors = 'A';
    const double shift_real = sigma.real(), shift_imaginary = sigma.imag();
    double tolerance = 0.0; // the machine precision

    // A given start vector makes the result reproducible. This one is a disordered electric field: all static magnetic
    // fields are eigenvectors for z = 1, and it has no component along them.
    Vector start = Vector::Zero(n);
    for (Index k = 0; k < step.electric(); ++k)
        start[n - 1 - k] = 1.0 + static_cast<double>(k * 7919 % 1009) / 1009.0;

    std::int32_t parameters[11] = {1, 0, 300, 1, 0, 0, 3}; // exact shifts, 300 restarts at most, mode 3
    std::int32_t places[14] = {}, ido = 0, info = 1;
    Eigensolve solve{n, 0, {}};
    while (ido != 99) {
        api.dnaupd(&ido, &standard, 1, &n, "LM", 2, &values, &tolerance, start.data(), &width, v.data(), &n, parameters,
                   places, shift_work.data(), work.data(), &work_size, &info);
        if (ido == -1 || ido == 1) {
            shift_work.segment(places[1] - 1, n) = inverse(shift_work.segment(places[0] - 1, n)).real();
            on_solve(++solve.solves);
        }
    }
    check("DNAUPD", info);
    api.dneupd(&vectors_too, &eigenvectors, 1, select.data(), real.data(), imaginary.data(), v.data(), &n, &shift_real,
               &shift_imaginary, extra.data(), &standard, 1, &n, "LM", 2, &values, &tolerance, start.data(), &width,
               v.data(), &n, parameters, places, shift_work.data(), work.data(), &work_size, &info);
    check("DNEUPD", info);

    // With a complex shift the values belong to Re((P - sigma)^-1), but the vectors are those of P.
    for (Index k = 0; k < parameters[4]; ++k)
        if (imaginary[k] > 0.0) {
            ComplexVector x(n);
            x.real() = v.col(k);
            x.imag() = v.col(k + 1);
            x.normalize();
            const ComplexVector next = step(x);
            const Complex z = x.dot(next), s = std::log(z) / dt;
            solve.modes.push_back({{s.real(), std::abs(s.imag())}, (next - z * x).norm()});
        }
    return solve;
}

} // namespace resonator
