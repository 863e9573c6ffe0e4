#include "common/openblas_guard.h"
#include "tests/support/address_space.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include <unistd.h>

extern "C" { // NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
void* __real_blas_memory_alloc(int position);
void __real_blas_memory_free(void* buffer);
void* __wrap_blas_memory_alloc(int position);
void __wrap_blas_memory_free(void* buffer);
} // NOLINTEND(bugprone-reserved-identifier)

namespace tessel::testing {
namespace {

// The pool must lend no less than what OpenBLAS's own allocator maps: the kernels divide that among themselves.
TEST(WorkBuffers, AreOfTheSizeThatOpenBlasMaps)
{
    address_space(); // the heap of the stream is there before the count
    const std::size_t before = address_space();
    void* const buffer = __real_blas_memory_alloc(0);
    EXPECT_EQ(address_space() - before, kWorkBufferSize);
    __real_blas_memory_free(buffer);
}

// The kernels rely on all of a buffer, and on being its only user. With every buffer lent a caller sleeps until one
// comes back, wherever in the table, and is given that one.
TEST(WorkBuffers, HaveOneUserEachAndALateCallerWaitsForTheNextThatComesBack)
{
    alarm(20); // a lost wake-up would sleep for ever
    std::vector<std::size_t*> lent(kWorkBuffers);
    constexpr std::size_t last = kWorkBufferSize / sizeof(std::size_t) - 1;
    for (std::size_t k = 0; k < lent.size(); ++k) {
        lent[k] = static_cast<std::size_t*>(__wrap_blas_memory_alloc(0));
        lent[k][0] = lent[k][last] = k;
    }
    for (std::size_t k = 0; k < lent.size(); ++k)
        EXPECT_TRUE(lent[k][0] == k && lent[k][last] == k) << "buffer " << k << " overlaps another";
    for (const std::size_t k : {lent.size() - 1, std::size_t{0}}) {
        std::atomic<void*> got = nullptr;
        std::thread caller([&got] { got = __wrap_blas_memory_alloc(0); });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(got, nullptr);
        __wrap_blas_memory_free(lent[k]);
        caller.join();
        EXPECT_EQ(got, lent[k]);
    }
    for (void* const buffer : lent)
        __wrap_blas_memory_free(buffer);
    alarm(0);
}

} // namespace
} // namespace tessel::testing
