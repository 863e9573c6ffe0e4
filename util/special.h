/// Small special functions and random deviates.
#pragma once

#include "common/types.h"

#if defined(__clang__)
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage" // std::complex<double> comes back in xmm0 and xmm1
#endif

namespace tessel {

/// sin(x) / x, and 1 for |x| < 1e-30.
///
/// @param[in] X  argument in radians
/// @return       sin(x) / x; NaN if X is infinite or NaN
///
/// @par Errors   None.
/// @par State    None.
extern "C" Real SINC(const Real& X);

/// Fresnel integrals C(x) - i S(x) by rational approximation, to an absolute error of 2e-3 in each auxiliary function:
///
///     C(x) = integral of cos(pi t^2 / 2) from 0 to x,      S(x) the same of the sine; both odd.
///
/// @param[in] X  argument, without unit
/// @return       C(x) in the real part, -S(x) in the imaginary part; NaN if pi X^2 overflows or is NaN
///
/// @par Errors   None.
/// @par State    None.
/// @par Source   M. Abramowitz, I. A. Stegun, Handbook of Mathematical Functions, 7.3.9, 7.3.10, 7.3.32, 7.3.33.
extern "C" Complex FRESNEL_CS(const Real& X);

/// Phase of a complex number.
///
/// @param[in] Z  any value
/// @return       atan2(Im Z, Re Z) in radians, -pi..pi; 0 if |Z| < 1e-300; NaN if a part is NaN
///
/// @par Errors   None.
/// @par State    None.
extern "C" Real CPHASE(const Complex& Z);

/// Uniform deviate, from a linear congruential sequence whose values are shuffled by a table of 97.
///
/// @return  a deviate in [0, 1), a multiple of 1/714025
///
/// @par Errors   None.
/// @par State    One generator for the process, shared with GAUSS_RAN and unguarded: calls must not overlap. Every
///               process draws the same sequence; it cannot be seeded.
/// @par Source   W. H. Press et al., Numerical Recipes, 1st ed., sec. 7.1 (RAN2); C. Bays, S. D. Durham, Improving a
///               Poor Random Number Generator, ACM Trans. Math. Softw. 2 (1976) 59-64.
extern "C" Real RECIPES_RAN2();

/// Approximately normal deviate: the sum of twelve uniform ones, which has variance 1 and ends at six deviations.
///
/// @param[in] MEAN   mean
/// @param[in] SIGMA  standard deviation, in the unit of MEAN
/// @return           the deviate, within MEAN -+ 6 SIGMA
///
/// @par Errors   None.
/// @par State    Twelve draws of RECIPES_RAN2.
/// @par Source   P. Hall, Biometrika 19 (1927) 240-245 (the distribution of such a sum).
extern "C" Real GAUSS_RAN(const Real& MEAN, const Real& SIGMA);

} // namespace tessel
