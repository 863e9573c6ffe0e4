/// Least-squares solution from a singular value decomposition.
#pragma once

#include "common/types.h"

namespace tessel {

/// Least-squares solution of A x = b from the singular value decomposition A = U diag(W) V^H:
///
///     x = V diag(1/W) U^H b,      components with W(j) = 0 left out.
///
/// @param[in]  U   left singular vectors, MP x N, M rows, column-major
/// @param[in]  W   singular values, N; an exact zero (of either sign, in both parts) drops its component
/// @param[in]  V   right singular vectors, NP x N, N rows
/// @param[in]  M   number of rows of A; M <= 0 makes every sum empty
/// @param[in]  N   number of unknowns, at most 5000; N <= 0 does nothing
/// @param[in]  MP  leading dimension of U, >= M
/// @param[in]  NP  leading dimension of V, >= N
/// @param[in]  B   right-hand side, M
/// @param[out] X   solution, N; untouched on failure
/// @param[out] ErrorFlag           0 on success, -1 on failure
/// @param[out] ErrorMessage        blanks on success, the text of the failure otherwise
/// @param[in]  ErrorMessageLength  characters of ErrorMessage, by value
///
/// @par Errors   "Sub RECIPES_SVBKSB: input parameters out of bounds !" if N > NP, N > 5000 or M > MP.
/// @par State    None: the temporary belongs to the call (80 KB of its stack at most).
/// @par Source   G. H. Golub, C. F. Van Loan, Matrix Computations, 4th ed., sec. 5.5 (truncated SVD solution).
extern "C" void RECIPES_SVBKSB(const Complex* U, const Complex* W, const Complex* V, const Integer& M, const Integer& N,
                               const Integer& MP, const Integer& NP, const Complex* B, Complex* X, Integer& ErrorFlag,
                               char* ErrorMessage, CharLen ErrorMessageLength);

} // namespace tessel
