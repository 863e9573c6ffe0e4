/// Zeros of the characteristic polynomials of fits, beside the eigenvalues of their companion matrices.

#include "bench/interleave.h"
#include "bench/problems.h"
#include "bench/stock.h"
#include "bench/suites.h"
#include "common/complex_ops.h"
#include "common/polynomial.h"

#include "prony/czero.h"

#include <algorithm>
#include <complex>
#include <limits>

namespace tessel::bench {

namespace {

/// The eigenvalues of a companion matrix, by LAPACK.
class Companion
{
public:
    explicit Companion(const std::vector<Complex>& polynomial)
        : coefficients(polynomial),
          n(static_cast<Integer>(polynomial.size())),
          a(polynomial.size() * polynomial.size()),
          zeros(polynomial.size()),
          work(1),
          rwork(2 * polynomial.size())
    {
        length = -1; // asks for the best length
        run();
        length = static_cast<Integer>(work[0].real());
        work.resize(static_cast<std::size_t>(length));
    }

    void run()
    {
        const Matrix<Complex> companion(a.data(), n);
        std::fill(a.begin(), a.end(), Complex(0.0, 0.0));
        for (Index i = 1; i <= n; ++i) {
            companion(i, n) = -coefficients[static_cast<std::size_t>(i - 1)];
            if (i < n)
                companion(i + 1, i) = 1.0;
        }
        const Integer one = 1;
        Complex none;
        Integer info = 0;
        stock().zgeev("N", "N", &n, a.data(), &n, zeros.data(), &none, &one, &none, &one, work.data(), &length,
                      rwork.data(), &info, 1, 1);
    }

    const std::vector<Complex>& result() const { return zeros; }

private:
    std::vector<Complex> coefficients;
    Integer n, length;
    std::vector<Complex> a, zeros, work;
    std::vector<Real> rwork;
};

/// max |p(z)| / (n eps sum |a(k)| |z|^(k-1)) over the zeros z.
Real worst_residual(const std::vector<Complex>& a, const std::vector<Complex>& zeros)
{
    using Wide = std::complex<Extended>;
    Extended worst = 0.0L;
    for (const Complex& zero : zeros) {
        const Wide z(zero);
        const Extended r = std::abs(z);
        Wide value = 1.0L;
        Extended bound = 1.0L;
        for (auto c = a.rbegin(); c != a.rend(); ++c) {
            value = value * z + Wide(*c);
            bound = bound * r + std::abs(Wide(*c));
        }
        worst = std::max(worst, std::abs(value) / bound);
    }
    return static_cast<Real>(worst) / (static_cast<Real>(a.size()) * std::numeric_limits<Real>::epsilon());
}

void compare_zeros(benchmark::State& state, Index degree)
{
    const Ringdown signal = make_ringdown(4 * degree, modes_of_order(degree), Record::complex);
    const std::vector<Complex> polynomial = prediction_polynomial(signal.y, degree);
    Companion companion(polynomial);
    std::vector<Complex> zeros(polynomial.size());
    const auto n = static_cast<Integer>(degree);
    const auto own = [&] {
        Complex work;
        Integer flag = 0;
        NAPACK_CZERO(zeros.data(), polynomial.data(), n, &work, flag, nullptr, 0);
    };
    interleave(state, {{"own", own}, {"zgeev", [&] { companion.run(); }}});
    state.counters["zeros_per_second"] = static_cast<Real>(degree) / state.counters["own"];
    state.counters["residual_own"] = worst_residual(polynomial, zeros);
    state.counters["residual_zgeev"] = worst_residual(polynomial, companion.result());
}

} // namespace

void add_zeros_benchmarks()
{
    for (const Index degree : {5, 20, 50, 100, 200, 500})
        add("zeros/" + std::to_string(degree), [=](benchmark::State& state) { compare_zeros(state, degree); });
}

} // namespace tessel::bench
