/// Kernels around the zeros of complex polynomials: size, quadratic, scaling and bound.
///
/// The size of a complex value is |re| + |im|. None of the routines checks its arguments or reports errors, and none
/// keeps state.
#pragma once

#include "common/types.h"

namespace tessel {

/// Size of a complex number, |re(Z)| + |im(Z)|.
///
/// @param[in] Z  any value
/// @return       its size
extern "C" Real CSIZE(const Complex& Z);

/// Zeros of z^2 + B z + C:
///
///     w = -B +- sqrt(B^2 - 4 C), of the two signs the one that does not cancel,    B := w / 2,    C := 2 C / w.
///
/// Where the size of B exceeds sqrt(size(4 C)), B is divided out of the root by its size: B^2 may overflow, size(B) and
/// 4 C may not. The quotient is the plain one, which wants |w| between 1e-153 and 1e153: beyond, the smaller zero comes
/// out as zero or NaN. C = 0 gives -B and 0 at any magnitude.
///
/// @param[in,out] B  coefficient of z; on return the zero of the larger size. Two equally large: the one with the plus
/// @param[in,out] C  constant term; on return the other zero. B = C = 0 stay as they are
///
/// @par Source  N. J. Higham, Accuracy and Stability of Numerical Algorithms, 2nd ed., sec. 1.8.
extern "C" void CQUAD_ROOTS(Complex& B, Complex& C);

/// Splits coefficients into mantissas and exponents, A(i) = M(i) BASE^EXPO(i) with 1/BASE < size(M(i)) <= 1.
///
/// Zero keeps exponent 0, as does an element whose size is not finite: it passes as it is. Below a base of 1.5 a
/// subnormal element may be out of reach, and its scaling ends where a multiplication no longer changes it. The cost
/// grows as 1 / log BASE.
///
/// @param[in]  A      values, N
/// @param[out] M      mantissas, N; may be A itself
/// @param[out] EXPO   exponents, N, integers in the real parts, imaginary parts 0
/// @param[in]  N      number of values; N <= 0 does nothing
/// @param[in]  BASE   base, above 1; a power of two makes the splitting exact, short of parts that become subnormal
/// @param[in]  RBASE  1 / BASE
extern "C" void CSCALE_EXP(const Complex* A, Complex* M, Complex* EXPO, const Integer& N, const Real& BASE,
                           const Real& RBASE);

/// Bound of |p(z)| on the circle |z| = R, p(z) = z^N + A(N) z^(N-1) + ... + A(1):
///
///     BOUND = R^N + sum_k size(A(k)) R^(k-1) if R <= 1,    the same divided by R^N if R > 1.
///
/// The powers of R cannot overflow; a sum of huge coefficients can.
///
/// @param[in]  A      coefficients, N, constant term first
/// @param[in]  N      degree, at least 1
/// @param[in]  R      radius; the first formula also takes a negative one and NaN
/// @param[out] BOUND  the bound
extern "C" void CPOLY_BOUND(const Complex* A, const Integer& N, const Real& R, Real& BOUND);

} // namespace tessel
