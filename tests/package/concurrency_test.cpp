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

/// Makes rounds of calls on each of four threads, on data of its own, and counts those whose results differ from the
/// serial ones.
int wrong_rounds(Bytes (*calls)(FDTDCalcAPI&, Integer, std::uint64_t), Integer order, int rounds)
{
    const Api api = Library(TESSEL_LIBRARY).create();
    std::atomic<int> wrong = 0;
    std::barrier start(4);
    std::vector<std::thread> workers;
    for (std::uint64_t seed = 0; seed < 4; ++seed)
        workers.emplace_back([&, seed, expected = calls(*api, order, seed)] {
            start.arrive_and_wait();
            for (int round = 0; round < rounds; round += kSlowness)
                wrong += calls(*api, order, seed) != expected;
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
