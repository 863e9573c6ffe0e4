/// Elementary functions whose bits do not depend on the processor.
///
/// Those of the C library do: it selects variants of the double-precision ones by processor, with fused products or
/// without, and most of the extended ones are instructions whose last bits differ by manufacturer. The functions here
/// use +, -, *, / and the square root alone, which are correctly rounded everywhere. Special values are those of C.
///
/// Errors in units of the last place, the largest seen in comparisons with 400 bits: logarithm of a real 0.54,
/// exponential 0.72, in extended precision 0.60, of a complex number there 2.3, all others 0.501.
#pragma once

#include "common/types.h"

namespace tessel {

/// log(x): -infinity at zero, NaN below.
Real logarithm(Real x) noexcept;

/// Principal branch of log(z). Next to the unit circle too log|z| has its full relative accuracy.
Complex logarithm(const Complex& z) noexcept;

/// exp(x)
Real exponential(Real x) noexcept;

/// exp(x) in extended precision.
Extended exponential(Extended x) noexcept;

/// exp(z) in extended precision: exp(Re z) times the cosine and the sine of Im z.
std::complex<Extended> exponential(const std::complex<Extended>& z) noexcept;

/// Angle of the point (x, y) in radians, -pi..pi. Signs of zeros count.
Real arc_tangent(Real y, Real x) noexcept;

struct SineCosine
{
    Real sine, cosine;
};

/// Sine and cosine of an angle in radians.
SineCosine sine_cosine(Real x) noexcept;

} // namespace tessel
