#include "fields/poles.h"

#include <Eigen/Cholesky>
#include <Eigen/QR>

#include <algorithm>
#include <cmath>

namespace tessel::fields {

namespace {

constexpr int kMostSteps = 20;
constexpr Extended kSmall = 1e-2L;   // standard errors: a step below it is the last
constexpr Extended kMostTurn = 0.5L; // change of a parameter over the record in one step
constexpr double kLostShare = 2e-3;  // of what the records know of a pole, outside of the basis
constexpr double kLostChi = 1e-2;    // of chi^2 per degree of freedom

/// The factor of c in the derivative with respect to a parameter: -1 for the decay, i for the angle.
ExtendedMatrix factor_of(int parameter, Index width)
{
    ExtendedMatrix f = ExtendedMatrix::Zero(width, width);
    if (parameter == 0) {
        f.diagonal().setConstant(-1);
    } else {
        f(0, 1) = -1;
        f(1, 0) = 1;
    }
    return f;
}

struct Parameter
{
    std::size_t term;
    ExtendedMatrix factor;
};

std::vector<Parameter> parameters_of(const Basis& basis)
{
    std::vector<Parameter> out;
    for (std::size_t j = 0; j < basis.terms().size(); ++j)
        for (int p = 0; p < (basis.terms()[j].real ? 1 : 2); ++p)
            out.push_back({j, factor_of(p, basis.columns().widths[j])});
    return out;
}

/// chi^2 at given poles, and its normal equations.
struct Normal
{
    Normal(const Basis& basis, const Sums& sums, const Terms& terms, Poles& out)
    {
        const Columns& columns = basis.columns();
        const Index width = columns.total, linears = columns.linears, modes = columns.modes;
        const ExtendedMatrix all = basis.projected(terms);
        const ExtendedMatrix a = all.leftCols(linears), b = all.rightCols(modes);
        const Eigen::HouseholderQR<ExtendedMatrix> qr(a);
        const ExtendedMatrix q = qr.householderQ() * ExtendedMatrix::Identity(width, width);
        const ExtendedMatrix beside = q.rightCols(width - linears);
        const auto r = qr.matrixQR().topRows(linears).triangularView<Eigen::Upper>();
        out.inverse = r.solve(ExtendedMatrix(q.leftCols(linears).transpose()));
        const ExtendedMatrix ri = r.solve(ExtendedMatrix::Identity(linears, linears));
        out.linear = ri * ri.transpose();
        out.carried = out.inverse * b;
        const ExtendedMatrix sy = sums.y * out.inverse.transpose();
        out.squares = out.inverse * sy;
        const ExtendedMatrix left = beside.transpose() * b; // of the poles' columns, beside those linear
        const ExtendedMatrix schur = left.transpose() * left;
        norms = schur.diagonal();
        const ExtendedMatrix rest = beside.transpose() * sums.y;
        const ExtendedMatrix v = left.transpose() * (beside.transpose() * sy);
        chi = rest.cwiseProduct(beside.transpose()).sum();
        const std::vector<Parameter> parameters = parameters_of(basis);
        const auto n = static_cast<Index>(parameters.size());
        normal.resize(n, n);
        gradient.resize(n);
        for (Index i = 0; i < n; ++i) {
            const Parameter& one = parameters[static_cast<std::size_t>(i)];
            const Index ci = columns.linear[one.term], wi = columns.widths[one.term];
            gradient[i] = (one.factor.transpose() * v.block(ci, ci, wi, wi)).trace();
            for (Index k = 0; k < n; ++k) {
                const Parameter& two = parameters[static_cast<std::size_t>(k)];
                const Index ck = columns.linear[two.term], wk = columns.widths[two.term];
                normal(i, k) = (one.factor.transpose() * schur.block(ci, ck, wi, wk) * two.factor *
                                out.squares.block(ck, ci, wk, wi))
                                   .trace();
            }
        }
    }

    ExtendedMatrix normal;
    ExtendedVector gradient, norms;
    Extended chi = 0;
};

Terms moved(const Basis& basis, const Terms& terms, const ExtendedVector& step)
{
    Terms out = terms;
    const Extended span = static_cast<Extended>(basis.grid().sums * basis.grid().factor);
    for (std::size_t j = 0; j < out.size(); ++j) {
        const Index at = basis.columns().parameters[j];
        out[j].decay += step[at] / span;
        if (!out[j].real)
            out[j].cycles += step[at + 1] / (kTwoPi * span);
    }
    return out;
}

} // namespace

Poles solve_poles(const Basis& basis, const Sums& sums)
{
    Poles best;
    best.terms = basis.terms();
    Normal now(basis, sums, best.terms, best);
    Extended damping = 0, last = 2;
    bool converged = false;
    for (int count = 0; count < kMostSteps && !converged; ++count) {
        ExtendedMatrix damped = now.normal;
        damped.diagonal() *= 1 + damping;
        const ExtendedVector step = damped.ldlt().solve(now.gradient);
        const Extended size = std::sqrt(std::max<Extended>(0, step.dot(now.normal * step)));
        if (!(step.cwiseAbs().maxCoeff() < kMostTurn)) {
            damping = std::max(1e-3L, damping * 10);
            continue;
        }
        Poles next;
        next.terms = moved(basis, best.terms, step);
        Normal then(basis, sums, next.terms, next);
        if (then.chi > now.chi && size > 1) {
            damping = std::max(1e-3L, damping * 10);
            continue;
        }
        // sums of a field without noise leave a step of rounding, which does not shrink
        converged = size < kSmall || (size < 1 && size > last / 2);
        last = size;
        damping = damping > 1e-6L ? damping / 10 : 0;
        best = std::move(next);
        now = std::move(then);
    }
    const Columns& columns = basis.columns();
    best.covariance = now.normal.ldlt().solve(ExtendedMatrix::Identity(now.normal.rows(), now.normal.cols()));
    const double freedom =
        sums.points * static_cast<double>(columns.modes) - static_cast<double>(columns.parameterTotal);
    best.reduced = freedom > 0 ? static_cast<double>(now.chi) / freedom : 1;
    const Vector outside = basis.outside(best.terms);
    best.settled = converged;
    double lost = 0;
    for (Index c = 0; c < columns.modes; ++c) {
        if (outside[columns.linears + c] > kLostShare * static_cast<double>(now.norms[c]))
            best.settled = false;
        lost += outside[c] * static_cast<double>(best.squares(c, c));
    }
    if (lost > kLostChi * sums.points * sums.freedom)
        best.settled = false;
    return best;
}

} // namespace tessel::fields
