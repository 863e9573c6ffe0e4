#include "prony/adaptive_prony.h"

#include "common/status.h"
#include "prony/leastsq_prony_svd.h"

#include <algorithm>

namespace tessel {

namespace {

constexpr Real kMinTolerance = 1e-15;
constexpr int kMeasures = 5;

/// Whether no measure is greater than its tolerance; NaN is not greater.
bool good_enough(const Real (&measure)[kMeasures], const Real (&tolerance)[kMeasures])
{
    for (int i = 0; i < kMeasures; ++i)
        if (measure[i] > tolerance[i])
            return false;
    return true;
}

} // namespace

extern "C" void ADAPTIVE_PRONY(const Integer& N, const Integer& NDIM, const Complex* Y, const Real& DT,
                               const Integer& MMIN, const Integer& MMAX, const Real& TOL_L2, const Real& TOL_RMS,
                               const Real& TOL_PEAK, const Real& TOL_RMS_MEAN, const Real& TOL_PEAK_MEAN, Integer& M,
                               Complex* RESIDUE, Complex* POLE, Integer& ErrorFlag, char* ErrorMessage,
                               CharLen ErrorMessageLength)
{
    const Status status{ErrorFlag, ErrorMessage, ErrorMessageLength};
    const Integer n = N, ndim = NDIM, mmin = MMIN, mmax = MMAX;
    const Real dt = DT;
    const Real tolerance[kMeasures] = {TOL_L2, TOL_RMS, TOL_PEAK, TOL_RMS_MEAN, TOL_PEAK_MEAN};
    const auto is_too_small = [](Real value) { return value < kMinTolerance; };

    if (n < 2 || n > ndim || mmin < 1 || mmin > mmax || dt <= 0.0 ||
        std::any_of(tolerance, tolerance + kMeasures, is_too_small))
        return status.fail("Sub ADAPTIVE_PRONY: input parameters out of bounds !");

    const Integer cap = std::min(mmax, n / 2); // a fit needs two samples for each exponential
    Real measure[kMeasures];
    for (Integer order = std::min(mmin, cap);; ++order) {
        M = order;
        LEASTSQ_PRONY_SVD(&n, &ndim, Y, &dt, &order, &mmax, RESIDUE, POLE, &measure[0], &measure[1], &measure[2],
                          &measure[3], &measure[4], &ErrorFlag, ErrorMessage, ErrorMessageLength);
        if (status.has_failed())
            return;
        if (good_enough(measure, tolerance))
            return status.succeed();
        if (order >= cap)
            return status.fail("Sub ADAPTIVE_PRONY: best Prony fit is not good enough !");
    }
}

} // namespace tessel
