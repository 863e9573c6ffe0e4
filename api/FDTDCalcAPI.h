/// @file
/// The calculation interface: the numerical solvers of the library behind one fixed virtual table.
///
/// Needs a C++11 compiler and the standard library alone. A host either links the library or loads it at run time:
///
///     void* library = dlopen("libtessel.so.1", RTLD_NOW | RTLD_LOCAL);
///     auto create = reinterpret_cast<decltype(&createFDTDCalcApi)>(dlsym(library, "createFDTDCalcApi"));
///     FDTDCalcAPI* api = create();
///     ...
///     delete api;                   // every object goes before the library is closed
///     dlclose(library);
///
/// Conventions of every operation:
///   - Every ordinary argument is a pointer; arrays are column-major and their extents are written (rows, columns).
///     A logical is a 32-bit integer, true when its lowest bit is set.
///   - A character argument points to blank-padded characters without a terminator. Its length is passed by value, as
///     32 bits, where the operation says: behind each character argument (ARPACK), behind all arguments (LAPACK, fit).
///   - All working storage is the caller's. Nothing is copied or allocated, no argument is checked here, no exception
///     is thrown; the routines report through INFO (or ErrorFlag and ErrorMessage). After a failure the object is as
///     usable as before. Arrays must not overlap, unless it says so.
///
/// Threads: `dnaupd` and `dneupd` keep their progress in storage of the process: one eigen-problem at a time, whatever
/// the number of objects. Two interleaved solves end with wrong eigenvalues, whatever INFO says, and may write outside
/// their arrays. All other operations may run on any number of threads at once, on one object or on several, and give
/// the same bits as a serial run.
///
/// Memory: loading reserves 128 MiB of address space for the solvers. Each further thread that is inside LAPACK at the
/// same time reserves 128 MiB more, which are kept until the library is closed. Only what a call writes to takes
/// memory; a process that locks its future pages (mlockall) pays all of it.
#ifndef TESSEL_FDTDCALCAPI_H
#define TESSEL_FDTDCALCAPI_H

#include <complex>
#include <cstdint>

/// The operations, reached by their place in the virtual table: the order of the declarations is a binary contract.
/// The platform's C++ ABI gives the destructor two entries, so that `dneupd` is the third entry of the table.
class FDTDCalcAPI
{
public:
    /// The host's system of equations F(X) = 0 and its Jacobian, for `hybrj1`.
    ///
    /// @param[in]     N       number of equations and unknowns
    /// @param[in]     X       the point, N
    /// @param[out]    FVEC    F(X), N; written if IFLAG = 1, left alone otherwise
    /// @param[out]    FJAC    the Jacobian dF(i)/dX(j) at X, (LDFJAC, N); written if IFLAG = 2, left alone otherwise
    /// @param[in]     LDFJAC  leading dimension of FJAC
    /// @param[in,out] IFLAG   1 or 2 on entry; a negative value on return ends the solve
    ///
    /// There is no pointer for the host's own data: keep it in thread-local storage.
    typedef void (*HybridFunction)(const std::int32_t* N, const double* X, double* FVEC, double* FJAC,
                                   const std::int32_t* LDFJAC, std::int32_t* IFLAG);

    /// Slot 0. Returns the storage to the heap that the factory took it from.
    virtual ~FDTDCalcAPI() {}

