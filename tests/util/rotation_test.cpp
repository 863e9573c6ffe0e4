#include "util/rotation.h"

#include "tests/support/message.h"
#include "tests/support/random.h"

#include <array>
#include <cmath>
#include <limits>

namespace tessel::testing {
namespace {

constexpr Real kHalfPi = 1.5707963267948966;

using Matrix3 = std::array<std::array<Real, 3>, 3>; ///< [row][column]

Matrix3 multiply(const Matrix3& a, const Matrix3& b)
{
    Matrix3 product{};
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j)
            for (std::size_t k = 0; k < 3; ++k)
                product[i][j] += a[i][k] * b[k][j];
    return product;
}

Matrix3 rotation(Real theta, Real phi, Real psi)
{
    Real r[9] = {};
    EXPECT_EQ(status_of([&](Integer& flag, char* text, CharLen length) {
                  IHE_orig_ROT3D(theta, phi, psi, r, flag, text, length);
              }),
              "");
    return {{{r[0], r[3], r[6]}, {r[1], r[4], r[7]}, {r[2], r[5], r[8]}}};
}

TEST(Rotation, IsTheProductOfRollElevationAndAzimuth)
{
    Random random(9);
    for (int k = 0; k < 200; ++k) {
        const Real t = k == 0 ? kHalfPi : random.uniform(-kHalfPi, kHalfPi), p = random.uniform(-20.0, 20.0),
                   s = random.uniform(-7.0, 7.0);
        const Matrix3 azimuth{{{std::cos(p), std::sin(p), 0.0}, {-std::sin(p), std::cos(p), 0.0}, {0.0, 0.0, 1.0}}};
        const Matrix3 elevation{{{std::cos(t), 0.0, std::sin(t)}, {0.0, 1.0, 0.0}, {-std::sin(t), 0.0, std::cos(t)}}};
        const Matrix3 roll{{{1.0, 0.0, 0.0}, {0.0, std::cos(s), std::sin(s)}, {0.0, -std::sin(s), std::cos(s)}}};
        const Matrix3 expected = multiply(roll, multiply(elevation, azimuth)), r = rotation(t, p, s);
        for (std::size_t i = 0; i < 3; ++i)
            for (std::size_t j = 0; j < 3; ++j)
                EXPECT_NEAR(r[i][j], expected[i][j], 1e-15) << "row " << i + 1 << ", column " << j + 1;
    }
}

TEST(Rotation, TakesTheComplementaryAngleAndWhatIsNotANumber)
{
    EXPECT_EQ(rotation(0.0, 0.0, 0.0)[0][2], std::cos(kHalfPi)) << "6e-17, not zero";
    EXPECT_EQ(rotation(kHalfPi, 0.4, 0.3)[0], (std::array<Real, 3>{0.0, 0.0, 1.0}));
    EXPECT_TRUE(std::isnan(rotation(std::numeric_limits<Real>::quiet_NaN(), 0.0, 0.0)[0][0]));
}

} // namespace
} // namespace tessel::testing
