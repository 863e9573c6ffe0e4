/// One call of each slot that keeps no state, on data of one caller.
#pragma once

#include "tests/support/lapack.h"
#include "tests/support/random.h"

#include <bit>
#include <iterator>
#include <stdexcept>

namespace tessel::testing {

/// Broyden's tridiagonal system, as `hybrj1` calls it.
inline void broyden(const Integer* n, const Real* x, Real* fvec, Real* fjac, const Integer* ldfjac, Integer* iflag)
{
    for (Integer k = 0; k < *n; ++k) {
        const Real before = k > 0 ? x[k - 1] : 0.0, behind = k + 1 < *n ? x[k + 1] : 0.0;
        if (*iflag == 1) {
            fvec[k] = (3.0 - 2.0 * x[k]) * x[k] - before - 2.0 * behind + 1.0;
            continue;
        }
        for (Integer j = 0; j < *n; ++j)
            fjac[k + j * *ldfjac] = j == k ? 3.0 - 4.0 * x[k] : j == k - 1 ? -1.0 : j == k + 1 ? -2.0 : 0.0;
    }
}

/// The bits that came out of a row of calls.
using Bits = std::vector<std::uint64_t>;

/// Adds what a call wrote; it must have succeeded.
template <class... Arrays>
void add(Bits& bits, const char* slot, bool success, const Arrays&... arrays)
{
    if (!success)
        throw std::runtime_error(slot);
    const auto append = [&bits](const auto& array) {
        const std::size_t count = array.size() * sizeof(array[0]) / sizeof(Real);
        const auto* const values = reinterpret_cast<const Real*>(array.data());
        std::transform(values, values + count, std::back_inserter(bits),
                       [](Real value) { return std::bit_cast<std::uint64_t>(value); });
    };
    (append(arrays), ...);
}

/// Solves a system of the given order with the ZGESV slot: the call that spends the largest part of its time on a work
/// buffer, from order 5 or so on.
inline Bits call_zgesv(FDTDCalcAPI& api, Integer n, std::uint64_t seed)
{
    Random random(seed);
    const auto size = static_cast<std::size_t>(n);
    std::vector<Complex> a = random.complexes(size * size), b = random.complexes(size);
    std::vector<Integer> pivots(size);
    const Integer one = 1;
    Integer info = 77;
    api.zgesv(&n, &one, a.data(), &n, pivots.data(), b.data(), &n, &info);
    Bits bits;
    add(bits, "zgesv", info == 0, a, b);
    return bits;
}

template <class T>
void call_gesvd(FDTDCalcAPI& api, Integer n, std::vector<T> a, Bits& bits)
{
    const Integer lwork = 70 * n;
    std::vector<T> u(a.size()), vt(a.size()), work(static_cast<std::size_t>(lwork));
    std::vector<Real> s(static_cast<std::size_t>(n)), rwork(5 * s.size());
    Integer info = 77;
    gesvd(api, 'S', 'S', n, n, a.data(), n, s.data(), u.data(), n, vt.data(), n, work.data(), lwork, rwork.data(),
          info);
    add(bits, "gesvd", info == 0, s, u, vt);
}

/// The bits that come out of all slots without state, on problems of the given order.
inline Bits call_slots(FDTDCalcAPI& api, Integer n, std::uint64_t seed)
{
    Random random(seed);
    const auto size = static_cast<std::size_t>(n);
    const std::vector<Complex> matrix = random.complexes(size * size);
    std::vector<Real> real;
    for (const Complex& value : matrix)
        real.push_back(value.real());
    Bits bits = call_zgesv(api, n, seed);
    call_gesvd(api, n, matrix, bits);
    call_gesvd(api, n, real, bits);

    std::vector<Real> x(size, -1.0 - random.uniform(0.0, 0.1)), f(size), jacobian(size * size),
        wa(size * (size + 13) / 2);
    const auto lwa = static_cast<Integer>(wa.size());
    const Real tol = 1e-10;
    Integer info = 77;
    api.hybrj1(broyden, &n, x.data(), f.data(), jacobian.data(), &n, &tol, &info, wa.data(), &lwa);
    add(bits, "hybrj1", info == 1, x, f, jacobian);

    const Integer order = 3, one = 1;
    std::vector<Complex> residue(3), pole(3);
    std::vector<Real> error(5);
    api.leastsqPronySvd(&n, &n, matrix.data(), &tol, &order, &order, residue.data(), pole.data(), &error[0], &error[1],
                        &error[2], &error[3], &error[4], &info, nullptr, 0);
    add(bits, "leastsqPronySvd", info == 0, residue, pole, error);
    add(bits, "dpmpar", true, std::vector{api.dpmpar(&one)});
    return bits;
}

} // namespace tessel::testing
