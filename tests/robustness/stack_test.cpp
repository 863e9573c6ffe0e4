// The own routines on threads with small stacks, and how much of them they use.
#include "prony/adaptive_prony.h"
#include "prony/csvdc.h"
#include "prony/leastsq_prony_svd.h"
#include "tests/support/guarded.h"
#include "tests/support/message.h"
#include "tests/support/random.h"
#include "tests/support/sanitized.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <system_error>

#include <pthread.h>

namespace tessel::testing {
namespace {

constexpr std::size_t kStack = std::size_t{256} << 10;

/// Runs `body` on a thread that has 256 KiB of stack before an inaccessible page; returns how many bytes it came to
/// use.
std::size_t stack_used_by(const std::function<void()>& body)
{
    const Guarded<unsigned char> stack(kStack);
    constexpr unsigned char kUnused = 0xa5;
    std::fill_n(stack.first(), kStack, kUnused);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, stack.first(), kStack);
    pthread_t thread;
    const auto enter = [](void* function) -> void* {
        (*static_cast<const std::function<void()>*>(function))();
        return nullptr;
    };
    const int error = pthread_create(&thread, &attributes, enter, const_cast<std::function<void()>*>(&body));
    pthread_attr_destroy(&attributes);
    if (error != 0)
        throw std::system_error(error, std::generic_category());
    pthread_join(thread, nullptr);
    const unsigned char* const end = stack.first() + kStack;
    return static_cast<std::size_t>(end - std::find_if(static_cast<const unsigned char*>(stack.first()), end,
                                                       [](unsigned char byte) { return byte != kUnused; }));
}

/// A noisy record of `count` samples.
std::vector<Complex> record(Integer count)
{
    Random random(3);
    std::vector<Complex> y;
    for (Integer k = 0; k < count; ++k)
        y.push_back(std::exp(Complex(-1e-3, 0.3) * Real(k)) + 1e-3 * random.complex());
    return y;
}

TEST(SmallStack, TakesFitsOfAnyOrder)
{
    if (kSanitized)
        GTEST_SKIP() << "a sanitizer widens the frames";
    for (const Integer m : {1, 10, 60, 500}) {
        const Integer n = 2 * m + 10;
        const std::vector<Complex> y = record(n);
        std::vector<Complex> residue(static_cast<std::size_t>(m)), pole(residue);
        Real measure[5];
        Integer flag = 77;
        const Real dt = 1.0;
        const std::size_t used = stack_used_by([&] {
            LEASTSQ_PRONY_SVD(&n, &n, y.data(), &dt, &m, &m, residue.data(), pole.data(), &measure[0], &measure[1],
                              &measure[2], &measure[3], &measure[4], &flag, nullptr, 0);
        });
        EXPECT_EQ(flag, 0) << "order " << m;
        EXPECT_LT(used, kStack * 3 / 4) << "order " << m;
        RecordProperty("bytes_at_order_" + std::to_string(m), std::to_string(used));
    }
}

TEST(SmallStack, TakesDecompositionsAndSearches)
{
    if (kSanitized)
        GTEST_SKIP() << "a sanitizer widens the frames";
    const Integer n = 200, job = 21;
    std::vector<Complex> x = Random(4).complexes(40000), s(200), v(40000), work(200), e(200);
    Integer info = 77, flag = 77;
    std::size_t used = stack_used_by([&] {
        SLATEC_CSVDC(job, n, n, x.data(), n, x.data(), n, s.data(), v.data(), n, work.data(), e.data(), info, flag,
                     nullptr, 0);
    });
    EXPECT_EQ(flag, 0);
    EXPECT_LT(used, kStack * 3 / 4);
    RecordProperty("bytes_of_a_decomposition", std::to_string(used));

    const std::vector<Complex> y = record(n);
    std::vector<Complex> residue(50), pole(50);
    const Integer first = 1, last = 50;
    const Real dt = 1.0, tolerance = 1e-9;
    Integer m = 0;
    used = stack_used_by([&] {
        ADAPTIVE_PRONY(n, n, y.data(), dt, first, last, tolerance, tolerance, tolerance, tolerance, tolerance, m,
                       residue.data(), pole.data(), flag, nullptr, 0);
    });
    EXPECT_EQ(m, last) << "all orders were tried";
    EXPECT_LT(used, kStack * 3 / 4);
    RecordProperty("bytes_of_a_search", std::to_string(used));
}

} // namespace
} // namespace tessel::testing
