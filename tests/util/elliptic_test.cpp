#include "util/elliptic.h"

#include "tests/support/stop.h"

#include <boost/math/special_functions/ellint_1.hpp>
#include <boost/math/special_functions/ellint_2.hpp>

#include <cmath>
#include <limits>

namespace tessel::testing {
namespace {

constexpr Real kLargest = 0.999999999999999;
constexpr Real kEpsilon = std::numeric_limits<Real>::epsilon();

/// The approximations and their derivatives, worked out in forty digits from the printed coefficients.
struct Values
{
    Real x, k, e, dk, de;
};
// clang-format off
constexpr Values kValues[] = {
    {0.0,      1.57079632679,       1.5707963268,         0.39269979519,        -0.39269824833},
    {0.25,     1.68575034495765942, 1.46746219786449225,  0.541731987095417886, -0.436576128953070677},
    {0.5,      1.85407468253845006, 1.35064388716018967,  0.847212909466448438, -0.503431000849898672},
    {0.875,    2.47359617395065976, 1.12461732530099241,  3.72762387543773276,  -0.770845486790258784},
    {0.999,    4.84113254775169673, 1.00217077598191012,  499.163995924640949,  -1.92139904580024324},
    {kLargest, 18.6560823572904454, 1.00000000000000907,  500399958596717.489,  -8.82759815080771746},
};
// clang-format on

TEST(EllipticIntegrals, AreTheApproximationsToTheLastDigitsAndTheTrueOnesWithinTheStatedError)
{
    for (const auto& [x, k, e, dk, de] : kValues) {
        const auto near = [](Real value, Real expected) {
            EXPECT_NEAR(value, expected, 4 * kEpsilon * std::fabs(expected));
        };
        SCOPED_TRACE(x);
        near(CELLIK_POL(x), k);
        near(CELLIE_POL(x), e);
        near(D_CELLIK_POL(x), dk);
        near(D_CELLIE_POL(x), de);
        const long double modulus = std::sqrt(static_cast<long double>(x));
        EXPECT_NEAR(k, static_cast<Real>(boost::math::ellint_1(modulus)), 2e-8);
        EXPECT_NEAR(e, static_cast<Real>(boost::math::ellint_2(modulus)), 2e-8);
    }
}

TEST(EllipticIntegrals, AnArgumentThatIsNotANumberPasses)
{
    for (const auto function : {CELLIK_POL, CELLIE_POL, D_CELLIK_POL, D_CELLIE_POL})
        EXPECT_TRUE(std::isnan(function(std::numeric_limits<Real>::quiet_NaN())));
}

TEST(EllipticIntegralsDeathTest, AnArgumentOutOfRangeEndsTheProcess)
{
    for (const Real x : {-1e-300, std::nextafter(kLargest, 1.0)}) {
        EXPECT_STOP(CELLIK_POL(x), "Sub CELLIK_POL: argument x in K(x) out of range !");
        EXPECT_STOP(CELLIE_POL(x), "Sub CELLIE_POL: argument x in E(x) out of range !");
        EXPECT_STOP(D_CELLIK_POL(x), "Sub D_CELLIK_POL: argument x in dK(x)/dx out of range !");
        EXPECT_STOP(D_CELLIE_POL(x), "Sub D_CELLIE_POL: argument x in dE(x)/dx out of range !");
    }
}

} // namespace
} // namespace tessel::testing
