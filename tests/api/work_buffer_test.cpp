#include "common/openblas_guard.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include <unistd.h>

extern "C" { // NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
void* __real_blas_memory_alloc(int position);
void __real_blas_memory_free(void* buffer);
void* __wrap_blas_memory_alloc(int position);
void __wrap_blas_memory_free(void* buffer);
} // NOLINTEND(bugprone-reserved-identifier)

namespace tessel::testing {
namespace {

std::size_t address_space()
{
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// The pool must lend no less than what OpenBLAS's own allocator maps: the kernels divide that among themselves.
TEST(WorkBuffers, AreOfTheSizeThatOpenBlasMaps)
{
    address_space(); // the heap of the stream is there before the count
    const std::size_t before = address_space();
    void* const buffer = __real_blas_memory_alloc(0);
    EXPECT_EQ(address_space() - before, kWorkBufferSize);
    __real_blas_memory_free(buffer);
}

TEST(WorkBuffers, AreLentToOneCallerAtATimeAndWritableToTheLastByte)
{
    std::set<std::byte*> lent;
    constexpr std::size_t count = 8;
    while (lent.size() < count) {
        auto* const buffer = static_cast<std::byte*>(__wrap_blas_memory_alloc(0));
        ASSERT_EQ(lent.count(buffer), 0u);
        buffer[0] = buffer[kWorkBufferSize - 1] = std::byte{1};
        lent.insert(buffer);
    }
    std::byte* last = nullptr;
    for (std::byte* const buffer : lent) {
        EXPECT_TRUE(last == nullptr || buffer - last >= static_cast<std::ptrdiff_t>(kWorkBufferSize)) << "they overlap";
        last = buffer;
        __wrap_blas_memory_free(buffer);
    }
    void* const again = __wrap_blas_memory_alloc(0);
    EXPECT_EQ(lent.count(static_cast<std::byte*>(again)), 1u) << "a buffer that came back is lent again";
    __wrap_blas_memory_free(again);
}

} // namespace
} // namespace tessel::testing
