/// The Fortran calling convention: every BLAS, LAPACK, ARPACK and MINPACK routine that the library or its tests call is
/// declared here and nowhere else.
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

/// A system of equations for HYBRJ1: FCN(N, X, FVEC, FJAC, LDFJAC, IFLAG).
using HybridFunction = void (*)(const Integer* n, const Real* x, Real* fvec, Real* fjac, const Integer* ldfjac,
                                Integer* iflag);

extern "C" {
// The reference BLAS's own routines, under names of their own: their bits do not depend on the processor
double reference_dnrm2_(const Integer* n, const Real* x, const Integer* incx);
double reference_dznrm2_(const Integer* n, const Complex* x, const Integer* incx);
void reference_zscal_(const Integer* n, const Complex* a, Complex* x, const Integer* incx);
Complex reference_zdotc_(const Integer* n, const Complex* x, const Integer* incx, const Complex* y,
                         const Integer* incy);
void reference_zaxpy_(const Integer* n, const Complex* a, const Complex* x, const Integer* incx, Complex* y,
                      const Integer* incy);
void reference_drotg_(double* a, double* b, double* c, double* s);
void reference_zswap_(const Integer* n, Complex* x, const Integer* incx, Complex* y, const Integer* incy);

// BLAS, level 1
double dznrm2_(const Integer* n, const Complex* x, const Integer* incx);
void zscal_(const Integer* n, const Complex* a, Complex* x, const Integer* incx);
Complex zdotc_(const Integer* n, const Complex* x, const Integer* incx, const Complex* y, const Integer* incy);
void zaxpy_(const Integer* n, const Complex* a, const Complex* x, const Integer* incx, Complex* y, const Integer* incy);
void drotg_(double* a, double* b, double* c, double* s);
void zdrot_(const Integer* n, Complex* x, const Integer* incx, Complex* y, const Integer* incy, const double* c,
            const double* s);
void zswap_(const Integer* n, Complex* x, const Integer* incx, Complex* y, const Integer* incy);

// BLAS, level 2
void zgemv_(const char* trans, const Integer* m, const Integer* n, const Complex* alpha, const Complex* a,
            const Integer* lda, const Complex* x, const Integer* incx, const Complex* beta, Complex* y,
            const Integer* incy, Length trans_length);

// LAPACK
void zgesvd_(const char* jobu, const char* jobvt, const Integer* m, const Integer* n, Complex* a, const Integer* lda,
             double* s, Complex* u, const Integer* ldu, Complex* vt, const Integer* ldvt, Complex* work,
             const Integer* lwork, double* rwork, Integer* info, Length jobu_length, Length jobvt_length);
void zgesdd_(const char* jobz, const Integer* m, const Integer* n, Complex* a, const Integer* lda, double* s,
             Complex* u, const Integer* ldu, Complex* vt, const Integer* ldvt, Complex* work, const Integer* lwork,
             double* rwork, Integer* iwork, Integer* info, Length jobz_length);
void zgeev_(const char* jobvl, const char* jobvr, const Integer* n, Complex* a, const Integer* lda, Complex* w,
            Complex* vl, const Integer* ldvl, Complex* vr, const Integer* ldvr, Complex* work, const Integer* lwork,
            double* rwork, Integer* info, Length jobvl_length, Length jobvr_length);
void dgesvd_(const char* jobu, const char* jobvt, const Integer* m, const Integer* n, double* a, const Integer* lda,
             double* s, double* u, const Integer* ldu, double* vt, const Integer* ldvt, double* work,
             const Integer* lwork, Integer* info, Length jobu_length, Length jobvt_length);
void zgesv_(const Integer* n, const Integer* nrhs, Complex* a, const Integer* lda, Integer* ipiv, Complex* b,
            const Integer* ldb, Integer* info);

// ARPACK, and its common block of trace levels
void dnaupd_(Integer* ido, const char* bmat, const Integer* n, const char* which, const Integer* nev, double* tol,
             double* resid, const Integer* ncv, double* v, const Integer* ldv, Integer* iparam, Integer* ipntr,
             double* workd, double* workl, const Integer* lworkl, Integer* info, Length bmat_length,
             Length which_length);
void dneupd_(const Logical* rvec, const char* howmny, Logical* select, double* dr, double* di, double* z,
             const Integer* ldz, const double* sigmar, const double* sigmai, double* workev, const char* bmat,
             const Integer* n, const char* which, const Integer* nev, double* tol, double* resid, const Integer* ncv,
             double* v, const Integer* ldv, Integer* iparam, Integer* ipntr, double* workd, double* workl,
             const Integer* lworkl, Integer* info, Length howmny_length, Length bmat_length, Length which_length);
extern Integer debug_[24];

// MINPACK
void hybrj1_(HybridFunction fcn, const Integer* n, double* x, double* fvec, double* fjac, const Integer* ldfjac,
             const double* tol, Integer* info, double* wa, const Integer* lwa);
double dpmpar_(const Integer* i);
}

/// Euclidean norms with unit stride, by the reference BLAS.
inline Real norm(Index n, const Real* x)
{
    const Integer count = static_cast<Integer>(n), one = 1;
    return reference_dnrm2_(&count, x, &one);
}
inline Real norm(Index n, const Complex* x)
{
    const Integer count = static_cast<Integer>(n), one = 1;
    return reference_dznrm2_(&count, x, &one);
}

} // namespace tessel::fortran
