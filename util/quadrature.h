/// Abscissae on an interval: equally spaced, and those of Gauss-Legendre quadrature.
#pragma once

#include "common/types.h"

namespace tessel {

/// Equally spaced points, X(i) = A + (i - 1) H with H = (B - A) / N, each computed from A.
///
/// @param[in]  A, B   ends of the interval
/// @param[in]  N      number of steps. N = 0 gives the midpoint alone, X(1) = (A + B) / 2, and H = B - A; N < 0 writes
///                    H alone.
/// @param[in]  SPARE  never read
/// @param[out] H      step, in the unit of A and B
/// @param[out] X      points, N + 1; the last equals B to rounding
///
/// @par Errors   None.
/// @par State    None.
extern "C" void LINEAR_GRID(const Real& A, const Real& B, const Integer& N, const void* SPARE, Real& H, Real* X);

/// Nodes and weights of Gauss-Legendre quadrature, exact for polynomials of degree 2N - 1:
///
///     integral of f from X1 to X2  =  sum W(i) f(X(i)),      i = 1..N.
///
/// The zeros of P_N are found by Newton's iteration, until a step is at most 3e-14: they are then good to rounding. The
/// weights come from the slope before the last step; towards the ends of the interval their relative error grows, to
/// 2e-12 at N = 100 and 1e-9 at N = 1000. The cost grows as N^2.
///
/// @param[in]  X1, X2  limits of integration, finite
/// @param[out] X       nodes, N, ascending when X1 < X2
/// @param[out] W       weights, N; negative when X1 > X2
/// @param[in]  N       number of nodes; N <= 0 writes nothing
///
/// @par Errors   None.
/// @par State    None.
/// @par Source   M. Abramowitz, I. A. Stegun, Handbook of Mathematical Functions, 25.4.30 (the rule) and 22.16.6 (the
///               initial guess); W. H. Press et al., Numerical Recipes, 2nd ed., sec. 4.5.
extern "C" void RECIPES_GAULEG(const Real& X1, const Real& X2, Real* X, Real* W, const Integer& N);

} // namespace tessel
