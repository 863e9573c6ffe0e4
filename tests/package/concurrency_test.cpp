// The slots without state, on several threads at once: the results are those of a serial run, bit for bit.
#include "tests/support/library.h"
#include "tests/support/sanitized.h"
#include "tests/support/slots.h"

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <thread>

namespace tessel::testing {
namespace {

constexpr int kThreads = 4;

/// Makes `rounds` rounds of calls on each thread, on data of its own, and counts those whose results differ from the
/// serial ones.
int wrong_rounds(Bits (*calls)(FDTDCalcAPI&, Integer, std::uint64_t), Integer order, int rounds)
{
    const Library library;
    const std::unique_ptr<FDTDCalcAPI> api = library.create();
    std::vector<Bits> expected;
    for (std::uint64_t t = 0; t < kThreads; ++t)
        expected.push_back(calls(*api, order, t));
    std::atomic<int> wrong = 0;
    std::barrier start(kThreads);
    std::vector<std::thread> workers;
    workers.reserve(kThreads);
    for (std::uint64_t t = 0; t < kThreads; ++t)
        workers.emplace_back([&, t] {
            start.arrive_and_wait();
            for (int round = 0; round < rounds; round += kSlowness)
                wrong += calls(*api, order, t) != expected[t];
        });
    for (std::thread& worker : workers)
        worker.join();
    return wrong;
}

// 4 (20000 + 5 (1200 + 300 + 60)) calls: more than 100,000 in all.
TEST(Concurrency, ResultsAreThoseOfASerialRunBitForBit)
{
    EXPECT_EQ(wrong_rounds(call_zgesv, 10, 20000), 0);
    EXPECT_EQ(wrong_rounds(call_slots, 8, 1200), 0);
    EXPECT_EQ(wrong_rounds(call_slots, 20, 300), 0);
    EXPECT_EQ(wrong_rounds(call_slots, 60, 60), 0);
}

} // namespace
} // namespace tessel::testing
