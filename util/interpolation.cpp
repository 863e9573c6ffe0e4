#include "util/interpolation.h"

#include "common/status.h"
#include "common/stop.h"
#include "common/views.h"

namespace tessel {

extern "C" void FIND_INTERVAL(const Real* X, const Integer& N, const Real& XV, Integer& I)
{
    const Index n = N;
    const Real xv = XV;
    const Vector<const Real> x(X);

    if (n < 1 || x(1) >= x(n)) // false if an end is NaN: such a table is accepted
        stop("Sub FIND_INTERVAL: input error !");
    if (xv < x(1)) {
        I = 0;
        return;
    }
    if (xv > x(n)) {
        I = N;
        return;
    }

    // Keeps x(lo) <= xv <= x(hi). A NaN goes to the left, down to the first interval.
    Index lo = 1, hi = n;
    while (hi - lo > 1) {
        const Index mid = (lo + hi) / 2;
        if (xv >= x(mid)) // >= starts an interval at its own node
            lo = mid;
        else
            hi = mid;
    }

    // Negated, so that NaN passes.
    const bool holds = lo < n && !(x(lo) > xv) && !(xv > x(lo + 1));
    if (!holds)
        stop("Sub FIND_INTERVAL: fatal error in algorithm !");
    I = static_cast<Integer>(lo);
}

extern "C" void LAGRANGE_COEFF(const Real& X, const Real* XN, const Integer& N, Real* W, Integer& ErrorFlag,
                               char* ErrorMessage, CharLen ErrorMessageLength)
{
    const Status status{ErrorFlag, ErrorMessage, ErrorMessageLength};
    const Real x = X;
    const Index n = N;
    const Table<const Real> node(XN);
    const Table<Real> w(W);

    if (n < 0 || node(0) > x || x > node(n)) // NaN passes
        return status.fail("Sub LAGRANGE_COEFF: abszissa x out of range x0...xN !");

    // The factors of a weight enter in ascending order, the product before the quotient: the bits depend on it.
    for (Index i = 0; i <= n; ++i) {
        Real weight = 1.0;
        for (Index j = 0; j < i; ++j)
            weight = weight * (x - node(j)) / (node(i) - node(j));
        for (Index j = i + 1; j <= n; ++j)
            weight = weight * (x - node(j)) / (node(i) - node(j));
        w(i) = weight;
    }
    status.succeed();
}

} // namespace tessel
