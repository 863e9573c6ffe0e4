#include "tests/support/child.h"
#include "tests/support/lapack.h"
#include "tests/support/library.h"
#include "tests/support/matrices.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <string>

namespace tessel::testing {
namespace {

FDTDCalcAPI& api()
{
    static const Library library;
    static const std::unique_ptr<FDTDCalcAPI> object = library.create();
    return *object;
}

template <class T>
T element(Random& random)
{
    if constexpr (std::is_same_v<T, Real>)
        return random.uniform(-1.0, 1.0);
    else
        return random.complex();
}

enum class Kind
{
    random,
    graded,
    deficient,
    zero,
    ones,
    rotation,
    tiny,
    huge
};
constexpr Kind kKinds[] = {Kind::random, Kind::graded,   Kind::deficient, Kind::zero,
                           Kind::ones,   Kind::rotation, Kind::tiny,      Kind::huge};

template <class T>
BasicTestMatrix<T> matrix(Kind kind, Integer m, Integer n, Integer padding, std::uint64_t seed = 1)
{
    Random random(seed);
    BasicTestMatrix<T> a(m, n, padding);
    for (Integer j = 0; j < n; ++j)
        for (Integer i = 0; i < m; ++i) {
            const T value = element<T>(random);
            switch (kind) {
            case Kind::random:
                a(i, j) = value;
                break;
            case Kind::graded: // columns from 1 to 1e-14
                a(i, j) = value * std::pow(10.0, -14.0 * j / n);
                break;
            case Kind::deficient: // three different columns
                a(i, j) = j < 3 ? value : a(i, j % 3) * Real(j);
                break;
            case Kind::zero:
                a(i, j) = T(0);
                break;
            case Kind::ones:
                a(i, j) = T(1);
                break;
            case Kind::rotation: // columns of a permutation
                a(i, j) = T((i + 1) % m == j ? 1 : 0);
                break;
            case Kind::tiny:
                a(i, j) = value * 1e-305;
                break;
            case Kind::huge:
                a(i, j) = value * 1e305;
                break;
            }
        }
    return a;
}

/// Decomposes a copy of A with the given jobs and judges what came out by scaled ratios.
template <class T>
std::vector<Real> check_svd(const BasicTestMatrix<T>& a, char jobu, char jobvt, bool least)
{
    const Integer m = static_cast<Integer>(a.rows()), n = static_cast<Integer>(a.columns()), p = std::min(m, n);
    const Integer padding = a.ld() - m;
    BasicTestMatrix<T> factors = a, u(m, m, padding), vt(n, n, padding);
    std::vector<Real> s(static_cast<std::size_t>(p) + 1, -1.0), rwork(5 * static_cast<std::size_t>(p) + 1, -1.0);
    const Integer lwork = least ? least_work(T(), m, n) : best_work<T>(api(), jobu, jobvt, m, n);
    EXPECT_GE(lwork, least_work(T(), m, n));
    std::vector<T> work(static_cast<std::size_t>(lwork));
    Integer info = 77;
    gesvd(api(), jobu, jobvt, m, n, factors.data(), factors.ld(), s.data(), u.data(), u.ld(), vt.data(), vt.ld(),
          work.data(), lwork, rwork.data(), info);
    EXPECT_EQ(info, 0);
    EXPECT_EQ(s.back(), -1.0);
    EXPECT_EQ(rwork.back(), -1.0);
    EXPECT_TRUE(factors.padding_intact() && u.padding_intact() && vt.padding_intact());
    s.pop_back();
    for (std::size_t k = 0; k < s.size(); ++k)
        EXPECT_TRUE(s[k] >= 0 && (k == 0 || s[k] <= s[k - 1])) << k;

    if (jobu == 'O')
        for (Integer k = 0; k < p; ++k)
            for (Integer i = 0; i < m; ++i)
                u(i, k) = factors(i, k);
    if (jobvt == 'O')
        for (Integer k = 0; k < p; ++k)
            for (Integer j = 0; j < n; ++j)
                vt(k, j) = factors(k, j);
    const Real unit = kEps * std::max({1, m, n});
    EXPECT_LE(jobu == 'N' ? 0.0 : departure_from_orthonormal(u, jobu == 'A' ? m : p), 50 * unit);
    EXPECT_LE(jobvt == 'N' ? 0.0 : departure_from_orthonormal(adjoint(vt), jobvt == 'A' ? n : p), 50 * unit);
    if (jobu != 'N' && jobvt != 'N' && p > 0) {
        const Real scale = max_modulus(a) > 0 ? max_modulus(a) : 1.0; // quotients first: tiny and huge matrices
        Real worst = 0;
        for (Integer j = 0; j < n; ++j)
            for (Integer i = 0; i < m; ++i) {
                T sum = a(i, j) / scale;
                for (Integer k = 0; k < p; ++k)
                    sum -= u(i, k) * vt(k, j) * (s[static_cast<std::size_t>(k)] / scale);
                worst = std::max(worst, std::abs(sum));
            }
        EXPECT_LE(worst, 50 * unit * std::max(1.0, s[0] / scale));
    }
    return s;
}

template <class T>
class Svd : public ::testing::Test
{};
using ElementTypes = ::testing::Types<Real, Complex>;
TYPED_TEST_SUITE(Svd, ElementTypes, );

TYPED_TEST(Svd, FactorsEveryKindOfMatrixInEveryShape)
{
    const std::pair<Integer, Integer> shapes[] = {{1, 1},  {1, 7},   {9, 1},   {5, 5},
                                                  {12, 9}, {40, 11}, {11, 40}, {70, 70}};
    for (const Kind kind : kKinds)
        for (const auto& [m, n] : shapes) {
            SCOPED_TRACE("kind " + std::to_string(static_cast<int>(kind)) + ", " + std::to_string(m) + " x " +
                         std::to_string(n));
            check_svd(matrix<TypeParam>(kind, m, n, 3), 'S', 'S', false);
        }
}

TYPED_TEST(Svd, EveryPairOfJobsGivesTheSameValues)
{
    for (const auto& [m, n] : {std::pair{8, 8}, {30, 6}, {6, 30}}) {
        const BasicTestMatrix<TypeParam> a = matrix<TypeParam>(Kind::random, m, n, 1, 5);
        const std::vector<Real> expected = check_svd(a, 'A', 'A', false);
        for (const char jobu : {'A', 'S', 'O', 'N'})
            for (const char jobvt : {'A', 'S', 'O', 'N'}) {
                if (jobu == 'O' && jobvt == 'O')
                    continue;
                SCOPED_TRACE(std::string() + jobu + jobvt);
                const std::vector<Real> values = check_svd(a, jobu, jobvt, true);
                for (std::size_t k = 0; k < values.size(); ++k)
                    EXPECT_NEAR(values[k], expected[k], 50 * kEps * expected[0]);
            }
    }
}

TYPED_TEST(Svd, AWorkspaceQueryAnswersAndDoesNothingElse)
{
    EXPECT_GE(best_work<TypeParam>(api(), 'A', 'A', 50, 20), least_work(TypeParam(), 50, 20));
    EXPECT_GE(best_work<TypeParam>(api(), 'N', 'N', 0, 0), 1);
}

// Singular values of the n x n upper bidiagonal matrix of ones: 2 cos(k pi / (2 n + 1)), k = 1..n.
TYPED_TEST(Svd, FindsClosedFormSingularValues)
{
    const Integer n = 40;
    BasicTestMatrix<TypeParam> a(n, n);
    a.fill([](Index i, Index j) { return j == i || j == i + 1 ? 1.0 : 0.0; });
    const std::vector<Real> s = check_svd(a, 'N', 'N', false);
    for (Integer k = 1; k <= n; ++k)
        EXPECT_NEAR(s[static_cast<std::size_t>(k - 1)], 2 * std::cos(k * std::numbers::pi / (2 * n + 1)),
                    20 * kEps * 2);
}

/// Arguments of one call by name, so that a case spoils one of them.
struct Arguments
{
    char jobu = 'A', jobvt = 'A';
    Integer m = 4, n = 3, lda = 4, ldu = 4, ldvt = 3, lwork = 100;
};

TYPED_TEST(Svd, IllegalArgumentsAreReportedByPositionAndControlComesBack)
{
    struct Case
    {
        Integer position;
        void (*spoil)(Arguments&);
    };
    const Case cases[] = {
        {1, [](Arguments& x) { x.jobu = 'X'; }},
        {2, [](Arguments& x) { x.jobvt = 'X'; }},
        {2, [](Arguments& x) { x.jobu = x.jobvt = 'O'; }},
        {3, [](Arguments& x) { x.m = -1; }},
        {4, [](Arguments& x) { x.n = -1; }},
        {6, [](Arguments& x) { x.lda = 3; }},
        {9, [](Arguments& x) { x.ldu = 3; }},
        {11, [](Arguments& x) { x.ldvt = 2; }},
        {13, [](Arguments& x) { x.lwork = 1; }},
    };
    for (const Case& bad : cases) {
        const Outcome outcome = run_in_child([&bad] {
            Arguments x;
            bad.spoil(x);
            std::vector<TypeParam> a(16, TypeParam(3)), u(16), vt(16), work(100);
            std::vector<Real> s(4), rwork(20);
            const std::vector<TypeParam> before = a;
            Integer info = 77;
            gesvd(api(), x.jobu, x.jobvt, x.m, x.n, a.data(), x.lda, s.data(), u.data(), x.ldu, vt.data(), x.ldvt,
                  work.data(), x.lwork, rwork.data(), info);
            EXPECT_EQ(info, -bad.position);
            EXPECT_EQ(a, before);
            check_svd(matrix<TypeParam>(Kind::random, 4, 3, 0), 'A', 'A', false); // the object is as usable as before
            return ::testing::Test::HasFailure();
        });
        EXPECT_TRUE(outcome.well) << "argument " << bad.position << ": " << outcome.output;
        const char* const name = std::is_same_v<TypeParam, Real> ? "DGESVD" : "ZGESVD";
        EXPECT_NE(outcome.output.find(name), std::string::npos) << outcome.output;
    }
}

/// Solves A X = B and judges by |B - A X| / (|A| |X| n eps).
void check_solution(const TestMatrix& a, Integer nrhs, Integer padding)
{
    const Integer n = static_cast<Integer>(a.rows()), lda = a.ld();
    Random random(static_cast<std::uint64_t>(nrhs + 3));
    TestMatrix factors = a, x(n, nrhs, padding);
    const TestMatrix b = x.fill_random(random);
    const Integer ldb = b.ld();
    std::vector<Integer> pivots(static_cast<std::size_t>(n) + 1, -9);
    Integer info = 77;
    api().zgesv(&n, &nrhs, factors.data(), &lda, pivots.data(), x.data(), &ldb, &info);
    EXPECT_EQ(info, 0);
    EXPECT_TRUE(factors.padding_intact() && x.padding_intact());
    EXPECT_EQ(pivots.back(), -9);
    Real worst = 0;
    for (Integer j = 0; j < nrhs; ++j)
        for (Integer i = 0; i < n; ++i) {
            Complex sum = b(i, j);
            for (Integer k = 0; k < n; ++k)
                sum -= a(i, k) * x(k, j);
            worst = std::max(worst, std::abs(sum));
        }
    EXPECT_LE(worst, 50 * kEps * n * max_modulus(a) * std::max(max_modulus(x), 1e-300))
        << "order " << n << ", " << nrhs;
}

TEST(Zgesv, SolvesSystemsOfEveryShape)
{
    for (const Integer n : {1, 2, 7, 33, 64, 130})
        for (const Integer nrhs : {1, 3, 20})
            check_solution(matrix<Complex>(Kind::random, n, n, n % 3, 11), nrhs, n % 2);
    check_solution(matrix<Complex>(Kind::rotation, 20, 20, 0), 2, 0);
    check_solution(matrix<Complex>(Kind::graded, 30, 30, 0, 2), 2, 0);
}

TEST(Zgesv, FactorsTheMatrixWithoutRightHandSides)
{
    const Integer n = 40, none = 0, one = 1;
    TestMatrix with = matrix<Complex>(Kind::random, n, n, 2), without = with;
    const TestMatrix before = with;
    const Integer lda = with.ld();
    std::vector<Complex> b(static_cast<std::size_t>(n), 1.0);
    std::vector<Integer> pivots(static_cast<std::size_t>(n)), pivots_without(pivots);
    Integer info = 77, info_without = 77;
    api().zgesv(&n, &one, with.data(), &lda, pivots.data(), b.data(), &n, &info);
    api().zgesv(&n, &none, without.data(), &lda, pivots_without.data(), b.data(), &n, &info_without);
    EXPECT_EQ(info, 0);
    EXPECT_EQ(info_without, 0);
    EXPECT_FALSE(without == before);
    EXPECT_TRUE(without == with);
    EXPECT_EQ(pivots_without, pivots);
}

TEST(Zgesv, ReportsTheFirstZeroPivotAndLeavesTheRightHandSide)
{
    const Integer n = 5, one = 1;
    TestMatrix a(n, n);
    a.fill([](Index i, Index j) { return i == j && i != 2 ? 1.0 : 0.0; });
    std::vector<Complex> b(5, Complex(2.0, 1.0));
    const std::vector<Complex> before = b;
    std::vector<Integer> pivots(5);
    Integer info = 77;
    api().zgesv(&n, &one, a.data(), &n, pivots.data(), b.data(), &n, &info);
    EXPECT_EQ(info, 3);
    EXPECT_EQ(b, before);
}

TEST(Zgesv, IllegalArgumentsAreReportedByPositionAndControlComesBack)
{
    struct Case
    {
        Integer position, n, nrhs, lda, ldb;
    };
    for (const Case& bad : {Case{1, -1, 1, 3, 3}, {2, 3, -1, 3, 3}, {4, 3, 1, 2, 3}, {7, 3, 1, 3, 2}}) {
        const Outcome outcome = run_in_child([&bad] {
            std::vector<Complex> a(9, 3.0), b(3, 1.0);
            const std::vector<Complex> before = a;
            std::vector<Integer> pivots(3);
            Integer info = 77;
            api().zgesv(&bad.n, &bad.nrhs, a.data(), &bad.lda, pivots.data(), b.data(), &bad.ldb, &info);
            EXPECT_EQ(info, -bad.position);
            EXPECT_EQ(a, before);
            check_solution(matrix<Complex>(Kind::random, 4, 4, 0), 1, 0);
            return ::testing::Test::HasFailure();
        });
        EXPECT_TRUE(outcome.well) << "argument " << bad.position << ": " << outcome.output;
        EXPECT_NE(outcome.output.find("ZGESV "), std::string::npos) << outcome.output;
    }
}

} // namespace
} // namespace tessel::testing
