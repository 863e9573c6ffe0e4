/// The level-1 operations of the plain routines, with unit stride: those of the published reference BLAS, or with
/// TESSEL_PLAIN_ON_OPENBLAS those of the BLAS that is linked. The rotation is written here, without the complex
/// products that the reference forms with its real factors.
#pragma once

#include "common/fortran.h"

#ifdef TESSEL_PLAIN_ON_OPENBLAS
#define TESSEL_LEVEL1(name) fortran::name##_
#else
#define TESSEL_LEVEL1(name) fortran::reference_##name##_
#endif

namespace tessel::reference {

inline Real dznrm2(Index n, const Complex* x)
{
    const Integer count = static_cast<Integer>(n), one = 1;
    return TESSEL_LEVEL1(dznrm2)(&count, x, &one);
}

inline void zscal(Index n, Complex a, Complex* x)
{
    const Integer count = static_cast<Integer>(n), one = 1;
    TESSEL_LEVEL1(zscal)(&count, &a, x, &one);
}

/// sum conj(x) y
inline Complex zdotc(Index n, const Complex* x, const Complex* y)
{
    const Integer count = static_cast<Integer>(n), one = 1;
    return TESSEL_LEVEL1(zdotc)(&count, x, &one, y, &one);
}

/// y := y + a x
inline void zaxpy(Index n, Complex a, const Complex* x, Complex* y)
{
    const Integer count = static_cast<Integer>(n), one = 1;
    TESSEL_LEVEL1(zaxpy)(&count, &a, x, &one, y, &one);
}

/// Plane rotation with c f + s g = r, c g - s f = 0; on return f = r and g is the reconstruction value.
inline void drotg(Real& f, Real& g, Real& c, Real& s)
{
    TESSEL_LEVEL1(drotg)(&f, &g, &c, &s);
}

inline void zswap(Index n, Complex* x, Complex* y)
{
    const Integer count = static_cast<Integer>(n), one = 1;
    TESSEL_LEVEL1(zswap)(&count, x, &one, y, &one);
}

/// x := c x + s y, y := c y - s x
inline void zdrot(Index n, Complex* x, Complex* y, Real c, Real s)
{
#ifdef TESSEL_PLAIN_ON_OPENBLAS
    const Integer count = static_cast<Integer>(n), one = 1;
    fortran::zdrot_(&count, x, &one, y, &one, &c, &s);
#else
    for (Index i = 0; i < n; ++i) {
        const Complex rotated = c * x[i] + s * y[i];
        y[i] = c * y[i] - s * x[i];
        x[i] = rotated;
    }
#endif
}

} // namespace tessel::reference

#undef TESSEL_LEVEL1
