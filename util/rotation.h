/// Rotation matrix of three angles.
#pragma once

#include "common/types.h"

namespace tessel {

/// Rotation into the frame whose first axis points along elevation THETA and azimuth PHI, rolled about it by PSI:
///
///         | 1   0   0 |   |  cT  0  sT |   |  cP sP  0 |
///     R = | 0  cS  sS | * |   0  1   0 | * | -sP cP  0 |      c, s: cosine, sine; T, P, S: THETA, PHI, PSI.
///         | 0 -sS  cS |   | -sT  0  cT |   |   0  0  1 |
///
/// Its rows are the axes of the new frame; R is orthogonal with determinant 1.
///
/// @param[in]  THETA  elevation in radians, |THETA| <= pi/2 (the bound, 1.5707963267948966, included)
/// @param[in]  PHI    azimuth in radians, any value
/// @param[in]  PSI    roll in radians, any value
/// @param[out] R      3 x 3, column-major; untouched on failure. An angle of NaN, and an infinite PHI or PSI, give
///                    entries of NaN, with success.
/// @param[out] ErrorFlag           0 on success, -1 on failure
/// @param[out] ErrorMessage        blanks on success, the text of the failure otherwise
/// @param[in]  ErrorMessageLength  characters of ErrorMessage, by value
///
/// The cosine and sine of THETA are taken from the complementary angle, so that three zero angles give the identity to
/// 6e-17, not exactly.
///
/// @par Errors   "Sub IHE_orig_ROT3D: input parameters out of bounds !" if |THETA| > pi/2.
/// @par State    None.
/// @par Source   H. Goldstein, Classical Mechanics, 2nd ed., sec. 4-4 (composition of rotations about the axes).
extern "C" void IHE_orig_ROT3D(const Real& THETA, const Real& PHI, const Real& PSI, Real* R, Integer& ErrorFlag,
                               char* ErrorMessage, CharLen ErrorMessageLength);

} // namespace tessel
