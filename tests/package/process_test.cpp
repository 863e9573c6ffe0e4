// The library as a guest in a process: loading and unloading, memory that cannot be had, forks, the environment.
#include "common/openblas_guard.h"
#include "tests/support/address_space.h"
#include "tests/support/arnoldi.h"
#include "tests/support/child.h"
#include "tests/support/lapack.h"
#include "tests/support/library.h"
#include "tests/support/random.h"
#include "tests/support/sanitized.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <new>
#include <thread>

#include <malloc.h>
#include <sys/resource.h>

namespace tessel::testing {
namespace {

/// Solves a system that is large enough to need a work buffer, and gives the solution.
std::vector<Complex> solve_system(FDTDCalcAPI& api, Integer n = 120)
{
    Random random(7);
    const auto size = static_cast<std::size_t>(n);
    std::vector<Complex> a = random.complexes(size * size), b = random.complexes(size);
    std::vector<Integer> pivots(size);
    const Integer one = 1;
    Integer info = 77;
    api.zgesv(&n, &one, a.data(), &n, pivots.data(), b.data(), &n, &info);
    return info == 0 ? b : std::vector<Complex>();
}

void limit_address_space(std::size_t bytes)
{
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
        std::thread other([&] { solve_system(*api); }); // two at once: a second work buffer is mapped
        EXPECT_FALSE(solve_system(*api).empty());
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
    const std::size_t heap = mallinfo2().uordblks, space = address_space();
    constexpr std::size_t cycles = 40, smallest_block = 32;
    for (std::size_t i = 0; i < cycles; ++i)
        cycle();
    EXPECT_LT(mallinfo2().uordblks, heap + cycles * smallest_block) << "a block a cycle was left";
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
            std::atomic<int> ready = 0, failures = 0;
            std::vector<std::thread> workers;
            workers.reserve(4);
            for (int t = 0; t < 4; ++t)
                workers.emplace_back([&] {
                    const std::vector<std::byte> heap(1 << 20); // the thread's own heap is there before the limit
                    for (++ready; ready < 5;)
                        std::this_thread::yield();
                    for (int i = 0; i < 50; ++i)
                        failures += solve_system(*api).empty();
                });
            while (ready < 4)
                std::this_thread::yield();
            limit_address_space(address_space() + kWorkBufferSize / 2);
            ++ready;
            for (std::thread& worker : workers)
                worker.join();
            return failures.load();
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
    const Outcome outcome = run_in_child(
        [] {
            const Library library;
            const std::unique_ptr<FDTDCalcAPI> api = library.create();
            std::atomic<bool> stop = false;
            std::atomic<int> ready = 0;
            std::vector<std::thread> workers;
            workers.reserve(2);
            for (int t = 0; t < 2; ++t)
                workers.emplace_back([&] {
                    solve_system(*api);
                    for (++ready; !stop;)
                        solve_system(*api, 40);
                });
            while (ready < 2)
                std::this_thread::yield();
            limit_address_space(address_space() + kWorkBufferSize / 2); // the buffers that there are must do
            int failures = 0;
            for (int i = 0; i < 60; ++i) {
                const pid_t child = fork();
                if (child == 0) {
                    alarm(10);
                    _exit(solve_system(*api, 40).empty() ? EXIT_FAILURE : kAllWell);
                }
                int status = -1;
                waitpid(child, &status, 0);
                failures += !ended_well(status);
                if (failures > 0)
                    break;
            }
            stop = true;
            for (std::thread& worker : workers)
                worker.join();
            return failures;
        },
        60);
    EXPECT_TRUE(outcome.well);
}

std::atomic<int> handler_calls = 0;

TEST(Process, TheFactoryTriesTheNewHandlerBeforeItThrows)
{
    if (kSanitized)
        GTEST_SKIP() << "the sanitizer has an allocator of its own";
    const Outcome outcome = run_in_child([] {
        const Library library;
        FDTDCalcAPI* (*const prototype)() = nullptr;
        const auto create = library.symbol("createFDTDCalcApi", prototype);
        std::set_new_handler([] {
            if (++handler_calls == 3) // twice it reports progress
                std::set_new_handler(nullptr);
        });
        limit_address_space(0);
        static void* volatile block;
        do
            block = std::malloc(sizeof(void*));
        while (block != nullptr);
        try {
            create();
        } catch (const std::bad_alloc&) {
            return handler_calls == 3 ? 0 : 1;
        }
        return 2;
    });
    EXPECT_TRUE(outcome.well);
}

// OPENBLAS_CORETYPE would choose other kernels and so other bits, OPENBLAS_VERBOSE would print.
TEST(Process, TheEnvironmentOfTheHostChangesNothing)
{
    ASSERT_FALSE(Library::is_loaded()) << "the environment is read when the library is loaded";
    const auto print_solution = [] {
        const Library library;
        for (const Complex& value : solve_system(*library.create()))
            std::printf("%a %a\n", value.real(), value.imag());
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
