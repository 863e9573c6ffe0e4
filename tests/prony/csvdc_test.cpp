#include "prony/csvdc.h"

#include "tests/support/matrices.h"
#include "tests/support/message.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <ostream>
#include <string>

namespace tessel::testing {
namespace {

constexpr char kNotCorrect[] = "Sub SLATEC_CSVDC: not all singular values are correct !";
constexpr char kTooFewRows[] = "Sub SLATEC_CSVDC: SVD here only implemented for N>=P !";

/// One call with everything around it. U is given N columns, so that every JOB finds room.
struct Svd
{
    explicit Svd(const TestMatrix& matrix, Integer job_code = 21, Index pad = 0)
        : job(job_code),
          n(static_cast<Integer>(matrix.rows())),
          p(static_cast<Integer>(matrix.columns())),
          x(matrix),
          u(n, n, pad),
          v(p, p, pad),
          s(p, 1),
          e(p, 1),
          work(n, 1)
    {}

    Integer run(bool in_place = false)
    {
        Message message;
        Integer flag = 77;
        call(flag, message.data(), message.length(), in_place);
        EXPECT_EQ(message.text(), padded(flag == 0 ? "" : n < p ? kTooFewRows : kNotCorrect));
        return flag;
    }
    void call(Integer& flag, char* text, CharLen length, bool in_place = false)
    {
        TestMatrix& left = in_place ? x : u;
        SLATEC_CSVDC(job, n, p, x.data(), x.ld(), left.data(), left.ld(), s.data(), v.data(), v.ld(), work.data(),
                     e.data(), info, flag, text, length);
    }

    Integer job, n, p, info = 77;
    TestMatrix x, u, v, s, e, work;
};

/// max |A - U diag(S) V^H| / (|A| max(n, p) eps)
Real residual_ratio(const TestMatrix& a, const Svd& svd, const TestMatrix& u)
{
    Real worst = 0.0;
    for (Index i = 0; i < svd.n; ++i)
        for (Index j = 0; j < svd.p; ++j) {
            Complex sum = a(i, j);
            for (Index k = 0; k < svd.p; ++k)
                sum -= u(i, k) * svd.s(k, 0) * std::conj(svd.v(j, k));
            worst = std::max(worst, std::abs(sum));
        }
    const Real size = max_modulus(a);
    return size == 0.0 ? worst : worst / (size * static_cast<Real>(svd.n) * kEps);
}

struct MatrixCase
{
    const char* name;
    Index n, p, pad;
    void (*make)(TestMatrix&, Random&);

