#include "util/poly_roots.h"

#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace tessel::testing {
namespace {

constexpr Real kNaN = std::numeric_limits<Real>::quiet_NaN();
constexpr Real kInfinity = std::numeric_limits<Real>::infinity();
constexpr Complex kSentinel(-7.25, 3.5);

TEST(Size, IsTheSumOfTheAbsoluteParts)
{
    EXPECT_EQ(CSIZE(Complex(3.0, -4.0)), 7.0);
    EXPECT_TRUE(std::isnan(CSIZE(Complex(kNaN, 0.0))));
}

struct Roots
{
    Roots(Complex b, Complex c) : larger(b), smaller(c) { CQUAD_ROOTS(larger, smaller); }
    Complex larger, smaller;
};

TEST(Quadratic, FindsZerosWithoutCancellation)
{
    Random random(31);
    for (int i = 0; i < 1000; ++i) {
        const Complex large = random.complex(), small = random.complex() * std::pow(10.0, -random.uniform(0.0, 20.0));
        const std::complex<long double> b = -std::complex<long double>(large) - std::complex<long double>(small),
                                        c = std::complex<long double>(large) * std::complex<long double>(small);
        const Roots roots{Complex(b), Complex(c)};
        if (std::abs(small) > 0.1 * std::abs(large))
            continue; // their order and conditioning are open
        EXPECT_LE(std::abs(roots.larger - large), 1e-15 * std::abs(large)) << i;
        EXPECT_LE(std::abs(roots.smaller - small), 1e-15 * std::abs(small)) << i;
    }
}

TEST(Quadratic, TieTakesThePlus)
{
    const Roots imaginary(0.0, 9.0);
    EXPECT_EQ(imaginary.larger, Complex(0.0, 3.0));
    EXPECT_EQ(imaginary.smaller, Complex(0.0, -3.0));
    const Roots twice(-2.0, 1.0);
    EXPECT_EQ(twice.larger, 1.0);
    EXPECT_EQ(twice.smaller, 1.0);
}

TEST(Quadratic, WithoutConstantTermIsExactAtAnyMagnitude)
{
    Random random(32);
    for (const Real scale : {1.0, 1e-320, 5e-324, 1e-200, 1e-160, 1e160, 1e308})
        for (int i = 0; i < 50; ++i) {
            const Complex b = random.complex() * scale;
            const Roots roots(b, 0.0);
            EXPECT_EQ(roots.larger, -b);
            EXPECT_EQ(roots.smaller, 0.0);
        }
}

TEST(Quadratic, NeitherOverflowsNorUnderflows)
{
    const Roots huge(-3e300, 1e308);
    EXPECT_DOUBLE_EQ(huge.larger.real(), 3e300);
    EXPECT_DOUBLE_EQ(huge.smaller.real(), 1e8 / 3.0);
    const Roots constant(1.0, -1e308);
    EXPECT_DOUBLE_EQ(constant.larger.real(), 1e154) << "a tie after rounding";
    EXPECT_DOUBLE_EQ(constant.smaller.real(), -1e154);
    const Roots tiny(-3e-155, 2e-310);
    EXPECT_NEAR(tiny.larger.real(), 2e-155, 1e-167);
    EXPECT_NEAR(tiny.smaller.real(), 1e-155, 1e-167);
    const Roots subnormal(0.0, -4e-320);
    EXPECT_NEAR(subnormal.larger.real(), 2e-160, 1e-163);
    EXPECT_TRUE(std::isnan(Roots(kNaN, 1.0).larger.real()));
}

TEST(Scaling, SplitsIntoMantissaAndExponent)
{
    Random random(33);
    for (const Real base : {2.0, 16.0, 65536.0}) {
        std::vector<Complex> a;
        for (int i = 0; i < 400; ++i)
            a.push_back(random.complex() * std::pow(10.0, random.uniform(-320.0, 308.0)));
        const auto n = static_cast<Integer>(a.size());
        std::vector<Complex> m(a.size()), e(a.size());
        CSCALE_EXP(a.data(), m.data(), e.data(), n, base, 1.0 / base);
        for (std::size_t i = 0; i < a.size(); ++i) {
            const Real size = CSIZE(m[i]);
            if (a[i] != 0.0) {
                EXPECT_TRUE(1.0 / base < size && size <= 1.0) << size;
            }
            const int bits = static_cast<int>(std::log2(base) * e[i].real());
            EXPECT_EQ(std::ldexp(m[i].real(), bits), a[i].real());
            EXPECT_EQ(e[i].imag(), 0.0);
        }
    }
}

TEST(Scaling, LimitsAndValuesThatCannotBeScaled)
{
    const Real base = 16.0, inverse = 1.0 / 16.0;
    struct Case
    {
        Complex value, mantissa;
        Real exponent;
    };
    for (const auto& [value, mantissa, exponent] : {Case{1.0, 1.0, 0.0},
                                                    {Complex(0.5, -0.5), Complex(0.5, -0.5), 0.0},
                                                    {inverse, 1.0, -1.0},
                                                    {17.0, 17.0 / 256.0, 2.0},
                                                    {16.0, 1.0, 1.0},
                                                    {0.0, 0.0, 0.0},
                                                    {Complex(1.0, kInfinity), Complex(1.0, kInfinity), 0.0},
                                                    {Complex(1.7e308, 1.7e308), Complex(1.7e308, 1.7e308), 0.0}}) {
        Complex m, e;
        CSCALE_EXP(&value, &m, &e, 1, base, inverse);
        EXPECT_EQ(m, mantissa) << value;
        EXPECT_EQ(e, Complex(exponent, 0.0)) << value;
    }
    const Complex none(kNaN, 100.0);
    Complex m, e = kSentinel;
    CSCALE_EXP(&none, &m, &e, 1, base, inverse);
    EXPECT_TRUE(std::isnan(m.real()));
    EXPECT_EQ(m.imag(), 100.0) << "a NaN passes as it is";
    EXPECT_EQ(e, 0.0);
}

TEST(Scaling, EndsWhereAMultiplicationChangesNothing)
{
    // The smallest number times 1.25 rounds to itself; bases of 1 and below lie outside the contract, yet end too.
    for (const Real base : {1.25, 1.0, 0.5, 0.0, -2.0, kInfinity, kNaN})
        for (const Real value : {5e-324, 1e-310, 0.5, 3.0, 1e308}) {
            const Complex a = value;
            Complex m = kSentinel, e = kSentinel;
            CSCALE_EXP(&a, &m, &e, 1, base, 1.0 / base);
            EXPECT_NE(e, kSentinel) << value << ", base " << base;
        }
    const Complex a = 5e-324;
    Complex m, e;
    CSCALE_EXP(&a, &m, &e, 1, 1.25, 0.8);
    EXPECT_EQ(m, a);
    EXPECT_EQ(e, 0.0);
}

TEST(Bound, IsTheSumOfSizesOnTheCircle)
{
    const Complex a[] = {Complex(1.0, -2.0), Complex(-0.5, 0.0), Complex(3.0, 4.0)};
    const auto bound = [&](Integer n, Real r) {
        Real value = kNaN;
        CPOLY_BOUND(a, n, r, value);
        return value;
    };
    EXPECT_EQ(bound(3, 0.0), 3.0);
    EXPECT_EQ(bound(3, 0.5), 0.125 + 7.0 * 0.25 + 0.5 * 0.5 + 3.0);
    EXPECT_EQ(bound(3, 1.0), 11.5);
    EXPECT_EQ(bound(3, 2.0), (8.0 + 7.0 * 4.0 + 0.5 * 2.0 + 3.0) / 8.0) << "divided by r^3 outside the unit circle";
    EXPECT_DOUBLE_EQ(bound(3, 1.25), bound(3, 1.0) / 1.953125 + (0.953125 + 7.0 * 0.5625 + 0.5 * 0.25) / 1.953125);
    EXPECT_EQ(bound(1, 4.0), 1.75);
    EXPECT_EQ(bound(3, 1e200), 1.0) << "r^3 would overflow";
}

} // namespace
} // namespace tessel::testing
