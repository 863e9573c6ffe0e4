// A host that brings its own solvers, under the names of those inside the library, and its own allocator. Nothing of
// the library may reach the solvers, and every object comes from and goes back to the allocator.
#include "tests/support/arnoldi.h"
#include "tests/support/child.h"
#include "tests/support/library.h"
#include "tests/support/slots.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

std::atomic<int> poisoned_calls = 0;

enum class Allocator
{
    ordinary,
    throwing,
    null
};
thread_local Allocator allocator = Allocator::ordinary;
std::atomic<long> blocks_of_a_pointer = 0; ///< blocks of the size of an object that are in use
thread_local bool counting = false;

} // namespace

// The poison. All are exported (the build links this program with its symbols visible to libraries).
#define TESSEL_POISON(name)                               \
    extern "C" [[gnu::visibility("default")]] void name() \
    {                                                     \
        ++poisoned_calls;                                 \
    }
TESSEL_POISON(zgesvd_)
TESSEL_POISON(dgesvd_)
TESSEL_POISON(zgesv_)
TESSEL_POISON(zgetrf_)
TESSEL_POISON(zgemm_)
TESSEL_POISON(dgemv_)
TESSEL_POISON(xerbla_)
TESSEL_POISON(ilaenv_)
TESSEL_POISON(dnaupd_)
TESSEL_POISON(dneupd_)
TESSEL_POISON(hybrj1_)
TESSEL_POISON(dpmpar_)
TESSEL_POISON(blas_memory_alloc)
TESSEL_POISON(LEASTSQ_PRONY_SVD)
extern "C" {
[[gnu::visibility("default")]] int debug_[24] = {6, -3, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9,
                                                 9, 9,  9, 9, 9, 9, 9, 9, 9, 9, 9, 9};
[[gnu::visibility("default")]] char timing_[256] = {};
}

[[gnu::visibility("default")]] void* operator new(std::size_t size)
{
    void* const block = counting && allocator != Allocator::ordinary ? nullptr : std::malloc(size);
    if (block == nullptr && allocator != Allocator::null)
        throw std::bad_alloc();
    if (block != nullptr && counting && size == sizeof(void*))
        ++blocks_of_a_pointer;
    return block;
}
[[gnu::visibility("default")]] void operator delete(void* block) noexcept
{
    if (counting && block != nullptr)
        --blocks_of_a_pointer;
    std::free(block);
}
[[gnu::visibility("default")]] void operator delete(void* block, std::size_t) noexcept
{
    operator delete(block);
}

namespace tessel::testing {
namespace {

TEST(HostileHost, NoSolverOfTheHostIsReached)
{
    const Library library;
    const std::unique_ptr<FDTDCalcAPI> api = library.create();
    std::memset(timing_, 0x5a, sizeof timing_);

    const Outcome calls = run_in_child([&] {
        Arnoldi problem = sample_problem();
        problem.solve(*api);
        call_slots(*api, 80, 1);
        EXPECT_EQ(problem.post_info, 0);
        EXPECT_EQ(timing_[0], 0x5a) << "the statistics are the library's own";
        EXPECT_EQ(poisoned_calls, 0);
        return ::testing::Test::HasFailure();
    });
    EXPECT_TRUE(calls.well);
    EXPECT_EQ(calls.output, "") << "the host's trace levels do not count";
}

TEST(HostileHost, ObjectsComeFromTheAllocatorOfTheHostAndGoBackToIt)
{
    const Library library;
    counting = true;
    blocks_of_a_pointer = 0;
    FDTDCalcAPI* const first = library.create().release();
    EXPECT_EQ(blocks_of_a_pointer, 1) << "an object is one pointer and nothing else";
    delete first;
    for (int i = 0; i < 100000; ++i)
        library.create();
    EXPECT_EQ(blocks_of_a_pointer, 0);
    counting = false;
}

TEST(HostileHost, OutOfMemoryPassesFromTheFactory)
{
    const Library library;
    FDTDCalcAPI* (*const prototype)() = nullptr;
    const auto create = library.symbol("createFDTDCalcApi", prototype);
    counting = true;
    bool caught = false;
    allocator = Allocator::throwing;
    try {
        create();
    } catch (const std::bad_alloc&) {
        caught = true;
    }
    allocator = Allocator::null;
    FDTDCalcAPI* const object = create();
    allocator = Allocator::ordinary;
    counting = false;
    EXPECT_TRUE(caught);
    EXPECT_EQ(object, nullptr) << "an operator new that returns null gives a null object";
}

} // namespace
} // namespace tessel::testing
