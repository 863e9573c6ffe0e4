#include "util/legendre.h"

#include "tests/support/message.h"

#include <cmath>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

namespace tessel::testing {
namespace {

/// Goes on with the table given, and returns the text of the status.
template <class T>
std::string extend(std::vector<T>& p, T x, Integer n1, Integer n2, Logical cont)
{
    const auto nmax = static_cast<Integer>(p.size()) - 1;
    return status_of([&](Integer& flag, char* text, CharLen length) {
        if constexpr (std::is_same_v<T, Real>)
            NEW_PN0UOX(x, n1, n2, nmax, cont, p.data(), flag, text, length);
        else
            NEW_PN0UOZ(x, n1, n2, nmax, cont, p.data(), flag, text, length);
    });
}

template <class T>
std::vector<T> table(T x, Integer degree)
{
    std::vector<T> p(static_cast<std::size_t>(degree) + 1);
    EXPECT_EQ(extend(p, x, 0, degree, 0), "");
    return p;
}

/// sum P_n(x) t^n = 1 / sqrt(1 - 2 x t + t^2), of terms that fall and rise again with t.
template <class T>
void expect_generating_function(T x, Real largest)
{
    for (const Real t : {0.05, 0.4, largest}) {
        T sum = 0.0;
        Real power = 1.0, size = 0.0;
        for (const T& value : table(x, 400)) {
            sum += value * power;
            size += std::abs(value) * power;
            power *= t;
        }
        EXPECT_LE(std::abs(sum - 1.0 / std::sqrt(1.0 - 2.0 * t * x + t * t)), 1e-14 * size) << x << ", " << t;
    }
}

TEST(LegendreTable, HasItsGeneratingFunction)
{
    for (const Real x : {-1.0, -0.93, -0.5, 0.0, 1e-9, 0.3, 0.77, 0.9999, 1.0})
        expect_generating_function(x, 0.9);
    for (const Complex z : {Complex(0.3, 0.4), Complex(-0.2, -0.6), Complex(0.9, 0.1), Complex(0.0, 0.5)})
        expect_generating_function(z, 0.5);
    for (std::size_t n = 0; n <= 100; ++n) {
        EXPECT_EQ(table(1.0, 100)[n], 1.0);
        EXPECT_EQ(table(-1.0, 100)[n], n % 2 == 0 ? 1.0 : -1.0);
    }
    EXPECT_EQ(table(Complex(3.0, 0.0), 2)[2], Complex(13.0, 0.0)) << "a complex argument has no bound";
}

template <class T>
void expect_continuation(T x)
{
    const auto whole = table(x, 12);
    for (Integer n1 = 2; n1 <= 12; ++n1) {
        auto p = whole;
        std::fill(p.begin() + n1, p.end(), T(-7.25));
        EXPECT_EQ(extend(p, x, n1, 12, 1), "");
        EXPECT_EQ(p, whole) << "from degree " << n1;
    }
    // The caller's own start: the recurrence is linear.
    std::vector<T> p(13);
    p[3] = 2.0 * whole[3];
    p[4] = 2.0 * whole[4];
    EXPECT_EQ(extend(p, x, 5, 12, -1), ""); // odd
    EXPECT_EQ(p[12], 2.0 * whole[12]);
    EXPECT_EQ(p[2], T(0.0));
}

TEST(LegendreTable, ContinuesFromTheTable)
{
    expect_continuation(0.6);
    expect_continuation(Complex(1.2, -0.7));

    std::vector<Real> p(6, -7.25);
    EXPECT_EQ(extend(p, 0.6, 3, 5, 2), ""); // even: a new table, wherever N1 lies
    EXPECT_EQ(p, table(0.6, 5));
}

TEST(LegendreTable, TakesRealArgumentsOfTheIntervalAlone)
{
    std::vector<Real> p(8);
    for (const Real x : {std::nextafter(1.0, 2.0), -std::nextafter(1.0, 2.0), std::numeric_limits<Real>::quiet_NaN()})
        EXPECT_EQ(extend(p, x, 0, 3, 0), "Sub NEW_PN0UOX: input parameters out of bounds !");
}

} // namespace
} // namespace tessel::testing
