#include "tests/support/stop.h"
#include "util/elliptic.h"
#include "util/legendre.h"
#include "util/special.h"

#include <cmath>
#include <limits>
#include <numbers>
#include <utility>
#include <vector>

namespace tessel::testing {
namespace {

constexpr Real kPi = std::numbers::pi;
constexpr Real kLargestParameter = 0.999999999999999;

TEST(Sinc, IsSineOverArgumentAndOneAtTheOrigin)
{
    for (const Real x : {0.0, -0.0, 9.9e-31, 1e-30, -1e-30})
        EXPECT_EQ(SINC(x), 1.0) << x;
    EXPECT_EQ(SINC(-1.3), std::sin(1.3) / 1.3);
}

TEST(Fresnel, IsTheApproximationToTheLastDigits)
{
    // Worked out in forty digits with the six coefficients rounded to single precision; the decimal ones differ in the
    // eighth digit.
    const struct
    {
        Real x, c, s;
    } values[] = {{1.0, 0.779292337301018074, 0.438665359615023026}, {2.5, 0.457657115422006279, 0.621105904131119899}};
    for (const auto& [x, c, s] : values) {
        EXPECT_NEAR(FRESNEL_CS(x).real(), c, 3e-16);
        EXPECT_NEAR(FRESNEL_CS(x).imag(), -s, 3e-16);
        EXPECT_EQ(FRESNEL_CS(-x), -FRESNEL_CS(x));
    }
    EXPECT_FALSE(std::signbit(FRESNEL_CS(-0.0).real())) << "a zero is not below zero";

    Complex integral; // by the midpoint rule
    const Real step = 1e-3;
    for (int i = 1; i <= 5000; ++i) {
        const Real x = i * step, middle = x - 0.5 * step;
        integral += step * std::exp(Complex(0.0, -0.5 * kPi * middle * middle));
        EXPECT_LE(std::abs(FRESNEL_CS(x) - integral), 4e-3) << x;
    }
}

TEST(Phase, IsTheArcTangentOfBothPartsUnlessTheModulusIsTiny)
{
    // The last modulus lies a quarter of a unit below the bound: rounded to double it would reach it.
    const Real below = std::nextafter(1e-300, 0.0), unit = 1e-300 - below;
    for (const auto& [z, phase] : {std::pair{Complex(-1.0, 0.0), kPi},
                                   {{-1.0, -0.0}, -kPi},
                                   {{-1e308, 1e308}, 3 * kPi / 4},
                                   {{-0.0, -0.0}, 0.0},
                                   {{0.0, 1e-300}, kPi / 2},
                                   {{-below, 1e-300 * std::sqrt(1.5 * unit / 1e-300)}, 0.0}})
        EXPECT_EQ(CPHASE(z), phase) << z;
    EXPECT_TRUE(std::isnan(CPHASE({std::numeric_limits<Real>::quiet_NaN(), 0.0})));
}

TEST(EllipticIntegrals, AreTheApproximationsToTheLastDigits)
{
    // Worked out in forty digits from the printed coefficients. At zero the logarithm vanishes: the bits are those of
    // sums from the lowest term up.
    const struct
    {
        Real x, k, e, dk, de;
    } values[] = {
        {0.0, 1.57079632679, 1.5707963268, 0x1.921fe525f2a29p-2, -0x1.921f7d571868cp-2},
        {0.25, 1.68575034495765942, 1.46746219786449225, 0.541731987095417886, -0.436576128953070677},
        {0.875, 2.47359617395065976, 1.12461732530099241, 3.72762387543773276, -0.770845486790258784},
        {kLargestParameter, 18.6560823572904454, 1.00000000000000907, 500399958596717.489, -8.82759815080771746},
    };
    for (const auto& [x, k, e, dk, de] : values) {
        const Real error = x == 0.0 ? 0.0 : 4 * std::numeric_limits<Real>::epsilon();
        EXPECT_NEAR(CELLIK_POL(x), k, error * k) << x;
        EXPECT_NEAR(CELLIE_POL(x), e, error * e) << x;
        EXPECT_NEAR(D_CELLIK_POL(x), dk, error * dk) << x;
        EXPECT_NEAR(D_CELLIE_POL(x), de, error * -de) << x;
    }
}

/// By the arithmetic-geometric mean (A&S 17.6.3, 17.6.4), whose steps also sum to E.
TEST(EllipticIntegrals, LieWithinTheStatedErrorOfTheTrueOnes)
{
    for (int i = 0; i < 1000; ++i) {
        const Real x = i / 1000.0;
        Real a = 1.0, b = std::sqrt(1.0 - x), sum = 0.5 * x;
        for (Real power = 1.0, c = 1.0; c > 1e-12; power *= 2.0) {
            c = 0.5 * (a - b);
            b = std::sqrt(a * b);
            a -= c;
            sum += power * c * c;
        }
        const Real k = kPi / (2.0 * a);
        EXPECT_NEAR(CELLIK_POL(x), k, 2e-8) << x;
        EXPECT_NEAR(CELLIE_POL(x), k * (1.0 - sum), 2e-8) << x;
    }
}

TEST(EllipticIntegralsDeathTest, AnArgumentOutOfRangeEndsTheProcess)
{
    for (const Real x : {-1e-300, std::nextafter(kLargestParameter, 1.0)}) {
        EXPECT_STOP(CELLIK_POL(x), "Sub CELLIK_POL: argument x in K(x) out of range !");
        EXPECT_STOP(CELLIE_POL(x), "Sub CELLIE_POL: argument x in E(x) out of range !");
        EXPECT_STOP(D_CELLIK_POL(x), "Sub D_CELLIK_POL: argument x in dK(x)/dx out of range !");
        EXPECT_STOP(D_CELLIE_POL(x), "Sub D_CELLIE_POL: argument x in dE(x)/dx out of range !");
    }
}

/// P_20 from a table that one call begins and a second one continues from degree `first` on.
template <class T, class Tabulate>
T last_of_table(Tabulate tabulate, T x, Integer first)
{
    std::vector<T> p(21);
    Integer flag;
    tabulate(x, first - 1, first - 1, 20, 0, p.data(), flag, nullptr, 0);
    tabulate(x, first, 20, 20, 1, p.data(), flag, nullptr, 0);
    return p[20];
}

TEST(LegendreTable, HasTheBitsOfTheRecurrenceHoweverOftenItIsContinued)
{
    for (const Integer first : {2, 3, 20}) {
        EXPECT_EQ(last_of_table(NEW_PN0UOX, -0.93, first), 0x1.dfcc5e023d7bap-3) << first;
        EXPECT_EQ(last_of_table(NEW_PN0UOZ, Complex(1.1, -0.3), first),
                  Complex(-0x1.753d9b776aa4dp+15, -0x1.1c290e239c29dp+15))
            << first;
    }
}

/// sum P_n(x) t^n = 1 / sqrt(1 - 2 x t + t^2)
template <class T>
void expect_generating_function(void (*tabulate)(const T&, const Integer&, const Integer&, const Integer&,
                                                 const Logical&, T*, Integer&, char*, CharLen),
                                T x)
{
    std::vector<T> p(401);
    Integer flag;
    tabulate(x, 0, 400, 400, 0, p.data(), flag, nullptr, 0);
    const Real t = 0.5;
    T sum = 0.0;
    for (auto value = p.rbegin(); value != p.rend(); ++value)
        sum = sum * t + *value;
    EXPECT_LE(std::abs(sum - 1.0 / std::sqrt(1.0 - 2.0 * t * x + t * t)), 1e-14) << x;
}

TEST(LegendreTable, HasItsGeneratingFunction)
{
    for (const Real x : {-1.0, -0.93, 0.0, 1e-9, 0.3, 0.9999, 1.0})
        expect_generating_function(NEW_PN0UOX, x);
    for (const Complex z : {Complex(0.3, 0.4), Complex(-0.2, -0.3), Complex(0.0, 0.5)})
        expect_generating_function(NEW_PN0UOZ, z);
}

/// Expected are values worked out apart, in exact integers.
TEST(RandomDeviates, EveryProcessDrawsTheSameSequence)
{
    static int draws = 0; // the generator is one for the process, and nothing else here draws from it
    if (draws > 0)
        GTEST_SKIP() << "the sequence has begun";
    EXPECT_EQ(GAUSS_RAN(0.0, 1.0), -0x1.7def8ddf593c0p-4) << "the sum of twelve less 6";
    draws = 12;
    for (const auto& [number, k] : {std::pair{13, 25857}, {1000, 155035}, {100000, 629473}, {1000000, 252535}}) {
        while (++draws < number)
            RECIPES_RAN2();
        EXPECT_EQ(RECIPES_RAN2(), k * 1.4005111865831029e-06) << number; // k / 714025
    }
    EXPECT_EQ(GAUSS_RAN(-3.5, 0.0), -3.5);
}

} // namespace
} // namespace tessel::testing
