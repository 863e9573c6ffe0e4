/// Zeros of a monic complex polynomial.
#pragma once

#include "common/types.h"

namespace tessel {

/// All zeros of p(z) = z^N + Coef(N) z^(N-1) + ... + Coef(2) z + Coef(1).
///
/// Zeros at the origin are split off; the others are found one by one with the three stages of the iteration of Jenkins
/// and Traub (no shift, fixed shift, variable shift), whose shift is the smallest of samples on a circle, and divided
/// out; the last two come in closed form. The cost grows as N^2.
///
/// A zero s is accepted when |p(s)| lies below the rounding bound n eps sum |p(k)| |s|^(k-1) of the polynomial p, of
/// degree n, that is left at that time. The accuracy is that of the problem up to degree 50 or so; beyond, dividing out
/// adds to the error (residuals of some 1000 N eps times the bound of the whole polynomial at degree 100 to 200). It
/// does so from degree 14 on where the zeros lie many decades apart. A zero of multiplicity q comes as a
/// cluster of q values within about eps^(1/q). Coefficients may lie anywhere between 1e-70 and 1e70.
///
/// Multiple zeros beside others can make the search fail: the shift stays between two zeros that dividing out has left
/// close together, until the limit is met. In a test on polynomials of degree 3 to 12 it failed for none with simple
/// zeros, 1 in 150 with a double one and 1 in 12 with a triple one. Fits of measured samples do not have such zeros.
///
/// @param[out] Z     zeros, N, filled from the high end: zeros at the origin first, then in the order found
/// @param[in]  Coef  coefficients, N, constant term first; not modified
/// @param[in]  N     degree; N < 1 counts as 1, so Z and Coef have at least one element
/// @param[out] W     element 1 receives (N, 0), nothing else is touched: work storage belongs to the call
/// @param[out] ErrorFlag           0 on success, -1 on failure
/// @param[out] ErrorMessage        blanks on success, the text of the failure otherwise
/// @param[in]  ErrorMessageLength  characters of ErrorMessage, by value
///
/// @par Errors
///   - "Sub NAPACK_CZERO: too many iterations necessary !": a zero was not found within the limit on samples, which
///     grows with the degree, or the iteration stalled or met a value that is not finite. A coefficient that is
///     not finite always gives this failure if more than two zeros are not at the origin. Z(n+1..N) then hold the zeros
///     found so far, Z(1..n) the coefficients of the polynomial that is left.
///   - "Sub NAPACK_CZERO: work storage not available !": about 1600 N bytes could not be allocated. Z holds the
///     zeros at the origin and the coefficients that are left.
/// @par State    None: results depend on the arguments alone.
/// @par Source   M. A. Jenkins, J. F. Traub, Numer. Math. 14 (1970) 252 (the three stages); D. A. Adams, Comm. ACM 10
///               (1967) 655 (stopping at the rounding bound).
extern "C" void NAPACK_CZERO(Complex* Z, const Complex* Coef, const Integer& N, Complex* W, Integer& ErrorFlag,
                             char* ErrorMessage, CharLen ErrorMessageLength);

/// One step of the H-polynomial iteration with the shift s:
///
///     H(z) := (p(z) - t H(z)) / (z - s),    t = p(s) / H(s).
///
/// If H(s) is exactly zero, H is first multiplied by z and cut to degree n - 1, as often as needed, but no more than n
/// times: after that the new H is NaN.
///
/// @param[in]     P      coefficients of the monic polynomial p of degree n, n, constant term first, leading 1 left out
/// @param[in,out] H      coefficients of H, n, constant term first, top coefficient written out; 1 on return
/// @param[in]     n      degree of p, at least 1
/// @param[out]    value  p(s) if r <= 1, p(s) / s^n if r > 1, which cannot overflow
/// @param[in]     s      shift
/// @param[in]     r      max(1, |s|)
///
/// @par State    None.
/// @par Source   M. A. Jenkins, J. F. Traub, Numer. Math. 14 (1970) 252.
extern "C" void HStep(const Complex* P, Complex* H, const Integer& n, Complex& value, const Complex& s, const Real& r);

} // namespace tessel
