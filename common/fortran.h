/// The foreign calling convention, in one place: every BLAS, LAPACK, ARPACK and MINPACK routine that the library or
/// its tests call is declared here and nowhere else.
///
/// The provider's compiler (gfortran 8 and later) appends one underscore to lower-case names, passes every argument
/// by reference, takes the length of each character argument as a std::size_t, by value, after all other arguments,
/// tests a LOGICAL for exactly 0 or 1, and returns a complex value in two floating-point registers.
#pragma once

#include "common/types.h"

#if defined(__clang__)
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage" // std::complex<double> comes back in xmm0 and xmm1
#endif

namespace tessel::fortran {

using Length = std::size_t;

extern "C" {
// BLAS, level 1
double dznrm2_(const Integer* n, const Complex* x, const Integer* incx);
void zscal_(const Integer* n, const Complex* a, Complex* x, const Integer* incx);
Complex zdotc_(const Integer* n, const Complex* x, const Integer* incx, const Complex* y, const Integer* incy);
void zaxpy_(const Integer* n, const Complex* a, const Complex* x, const Integer* incx, Complex* y, const Integer* incy);
void drotg_(double* a, double* b, double* c, double* s);
void zdrot_(const Integer* n, Complex* x, const Integer* incx, Complex* y, const Integer* incy, const double* c,
            const double* s);
void zswap_(const Integer* n, Complex* x, const Integer* incx, Complex* y, const Integer* incy);

// LAPACK
void zgesvd_(const char* jobu, const char* jobvt, const Integer* m, const Integer* n, Complex* a, const Integer* lda,
             double* s, Complex* u, const Integer* ldu, Complex* vt, const Integer* ldvt, Complex* work,
             const Integer* lwork, double* rwork, Integer* info, Length jobu_length, Length jobvt_length);
void zgeev_(const char* jobvl, const char* jobvr, const Integer* n, Complex* a, const Integer* lda, Complex* w,
            Complex* vl, const Integer* ldvl, Complex* vr, const Integer* ldvr, Complex* work, const Integer* lwork,
            double* rwork, Integer* info, Length jobvl_length, Length jobvr_length);
}

// The level-1 operations with unit stride, which is all that the routines use.

inline Real dznrm2(Index n, const Complex* x)
{
    const Integer count = static_cast<Integer>(n), one = 1;
    return dznrm2_(&count, x, &one);
}

inline void zscal(Index n, Complex a, Complex* x)
{
    const Integer count = static_cast<Integer>(n), one = 1;
    zscal_(&count, &a, x, &one);
}

/// sum conj(x) y
inline Complex zdotc(Index n, const Complex* x, const Complex* y)
{
    const Integer count = static_cast<Integer>(n), one = 1;
    return zdotc_(&count, x, &one, y, &one);
}

/// y := y + a x
inline void zaxpy(Index n, Complex a, const Complex* x, Complex* y)
{
    const Integer count = static_cast<Integer>(n), one = 1;
    zaxpy_(&count, &a, x, &one, y, &one);
}

/// Plane rotation with c f + s g = r, c g - s f = 0; on return f = r and g is the reconstruction value.
inline void drotg(Real& f, Real& g, Real& c, Real& s)
{
    drotg_(&f, &g, &c, &s);
}

/// x := c x + s y, y := c y - s x
inline void zdrot(Index n, Complex* x, Complex* y, Real c, Real s)
{
    const Integer count = static_cast<Integer>(n), one = 1;
    zdrot_(&count, x, &one, y, &one, &c, &s);
}

inline void zswap(Index n, Complex* x, Complex* y)
{
    const Integer count = static_cast<Integer>(n), one = 1;
    zswap_(&count, x, &one, y, &one);
}

} // namespace tessel::fortran
