#include "prony/svbksb.h"

#include "tests/support/message.h"
#include "tests/support/random.h"

#include <limits>
#include <vector>

namespace tessel::testing {
namespace {

constexpr char kOutOfBounds[] = "Sub RECIPES_SVBKSB: input parameters out of bounds !";
constexpr Complex kSentinel(-7.25, 3.5);

/// A system of the given extents with padded leading dimensions; U and V are arbitrary, which the formula allows.
struct System
{
    System(Integer rows, Integer unknowns, std::uint64_t seed = 1)
        : m(rows), n(unknowns), mp(rows + 3), np(unknowns + 2), x(static_cast<std::size_t>(np) + 1, kSentinel)
    {
        Random random(seed);
        const auto columns = static_cast<std::size_t>(n);
        u = random.complexes(static_cast<std::size_t>(mp) * columns);
        v = random.complexes(static_cast<std::size_t>(np) * columns);
        w = random.complexes(columns);
        b = random.complexes(static_cast<std::size_t>(mp));
    }

    void solve(Integer& flag, char* text, CharLen length)
    {
        RECIPES_SVBKSB(u.data(), w.data(), v.data(), m, n, mp, np, b.data(), x.data(), flag, text, length);
    }
    Integer solve()
    {
        Message message;
        Integer flag = 77;
        solve(flag, message.data(), message.length());
        return flag;
    }
    /// The formula, in extended precision.
    std::vector<Complex> expected() const
    {
        using Wide = std::complex<long double>;
        std::vector<Wide> sum(static_cast<std::size_t>(n));
        for (Integer jj = 0; jj < n; ++jj) {
            const Wide weight(w[static_cast<std::size_t>(jj)]);
            if (weight == Wide(0))
                continue;
            Wide s = 0;
            for (Integer i = 0; i < m; ++i)
                s += std::conj(Wide(u[static_cast<std::size_t>(i + jj * mp)])) * Wide(b[static_cast<std::size_t>(i)]);
            for (Integer j = 0; j < n; ++j)
                sum[static_cast<std::size_t>(j)] += Wide(v[static_cast<std::size_t>(j + jj * np)]) * (s / weight);
        }
        return {sum.begin(), sum.end()};
    }

    Integer m, n, mp, np;
    std::vector<Complex> u, v, w, b, x;
};

TEST(BackSubstitution, FollowsTheFormula)
{
    for (const auto& [m, n] : {std::pair{1, 1}, {5, 5}, {40, 7}, {3, 12}, {0, 4}}) {
        System system(m, n);
        if (n > 4)
            system.w[2] = Complex(-0.0, 0.0); // either zero drops its component
        ASSERT_EQ(system.solve(), 0);
        const auto expected = system.expected();
        Real size = 0.0;
        for (const Complex& value : expected)
            size = std::max(size, std::abs(value));
        for (std::size_t j = 0; j < expected.size(); ++j)
            EXPECT_LE(std::abs(system.x[j] - expected[j]), 1e-14 * size * (m + n)) << m << " x " << n << ", x" << j;
        EXPECT_EQ(system.x[expected.size()], kSentinel) << "elements beyond N stay as they are";
    }
}

TEST(BackSubstitution, OnlyAnExactZeroDropsAComponent)
{
    System system(6, 3);
    system.w = {0.0, Complex(0.0, 1e-300), 1.0};
    ASSERT_EQ(system.solve(), 0);
    EXPECT_GT(std::abs(system.x[0]), 1e290) << "a tiny imaginary part is not zero";

    system.w = {0.0, 0.0, 0.0};
    ASSERT_EQ(system.solve(), 0);
    for (std::size_t j = 0; j < 3; ++j)
        EXPECT_EQ(system.x[j], Complex(0.0, 0.0));

    system.w = {1.0, Complex(0.0, std::numeric_limits<Real>::quiet_NaN()), 1.0};
    ASSERT_EQ(system.solve(), 0);
    EXPECT_TRUE(std::isnan(system.x[0].real())) << "a NaN is not zero";
}

TEST(BackSubstitution, QuotientNeitherOverflowsNorUnderflows)
{
    for (const Real scale : {1e-290, 1e290}) {
        System system(4, 2);
        for (Complex& value : system.w)
            value *= scale;
        for (Complex& value : system.b)
            value *= scale;
        System reference(4, 2);
        ASSERT_EQ(system.solve(), 0);
        ASSERT_EQ(reference.solve(), 0);
        for (std::size_t j = 0; j < 2; ++j)
            EXPECT_LE(std::abs(system.x[j] - reference.x[j]), 1e-13 * std::abs(reference.x[j]));
    }
}

TEST(BackSubstitution, RefusesExtentsOutOfBounds)
{
    const auto refused = [](auto change) {
        System system(6, 3);
        change(system);
        expect_status(-1, kOutOfBounds,
                      [&](Integer& flag, char* text, CharLen length) { system.solve(flag, text, length); });
        for (const Complex& value : system.x)
            EXPECT_EQ(value, kSentinel);
    };
    refused([](System& system) { system.np = 2; });
    refused([](System& system) { system.mp = 5; });
    refused([](System& system) { system.n = system.np = 5001; });
}

TEST(BackSubstitution, TakesFiveThousandUnknownsAndNone)
{
    const Integer n = 5000, one = 1;
    std::vector<Complex> u(n, 1.0), w(n, 2.0), x(n, kSentinel);
    const std::vector<Complex> v(static_cast<std::size_t>(n) * n, 1e-3);
    const Complex b = 4.0;
    Message message;
    Integer flag = 77;
    RECIPES_SVBKSB(u.data(), w.data(), v.data(), one, n, one, n, &b, x.data(), flag, message.data(), message.length());
    EXPECT_EQ(flag, 0);
    EXPECT_NEAR(x[4999].real(), 10.0, 1e-11);

    System none(4, 3);
    none.n = -1;
    expect_status(0, "", [&](Integer& f, char* text, CharLen length) { none.solve(f, text, length); });
    EXPECT_EQ(none.x[0], kSentinel);
}

} // namespace
} // namespace tessel::testing