    /// Slot 1: ARPACK DNEUPD, eigenvalues and eigenvectors once `dnaupd` has returned IDO = 99.
    ///
    /// @param[in]  RVEC    logical: whether vectors are computed
    /// @param[in]  HOWMNY  'A' eigenvectors, 'P' Schur vectors
    /// @param[in]  HOWMNY_LENGTH  length of HOWMNY, by value
    /// @param[out] SELECT  logicals, NCV; work storage, whatever it holds on entry
    /// @param[out] DR      real parts of the eigenvalues, NEV + 1
    /// @param[out] DI      imaginary parts of the eigenvalues, NEV + 1; the positive one of a pair comes first, but in
    ///                     mode 3 with a real shift the negative one
    /// @param[out] Z       vectors, (LDZ, NEV + 1): one column for a real eigenvalue; for a pair one column with the
    ///                     real and one with the imaginary part of the first's vector. May be V, if Schur vectors are
    ///                     not needed. Where the operator may overflow give Z NCV columns (V itself will do): an
    ///                     eigenvector of NaNs makes DNEUPD reach all of them
    /// @param[in]  LDZ     leading dimension of Z, >= N if RVEC is true
    /// @param[in]  SIGMAR  real part of the shift, in modes 3 and 4
    /// @param[in]  SIGMAI  imaginary part of the shift, in modes 3 and 4
    /// @param[out] WORKEV  work storage, 3 NCV
    /// @param[in]     BMAT,BMAT_LENGTH,N,WHICH,WHICH_LENGTH,NEV,TOL,RESID,NCV,LDV,IPARAM,WORKD,LWORKL
    ///                     as the last call of `dnaupd` left them
    /// @param[in,out] V,IPNTR,WORKL  the same; if RVEC is true, V holds the Schur vectors of the converged values on
    ///                     return, and IPNTR(9) .. IPNTR(13) are the places of their data in WORKL
    /// @param[in,out] INFO  that of the last call of `dnaupd`; on return see Errors
    ///
    /// Where SIGMAI is not zero, DR and DI are those of the transformed operator: the eigenvalues are the Rayleigh
    /// quotients of the vectors.
    ///
    /// @par Errors  INFO = 0 on success, 1 if the Schur form could not be reordered, < 0 as published: -1 .. -3 N, NEV,
    ///              NCV; -5 WHICH; -6 BMAT; -7 LWORKL; -8 LAPACK failure; -9 eigenvectors not found; -10 .. -12 mode,
    ///              BMAT and mode, HOWMNY = 'S'; -13 HOWMNY; -14 nothing converged; -15 a count that differs from
    ///              that of `dnaupd`. Nothing is printed.
    /// @par State   Uses what `dnaupd` left in the arrays and in the process. One eigen-problem at a time.
    /// @par Source  R. B. Lehoucq, D. C. Sorensen, C. Yang, ARPACK Users' Guide, SIAM 1998.
    virtual void dneupd(const std::int32_t* RVEC, const char* HOWMNY, std::int32_t HOWMNY_LENGTH, std::int32_t* SELECT,
                        double* DR, double* DI, double* Z, const std::int32_t* LDZ, const double* SIGMAR,
                        const double* SIGMAI, double* WORKEV, const char* BMAT, std::int32_t BMAT_LENGTH,
                        const std::int32_t* N, const char* WHICH, std::int32_t WHICH_LENGTH, const std::int32_t* NEV,
                        double* TOL, double* RESID, const std::int32_t* NCV, double* V, const std::int32_t* LDV,
                        std::int32_t* IPARAM, std::int32_t* IPNTR, double* WORKD, double* WORKL,
                        const std::int32_t* LWORKL, std::int32_t* INFO) = 0;

