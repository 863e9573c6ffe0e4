#include "prony/svbksb.h"

#include "tests/support/message.h"

#include <vector>

namespace tessel::testing {
namespace {

TEST(BackSubstitution, TakesUpToFiveThousandUnknowns)
{
    const std::vector<Complex> u(5001, 1.0), w(5001, 2.0), v(std::size_t{5000} * 5000, 1e-3), b{4.0};
    std::vector<Complex> x(5000);
    const auto solve = [&](Integer n) {
        return status_of([&](Integer& flag, char* text, CharLen length) {
            RECIPES_SVBKSB(u.data(), w.data(), v.data(), 1, n, 1, n, b.data(), x.data(), flag, text, length);
        });
    };
    EXPECT_EQ(solve(5000), "");
    EXPECT_NEAR(x[4999].real(), 10.0, 1e-11);
    EXPECT_EQ(solve(5001), "Sub RECIPES_SVBKSB: input parameters out of bounds !");
    EXPECT_EQ(solve(-1), "") << "nothing to do is not an error";
}

} // namespace
} // namespace tessel::testing
