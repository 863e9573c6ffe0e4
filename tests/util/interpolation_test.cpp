#include "util/interpolation.h"

#include "tests/support/message.h"
#include "tests/support/stop.h"

#include <array>
#include <limits>
#include <utility>
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

/// On the nodes the weights are those of the unit vectors, on a triple of equidistant ones the known fractions.
TEST(LagrangeWeights, OfThreeNodes)
{
    const Real nodes[] = {0.0, 1.0, 2.0};
    for (const auto& [x, expected] :
         {std::pair{0.5, std::array{0.375, 0.75, -0.125}}, {2.0, std::array{0.0, 0.0, 1.0}}}) {
        std::array<Real, 3> w;
        EXPECT_EQ(status_of([&](Integer& flag, char* text, CharLen length) {
                      LAGRANGE_COEFF(x, nodes, 2, w.data(), flag, text, length);
                  }),
                  "");
        EXPECT_EQ(w, expected);
    }
}

} // namespace
} // namespace tessel::testing
