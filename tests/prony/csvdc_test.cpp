#include "prony/csvdc.h"

#include "tests/support/matrices.h"
#include "tests/support/message.h"

#include <cmath>
#include <limits>
#include <string>

namespace tessel::testing {
namespace {

constexpr char kNotCorrect[] = "Sub SLATEC_CSVDC: not all singular values are correct !";

/// A decomposition with all N left vectors.
struct Svd
{
    explicit Svd(const TestMatrix& matrix)
        : a(matrix),
          n(static_cast<Integer>(a.rows())),
          p(static_cast<Integer>(a.columns())),
          u(n, n),
          v(p, p),
          s(p, 1),
          e(p, 1)
    {
        TestMatrix x(a), work(n, 1);
        message = status_of([&](Integer& flag, char* text, CharLen length) {
            SLATEC_CSVDC(11, n, p, x.data(), x.ld(), u.data(), u.ld(), s.data(), v.data(), v.ld(), work.data(),
                         e.data(), info, flag, text, length);
        });
    }

    /// max |A - U B V^H| / (|A| n eps), with S and E on the diagonals of B.
    Real residual() const
    {
        Real worst = 0.0;
        for (Index i = 0; i < n; ++i)
            for (Index j = 0; j < p; ++j) {
                Complex sum = a(i, j);
                for (Index k = 0; k < p; ++k)
                    sum -= (u(i, k) * s(k, 0) + (k > 0 ? u(i, k - 1) * e(k - 1, 0) : 0.0)) * std::conj(v(j, k));
                worst = std::max(worst, std::abs(sum));
            }
        const Real size = max_modulus(a);
        return worst / ((size == 0.0 ? 1.0 : size) * n * kEps);
    }

    TestMatrix a;
    Integer n, p, info = 77;
    TestMatrix u, v, s, e;
    std::string message;
};

TEST(ComplexSvd, AgreesWithLapackAndReproducesTheMatrix)
{
    Random random(7);
    for (const MatrixKind& kind : kMatrixKinds)
        for (const auto& [n, p] : {std::pair{1, 1}, {9, 1}, {2, 2}, {25, 18}, {40, 40}, {90, 30}, {31, 30}}) {
            SCOPED_TRACE(std::string(kind.name) + ' ' + std::to_string(n) + 'x' + std::to_string(p));
            TestMatrix a(n, p, 2);
            kind.make(a, random);
            const Svd svd(a);
            ASSERT_EQ(svd.message, "");
            EXPECT_LT(svd.residual(), 50.0);
            const Real bound = 50.0 * kEps * n;
            EXPECT_LT(departure_from_orthonormal(svd.u, n), bound);
            EXPECT_LT(departure_from_orthonormal(svd.v, p), bound);

            const auto reference = lapack_singular_values(a);
            for (Index k = 0; k < p; ++k) {
                const Complex value = svd.s(k, 0);
                EXPECT_TRUE(value.real() >= 0.0 && value.imag() == 0.0 && svd.e(k, 0) == 0.0) << "S" << k + 1;
                EXPECT_LE(value.real(), svd.s(std::max<Index>(k - 1, 0), 0).real()) << "S" << k + 1;
                EXPECT_LE(std::abs(value - reference[static_cast<std::size_t>(k)]), bound * reference[0]);
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
        EXPECT_LT(svd.residual(), 50.0) << "matrix " << code;
        const auto reference = lapack_singular_values(a);
        for (Index k = svd.info; k < 3; ++k)
            EXPECT_TRUE(std::any_of(reference.begin(), reference.end(),
                                    [&](Real value) { return std::fabs(svd.s(k, 0).real() - value) < 1e-14; }))
                << "matrix " << code;
    }
    EXPECT_GT(limited, 100);
    EXPECT_LT(limited, 700);

    Random random(2);
    TestMatrix falling(85, 80);
    falling.fill([&](Index i, Index j) { return std::pow(10.0, -0.3 * static_cast<Real>(i + j)) * random.complex(); });
    EXPECT_EQ(Svd(falling).message, kNotCorrect);

    TestMatrix splitting(2, 2); // for ever, were its turns not counted
    splitting.fill([](Index i, Index j) { return i + j == 2 ? std::numeric_limits<Real>::quiet_NaN() : 0.0; });
    EXPECT_EQ(Svd(splitting).message, kNotCorrect);
}

} // namespace
} // namespace tessel::testing
