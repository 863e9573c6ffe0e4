// What the HYBRJ1 slot refuses, and how a host ends a solve.
#include "tests/support/library.h"
#include "tests/support/slots.h"

#include <gtest/gtest.h>

#include <limits>

namespace tessel::testing {
namespace {

/// What the callback notes and does. There is no pointer for the host's data: it goes through the thread.
struct Watch
{
    Integer stop_at = 0; ///< evaluation at which the solve is ended, none if 0
    Integer stop_with = -1;
    Integer evaluations = 0;
};
thread_local Watch watch;

void watched(const Integer* n, const Real* x, Real* fvec, Real* fjac, const Integer* ldfjac, Integer* iflag)
{
    if (++watch.evaluations == watch.stop_at)
        *iflag = watch.stop_with;
    else
        broyden(n, x, fvec, fjac, ldfjac, iflag);
}

/// One call with its usual arguments.
struct Call
{
    void run(Watch with = {})
    {
        watch = with;
        api().hybrj1(watched, &n, x.data(), fvec.data(), fjac.data(), &ldfjac, &tol, &info, wa.data(), &lwa);
    }

    Integer n = 10, ldfjac = 12, lwa = 115, info = 77;
    Real tol = 1e-8;
    std::vector<Real> x = std::vector<Real>(10, -1.0), fvec = std::vector<Real>(10, 7.25),
                      fjac = std::vector<Real>(120, 7.25), wa = std::vector<Real>(116, 7.25);
};

TEST(Hybrj1, RefusesArgumentsOutOfBoundsAndTouchesNothing)
{
    constexpr Integer huge = std::numeric_limits<Integer>::max();
    const struct
    {
        Integer n, ldfjac, lwa;
        Real tol;
    } cases[] = {{0, 12, 115, 1e-8},
                 {-3, 12, 115, 1e-8},
                 {10, 9, 115, 1e-8},
                 {10, 12, 115, -1.0},
                 {10, 12, 114, 1e-8},
                 // N (N + 13) does not fit in 32 bits: 46335 is the first such N; for 65536 it is 851968 modulo 2^32.
                 {46335, 46335, 1073767289, 1e-8},
                 {65536, 65536, 425984, 1e-8},
                 {huge, huge, huge, 1e-8}};
    for (const auto& bad : cases) {
        Call call;
        const Call before = call;
        call.n = bad.n;
        call.ldfjac = bad.ldfjac;
        call.lwa = bad.lwa;
        call.tol = bad.tol;
        call.run();
        EXPECT_EQ(call.info, 0) << bad.n;
        EXPECT_EQ(watch.evaluations, 0) << bad.n;
        EXPECT_TRUE(call.x == before.x && call.fvec == before.fvec && call.fjac == before.fjac && call.wa == before.wa);
    }
}

TEST(Hybrj1, TakesTheFirstLengthThatIsEnoughAndATolThatIsNotANumber)
{
    Call large; // nothing beyond the diagonal is touched before the first evaluation: the arrays are not there whole
    large.n = large.ldfjac = 46335;
    large.lwa = 1073767290;
    large.x.resize(46335);
    large.wa.resize(46335);
    large.run({.stop_at = 1});
    EXPECT_EQ(large.info, -1);

    Call call;
    call.tol = std::numeric_limits<Real>::quiet_NaN();
    call.run({.stop_at = 20});
    EXPECT_NE(call.info, 0);
    EXPECT_GT(watch.evaluations, 1);
}

TEST(Hybrj1, ANegativeIflagEndsTheSolveAndIsReported)
{
    for (const auto& [at, with] : {std::pair{1, -1}, {2, -7}, {4, -1000000}}) {
        Call call;
        call.run({.stop_at = at, .stop_with = with});
        EXPECT_EQ(call.info, with);
        EXPECT_EQ(watch.evaluations, at);
    }
}

} // namespace
} // namespace tessel::testing
