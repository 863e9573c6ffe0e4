// What the solver slots report for invalid or failing calls, which outputs they then leave untouched, and what is
// printed. Their numerical results are checked by the conformance program.
#include "tests/support/arnoldi.h"
#include "tests/support/child.h"
#include "tests/support/library.h"
#include "tests/support/slots.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

namespace tessel::testing {
namespace {

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
    constexpr Integer not_called = 77;
    const struct
    {
        Integer info, post_info;
        void (*change)(Arnoldi&);
    } cases[] = {
        {0, 0, [](Arnoldi&) {}},
        {0, 0, [](Arnoldi& p) { p.howmny = 'P'; }},
        {0, 0, [](Arnoldi& p) { p.rvec = 2; }},
        {0, 0, [](Arnoldi& p) { p.op = [](const Real* x, Real* y) { std::copy_n(x, 100, y); }; }},
        {0, -12, [](Arnoldi& p) { p.howmny = 'S'; }},
        {0, -13, [](Arnoldi& p) { p.howmny = 'X'; }},
        {1, -14, [](Arnoldi& p) { p.which = "LI"; }}, // a real spectrum
        {1, -14, [](Arnoldi& p) { spoil_products(p, 2); }},
        {-1, not_called, [](Arnoldi& p) { p.n = 0; }},
        {-2, not_called, [](Arnoldi& p) { p.nev = 0; }},
        {-3, not_called, [](Arnoldi& p) { p.ncv = p.nev + 1; }},
        {-4, not_called, [](Arnoldi& p) { p.restarts = 0; }},
        {-5, not_called, [](Arnoldi& p) { p.which = "XX"; }},
        {-6, not_called, [](Arnoldi& p) { p.bmat = 'Q'; }},
        {-7, not_called, [](Arnoldi& p) { p.missing_work = 1; }},
        {-8, not_called, [](Arnoldi& p) { spoil_products(p, 6); }},
        {-9, not_called, [](Arnoldi& p) { p.resid.assign(100, 0.0); }},
        {-10, not_called, [](Arnoldi& p) { p.mode = 5; }},
        {-11, not_called, [](Arnoldi& p) { p.bmat = 'G'; }},
        {-12, not_called, [](Arnoldi& p) { p.shifts = 2; }},
        {-9999, not_called, [](Arnoldi& p) { spoil_products(p, 1); }},
    };
    const Outcome outcome = run_in_child([&] {
        for (const auto& [info, post_info, change] : cases) {
            Arnoldi problem = sample_problem();
            change(problem);
            problem.solve(api());
            EXPECT_EQ(problem.info, info);
            EXPECT_EQ(problem.post_info, post_info) << "after INFO = " << info;
        }
        return ::testing::Test::HasFailure();
    });
    EXPECT_TRUE(outcome.well);
    EXPECT_EQ(outcome.output, "");
}

struct Arguments
{
    char jobu = 'A', jobvt = 'A';
    Integer m = 4, n = 3, lda = 4, ldu = 4, ldvt = 3, lwork = 100;
};

/// INFO of a decomposition of a 4 x 3 matrix.
template <class T>
Integer decompose(const Arguments& x)
{
    std::vector<T> a(12), u(16), vt(9), work(100);
    std::vector<Real> s(3), rwork(15);
    Integer info = 77;
    gesvd(api(), x.jobu, x.jobvt, x.m, x.n, a.data(), x.lda, s.data(), u.data(), x.ldu, vt.data(), x.ldvt, work.data(),
          x.lwork, rwork.data(), info);
    return info;
}

/// INFO of a system of order 3 whose second column is zero.
Integer solve(Integer n, Integer nrhs, Integer lda, Integer ldb, std::vector<Complex>& b)
{
    std::vector<Complex> a = {1.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 1.0};
    std::vector<Integer> pivots(3);
    Integer info = 77;
    api().zgesv(&n, &nrhs, a.data(), &lda, pivots.data(), b.data(), &ldb, &info);
    return info;
}

/// A call must have ended as it should, and printed a line with the name, or nothing if that is empty.
void expect_report(const Outcome& outcome, const std::string& name)
{
    EXPECT_TRUE(outcome.well) << name;
    EXPECT_EQ(outcome.output.empty(), name.empty());
    EXPECT_NE(outcome.output.find(name), std::string::npos) << "no line of XERBLA: " << outcome.output;
}

TEST(Lapack, IllegalArgumentsOfADecompositionAreReportedInALineToo)
{
    const struct
    {
        Integer position;
        Arguments arguments;
    } cases[] = {{1, {.jobu = 'X'}}, {2, {.jobvt = 'X'}}, {3, {.m = -1}},    {4, {.n = -1}},
                 {6, {.lda = 3}},    {9, {.ldu = 3}},     {11, {.ldvt = 2}}, {13, {.lwork = 1}}};
    for (const auto& bad : cases) {
        SCOPED_TRACE(bad.position);
        expect_report(run_in_child([&] { return decompose<Complex>(bad.arguments) + bad.position; }), "ZGESVD");
        expect_report(run_in_child([&] { return decompose<Real>(bad.arguments) + bad.position; }), "DGESVD");
    }
}

TEST(Lapack, FailuresOfASolutionLeaveTheRightHandSide)
{
    const struct
    {
        Integer info, n, nrhs, lda, ldb;
        const char* name = "ZGESV ";
    } cases[] = {{-1, -1, 1, 3, 3},
                 {-2, 3, -1, 3, 3},
                 {-4, 3, 1, 2, 3},
                 {-7, 3, 1, 3, 2},
                 {2, 3, 1, 3, 3, ""}}; // the first pivot that is zero
    for (const auto& bad : cases) {
        SCOPED_TRACE(bad.info);
        const auto solve_and_compare = [&] {
            const std::vector<Complex> before(3, Complex(2.0, 1.0));
            std::vector<Complex> b = before;
            return solve(bad.n, bad.nrhs, bad.lda, bad.ldb, b) != bad.info || b != before;
        };
        expect_report(run_in_child(solve_and_compare), bad.name);
    }
}

/// What the callback does and notes. There is no pointer for the host's data: it goes through the thread.
thread_local Integer evaluations, stop_at, stop_with;

void watched(const Integer* n, const Real* x, Real* fvec, Real* fjac, const Integer* ldfjac, Integer* iflag)
{
    if (++evaluations == stop_at)
        *iflag = stop_with;
    else
        broyden(n, x, fvec, fjac, ldfjac, iflag);
}

/// INFO of a solve whose evaluation number `at`, if there is one, ends it with IFLAG = `with`. A call that is refused
/// must touch nothing.
Integer hybrj1(Integer n, Integer ldfjac, Integer lwa, Real tol, Integer at = 0, Integer with = -1)
{
    std::vector<Real> x(10, -1.0), fvec(10), fjac(120), wa(115);
    Integer info = 77;
    evaluations = 0;
    stop_at = at;
    stop_with = with;
    api().hybrj1(watched, &n, x.data(), fvec.data(), fjac.data(), &ldfjac, &tol, &info, wa.data(), &lwa);
    const bool untouched = x == std::vector<Real>(10, -1.0) && fvec == std::vector<Real>(10) &&
                           fjac == std::vector<Real>(120) && wa == std::vector<Real>(115) && evaluations == 0;
    EXPECT_TRUE(info != 0 || untouched);
    return info;
}

TEST(Hybrj1, RefusesArgumentsOutOfBoundsAndTouchesNothing)
{
    EXPECT_EQ(hybrj1(0, 12, 115, 1e-8), 0);
    EXPECT_EQ(hybrj1(10, 9, 115, 1e-8), 0);
    EXPECT_EQ(hybrj1(10, 12, 114, 1e-8), 0);
    EXPECT_EQ(hybrj1(10, 12, 115, -1.0), 0);
    // N (N + 13) does not fit in 32 bits: 46335 is the first such N; for 65536 it is 851968 modulo 2^32.
    EXPECT_EQ(hybrj1(46335, 46335, 1073767289, 1e-8), 0);
    EXPECT_EQ(hybrj1(65536, 65536, 425984, 1e-8), 0);
    EXPECT_NE(hybrj1(10, 10, 115, NAN, 20), 0) << "a tolerance of NaN passes";
}

TEST(Hybrj1, ANegativeIflagEndsTheSolveAndIsReported)
{
    for (const auto& [at, with] : {std::pair{1, -1}, {2, -7}, {4, -1000000}}) {
        EXPECT_EQ(hybrj1(10, 12, 115, 1e-8, at, with), with);
        EXPECT_EQ(evaluations, at);
    }
}

} // namespace
} // namespace tessel::testing
