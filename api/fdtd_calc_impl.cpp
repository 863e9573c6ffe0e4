/// The one implementation of the calculation interface: a virtual table and nothing else.
///
/// Each operation hands its arguments to one routine. All adaptation to the foreign calling convention happens here:
/// lengths are widened and moved behind the other arguments, a logical becomes exactly 0 or 1.
///
/// Nothing is copied or allocated. The build compiles this file without tail calls: by g++ an operation of 28 arguments
/// would otherwise shuffle them in place, at more than twice the instructions.

#include "api/FDTDCalcAPI.h"

#include "common/fortran.h"
#include "common/types.h"
#include "prony/leastsq_prony_svd.h"

#include <new>

namespace fortran = tessel::fortran;

/// ARPACK's trace levels: the output unit, the number of digits, and a level for each of 22 routines. All zero, and
/// hidden from every host: no eigen-solve prints. ARPACK's own block, which this one replaces, starts with unit 6 and
/// has the same alignment.
alignas(32) tessel::Integer tessel::fortran::debug_[24] = {};

namespace internal {

namespace {

/// Only the low half of a 32-bit argument is defined: the widening is explicit.
constexpr fortran::Length widen(tessel::CharLen length)
{
    return static_cast<std::uint32_t>(length);
}

} // namespace

/// The names of the class and of its namespace are those that hosts see in its type information.
class FDTDCalcImpl final : public FDTDCalcAPI
{
public:
    using Integer = tessel::Integer;
    using Real = tessel::Real;
    using Complex = tessel::Complex;
    using Logical = tessel::Logical;
    using CharLen = tessel::CharLen;

    // SELECT passes as it is: it is an input for HOWMNY = 'S' alone, which DNEUPD refuses. Otherwise DNEUPD sets every
    // element to 0 or 1 before it reads any, or, if no vectors are asked for, reads none.
    void dneupd(const Logical* RVEC, const char* HOWMNY, CharLen HOWMNY_LENGTH, Logical* SELECT, Real* DR, Real* DI,
                Real* Z, const Integer* LDZ, const Real* SIGMAR, const Real* SIGMAI, Real* WORKEV, const char* BMAT,
                CharLen BMAT_LENGTH, const Integer* N, const char* WHICH, CharLen WHICH_LENGTH, const Integer* NEV,
                Real* TOL, Real* RESID, const Integer* NCV, Real* V, const Integer* LDV, Integer* IPARAM,
                Integer* IPNTR, Real* WORKD, Real* WORKL, const Integer* LWORKL, Integer* INFO) override
    {
        const Logical rvec = tessel::is_true(*RVEC) ? 1 : 0;
        fortran::dneupd_(&rvec, HOWMNY, SELECT, DR, DI, Z, LDZ, SIGMAR, SIGMAI, WORKEV, BMAT, N, WHICH, NEV, TOL, RESID,
                         NCV, V, LDV, IPARAM, IPNTR, WORKD, WORKL, LWORKL, INFO, widen(HOWMNY_LENGTH),
                         widen(BMAT_LENGTH), widen(WHICH_LENGTH));
    }

    void dnaupd(Integer* IDO, const char* BMAT, CharLen BMAT_LENGTH, const Integer* N, const char* WHICH,
                CharLen WHICH_LENGTH, const Integer* NEV, Real* TOL, Real* RESID, const Integer* NCV, Real* V,
                const Integer* LDV, Integer* IPARAM, Integer* IPNTR, Real* WORKD, Real* WORKL, const Integer* LWORKL,
                Integer* INFO) override
    {
        fortran::dnaupd_(IDO, BMAT, N, WHICH, NEV, TOL, RESID, NCV, V, LDV, IPARAM, IPNTR, WORKD, WORKL, LWORKL, INFO,
                         widen(BMAT_LENGTH), widen(WHICH_LENGTH));
    }

    // HYBRJ1 makes the same tests, but forms N (N + 13) in 32 bits: from N = 46335 on it would accept any LWA. A TOL
    // of NaN passes.
    void hybrj1(HybridFunction FCN, const Integer* N, Real* X, Real* FVEC, Real* FJAC, const Integer* LDFJAC,
                const Real* TOL, Integer* INFO, Real* WA, const Integer* LWA) override
    {
        const tessel::Index n = *N;
        *INFO = 0;
        if (n <= 0 || *LDFJAC < n || *TOL < 0.0 || *LWA < n * (n + 13) / 2)
            return;
        fortran::hybrj1_(FCN, N, X, FVEC, FJAC, LDFJAC, TOL, INFO, WA, LWA);
    }

    double dpmpar(const Integer* I) override { return fortran::dpmpar_(I); }

    void leastsqPronySvd(const Integer* N, const Integer* NDIM, const Complex* Y, const Real* DT, const Integer* M,
                         const Integer* MMAX, Complex* RESIDUE, Complex* POLE, Real* ERR_L2, Real* ERR_RMS,
                         Real* ERR_PEAK, Real* ERR_RMS_MEAN, Real* ERR_PEAK_MEAN, Integer* ErrorFlag,
                         char* ErrorMessage, CharLen ErrorMessageLength) override
    {
        LEASTSQ_PRONY_SVD(N, NDIM, Y, DT, M, MMAX, RESIDUE, POLE, ERR_L2, ERR_RMS, ERR_PEAK, ERR_RMS_MEAN,
                          ERR_PEAK_MEAN, ErrorFlag, ErrorMessage, ErrorMessageLength);
    }

    void zgesvd(const char* JOBU, const char* JOBVT, const Integer* M, const Integer* N, Complex* A, const Integer* LDA,
                Real* S, Complex* U, const Integer* LDU, Complex* VT, const Integer* LDVT, Complex* WORK,
                const Integer* LWORK, Real* RWORK, Integer* INFO, CharLen JOBU_LENGTH, CharLen JOBVT_LENGTH) override
    {
        fortran::zgesvd_(JOBU, JOBVT, M, N, A, LDA, S, U, LDU, VT, LDVT, WORK, LWORK, RWORK, INFO, widen(JOBU_LENGTH),
                         widen(JOBVT_LENGTH));
    }

    void zgesv(const Integer* N, const Integer* NRHS, Complex* A, const Integer* LDA, Integer* IPIV, Complex* B,
               const Integer* LDB, Integer* INFO) override
    {
        fortran::zgesv_(N, NRHS, A, LDA, IPIV, B, LDB, INFO);
    }

    void dgesvd(const char* JOBU, const char* JOBVT, const Integer* M, const Integer* N, Real* A, const Integer* LDA,
                Real* S, Real* U, const Integer* LDU, Real* VT, const Integer* LDVT, Real* WORK, const Integer* LWORK,
                Integer* INFO, CharLen JOBU_LENGTH, CharLen JOBVT_LENGTH) override
    {
        fortran::dgesvd_(JOBU, JOBVT, M, N, A, LDA, S, U, LDU, VT, LDVT, WORK, LWORK, INFO, widen(JOBU_LENGTH),
                         widen(JOBVT_LENGTH));
    }
};

static_assert(sizeof(FDTDCalcImpl) == sizeof(void*), "an object is its virtual-table pointer alone");

} // namespace internal

/// Allocates by the ordinary operator new: it calls the new-handler, and its std::bad_alloc passes to the host. A host
/// may have replaced it by one that returns null.
FDTDCalcAPI* createFDTDCalcApi()
{
    void* const volatile allocated = ::operator new(sizeof(internal::FDTDCalcImpl)); // volatile keeps the test below
    void* const storage = allocated;
    return storage == nullptr ? nullptr : ::new (storage) internal::FDTDCalcImpl;
}