    /// Slot 2: ARPACK DNAUPD, implicitly restarted Arnoldi iteration for a few eigenvalues of a real non-symmetric
    /// operator, by reverse communication: call with IDO = 0, do what the returned IDO asks, call again until IDO = 99,
    /// then call `dneupd`.
    ///
    /// @param[in,out] IDO    0 to begin; on return -1 or 1: WORKD(IPNTR(2)..) := OP WORKD(IPNTR(1)..), where for 1 in
    ///                       modes 3 and 4 B x is already at WORKD(IPNTR(3)..); 2: WORKD(IPNTR(2)..) := B
    ///                       WORKD(IPNTR(1)..); 3: np = IPARAM(8) shifts, the real parts into WORKL(IPNTR(14)..), the
    ///                       imaginary parts np places behind them, conjugate pairs side by side; 99: done
    /// @param[in]     BMAT   'I' standard problem A x = lambda x, 'G' generalised problem A x = lambda B x
    /// @param[in]     BMAT_LENGTH  length of BMAT, by value
    /// @param[in]     N      order of the problem
    /// @param[in]     WHICH  "LM", "SM", "LR", "SR", "LI", "SI": largest or smallest modulus, real or imaginary part,
    ///                       of the eigenvalues of OP
    /// @param[in]     WHICH_LENGTH  length of WHICH, by value: 2
    /// @param[in]     NEV    number of eigenvalues, 0 < NEV < N - 1
    /// @param[in,out] TOL    relative accuracy of the Ritz values; <= 0 is replaced by the machine precision
    /// @param[in,out] RESID  N: start vector if INFO = 1 on entry; the final residual vector on return
    /// @param[in]     NCV    number of Arnoldi vectors, NEV + 2 <= NCV <= N; 2 NEV + 1 or more is recommended
    /// @param[out]    V      Arnoldi vectors, (LDV, NCV)
    /// @param[in]     LDV    leading dimension of V, >= N
    /// @param[in,out] IPARAM 11: (1) 1 exact shifts, 0 shifts of the host; (3) most restarts, on return those made;
    ///                       (4) 1; (5) out: converged values; (7) mode, 1 .. 4; (8) out: number of shifts asked for;
    ///                       (9) .. (11) out: numbers of products with OP, with B, of reorthogonalisations
    /// @param[out]    IPNTR  14: one-based places in WORKD, (1) .. (3), and in WORKL: (5) the Hessenberg matrix, (NCV,
    ///                       NCV); (6), (7) real and imaginary parts of its eigenvalues, NCV, the wanted ones last; (8)
    ///                       their error bounds; (14) the shifts of the host
    /// @param[in,out] WORKD  3 N, for the reverse communication
    /// @param[out]    WORKL  work storage, LWORKL
    /// @param[in]     LWORKL >= 3 NCV^2 + 6 NCV
    /// @param[in,out] INFO   on entry 0 for a random start vector, 1 for that in RESID; on return see Errors
    ///
    /// Modes: 1 OP = A; 2 OP = B^-1 A; 3 OP = Re((A - sigma B)^-1 B); 4 OP = Im((A - sigma B)^-1 B).
    /// The generator of random start vectors is not reset between solves, so that a second solve of a process differs
    /// from the first in its last bits; a start vector of the host (INFO = 1) makes a solve reproducible.
    ///
    /// @par Errors  INFO = 0 on success, 1 if IPARAM(3) was reached, 3 if no shift could be applied (enlarge NCV);
    ///              < 0 as published: -1 N, -2 NEV, -3 NCV, -4 IPARAM(3), -5 WHICH, -6 BMAT, -7 LWORKL, -8 LAPACK
    ///              failure, -9 zero start vector, -10 IPARAM(7), -11 mode 1 with BMAT = 'G', -12 IPARAM(1), -9999 no
    ///              Arnoldi factorisation of NCV steps. Nothing is printed.
    /// @par State   Partly in the caller's arrays, which stay as they are between the calls, partly in the process.
    /// @par Source  R. B. Lehoucq, D. C. Sorensen, C. Yang, ARPACK Users' Guide, SIAM 1998.
    virtual void dnaupd(std::int32_t* IDO, const char* BMAT, std::int32_t BMAT_LENGTH, const std::int32_t* N,
                        const char* WHICH, std::int32_t WHICH_LENGTH, const std::int32_t* NEV, double* TOL,
                        double* RESID, const std::int32_t* NCV, double* V, const std::int32_t* LDV,
                        std::int32_t* IPARAM, std::int32_t* IPNTR, double* WORKD, double* WORKL,
                        const std::int32_t* LWORKL, std::int32_t* INFO) = 0;

