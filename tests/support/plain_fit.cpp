#include "tests/support/plain_fit.h"

#include "common/complex_ops.h"
#include "common/views.h"
#include "prony/czero.h"
#include "tests/support/plain_svd.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace tessel::testing {

namespace {

constexpr Index kPasses = 3;
constexpr Real kSvTol[kPasses] = {5e-17, 2.23e-16, 1e-15};

/// The work arrays, tight and zero-filled.
struct Work
{
    Work(Integer samples, Integer order)
        : n(samples),
          m(order),
          storage(static_cast<std::size_t>(2 * Index{n} * m + Index{m} * m + 4 * Index{n} + 11 * Index{m} + 2))
    {}
    Complex* take(Index count)
    {
        used += count;
        return storage.data() + (used - count);
    }

    Integer n, m;
    std::vector<Complex> storage;
    Index used = 0;
    Matrix<Complex> a{take(Index{n} * m), n}, f{take(Index{n} * m), n}, v{take(Index{m} * m), m};
    Vector<Complex> b{take(n)}, work{take(n)}, product{take(n)};
    Table<Complex> ym{take(n)};
    Vector<Complex> sv{take(m)}, wt{take(m)}, e{take(m)}, zr{take(m)};
    Matrix<Complex> pa{take(kPasses * m), m}, pc{take(kPasses * m), m};
    Table<Complex> coef{take(m + 1)};
    Vector<Complex> zw{take(1)};
};

/// wt := sv without what lies below the threshold. What equals the threshold, and a value that is not a number, stays.
void truncate(Index m, Real tolerance, const Vector<Complex>& sv, const Vector<Complex>& wt)
{
    const Real threshold = tolerance * modulus(sv(1));
    for (Index j = 1; j <= m; ++j)
        wt(j) = modulus(sv(j)) < threshold ? Complex(0.0, 0.0) : sv(j);
}

/// x := V diag(1/w) U^H b, zero values left out, sum by sum.
void back_substitute(const Work& w, Integer rows, Integer m, const Vector<Complex>& x)
{
    for (Index j = 1; j <= m; ++j)
        x(j) = 0.0;
    for (Index jj = 1; jj <= m; ++jj) {
        Complex s(0.0, 0.0);
        if (w.wt(jj).real() != 0.0 || w.wt(jj).imag() != 0.0) {
            for (Index i = 1; i <= rows; ++i) {
                const Complex f = w.f(i, jj), b = w.b(i);
                s += Complex(f.real() * b.real() + f.imag() * b.imag(), f.real() * b.imag() - f.imag() * b.real());
            }
            s = divide_by_reciprocal(s, w.wt(jj));
        }
        for (Index j = 1; j <= m; ++j)
            x(j) += multiply(w.v(j, jj), s);
    }
}

/// product := A x, column by column.
void multiply_matrix(Index rows, Index m, const Matrix<Complex>& a, const Vector<Complex>& x,
                     const Vector<Complex>& product)
{
    std::fill_n(product.from(1), rows, Complex(0.0, 0.0));
    for (Index j = 1; j <= m; ++j) {
        const Complex xj = x(j);
        for (Index i = 1; i <= rows; ++i)
            product(i) += multiply(a(i, j), xj);
    }
}

/// The pass of the smallest residual. A tie goes to the lower pass; a residual that is not a number never wins.
Index best_pass(const Real (&residual)[kPasses])
{
    Index best = residual[1] < residual[0] ? 2 : 1;
    if (residual[2] < residual[best - 1])
        best = 3;
    return best;
}

/// Solves A x = b, with A in w.a and w.f and b in w.b, once for each threshold, a solution in each column of `x`, and
/// returns the pass to keep; 0 if the decomposition met its limit.
Index solve_truncated(const Work& w, Integer rows, Integer m, const Matrix<Complex>& x)
{
    if (plain_svd(21, rows, m, w.f.from(1, 1), w.n, w.f.from(1, 1), w.n, w.sv.from(1), w.v.from(1, 1), w.m,
                  w.work.from(1), w.e.from(1)) != 0)
        return 0;

    Real residual[kPasses];
    for (Index pass = 1; pass <= kPasses; ++pass) {
        truncate(m, kSvTol[pass - 1], w.sv, w.wt);
        back_substitute(w, rows, m, x.column(pass));
        multiply_matrix(rows, m, w.a, x.column(pass), w.product);
        Real sum = 0.0;
        for (Index i = 1; i <= rows; ++i)
            sum += modulus_squared(w.product(i) - w.b(i));
        residual[pass - 1] = sum;
    }
    return best_pass(residual);
}

/// The linear-prediction system sum_j a_j y(m+i-j) = -y(m+i), i = 1..n-m.
void build_prediction_system(Index n, Index m, const Vector<const Complex>& y, const Work& w)
{
    const Index rows = n - m;
    for (Index i = 1; i <= rows; ++i)
        w.b(i) = -y(m + i);
    for (Index j = 1; j <= m; ++j) {
        std::copy_n(y.from(m + 1 - j), rows, w.a.from(1, j));
        std::copy_n(y.from(m + 1 - j), rows, w.f.from(1, j));
    }
}

/// The Vandermonde system sum_j c_j z_j^(i-1) = y(i), i = 1..n; the powers are running products.
void build_vandermonde_system(Index n, Index m, const Vector<const Complex>& y, const Work& w)
{
    std::copy_n(y.from(1), n, w.b.from(1));
    for (Index j = 1; j <= m; ++j) {
        const Complex z = w.zr(j);
        Complex power(1.0, 0.0);
        w.a(1, j) = w.f(1, j) = power;
        for (Index i = 2; i <= n; ++i) {
            power = multiply(power, z);
            w.a(i, j) = w.f(i, j) = power;
        }
    }
}

/// ym(k-1) := sum_j c_j z_j^(k-1). The model is made of the discrete poles, not of exp(pole dt).
void evaluate_model(Index n, Index m, const Vector<const Complex>& residue, const Work& w)
{
    std::fill_n(w.e.from(1), m, Complex(1.0, 0.0));
    for (Index k = 1; k <= n; ++k) {
        Complex sum(0.0, 0.0);
        for (Index j = 1; j <= m; ++j) {
            sum += multiply(residue(j), w.e(j));
            w.e(j) = multiply(w.e(j), w.zr(j));
        }
        w.ym(k - 1) = sum;
    }
}

/// Quotients are not guarded: all-zero samples give values that are not numbers. A NaN never becomes a maximum.
void measure_error(Index n, const Vector<const Complex>& y, const Table<Complex>& ym, Real (&measures)[5])
{
    Real sum_y = 0.0, sum_y2 = 0.0, max_y = 0.0, sse = 0.0, max_e = 0.0;
    for (Index k = 1; k <= n; ++k) {
        const Real size = modulus(y(k)), error = modulus(ym(k - 1) - y(k));
        sum_y += size;
        sum_y2 += size * size;
        if (size > max_y)
            max_y = size;
        sse += error * error;
        if (error > max_e)
            max_e = error;
    }
    const Real count = static_cast<Real>(n);
    measures[0] = std::sqrt(sse / sum_y2);
    measures[1] = std::sqrt(sse / count) / max_y;
    measures[2] = max_e / max_y;
    measures[3] = std::sqrt(sse * count) / sum_y;
    measures[4] = count * max_e / sum_y;
}

} // namespace

