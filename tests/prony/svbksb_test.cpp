#include "prony/svbksb.h"

#include "tests/support/message.h"
#include "tests/support/random.h"

#include <string>
#include <vector>

namespace tessel::testing {
namespace {

/// A system of the given extents with padded leading dimensions; U and V are arbitrary, which the formula allows.
struct System
{
    System(Integer rows, Integer unknowns)
        : m(rows), n(unknowns), mp(rows + 3), np(unknowns + 2), x(static_cast<std::size_t>(np))
    {
        Random random(1);
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
    /// Component j of the formula, in extended precision.
    Complex expected(Integer j) const
    {
        using Wide = std::complex<long double>;
        const auto at = [](const std::vector<Complex>& a, Integer i) { return Wide(a[static_cast<std::size_t>(i)]); };
        Wide sum = 0;
        for (Integer k = 0; k < n; ++k) {
            Wide s = 0;
            for (Integer i = 0; i < m; ++i)
                s += std::conj(at(u, i + k * mp)) * at(b, i);
            if (at(w, k) != Wide(0))
                sum += at(v, j + k * np) * (s / at(w, k));
        }
        return Complex(sum);
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
        for (Integer j = 0; j < n; ++j)
            EXPECT_LE(std::abs(system.x[static_cast<std::size_t>(j)] - system.expected(j)), 1e-13) << m << 'x' << n;
    }
}

TEST(BackSubstitution, TakesUpToFiveThousandUnknowns)
{
    System system(1, 1);
    system.n = system.np = 5000;
    system.u.assign(5000 * 4, 1.0); // MP is 4
    system.w.assign(5000, 2.0);
    system.v.assign(5000 * 5000, 1e-3);
    system.b = {4.0};
    system.x.resize(5000);
    EXPECT_EQ(system.solve(), "");
    EXPECT_NEAR(system.x[4999].real(), 10.0, 1e-11);

    system.n = system.np = 5001;
    EXPECT_EQ(system.solve(), "Sub RECIPES_SVBKSB: input parameters out of bounds !");
    system.n = -1;
    EXPECT_EQ(system.solve(), "") << "nothing to do is not an error";
}

} // namespace
} // namespace tessel::testing
