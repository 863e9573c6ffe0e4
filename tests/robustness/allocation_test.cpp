// Every allocation of the own routines fails in turn.
#include "prony/adaptive_prony.h"
#include "prony/czero.h"
#include "prony/leastsq_prony_svd.h"
#include "tests/support/message.h"
#include "tests/support/signals.h"

#include <algorithm>
#include <functional>
#include <string>

namespace {

int allocations = 0;  // since the last reset
int failing = -1;     // the one that fails
long outstanding = 0; // blocks that were not given back

} // namespace

// Calls in the objects of this program end here; the shared libraries keep their heap.
extern "C" {
void* __real_malloc(std::size_t size);
void __real_free(void* block);
void* __wrap_malloc(std::size_t size);
void __wrap_free(void* block);
}

void* __wrap_malloc(std::size_t size)
{
    if (allocations++ == failing)
        return nullptr;
    void* const block = __real_malloc(size);
    outstanding += block != nullptr;
    return block;
}

void __wrap_free(void* block)
{
    outstanding -= block != nullptr;
    __real_free(block);
}

namespace tessel::testing {
namespace {

constexpr char kFitText[] = "Sub LEASTSQ_PRONY_SVD: work storage not available !";
constexpr char kZeroText[] = "Sub NAPACK_CZERO: work storage not available !";
constexpr Complex kSentinel(-7.25, 3.5);

using Values = std::vector<Complex>;

/// Of `call`, which gives the text of its status and writes its results to the values, allocation k fails with
/// texts[k], for every k, and `left` says whether the values are what that failure leaves.
void expect_each_failure(const std::function<std::string(Values&)>& call, const std::vector<std::string>& texts,
                         const std::function<bool(int, const Values&)>& left)
{
    const auto expect = [&](int allocation, const std::string& text) {
        Values values;
        const long before = outstanding;
        allocations = 0;
        failing = allocation;
        EXPECT_EQ(call(values), text) << "allocation " << allocation;
        failing = -1;
        EXPECT_EQ(outstanding, before) << "blocks were left";
        return values;
    };
    const Values whole = expect(-1, "");
    ASSERT_EQ(allocations, static_cast<int>(texts.size()));
    for (int k = 0; k < static_cast<int>(texts.size()); ++k) {
        EXPECT_TRUE(left(k, expect(k, texts[static_cast<std::size_t>(k)]))) << "allocation " << k;
        EXPECT_EQ(expect(-1, ""), whole) << "the next call";
    }
}

TEST(Allocation, FailuresOfTheFit)
{
    const Signal signal = four_cosines();
    const auto n = static_cast<Integer>(signal.y.size()), m = 8;
    const auto call = [&](Values& values) {
        values.assign(21, kSentinel);
        Real e[5] = {-1.0, -1.0, -1.0, -1.0, -1.0};
        std::string text = status_of([&](Integer& flag, char* message, CharLen length) {
            LEASTSQ_PRONY_SVD(&n, &n, signal.y.data(), &signal.dt, &m, &m, values.data(), values.data() + m, &e[0],
                              &e[1], &e[2], &e[3], &e[4], &flag, message, length);
        });
        std::copy(e, e + 5, values.end() - 5);
        return text;
    };
    expect_each_failure(call, {kFitText, kZeroText}, [](int, const Values& values) {
        return std::all_of(values.begin(), values.end(), [](const Complex& z) { return z == kSentinel || z == -1.0; });
    });
}

TEST(Allocation, FailuresOfTheOrderSearch)
{
    const Signal signal = lanczos2();
    const auto n = static_cast<Integer>(signal.y.size()), first = 1, last = 5;
    const Real tolerance = 5e-6, any = 1.0;
    const auto call = [&](Values& values) {
        values.assign(11, kSentinel);
        Integer m = 77;
        std::string text = status_of([&](Integer& flag, char* message, CharLen length) {
            ADAPTIVE_PRONY(n, n, signal.y.data(), signal.dt, first, last, tolerance, any, any, any, any, m,
                           values.data(), values.data() + last, flag, message, length);
        });
        values.back() = m;
        return text;
    };
    // Orders 1 and 2 need no storage to find their zeros.
    const Real orders[] = {1, 2, 3, 3};
    expect_each_failure(call, {kFitText, kFitText, kFitText, kZeroText}, [&](int k, const Values& values) {
        return values.back() == orders[k]; // the order whose fit failed
    });
}

TEST(Allocation, FailuresOfTheZeroFinder)
{
    const Values p{0.0, 2.0, Complex(1.0, 1.0), 0.5, -3.0};
    const auto call = [&](Values& values) {
        values.assign(p.size(), kSentinel);
        Complex w;
        return status_of([&](Integer& flag, char* message, CharLen length) {
            NAPACK_CZERO(values.data(), p.data(), 5, &w, flag, message, length);
        });
    };
    expect_each_failure(call, {kZeroText}, [&](int, const Values& values) {
        return std::equal(p.begin() + 1, p.end(), values.begin()) && values.back() == 0.0;
    });
}

} // namespace
} // namespace tessel::testing
