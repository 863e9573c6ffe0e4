/// Tables of the Legendre polynomials, for a real and for a complex argument.
#pragma once

#include "common/types.h"

namespace tessel {

/// Legendre polynomials P_0 .. P_N2 at a real argument, by the recurrence over the degree
///
///     n P_n = (2n - 1) x P_(n-1) - (n - 1) P_(n-2),      P_0 = 1, P_1 = x.
///
/// @param[in]     X     argument, |X| <= 1; NaN is refused
/// @param[in]     N1    first degree when continuing, 0 <= N1 <= N2, and >= 2 when continuing; checked in every call
/// @param[in]     N2    last degree
/// @param[in]     NMAX  highest degree that P can hold, >= N2
/// @param[in]     CONT  false: a new table, from degree 0; true: degrees N1..N2 follow P_(N1-2) and P_(N1-1) as they
///                      are in P. Only the lowest bit counts.
/// @param[in,out] P     table, NMAX + 1, element n + 1 holds P_n; untouched on failure and beyond degree N2
/// @param[out] ErrorFlag           0 on success, -1 on failure
/// @param[out] ErrorMessage        blanks on success, the text of the failure otherwise
/// @param[in]  ErrorMessageLength  characters of ErrorMessage, by value
///
/// @par Errors   "Sub NEW_PN0UOX: input parameters out of bounds !" if an argument breaks a condition above.
/// @par State    None.
/// @par Source   M. Abramowitz, I. A. Stegun, Handbook of Mathematical Functions, 22.7.10.
extern "C" void NEW_PN0UOX(const Real& X, const Integer& N1, const Integer& N2, const Integer& NMAX,
                           const Logical& CONT, Real* P, Integer& ErrorFlag, char* ErrorMessage,
                           CharLen ErrorMessageLength);

/// Legendre polynomials P_0 .. P_N2 at a complex argument, by the recurrence of NEW_PN0UOX.
///
/// @param[in]     Z     argument, any value
/// @param[in]     N1, N2, NMAX, CONT  as for NEW_PN0UOX
/// @param[in,out] P     table, NMAX + 1, element n + 1 holds P_n; untouched on failure and beyond degree N2
/// @param[out] ErrorFlag           0 on success, -1 on failure
/// @param[out] ErrorMessage        blanks on success, the text of the failure otherwise
/// @param[in]  ErrorMessageLength  characters of ErrorMessage, by value
///
/// @par Errors   "Sub NEW_PN0UOZ: input parameters out of bounds !" if an argument breaks a condition above.
/// @par State    None.
/// @par Source   M. Abramowitz, I. A. Stegun, Handbook of Mathematical Functions, 22.7.10.
extern "C" void NEW_PN0UOZ(const Complex& Z, const Integer& N1, const Integer& N2, const Integer& NMAX,
                           const Logical& CONT, Complex* P, Integer& ErrorFlag, char* ErrorMessage,
                           CharLen ErrorMessageLength);

} // namespace tessel
