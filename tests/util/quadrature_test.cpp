#include "util/quadrature.h"

#include <gtest/gtest.h>

#include <cmath>
#include <utility>
#include <vector>

namespace tessel::testing {
namespace {

TEST(LinearGrid, CountsItsPointsFromTheLeftEnd)
{
    Real x[11], h = 0.0;
    LINEAR_GRID(0.1, 1.0, 10, nullptr, h, x);
    EXPECT_EQ(h, (1.0 - 0.1) / 10.0);
    for (int i = 0; i <= 10; ++i)
        EXPECT_EQ(x[i], 0.1 + i * h);

    LINEAR_GRID(1.0, 4.0, 0, nullptr, h, x);
    EXPECT_EQ(h, 3.0);
    EXPECT_EQ(x[0], 2.5) << "no step: the midpoint";
}

TEST(GaussLegendre, IsExactForPolynomialsOfDegree2NMinus1)
{
    for (const auto& [x1, x2] : {std::pair{0.5, 2.0}, {2.0, 0.5}})
        for (Integer n = 1; n <= 20; ++n) {
            std::vector<Real> x(static_cast<std::size_t>(n)), w(x);
            RECIPES_GAULEG(x1, x2, x.data(), w.data(), n);
            for (int power = 0; power <= 2 * n - 1; ++power) {
                Real sum = 0.0;
                for (std::size_t i = 0; i < x.size(); ++i)
                    sum += w[i] * std::pow(x[i], power);
                const Real exact = (std::pow(x2, power + 1) - std::pow(x1, power + 1)) / (power + 1);
                EXPECT_NEAR(sum, exact, 2e-13 * std::fabs(exact)) << n << " nodes, power " << power;
            }
        }
}

TEST(GaussLegendre, KeepsTheBitsOfItsTruncatedPiAndItsOrder)
{
    // Traced apart from this code. With pi in full, or with (1 - z^2) pp multiplied first, the weight ends in other
    // digits; an initial guess that is off by one unit in the last place changes nothing.
    Real x[12], w[12];
    RECIPES_GAULEG(-1.0, 1.0, x, w, 12);
    EXPECT_EQ(x[0], -0x1.f68f1d8e42e81p-1);
    EXPECT_EQ(x[11], 0x1.f68f1d8e42e81p-1);
    EXPECT_EQ(w[0], 0x1.8275d9dea6b4dp-5);
    EXPECT_EQ(w[11], w[0]);
}

} // namespace
} // namespace tessel::testing
