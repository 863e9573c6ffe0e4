#include "util/legendre.h"

#include "tests/support/message.h"
#include "tests/support/random.h"

#include <boost/math/special_functions/legendre.hpp>

#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

namespace tessel::testing {
namespace {

constexpr Real kSentinel = -7.25;

void call(Real x, Integer n1, Integer n2, Integer nmax, Logical cont, Real* p, Integer& flag, char* text,
          CharLen length)
{
    NEW_PN0UOX(x, n1, n2, nmax, cont, p, flag, text, length);
}
void call(Complex z, Integer n1, Integer n2, Integer nmax, Logical cont, Complex* p, Integer& flag, char* text,
          CharLen length)
{
    NEW_PN0UOZ(z, n1, n2, nmax, cont, p, flag, text, length);
}

/// A call that must succeed on the table given.
template <class T>
void extend(std::vector<T>& p, T x, Integer n1, Integer n2, Logical cont)
{
    Message message;
    Integer flag = 77;
    call(x, n1, n2, static_cast<Integer>(p.size()) - 1, cont, p.data(), flag, message.data(), message.length());
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(message.text(), padded(""));
}

template <class T>
std::vector<T> table(T x, Integer degree)
{
    std::vector<T> p(static_cast<std::size_t>(degree) + 1, T(kSentinel));
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

TEST(LegendreTable, StartsWithWhatTheDegreesAskFor)
{
    std::vector<Real> p(4, kSentinel);
    extend(p, 0.25, 0, 0, 0);
    EXPECT_EQ(p, (std::vector<Real>{1.0, kSentinel, kSentinel, kSentinel}));
    extend(p, 0.25, 1, 1, 0); // N1 is checked and no more
    EXPECT_EQ(p, (std::vector<Real>{1.0, 0.25, kSentinel, kSentinel}));
    extend(p, 0.25, 2, 2, 0);
    EXPECT_EQ(p, (std::vector<Real>{1.0, 0.25, (3.0 * 0.25 * 0.25 - 1.0) / 2.0, kSentinel}));
}

template <class T>
void expect_continuation(T x)
{
    const auto whole = table(x, 12);
    for (Integer n1 = 2; n1 <= 12; ++n1) {
        auto p = table(x, 12);
        std::fill(p.begin() + n1, p.end(), T(kSentinel));
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
    p[1] = kSentinel;
    extend(p, 0.6, 0, 5, 2); // even: a new table
    EXPECT_EQ(p, table(0.6, 5));
}

template <class T>
void expect_refused(const char* text, T x, Integer n1, Integer n2, Integer nmax, Logical cont)
{
    std::vector<T> p(8, T(kSentinel));
    expect_status(-1, text, [&](Integer& flag, char* message, CharLen length) {
        call(x, n1, n2, nmax, cont, p.data(), flag, message, length);
    });
    EXPECT_EQ(p, std::vector<T>(8, T(kSentinel)));
}

template <class T>
void expect_degrees_refused(const char* text)
{
    expect_refused(text, T(0.5), -1, 3, 7, 0);
    expect_refused(text, T(0.5), 4, 3, 7, 0);
    expect_refused(text, T(0.5), 0, 8, 7, 0);
    expect_refused(text, T(0.5), 1, 3, 7, 1);
}

TEST(LegendreTable, RefusesWhatIsOutOfBounds)
{
    constexpr char kReal[] = "Sub NEW_PN0UOX: input parameters out of bounds !";
    expect_degrees_refused<Real>(kReal);
    expect_degrees_refused<Complex>("Sub NEW_PN0UOZ: input parameters out of bounds !");
    for (const Real x : {std::nextafter(1.0, 2.0), -std::nextafter(1.0, 2.0), std::numeric_limits<Real>::quiet_NaN()})
        expect_refused(kReal, x, 0, 3, 7, 0);
    EXPECT_EQ(table(Complex(3.0, 0.0), 2)[2], Complex(13.0, 0.0)) << "a complex argument has no bound";
}

} // namespace
} // namespace tessel::testing
