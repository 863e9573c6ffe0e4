// What the LAPACK slots report and leave alone. Their numbers are judged by the conformance program.
#include "tests/support/child.h"
#include "tests/support/library.h"
#include "tests/support/slots.h"

#include <gtest/gtest.h>

namespace tessel::testing {
namespace {

/// Arguments by name, so that a case spoils one of them.
struct Arguments
{
    char jobu = 'A', jobvt = 'A';
    Integer m = 4, n = 3, nrhs = 1, lda = 4, ldu = 4, ldvt = 3, ldb = 3, lwork = 100;
};

struct Case
{
    Integer position; ///< of the first illegal argument
    Arguments arguments;
};

/// INFO of a decomposition or of a solution; `a` is left as the call leaves it.
template <class T>
Integer decompose(const Arguments& x, std::vector<T>& a)
{
    std::vector<T> u(16), vt(16), work(100);
    std::vector<Real> s(4), rwork(20);
    Integer info = 77;
    gesvd(api(), x.jobu, x.jobvt, x.m, x.n, a.data(), x.lda, s.data(), u.data(), x.ldu, vt.data(), x.ldvt, work.data(),
          x.lwork, rwork.data(), info);
    return info;
}
Integer solve(const Arguments& x, std::vector<Complex>& a)
{
    std::vector<Complex> b(16, 1.0);
    std::vector<Integer> pivots(4);
    Integer info = 77;
    api().zgesv(&x.n, &x.nrhs, a.data(), &x.lda, pivots.data(), b.data(), &x.ldb, &info);
    return info;
}

template <class T>
void expect_reports(const char* name, Integer (*call)(const Arguments&, std::vector<T>&),
                    const std::vector<Case>& cases)
{
    for (const Case& bad : cases) {
        const Outcome outcome = run_in_child([&] {
            std::vector<T> a(16, T(3));
            const std::vector<T> before = a;
            const bool reported = call(bad.arguments, a) == -bad.position && a == before;
            call_slots(api(), 8, 1); // the object is as usable as before
            return reported ? 0 : 1;
        });
        EXPECT_TRUE(outcome.well) << name << ", argument " << bad.position << ": " << outcome.output;
        EXPECT_NE(outcome.output.find(name), std::string::npos) << "no line of XERBLA: " << outcome.output;
    }
}

TEST(Lapack, IllegalArgumentsAreReportedByPositionAndControlComesBack)
{
    const std::vector<Case> cases = {{1, {.jobu = 'X'}}, {2, {.jobvt = 'X'}}, {2, {.jobu = 'O', .jobvt = 'O'}},
                                     {3, {.m = -1}},     {4, {.n = -1}},      {6, {.lda = 3}},
                                     {9, {.ldu = 3}},    {11, {.ldvt = 2}},   {13, {.lwork = 1}}};
    expect_reports<Complex>("ZGESVD", decompose, cases);
    expect_reports<Real>("DGESVD", decompose, cases);
    expect_reports<Complex>("ZGESV ", solve, {{1, {.n = -1}}, {2, {.nrhs = -1}}, {4, {.lda = 2}}, {7, {.ldb = 2}}});
}

TEST(Lapack, ASingularSystemIsReportedByItsFirstZeroPivot)
{
    std::vector<Complex> a = {1.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 1.0}, b(3, Complex(2.0, 1.0));
    const std::vector<Complex> before = b;
    const Integer n = 3, one = 1;
    Integer pivots[3], info = 77;
    api().zgesv(&n, &one, a.data(), &n, pivots, b.data(), &n, &info);
    EXPECT_EQ(info, 2);
    EXPECT_EQ(b, before);
}

// The factors are those of a call with a right-hand side.
TEST(Lapack, ASystemWithoutRightHandSidesIsFactored)
{
    const std::vector<Complex> matrix = Random(3).complexes(16);
    std::vector<Complex> with = matrix, without = matrix;
    EXPECT_EQ(solve({.n = 4, .ldb = 4}, with), 0);
    EXPECT_EQ(solve({.n = 4, .nrhs = 0, .ldb = 4}, without), 0);
    EXPECT_NE(without, matrix);
    EXPECT_EQ(without, with);
}

} // namespace
} // namespace tessel::testing
