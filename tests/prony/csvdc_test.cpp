#include "prony/csvdc.h"

#include "tests/support/matrices.h"
#include "tests/support/message.h"

#include <cmath>
#include <limits>
#include <string>

namespace tessel::testing {
namespace {

constexpr char kNotCorrect[] = "Sub SLATEC_CSVDC: not all singular values are correct !";

/// A decomposition with all N left vectors, or with P of them in place of the matrix.
struct Svd
{
    explicit Svd(const TestMatrix& matrix, bool in_place = false, Index pad = 0)
        : n(static_cast<Integer>(matrix.rows())),
          p(static_cast<Integer>(matrix.columns())),
          u(n, n, pad),
          v(p, p, pad),
          s(p, 1),
          e(p, 1)
    {
        TestMatrix x(matrix), work(n, 1);
        TestMatrix& left = in_place ? x : u;
        message = status_of([&](Integer& flag, char* text, CharLen length) {
            SLATEC_CSVDC(in_place ? 21 : 11, n, p, x.data(), x.ld(), left.data(), left.ld(), s.data(), v.data(), v.ld(),
                         work.data(), e.data(), info, flag, text, length);
        });
        if (in_place)
            u = x;
    }

    Integer n, p, info = 77;
    TestMatrix u, v, s, e;
    std::string message;
};

/// max |A - U diag(S) V^H| / (|A| max(n, p) eps)
Real residual_ratio(const TestMatrix& a, const Svd& svd)
{
    Real worst = 0.0;
    for (Index i = 0; i < svd.n; ++i)
        for (Index j = 0; j < svd.p; ++j) {
            Complex sum = a(i, j);
            for (Index k = 0; k < svd.p; ++k)
                sum -= svd.u(i, k) * svd.s(k, 0) * std::conj(svd.v(j, k));
            worst = std::max(worst, std::abs(sum));
        }
    const Real size = max_modulus(a);
    return size == 0.0 ? worst : worst / (size * static_cast<Real>(svd.n) * kEps);
}

TEST(ComplexSvd, AgreesWithLapackAndReproducesTheMatrix)
{
    const struct
    {
        Index n, p, pad;
    } shapes[] = {{1, 1, 0}, {9, 1, 1}, {2, 2, 0}, {25, 18, 3}, {40, 40, 0}, {90, 30, 5}, {31, 30, 1}};
    Random random(7);
    for (const MatrixKind& kind : kMatrixKinds)
        for (const auto& [n, p, pad] : shapes) {
            SCOPED_TRACE(std::string(kind.name) + ' ' + std::to_string(n) + 'x' + std::to_string(p));
            TestMatrix a(n, p, pad);
            kind.make(a, random);
            const Svd svd(a, false, pad), in_place(a, true, pad);
            ASSERT_EQ(svd.message, "");
            EXPECT_EQ(svd.info, 0);
            EXPECT_LT(residual_ratio(a, svd), 50.0);
            const Real bound = 50.0 * kEps * static_cast<Real>(n);
            EXPECT_LT(departure_from_orthonormal(svd.u, n), bound);
            EXPECT_LT(departure_from_orthonormal(svd.v, p), bound);

            const auto reference = lapack_singular_values(a);
            for (Index k = 0; k < p; ++k) {
                const Complex value = svd.s(k, 0);
                EXPECT_TRUE(value.real() >= 0.0 && value.imag() == 0.0 && svd.e(k, 0) == 0.0) << "S" << k + 1;
                EXPECT_LE(value.real(), svd.s(std::max<Index>(k - 1, 0), 0).real()) << "S" << k + 1;
                EXPECT_LE(std::abs(value - reference[static_cast<std::size_t>(k)]), bound * reference[0]);
                for (Index i = 0; i < n; ++i)
                    EXPECT_EQ(in_place.u(i, k), svd.u(i, k));
            }
        }
}

TEST(ComplexSvd, OneElementKeepsItsPhaseInU)
{
    TestMatrix a(1, 1);
    a(0, 0) = Complex(-3.0, 4.0);
    const Svd svd(a);
    EXPECT_EQ(svd.s(0, 0), Complex(5.0));
    EXPECT_EQ(svd.u(0, 0), Complex(-0.6, 0.8));
    EXPECT_EQ(svd.v(0, 0), Complex(1.0));
}

TEST(ComplexSvd, RefusesMoreColumnsThanRows)
{
    EXPECT_EQ(Svd(TestMatrix(2, 3)).message, "Sub SLATEC_CSVDC: SVD here only implemented for N>=P !");
    EXPECT_EQ(Svd(TestMatrix(0, 0)).message, "") << "nothing to do is not an error";
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
        const Svd svd(a);
        if (svd.message.empty())
            continue;
        ++limited;
        EXPECT_EQ(svd.message, kNotCorrect);
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
    EXPECT_EQ(Svd(falling).message, kNotCorrect);

    const Real entries[3][3] = {{1, 0, -1}, {0, 1, -1}, {-1, -1, -1}};
    a.fill([&](Index i, Index j) { return entries[j][i]; });
    EXPECT_EQ(Svd(a).message, kNotCorrect);

    TestMatrix splitting(2, 2); // for ever, were its turns not counted
    splitting.fill([](Index i, Index j) { return i + j == 2 ? std::numeric_limits<Real>::quiet_NaN() : 0.0; });
    EXPECT_EQ(Svd(splitting).message, kNotCorrect);
}

} // namespace
} // namespace tessel::testing
