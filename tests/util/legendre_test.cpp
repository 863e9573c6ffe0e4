#include "util/legendre.h"

#include "tests/support/message.h"
#include "tests/support/random.h"

#include <boost/math/special_functions/legendre.hpp>

#include <cmath>
#include <limits>
#include <numbers>
#include <string>
#include <type_traits>
#include <vector>

namespace tessel::testing {
namespace {

/// Goes on with the table given; the status must be this text.
template <class T>
void extend(std::vector<T>& p, T x, Integer n1, Integer n2, Logical cont, const std::string& expected = "")
{
    const auto nmax = static_cast<Integer>(p.size()) - 1;
    EXPECT_EQ(status_of([&](Integer& flag, char* text, CharLen length) {
                  if constexpr (std::is_same_v<T, Real>)
                      NEW_PN0UOX(x, n1, n2, nmax, cont, p.data(), flag, text, length);
                  else
                      NEW_PN0UOZ(x, n1, n2, nmax, cont, p.data(), flag, text, length);
              }),
              expected);
}

template <class T>
std::vector<T> table(T x, Integer degree)
{
    std::vector<T> p(static_cast<std::size_t>(degree) + 1);
    extend(p, x, 0, degree, 0);
    return p;
}

TEST(LegendreTable, RealValues)
{
    for (const Real x : {-1.0, -0.93, -0.5, 0.0, 1e-9, 0.3, 0.77, 0.9999, 1.0}) {
        const auto p = table(x, 100);
        for (int n = 0; n <= 100; ++n) {
            const auto truth = static_cast<Real>(boost::math::legendre_p(n, static_cast<long double>(x)));
            EXPECT_NEAR(p[static_cast<std::size_t>(n)], truth, 2e-14) << "P" << n << ", " << x;
        }
    }
    for (std::size_t n = 0; n <= 100; ++n) {
        EXPECT_EQ(table(1.0, 100)[n], 1.0);
        EXPECT_EQ(table(-1.0, 100)[n], n % 2 == 0 ? 1.0 : -1.0);
    }
}

TEST(LegendreTable, ComplexValues)
{
    // Laplace's integral: P_n(z) is the mean of (z + sqrt(z^2 - 1) cos t)^n over a turn, which a sum of more than n
    // equidistant terms gives exactly.
    using Wide = std::complex<long double>;
    constexpr int kDegree = 30, kTerms = 40;
    Random random(2);
    for (int k = 0; k < 50; ++k) {
        const Complex z = 1.5 * random.complex();
        const auto p = table(z, kDegree);
        const Wide root = std::sqrt(Wide(z) * Wide(z) - 1.0L);
        for (int n = 0; n <= kDegree; ++n) {
            Wide mean = 0;
            long double size = 0;
            for (int term = 0; term < kTerms; ++term) {
                const long double turn = 2 * std::numbers::pi_v<long double> * term / kTerms;
                const Wide value = std::pow(Wide(z) + root * std::cos(turn), n) / static_cast<long double>(kTerms);
                mean += value;
                size += std::abs(value);
            }
            const Complex expected(mean);
            EXPECT_LE(std::abs(p[static_cast<std::size_t>(n)] - expected), 2e-14 * static_cast<Real>(size))
                << "P" << n << " at " << z;
        }
    }
}

template <class T>
void expect_continuation(T x)
{
    const auto whole = table(x, 12);
    for (Integer n1 = 2; n1 <= 12; ++n1) {
        auto p = table(x, 12);
        std::fill(p.begin() + n1, p.end(), T(-7.25));
        extend(p, x, n1, 12, 1);
        EXPECT_EQ(p, whole) << "from degree " << n1;
    }
    // The caller's own start: the recurrence is linear.
    std::vector<T> p(13, T(0.0));
    p[3] = 2.0 * whole[3];
    p[4] = 2.0 * whole[4];
    extend(p, x, 5, 12, -1); // odd
    EXPECT_EQ(p[12], 2.0 * whole[12]);
    EXPECT_EQ(p[2], T(0.0));
}

TEST(LegendreTable, ContinuesFromTheTable)
{
    expect_continuation(0.6);
    expect_continuation(Complex(1.2, -0.7));

    auto p = table(0.6, 5);
    p[1] = -7.25;
    extend(p, 0.6, 3, 5, 2); // even: a new table, wherever N1 lies
    EXPECT_EQ(p, table(0.6, 5));
}

TEST(LegendreTable, TakesRealArgumentsOfTheIntervalAlone)
{
    std::vector<Real> p(8);
    for (const Real x : {std::nextafter(1.0, 2.0), -std::nextafter(1.0, 2.0), std::numeric_limits<Real>::quiet_NaN()})
        extend(p, x, 0, 3, 0, "Sub NEW_PN0UOX: input parameters out of bounds !");
    EXPECT_EQ(table(Complex(3.0, 0.0), 2)[2], Complex(13.0, 0.0)) << "a complex argument has no bound";
    std::vector<Complex> q(8);
    const Integer refused[][3] = {{-1, 3, 0}, {4, 3, 0}, {0, 8, 0}, {1, 3, 1}}; // N1, N2, CONT
    for (const auto& [n1, n2, cont] : refused)
        extend(q, Complex(0.5), n1, n2, cont, "Sub NEW_PN0UOZ: input parameters out of bounds !");
}

} // namespace
} // namespace tessel::testing
