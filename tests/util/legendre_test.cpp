#include "util/legendre.h"

#include "tests/support/message.h"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace tessel::testing {
namespace {

constexpr Integer kDegree = 400;

/// A new table, and the text of its status.
template <class T, class Tabulate>
std::string tabulate(Tabulate routine, T x, std::vector<T>& p)
{
    p.assign(kDegree + 1, T(0.0));
    return status_of([&](Integer& flag, char* text, CharLen length) {
        routine(x, 0, kDegree, kDegree, 0, p.data(), flag, text, length);
    });
}

/// sum P_n(x) t^n = 1 / sqrt(1 - 2 x t + t^2)
template <class T, class Tabulate>
void expect_generating_function(Tabulate routine, T x, Real largest)
{
    std::vector<T> p;
    EXPECT_EQ(tabulate(routine, x, p), "");
    for (const Real t : {0.05, 0.4, largest}) {
        T sum = 0.0;
        Real power = 1.0, size = 0.0;
        for (const T& value : p) {
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
        expect_generating_function(NEW_PN0UOX, x, 0.9);
    for (const Complex z : {Complex(0.3, 0.4), Complex(-0.2, -0.6), Complex(0.9, 0.1), Complex(0.0, 0.5)})
        expect_generating_function(NEW_PN0UOZ, z, 0.5);
}

TEST(LegendreTable, TakesRealArgumentsOfTheIntervalAlone)
{
    std::vector<Real> p;
    for (const Real x : {std::nextafter(1.0, 2.0), -std::nextafter(1.0, 2.0), std::numeric_limits<Real>::quiet_NaN()})
        EXPECT_EQ(tabulate(NEW_PN0UOX, x, p), "Sub NEW_PN0UOX: input parameters out of bounds !");
    std::vector<Complex> q;
    EXPECT_EQ(tabulate(NEW_PN0UOZ, Complex(3.0), q), "");
    EXPECT_EQ(q[2], Complex(13.0)) << "a complex argument has no bound";
}

} // namespace
} // namespace tessel::testing
