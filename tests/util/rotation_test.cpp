#include "util/rotation.h"

#include <gtest/gtest.h>

namespace tessel::testing {
namespace {

TEST(Rotation, IsTheProductOfRollElevationAndAzimuth)
{
    // Column by column, from the product of the three matrices in forty digits.
    const Real expected[] = {0.4177896944760956,  -0.8196983980491777, -0.39184985316468157,
                             -0.8208563369208728, -0.1556943872292912, -0.5495035322198959,
                             0.3894183423086505,  0.5512293479314281,  -0.737902134874724};
    Real r[9];
    Integer flag;
    IHE_orig_ROT3D(0.4, -1.1, 2.5, r, flag, nullptr, 0);
    for (int i = 0; i < 9; ++i)
        EXPECT_DOUBLE_EQ(r[i], expected[i]) << i;

    for (std::size_t i = 0; i < 3; ++i) // orthogonal, of determinant 1: each row is the product of the next two
        for (std::size_t j = 0; j < 3; ++j) {
            const std::size_t k = (i + 1) % 3, l = (i + 2) % 3, m = (j + 1) % 3, n = (j + 2) % 3;
            EXPECT_NEAR(r[i + 3 * j], r[k + 3 * m] * r[l + 3 * n] - r[k + 3 * n] * r[l + 3 * m], 1e-15);
        }

    IHE_orig_ROT3D(0.0, 0.0, 0.0, r, flag, nullptr, 0);
    EXPECT_DOUBLE_EQ(r[6], 6.123233995736766e-17) << "the cosine of pi/2: not zero";
}

} // namespace
} // namespace tessel::testing
