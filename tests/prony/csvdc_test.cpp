#include "prony/csvdc.h"

#include "tests/support/matrices.h"
#include "tests/support/message.h"

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

    /// The larger of |A - U B V^H| / |A|, with S and E on the diagonals of B, and the departure of U and V from
    /// unitary matrices; in units of n eps. Infinite if a value reported as converged is not a singular value in order.
    Real error() const
    {
        Real worst = 0.0;
        for (Index i = 0; i < n; ++i)
            for (Index j = 0; j < p; ++j) {
                Complex sum = a(i, j);
                for (Index k = 0; k < p; ++k)
                    sum -= (u(i, k) * s(k, 0) + (k > 0 ? u(i, k - 1) * e(k - 1, 0) : 0.0)) * std::conj(v(j, k));
                worst = std::max(worst, std::abs(sum));
            }
        for (Index k = info; k < p; ++k)
            if (s(k, 0).real() < 0.0 || s(k, 0).imag() != 0.0 || e(k, 0) != 0.0 ||
                (k > info && s(k, 0).real() > s(k - 1, 0).real()))
                return std::numeric_limits<Real>::infinity();
        if (const Real size = max_modulus(a); size > 0.0)
            worst /= size;
        const auto departure = [](const TestMatrix& q) {
            return departure_from_orthonormal(&q(0, 0), q.rows(), 1, q.columns(), q.ld());
        };
        return worse(worst, worse(departure(u), departure(v))) / (n * kEps);
    }

    TestMatrix a;
    Integer n, p, info = 77;
    TestMatrix u, v, s, e;
    std::string message;
};

TEST(ComplexSvd, AgreesWithLapackAndReproducesTheMatrix)
{
    Random random(7);
    int limited = 0;
    for (const MatrixKind& kind : kMatrixKinds)
        for (const auto& [n, p] : {std::pair{1, 1}, {9, 1}, {2, 2}, {25, 18}, {40, 40}, {90, 30}, {31, 30}}) {
            SCOPED_TRACE(std::string(kind.name) + ' ' + std::to_string(n) + 'x' + std::to_string(p));
            const Svd svd(kind.make(random, n, p, 2));
            limited += svd.info != 0 ? 1 : 0;
            EXPECT_LT(svd.error(), 50.0);
            const auto reference = lapack_singular_values(svd.a);
            for (Index k = 0; k < p && svd.info == 0; ++k)
                EXPECT_NEAR(svd.s(k, 0).real(), reference[static_cast<std::size_t>(k)], 50.0 * kEps * n * reference[0]);
        }
    EXPECT_LE(limited, 1); // repeated values can meet the iteration limit: it depends on the last bits of level 1
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
/// decrease over tens of decades. That is part of the contract, and the report must be right: S(INFO+1..P) are singular
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
        limited += svd.info > 0;
        EXPECT_EQ(svd.message, svd.info > 0 ? kNotCorrect : "");
        ASSERT_LT(svd.error(), 50.0) << "matrix " << code;
    }
    EXPECT_GT(limited, 100);
    EXPECT_LT(limited, 700);

    Random random(2);
    TestMatrix falling(85, 80), splitting(2, 2);
    falling.fill([&](Index i, Index j) { return std::pow(10.0, -0.3 * static_cast<Real>(i + j)) * random.complex(); });
    EXPECT_EQ(Svd(falling).message, kNotCorrect);
    splitting.fill([](Index i, Index j) { return i + j == 2 ? std::numeric_limits<Real>::quiet_NaN() : 0.0; });
    EXPECT_EQ(Svd(splitting).message, kNotCorrect) << "endless if its turns were not counted";
}

} // namespace
} // namespace tessel::testing
