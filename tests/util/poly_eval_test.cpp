#include "util/poly_eval.h"

#include "tests/support/polynomials.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <vector>

namespace tessel::testing {
namespace {

using Values = std::vector<Complex>;

/// p with its derivatives as companions and the sizes of its coefficients as weights.
struct Polynomial
{
    explicit Polynomial(Values coefficients) : a(std::move(coefficients)), h(a.size()), g(a.size()), w(a.size())
    {
        const std::size_t n = a.size();
        const auto coefficient = [&](std::size_t k) { return k < n ? a[k] : Complex(1.0); };
        for (std::size_t k = 0; k < n; ++k) {
            h[k] = static_cast<Real>(k + 1) * coefficient(k + 1);
            if (k + 2 <= n)
                g[k] = static_cast<Real>((k + 1) * (k + 2)) * coefficient(k + 2);
            w[k] = Complex(std::abs(a[k]), 99.0); // the imaginary part is not read
        }
    }

    /// One call; returns the new point.
    Complex step(Complex z)
    {
        CPOLY_EVAL_STEP(a.data(), h.data(), g.data(), w.data(), static_cast<Integer>(a.size()), z, pz, size, bound);
        return z;
    }

    Values a, h, g, w;
    Complex pz;
    Real size = 0.0, bound = 0.0;
};

TEST(EvaluationStep, FollowsTheFormula)
{
    Random random(41);
    for (const std::size_t n : {1u, 2u, 5u, 17u})
        for (const Complex z :
             {Complex(0.2, -0.5), Complex(0.6, 0.8), Complex(-1.0), Complex(1.5, -0.5), Complex(-20.0, 7.0)})
            for (const bool has_g : {true, false}) {
                Polynomial f(random.complexes(n));
                if (!has_g)
                    f.g.assign(n, 0.0);
                const Complex next = f.step(z);

                const Wide p = value_at(f.a, z), h = value_at(f.h, z, 0.0L), g = value_at(f.g, z, 0.0L);
                const Wide scale = std::abs(z) > 1.0 ? std::pow(Wide(z), static_cast<int>(n)) : Wide(1.0L);
                const long double bound = size_at(f.a, z);
                EXPECT_LE(std::abs(Wide(f.pz) * scale - p), 1e-15L * static_cast<long double>(n + 1) * bound);
                EXPECT_EQ(f.size, std::abs(f.pz.real()) + std::abs(f.pz.imag()));
                EXPECT_NEAR(f.bound, static_cast<Real>(bound / std::abs(scale)), 1e-14 * f.bound);

                const Wide a = p / h;
                const Wide move = n > 1 && has_g ? a * (h / g) / (h / g - a) : a; // degree 1 has no second derivative
                EXPECT_LE(std::abs(Wide(next) - (Wide(z) - move)), 1e-12L * (std::abs(move) + std::abs(Wide(z))))
                    << n << z;
            }
}

TEST(EvaluationStep, LeavesThePointWhereThereIsNoStep)
{
    Polynomial zero({-4.0, 0.0}); // z^2 - 4
    EXPECT_EQ(zero.step(2.0), 2.0) << "p(z) = 0";
    EXPECT_EQ(zero.pz, 0.0);
    EXPECT_EQ(zero.step(0.0), 0.0) << "h(z) = 0";

    Polynomial equal({2.0}); // p = z + 2, h = g p: p/h = h/g at z = 0
    equal.h = {2.0};
    equal.g = {2.0};
    EXPECT_EQ(equal.step(0.0), 0.0) << "a = b";
}

TEST(EvaluationStep, PointsFarOutStayFinite)
{
    Polynomial polynomial({1.0, 2.0, 3.0, 4.0});
    const Complex z(3e199, -4e199);
    const Complex next = polynomial.step(z);
    EXPECT_EQ(polynomial.pz.real(), 1.0) << "p(z) / z^4";
    EXPECT_EQ(polynomial.bound, 1.0);
    EXPECT_LE(std::abs(next - 0.75 * z), 1e-14 * std::abs(z)) << "Newton's step for z^4: g / z^4 underflows";
}

} // namespace
} // namespace tessel::testing
