#include "util/poly_roots.h"

#include "common/polynomial.h"

namespace tessel {

extern "C" Real CSIZE(const Complex& Z)
{
    return abs1(Z);
}

extern "C" void CQUAD_ROOTS(Complex& B, Complex& C)
{
    solve_quadratic(B, C);
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
