#include "util/interpolation.h"

#include "tests/support/message.h"
#include "tests/support/random.h"
#include "tests/support/stop.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace tessel::testing {
namespace {

constexpr Real kNaN = std::numeric_limits<Real>::quiet_NaN();
constexpr char kInputError[] = "Sub FIND_INTERVAL: input error !";
constexpr char kOutOfRange[] = "Sub LAGRANGE_COEFF: abszissa x out of range x0...xN !";

Integer interval(const std::vector<Real>& x, Real xv)
{
    Integer i = -99;
    FIND_INTERVAL(x.data(), static_cast<Integer>(x.size()), xv, i);
    return i;
}

TEST(FindInterval, GivesNodesToTheIntervalThatTheyStartAndTheEndToTheLast)
{
    Random random(3);
    for (std::size_t n = 2; n < 70; ++n) {
        std::vector<Real> x(n);
        for (Real& value : x)
            value = random.below(40); // with repeated nodes
        std::sort(x.begin(), x.end());
        x.back() = 40.0;
        for (int k = -2; k <= 82; ++k) {
            const Real xv = 0.5 * k;
            const auto above = std::upper_bound(x.begin(), x.end(), xv);
            const auto expected = xv == 40.0 ? n - 1 : static_cast<std::size_t>(above - x.begin());
            ASSERT_EQ(interval(x, xv), static_cast<Integer>(expected)) << "n " << n << ", xv " << xv;
        }
    }
}

TEST(FindInterval, ValuesThatAreNotNumbersPass)
{
    EXPECT_EQ(interval({0.0, 1.0, 2.0, 3.0}, kNaN), 1);
    EXPECT_EQ(interval({kNaN, 1.0, 2.0, 3.0}, 2.5), 3);
    EXPECT_EQ(interval({0.0, 1.0, 2.0, kNaN}, 7.0), 3);
    EXPECT_EQ(interval({0.0, kNaN, 2.0, 3.0}, 0.5), 1);
}

TEST(FindIntervalDeathTest, BadTablesEndTheProcess)
{
    EXPECT_STOP(interval({1.0, 2.0, 1.0}, 1.0), kInputError);
    EXPECT_STOP(interval({2.0, 1.0}, 1.5), kInputError);
    EXPECT_STOP(interval({1.0}, 1.0), kInputError);
    EXPECT_STOP(interval({}, 1.0), kInputError);

    // One entry that is not a number passes as a table and holds no interval, whatever lies behind it.
    const Real x[] = {kNaN, 5.0};
    Integer i = -99;
    EXPECT_STOP(FIND_INTERVAL(x, 1, 1.0, i), "Sub FIND_INTERVAL: fatal error in algorithm !");
}

/// The weights, whose status must be this text.
std::vector<Real> weights(const std::vector<Real>& nodes, Real x, const std::string& expected = "")
{
    std::vector<Real> w(nodes.size());
    EXPECT_EQ(status_of([&](Integer& flag, char* text, CharLen length) {
                  LAGRANGE_COEFF(x, nodes.data(), static_cast<Integer>(nodes.size()) - 1, w.data(), flag, text, length);
              }),
              expected);
    return w;
}

TEST(LagrangeWeights, ReproducePolynomialsUpToTheirDegree)
{
    Random random(5);
    for (std::size_t count = 1; count <= 9; ++count) {
        std::vector<Real> nodes(count);
        for (std::size_t i = 0; i < count; ++i)
            nodes[i] = static_cast<Real>(i) + random.uniform(0.0, 0.5);
        const Real x = random.uniform(nodes.front(), nodes.back());
        const std::vector<Real> w = weights(nodes, x);
        for (std::size_t power = 0; power < count; ++power) {
            Real sum = 0.0, size = 0.0;
            for (std::size_t i = 0; i < count; ++i) {
                const Real term = w[i] * std::pow(nodes[i], power);
                sum += term;
                size += std::fabs(term);
            }
            EXPECT_NEAR(sum, std::pow(x, power), 1e-14 * size) << count << " nodes, power " << power;
        }
    }
}

TEST(LagrangeWeights, AreExactAtTheNodesOfAClosedRange)
{
    const std::vector<Real> nodes{-1.0, 0.1, 0.7, 3.0};
    for (std::size_t k = 0; k < nodes.size(); ++k) {
        std::vector<Real> expected(nodes.size(), 0.0);
        expected[k] = 1.0;
        EXPECT_EQ(weights(nodes, nodes[k]), expected);
    }
    EXPECT_EQ(weights({0.3}, 0.3), std::vector<Real>{1.0});
    weights(nodes, std::nextafter(3.0, 4.0), kOutOfRange);
    weights(nodes, std::nextafter(-1.0, -2.0), kOutOfRange);
    weights({}, 0.0, kOutOfRange);
}

TEST(LagrangeWeights, MultiplyBeforeTheyDivide)
{
    const std::vector<Real> nodes{0.1, 0.3, 0.8, 1.7};
    for (int k = 3; k < 34; ++k) {
        const Real x = 0.05 * k;
        const std::vector<Real> w = weights(nodes, x);
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            Real expected = 1.0;
            for (const Real node : nodes)
                if (node != nodes[i])
                    expected = expected * (x - node) / (nodes[i] - node);
            EXPECT_EQ(w[i], expected) << "W" << i << " at " << x;
        }
    }
}

TEST(LagrangeWeights, DoNotInspectWhatLiesBetweenTheEnds)
{
    EXPECT_FALSE(std::isfinite(weights({0.0, 0.5, 0.5, 1.0}, 0.25)[1]));
    EXPECT_TRUE(std::isnan(weights({0.0, 1.0}, kNaN)[0]));
}

} // namespace
} // namespace tessel::testing
