#include "util/interpolation.h"

#include "tests/support/message.h"
#include "tests/support/random.h"
#include "tests/support/stop.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace tessel::testing {
namespace {

constexpr Real kNaN = std::numeric_limits<Real>::quiet_NaN();
constexpr char kInputError[] = "Sub FIND_INTERVAL: input error !";
constexpr char kOutOfRange[] = "Sub LAGRANGE_COEFF: abszissa x out of range x0...xN !";
constexpr Real kSentinel = -7.25;

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

/// Weights for degree N with a sentinel behind them.
struct Weights
{
    Weights(const std::vector<Real>& nodes, Real x)
        : degree(static_cast<Integer>(nodes.size()) - 1), w(nodes.size() + 1, kSentinel)
    {
        Message message;
        LAGRANGE_COEFF(x, nodes.data(), degree, w.data(), flag, message.data(), message.length());
    }

    Integer degree, flag = 77;
    std::vector<Real> w;
};

TEST(LagrangeWeights, ReproducePolynomialsUpToTheirDegree)
{
    Random random(5);
    for (std::size_t count = 1; count <= 9; ++count) {
        std::vector<Real> nodes(count);
        for (std::size_t i = 0; i < count; ++i)
            nodes[i] = static_cast<Real>(i) + random.uniform(0.0, 0.5);
        const Real x = random.uniform(nodes.front(), nodes.back());
        const Weights weights(nodes, x);
        ASSERT_EQ(weights.flag, 0);
        for (std::size_t power = 0; power < count; ++power) {
            Real sum = 0.0, size = 0.0;
            for (std::size_t i = 0; i < count; ++i) {
                const Real term = weights.w[i] * std::pow(nodes[i], power);
                sum += term;
                size += std::fabs(term);
            }
            EXPECT_NEAR(sum, std::pow(x, power), 1e-14 * size) << count << " nodes, power " << power;
        }
        EXPECT_EQ(weights.w[count], kSentinel);
    }
}

TEST(LagrangeWeights, AreExactAtTheNodesOfAClosedRange)
{
    const std::vector<Real> nodes{-1.0, 0.1, 0.7, 3.0};
    for (std::size_t k = 0; k < nodes.size(); ++k) {
        const Weights weights(nodes, nodes[k]);
        ASSERT_EQ(weights.flag, 0);
        for (std::size_t i = 0; i < nodes.size(); ++i)
            EXPECT_EQ(weights.w[i], i == k ? 1.0 : 0.0);
    }
    EXPECT_EQ(Weights({0.3}, 0.3).w[0], 1.0);
}

TEST(LagrangeWeights, MultiplyBeforeTheyDivide)
{
    const std::vector<Real> nodes{0.1, 0.3, 0.8, 1.7};
    for (int k = 3; k < 34; ++k) {
        const Real x = 0.05 * k;
        const Weights weights(nodes, x);
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            Real expected = 1.0;
            for (const Real node : nodes)
                if (node != nodes[i])
                    expected = expected * (x - node) / (nodes[i] - node);
            EXPECT_EQ(weights.w[i], expected) << "W" << i << " at " << x;
        }
    }
}

TEST(LagrangeWeights, DoNotInspectWhatLiesBetweenTheEnds)
{
    const Weights equal({0.0, 0.5, 0.5, 1.0}, 0.25);
    EXPECT_EQ(equal.flag, 0);
    EXPECT_FALSE(std::isfinite(equal.w[1]));
    const Weights not_a_number({0.0, 1.0}, kNaN);
    EXPECT_EQ(not_a_number.flag, 0);
    EXPECT_TRUE(std::isnan(not_a_number.w[0]));
}

TEST(LagrangeWeights, RefuseAnAbscissaOutOfRange)
{
    const std::vector<Real> nodes{0.0, 0.5, 1.0};
    const auto refused = [&](Integer degree, Real x) {
        std::vector<Real> w(nodes.size(), kSentinel);
        expect_status(-1, kOutOfRange, [&](Integer& flag, char* text, CharLen length) {
            LAGRANGE_COEFF(x, nodes.data(), degree, w.data(), flag, text, length);
        });
        EXPECT_EQ(w, std::vector<Real>(nodes.size(), kSentinel));
    };
    refused(2, std::nextafter(1.0, 2.0));
    refused(2, std::nextafter(0.0, -1.0));
    refused(0, 0.5);
    refused(-1, 0.0);

    std::vector<Real> w(nodes.size());
    expect_status(0, "", [&](Integer& flag, char* text, CharLen length) {
        LAGRANGE_COEFF(0.75, nodes.data(), 2, w.data(), flag, text, length);
    });
}

} // namespace
} // namespace tessel::testing
