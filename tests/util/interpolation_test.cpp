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
            const auto above = std::upper_bound(x.begin(), x.end(), xv) - x.begin();
            ASSERT_EQ(interval(x, xv), xv == 40.0 ? static_cast<Index>(n) - 1 : above) << "n " << n << ", xv " << xv;
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
    for (const std::vector<Real>& x : {std::vector{1.0, 2.0, 1.0}, {2.0, 1.0}, {1.0}, {}})
        EXPECT_STOP(interval(x, 1.0), "Sub FIND_INTERVAL: input error !");

    // One entry that is not a number passes as a table and holds no interval, whatever lies behind it.
    const Real x[] = {kNaN, 5.0};
    Integer i = -99;
    EXPECT_STOP(FIND_INTERVAL(x, 1, 1.0, i), "Sub FIND_INTERVAL: fatal error in algorithm !");
}

TEST(LagrangeWeights, ReproducePolynomialsUpToTheirDegreeAndNodesExactly)
{
    Random random(5);
    for (std::size_t count = 1; count <= 9; ++count) {
        std::vector<Real> nodes(count), w(count);
        for (std::size_t i = 0; i < count; ++i)
            nodes[i] = static_cast<Real>(i) + random.uniform(0.0, 0.5);
        const auto weigh = [&](Real x) {
            EXPECT_EQ(status_of([&](Integer& flag, char* text, CharLen length) {
                          LAGRANGE_COEFF(x, nodes.data(), static_cast<Integer>(count) - 1, w.data(), flag, text,
                                         length);
                      }),
                      "");
        };
        const Real x = random.uniform(nodes.front(), nodes.back());
        weigh(x);
        for (std::size_t power = 0; power < count; ++power) {
            Real error = -std::pow(x, power), size = 0.0;
            for (std::size_t i = 0; i < count; ++i) {
                const Real term = w[i] * std::pow(nodes[i], power);
                error += term;
                size += std::fabs(term);
            }
            EXPECT_NEAR(error, 0.0, 1e-14 * size) << count << " nodes, power " << power;
        }
        for (std::size_t k = 0; k < count; ++k) {
            std::vector<Real> expected(count);
            expected[k] = 1.0;
            weigh(nodes[k]);
            EXPECT_EQ(w, expected);
        }
    }
}

} // namespace
} // namespace tessel::testing