    friend void PrintTo(const MatrixCase& test, std::ostream* out) { *out << test.name; }
};

void graded(TestMatrix& a, Random& random)
{
    a.fill([&](Index i, Index j) { return std::pow(10.0, -0.7 * static_cast<Real>(i + j)) * random.complex(); });
}
void rank_two(TestMatrix& a, Random& random)
{
    const auto x = random.complexes(static_cast<std::size_t>(2 * a.rows()));
    const auto y = random.complexes(static_cast<std::size_t>(2 * a.columns()));
    a.fill([&](Index i, Index j) {
        const auto row = static_cast<std::size_t>(2 * i), column = static_cast<std::size_t>(2 * j);
        return x[row] * y[column] + x[row + 1] * y[column + 1];
    });
}
/// A multiple of a unitary matrix: all singular values are equal.
void fourier(TestMatrix& a, Random&)
{
    a.fill([&](Index i, Index j) {
        return std::polar(2.5, 2.0 * std::numbers::pi * static_cast<Real>(i * j) / static_cast<Real>(a.rows()));
    });
}
void vandermonde(TestMatrix& a, Random& random)
{
    for (Index j = 0; j < a.columns(); ++j) {
        const Complex z = std::polar(random.uniform(0.9, 1.0), random.uniform(-3.0, 3.0));
        a(0, j) = 1.0;
        for (Index i = 1; i < a.rows(); ++i)
            a(i, j) = a(i - 1, j) * z;
    }
}
void random_entries(TestMatrix& a, Random& random)
{
    a.fill_random(random);
}
void zero(TestMatrix& a, Random&)
{
    a.fill([](Index, Index) { return 0.0; });
}
void zero_columns(TestMatrix& a, Random& random)
{
    a.fill([&](Index, Index j) { return j % 2 == 0 ? Complex(0.0) : random.complex(); });
}
/// An upper bidiagonal matrix with zeros on its diagonal: every row and column reflection meets zeros, and the
/// iteration has to split and to deflate.
void bidiagonal_with_zeros(TestMatrix& a, Random& random)
{
    a.fill([&](Index i, Index j) {
        return i == j ? Complex(i % 3 == 1 ? 0.0 : random.uniform(0.5, 1.0)) : Complex(j == i + 1 ? 1.0 : 0.0);
    });
}
void scaled_up(TestMatrix& a, Random& random)
{
    a.fill([&](Index, Index) { return 1e140 * random.complex(); });
}
void scaled_down(TestMatrix& a, Random& random)
{
    a.fill([&](Index, Index) { return 1e-140 * random.complex(); });
}

class Decomposes : public ::testing::TestWithParam<MatrixCase>
{};

TEST_P(Decomposes, AgreesWithLapackAndReproducesTheMatrix)
{
    const MatrixCase& test = GetParam();
    Random random(7);
    TestMatrix a(test.n, test.p, test.pad);
    test.make(a, random);

    Svd svd(a, 21, test.pad);
    ASSERT_EQ(svd.run(true), 0);
    EXPECT_EQ(svd.info, 0);
    TestMatrix u = svd.x; // in place
    EXPECT_LT(residual_ratio(a, svd, u), 50.0);
    const Real bound = 50.0 * kEps * static_cast<Real>(test.n);
    EXPECT_LT(departure_from_orthonormal(u, test.p), bound);
    EXPECT_LT(departure_from_orthonormal(svd.v, test.p), bound);

    const auto reference = lapack_singular_values(a);
    for (Index k = 0; k < test.p; ++k) {
        const Real value = svd.s(k, 0).real();
        EXPECT_GE(value, 0.0);
        EXPECT_EQ(svd.s(k, 0).imag(), 0.0);
        EXPECT_EQ(svd.e(k, 0), Complex(0.0));
        EXPECT_LE(value, k == 0 ? value : svd.s(k - 1, 0).real());
        EXPECT_LE(std::fabs(value - reference[static_cast<std::size_t>(k)]), bound * reference[0]) << "S" << k + 1;
    }
    EXPECT_TRUE(svd.x.padding_intact() && svd.v.padding_intact() && svd.s.padding_intact() && svd.e.padding_intact() &&
                svd.work.padding_intact());
}

INSTANTIATE_TEST_SUITE_P(
    ComplexSvd, Decomposes,
    ::testing::Values(MatrixCase{"one", 1, 1, 0, random_entries}, MatrixCase{"one_zero", 1, 1, 2, zero},
                      MatrixCase{"column", 9, 1, 1, random_entries}, MatrixCase{"two", 2, 2, 0, random_entries},
                      MatrixCase{"square", 40, 40, 0, random_entries}, MatrixCase{"tall", 90, 30, 5, random_entries},
                      MatrixCase{"one_more_row", 31, 30, 1, random_entries}, MatrixCase{"graded", 30, 20, 0, graded},
                      MatrixCase{"rank_two", 25, 18, 3, rank_two}, MatrixCase{"zero", 6, 4, 0, zero},
                      MatrixCase{"zero_columns", 12, 9, 0, zero_columns}, MatrixCase{"repeated", 16, 16, 0, fourier},
                      MatrixCase{"vandermonde", 80, 20, 0, vandermonde},
                      MatrixCase{"bidiagonal_with_zeros", 14, 13, 2, bidiagonal_with_zeros},
                      MatrixCase{"scaled_up", 12, 8, 0, scaled_up}, MatrixCase{"scaled_down", 12, 8, 0, scaled_down}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(ComplexSvd, JobSelectsTheVectors)
{
    Random random(11);
    TestMatrix a(9, 5, 2);
    a.fill_random(random);
    Svd reference(a, 21);
    ASSERT_EQ(reference.run(), 0);

    // job, left vectors, whether there are right ones
    const struct
    {
        Integer job;
        Index left;
        bool right;
    } cases[] = {{0, 0, false}, {1, 0, true},   {10, 9, false}, {11, 9, true}, {20, 5, false},  {21, 5, true},
                 {35, 5, true}, {109, 0, true}, {-11, 9, true}, {-1, 0, true}, {-20, 9, false}, {1021, 5, true}};
    for (const auto& test : cases) {
        Svd svd(a, test.job, 3);
        ASSERT_EQ(svd.run(), 0) << "job " << test.job;
        EXPECT_TRUE(svd.s == reference.s) << "job " << test.job;
        EXPECT_EQ(svd.v.untouched(), !test.right) << "job " << test.job;
        EXPECT_EQ(svd.u.untouched(), test.left == 0) << "job " << test.job;
        EXPECT_TRUE(svd.u.padding_intact() && svd.v.padding_intact());
        EXPECT_TRUE(!test.right || svd.v == reference.v) << "job " << test.job;
        for (Index j = 0; j < std::min<Index>(test.left, 5); ++j)
            for (Index i = 0; i < 9; ++i)
                EXPECT_EQ(svd.u(i, j), reference.u(i, j)) << "job " << test.job;
        if (test.left == 9) {
            EXPECT_LT(departure_from_orthonormal(svd.u, 9), 1e-14);
        } else if (test.left == 5) {
            EXPECT_EQ(svd.u(0, 5), TestMatrix(1, 1)(0, 0)) << "columns behind the first P stay as they are";
        }
    }
}

TEST(ComplexSvd, InPlaceGivesTheBitsOfSeparateArrays)
{
    Random random(3);
    for (const auto& [n, p] : {std::pair<Index, Index>{1, 1}, {6, 6}, {20, 7}}) {
        TestMatrix a(n, p, 1);
        a.fill_random(random);
        Svd apart(a), together(a);
        ASSERT_EQ(apart.run(), 0);
        ASSERT_EQ(together.run(true), 0);
        EXPECT_TRUE(apart.s == together.s && apart.v == together.v);
        for (Index j = 0; j < p; ++j)
            for (Index i = 0; i < n; ++i)
                EXPECT_EQ(apart.u(i, j), together.x(i, j));
    }
}

TEST(ComplexSvd, OneElementKeepsItsPhaseInU)
{
    TestMatrix a(1, 1);
    a(0, 0) = Complex(-3.0, 4.0);
    Svd svd(a);
    ASSERT_EQ(svd.run(), 0);
    EXPECT_EQ(svd.s(0, 0), Complex(5.0));
    EXPECT_EQ(svd.u(0, 0), Complex(-0.6, 0.8));
    EXPECT_EQ(svd.v(0, 0), Complex(1.0));
}

TEST(ComplexSvd, RefusesMoreColumnsThanRows)
{
    Random random(5);
    TestMatrix a(2, 3);
    a.fill_random(random);
    Svd svd(a);
    expect_status(-1, kTooFewRows, [&](Integer& flag, char* text, CharLen length) { svd.call(flag, text, length); });
    EXPECT_EQ(svd.info, 77);
    EXPECT_TRUE(svd.x == a && svd.u.untouched() && svd.s.untouched() && svd.e.untouched());

    TestMatrix none(0, 0);
    Svd empty(none);
    EXPECT_EQ(empty.run(), 0) << "nothing to do is not an error";
}

/// The sign of the shift leaves a few special matrices without convergence; so does the limit itself where the entries
/// fall over tens of decades. That is part of the contract, and the report must be right: S(INFO+1..P) are singular
/// values, and U^H A V is bidiagonal with S and E. How many of these matrices it takes depends on the last bits of the
/// level-1 operations.
TEST(ComplexSvd, ReportsTheIterationLimit)
{
    int limited = 0;
    TestMatrix a(3, 3);
    for (int code = 0; code < 19683; ++code) { // all matrices with entries -1, 0 and 1
        int rest = code;
        a.fill([&](Index, Index) {
            const Real entry = rest % 3 - 1;
            rest /= 3;
            return entry;
        });
        Svd svd(a);
        if (svd.run() == 0)
            continue;
        ++limited;
        ASSERT_TRUE(svd.info > 0 && svd.info <= 3);
        const auto reference = lapack_singular_values(a);
        for (Index k = svd.info; k < 3; ++k) {
            const Real value = svd.s(k, 0).real();
            EXPECT_TRUE(std::any_of(reference.begin(), reference.end(),
                                    [&](Real other) { return std::fabs(value - other) < 1e-14; }));
        }
        for (Index i = 0; i < 3; ++i)
            for (Index j = 0; j < 3; ++j) {
                Complex sum = i == j ? -svd.s(i, 0) : j == i + 1 ? -svd.e(i, 0) : 0.0;
                for (Index k = 0; k < 3; ++k)
                    for (Index l = 0; l < 3; ++l)
                        sum += std::conj(svd.u(k, i)) * a(k, l) * svd.v(l, j);
                ASSERT_LT(std::abs(sum), 1e-14) << "matrix " << code << ", element " << i << ' ' << j;
            }
    }
    EXPECT_GT(limited, 100);
    EXPECT_LT(limited, 700);

    Random random(2);
    TestMatrix falling(85, 80);
    falling.fill([&](Index i, Index j) { return std::pow(10.0, -0.3 * static_cast<Real>(i + j)) * random.complex(); });
    EXPECT_EQ(Svd(falling).run(), -1);

    const Real entries[3][3] = {{1, 0, -1}, {0, 1, -1}, {-1, -1, -1}};
    a.fill([&](Index i, Index j) { return entries[j][i]; });
    expect_status(-1, kNotCorrect, [&](Integer& flag, char* text, CharLen length) {
        Svd svd(a);
        svd.call(flag, text, length);
        EXPECT_GT(svd.info, 0);
    });
}

TEST(ComplexSvd, ReturnsWhateverTheEntries)
{
    const Real special[] = {std::numeric_limits<Real>::quiet_NaN(),
                            std::numeric_limits<Real>::infinity(),
                            1e300,
                            1e-170,
                            std::numeric_limits<Real>::denorm_min(),
                            0.0};
    Random random(17);
    for (int turn = 0; turn < 3000; ++turn) {
        const Index p = 1 + random.below(6), n = p + random.below(4);
        TestMatrix a(n, p);
        const int kinds = 1 + random.below(6);
        const Real rate = random.uniform();
        a.fill([&](Index, Index) {
            return random.uniform() < rate ? Complex(special[random.below(kinds)]) : random.complex();
        });
        Svd svd(a);
        const Integer flag = svd.run();
        EXPECT_EQ(flag == 0, svd.info == 0);
    }
    // The split that would repeat for ever.
    TestMatrix a(2, 2);
    zero(a, random);
    a(1, 1) = special[0];
    EXPECT_EQ(Svd(a).run(), -1);
}

} // namespace
} // namespace tessel::testing
