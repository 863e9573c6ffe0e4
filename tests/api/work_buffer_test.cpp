#include "common/openblas_guard.h"
#include "tests/support/address_space.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <set>
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

// The kernels rely on all of the buffer, and on being its only user.
TEST(WorkBuffers, AreWritableToTheLastByte)
{
    auto* const first = static_cast<std::byte*>(__wrap_blas_memory_alloc(0));
    auto* const second = static_cast<std::byte*>(__wrap_blas_memory_alloc(0));
    for (std::byte* const buffer : {first, second})
        buffer[0] = buffer[kWorkBufferSize - 1] = std::byte{1};
    EXPECT_GE(std::abs(second - first), static_cast<std::ptrdiff_t>(kWorkBufferSize)) << "they overlap";
    __wrap_blas_memory_free(second);
    __wrap_blas_memory_free(first);
}

// With every buffer lent a caller sleeps until one comes back, wherever in the table, and is given that one.
TEST(WorkBuffers, ACallerThatFindsNoneWaitsForTheNextThatComesBack)
{
    alarm(20); // a lost wake-up would sleep for ever
    std::vector<void*> lent(kWorkBuffers);
    for (void*& buffer : lent)
        buffer = __wrap_blas_memory_alloc(0);
    EXPECT_EQ(std::set<void*>(lent.begin(), lent.end()).size(), lent.size()) << "one buffer for two callers";
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
