/// The one implementation of the calculation interface: a virtual table and nothing else.
#pragma once

#include "api/FDTDCalcAPI.h"
#include "common/types.h"

namespace internal {

/// Each operation hands its arguments to one routine; `api/solver_bindings.cpp` says how. The names of the class and of
/// its namespace are those that hosts see in its type information.
class FDTDCalcImpl final : public FDTDCalcAPI
{
public:
    using Integer = tessel::Integer;
    using Real = tessel::Real;
    using Complex = tessel::Complex;
    using Logical = tessel::Logical;
    using CharLen = tessel::CharLen;

    void dneupd(const Logical* RVEC, const char* HOWMNY, CharLen HOWMNY_LENGTH, Logical* SELECT, Real* DR, Real* DI,
                Real* Z, const Integer* LDZ, const Real* SIGMAR, const Real* SIGMAI, Real* WORKEV, const char* BMAT,
                CharLen BMAT_LENGTH, const Integer* N, const char* WHICH, CharLen WHICH_LENGTH, const Integer* NEV,
                Real* TOL, Real* RESID, const Integer* NCV, Real* V, const Integer* LDV, Integer* IPARAM,
                Integer* IPNTR, Real* WORKD, Real* WORKL, const Integer* LWORKL, Integer* INFO) override;
    void dnaupd(Integer* IDO, const char* BMAT, CharLen BMAT_LENGTH, const Integer* N, const char* WHICH,
                CharLen WHICH_LENGTH, const Integer* NEV, Real* TOL, Real* RESID, const Integer* NCV, Real* V,
                const Integer* LDV, Integer* IPARAM, Integer* IPNTR, Real* WORKD, Real* WORKL, const Integer* LWORKL,
                Integer* INFO) override;
    void hybrj1(HybridFunction FCN, const Integer* N, Real* X, Real* FVEC, Real* FJAC, const Integer* LDFJAC,
                const Real* TOL, Integer* INFO, Real* WA, const Integer* LWA) override;
    double dpmpar(const Integer* I) override;
    void leastsqPronySvd(const Integer* N, const Integer* NDIM, const Complex* Y, const Real* DT, const Integer* M,
                         const Integer* MMAX, Complex* RESIDUE, Complex* POLE, Real* ERR_L2, Real* ERR_RMS,
                         Real* ERR_PEAK, Real* ERR_RMS_MEAN, Real* ERR_PEAK_MEAN, Integer* ErrorFlag,
                         char* ErrorMessage, CharLen ErrorMessageLength) override;
    void zgesvd(const char* JOBU, const char* JOBVT, const Integer* M, const Integer* N, Complex* A, const Integer* LDA,
                Real* S, Complex* U, const Integer* LDU, Complex* VT, const Integer* LDVT, Complex* WORK,
                const Integer* LWORK, Real* RWORK, Integer* INFO, CharLen JOBU_LENGTH, CharLen JOBVT_LENGTH) override;
    void zgesv(const Integer* N, const Integer* NRHS, Complex* A, const Integer* LDA, Integer* IPIV, Complex* B,
               const Integer* LDB, Integer* INFO) override;
    void dgesvd(const char* JOBU, const char* JOBVT, const Integer* M, const Integer* N, Real* A, const Integer* LDA,
                Real* S, Real* U, const Integer* LDU, Real* VT, const Integer* LDVT, Real* WORK, const Integer* LWORK,
                Integer* INFO, CharLen JOBU_LENGTH, CharLen JOBVT_LENGTH) override;
};

static_assert(sizeof(FDTDCalcImpl) == sizeof(void*), "an object is its virtual-table pointer alone");

} // namespace internal
