#include "util/sort.h"

#include "tests/support/random.h"
#include "tests/support/stop.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

namespace tessel::testing {
namespace {

constexpr Real kInfinity = std::numeric_limits<Real>::infinity();

/// Keys with companions 1..N, both between canaries.
class Arrays
{
public:
    explicit Arrays(const std::vector<Real>& keys) : given_(keys), keys_(keys), companions_(keys.size() + 2)
    {
        keys_.insert(keys_.begin(), kCanary);
        keys_.push_back(kCanary);
        std::iota(companions_.begin(), companions_.end(), 0);
        RECIPES_SORT2(static_cast<Integer>(keys.size()), keys_.data() + 1, companions_.data() + 1);
    }

    std::vector<Real> keys() const { return {keys_.begin() + 1, keys_.end() - 1}; }
    std::vector<Integer> companions() const { return {companions_.begin() + 1, companions_.end() - 1}; }

    /// Both arrays hold what they held, each companion with its key, to the bit.
    bool pairs_intact() const
    {
        for (std::size_t i = 1; i <= given_.size(); ++i) {
            const auto origin = static_cast<std::size_t>(companions_[i]) - 1;
            if (origin >= given_.size() || bits(keys_[i]) != bits(given_[origin]))
                return false;
        }
        std::vector<Integer> places = companions_;
        std::sort(places.begin(), places.end());
        const bool each_once = std::adjacent_find(places.begin(), places.end()) == places.end();
        return each_once && keys_.front() == kCanary && keys_.back() == kCanary && companions_.front() == 0 &&
               companions_.back() == static_cast<Integer>(given_.size()) + 1;
    }

private:
    static std::uint64_t bits(Real value) { return std::bit_cast<std::uint64_t>(value); }

    static constexpr Real kCanary = -1e300; // the least key of all, should a scan pass the end
    std::vector<Real> given_, keys_;
    std::vector<Integer> companions_;
};

struct Pattern
{
    const char* name;
    std::function<std::vector<Real>(std::size_t)> keys;
};

const std::vector<Pattern>& patterns()
{
    const auto from = [](auto value) {
        return [value](std::size_t n) {
            std::vector<Real> keys(n);
            for (std::size_t i = 0; i < n; ++i)
                keys[i] = value(i, n);
            return keys;
        };
    };
    const auto drawn = [](auto value) {
        return [value](std::size_t n) {
            Random random(n + 1);
            std::vector<Real> keys(n);
            for (Real& key : keys)
                key = value(random);
            return keys;
        };
    };
    static const std::vector<Pattern> all{
        {"random", drawn([](Random& random) { return random.normal(); })},
        {"few values", drawn([](Random& random) { return static_cast<Real>(random.below(4)); })},
        {"extremes", drawn([](Random& random) {
             const Real values[] = {-kInfinity, -1.0, -0.0, 0.0, 1e-320, 1e308, kInfinity};
             return values[random.below(7)];
         })},
        {"equal", from([](std::size_t, std::size_t) { return 2.5; })},
        {"sorted", from([](std::size_t i, std::size_t) { return static_cast<Real>(i); })},
        {"reversed", from([](std::size_t i, std::size_t) { return -static_cast<Real>(i); })},
        {"organ pipe", from([](std::size_t i, std::size_t n) { return static_cast<Real>(std::min(i, n - i)); })},
    };
    return all;
}

TEST(Sort, AgreesWithTheStandardSort)
{
    std::vector<std::size_t> sizes(42);
    std::iota(sizes.begin(), sizes.end(), 0u);
    sizes.insert(sizes.end(), {1000, 65537, 1000000});
    for (const Pattern& pattern : patterns()) {
        for (const std::size_t n : sizes) {
            std::vector<Real> expected = pattern.keys(n);
            const Arrays sorted(expected);
            std::stable_sort(expected.begin(), expected.end());
            ASSERT_EQ(sorted.keys(), expected) << pattern.name << ", " << n;
            ASSERT_TRUE(sorted.pairs_intact()) << pattern.name << ", " << n;
        }
    }
}

TEST(Sort, PlacesEqualKeysAsTheStepsSay)
{
    // Traced apart from this code, step by step: pieces of 7 or fewer by insertion, the middle one as candidate.
    EXPECT_EQ(Arrays(std::vector<Real>(20, 0.0)).companions(),
              (std::vector<Integer>{1, 16, 14, 15, 17, 12, 18, 19, 13, 10, 11, 2, 5, 3, 4, 6, 9, 7, 8, 20}));
    std::vector<Real> keys;
    for (int i = 1; i <= 30; ++i)
        keys.push_back((7 * i * i + 3 * i) % 5);
    EXPECT_EQ(Arrays(keys).companions(),
              (std::vector<Integer>{1,  20, 16, 25, 21, 10, 26, 11, 15, 30, 5,  6,  13, 8, 28,
                                    23, 18, 3,  4,  27, 29, 24, 12, 22, 14, 19, 17, 7,  2, 9}));
}

TEST(Sort, EndsWhateverTheKeysThatAreNotNumbers)
{
    const Real nan = std::numeric_limits<Real>::quiet_NaN();
    for (std::size_t n = 1; n < 300; ++n) {
        for (const int share : {1, 2, 10}) {
            Random random(n);
            std::vector<Real> keys(n);
            for (Real& key : keys)
                key = random.below(share) == 0 ? nan : random.uniform();
            ASSERT_TRUE(Arrays(keys).pairs_intact()) << n << " keys, one in " << share;
        }
    }
}

TEST(Sort, LeavesNegativeExtentsAlone)
{
    Real key = 3.0;
    Integer companion = 4;
    RECIPES_SORT2(-5, &key, &companion);
    EXPECT_EQ(key, 3.0);
    EXPECT_EQ(companion, 4);
}

TEST(SortDeathTest, AFullStackEndsTheProcess)
{
    SortStack stack;
    for (Integer k = 1; k <= 50; ++k)
        stack.push({k, -k});
    EXPECT_STOP(stack.push({51, -51}), "Sub RECIPES_SORT2: workspace array ISTACK() too small !");
    for (Integer k = 50; k >= 1; --k) {
        const SortPiece piece = stack.pop();
        EXPECT_EQ(piece.left, k);
        EXPECT_EQ(piece.right, -k);
    }
    EXPECT_TRUE(stack.empty());
}

} // namespace
} // namespace tessel::testing
