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

// A buffer of the pool must not be smaller than those of OpenBLAS's own allocator, all of which its kernels use.
TEST(WorkBuffers, AreOfTheSizeThatOpenBlasMaps)
{
    address_space(); // allocates the stream's buffer before the count
    const std::size_t before = address_space();
    void* const buffer = __real_blas_memory_alloc(0);
    EXPECT_EQ(address_space() - before, kWorkBufferSize);
    __real_blas_memory_free(buffer);
}

// The kernels rely on the full size of a buffer and on being its only user. When all are taken a caller sleeps until
// one is returned, wherever in the table, and gets that one.
TEST(WorkBuffers, HaveOneUserEachAndAFurtherCallerWaitsForTheNextOneReturned)
{
    std::vector<std::size_t*> taken(kWorkBuffers);
    constexpr std::size_t last = kWorkBufferSize / sizeof(std::size_t) - 1;
    for (std::size_t k = 0; k < taken.size(); ++k) {
        taken[k] = static_cast<std::size_t*>(__wrap_blas_memory_alloc(0));
        taken[k][0] = taken[k][last] = k;
    }
    for (std::size_t k = 0; k < taken.size(); ++k)
        EXPECT_TRUE(taken[k][0] == k && taken[k][last] == k) << "buffer " << k << " overlaps another";
    for (const std::size_t k : {taken.size() - 1, std::size_t{0}}) {
        std::atomic<void*> got = nullptr;
        std::thread caller([&got] { got = __wrap_blas_memory_alloc(0); });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(got, nullptr);
        __wrap_blas_memory_free(taken[k]);
        caller.join();
        EXPECT_EQ(got, taken[k]);
    }
    for (void* const buffer : taken)
        __wrap_blas_memory_free(buffer);
}

} // namespace
} // namespace tessel::testing
