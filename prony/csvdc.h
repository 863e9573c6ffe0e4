/// Singular value decomposition of a complex matrix.
#pragma once

#include "common/types.h"

namespace tessel {

/// X = U diag(S) V^H of an N x P matrix with N >= P, by Householder reduction to bidiagonal form and implicit-shift QR
/// iteration on the real bidiagonal form.
///
/// @param[in]     JOB   two digits AB. A = JOB mod 100 / 10: 0 no left vectors, 1 all N of them, 2 or more the first P,
///                      negative all N. B = JOB mod 10: 0 no right vectors, otherwise all P of them.
/// @param[in]     N     number of rows
/// @param[in]     P     number of columns, 1 <= P <= N
/// @param[in,out] X     the matrix, LDX x P, column-major; destroyed
/// @param[in]     LDX   leading dimension of X, >= N
/// @param[out]    U     left singular vectors, LDU x N or LDU x P; not referenced for A = 0. May be X itself, with
///                      LDU = LDX, for A >= 2
/// @param[in]     LDU   leading dimension of U, >= N
/// @param[out]    S     singular values, P, as complex values with imaginary part 0: non-negative, not increasing
/// @param[out]    V     right singular vectors, LDV x P, P rows; not referenced for B = 0
/// @param[in]     LDV   leading dimension of V, >= P
/// @param[out]    WORK  scratch, N
/// @param[out]    E     super-diagonal of the final bidiagonal form, P: zero on success
/// @param[out]    INFO  0, or the order of the part that did not converge: S(INFO+1..P) and their vectors are right
/// @param[out]    ErrorFlag           0 on success, -1 on failure
/// @param[out]    ErrorMessage        blanks on success, the text of the failure otherwise
/// @param[in]     ErrorMessageLength  characters of ErrorMessage, by value
///
/// Entries must lie within about 1e-153..1e153: quotients are not rescaled. P < 1 returns at once with success. Each
/// singular value gets at most 30 QR steps. Matrices of 40 columns or more whose elements decrease by some tens of
/// decades from the first row and column to the last can reach that limit; so do a few small ones, because of the sign
/// of the shift.
/// No allocation, no state; about 150 KiB of stack.
///
/// The results have the same bits on every processor: those of the steps done one after the other on the published
/// reference BLAS. A matrix whose imaginary parts are all zero is decomposed in real arithmetic, with the values of
/// complex arithmetic; every zero of its results has the sign plus. Elements beyond 1e140, or not finite, and squares
/// of divisors that underflow or overflow lead to complex arithmetic again, so that the status is the same, too.
///
/// @par Errors
///   "Sub SLATEC_CSVDC: SVD here only implemented for N>=P !": nothing else is written, not even INFO.
///   "Sub SLATEC_CSVDC: not all singular values are correct !": a limit was met, see INFO.
/// @par Source
///   G. H. Golub, C. Reinsch, Numer. Math. 14 (1970) 403; J. J. Dongarra et al., LINPACK Users' Guide, SIAM 1979,
///   ch. 11.
extern "C" void SLATEC_CSVDC(const Integer& JOB, const Integer& N, const Integer& P, Complex* X, const Integer& LDX,
                             Complex* U, const Integer& LDU, Complex* S, Complex* V, const Integer& LDV, Complex* WORK,
                             Complex* E, Integer& INFO, Integer& ErrorFlag, char* ErrorMessage,
                             CharLen ErrorMessageLength);

} // namespace tessel
