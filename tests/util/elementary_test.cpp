#include "common/elementary.h"

#include "tests/support/same_bits.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <tuple>
#include <utility>

namespace tessel::testing {
namespace {

constexpr Real kInfinity = std::numeric_limits<Real>::infinity();
constexpr Real kNaN = std::numeric_limits<Real>::quiet_NaN();
constexpr Real kPi = std::numbers::pi;

void expect_same(Real value, Real expected, const Complex& argument)
{
    EXPECT_TRUE(same_bits(&value, &expected, 1)) << value << " for " << expected << " at " << argument;
}

// All expected values are correctly rounded ones, worked out in 500 bits.

TEST(Elementary, LogarithmAndExponentialLieNextToTheExactValues)
{
    for (const auto& [x, expected] : {std::pair{0x1p-1074, -0x1.74385446d71c3p+9},
                                      {0x1.fffffffffffffp-1, -0x1p-53},
                                      {0x1.0000000000001p+0, 0x1.fffffffffffffp-53},
                                      {0x1.fp-1, -0x1.0415d89e74444p-5},
                                      {0x1.0bc2d2acfd853p+0, 0x1.6ff6b78e05f96p-5}, // where the table begins
                                      {0x1.1p+0, 0x1.f0a30c01162a6p-5},
                                      {0x1.6a09e667f3bccp+0, 0x1.62e42fefa39eep-2},
                                      {0x1.921fb54442d18p+1, 0x1.250d048e7a1bdp+0},
                                      {0x1.fffffffffffffp+1023, 0x1.62e42fefa39efp+9}}) {
        const Real unit = std::nextafter(std::fabs(expected), kInfinity) - std::fabs(expected);
        EXPECT_NEAR(logarithm(x), expected, unit) << x;
    }
    for (const auto& [x, expected] : {std::pair{0.0, 1.0},
                                      {-0x1p-30, 0x1.fffffff800000p-1},
                                      {0x1.62e42fefa39efp-2, 0x1.6a09e667f3bccp+0},
                                      {-0x1.62e42fefa39efp-2, 0x1.6a09e667f3bcdp-1},
                                      {1.0, 0x1.5bf0a8b145769p+1},
                                      {0x1.62e42fefa39efp+9, 0x1.fffffffffff2ap+1023},
                                      {-0x1.6232bdd7abcd2p+9, 0x1.000000000007cp-1022},
                                      {-0x1.74385446d71c3p+9, 0x1p-1074}})
        EXPECT_NEAR(exponential(x), expected, expected * 0x1p-52) << x;
}

TEST(Elementary, ExponentialInExtendedPrecisionLiesNextToTheExactValue)
{
    for (const auto& [x, expected] : {std::pair{0.0L, 1.0L},
                                      {1.0L, 0x0.adf85458a2bb4a9bp+2L},
                                      {-0x0.9392ee8e921d5d07p-59L, 0x0.ffffffffffffffeep+0L},
                                      {0x0.b17217f7d1cf79acp-5L, 0x0.82cd8698ac2ba1d7p+1L}, // between two of the table
                                      {-0x0.b17217f7d1cf79abp+0L, 0x0.8p+0L},
                                      {0x0.962p+9L, 0x0.8fed1f5759e86fp+434L},
                                      {0x0.b172p+14L, 0x0.fa13dba329dd768dp+16384L}, // the ends of the range
                                      {-0x0.b16cp+14L, 0x0.92cf78ab801959c5p-16381L}})
        EXPECT_LE(std::fabs(exponential(x) - expected), expected * 0x1p-63L) << x;
    EXPECT_EQ(exponential(12000.0L), std::numeric_limits<Extended>::infinity());
    EXPECT_EQ(exponential(-12000.0L), 0.0L);
    EXPECT_TRUE(std::isnan(exponential(std::numeric_limits<Extended>::quiet_NaN())));
    const std::complex<Extended> z = exponential(std::complex<Extended>(1.0L, -std::numbers::pi_v<Extended> / 3.0L));
    EXPECT_LE(std::fabs(z.real() / 0x0.adf85458a2bb4a9bp+1L - 1.0L), 0x1p-62L);
    EXPECT_LE(std::fabs(z.imag() / -0x0.96a997bc6b6cb399p+2L - 1.0L), 0x1p-62L);
}

TEST(Elementary, ComplexLogarithmIsExactToTheLastBit)
{
    const struct
    {
        Complex z;
        Real size, angle;
    } cases[] = {
        // |z| next to 1: all leading bits of the squares cancel
        {{0.6, 0.8}, 0x1.999999999999ap-56, 0x1.dac670561bb50p-1},
        {{0.28, -0.96}, -0x1.eb851eb851eb8p-56, -0x1.4978fa3269ee1p+0},
        {{0x1.ffff81b76a3adp-1, 0x1.679a4a16c9026p-9}, -0x1.75d9fddd47fdcp-55, 0x1.679a67a7724ccp-9},
        {{0x1.11717791c6e61p-6, 0x1.ffedbe797918dp-1}, -0x1.4763b3a23b67ep-66, 0x1.8dd9e265d1a2bp+0},
        {{-0x1.6a09e667f3bccp-1, 0x1.6a09e667f3bcdp-1}, -0x1.765753908cd1cp-57, 0x1.2d97c7f3321d2p+1},
        {{-1.0, 1e-9}, 0x1.2725dd1d243acp-61, 0x1.921fb5421d100p+1},
        // the ends of the range
        {{3e-320, -4e-320}, -0x1.6f9be0f7cee66p+9, -0x1.dac670561bb4fp-1},
        {{1.7e308, 1.7e308}, 0x1.63096583c4ed0p+9, kPi / 4},
        {{1e-200, 1e200}, 0x1.cc845b54b54f2p+8, kPi / 2},
        // special values
        {{0.0, 0.0}, -kInfinity, 0.0},
        {{-0.0, 0.0}, -kInfinity, kPi},
        {{-0.0, -0.0}, -kInfinity, -kPi},
        {{1.0, -0.0}, 0.0, -0.0},
        {{-1.0, -0.0}, 0.0, -kPi},
        {{-kInfinity, 1.0}, kInfinity, kPi},
        {{1.0, -kInfinity}, kInfinity, -kPi / 2},
        {{-kInfinity, kInfinity}, kInfinity, 0x1.2d97c7f3321d2p+1},
        {{kNaN, kInfinity}, kInfinity, kNaN},
        {{0.0, kNaN}, kNaN, kNaN},
    };
    for (const auto& [z, size, angle] : cases) {
        expect_same(logarithm(z).real(), size, z);
        expect_same(logarithm(z).imag(), angle, z);
    }
}

TEST(Elementary, AnglesSinesAndCosinesAreExactToTheLastBit)
{
    for (const auto& [z, angle] : {std::pair{Complex(1.0, 0.0357288), 0x1.2490dd8c8cdbbp-5},
                                   {{0.9, 1.0}, 0x1.ad0be00825672p-1},
                                   {{-16.0, -1.0}, -0x1.8a225e5677921p+1},
                                   {{-3.0, 5.0}, 0x1.0e3c51fa059c4p+1},
                                   {{31.0, -2.0}, -0x1.07e47005140dcp-4},
                                   {{1.0, 1e-310}, 1e-310},
                                   {{kInfinity, -1.0}, -0.0}})
        expect_same(arc_tangent(z.imag(), z.real()), angle, z);
    for (const auto& [x, sine, cosine] : {std::tuple{-0.0, -0.0, 1.0},
                                          {0x1p-30, 0x1p-30, 1.0},
                                          {0x1.921fb54442d18p+1, 0x1.1a62633145c07p-53, -1.0},
                                          {0x1.6ac5b262ca1ffp+849, 1.0, -0x1.14ae72e6ba22fp-61},
                                          {0x1p+1023, 0x1.205248cbdb760p-1, -0x1.a719f26c232bfp-1},
                                          {kInfinity, kNaN, kNaN}}) {
        expect_same(sine_cosine(x).sine, sine, x);
        expect_same(sine_cosine(x).cosine, cosine, x);
    }
}

TEST(Elementary, SpecialValuesAreThoseOfC)
{
    for (const auto& [x, log, exp] : {std::tuple{0.0, -kInfinity, 1.0},
                                      {-0.0, -kInfinity, 1.0},
                                      {kInfinity, kInfinity, kInfinity},
                                      {-kInfinity, kNaN, 0.0},
                                      {1e4, 0x1.26bb1bbb55516p+3, kInfinity},
                                      {-1e4, kNaN, 0.0},
                                      {kNaN, kNaN, kNaN}}) {
        expect_same(logarithm(x), log, x);
        expect_same(exponential(x), exp, x);
    }
    expect_same(logarithm(1.0), 0.0, 1.0);
}

} // namespace
} // namespace tessel::testing
