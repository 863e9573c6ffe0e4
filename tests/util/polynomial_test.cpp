#include "util/poly_eval.h"
#include "util/poly_roots.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <tuple>

namespace tessel::testing {
namespace {

constexpr Real kNaN = std::numeric_limits<Real>::quiet_NaN();
constexpr Real kInfinity = std::numeric_limits<Real>::infinity();

TEST(EvaluationStep, HasTheBitsOfTheFormulaInDoubles)
{
    // Worked out step by step in doubles; outside the unit circle all is divided by z^3.
    const Complex a[] = {{2.0, -1.0}, {-0.5, 3.0}, {1.0, 0.25}}, h[] = {{-1.0, 1.0}, 2.0, {3.0, -0.5}},
                  g[] = {0.5, {-2.0, 1.0}, {0.0, 1.0}}, w[] = {{0.75, kNaN}, {2.0, kNaN}, {0.5, kNaN}};
    const struct
    {
        Complex z, p;
        Real bound;
        Complex next;
    } cases[] = {
        {{0.3, 0.6},
         {-0x1.36c8b43958104p-1, -0x1.4ac083126e97cp-3},
         0x1.4f2b55a0a9143p+1,
         {0x1.27a9c05b10d9ep-2, 0x1.be12afab08806p-2}},
        {-1.0, {2.5, -3.75}, 4.25, {-0x1.fe27e532bebf6p-1, 0x1.947c4bdb3d613p-3}}, // not outside
        {{1.3, 0.7},
         {0x1.38f5eee6173f5p+1, 0x1.0b315a18a9e30p-3},
         0x1.3e9a5625dc91fp+1,
         {0x1.c254dd9d049d4p-1, 0x1.1861333155eb2p-2}},
        {{3.0, -4.0},
         {0x1.ea9e6eeb70260p-1, 0x1.33daf8df7a4e7p-3},
         0x1.2f9db22d0e560p+0,
         {0x1.93eab883519b6p+0, -0x1.ccc77a896a595p+1}},
        {{3e199, -4e199}, 1.0, 1.0, {3e199, -4e199}}, // 1/z is zero
    };
    for (const auto& test : cases) {
        Complex z = test.z, p;
        Real size = kNaN, bound = kNaN;
        CPOLY_EVAL_STEP(a, h, g, w, 3, z, p, size, bound);
        EXPECT_EQ(p, test.p) << test.z;
        EXPECT_EQ(size, std::fabs(p.real()) + std::fabs(p.imag()));
        EXPECT_EQ(bound, test.bound) << test.z;
        EXPECT_EQ(z, test.next) << test.z;
    }
}

/// Of degree 1 and at z = 0, p, h and g are their constant terms.
TEST(EvaluationStep, LeavesThePointOnlyWhereThereIsNoStep)
{
    for (const auto& [p, h, g, next] : {std::tuple{0.0, 1.0, 1.0, 0.0}, // a zero
                                        {1.0, 0.0, 1.0, 0.0},
                                        {2.0, 2.0, 2.0, 0.0},  // a = b
                                        {3.0, 2.0, 0.0, -1.5}, // Newton's step
                                        {2.0, 1.0, 0.25, -4.0}}) {
        const Complex a = p, derivative = h, second = g, weight = 0.0;
        Complex z = 0.0, value;
        Real size = 0.0, bound = 0.0;
        CPOLY_EVAL_STEP(&a, &derivative, &second, &weight, 1, z, value, size, bound);
        EXPECT_DOUBLE_EQ(z.real(), next);
    }
}

TEST(Quadratic, FindsZerosWithoutCancellationOrOverflow)
{
    const struct
    {
        Complex b, c, larger, smaller;
        Real tolerance;                                    // relative
    } cases[] = {{0.0, 9.0, {0.0, 3.0}, {0.0, -3.0}, 0.0}, // a tie takes the plus
                 {0.0, 0.0, 0.0, 0.0, 0.0},
                 // b prevails: the bits of dividing once by its size, and twice q
                 {7.0, 3.0, -0x1.a2a5fd9b1ee1dp+2, -0x1.d5a0264e11e34p-2, 0.0},
                 {-7.0, 3.0, 0x1.a2a5fd9b1ee1dp+2, 0x1.d5a0264e11e34p-2, 0.0},
                 {{-0x1p40, -0x1p40 - 1.0}, {-0x1p40, 0x1p40}, {0x1p40, 0x1p40}, {0.0, 1.0}, 1e-15},
                 {{0x1p40, 0x1p40 + 1.0}, {-0x1p40, 0x1p40}, {-0x1p40, -0x1p40}, {0.0, -1.0}, 1e-15},
                 {{3e153, -1e153}, 1e153, {-3e153, 1e153}, {-0.3, -0.1}, 1e-15}, // the square would overflow
                 {{3e300, -1e300}, 0.0, {-3e300, 1e300}, 0.0, 1e-15},
                 {-1e-200, 0.0, 1e-200, 0.0, 0.0}}; // and here vanish
    for (const auto& test : cases) {
        Complex b = test.b, c = test.c;
        CQUAD_ROOTS(b, c);
        EXPECT_LE(std::abs(b - test.larger), test.tolerance * std::abs(test.larger)) << test.b << test.c;
        EXPECT_LE(std::abs(c - test.smaller), test.tolerance * std::abs(test.smaller)) << test.b << test.c;
    }
}

TEST(Scaling, SplitsIntoMantissaAndExponent)
{
    const Complex a[] = {1.0 / 16.0, 0.0625001, 16.0, 17.0, {0.5, -0.5}, 0.0, {1.0, kInfinity}, {1.7e308, 1.7e308}};
    const Complex mantissas[] = {1.0, 0.0625001, 1.0, 17.0 / 256.0, {0.5, -0.5}, 0.0, a[6], a[7]};
    const Real exponents[] = {-1.0, 0.0, 1.0, 2.0, 0.0, 0.0, 0.0, 0.0};
    Complex m[8], e[8];
    CSCALE_EXP(a, m, e, 8, 16.0, 1.0 / 16.0);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(m[i], mantissas[i]) << a[i];
        EXPECT_EQ(e[i], Complex(exponents[i], 0.0)) << a[i];
    }
    const Complex least = 5e-324; // times 1.25 rounds to itself
    CSCALE_EXP(&least, m, e, 1, 1.25, 0.8);
    EXPECT_EQ(m[0], least);
    EXPECT_EQ(e[0], Complex(0.0));
}

TEST(Bound, IsTheSumOfSizesOnTheCircle)
{
    const Complex a[] = {{1.0, -2.0}, -0.5, {3.0, 4.0}};
    for (const auto& [r, expected] : {std::pair{0.0, 3.0}, {0.5, 5.125}, {1.0, 11.5}, {2.0, 5.0}, {1e200, 1.0}}) {
        Real bound = kNaN;
        CPOLY_BOUND(a, 3, r, bound);
        EXPECT_EQ(bound, expected) << "divided by r^3 outside the unit circle, " << r;
    }
    EXPECT_EQ(CSIZE(a[0]), 3.0);
}

} // namespace
} // namespace tessel::testing
