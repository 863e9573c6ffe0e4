// What the ARPACK slots report, and that no eigen-solve prints. Their numbers are judged by the conformance program.
#include "tests/support/arnoldi.h"
#include "tests/support/child.h"
#include "tests/support/library.h"

#include <gtest/gtest.h>

#include <cmath>

namespace tessel::testing {
namespace {

// The same start vector in each of these solves: the same bits come out, whatever SELECT holds.
TEST(Arpack, SelectIsWorkStorageWhateverItHolds)
{
    std::vector<Real> expected;
    for (const Logical filling : {0, 1, 2, -1, 0x55555554}) {
        Arnoldi problem = sample_problem();
        problem.select.assign(static_cast<std::size_t>(problem.ncv), filling);
        problem.solve(api());
        ASSERT_EQ(problem.post_info, 0);
        if (expected.empty())
            expected = problem.z;
        EXPECT_EQ(problem.z, expected) << filling;
        for (const Logical value : problem.select)
            EXPECT_TRUE(value == 0 || value == 1) << value;
    }
}

/// An operator whose products hold a NaN from the given one on, and the columns of Z that this takes. LAPACK calls the
/// norm of such a matrix an illegal value.
void spoil_products(Arnoldi& problem, int first)
{
    problem.op = [op = problem.op, first, count = 0](const Real* x, Real* y) mutable {
        op(x, y);
        if (++count >= first)
            y[3] = NAN;
    };
    problem.z_columns = static_cast<std::size_t>(problem.ncv);
    problem.restarts = 20;
}

TEST(Arpack, EverySolveHasItsPublishedInfoAndNonePrints)
{
    constexpr Integer kNotCalled = 77;
    struct Case
    {
        Integer info, post_info;
        void (*change)(Arnoldi&);
    };
    const Case cases[] = {
        {0, 0, [](Arnoldi&) {}},
        {0, 0, [](Arnoldi& p) { p.howmny = 'P'; }},
        {0, 0, [](Arnoldi& p) { p.rvec = 2; }},
        {0, 0, [](Arnoldi& p) { p.op = [](const Real* x, Real* y) { std::copy_n(x, 100, y); }; }},
        {0, -12, [](Arnoldi& p) { p.howmny = 'S'; }},
        {0, -13, [](Arnoldi& p) { p.howmny = 'X'; }},
        {1, -14, [](Arnoldi& p) { p.which = "LI"; }}, // a real spectrum
        {1, -14, // one restart from a start vector of all frequencies brings none of these
         [](Arnoldi& p) {
             p.which = "SM";
             p.restarts = 1;
         }},
        {1, -14, [](Arnoldi& p) { spoil_products(p, 2); }},
        {-1, kNotCalled, [](Arnoldi& p) { p.n = 0; }},
        {-2, kNotCalled, [](Arnoldi& p) { p.nev = 0; }},
        {-3, kNotCalled, [](Arnoldi& p) { p.ncv = p.nev + 1; }},
        {-3, kNotCalled, [](Arnoldi& p) { p.ncv = p.n + 1; }},
        {-4, kNotCalled, [](Arnoldi& p) { p.restarts = 0; }},
        {-5, kNotCalled, [](Arnoldi& p) { p.which = "XX"; }},
        {-6, kNotCalled, [](Arnoldi& p) { p.bmat = 'Q'; }},
        {-7, kNotCalled, [](Arnoldi& p) { p.missing_work = 1; }},
        {-8, kNotCalled, [](Arnoldi& p) { spoil_products(p, 6); }},
        {-9, kNotCalled, [](Arnoldi& p) { p.resid.assign(100, 0.0); }},
        {-10, kNotCalled, [](Arnoldi& p) { p.mode = 5; }},
        {-11, kNotCalled, [](Arnoldi& p) { p.bmat = 'G'; }},
        {-12, kNotCalled, [](Arnoldi& p) { p.shifts = 2; }},
        {-9999, kNotCalled, [](Arnoldi& p) { spoil_products(p, 1); }},
    };
    const Outcome outcome = run_in_child([&] {
        for (const Case& c : cases) {
            Arnoldi problem = sample_problem();
            c.change(problem);
            problem.solve(api());
            EXPECT_EQ(problem.info, c.info);
            EXPECT_EQ(problem.post_info, c.post_info) << "after INFO = " << c.info;
        }
        return ::testing::Test::HasFailure();
    });
    EXPECT_TRUE(outcome.well);
    EXPECT_EQ(outcome.output, "");
}

} // namespace
} // namespace tessel::testing
