#include "modes/joint.h"
#include "modes/refine.h"

#include <Eigen/Cholesky>

#include <algorithm>
#include <cmath>
#include <map>

namespace tessel::modes {

namespace {

constexpr double kEnough = 1e-3;    // least gain in chi^2 of a step
constexpr double kProgress = 0.05;  // least part of the way to a target that a step makes
constexpr int kCorrections = 4;     // of the residues
constexpr double kRounding = 1e-12; // of weights that are alike

/// Where a term is referred to on a grid of n samples, so that its column stays below one.
std::size_t origin_of(const Term& term, std::size_t n)
{
    return term.decay < 0 ? n - 1 : 0;
}

/// The terms at c = 1, referred to their origins on a grid of n samples.
Terms unit_terms(Terms terms, std::size_t n)
{
    for (Term& term : terms) {
        term.c = 1;
        term.origin = origin_of(term, n);
    }
    return terms;
}

/// Eliminates the first k parameters of a normal matrix of unit diagonal. Fails where the precision does not tell the
/// matrix from a singular one.
template <class Scalar>
bool eliminate_linear(const ExtendedMatrix& scaled, Eigen::Index k, double least, Grid& out)
{
    using Matrix = Eigen::Matrix<Scalar, Eigen::Dynamic, Eigen::Dynamic>;
    if (scaled.rows() == 0) // no term is left: Eigen has no minimum of nothing
        return true;
    const Matrix m = scaled.cast<Scalar>();
    const Eigen::LLT<Matrix> factor(m);
    if (factor.info() != Eigen::Success || !(static_cast<double>(factor.matrixLLT().diagonal().minCoeff()) > least))
        return false;
    const Matrix lower = factor.matrixL();
    const Eigen::Index rest = scaled.rows() - k;
    const Matrix l11 = lower.topLeftCorner(k, k), l21 = lower.bottomLeftCorner(rest, k),
                 l22 = lower.bottomRightCorner(rest, rest);
    Matrix inverse = Matrix::Identity(k, k), carried = l21.transpose();
    l11.template triangularView<Eigen::Lower>().solveInPlace(inverse);
    l11.transpose().template triangularView<Eigen::Upper>().solveInPlace(carried);
    out.inverse = (inverse.transpose() * inverse).template cast<Extended>();
    out.carried = carried.template cast<Extended>();
    out.schur = (l22 * l22.transpose()).template cast<Extended>();
    return true;
}

Grid make_grid(const ExtendedMatrix& normal, Eigen::Index k)
{
    const Eigen::Index size = normal.rows(), rest = size - k;
    ExtendedVector scale(size), unscale(size);
    for (Eigen::Index i = 0; i < size; ++i) {
        unscale[i] = normal(i, i) > 0 ? std::sqrt(normal(i, i)) : 1;
        scale[i] = 1 / unscale[i];
    }
    ExtendedMatrix scaled = scale.asDiagonal() * normal * scale.asDiagonal();
    for (Eigen::Index i = 0; i < size; ++i)
        scaled(i, i) = 1;
    Grid grid;
    if (!eliminate_linear<double>(scaled, k, kWellConditioned, grid))
        for (Extended more = 1e-17L;; more *= 100) {
            ExtendedMatrix held = scaled; // directions that the precision does not resolve
            held.diagonal().array() += more;
            if (eliminate_linear<Extended>(held, k, 0, grid))
                break;
        }
    grid.inverse = scale.head(k).asDiagonal() * grid.inverse * scale.head(k).asDiagonal();
    grid.carried = scale.head(k).asDiagonal() * grid.carried * unscale.tail(rest).asDiagonal();
    grid.schur = unscale.tail(rest).asDiagonal() * grid.schur * unscale.tail(rest).asDiagonal();
    grid.norms = normal.diagonal().tail(rest);
    return grid;
}

/// The series' weights over time at a factor of one, without samples.
Series shape_of(const Series& series)
{
    Series shape;
    shape.segment = series.segment;
    if (series.complex())
        shape.im.assign(1, 0);
    for (const double weight : series.weight)
        shape.weight.push_back(weight / series.weight.front());
    return shape;
}

/// Whether two series' weights are the same over time, but for a factor and rounding.
bool same_shape(const Series& a, const Series& b)
{
    if (a.weight.size() != b.weight.size() || (a.weight.size() > 1 && a.segment != b.segment))
        return false;
    const double factor = a.weight.front() / b.weight.front();
    return std::equal(a.weight.begin(), a.weight.end(), b.weight.begin(),
                      [&](double v, double w) { return std::abs(v - factor * w) <= kRounding * v; });
}

void add_linear(const Terms& terms, Residues& residues, const ExtendedVector& step)
{
    Eigen::Index at = 0;
    for (std::size_t j = 0; j < terms.size(); ++j) {
        const auto re = static_cast<double>(step[at++]);
        const double im = linearCount(terms[j]) == 2 ? static_cast<double>(step[at++]) : 0.0;
        residues[j] += Complex(re, im);
    }
}

} // namespace

RecordSet::RecordSet(std::vector<Series> all) : records(std::move(all))
{
    for (std::size_t p = 0; p < records.size(); ++p) {
        Series& series = records[p];
        if (std::all_of(series.weight.begin(), series.weight.end(),
                        [&](double w) { return w == series.weight.front(); })) {
            series.weight.resize(1);
            series.segment = std::max<std::size_t>(1, series.size());
        }
        profile.push_back(p);
        weight.push_back(series.weight.front());
        for (std::size_t q = 0; q < p && profile[p] == p; ++q) {
            const Series& other = records[q];
            if (profile[q] == q && same_shape(series, other))
                profile[p] = q;
        }
    }
}

std::size_t RecordSet::longest() const
{
    std::size_t n = 0;
    for (const Series& series : records)
        n = std::max(n, series.size());
    return n;
}

std::size_t RecordSet::total(std::size_t n) const
{
    std::size_t sum = 0;
    for (std::size_t p = 0; p < size(); ++p)
        sum += samples(p, n);
    return sum;
}

Terms JointModel::of(const RecordSet& set, std::size_t p, std::size_t n) const
{
    Terms out = unit_terms(terms, set.samples(p, n));
    for (std::size_t j = 0; j < out.size(); ++j)
        out[j].c = residues[p][j];
    return out;
}

void JointModel::add(const Term& term)
{
    terms.push_back(term);
    for (Residues& own : residues)
        own.emplace_back(0);
}

JointModel JointModel::with(const std::vector<char>& kept) const
{
    JointModel out;
    out.residues.resize(residues.size());
    out.chiSquare = chiSquare;
    out.chiSquares = chiSquares;
    for (std::size_t j = 0; j < terms.size(); ++j)
        if (kept[j]) {
            out.terms.push_back(terms[j]);
            for (std::size_t p = 0; p < residues.size(); ++p)
                out.residues[p].push_back(residues[p][j]);
        }
    return out;
}

ExtendedMatrix turned(const Terms& terms, const Residues& residues, const ExtendedMatrix& rows)
{
    ExtendedMatrix out(rows.rows(), rows.cols());
    Eigen::Index at = 0;
    for (std::size_t j = 0; j < terms.size(); ++j) {
        const Extended a = static_cast<Extended>(residues[j].real()), b = static_cast<Extended>(residues[j].imag());
        if (poleCount(terms[j]) == 1) {
            out.col(at) = a * rows.col(at);
            ++at;
        } else { // -c = a (-1) - b i and i c = b (-1) + a i, where B has the columns (-1, i) (k - origin) E
            out.col(at) = a * rows.col(at) - b * rows.col(at + 1);
            out.col(at + 1) = b * rows.col(at) + a * rows.col(at + 1);
            at += 2;
        }
    }
    return out;
}

Projection project(const RecordSet& set, JointModel model, std::size_t n)
{
    const Layout layout(model.terms);
    const Eigen::Index linear = layout.linearTotal, poles = layout.total - layout.linearTotal;
    Projection out;
    out.normal = ExtendedMatrix::Zero(poles, poles);
    out.gradient = ExtendedVector::Zero(poles);
    out.norms = ExtendedVector::Zero(poles);
    out.gridOf.resize(set.size());
    model.chiSquare = 0;
    model.chiSquares.assign(set.size(), 0);
    std::map<std::pair<std::size_t, std::size_t>, std::size_t> known; // grids by profile and length
    for (std::size_t p = 0; p < set.size(); ++p) {
        const Series& series = set.records[p];
        const std::size_t length = set.samples(p, n);
        const Terms unit = unit_terms(model.terms, length);
        const auto [place, fresh] = known.try_emplace({set.profile[p], length}, out.grids.size());
        if (fresh)
            out.grids.push_back(make_grid(Products(shape_of(series), unit, length).normal(unit), linear));
        out.gridOf[p] = place->second;
        const Grid& grid = out.grids[place->second];
        const auto weight = static_cast<Extended>(set.weight[p]);

        // The residues' correction, again where it was large beside what is left: sums of the old residual are then no
        // better than its rounding.
        Residues residues = model.residues[p];
        Terms terms = unit;
        ExtendedVector right;
        Evaluation evaluation;
        for (int round = 0;; ++round) {
            for (std::size_t j = 0; j < terms.size(); ++j)
                terms[j].c = residues[j];
            const Evaluation next = evaluate(series, terms, length);
            if (round > 0 && !(next.chiSquare < evaluation.chiSquare)) {
                residues = model.residues[p];
                model.chiSquares[p] = evaluation.chiSquare;
                break;
            }
            evaluation = next;
            right = gradient(evaluation, unit);
            const ExtendedVector step = grid.inverse * right.head(linear) / weight;
            const auto gain = static_cast<double>(step.dot(right.head(linear)));
            model.residues[p] = residues;
            add_linear(unit, residues, step);
            if (gain < 0.5 * evaluation.chiSquare || round + 1 == kCorrections) {
                model.residues[p] = residues;
                model.chiSquares[p] = std::max(0.0, evaluation.chiSquare - gain);
                break;
            }
        }
        model.chiSquare += model.chiSquares[p];

        // The residual's part along B that no residue takes; it does not depend on the residues it was formed at.
        const ExtendedVector free = right.tail(poles) - grid.carried.transpose() * right.head(linear);
        out.gradient += turned(unit, model.residues[p], free.transpose()).transpose();
        const ExtendedMatrix half = turned(unit, model.residues[p], grid.schur);
        out.normal += weight * turned(unit, model.residues[p], half.transpose());
        Eigen::Index at = 0;
        for (std::size_t j = 0; j < unit.size(); ++j)
            for (int q = 0; q < poleCount(unit[j]); ++q, ++at)
                out.norms[at] += weight * grid.norms[at] * static_cast<Extended>(std::norm(model.residues[p][j]));
    }
    out.model = std::move(model);
    return out;
}

JointModel solve_residues(const RecordSet& set, JointModel model, std::size_t n)
{
    return project(set, std::move(model), n).model;
}

JointModel refine(const RecordSet& set, JointModel model, std::size_t n, int mostSteps, double target)
{
    const std::size_t length = std::min(n, set.longest());
    for (Term& term : model.terms)
        term.decay = std::max(term.decay, -300.0L / static_cast<Extended>(length));
    Projection state = project(set, std::move(model), n);
    state.model.steps = 1;
    if (state.model.terms.empty())
        return state.model;
    Extended lambda = 1e-3L;
    int steps = 0;
    while (steps < mostSteps) {
        const Layout layout(state.model.terms);
        ExtendedMatrix damped = state.normal;
        damped.diagonal() += lambda * state.norms;
        const ExtendedVector move = solve_scaled(damped, state.gradient, ExtendedVector::Zero(damped.rows()));
        ExtendedVector step = ExtendedVector::Zero(layout.total);
        step.tail(move.size()) = move;
        JointModel trial = state.model;
        for (std::size_t p = 0; p < set.size(); ++p) {
            const ExtendedMatrix answer =
                turned(trial.terms, state.model.residues[p], state.grids[state.gridOf[p]].carried);
            add_linear(trial.terms, trial.residues[p], -answer * move);
        }
        // add_poles holds a pole on its side of zero by its origin; here every step may cross
        for (Term& term : trial.terms)
            term.origin = 0;
        add_poles(trial.terms, step, length, set.complex());
        Projection next = project(set, std::move(trial), n);
        ++steps;
        const double gain = state.model.chiSquare - next.model.chiSquare;
        if (std::isfinite(next.model.chiSquare) && gain >= 0) {
            state = std::move(next);
            lambda = std::max(lambda / 10, 1e-12L);
            if (gain < kEnough + 1e-9 * state.model.chiSquare)
                break;
            if (target >= 0 &&
                (state.model.chiSquare < target || (steps > 2 && gain < kProgress * (state.model.chiSquare - target))))
                break;
        } else {
            if (gain > -kEnough && std::isfinite(next.model.chiSquare) && lambda <= 1e-2L)
                break;
            lambda *= 10;
            if (lambda > 1e6L)
                break;
        }
    }
    state.model.steps = steps;
    return state.model;
}

double freedom(const RecordSet& set, const Terms& terms, std::size_t n)
{
    const Layout layout(terms);
    const double rows = static_cast<double>(set.total(n)) * (set.complex() ? 2 : 1);
    return std::max(1.0,
                    rows - static_cast<double>(set.size()) * layout.linearTotal - (layout.total - layout.linearTotal));
}

double freedom(const RecordSet& set, const Terms& terms, std::size_t n, std::size_t record)
{
    const Layout layout(terms);
    const double rows = static_cast<double>(set.samples(record, n)) * (set.complex() ? 2 : 1);
    return std::max(1.0, rows - layout.linearTotal -
                             static_cast<double>(layout.total - layout.linearTotal) / static_cast<double>(set.size()));
}

} // namespace tessel::modes
