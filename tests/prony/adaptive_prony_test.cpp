#include "prony/adaptive_prony.h"

#include "prony/leastsq_prony_svd.h"
#include "tests/support/message.h"
#include "tests/support/sanitized.h"
#include "tests/support/signals.h"

#include <fstream>
#include <limits>
#include <string>

namespace tessel::testing {
namespace {

constexpr char kNotGoodEnough[] = "Sub ADAPTIVE_PRONY: best Prony fit is not good enough !";

struct Search
{
    Search(const Signal& signal, Integer first, Integer last)
        : n(static_cast<Integer>(signal.y.size())),
          ndim(n),
          mmin(first),
          mmax(last),
          dt(signal.dt),
          y(signal.y),
          residues(static_cast<std::size_t>(last)),
          poles(residues)
    {}

    std::string run()
    {
        return status_of([&](Integer& flag, char* text, CharLen length) {
            ADAPTIVE_PRONY(n, ndim, y.data(), dt, mmin, mmax, tolerance[0], tolerance[1], tolerance[2], tolerance[3],
                           tolerance[4], m, residues.data(), poles.data(), flag, text, length);
        });
    }

    Integer n, ndim, mmin, mmax, m = 77;
    Real dt;
    Real tolerance[5] = {1.0, 1.0, 1.0, 1.0, 1.0};
    std::vector<Complex> y, residues, poles;
};

/// The error of Lanczos2 over the orders is not monotone: 7.7e-4, 3.8e-6, 7.9e-6, 6.9e-7, 3.6e-7 for 2 to 6.
TEST(OrderSearch, StopsAtTheFirstOrderThatIsGoodEnough)
{
    const struct
    {
        Real tolerance;
        Integer first, last, order;
        const char* message;
    } cases[] = {{5e-6, 1, 12, 3, ""}, {2e-6, 1, 12, 5, ""}, {5e-6, 4, 12, 5, ""},
                 {1.0, 2, 12, 2, ""},  {5e-7, 5, 12, 6, ""}, {1e-15, 1, 4, 4, kNotGoodEnough}};
    for (const auto& test : cases) {
        Search search(lanczos2(), test.first, test.last);
        search.tolerance[0] = test.tolerance;
        EXPECT_EQ(search.run(), test.message);
        EXPECT_EQ(search.m, test.order) << test.tolerance;
    }
}

/// Each tolerance is held against the measure of its name: equal passes, just below does not.
TEST(OrderSearch, HoldsEachMeasureAgainstItsTolerance)
{
    const Signal signal = lanczos2();
    const Integer n = 24, m = 2;
    std::vector<Complex> residues(2), poles(2);
    Real measure[5];
    Integer flag = 77;
    LEASTSQ_PRONY_SVD(&n, &n, signal.y.data(), &signal.dt, &m, &m, residues.data(), poles.data(), &measure[0],
                      &measure[1], &measure[2], &measure[3], &measure[4], &flag, nullptr, 0);
    for (int i = 0; i < 5; ++i) {
        Search search(signal, 2, 2);
        search.tolerance[i] = measure[i];
        EXPECT_EQ(search.run(), "") << "measure " << i;
        search.tolerance[i] = std::nextafter(measure[i], 0.0);
        EXPECT_EQ(search.run(), kNotGoodEnough) << "measure " << i;
    }
}

TEST(OrderSearch, MeasuresThatAreNotNumbersPass)
{
    Search search({{}, {}, 1.0, std::vector<Complex>(24, 0.0)}, 1, 5);
    std::fill(std::begin(search.tolerance), std::end(search.tolerance), 1e-15);
    search.dt = search.tolerance[2] = std::numeric_limits<Real>::quiet_NaN();
    EXPECT_EQ(search.run(), "");
    EXPECT_EQ(search.m, 1);
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

/// 3.2 GB are declared; what is touched goes with the samples and the order.
TEST(OrderSearch, DoesNotTouchWhatIsOnlyDeclared)
{
    if (kSanitized)
        GTEST_SKIP() << "memory is not counted under a sanitizer";
    Signal signal = four_cosines();
    signal.y.resize(200);
    Search search(signal, 20, 1000);
    search.ndim = 100000;
    search.y.resize(100000);
    const long before = peak_memory(true);
    ASSERT_EQ(search.run(), "");
    const long growth = peak_memory(false) - before;
    EXPECT_EQ(search.m, 20);
    EXPECT_GT(before, 0);
    EXPECT_LT(growth, 4096) << "KiB";
}

} // namespace
} // namespace tessel::testing
