/// Tabulated data: the interval that holds an abscissa, and the weights of Lagrange interpolation.
#pragma once

#include "common/types.h"

namespace tessel {

/// Interval of an ascending table that holds an abscissa, by bisection:
///
///     X(I) <= XV < X(I + 1),      XV = X(N) belongs to the last interval, I = N - 1.
///
/// @param[in]  X   abscissae, N, ascending; the unit is the caller's
/// @param[in]  N   number of entries, at least 2
/// @param[in]  XV  the abscissa, in the unit of X; NaN gives I = 1
/// @param[out] I   the interval, 1..N-1; 0 if XV lies below the table, N if above
///
/// @par Errors   Ends the process with "Sub FIND_INTERVAL: input error !" if X(1) >= X(N) or N < 1, and with
///               "Sub FIND_INTERVAL: fatal error in algorithm !" if the interval found does not hold XV, as for a
///               single entry that is NaN. NaN at the ends of longer tables is accepted. The order between the ends is
///               not checked.
/// @par State    None.
/// @par Source   D. E. Knuth, The Art of Computer Programming, vol. 3, 2nd ed., sec. 6.2.1 (binary search).
extern "C" void FIND_INTERVAL(const Real* X, const Integer& N, const Real& XV, Integer& I);

/// Weights of Lagrange interpolation, so that the interpolated value is sum W(i) y(i), i = 0..N:
///
///     W(i) = prod (X - XN(j)) / (XN(i) - XN(j)),      j = 0..N, j /= i.
///
/// @param[in]  X   the abscissa, within the closed range XN(0)..XN(N); NaN, in X or in the ends, passes
///                 this test
/// @param[in]  XN  nodes, N + 1, in the unit of X; the first and the last are the ends of the range
/// @param[in]  N   degree of the interpolating polynomial, at least 0; the cost grows as N^2
/// @param[out] W   weights, N + 1, without unit; untouched on failure. Two equal nodes give weights that are infinite
///                 or NaN, and an X of NaN gives such weights from degree 1 on, both with success
/// @param[out] ErrorFlag           0 on success, -1 on failure
/// @param[out] ErrorMessage        blanks on success, the text of the failure otherwise
/// @param[in]  ErrorMessageLength  characters of ErrorMessage, by value
///
/// @par Errors   "Sub LAGRANGE_COEFF: abszissa x out of range x0...xN !" if X < XN(0) or X > XN(N), or if N < 0: no
///               node spans no range.
/// @par State    None.
/// @par Source   M. Abramowitz, I. A. Stegun, Handbook of Mathematical Functions, 25.2.2.
extern "C" void LAGRANGE_COEFF(const Real& X, const Real* XN, const Integer& N, Real* W, Integer& ErrorFlag,
                               char* ErrorMessage, CharLen ErrorMessageLength);

} // namespace tessel
