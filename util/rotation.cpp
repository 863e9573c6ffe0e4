#include "util/rotation.h"

#include "common/elementary.h"
#include "common/status.h"
#include "common/views.h"

#include <cmath>

namespace tessel {

namespace {

constexpr Real kHalfPi = 1.5707963267948966;

} // namespace

extern "C" void IHE_orig_ROT3D(const Real& THETA, const Real& PHI, const Real& PSI, Real* R, Integer& ErrorFlag,
                               char* ErrorMessage, CharLen ErrorMessageLength)
{
    const Status status{ErrorFlag, ErrorMessage, ErrorMessageLength};
    const Real theta = THETA, phi = PHI, psi = PSI;
    const Matrix<Real> r(R, 3);

    if (std::fabs(theta) > kHalfPi) // NaN passes
        return status.fail("Sub IHE_orig_ROT3D: input parameters out of bounds !");

    const auto [cT, sT] = sine_cosine(kHalfPi - theta); // of the complementary angle: sine and cosine change places
    const auto [sP, cP] = sine_cosine(phi);
    const auto [sS, cS] = sine_cosine(psi);

    r(1, 1) = cT * cP;
    r(1, 2) = cT * sP;
    r(1, 3) = sT;
    r(2, 1) = -sP * cS - sT * cP * sS;
    r(2, 2) = cP * cS - sT * sP * sS;
    r(2, 3) = cT * sS;
    r(3, 1) = sP * sS - sT * cP * cS;
    r(3, 2) = -cP * sS - sT * sP * cS;
    r(3, 3) = cT * cS;
    status.succeed();
}

} // namespace tessel
