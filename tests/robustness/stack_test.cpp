// The own routines on threads with small stacks, and how much of them they use.
#include "prony/adaptive_prony.h"
#include "prony/csvdc.h"
#include "tests/support/guarded.h"
#include "tests/support/random.h"
#include "tests/support/sanitized.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>

#include <pthread.h>

namespace tessel::testing {
namespace {

constexpr std::size_t kStack = std::size_t{256} << 10;

/// Runs `body` on a thread that has 256 KiB of stack before an inaccessible page; a quarter must stay unused.
void expect_little_stack(const char* what, const std::function<void()>& body)
{
    const Guarded<unsigned char> stack(kStack);
    constexpr unsigned char kUnused = 0xa5;
    std::fill_n(stack.first(), kStack, kUnused);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, stack.first(), kStack);
    const auto enter = [](void* function) -> void* {
        (*static_cast<const std::function<void()>*>(function))();
        return nullptr;
    };
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, enter, const_cast<std::function<void()>*>(&body)), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_TRUE(std::all_of(stack.first(), stack.first() + kStack / 4, [](auto byte) { return byte == kUnused; }))
        << what;
}

TEST(SmallStack, TakesFitsSearchesAndDecompositionsOfAnyOrder)
{
    if (kSanitized)
        GTEST_SKIP() << "a sanitizer widens the frames";
    Random random(3);
    Integer m = 0, flag = 77, info = 77;
    const Real dt = 1.0, any = std::numeric_limits<Real>::infinity();
    for (const Integer order : {1, 10, 60, 500}) {
        const Integer n = 2 * order + 10, last = order + 1;
        const std::vector<Complex> y = random.complexes(static_cast<std::size_t>(n));
        std::vector<Complex> residue(static_cast<std::size_t>(last)), pole(residue);
        expect_little_stack("a search", [&] {
            ADAPTIVE_PRONY(n, n, y.data(), dt, order, last, any, any, any, any, any, m, residue.data(), pole.data(),
                           flag, nullptr, 0);
        });
        EXPECT_EQ(flag, 0) << order;
    }
    const Integer n = 200;
    std::vector<Complex> x = random.complexes(40000), s(200), v(40000), work(200), e(200);
    expect_little_stack("a decomposition", [&] {
        SLATEC_CSVDC(21, n, n, x.data(), n, x.data(), n, s.data(), v.data(), n, work.data(), e.data(), info, flag,
                     nullptr, 0);
    });
    EXPECT_EQ(flag, 0);
}

} // namespace
} // namespace tessel::testing
