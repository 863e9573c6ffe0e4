#include "reference/plain_fit.h"

#include "common/complex_ops.h"
#include "common/elementary.h"
#include "common/views.h"
#include "prony/czero.h"
#include "reference/plain_svd.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <vector>

namespace tessel::reference {

namespace {

using Values = std::vector<Complex>;

/// The solution of A x = b of smallest residual, of the three that leave out singular values below a threshold. A tie
/// goes to the lower threshold; a NaN is never the smallest. Empty if the decomposition met its limit.
Values solve_truncated(Integer rows, Integer m, const Values& a, const Values& b)
{
    const auto count = static_cast<std::size_t>(m), height = static_cast<std::size_t>(rows);
    Values u = a, v(count * count), sv(count), e(count), work(height), x(count), best;
    if (plain_svd(21, rows, m, u.data(), rows, u.data(), rows, sv.data(), v.data(), m, work.data(), e.data()) != 0)
        return best;
    Real least = 0.0;
    for (const Real tolerance : {5e-17, 2.23e-16, 1e-15}) {
        Values w = sv, product(height);
        for (Complex& value : w) // values equal to the threshold, and NaN, stay
            if (modulus(value) < tolerance * modulus(sv[0]))
                value = 0.0;
        plain_back_substitution(u.data(), w.data(), v.data(), rows, m, rows, m, b.data(), x.data());
        for (std::size_t j = 0; j < count; ++j)
            for (std::size_t i = 0; i < height; ++i)
                product[i] += multiply(a[i + j * height], x[j]);
        Real residual = 0.0;
        for (std::size_t i = 0; i < height; ++i)
            residual += modulus_squared(product[i] - b[i]);
        if (best.empty() || residual < least) {
            best = x;
            least = residual;
        }
    }
    return best;
}

/// Quotients are not guarded: all-zero samples give NaN. The maxima ignore NaN.
void measure_error(Index n, const Complex* y, const Values& model, Real* measures)
{
    Real sum_y = 0.0, sum_y2 = 0.0, max_y = 0.0, sse = 0.0, max_e = 0.0;
    for (Index k = 0; k < n; ++k) {
        const Real size = modulus(y[k]), error = modulus(model[static_cast<std::size_t>(k)] - y[k]);
        sum_y += size;
        sum_y2 += size * size;
        max_y = size > max_y ? size : max_y;
        sse += error * error;
        max_e = error > max_e ? error : max_e;
    }
    const Real count = static_cast<Real>(n);
    measures[0] = std::sqrt(sse / sum_y2);
    measures[1] = std::sqrt(sse / count) / max_y;
    measures[2] = max_e / max_y;
    measures[3] = std::sqrt(sse * count) / sum_y;
    measures[4] = count * max_e / sum_y;
}

} // namespace

void plain_back_substitution(const Complex* U, const Complex* W, const Complex* V, Index m, Index n, Index mp, Index np,
                             const Complex* B, Complex* X)
{
    const Matrix<const Complex> u(U, mp), v(V, np);
    std::fill_n(X, n, Complex(0.0, 0.0));
    for (Index jj = 1; jj <= n; ++jj) {
        const Complex w = W[jj - 1];
        Complex s(0.0, 0.0);
        if (w.real() != 0.0 || w.imag() != 0.0) {
            for (Index i = 1; i <= m; ++i) {
                const Complex f = u(i, jj), b = B[i - 1];
                s += Complex(f.real() * b.real() + f.imag() * b.imag(), f.real() * b.imag() - f.imag() * b.real());
            }
            s = divide_by_reciprocal(s, w);
        }
        for (Index j = 1; j <= n; ++j)
            X[j - 1] += multiply(v(j, jj), s);
    }
}

bool plain_fit(Integer n, const Complex* samples, Real dt, Integer m, Complex* residues, Complex* poles, Real* measures)
{
    // sum_j a_j y(m+i-j) = -y(m+i), i = 1..n-m
    const Vector<const Complex> y(samples);
    const auto count = static_cast<std::size_t>(m), length = static_cast<std::size_t>(n);
    Values a, b;
    a.reserve(length * count);
    for (Index j = 1; j <= m; ++j)
        std::copy_n(y.from(m + 1 - j), n - m, std::back_inserter(a));
    for (Index i = m + 1; i <= n; ++i)
        b.push_back(-y(i));
    const Values prediction = solve_truncated(n - m, m, a, b);
    if (prediction.empty())
        return false;

    const Values coefficients(prediction.rbegin(), prediction.rend()); // the constant term first
    Values z(count);
    Complex work;
    Integer flag = 0;
    NAPACK_CZERO(z.data(), coefficients.data(), m, &work, flag, nullptr, 0);
    if (flag != 0)
        return false;
    for (std::size_t j = 0; j < count; ++j) {
        const Complex logarithm = tessel::logarithm(z[j]);
        poles[j] = Complex(logarithm.real() / dt, logarithm.imag() / dt);
    }

    // sum_j c_j z_j^(i-1) = y(i), i = 1..n; the powers are running products
    a.clear();
    for (const Complex& zj : z) {
        Complex power(1.0, 0.0);
        for (Integer i = 0; i < n; ++i, power = multiply(power, zj))
            a.push_back(power);
    }
    const Values solution = solve_truncated(n, m, a, Values(samples, samples + n));
    if (solution.empty())
        return false;
    std::copy(solution.begin(), solution.end(), residues);

    // The model is made of the discrete poles, not of exp(pole dt).
    Values power(count, 1.0), model(length);
    for (Complex& value : model)
        for (std::size_t j = 0; j < count; ++j) {
            value += multiply(residues[j], power[j]);
            power[j] = multiply(power[j], z[j]);
        }
    measure_error(n, samples, model, measures);
    return true;
}

} // namespace tessel::reference
