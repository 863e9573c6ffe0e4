// The library as a guest in a process: loading and unloading, memory that cannot be had, forks, the environment.
#include "common/openblas_guard.h"
#include "tests/support/address_space.h"
#include "tests/support/arnoldi.h"
#include "tests/support/child.h"
#include "tests/support/library.h"
#include "tests/support/sanitized.h"
#include "tests/support/slots.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <cstdio>
#include <fstream>
#include <limits>
#include <thread>

#include <malloc.h>
#include <sys/resource.h>

namespace tessel::testing {
namespace {

constexpr Integer kOrder = 120; ///< of a system that is large enough to need a work buffer

/// From here on no further work buffer can be mapped.
void limit_address_space()
{
    const std::size_t bytes = address_space() + kWorkBufferSize / 2;
    const rlimit limit = {bytes, bytes};
    setrlimit(RLIMIT_AS, &limit);
}

std::string mappings()
{
    std::ifstream maps("/proc/self/maps");
    return {std::istreambuf_iterator<char>(maps), {}};
}

TEST(Process, LoadingAndUnloadingLeavesNothing)
{
    const auto cycle = [] {
        const Library library;
        const std::unique_ptr<FDTDCalcAPI> api = library.create();
        std::thread other([&] { call_zgesv(*api, kOrder, 1); }); // two at once: a second work buffer is mapped
        call_slots(*api, kOrder, 1);
        other.join();
        Arnoldi problem = sample_problem(40);
        problem.solve(*api);
        EXPECT_EQ(problem.post_info, 0);
    };
    for (int i = 0; i < 40; ++i) // the dynamic linker's own tables grow at first
        cycle();
    EXPECT_FALSE(Library::is_loaded());
    EXPECT_EQ(mappings().find("libtessel"), std::string::npos);
    if (kSanitized)
        GTEST_SKIP() << "memory is not counted under a sanitizer";
    const std::size_t space = address_space();
    constexpr std::size_t cycles = 40, smallest_block = 32;
    std::size_t least_growth = std::numeric_limits<std::size_t>::max();
    for (int batch = 0; batch < 3; ++batch) { // tables of the dynamic linker and of threads grow now and then
        const std::size_t heap = mallinfo2().uordblks;
        for (std::size_t i = 0; i < cycles; ++i)
            cycle();
        least_growth = std::min(least_growth, std::max(mallinfo2().uordblks, heap) - heap);
    }
    EXPECT_LT(least_growth, cycles * smallest_block) << "a block a cycle was left";
    EXPECT_LE(address_space(), space + kWorkBufferSize / 2) << "a work buffer was left";
}

// OpenBLAS would spin for ever when a work buffer cannot be mapped.
TEST(Process, SolvesGoOnWhenNoMemoryCanBeMapped)
{
    if (kSanitized)
        GTEST_SKIP() << "address space cannot be limited under a sanitizer";
    const Outcome outcome = run_in_child(
        [] {
            const Library library;
            const std::unique_ptr<FDTDCalcAPI> api = library.create();
            std::barrier start(4, []() noexcept { limit_address_space(); });
            std::vector<std::thread> workers;
            workers.reserve(4);
            for (int t = 0; t < 4; ++t)
                workers.emplace_back([&] {
                    const std::vector<std::byte> heap(1 << 20); // the thread's own heap is there before the limit
                    start.arrive_and_wait();
                    for (int i = 0; i < 50; ++i)
                        call_zgesv(*api, kOrder, 1);
                });
            for (std::thread& worker : workers)
                worker.join();
            return 0;
        },
        30);
    EXPECT_TRUE(outcome.well) << "killed after its time: a call never came back";
    EXPECT_EQ(outcome.output, "");
}

// The child of a fork has only the thread that forked: buffers and locks of the others must not be missing there.
TEST(Process, AForkWhileOtherThreadsSolveLeavesTheChildWhole)
{
    if (kSanitized)
        GTEST_SKIP() << "sanitizers do not follow forks of several threads";
    const Outcome outcome = run_in_child([] {
        const Library library;
        const std::unique_ptr<FDTDCalcAPI> api = library.create();
        std::atomic<bool> stop = false;
        std::barrier start(3);
        std::vector<std::thread> workers;
        workers.reserve(2);
        for (int t = 0; t < 2; ++t)
            workers.emplace_back([&] {
                call_zgesv(*api, kOrder, 1);
                start.arrive_and_wait();
                while (!stop)
                    call_zgesv(*api, 40, 1);
            });
        start.arrive_and_wait();
        limit_address_space(); // the buffers that there are must do
        int failures = 0;
        for (int i = 0; i < 60 && failures == 0; ++i) {
            const pid_t child = fork();
            if (child == 0) {
                alarm(10);
                call_zgesv(*api, 40, 1);
                _exit(kAllWell);
            }
            int status = -1;
            waitpid(child, &status, 0);
            failures += !ended_well(status);
        }
        stop = true;
        for (std::thread& worker : workers)
            worker.join();
        return failures;
    });
    EXPECT_TRUE(outcome.well);
}

// OPENBLAS_CORETYPE would choose other kernels and so other bits, OPENBLAS_VERBOSE would print.
TEST(Process, TheEnvironmentOfTheHostChangesNothing)
{
    ASSERT_FALSE(Library::is_loaded()) << "the environment is read when the library is loaded";
    const auto print_solution = [] {
        const Library library;
        for (const std::uint64_t value : call_zgesv(*library.create(), kOrder, 1))
            std::printf("%016llx\n", static_cast<unsigned long long>(value));
        return 0;
    };
    const Outcome plain = run_in_child(print_solution);
    const Outcome changed = run_in_child([&] {
        setenv("OPENBLAS_CORETYPE", "Prescott", 1);
        setenv("OPENBLAS_VERBOSE", "2", 1);
        return print_solution();
    });
    EXPECT_TRUE(plain.well);
    EXPECT_TRUE(changed.well);
    EXPECT_FALSE(plain.output.empty());
    EXPECT_EQ(changed.output, plain.output);
}

} // namespace
} // namespace tessel::testing
