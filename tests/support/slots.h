/// One call of each slot that keeps no state, on data of one caller.
#pragma once

#include "common/types.h"
#include "tests/support/random.h"

#include <tessel/FDTDCalcAPI.h>

#include <stdexcept>
#include <string>
#include <vector>

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

/// Slots 6 and 8 under one name; RWORK is used by the complex one alone.
inline void gesvd(FDTDCalcAPI& api, char jobu, char jobvt, Integer m, Integer n, Complex* a, Integer lda, Real* s,
                  Complex* u, Integer ldu, Complex* vt, Integer ldvt, Complex* work, Integer lwork, Real* rwork,
                  Integer& info)
{
    api.zgesvd(&jobu, &jobvt, &m, &n, a, &lda, s, u, &ldu, vt, &ldvt, work, &lwork, rwork, &info, 1, 1);
}
inline void gesvd(FDTDCalcAPI& api, char jobu, char jobvt, Integer m, Integer n, Real* a, Integer lda, Real* s, Real* u,
                  Integer ldu, Real* vt, Integer ldvt, Real* work, Integer lwork, Real*, Integer& info)
{
    api.dgesvd(&jobu, &jobvt, &m, &n, a, &lda, s, u, &ldu, vt, &ldvt, work, &lwork, &info, 1, 1);
}

/// The bytes that came out of a row of calls.
using Bytes = std::string;

/// Adds what a call wrote; it must have succeeded.
template <class... Arrays>
void add(Bytes& bytes, const char* slot, bool success, const Arrays&... arrays)
{
    if (!success)
        throw std::runtime_error(slot);
    (bytes.append(reinterpret_cast<const char*>(arrays.data()), arrays.size() * sizeof(arrays[0])), ...);
}

/// Solves a system of the given order with the ZGESV slot: the call that spends the largest part of its time on a work
/// buffer, from order 5 or so on.
inline Bytes call_zgesv(FDTDCalcAPI& api, Integer n, std::uint64_t seed)
{
    Random random(seed);
    const auto size = static_cast<std::size_t>(n);
    std::vector<Complex> a = random.complexes(size * size), b = random.complexes(size);
    std::vector<Integer> pivots(size);
    const Integer one = 1;
    Integer info = 77;
    api.zgesv(&n, &one, a.data(), &n, pivots.data(), b.data(), &n, &info);
    Bytes bytes;
    add(bytes, "zgesv", info == 0, a, b);
    return bytes;
}

/// What comes out of all slots without state, on problems of the given order.
inline Bytes call_slots(FDTDCalcAPI& api, Integer n, std::uint64_t seed)
{
    Random random(seed);
    const auto size = static_cast<std::size_t>(n);
    const std::vector<Complex> matrix = random.complexes(size * size);
    std::vector<Real> real;
    for (const Complex& value : matrix)
        real.push_back(value.real());
    Bytes bytes = call_zgesv(api, n, seed);
    Integer info = 77;
    const auto decompose = [&](auto a) {
        auto u = a, vt = a, work = a;
        std::vector<Real> s(size), rwork(5 * size);
        const Integer lwork = 70 * n;
        work.resize(70 * size);
        gesvd(api, 'S', 'S', n, n, a.data(), n, s.data(), u.data(), n, vt.data(), n, work.data(), lwork, rwork.data(),
              info);
        add(bytes, "gesvd", info == 0, s, u, vt);
    };
    decompose(matrix);
    decompose(real);

    std::vector<Real> x(size, -1.0 - random.uniform(0.0, 0.1)), f(size), jacobian(size * size),
        wa(size * (size + 13) / 2);
    const auto lwa = static_cast<Integer>(wa.size());
    const Real tol = 1e-10;
    api.hybrj1(broyden, &n, x.data(), f.data(), jacobian.data(), &n, &tol, &info, wa.data(), &lwa);
    add(bytes, "hybrj1", info == 1, x, f, jacobian);

    const Integer order = 3, one = 1;
    std::vector<Complex> residue(3), pole(3);
    std::vector<Real> error(5);
    api.leastsqPronySvd(&n, &n, matrix.data(), &tol, &order, &order, residue.data(), pole.data(), &error[0], &error[1],
                        &error[2], &error[3], &error[4], &info, nullptr, 0);
    add(bytes, "leastsqPronySvd", info == 0, residue, pole, error);
    add(bytes, "dpmpar", true, std::vector{api.dpmpar(&one)});
    return bytes;
}

} // namespace tessel::testing