    /// Slot 3: MINPACK HYBRJ1, a zero of N nonlinear equations in N unknowns by the modified Powell hybrid method, with
    /// the host's Jacobian.
    ///
    /// @param[in]     FCN     the system; no exception may leave it
    /// @param[in]     N       number of equations and unknowns, > 0
    /// @param[in,out] X       N: start on entry, the final estimate on return
    /// @param[out]    FVEC    F(X), N
    /// @param[out]    FJAC    orthogonal matrix Q of the QR factors of the final approximate Jacobian, (LDFJAC, N)
    /// @param[in]     LDFJAC  leading dimension of FJAC, >= N
    /// @param[in]     TOL     relative error wished for between X and the solution, not negative
    /// @param[out]    INFO    see Errors
    /// @param[out]    WA      work storage, LWA; on return WA(N + 1 .. 2 N) holds Q^T F(X), and the triangular factor
    ///                        is stored by rows from WA(6 N + 1) on
    /// @param[in]     LWA     >= N (N + 13) / 2
    ///
    /// @par Errors  INFO = 1 on success, relative error at most TOL; 2 if 100 (N + 1) evaluations were reached; 3 if
    ///              TOL is too small; 4 without good progress; negative: the IFLAG by which FCN ended the solve; 0 if
    ///              an argument breaks the limits above: then FCN is not called and nothing else is written.
    /// @par Limits  N <= 46340. Above, the packed triangular factor has more elements than MINPACK's 32-bit subscripts
    ///              can count, and a solve that goes beyond its first evaluation leaves its arrays.
    /// @par State   None.
    /// @par Source  J. J. More, B. S. Garbow, K. E. Hillstrom, User Guide for MINPACK-1, ANL-80-74 (1980).
    virtual void hybrj1(HybridFunction FCN, const std::int32_t* N, double* X, double* FVEC, double* FJAC,
                        const std::int32_t* LDFJAC, const double* TOL, std::int32_t* INFO, double* WA,
                        const std::int32_t* LWA) = 0;

    /// Slot 4: MINPACK DPMPAR, the machine constants that `hybrj1` works with.
    ///
    /// @param[in] I  1, 2 or 3; no other value may be passed
    /// @returns   1: the machine precision, 2.22044604926e-16; 2: the smallest magnitude, 2.22507385852e-308; 3: the
    ///            largest, 1.79769313485e+308: the published table, of twelve digits
    virtual double dpmpar(const std::int32_t* I) = 0;

    /// Slot 5: the least-squares Prony fit. The arguments, the errors and the method are those of
    /// `LEASTSQ_PRONY_SVD` in <tessel/leastsq_prony_svd.h>; the length of ErrorMessage comes last, by value.
    virtual void leastsqPronySvd(const std::int32_t* N, const std::int32_t* NDIM, const std::complex<double>* Y,
                                 const double* DT, const std::int32_t* M, const std::int32_t* MMAX,
                                 std::complex<double>* RESIDUE, std::complex<double>* POLE, double* ERR_L2,
                                 double* ERR_RMS, double* ERR_PEAK, double* ERR_RMS_MEAN, double* ERR_PEAK_MEAN,
                                 std::int32_t* ErrorFlag, char* ErrorMessage, std::int32_t ErrorMessageLength) = 0;

