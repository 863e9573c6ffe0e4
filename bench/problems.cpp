#include "bench/problems.h"

#include "common/complex_ops.h"
#include "prony/csvdc.h"
#include "prony/czero.h"
#include "prony/svbksb.h"
#include "tests/support/random.h"

#include <cmath>
#include <numbers>
#include <stdexcept>

namespace tessel::bench {

namespace {

std::vector<Complex> zeroed(Index count)
{
    return std::vector<Complex>(static_cast<std::size_t>(count));
}

void require_success(Integer flag)
{
    if (flag != 0)
        throw std::runtime_error("a routine failed while a benchmark was prepared");
}

} // namespace

Ringdown make_ringdown(Index n, Index modes, Record record)
{
    testing::Random random(static_cast<std::uint64_t>(n));
    const bool real = record == Record::real;
    const Index count = real ? modes / 2 : modes;
    Ringdown signal;
    signal.y = zeroed(n);
    for (Index j = 0; j < count; ++j) {
        const Real place = (static_cast<Real>(j) + random.uniform(0.25, 0.75)) / static_cast<Real>(count);
        const Complex pole(-random.uniform(1.0, 4.0) / static_cast<Real>(n),
                           0.9 * std::numbers::pi * (real ? place : 2 * place - 1));
        const Complex residue = std::polar(random.uniform(0.5, 1.0), random.uniform(0.0, 6.0));
        signal.poles.push_back(pole);
        if (real)
            signal.poles.push_back(std::conj(pole));
        for (Index k = 0; k < n; ++k)
            signal.y[static_cast<std::size_t>(k)] += multiply(residue, std::exp(pole * static_cast<Real>(k)));
    }
    for (Complex& y : signal.y) {
        y += 1e-6 * Complex(random.normal(), random.normal());
        if (real)
            y = Complex(2.0 * y.real(), 0.0);
    }
    return signal;
}

Dense prediction_matrix(const std::vector<Complex>& y, Index m)
{
    const Index rows = static_cast<Index>(y.size()) - m;
    Dense a{rows, m, zeroed(rows * m)};
    for (Index j = 1; j <= m; ++j)
        for (Index i = 1; i <= rows; ++i)
            a(i, j) = y[static_cast<std::size_t>(m + i - j - 1)];
    return a;
}

std::vector<Complex> prediction_polynomial(const std::vector<Complex>& y, Index m)
{
    Dense a = prediction_matrix(y, m);
    const auto rows = static_cast<Integer>(a.rows), columns = static_cast<Integer>(m);
    std::vector<Complex> s = zeroed(m), e = zeroed(m), v = zeroed(m * m), work = zeroed(rows), x = zeroed(m), b;
    for (Index i = 0; i < rows; ++i)
        b.push_back(-y[static_cast<std::size_t>(m + i)]);
    Integer info = 0, flag = 0;
    SLATEC_CSVDC(21, rows, columns, a.data.data(), rows, a.data.data(), rows, s.data(), v.data(), columns, work.data(),
                 e.data(), info, flag, nullptr, 0);
    require_success(flag);
    RECIPES_SVBKSB(a.data.data(), s.data(), v.data(), rows, columns, rows, columns, b.data(), x.data(), flag, nullptr,
                   0);
    require_success(flag);
    return {x.rbegin(), x.rend()};
}

std::vector<Complex> zeros_of(const std::vector<Complex>& polynomial)
{
    std::vector<Complex> zeros(polynomial.size());
    Complex work;
    Integer flag = 0;
    NAPACK_CZERO(zeros.data(), polynomial.data(), static_cast<Integer>(zeros.size()), &work, flag, nullptr, 0);
    require_success(flag);
    return zeros;
}

Dense vandermonde_matrix(const std::vector<Complex>& zeros, Index n)
{
    const auto m = static_cast<Index>(zeros.size());
    Dense a{n, m, zeroed(n * m)};
    for (Index j = 1; j <= m; ++j) {
        Complex power = 1.0;
        for (Index i = 1; i <= n; ++i) {
            a(i, j) = power;
            power = multiply(power, zeros[static_cast<std::size_t>(j - 1)]);
        }
    }
    return a;
}

} // namespace tessel::bench
