#include "modes/refine.h"

#include <Eigen/Cholesky>

#include <algorithm>
#include <cmath>

namespace tessel::modes {

namespace {

constexpr double kEnough = 1e-3;   // least gain in chi^2 of a step
constexpr double kProgress = 0.05; // least part of the way to a target that a step makes
constexpr Extended kPi = 3.14159265358979323846264338327950288L;

void add_linear(Terms& terms, const ExtendedVector& step)
{
    const Layout layout(terms);
    for (std::size_t j = 0; j < terms.size(); ++j) {
        const auto re = static_cast<double>(step[layout.linear[j]]);
        const double im =
            terms[j].kind == Term::Kind::oscillating ? static_cast<double>(step[layout.linear[j] + 1]) : 0.0;
        terms[j].c += Complex(re, im);
    }
}

} // namespace

void add_poles(Terms& terms, const ExtendedVector& step, std::size_t n, bool complex)
{
    const Layout layout(terms);
    const Extended growth = 300.0L / static_cast<Extended>(n);
    for (std::size_t j = 0; j < terms.size(); ++j) {
        Term& term = terms[j];
        Extended d = step[layout.pole[j]];
        Extended a = term.kind == Term::Kind::oscillating ? step[layout.pole[j] + 1] : 0;
        // A step beyond the width of the line, or a few times the resolution, is none that the linear model knows.
        const Extended width = 2 * std::max(std::abs(term.decay), 3 / static_cast<Extended>(n));
        const Extended length = std::hypot(d, a);
        if (length > width) {
            d *= width / length;
            a *= width / length;
        }
        term.decay = std::min(term.decay + d, Extended(8));
        if (term.origin == 0)
            term.decay = std::max(term.decay, -growth);
        else
            term.decay = std::min(term.decay, growth);
        term.angle += a;
        if (term.kind != Term::Kind::oscillating)
            continue;
        if (complex) {
            term.angle = std::remainder(term.angle, 2 * kPi);
        } else if (term.angle < 0) {
            term.angle = -term.angle;
            term.c = std::conj(term.c);
        } else if (term.angle > kPi) {
            term.angle = 2 * kPi - term.angle;
            term.c = std::conj(term.c);
        }
    }
}

namespace {

/// A model with the residues solved for its poles.
struct State
{
    Terms terms;
    Evaluation evaluation; ///< at the residues before the last correction
    ExtendedMatrix normal;
    ExtendedVector gradient;
    double chiSquare = 0;
};

State project(const Series& series, Terms terms, std::size_t n)
{
    State state;
    const Products products(series, terms, n);
    const ExtendedMatrix g = products.linear(terms);
    const auto linear = g.rows();
    state.evaluation = evaluate(series, terms, n);
    // The residues' correction, again where it was large beside what is left: sums of the old residual are then no
    // better than its rounding.
    for (int round = 0; round < 4; ++round) {
        const ExtendedVector right = gradient(state.evaluation, terms).head(linear);
        const ExtendedVector step = solve_scaled(g, right, ExtendedVector::Zero(linear));
        const auto gain = static_cast<double>(step.dot(right));
        if (gain < 0.5 * state.evaluation.chiSquare) {
            state.chiSquare = state.evaluation.chiSquare - gain;
            add_linear(terms, step);
            // the pole's columns carry the corrected residues
            state.normal = products.normal(terms);
            state.gradient = gradient(state.evaluation, terms);
            state.gradient -= state.normal.leftCols(linear) * step;
            state.terms = std::move(terms);
            return state;
        }
        Terms trial = terms;
        add_linear(trial, step);
        const Evaluation next = evaluate(series, trial, n);
        if (!(next.chiSquare < state.evaluation.chiSquare))
            break;
        terms = std::move(trial);
        state.evaluation = next;
    }
    state.normal = products.normal(terms);
    state.gradient = gradient(state.evaluation, terms);
    state.chiSquare = state.evaluation.chiSquare;
    state.terms = std::move(terms);
    return state;
}

/// Refers a term that grows to the last sample and one that decays to the first, so that its column stays below one.
void rebase(Terms& terms, std::size_t n)
{
    const Extended most = 300.0L / static_cast<Extended>(n);
    for (Term& term : terms) {
        term.decay = std::max(term.decay, -most);
        const std::size_t origin = term.decay < 0 ? n - 1 : 0;
        if (origin == term.origin)
            continue;
        const ExtendedComplex moved = power(term, static_cast<Extended>(origin) - static_cast<Extended>(term.origin)) *
                                      ExtendedComplex(term.c.real(), term.c.imag());
        term.c = Complex(static_cast<double>(moved.real()), static_cast<double>(moved.imag()));
        if (!(std::abs(term.c) < 1e100))
            term.c = 0;
        term.origin = origin;
    }
}

} // namespace

ExtendedVector solve_scaled(const ExtendedMatrix& a, const ExtendedVector& b, const ExtendedVector& damping)
{
    const auto n = a.rows();
    if (n == 0)
        return b;
    ExtendedVector scale(n);
    for (Eigen::Index i = 0; i < n; ++i)
        scale[i] = a(i, i) > 0 ? 1 / std::sqrt(a(i, i)) : 0;
    ExtendedMatrix m = scale.asDiagonal() * a * scale.asDiagonal();
    for (Eigen::Index i = 0; i < n; ++i)
        m(i, i) += damping[i] + (scale[i] > 0 ? 1e-17L : 1);
    const ExtendedVector right = scale.cwiseProduct(b);
    // Most systems are well-conditioned: a factor in double precision is right to seven digits, and ten times as fast.
    const Eigen::LLT<Eigen::MatrixXd> fast(m.cast<double>());
    if (fast.info() == Eigen::Success && fast.matrixLLT().diagonal().minCoeff() > kWellConditioned) {
        const Eigen::VectorXd x = fast.solve(right.cast<double>());
        return scale.cwiseProduct(x.cast<Extended>());
    }
    const Eigen::LDLT<ExtendedMatrix> factor(m);
    const ExtendedVector x = factor.solve(right);
    return scale.cwiseProduct(x);
}

Refined solve_residues(const Series& series, Terms terms, std::size_t n)
{
    if (terms.empty())
        return {terms, evaluate(series, terms, n).chiSquare, 0};
    rebase(terms, n);
    const State state = project(series, std::move(terms), n);
    return {state.terms, state.chiSquare, 1};
}

Refined refine(const Series& series, Terms terms, std::size_t n, int mostSteps, double target)
{
    if (terms.empty())
        return {terms, evaluate(series, terms, n).chiSquare, 0};
    rebase(terms, n);
    State state = project(series, std::move(terms), n);
    Extended lambda = 1e-3L;
    int steps = 0;
    int small = 0;
    while (steps < mostSteps) {
        const Layout layout(state.terms);
        ExtendedVector damping = ExtendedVector::Zero(layout.total);
        damping.tail(layout.total - layout.linearTotal).setConstant(lambda);
        const ExtendedVector step = solve_scaled(state.normal, state.gradient, damping);
        Terms trial = state.terms;
        add_linear(trial, step.head(layout.linearTotal));
        add_poles(trial, step, n, series.complex());
        State next = project(series, std::move(trial), n);
        ++steps;
        const double gain = state.chiSquare - next.chiSquare;
        if (std::isfinite(next.chiSquare) && gain >= 0) {
            state = std::move(next);
            lambda = std::max(lambda / 10, 1e-12L);
            small = gain < kEnough + 1e-9 * state.chiSquare ? small + 1 : 0;
            if (small > 0)
                break;
            if (target >= 0 &&
                (state.chiSquare < target || (steps > 2 && gain < kProgress * (state.chiSquare - target))))
                break;
        } else {
            if (gain > -kEnough && std::isfinite(next.chiSquare) && lambda <= 1e-2L)
                break;
            lambda *= 10;
            if (lambda > 1e6L)
                break;
        }
    }
    return {state.terms, state.chiSquare, steps};
}

} // namespace tessel::modes
