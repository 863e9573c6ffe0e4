/// Evaluation of a complex polynomial with its companions, and a correction step towards a zero.
#pragma once

#include "common/types.h"

namespace tessel {

/// Evaluates at z, and then corrects z:
///
///     p(z) = z^N + A(N) z^(N-1) + ... + A(1),    h(z) = sum_k H(k) z^(k-1),    g(z) = sum_k G(k) z^(k-1),
///     bound = |z|^N + sum_k re(W(k)) |z|^(k-1),
///     z := z - a b / (b - a),    a = p/h, b = h/g.
///
/// With h = p' and g = p'' that is Newton's step for p/p', which converges quadratically to multiple zeros too. Where
/// g(z) = 0 it is Newton's step z - a. Where p(z) = 0, h(z) = 0 or a = b, z stays as it is.
///
/// For |z| > 1 all values are divided by z^N (the bound by |z|^N) and formed through the reversed polynomials, which
/// cannot overflow; the step does not depend on the common factor. 1/z is formed as conj(z) / |z|^2: from |z| = 1e154
/// on it is zero, and z stays as it is. The quotients of the step are plain ones; a divisor whose modulus lies outside
/// 1e-153..1e153 may give a step that is zero or NaN. A z that is not finite gives NaN.
///
/// @param[in]     A      coefficients of p, N, constant term first, leading 1 left out
/// @param[in]     H      coefficients of h, N
/// @param[in]     G      coefficients of g, N
/// @param[in]     W      weights of the bound, N, in the real parts; imaginary parts are not read
/// @param[in]     N      degree, at least 1
/// @param[in,out] Z      the point; on return the corrected one
/// @param[out]    PZ     p at the entry Z, scaled as above
/// @param[out]    PSIZE  |re(PZ)| + |im(PZ)|
/// @param[out]    BOUND  bound at the entry Z, scaled as above
///
/// @par Errors   None; arguments are not checked.
/// @par State    None.
/// @par Source   J. F. Traub, Iterative Methods for the Solution of Equations, 1964, ch. 7 (multiple zeros).
extern "C" void CPOLY_EVAL_STEP(const Complex* A, const Complex* H, const Complex* G, const Complex* W,
                                const Integer& N, Complex& Z, Complex& PZ, Real& PSIZE, Real& BOUND);

} // namespace tessel
