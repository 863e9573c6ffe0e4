#include "util/quadrature.h"

#include <boost/math/quadrature/gauss.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace tessel::testing {
namespace {

constexpr Real kSentinel = -7.25;

TEST(LinearGrid, PointsAreCountedFromTheLeftEnd)
{
    std::vector<Real> x(12, kSentinel);
    Real h = kSentinel;
    LINEAR_GRID(0.1, 0.8, 10, nullptr, h, x.data());
    EXPECT_EQ(h, (0.8 - 0.1) / 10.0);
    for (int i = 0; i <= 10; ++i)
        EXPECT_EQ(x[static_cast<std::size_t>(i)], 0.1 + i * h);
    EXPECT_NEAR(x[10], 0.8, 1e-15);
    EXPECT_EQ(x[11], kSentinel);

    LINEAR_GRID(3.0, -1.0, 2, nullptr, h, x.data());
    EXPECT_EQ(h, -2.0);
    EXPECT_EQ(x[2], -1.0);
}

TEST(LinearGrid, NoStepGivesTheMidpointAndFewerTheStepAlone)
{
    std::vector<Real> x(2, kSentinel);
    Real h = kSentinel;
    LINEAR_GRID(1.0, 4.0, 0, nullptr, h, x.data());
    EXPECT_EQ(h, 3.0);
    EXPECT_EQ(x, (std::vector<Real>{2.5, kSentinel}));

    for (const Integer n : {-1, -2}) {
        x[0] = kSentinel;
        LINEAR_GRID(1.0, 4.0, n, nullptr, h, x.data());
        EXPECT_EQ(h, 3.0 / n);
        EXPECT_EQ(x, std::vector<Real>(2, kSentinel));
    }
}

/// A rule with a sentinel behind it.
struct Rule
{
    Rule(Real x1, Real x2, Integer count) : n(static_cast<std::size_t>(count)), x(n + 1, kSentinel), w(n + 1, kSentinel)
    {
        RECIPES_GAULEG(x1, x2, x.data(), w.data(), count);
        EXPECT_EQ(x[n], kSentinel);
        EXPECT_EQ(w[n], kSentinel);
    }

    std::size_t n;
    std::vector<Real> x, w;
};

TEST(GaussLegendre, KnownRules)
{
    const auto expect = [](const Rule& rule, const std::vector<Real>& x, const std::vector<Real>& w) {
        for (std::size_t i = 0; i < rule.n; ++i) {
            EXPECT_NEAR(rule.x[i], x[i], 4e-16) << rule.n;
            EXPECT_NEAR(rule.w[i], w[i], 4e-15) << rule.n;
        }
    };
    const Real third = std::sqrt(1.0 / 3.0), wide = std::sqrt(0.6);
    expect({-1.0, 1.0, 1}, {0.0}, {2.0});
    expect({-1.0, 1.0, 2}, {-third, third}, {1.0, 1.0});
    expect({-1.0, 1.0, 3}, {-wide, 0.0, wide}, {5.0 / 9.0, 8.0 / 9.0, 5.0 / 9.0});

    using Peer = boost::math::quadrature::gauss<Real, 30>; // nodes >= 0, ascending
    const Rule rule(-1.0, 1.0, 30);
    for (std::size_t i = 0; i < 15; ++i) {
        EXPECT_NEAR(rule.x[15 + i], Peer::abscissa()[i], 4e-16);
        EXPECT_NEAR(rule.w[15 + i], Peer::weights()[i], 2e-13 * Peer::weights()[i]);
    }
}

TEST(GaussLegendre, IsExactForPolynomialsOfDegree2NMinus1)
{
    for (const auto& [x1, x2] : {std::pair{-1.0, 1.0}, {0.0, 2.0}, {3.0, -1.5}}) {
        for (Integer n = 1; n <= 20; ++n) {
            const Rule rule(x1, x2, n);
            for (int power = 0; power <= 2 * n - 1; ++power) {
                Real sum = 0.0, size = 0.0;
                for (std::size_t i = 0; i < rule.n; ++i) {
                    const Real term = rule.w[i] * std::pow(rule.x[i], power);
                    sum += term;
                    size += std::fabs(term);
                }
                const Real exact = (std::pow(x2, power + 1) - std::pow(x1, power + 1)) / (power + 1);
                EXPECT_NEAR(sum, exact, 2e-13 * size) << n << " nodes, power " << power;
            }
        }
    }
}

TEST(GaussLegendre, NodesAscendAndWeightsSumToTheLength)
{
    for (const Integer n : {101, 1000, 3000}) {
        const Rule up(2.0, 5.0, n), down(5.0, 2.0, n);
        Real sum = 0.0;
        for (std::size_t i = 0; i < up.n; ++i) {
            sum += up.w[i];
            EXPECT_GT(up.w[i], 0.0);
            EXPECT_EQ(down.w[i], -up.w[i]);
            if (i > 0) {
                EXPECT_LT(up.x[i - 1], up.x[i]);
                EXPECT_GT(down.x[i - 1], down.x[i]);
            }
        }
        EXPECT_NEAR(sum, 3.0, 1e-10);
    }
    EXPECT_NEAR(Rule(2.0, 5.0, 101).x[50], 3.5, 1e-15);
}

TEST(GaussLegendre, KeepsTheBitsOfItsTruncatedPiAndItsOrder)
{
    // Traced apart from this code. With pi in full, or with (1 - z^2) pp multiplied first, the weight ends in other
    // digits; an initial guess that is off by one unit in the last place changes nothing.
    const Rule rule(-1.0, 1.0, 12);
    EXPECT_EQ(rule.x[0], -0x1.f68f1d8e42e81p-1);
    EXPECT_EQ(rule.x[11], 0x1.f68f1d8e42e81p-1);
    EXPECT_EQ(rule.w[0], 0x1.8275d9dea6b4dp-5);
    EXPECT_EQ(rule.w[11], rule.w[0]);
}

TEST(GaussLegendre, NoNodesWriteNothing)
{
    for (const Integer n : {0, -1, -2, -3, -8}) {
        Real x = kSentinel, w = kSentinel;
        RECIPES_GAULEG(0.0, 1.0, &x, &w, n);
        EXPECT_EQ(x, kSentinel);
        EXPECT_EQ(w, kSentinel);
    }
}

} // namespace
} // namespace tessel::testing