    /// Slot 6: LAPACK ZGESVD, singular value decomposition A = U diag(S) VT of a complex matrix.
    ///
    /// @param[in]     JOBU   'A' all M columns of U, 'S' the first min(M, N), 'O' these into A, 'N' none
    /// @param[in]     JOBVT  the same for the rows of VT; not 'O' if JOBU is
    /// @param[in]     M      rows of A, >= 0
    /// @param[in]     N      columns of A, >= 0
    /// @param[in,out] A      (LDA, N); on return the vectors that 'O' asks for, otherwise destroyed
    /// @param[in]     LDA    >= max(1, M)
    /// @param[out]    S      singular values, min(M, N), not increasing
    /// @param[out]    U      (LDU, M) for 'A', (LDU, min(M, N)) for 'S'; not referenced otherwise
    /// @param[in]     LDU    >= 1, and >= M if U is asked for
    /// @param[out]    VT     right singular vectors, conjugated and transposed, (LDVT, N); not referenced for 'O', 'N'
    /// @param[in]     LDVT   >= 1; >= N for 'A', >= min(M, N) for 'S'
    /// @param[out]    WORK   work storage, LWORK; WORK(1) is the best LWORK
    /// @param[in]     LWORK  >= max(1, 2 min(M, N) + max(M, N)); -1 asks for the best LWORK and does nothing else
    /// @param[out]    RWORK  work storage, 5 min(M, N); if INFO > 0, the superdiagonal that did not converge is in
    ///                       RWORK(1 .. min(M, N) - 1)
    /// @param[out]    INFO   see Errors
    /// @param[in]     JOBU_LENGTH   length of JOBU, by value: 1
    /// @param[in]     JOBVT_LENGTH  length of JOBVT, by value: 1
    ///
    /// @par Errors  INFO = 0 on success; -k if argument k (counted without the lengths) is illegal, which is also
    ///              reported in a line on the standard output; > 0, the number of superdiagonals that did not converge.
    /// @par State   None.
    /// @par Source  E. Anderson et al., LAPACK Users' Guide, 3rd ed., SIAM 1999.
    virtual void zgesvd(const char* JOBU, const char* JOBVT, const std::int32_t* M, const std::int32_t* N,
                        std::complex<double>* A, const std::int32_t* LDA, double* S, std::complex<double>* U,
                        const std::int32_t* LDU, std::complex<double>* VT, const std::int32_t* LDVT,
                        std::complex<double>* WORK, const std::int32_t* LWORK, double* RWORK, std::int32_t* INFO,
                        std::int32_t JOBU_LENGTH, std::int32_t JOBVT_LENGTH) = 0;

    /// Slot 7: LAPACK ZGESV, solution of A X = B by LU factorisation with partial pivoting.
    ///
    /// @param[in]     N     order of A, >= 0
    /// @param[in]     NRHS  columns of B, >= 0
    /// @param[in,out] A     (LDA, N); the factors L and U of A = P L U on return
    /// @param[in]     LDA   >= max(1, N)
    /// @param[out]    IPIV  N: row i was exchanged with row IPIV(i)
    /// @param[in,out] B     (LDB, NRHS); the solution on return if INFO = 0
    /// @param[in]     LDB   >= max(1, N)
    /// @param[out]    INFO  see Errors
    ///
    /// @par Errors  INFO = 0 on success; -k if argument k is illegal, which is also reported in a line on the standard
    ///              output; i > 0 if U(i, i) is exactly zero: the factors are computed, B is unchanged.
    /// @par State   None.
    /// @par Source  E. Anderson et al., LAPACK Users' Guide, 3rd ed., SIAM 1999.
    virtual void zgesv(const std::int32_t* N, const std::int32_t* NRHS, std::complex<double>* A,
                       const std::int32_t* LDA, std::int32_t* IPIV, std::complex<double>* B, const std::int32_t* LDB,
                       std::int32_t* INFO) = 0;

    /// Slot 8: LAPACK DGESVD, singular value decomposition A = U diag(S) VT of a real matrix. As `zgesvd` with real
    /// arrays and without RWORK, but for LWORK >= max(1, 3 min(M, N) + max(M, N), 5 min(M, N)); if INFO > 0, the
    /// superdiagonal that did not converge is in WORK(2 .. min(M, N)).
    virtual void dgesvd(const char* JOBU, const char* JOBVT, const std::int32_t* M, const std::int32_t* N, double* A,
                        const std::int32_t* LDA, double* S, double* U, const std::int32_t* LDU, double* VT,
                        const std::int32_t* LDVT, double* WORK, const std::int32_t* LWORK, std::int32_t* INFO,
                        std::int32_t JOBU_LENGTH, std::int32_t JOBVT_LENGTH) = 0;
};

/// A new object, independent of every other. The caller owns it and ends it with `delete`.
///
/// @returns the object; a null pointer only if the host has replaced operator new by one that returns null
/// @throws std::bad_alloc  if memory cannot be allocated, after the installed new-handler has been called
extern "C" __attribute__((visibility("default"))) FDTDCalcAPI* createFDTDCalcApi();

#endif
