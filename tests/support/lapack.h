/// Slots 6 to 8 under names that do not depend on the type of the elements.
#pragma once

#include "common/types.h"

#include <tessel/FDTDCalcAPI.h>

#include <algorithm>
#include <vector>

namespace tessel::testing {

/// Singular value decomposition of the real or complex matrix A; RWORK is used by the complex one alone.
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

/// Fewest elements of WORK.
inline Integer least_work(Complex, Integer m, Integer n)
{
    return std::max(1, 2 * std::min(m, n) + std::max(m, n));
}
inline Integer least_work(Real, Integer m, Integer n)
{
    return std::max({1, 3 * std::min(m, n) + std::max(m, n), 5 * std::min(m, n)});
}

/// Best number of elements of WORK, by a query.
template <class T>
Integer best_work(FDTDCalcAPI& api, char jobu, char jobvt, Integer m, Integer n)
{
    const Integer ld = std::max({1, m, n});
    T work = 0;
    Integer info = 77;
    gesvd(api, jobu, jobvt, m, n, static_cast<T*>(nullptr), ld, nullptr, nullptr, ld, nullptr, ld, &work, -1, nullptr,
          info);
    return info == 0 ? static_cast<Integer>(std::real(work)) : info;
}

} // namespace tessel::testing
