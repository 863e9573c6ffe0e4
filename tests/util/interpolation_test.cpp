#include "util/interpolation.h"

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

TEST(FindInterval, BelongsToItsLeftNode)
{
    for (const auto& [xv, i] :
         {std::pair{-0.5, 0}, {0.0, 1}, {0.5, 1}, {1.0, 2}, {2.5, 3}, {3.0, 3}, {3.5, 4}, {kNaN, 1}})
        EXPECT_EQ(interval({0.0, 1.0, 2.0, 3.0}, xv), i) << xv;
    EXPECT_EQ(interval({kNaN, 1.0, 2.0, 3.0}, 2.5), 3) << "NaN at an end passes";
    EXPECT_EQ(interval({0.0, 1.0, 2.0, kNaN}, 7.0), 3);
}

TEST(FindIntervalDeathTest, BadTablesEndTheProcess)
{
    for (const std::vector<Real>& x : {std::vector{2.0, 1.0}, {1.0}, {}})
        EXPECT_STOP(interval(x, 1.0), "Sub FIND_INTERVAL: input error !");

    // A single NaN passes as a table and holds no interval, whatever follows it in memory.
    const Real x[] = {kNaN, 5.0};
    Integer i = -99;
    EXPECT_STOP(FIND_INTERVAL(x, 1, 1.0, i), "Sub FIND_INTERVAL: fatal error in algorithm !");
}

TEST(LagrangeWeights, TakeTheirFactorsInAscendingOrder)
{
    // Nodes at which every other order of the factors and quotients ends in other bits.
    const Real nodes[] = {0.1, 0.7, 1.7, 3.1};
    std::array<Real, 4> w;
    Integer flag;
    LAGRANGE_COEFF(1.1, nodes, 3, w.data(), flag, nullptr, 0);
    EXPECT_EQ(w,
              (std::array{-0x1.5555555555557p-3, 0x1.aaaaaaaaaaaa8p-1, 0x1.6db6db6db6db9p-2, -0x1.8618618618616p-6}));
    LAGRANGE_COEFF(1.7, nodes, 3, w.data(), flag, nullptr, 0);
    EXPECT_EQ(w, (std::array{0.0, 0.0, 1.0, 0.0}));
}

} // namespace
} // namespace tessel::testing
