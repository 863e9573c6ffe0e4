#include "util/poly_roots.h"

#include "tests/support/polynomials.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <tuple>
#include <vector>

namespace tessel::testing {
namespace {

constexpr Real kNaN = std::numeric_limits<Real>::quiet_NaN();
constexpr Real kInfinity = std::numeric_limits<Real>::infinity();

TEST(Size, IsTheSumOfTheAbsoluteParts)
{
    EXPECT_EQ(CSIZE(Complex(3.0, -4.0)), 7.0);
    EXPECT_TRUE(std::isnan(CSIZE(Complex(kNaN, 0.0))));
}

TEST(Quadratic, FindsZerosWithoutCancellation)
{
    Random random(31);
    for (int i = 0; i < 1000; ++i) {
        const Complex large = random.complex() + 2.0, small = random.complex() * std::pow(10.0, -i / 50.0);
        const auto coefficients = from_zeros({large, small});
        Complex b = coefficients[1], c = coefficients[0];
        CQUAD_ROOTS(b, c);
        EXPECT_LE(std::abs(b - large), 1e-14 * std::abs(large)) << i;
        EXPECT_LE(std::abs(c - small), 1e-14 * std::abs(small)) << i;
    }
}

TEST(Quadratic, SpecialCoefficients)
{
    const struct
    {
        Complex b, c, larger, smaller;
        Real tolerance;                                    // relative
    } cases[] = {{0.0, 9.0, {0.0, 3.0}, {0.0, -3.0}, 0.0}, // a tie takes the plus
                 {-2.0, 1.0, 1.0, 1.0, 0.0},
                 {0.0, 0.0, 0.0, 0.0, 0.0},
                 {{3.0, 4.0}, 0.0, {-3.0, -4.0}, 0.0, 0.0}, // exact at any magnitude
                 {5e-324, 0.0, -5e-324, 0.0, 0.0},
                 {{1e308, -1e308}, 0.0, {-1e308, 1e308}, 0.0, 0.0},
                 {-3e300, 1e308, 3e300, 1e8 / 3.0, 1e-15}, // no square leaves the range
                 {1.0, -1e308, 1e154, -1e154, 1e-15},
                 {-3e-155, 2e-310, 2e-155, 1e-155, 1e-11},
                 {0.0, -4e-320, 2e-160, -2e-160, 1e-3}};
    for (const auto& test : cases) {
        Complex b = test.b, c = test.c;
        CQUAD_ROOTS(b, c);
        EXPECT_LE(std::abs(b - test.larger), test.tolerance * std::abs(test.larger)) << test.b << test.c;
        EXPECT_LE(std::abs(c - test.smaller), test.tolerance * std::abs(test.smaller)) << test.b << test.c;
    }
}

TEST(Scaling, SplitsIntoMantissaAndExponent)
{
    const struct
    {
        Complex value, mantissa;
        Real exponent;
        Real base = 16.0;
    } cases[] = {{1.0, 1.0, 0.0},
                 {{0.5, -0.5}, {0.5, -0.5}, 0.0},
                 {1.0 / 16.0, 1.0, -1.0},
                 {17.0, 17.0 / 256.0, 2.0},
                 {16.0, 1.0, 1.0},
                 {0.0, 0.0, 0.0},
                 {{1.0, kInfinity}, {1.0, kInfinity}, 0.0},
                 {{1.7e308, 1.7e308}, {1.7e308, 1.7e308}, 0.0},
                 {5e-324, 5e-324, 0.0, 1.25}}; // the smallest number times 1.25 rounds to itself
    for (const auto& [value, mantissa, exponent, base] : cases) {
        Complex m, e;
        CSCALE_EXP(&value, &m, &e, 1, base, 1.0 / base);
        EXPECT_EQ(m, mantissa) << value;
        EXPECT_EQ(e, Complex(exponent, 0.0)) << value;
    }
    // Bases of 1 and below lie outside the contract, yet end too.
    for (const Real base : {1.0, 0.5, 0.0, -2.0, kInfinity, kNaN})
        for (const Complex a : {Complex(5e-324), Complex(0.5), Complex(3.0), Complex(1e308)}) {
            Complex m, e(-7.25);
            CSCALE_EXP(&a, &m, &e, 1, base, 1.0 / base);
            EXPECT_NE(e, -7.25) << a << ", base " << base;
        }
}

TEST(Bound, IsTheSumOfSizesOnTheCircle)
{
    const Complex a[] = {Complex(1.0, -2.0), Complex(-0.5, 0.0), Complex(3.0, 4.0)};
    for (const auto& [n, r, expected] :
         {std::tuple{3, 0.0, 3.0}, {3, 0.5, 5.125}, {3, 1.0, 11.5}, {3, 2.0, 5.0}, {1, 4.0, 1.75}, {3, 1e200, 1.0}}) {
        Real bound = kNaN;
        CPOLY_BOUND(a, n, r, bound);
        EXPECT_EQ(bound, expected) << "divided by r^n outside the unit circle, " << r;
    }
}

} // namespace
} // namespace tessel::testing
