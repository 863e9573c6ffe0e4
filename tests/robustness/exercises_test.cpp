// Every own routine with shapes and values of any kind: it keeps its contract and the bounds of its arrays, alone and
// concurrently, in any floating-point environment, and leaves the state of the process unchanged.
#include "tests/support/exercises.h"

#include <gtest/gtest.h>

#include <array>
#include <cfenv>
#include <clocale>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>
#include <xmmintrin.h>

namespace tessel::testing {
namespace {

struct Subject
{
    const char* name;
    Exercise* exercise;
    std::uint64_t calls;
};

void PrintTo(const Subject& subject, std::ostream* out)
{
    *out << subject.name;
}

class Contract : public ::testing::TestWithParam<Subject>
{
protected:
    /// Hashes of what the calls number `first`, `first` + 1, ... give.
    static std::vector<std::uint64_t> run(std::uint64_t first, std::uint64_t count)
    {
        CallArrays arrays;
        std::vector<std::uint64_t> hashes;
        for (std::uint64_t seed = first; seed < first + count; ++seed) {
            Random random(seed);
            try {
                hashes.push_back(GetParam().exercise(random, arrays));
            } catch (const Breach& breach) {
                ADD_FAILURE() << breach.what() << ", seed " << seed;
            }
        }
        return hashes;
    }
};

TEST_P(Contract, HoldsForAnyValues)
{
    run(0, GetParam().calls);
}

TEST_P(Contract, HoldsForCallsThatOverlap)
{
    const std::uint64_t calls = GetParam().calls / 5;
    const std::vector<std::uint64_t> alone = run(0, calls);
    std::array<std::vector<std::uint64_t>, 4> together;
    std::vector<std::thread> threads;
    for (auto& hashes : together)
        threads.emplace_back([&] { hashes = run(0, calls); });
    for (std::thread& thread : threads)
        thread.join();
    for (const auto& hashes : together)
        EXPECT_TRUE(hashes == alone) << "other bits than serial calls";
}

/// Process state that a call must preserve: everything except the floating-point exception flags.
struct HostState
{
    HostState()
    {
        std::fesetround(std::fegetround()); // both units agree
        __asm__ volatile("fnstcw %0" : "=m"(x87));
        for (char** entry = environ; *entry != nullptr; ++entry)
            environment.emplace_back(*entry);
        sigset_t blocked;
        sigprocmask(SIG_BLOCK, nullptr, &blocked);
        for (int signal = 1; signal < 32; ++signal) {
            struct sigaction action = {};
            sigaction(signal, nullptr, &action);
            handlers.push_back(reinterpret_cast<std::uintptr_t>(action.sa_handler));
            handlers.push_back(sigismember(&blocked, signal) != 0);
        }
    }
    bool operator==(const HostState&) const = default;

    unsigned modes = _mm_getcsr() & ~unsigned{_MM_EXCEPT_MASK}; // masks, rounding, flush to zero, subnormals are zero
    unsigned short x87 = 0;
    std::string locale = std::setlocale(LC_ALL, nullptr);
    std::vector<std::string> environment;
    std::vector<std::uintptr_t> handlers;
};

TEST_P(Contract, HoldsInEveryEnvironmentAndLeavesItAsItWas)
{
    constexpr unsigned kFlushToZero = 0x8000, kSubnormalsAreZero = 0x0040;
    const unsigned csr = _mm_getcsr();
    for (const int rounding : {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO})
        for (const unsigned flush : {0u, kFlushToZero, kFlushToZero | kSubnormalsAreZero}) {
            std::fesetround(rounding);
            _mm_setcsr(_mm_getcsr() | flush);
            const HostState before;
            run(flush + static_cast<unsigned>(rounding), GetParam().calls / 20);
            const bool kept = HostState() == before;
            _mm_setcsr(csr);
            std::fesetround(FE_TONEAREST);
            EXPECT_TRUE(kept) << "rounding " << rounding << ", flushing " << flush;
        }
}

INSTANTIATE_TEST_SUITE_P(Robustness, Contract,
                         ::testing::Values(Subject{"fit", exercise_fit, 1500}, Subject{"search", exercise_search, 2000},
                                           Subject{"zeros", exercise_zeros, 2000}, Subject{"svd", exercise_svd, 2000},
                                           Subject{"utilities", exercise_utilities, 10000}),
                         [](const auto& test) { return std::string(test.param.name); });

} // namespace
} // namespace tessel::testing
