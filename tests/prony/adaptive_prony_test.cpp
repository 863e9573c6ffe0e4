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

constexpr char kOutOfBounds[] = "Sub ADAPTIVE_PRONY: input parameters out of bounds !";
constexpr char kNotGoodEnough[] = "Sub ADAPTIVE_PRONY: best Prony fit is not good enough !";
constexpr Complex kSentinel(-7.25, 3.5);

struct Search
{
    Search(const Signal& signal, Integer first, Integer last)
        : n(static_cast<Integer>(signal.y.size())),
          ndim(n),
          mmin(first),
          mmax(last),
          dt(signal.dt),
          y(signal.y),
          residues(static_cast<std::size_t>(std::max(last, 1)), kSentinel),
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
        Integer first, order;
    } cases[] = {{5e-6, 1, 3}, {2e-6, 1, 5}, {5e-6, 4, 5}, {1.0, 2, 2}, {1e-3, 1, 2}, {5e-7, 5, 6}};
    for (const auto& test : cases) {
        Search search(lanczos2(), test.first, 12);
        search.tolerance[0] = test.tolerance;
        EXPECT_EQ(search.run(), "");
        EXPECT_EQ(search.m, test.order) << test.tolerance;
    }
}

/// Each tolerance is held against the measure of its name: just above the measure passes, just below does not.
TEST(OrderSearch, HoldsEachMeasureAgainstItsTolerance)
{
    const Signal signal = lanczos2();
    const Integer n = 24, m = 2;
    std::vector<Complex> residues(2), poles(2);
    Real measure[5];
    Integer flag = 77;
    LEASTSQ_PRONY_SVD(&n, &n, signal.y.data(), &signal.dt, &m, &m, residues.data(), poles.data(), &measure[0],
                      &measure[1], &measure[2], &measure[3], &measure[4], &flag, nullptr, 0);
    ASSERT_EQ(flag, 0);
    for (int i = 0; i < 5; ++i) {
        Search search(signal, 2, 2);
        search.tolerance[i] = measure[i]; // equal is not greater
        EXPECT_EQ(search.run(), "") << "measure " << i;
        EXPECT_EQ(search.poles, poles);
        search.tolerance[i] = std::nextafter(measure[i], 0.0);
        EXPECT_EQ(search.run(), kNotGoodEnough) << "measure " << i;
    }
}

TEST(OrderSearch, ReturnsTheFitAtTheCapWhenItFails)
{
    Signal signal = lanczos2();
    signal.y.resize(5);
    Search capped(signal, 3, 4); // N/2 = 2 is below MMIN: the one order tried
    capped.tolerance[0] = 1e-15;
    EXPECT_EQ(capped.run(), kNotGoodEnough);
    EXPECT_EQ(capped.m, 2);
    EXPECT_NE(capped.poles[1], kSentinel);

    Search failing(lanczos2(), 1, 4);
    std::fill(std::begin(failing.tolerance), std::end(failing.tolerance), 1e-15); // the least that is accepted
    EXPECT_EQ(failing.run(), kNotGoodEnough);
    EXPECT_EQ(failing.m, 4);
}

/// Some signals of the samples -1, 0 and 1 reach the iteration limit of the decomposition at order 3: the search that
/// comes by there ends, though higher orders may be good.
TEST(OrderSearch, EndsWithAFitThatFails)
{
    int ended = 0;
    for (int code = 0; code < 6561; ++code) {
        Signal signal{{}, {}, 1.0, {}};
        for (int rest = code, k = 0; k < 8; ++k, rest /= 3)
            signal.y.emplace_back(rest % 3 - 1);
        Search search(signal, 1, 4);
        search.tolerance[0] = 1e-15;
        if (search.run() != "Sub SLATEC_CSVDC: not all singular values are correct !")
            continue;
        ended += search.m == 3 ? 1 : 0;
        EXPECT_TRUE(search.m > 1 && search.residues[static_cast<std::size_t>(search.m) - 1] == kSentinel);
    }
    EXPECT_GT(ended, 0);
}

TEST(OrderSearch, MeasuresThatAreNotNumbersPass)
{
    Signal zero = lanczos2();
    std::fill(zero.y.begin(), zero.y.end(), 0.0);
    Search search(zero, 1, 5);
    std::fill(std::begin(search.tolerance), std::end(search.tolerance), 1e-15);
    EXPECT_EQ(search.run(), "");
    EXPECT_EQ(search.m, 1);
}

TEST(OrderSearch, RefusesArgumentsOutOfBounds)
{
    const auto refused = [](const char* what, auto change) {
        Search search(lanczos2(), 1, 4);
        change(search);
        EXPECT_EQ(search.run(), kOutOfBounds) << what;
        EXPECT_EQ(search.m, 77) << what;
    };
    refused("N < 2", [](Search& search) { search.n = 1; });
    refused("N > NDIM", [](Search& search) { search.ndim = 23; });
    refused("MMIN < 1", [](Search& search) { search.mmin = 0; });
    refused("MMIN > MMAX", [](Search& search) { search.mmin = 5; });
    refused("DT zero", [](Search& search) { search.dt = 0.0; });
    for (int i = 0; i < 5; ++i)
        refused("a tolerance", [i](Search& search) { search.tolerance[i] = std::nextafter(1e-15, 0.0); });

    Search passes(lanczos2(), 1, 2);
    passes.dt = passes.tolerance[2] = std::numeric_limits<Real>::quiet_NaN();
    EXPECT_EQ(passes.run(), "") << "what is not a number passes the tests";

    Search smallest(lanczos2(), 1, 2); // positive, but refused by the fit
    smallest.dt = 1e-103;
    EXPECT_EQ(smallest.run(), "Sub LEASTSQ_PRONY_SVD: input parameters out of bounds !");
    EXPECT_EQ(smallest.m, 1);
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
    Search search(signal, 1, 1000);
    search.mmax = 1000;
    search.y.resize(100000);
    search.ndim = 100000;
    search.mmin = 20;
    const long before = peak_memory(true);
    ASSERT_EQ(search.run(), "");
    const long growth = peak_memory(false) - before;
    EXPECT_EQ(search.m, 20);
    EXPECT_GT(before, 0);
    EXPECT_LT(growth, 4096) << "KiB";
    RecordProperty("growth_kib", std::to_string(growth));
}

} // namespace
} // namespace tessel::testing
