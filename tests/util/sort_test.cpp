#include "util/sort.h"

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

/// Keys that rise, fall, do both, are alike or of no order. Of the organ pipe every partition splits off little: the
/// stack holds only if the larger piece waits.
TEST(Sort, TakesItsPairsIntoOrder)
{
    Integer (*const patterns[])(Integer, Integer) = {
        [](Integer i, Integer) { return i; },
        [](Integer i, Integer count) { return count - i; },
        [](Integer i, Integer count) { return std::min(i, count - i); },
        [](Integer, Integer) { return 0; },
        [](Integer i, Integer) { return static_cast<Integer>(i * 2654435761u >> 8); },
    };
    for (const auto pattern : patterns)
        for (const Integer count : {0, 1, 2, 7, 8, 100, 1000000}) {
            std::vector<Real> given;
            for (Integer i = 0; i < count; ++i)
                given.push_back(pattern(i, count));
            std::vector<Real> keys = given, expected = given;
            std::vector<Integer> companions = sort(keys);
            std::stable_sort(expected.begin(), expected.end());
            EXPECT_TRUE(keys == expected);
            for (std::size_t i = 0; i < keys.size(); ++i)
                ASSERT_EQ(keys[i], given[static_cast<std::size_t>(companions[i]) - 1]);
            std::sort(companions.begin(), companions.end());
            EXPECT_TRUE(std::adjacent_find(companions.begin(), companions.end()) == companions.end());
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

TEST(SortDeathTest, AFullStackEndsTheProcess)
{
    SortStack stack;
    for (Integer k = 1; k <= 50; ++k)
        stack.push({k, -k});
    EXPECT_STOP(stack.push({51, -51}), "Sub RECIPES_SORT2: workspace array ISTACK() too small !");
}

} // namespace
} // namespace tessel::testing
