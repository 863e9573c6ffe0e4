#include "common/complex_ops.h"
#include "tests/support/extreme_values.h"

#include <gtest/gtest.h>

namespace tessel {
namespace {

/// Values at which every other order of operations, or number of roundings, gives other bits.
TEST(ComplexOperations, KeepTheirOrderAndTheirRoundings)
{
    const volatile Real re = 0x1.30cfee5ba4e0ap-1; // not folded: the compiler rounds better than the run-time hypot
    EXPECT_EQ(modulus({re, -0x1.1cafd7bf5537p-2}), 0x1.506922eccefabp-1);
    EXPECT_EQ(modulus_squared({2.375, 5.0}), 0x1.ea40000000001p+4);
    EXPECT_EQ(modulus_squared({re, -0x1.1cafd7bf5537p-2}), 0x1.506922eccefabp-1 * 0x1.506922eccefabp-1);
    EXPECT_EQ(csign({6.25, 6.625}, {-3.125, -5.875}), Complex(-0x1.11bd2525ecf29p+2, -0x1.0150843302922p+3));
    EXPECT_EQ(divide_plain({1.125, 3.875}, {7.5, -0.875}), Complex(0x1.6a91392d641cep-4, 0x1.0dd21e2acb97ep-1));
    EXPECT_EQ(divide_by_reciprocal({0x1.0f1e1b1990b84p-1, -0x1.82571abd37dcap-1},
                                   {0x1.9b6a11e4ae982p-1, 0x1.10fdf3a348952p-1}),
              Complex(0x1.9833eb3b5bc3dp-6, -0x1.e94290d4f1f87p-1));
}

/// Squares beyond the range of double: where the rule says extended precision they are harmless, where it says the
/// plain quotient they are not.
TEST(ComplexOperations, OverflowOnlyWhereTheyMay)
{
    EXPECT_EQ(modulus({3e300, 4e300}), 5e300);
    EXPECT_EQ(modulus({3e-310, -4e-310}), 5e-310);
    EXPECT_EQ(divide_extended(1e300, 1e300), Complex(1.0));
    EXPECT_EQ(divide_by_reciprocal(1e-300, 1e-300), Complex(1.0));
    EXPECT_FALSE(divide_plain(1e300, 1e300) == Complex(1.0));
}

/// The decomposition takes absolute values where real numbers are complex ones by their type.
TEST(ComplexOperations, TheModulusOfARealNumberIsItsAbsoluteValue)
{
    testing::Random random(1);
    for (int i = 0; i < 100000; ++i) {
        const Real x = testing::extreme_value(random, testing::Values::bits);
        ASSERT_TRUE(modulus({x, 0.0}) == std::fabs(x) || std::isnan(x)) << x;
    }
}

} // namespace
} // namespace tessel
