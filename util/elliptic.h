/// Complete elliptic integrals of the first and the second kind, and their derivatives, by polynomial and logarithm.
///
/// The argument of all four is the parameter x, the square of the modulus: K(x) is the integral of
/// (1 - x sin^2 t)^(-1/2) and E(x) that of (1 - x sin^2 t)^(1/2), for t from 0 to pi/2. With m1 = 1 - x,
///
///     K, E = A(m1) - B(m1) log(m1),      A and B of degree 4, absolute error at most 2e-8.
///
/// The derivatives are those of the approximations, to rounding; they are not bound by the 2e-8.
///
/// NaN gives NaN.
#pragma once

#include "common/types.h"

namespace tessel {

/// K(x), complete elliptic integral of the first kind.
///
/// @param[in] X  parameter, 0 <= x <= 0.999999999999999
/// @return       K(x), from pi/2 upwards
///
/// @par Errors   Ends the process with "Sub CELLIK_POL: argument x in K(x) out of range !" if x is out of range.
/// @par State    None.
/// @par Source   M. Abramowitz, I. A. Stegun, Handbook of Mathematical Functions, 17.3.34.
extern "C" Real CELLIK_POL(const Real& X);

/// E(x), complete elliptic integral of the second kind.
///
/// @param[in] X  parameter, 0 <= x <= 0.999999999999999
/// @return       E(x), from pi/2 down to 1
///
/// @par Errors   Ends the process with "Sub CELLIE_POL: argument x in E(x) out of range !" if x is out of range.
/// @par State    None.
/// @par Source   M. Abramowitz, I. A. Stegun, Handbook of Mathematical Functions, 17.3.36.
extern "C" Real CELLIE_POL(const Real& X);

/// Derivative of CELLIK_POL with respect to x.
///
/// @param[in] X  parameter, 0 <= x <= 0.999999999999999
/// @return       dK/dx of the approximation
///
/// @par Errors   Ends the process with "Sub D_CELLIK_POL: argument x in dK(x)/dx out of range !" if x is out of range.
/// @par State    None.
/// @par Source   M. Abramowitz, I. A. Stegun, Handbook of Mathematical Functions, 17.3.34, differentiated.
extern "C" Real D_CELLIK_POL(const Real& X);

/// Derivative of CELLIE_POL with respect to x.
///
/// @param[in] X  parameter, 0 <= x <= 0.999999999999999
/// @return       dE/dx of the approximation
///
/// @par Errors   Ends the process with "Sub D_CELLIE_POL: argument x in dE(x)/dx out of range !" if x is out of range.
/// @par State    None.
/// @par Source   M. Abramowitz, I. A. Stegun, Handbook of Mathematical Functions, 17.3.36, differentiated.
extern "C" Real D_CELLIE_POL(const Real& X);

} // namespace tessel
