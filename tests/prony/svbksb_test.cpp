#include "prony/svbksb.h"

#include "tests/support/message.h"
#include "tests/support/random.h"

#include <limits>
#include <string>
#include <vector>

namespace tessel::testing {
namespace {

constexpr char kOutOfBounds[] = "Sub RECIPES_SVBKSB: input parameters out of bounds !";

/// A system of the given extents with padded leading dimensions; U and V are arbitrary, which the formula allows.
struct System
{
    System(Integer rows, Integer unknowns, std::uint64_t seed = 1)
        : m(rows), n(unknowns), mp(rows + 3), np(unknowns + 2), x(static_cast<std::size_t>(np))
    {
        Random random(seed);
        const auto columns = static_cast<std::size_t>(n);
        u = random.complexes(static_cast<std::size_t>(mp) * columns);
        v = random.complexes(static_cast<std::size_t>(np) * columns);
        w = random.complexes(columns);
        b = random.complexes(static_cast<std::size_t>(mp));
    }

    std::string solve()
    {
        return status_of([&](Integer& flag, char* text, CharLen length) {
            RECIPES_SVBKSB(u.data(), w.data(), v.data(), m, n, mp, np, b.data(), x.data(), flag, text, length);
        });
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
        ASSERT_EQ(system.solve(), "");
        const auto expected = system.expected();
        Real size = 0.0;
        for (const Complex& value : expected)
            size = std::max(size, std::abs(value));
        for (std::size_t j = 0; j < expected.size(); ++j)
            EXPECT_LE(std::abs(system.x[j] - expected[j]), 1e-14 * size * (m + n)) << m << " x " << n << ", x" << j;
    }
}

TEST(BackSubstitution, OnlyAnExactZeroDropsAComponent)
{
    System system(6, 3);
    system.w = {0.0, Complex(0.0, 1e-300), 1.0};
    ASSERT_EQ(system.solve(), "");
    EXPECT_GT(std::abs(system.x[0]), 1e290) << "a tiny imaginary part is not zero";

    system.w = {0.0, 0.0, 0.0};
    ASSERT_EQ(system.solve(), "");
    for (std::size_t j = 0; j < 3; ++j)
        EXPECT_EQ(system.x[j], Complex(0.0, 0.0));

    system.w = {1.0, Complex(0.0, std::numeric_limits<Real>::quiet_NaN()), 1.0};
    ASSERT_EQ(system.solve(), "");
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
        ASSERT_EQ(system.solve(), "");
        ASSERT_EQ(reference.solve(), "");
        for (std::size_t j = 0; j < 2; ++j)
            EXPECT_LE(std::abs(system.x[j] - reference.x[j]), 1e-13 * std::abs(reference.x[j]));
    }
}

TEST(BackSubstitution, RefusesExtentsOutOfBounds)
{
    System columns(6, 3), rows(6, 3), many(6, 3), none(6, 3);
    columns.np = 2;
    EXPECT_EQ(columns.solve(), kOutOfBounds);
    rows.mp = 5;
    EXPECT_EQ(rows.solve(), kOutOfBounds);
    many.n = many.np = 5001;
    EXPECT_EQ(many.solve(), kOutOfBounds);
    none.n = -1;
    EXPECT_EQ(none.solve(), "") << "nothing to do is not an error";
}

TEST(BackSubstitution, TakesFiveThousandUnknowns)
{
    System system(1, 1);
    system.n = system.np = 5000;
    system.u.assign(5000 * 4, 1.0); // MP is 4
    system.w.assign(5000, 2.0);
    system.v.assign(5000 * 5000, 1e-3);
    system.b = {4.0};
    system.x.resize(5000);
    ASSERT_EQ(system.solve(), "");
    EXPECT_NEAR(system.x[4999].real(), 10.0, 1e-11);
}

} // namespace
} // namespace tessel::testing
