// Every allocation of the own routines fails in turn.
#include "prony/adaptive_prony.h"
#include "prony/czero.h"
#include "prony/leastsq_prony_svd.h"
#include "tests/support/message.h"
#include "tests/support/signals.h"

#include <cstring>
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

/// What a call left: its status, and its results one behind the other.
struct Result
{
    Integer flag = 77;
    std::string message;
    std::vector<Complex> values;
};

bool same(const Result& a, const Result& b)
{
    return a.flag == b.flag && a.message == b.message && a.values.size() == b.values.size() &&
           std::memcmp(a.values.data(), b.values.data(), a.values.size() * sizeof(Complex)) == 0;
}

/// Allocation k fails with texts[k], for every k, and `left` says whether the values are what that failure leaves.
void expect_each_failure(const std::function<Result()>& call, const std::vector<std::string>& texts,
                         const std::function<bool(int, const Result&)>& left)
{
    const auto run = [&](int allocation) {
        allocations = 0;
        failing = allocation;
        const long before = outstanding;
        const Result result = call();
        EXPECT_EQ(outstanding, before) << "blocks were left";
        failing = -1;
        return result;
    };
    const Result whole = run(-1);
    ASSERT_EQ(whole.flag, 0) << whole.message;
    ASSERT_EQ(allocations, static_cast<int>(texts.size()));
    for (int k = 0; k < static_cast<int>(texts.size()); ++k) {
        const Result failed = run(k);
        EXPECT_EQ(failed.flag, -1);
        EXPECT_EQ(failed.message, padded(texts[static_cast<std::size_t>(k)]));
        EXPECT_TRUE(left(k, failed)) << "allocation " << k;
        EXPECT_TRUE(same(run(-1), whole)) << "the next call";
    }
}

TEST(Allocation, FailuresOfTheFit)
{
    const Signal signal = four_cosines();
    const auto call = [&] {
        const auto n = static_cast<Integer>(signal.y.size());
        const Integer m = 8;
        std::vector<Complex> residue(8, kSentinel), pole(8, kSentinel);
        Real measure[5] = {-1.0, -1.0, -1.0, -1.0, -1.0};
        Result result;
        Message text;
        LEASTSQ_PRONY_SVD(&n, &n, signal.y.data(), &signal.dt, &m, &m, residue.data(), pole.data(), &measure[0],
                          &measure[1], &measure[2], &measure[3], &measure[4], &result.flag, text.data(), text.length());
        result.message = text.text();
        result.values = residue;
        result.values.insert(result.values.end(), pole.begin(), pole.end());
        result.values.insert(result.values.end(), std::begin(measure), std::end(measure));
        return result;
    };
    expect_each_failure(call, {kFitText, kZeroText}, [](int, const Result& result) {
        return std::all_of(result.values.begin(), result.values.end(),
                           [](const Complex& z) { return z == kSentinel || z == -1.0; });
    });
}

TEST(Allocation, FailuresOfTheOrderSearch)
{
    const Signal signal = lanczos2();
    const auto call = [&] {
        const auto n = static_cast<Integer>(signal.y.size());
        const Integer first = 1, last = 5;
        const Real tolerance = 5e-6, any = 1.0;
        std::vector<Complex> residue(5, kSentinel), pole(5, kSentinel);
        Integer m = 77;
        Result result;
        Message text;
        ADAPTIVE_PRONY(n, n, signal.y.data(), signal.dt, first, last, tolerance, any, any, any, any, m, residue.data(),
                       pole.data(), result.flag, text.data(), text.length());
        result.message = text.text();
        result.values = residue;
        result.values.emplace_back(m);
        return result;
    };
    // Orders 1 and 2 need no storage to find their zeros.
    const Real orders[] = {1, 2, 3, 3};
    expect_each_failure(call, {kFitText, kFitText, kFitText, kZeroText}, [&](int k, const Result& result) {
        return result.values.back() == orders[k]; // the order whose fit failed
    });
}

TEST(Allocation, FailuresOfTheZeroFinder)
{
    const std::vector<Complex> p{0.0, 2.0, Complex(1.0, 1.0), 0.5, -3.0};
    const auto call = [&] {
        Result result;
        Message text;
        Complex w;
        result.values.assign(p.size(), kSentinel);
        NAPACK_CZERO(result.values.data(), p.data(), 5, &w, result.flag, text.data(), text.length());
        result.message = text.text();
        return result;
    };
    expect_each_failure(call, {kZeroText}, [&](int, const Result& result) {
        return std::equal(p.begin() + 1, p.end(), result.values.begin()) && result.values.back() == 0.0;
    });
}

} // namespace
} // namespace tessel::testing
