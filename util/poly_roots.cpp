#include "util/poly_roots.h"

#include "common/polynomial.h"

#include <cmath>
#include <complex>

namespace tessel {

namespace {

/// sqrt(b^2 - 4 c). A b that prevails is divided out first, or its square could overflow.
Complex discriminant_root(const Complex& b, const Complex& c)
{
    const Real size = abs1(b);
    const Complex q = multiply(4.0, c);
    if (size > std::sqrt(abs1(q))) {
        const Real inverse = 1.0 / size;
        const Complex scaled = multiply(inverse, b);
        return multiply(size, std::sqrt(multiply(scaled, scaled) - multiply(inverse, multiply(inverse, q))));
    }
    return std::sqrt(multiply(b, b) - q);
}

} // namespace

extern "C" Real CSIZE(const Complex& Z)
{
    return abs1(Z);
}

extern "C" void CQUAD_ROOTS(Complex& B, Complex& C)
{
    const Complex b = B, c = C, d = discriminant_root(b, c);
    const Complex plus = d - b, minus = -(d + b);
    const Complex w = abs1(plus) < abs1(minus) ? minus : plus; // a tie takes the plus
    if (abs1(w) == 0.0)
        return;
    B = multiply(0.5, w);
    if (abs1(c) != 0.0 || multiply(w, std::conj(w)).real() != 0.0) // 0/0 stands for the zero root of a tiny B
        C = divide_plain(multiply(2.0, c), w);
}

extern "C" void CSCALE_EXP(const Complex* A, Complex* M, Complex* EXPO, const Integer& N, const Real& BASE,
                           const Real& RBASE)
{
    const Index n = N;
    const Real base = BASE, inverse_base = RBASE;
    for (Index i = 0; i < n; ++i) {
        const Scaled scaled = scale(A[i], base, inverse_base);
        M[i] = scaled.mantissa;
        EXPO[i] = Complex(scaled.exponent, 0.0);
    }
}

extern "C" void CPOLY_BOUND(const Complex* A, const Integer& N, const Real& R, Real& BOUND)
{
    BOUND = circle_bound<Real>(A, N, R);
}

} // namespace tessel
