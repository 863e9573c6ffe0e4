#include "util/legendre.h"

#include "common/complex_ops.h"
#include "common/status.h"
#include "common/views.h"

#include <cmath>

namespace tessel {

namespace {

/// P_n at x from p1 = P_(n-1) and p2 = P_(n-2).
Real next_degree(Real n, Real x, Real p1, Real p2)
{
    return ((2.0 * n - 1.0) * x * p1 - (n - 1.0) * p2) / n;
}

Complex next_degree(Real n, const Complex& z, const Complex& p1, const Complex& p2)
{
    const Complex numerator = multiply(multiply(2.0 * n - 1.0, z), p1) - multiply(n - 1.0, p2);
    return {numerator.real() / n, numerator.imag() / n};
}

/// Fills the table from degree 0, or from degree n1 on; false if a degree is out of bounds.
template <class T>
bool tabulate(const T& x, Index n1, Index n2, Index nmax, bool continued, const Table<T>& p)
{
    if (n1 < 0 || n1 > n2 || n2 > nmax || (continued && n1 < 2))
        return false;

    Index first = n1;
    if (!continued) {
        p(0) = 1.0;
        if (n2 > 0)
            p(1) = x;
        first = 2;
    }
    for (Index n = first; n <= n2; ++n)
        p(n) = next_degree(static_cast<Real>(n), x, p(n - 1), p(n - 2));
    return true;
}

} // namespace

extern "C" void NEW_PN0UOX(const Real& X, const Integer& N1, const Integer& N2, const Integer& NMAX,
                           const Logical& CONT, Real* P, Integer& ErrorFlag, char* ErrorMessage,
                           CharLen ErrorMessageLength)
{
    const Status status{ErrorFlag, ErrorMessage, ErrorMessageLength};
    const Real x = X;

    const bool in_range = std::fabs(x) <= 1.0; // false for NaN
    if (!in_range || !tabulate(x, N1, N2, NMAX, is_true(CONT), Table<Real>(P)))
        return status.fail("Sub NEW_PN0UOX: input parameters out of bounds !");
    status.succeed();
}

extern "C" void NEW_PN0UOZ(const Complex& Z, const Integer& N1, const Integer& N2, const Integer& NMAX,
                           const Logical& CONT, Complex* P, Integer& ErrorFlag, char* ErrorMessage,
                           CharLen ErrorMessageLength)
{
    const Status status{ErrorFlag, ErrorMessage, ErrorMessageLength};
    const Complex z = Z;

    if (!tabulate(z, N1, N2, NMAX, is_true(CONT), Table<Complex>(P)))
        return status.fail("Sub NEW_PN0UOZ: input parameters out of bounds !");
    status.succeed();
}

} // namespace tessel
