// The library inside a host process: loading and unloading, memory that cannot be mapped, forks, the environment.
#include "common/openblas_guard.h"
#include "tests/support/address_space.h"
#include "tests/support/arnoldi.h"
#include "tests/support/child.h"
#include "tests/support/library.h"
#include "tests/support/sanitized.h"
#include "tests/support/slots.h"

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <limits>
#include <thread>

#include <malloc.h>
#include <sys/resource.h>

namespace tessel::testing {
namespace {

constexpr Integer kOrder = 120; ///< of a system that is large enough to need a work buffer

TEST(Process, LoadingAndUnloadingLeavesNothing)
{
    constexpr std::size_t cycles = 40, smallest_block = 32;
    const auto load_and_unload = [] {
        for (std::size_t i = 0; i < cycles; ++i) {
            const Api object = Library(TESSEL_LIBRARY).create();
            std::thread other([&] { call_zgesv(*object, kOrder, 1); }); // two at once: a second work buffer is mapped
            call_slots(*object, kOrder, 1);
            other.join();
            sample_problem().solve(*object);
        }
    };
    load_and_unload(); // the dynamic linker's own tables grow in the first cycle
    EXPECT_FALSE(is_loaded(TESSEL_LIBRARY));
    if (kSanitized)
        GTEST_SKIP() << "memory is not counted under a sanitizer";
    const std::size_t space = address_space();
    std::size_t least_growth = std::numeric_limits<std::size_t>::max();
    for (int batch = 0; batch < 3; ++batch) { // tables of the dynamic linker and of threads grow now and then
        const std::size_t heap = mallinfo2().uordblks;
        load_and_unload();
        least_growth = std::min(least_growth, std::max(mallinfo2().uordblks, heap) - heap);
    }
    EXPECT_LT(least_growth, cycles * smallest_block) << "each cycle leaks a block";
    EXPECT_LE(address_space(), space + kWorkBufferSize / 2) << "a work buffer was not unmapped";
}

// OpenBLAS itself loops for ever when a work buffer cannot be mapped. The child of a fork has only the forking thread:
// it must not wait for buffers and locks of the others.
TEST(Process, SolvesGoOnWithoutMemoryAndInTheChildOfAFork)
{
    if (kSanitized)
        GTEST_SKIP() << "sanitizers need address space, and do not follow forks of several threads";
    const auto solve_and_fork = [] {
        const Api object = Library(TESSEL_LIBRARY).create();
        const auto solve = [&] { return call_zgesv(*object, kOrder, 1); };
        std::atomic<bool> stop = false;
        std::barrier start(4);
        std::vector<std::thread> workers;
        for (int t = 0; t < 3; ++t)
            workers.emplace_back([&] {
                const std::vector<std::byte> heap(1 << 20); // the thread's own heap is mapped before the limit is set
                start.arrive_and_wait();
                start.arrive_and_wait();
                while (!stop)
                    solve();
            });
        start.arrive_and_wait();
        const std::size_t bytes = address_space() + kWorkBufferSize / 2; // no further work buffer can be mapped
        const rlimit limit = {bytes, bytes};
        setrlimit(RLIMIT_AS, &limit);
        start.arrive_and_wait();
        int failures = 0;
        for (int i = 0; i < 60 && failures == 0; ++i)
            failures += !run_in_child([&] { return solve().empty(); }).well;
        stop = true;
        for (std::thread& worker : workers)
            worker.join();
        return failures;
    };
    const Outcome outcome = run_in_child(solve_and_fork);
    EXPECT_TRUE(outcome.well) << "a call hung or failed";
    EXPECT_EQ(outcome.output, "");
}

// OPENBLAS_CORETYPE would choose other kernels and so other bits, OPENBLAS_VERBOSE would print.
TEST(Process, TheEnvironmentOfTheHostChangesNothing)
{
    ASSERT_FALSE(is_loaded(TESSEL_LIBRARY)) << "the environment is read when the library is loaded";
    const auto print_solution = [] {
        const Bytes solution = call_zgesv(*Library(TESSEL_LIBRARY).create(), kOrder, 1);
        return std::fwrite(solution.data(), 1, solution.size(), stdout) != solution.size();
    };
    const Outcome plain = run_in_child(print_solution);
    const Outcome changed = run_in_child([&] {
        setenv("OPENBLAS_CORETYPE", "Prescott", 1);
        setenv("OPENBLAS_VERBOSE", "2", 1);
        return print_solution();
    });
    EXPECT_TRUE(plain.well);
    EXPECT_TRUE(changed.well);
    EXPECT_EQ(changed.output, plain.output);
}

} // namespace
} // namespace tessel::testing
