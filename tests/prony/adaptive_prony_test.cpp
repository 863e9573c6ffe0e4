#include "prony/adaptive_prony.h"

#include "tests/support/message.h"
#include "tests/support/sanitized.h"
#include "tests/support/signals.h"

#include <fstream>
#include <string>

namespace tessel::testing {
namespace {

/// The text of the status of a search that holds only the first measure against its tolerance; `m` is the order found.
std::string search(const Signal& signal, Real tolerance, Integer first, Integer last, Integer n, Integer& m)
{
    const auto ndim = static_cast<Integer>(signal.y.size());
    const Real any = 1.0;
    std::vector<Complex> residues(static_cast<std::size_t>(last)), poles(residues);
    return status_of([&](Integer& flag, char* text, CharLen length) {
        ADAPTIVE_PRONY(n, ndim, signal.y.data(), signal.dt, first, last, tolerance, any, any, any, any, m,
                       residues.data(), poles.data(), flag, text, length);
    });
}

/// The error of Lanczos2 over the orders is not monotone: 7.7e-4, 3.8e-6, 7.9e-6, 6.9e-7, 3.6e-7 for 2 to 6.
TEST(OrderSearch, StopsAtTheFirstOrderThatIsGoodEnough)
{
    const struct
    {
        Real tolerance;
        Integer first, last, order;
        const char* message = "";
    } cases[] = {{5e-6, 1, 12, 3},
                 {2e-6, 1, 12, 5},
                 {5e-6, 4, 12, 5},
                 {1.0, 2, 12, 2},
                 {1e-15, 1, 4, 4, "Sub ADAPTIVE_PRONY: best Prony fit is not good enough !"}};
    for (const auto& test : cases) {
        Integer m = 77;
        EXPECT_EQ(search(lanczos2(), test.tolerance, test.first, test.last, 24, m), test.message);
        EXPECT_EQ(m, test.order) << test.tolerance;
    }
}

/// Most memory that this process has had since it was last reset, in KiB.
long peak_memory(bool reset)
{
    if (reset)
        std::ofstream("/proc/self/clear_refs") << 5;
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:"))
            return std::stol(line.substr(6));
    return -1;
}

/// 3.2 GB are declared; the memory touched depends on the samples and the order.
TEST(OrderSearch, DoesNotTouchMemoryThatIsOnlyDeclared)
{
    if (kSanitized)
        GTEST_SKIP() << "memory is not counted under a sanitizer";
    Signal signal = four_cosines();
    signal.y.resize(100000);
    Integer m = 0;
    const long before = peak_memory(true);
    ASSERT_EQ(search(signal, 1.0, 20, 1000, 200, m), "");
    EXPECT_EQ(m, 20);
    EXPECT_GT(before, 0);
    EXPECT_LT(peak_memory(false) - before, 4096) << "KiB";
}

} // namespace
} // namespace tessel::testing
