/// The smallest order at which a Prony fit is good enough.
#pragma once

#include "common/types.h"

namespace tessel {

/// Fits N samples with orders MMIN, MMIN + 1, ... up to min(MMAX, N/2) and stops at the first fit whose five error
/// measures are all within their tolerances. If MMIN exceeds N/2, the one order tried is N/2.
///
/// @param[in]  N     number of samples, 2 <= N <= NDIM
/// @param[in]  NDIM  declared length of Y
/// @param[in]  Y     samples, NDIM complex values
/// @param[in]  DT    sample spacing, > 0, in the user's unit of time; the fit asks for 1e-102 at least
/// @param[in]  MMIN  first order tried, 1 <= MMIN <= MMAX
/// @param[in]  MMAX  highest order allowed; declared length of RESIDUE and POLE
/// @param[in]  TOL_L2, TOL_RMS, TOL_PEAK, TOL_RMS_MEAN, TOL_PEAK_MEAN
///                   tolerances, each at least 1e-15, of the measures ERR_... of LEASTSQ_PRONY_SVD. A measure fails if
///                   it is greater; a measure that is NaN passes (all-zero samples give such), and so does any measure
///                   whose tolerance is NaN
/// @param[out] M        order of the last fit made
/// @param[out] RESIDUE  its residues, MMAX complex values of which M are written; in the unit of Y
/// @param[out] POLE     its poles, MMAX complex values of which M are written; in 1 / units of DT
/// @param[out] ErrorFlag           0 on success, -1 on failure
/// @param[out] ErrorMessage        blanks on success, the text of the failure otherwise
/// @param[in]  ErrorMessageLength  characters of ErrorMessage, by value; nothing is written if <= 0
///
/// The error does not fall steadily with the order, so a higher order than the one returned may be worse. A search that
/// fails returns the last fit, not the best one. Costs the sum of its fits and no storage besides theirs.
///
/// @par Errors
///   "Sub ADAPTIVE_PRONY: input parameters out of bounds !": nothing else is written.
///   "Sub ADAPTIVE_PRONY: best Prony fit is not good enough !": no order meets the tolerances; the outputs are those of
///   the highest order.
///   The text of LEASTSQ_PRONY_SVD or of a routine beneath it, if a fit fails: that ends the search. M is the order of
///   that fit; RESIDUE and POLE are as it left them, and do not belong together.
/// @par State    None.
/// @par Source   S. L. Marple, Digital Spectral Analysis, 1987, ch. 11 (the fit, and choosing its order by the
/// residual).
extern "C" void ADAPTIVE_PRONY(const Integer& N, const Integer& NDIM, const Complex* Y, const Real& DT,
                               const Integer& MMIN, const Integer& MMAX, const Real& TOL_L2, const Real& TOL_RMS,
                               const Real& TOL_PEAK, const Real& TOL_RMS_MEAN, const Real& TOL_PEAK_MEAN, Integer& M,
                               Complex* RESIDUE, Complex* POLE, Integer& ErrorFlag, char* ErrorMessage,
                               CharLen ErrorMessageLength);

} // namespace tessel
