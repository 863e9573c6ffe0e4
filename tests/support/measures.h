/// Scaled measures of numerical results.
#pragma once

#include "common/types.h"

#include <cmath>
#include <complex>
#include <limits>

namespace tessel::testing {

constexpr Real kEps = std::numeric_limits<Real>::epsilon();

/// The larger of two figures; NaN is the largest.
inline Real worse(Real a, Real b)
{
    return a <= b || std::isnan(b) ? b : a;
}

/// max |Q^H Q - 1| for `count` vectors of a length. Elements lie `step` apart, vectors `next`.
template <class T>
Real departure_from_orthonormal(const T* q, Index length, Index step, Index count, Index next)
{
    Real worst = 0.0;
    for (Index k = 0; k < count; ++k)
        for (Index l = 0; l <= k; ++l) {
            Complex sum = k == l ? -1.0 : 0.0;
            for (Index i = 0; i < length; ++i)
                sum += std::conj(Complex(q[i * step + k * next])) * q[i * step + l * next];
            worst = worse(worst, std::abs(sum));
        }
    return worst;
}

} // namespace tessel::testing
