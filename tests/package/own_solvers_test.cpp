// A host that defines its own solvers, under the names of those inside the library, and its own allocator. The library
// must not call these solvers, and must allocate and release every object with this allocator.
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

std::atomic<int> stray_calls = 0;

thread_local enum { ordinary, throwing, null } allocator = ordinary; ///< what the allocator does
thread_local long blocks = 0;                                        ///< that are in use
thread_local std::size_t latest_size = 0;

} // namespace

// Replacements that count their calls, for every archive and for the library itself. All are exported (the build links
// this program with its symbols visible to libraries).
#define TESSEL_OWN(name)                                                    \
    extern "C" [[gnu::visibility("default")]] void own_##name() asm(#name); \
    void own_##name()                                                       \
    {                                                                       \
        ++stray_calls;                                                      \
    }
TESSEL_OWN(zgesvd_)
TESSEL_OWN(zgesv_)
TESSEL_OWN(zgemm_)
TESSEL_OWN(xerbla_)
TESSEL_OWN(dnaupd_)
TESSEL_OWN(hybrj1_)
TESSEL_OWN(blas_memory_alloc)
TESSEL_OWN(LEASTSQ_PRONY_SVD)
extern "C" {
[[gnu::visibility("default")]] int debug_[24] = {6, -3, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9,
                                                 9, 9,  9, 9, 9, 9, 9, 9, 9, 9, 9, 9};
[[gnu::visibility("default")]] char timing_[256] = {};
}

[[gnu::visibility("default")]] void* operator new(std::size_t size)
{
    void* const block = allocator == ordinary ? std::malloc(size) : nullptr;
    if (block == nullptr && allocator != null)
        throw std::bad_alloc();
    blocks += block != nullptr;
    latest_size = size;
    return block;
}
[[gnu::visibility("default")]] void operator delete(void* block) noexcept
{
    blocks -= block != nullptr;
    std::free(block);
}
[[gnu::visibility("default")]] void operator delete(void* block, std::size_t) noexcept
{
    operator delete(block);
}

namespace tessel::testing {
namespace {

TEST(HostWithItsOwnSolvers, NoSolverOfTheHostIsCalled)
{
    std::memset(timing_, 0x5a, sizeof timing_);
    const Outcome calls = run_in_child([] {
        Arnoldi problem = sample_problem();
        problem.solve(api());
        call_slots(api(), 80, 1);
        EXPECT_EQ(problem.post_info, 0);
        EXPECT_EQ(timing_[0], 0x5a) << "the statistics are the library's own";
        EXPECT_EQ(stray_calls, 0);
        return ::testing::Test::HasFailure();
    });
    EXPECT_TRUE(calls.well);
    EXPECT_EQ(calls.output, "") << "the host's trace levels have no effect";
}

TEST(HostWithItsOwnSolvers, ObjectsUseTheAllocatorOfTheHost)
{
    void* const library = dlopen(TESSEL_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr);
    const auto create = reinterpret_cast<decltype(&createFDTDCalcApi)>(dlsym(library, "createFDTDCalcApi"));
    const long before = blocks;
    FDTDCalcAPI* const object = create();
    EXPECT_EQ(latest_size, sizeof(void*)) << "an object is one pointer and nothing else";
    EXPECT_EQ(blocks, before + 1);
    delete object;
    EXPECT_EQ(blocks, before);

    bool caught = false;
    allocator = throwing;
    try {
        create();
    } catch (const std::bad_alloc&) {
        caught = true;
    }
    allocator = null;
    FDTDCalcAPI* const none = create();
    allocator = ordinary;
    EXPECT_TRUE(caught) << "the factory passes std::bad_alloc";
    EXPECT_EQ(none, nullptr) << "an operator new that returns null gives a null object";
    dlclose(library);
}

} // namespace
} // namespace tessel::testing