bool plain_fit(Integer n, const Complex* samples, Real dt, Integer m, Complex* residues, Complex* poles,
               Real (&measures)[5])
{
    const Vector<const Complex> y(samples);
    const Vector<Complex> residue(residues), pole(poles);
    const Work w(n, m);

    build_prediction_system(n, m, y, w);
    Index best = solve_truncated(w, n - m, m, w.pa);
    if (best == 0)
        return false;
    w.coef(m) = 1.0;
    for (Index j = 1; j <= m; ++j)
        w.coef(m - j) = w.pa(j, best);

    Integer flag = 0;
    NAPACK_CZERO(w.zr.from(1), &w.coef(0), m, w.zw.from(1), flag, nullptr, 0);
    if (flag != 0)
        return false;
    for (Index j = 1; j <= m; ++j) {
        const Complex logarithm = std::log(w.zr(j));
        pole(j) = Complex(logarithm.real() / dt, logarithm.imag() / dt);
    }

    build_vandermonde_system(n, m, y, w);
    best = solve_truncated(w, n, m, w.pc);
    if (best == 0)
        return false;
    std::copy_n(w.pc.from(1, best), m, residue.from(1));
    evaluate_model(n, m, Vector<const Complex>(residues), w);
    measure_error(n, y, w.ym, measures);
    return true;
}

} // namespace tessel::testing
