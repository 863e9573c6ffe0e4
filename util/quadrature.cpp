#include "util/quadrature.h"

#include "common/elementary.h"
#include "common/views.h"

#include <cmath>

namespace tessel {

namespace {

constexpr Real kPi = 3.141592654; ///< of the initial guess: truncated, and kept so for the bits that follow from it
constexpr Real kTolerance = 3e-14;

/// A zero of P_n and the slope of P_n at the last but one iterate, from which the weight is formed.
struct Zero
{
    Real z, slope;
};

/// Newton's iteration for the zero of P_n next to z.
Zero find_zero(Index n, Real z)
{
    for (;;) {
        Real p1 = 1.0, p2 = 0.0; // P_j and P_(j-1)
        for (Index j = 1; j <= n; ++j) {
            const Real p3 = p2, degree = static_cast<Real>(j);
            p2 = p1;
            p1 = ((2.0 * degree - 1.0) * z * p2 - (degree - 1.0) * p3) / degree;
        }
        const Real slope = static_cast<Real>(n) * (z * p1 - p2) / (z * z - 1.0);
        const Real previous = z;
        z = previous - p1 / slope;
        const bool moving = std::fabs(z - previous) > kTolerance; // false for a NaN: it ends
        if (!moving)
            return {z, slope};
    }
}

} // namespace

extern "C" void LINEAR_GRID(const Real& A, const Real& B, const Integer& N, const void*, Real& H, Real* X)
{
    const Real a = A, b = B;
    const Index n = N;
    const Vector<Real> x(X);

    if (n == 0) {
        H = b - a;
        x(1) = (a + b) / 2.0;
        return;
    }
    const Real h = (b - a) / static_cast<Real>(n);
    H = h;
    for (Index i = 1; i <= n + 1; ++i)
        x(i) = a + static_cast<Real>(i - 1) * h;
}

extern "C" void RECIPES_GAULEG(const Real& X1, const Real& X2, Real* X, Real* W, const Integer& N)
{
    const Real x1 = X1, x2 = X2;
    const Index n = N;
    const Vector<Real> x(X), w(W);

    const Real middle = (x2 + x1) / 2.0, half_length = (x2 - x1) / 2.0;
    const Index half = (n + 1) / 2; // the zeros lie symmetrically; an odd n writes the middle one twice
    for (Index i = 1; i <= half; ++i) {
        const Real guess = sine_cosine(kPi * (static_cast<Real>(i) - 0.25) / (static_cast<Real>(n) + 0.5)).cosine;
        const auto [z, slope] = find_zero(n, guess);
        x(i) = middle - half_length * z;
        x(n + 1 - i) = middle + half_length * z;
        w(i) = 2.0 * half_length / ((1.0 - z * z) * (slope * slope));
        w(n + 1 - i) = w(i);
    }
}

} // namespace tessel
