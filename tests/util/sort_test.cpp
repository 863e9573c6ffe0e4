#include "util/sort.h"

#include "tests/support/random.h"
#include "tests/support/stop.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace tessel::testing {
namespace {

/// Sorts the keys and returns the companions, which were 1..N.
std::vector<Integer> sort(std::vector<Real>& keys)
{
    std::vector<Integer> companions(keys.size());
    std::iota(companions.begin(), companions.end(), 1);
    RECIPES_SORT2(static_cast<Integer>(keys.size()), keys.data(), companions.data());
    return companions;
}

TEST(Sort, AgreesWithTheStandardSort)
{
    Random random(1);
    const struct
    {
        const char* name;
        Real (*key)(Random&, std::size_t i, std::size_t n);
    } patterns[] = {
        {"random", [](Random& source, std::size_t, std::size_t) { return source.normal(); }},
        {"few values", [](Random& source, std::size_t, std::size_t) -> Real { return source.below(4); }},
        {"equal", [](Random&, std::size_t, std::size_t) { return 2.5; }},
        {"sorted", [](Random&, std::size_t i, std::size_t) { return static_cast<Real>(i); }},
        {"reversed", [](Random&, std::size_t i, std::size_t) { return -static_cast<Real>(i); }},
        {"organ pipe", [](Random&, std::size_t i, std::size_t n) { return static_cast<Real>(std::min(i, n - i)); }}};
    for (const auto& pattern : patterns)
        for (const std::size_t n : {1, 2, 7, 8, 9, 17, 40, 1000, 65537, 1000000}) {
            std::vector<Real> keys(n);
            for (std::size_t i = 0; i < n; ++i)
                keys[i] = pattern.key(random, i, n);
            const std::vector<Real> given = keys;
            const std::vector<Integer> companions = sort(keys);
            ASSERT_TRUE(std::is_sorted(keys.begin(), keys.end())) << pattern.name << ", " << n;
            std::vector<bool> seen(n);
            for (std::size_t i = 0; i < n; ++i) {
                const auto from = static_cast<std::size_t>(companions[i]) - 1;
                ASSERT_TRUE(keys[i] == given[from] && !seen[from]) << pattern.name << ", " << n;
                seen[from] = true;
            }
        }
}

TEST(Sort, PlacesEqualKeysAsTheStepsSay)
{
    // Traced apart from this code, step by step: pieces of 7 or fewer by insertion, the middle one as candidate.
    std::vector<Real> equal(20, 0.0), keys;
    EXPECT_EQ(sort(equal),
              (std::vector<Integer>{1, 16, 14, 15, 17, 12, 18, 19, 13, 10, 11, 2, 5, 3, 4, 6, 9, 7, 8, 20}));
    for (int i = 1; i <= 30; ++i)
        keys.push_back((7 * i * i + 3 * i) % 5);
    EXPECT_EQ(sort(keys), (std::vector<Integer>{1,  20, 16, 25, 21, 10, 26, 11, 15, 30, 5,  6,  13, 8, 28,
                                                23, 18, 3,  4,  27, 29, 24, 12, 22, 14, 19, 17, 7,  2, 9}));
}

TEST(Sort, LeavesNegativeExtentsAlone)
{
    RECIPES_SORT2(-5, nullptr, nullptr);
}

TEST(SortDeathTest, AFullStackEndsTheProcess)
{
    SortStack stack;
    for (Integer k = 1; k <= 50; ++k)
        stack.push({k, -k});
    EXPECT_STOP(stack.push({51, -51}), "Sub RECIPES_SORT2: workspace array ISTACK() too small !");
    for (Integer k = 50; k >= 1; --k) {
        const SortPiece piece = stack.pop();
        EXPECT_TRUE(piece.left == k && piece.right == -k) << k;
    }
    EXPECT_TRUE(stack.empty());
}

} // namespace
} // namespace tessel::testing
