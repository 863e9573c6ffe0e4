#include "prony/czero.h"

#include "prony/fourier_transform.h"
#include "tests/support/message.h"
#include "tests/support/polynomials.h"
#include "tests/support/random.h"

#include <algorithm>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

namespace tessel::testing {
namespace {

using Values = std::vector<Complex>;

constexpr Real kInfinity = std::numeric_limits<Real>::infinity();
constexpr Real kEpsilon = std::numeric_limits<Real>::epsilon();

/// The zeros, and in `found` whether they were.
Values zeros_of(const Values& coefficients, bool& found)
{
    Values zeros(coefficients.size());
    Complex w;
    const std::string message = status_of([&](Integer& flag, char* text, CharLen length) {
        NAPACK_CZERO(zeros.data(), coefficients.data(), static_cast<Integer>(zeros.size()), &w, flag, text, length);
    });
    found = message.empty();
    return zeros;
}
Values zeros_of(const Values& coefficients)
{
    bool found = false;
    Values zeros = zeros_of(coefficients, found);
    EXPECT_TRUE(found);
    return zeros;
}

/// Largest of |p(z)| over the rounding bound n eps sum |a(k)| |z|^(k-1).
Real worst_residual(const Values& coefficients, const Values& zeros)
{
    long double worst = 0.0L;
    for (const Wide z : zeros)
        worst = std::max(worst, std::abs(value_at(coefficients, z)) / size_at(coefficients, z));
    return static_cast<Real>(worst) / (kEpsilon * static_cast<Real>(coefficients.size()));
}

/// Largest distance when every expected zero takes the nearest of those that are left, relative to its modulus.
Real distance(Values found, const Values& expected)
{
    Real worst = 0.0;
    for (const Complex& zero : expected) {
        const auto nearest = std::min_element(found.begin(), found.end(), [&](const Complex& a, const Complex& b) {
            return std::abs(a - zero) < std::abs(b - zero);
        });
        worst = std::max(worst, std::abs(*nearest - zero) / (zero == 0.0 ? 1.0 : std::abs(zero)));
        found.erase(nearest);
    }
    return worst;
}

TEST(PolynomialZeros, AreFoundAgain)
{
    Random random(11);
    const struct
    {
        const char* name;
        Values zeros;
        Real tolerance; // for the distance: what the conditioning of the zeros allows
    } cases[] = {
        {"three", random.complexes(3), 1e-9},
        {"twelve", random.complexes(12), 1e-9},
        {"real and conjugate", {2.0, -3.0, 0.5, {1.0, 2.0}, {1.0, -2.0}, {-0.1, 0.3}, {-0.1, -0.3}}, 1e-11},
        {"at the origin", {0.0, 0.0, 0.0, 1.0, {0.0, 2.0}, {-1.0, 1.0}}, 1e-13},
        {"tiny to huge", {1e-12, {0.0, -1e-7}, {2e-3, 1e-3}, 1.0, {3e5, -4e5}, 1e11}, 1e-12},
        {"on one circle and far out", {1e150, {0.0, 1e-150}, 1.0, {0.0, 1.0}}, 1e-13},
        {"triple", {{1.0, 1.0}, {1.0, 1.0}, {1.0, 1.0}, -2.0, 0.5}, 3e-4},
        {"cluster", {1.0, 1.0001, {1.0, 0.0001}, -2.0, {0.0, 3.0}}, 1e-6},
        {"Wilkinson", {1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0, 8.0, 9.0, 10.0, 11.0, 12.0, 13.0, 14.0, 15.0}, 1e-3},
    };
    for (const auto& [name, zeros, tolerance] : cases) {
        const Values coefficients = from_zeros(zeros);
        const Values found = zeros_of(coefficients);
        EXPECT_LE(distance(found, zeros), tolerance) << name;
        EXPECT_LE(worst_residual(coefficients, found), 100.0) << name;
    }
}

// H(0) vanishes throughout the no-shift stage, and the samples of the circle tie.
TEST(PolynomialZeros, RootsOfUnityAndOfAnyNumber)
{
    for (int n = 3; n <= 130; n += n < 64 ? 1 : 11)
        for (const Complex c : {Complex(1.0), Complex(-1.0), Complex(3e-30, -2e-30), Complex(-5e40)}) {
            Values coefficients(static_cast<std::size_t>(n), 0.0), roots;
            coefficients[0] = -c;
            for (int k = 0; k < n; ++k)
                roots.push_back(
                    std::polar(std::pow(std::abs(c), 1.0 / n), (std::arg(c) + 2.0 * std::numbers::pi * k) / n));
            EXPECT_LE(distance(zeros_of(coefficients), roots), n <= 64 ? 1e-10 : 1e-8) << n << " " << c;
        }
}

TEST(PolynomialZeros, LeaveResidualsOfRoundingAlone)
{
    const struct
    {
        std::size_t degree;
        int count;
        Real decades; // of the coefficients, up and down
        Real bound;   // in units of the rounding bound: division adds to it as the degree grows
    } groups[] = {{3, 500, 0, 10},   {5, 500, 0, 20},   {10, 300, 0, 100}, {20, 100, 0, 1e3},       {50, 20, 0, 1e4},
                  {100, 8, 0, 1e5},  {200, 3, 0, 1e5},  {3, 150, 10, 100}, {6, 150, 10, 100},       {12, 150, 10, 100},
                  {3, 150, 40, 100}, {4, 150, 40, 100}, {9, 150, 40, 100}, {40, 150, 40, kInfinity}};
    Random random(12);
    for (const auto& [degree, count, decades, bound] : groups)
        for (int i = 0; i < count; ++i) {
            Values coefficients = random.complexes(degree);
            for (Complex& a : coefficients)
                a = std::pow(10.0, random.uniform(-decades, decades)) * (i % 2 == 1 ? Complex(a.real()) : a);
            EXPECT_LE(worst_residual(coefficients, zeros_of(coefficients)), bound) << degree << ", no. " << i;
        }
}

TEST(PolynomialZeros, FillTheArrayFromTheHighEnd)
{
    EXPECT_EQ(zeros_of({Complex(2.5, -1.0)}), Values{Complex(-2.5, 1.0)});
    EXPECT_EQ(zeros_of({6.0, -5.0}), (Values{2.0, 3.0})) << "the larger is the second";
    EXPECT_EQ(zeros_of({0.0, Complex(3.0, 4.0)}), (Values{0.0, Complex(-3.0, -4.0)})) << "no zero is split off";
    EXPECT_EQ(zeros_of({0.0, Complex(-0.0, 0.0), 0.0, 6.0, -5.0}), (Values{2.0, 3.0, 0.0, 0.0, 0.0}))
        << "zeros at the origin go to the end, exact";
    EXPECT_EQ(zeros_of({0.0, 0.0, 0.0}), (Values{0.0, 0.0, 0.0}));

    // Of a conjugate pair the samples on the circle tie exactly; the later one lies in the lower half plane.
    const Values zeros = zeros_of(from_zeros({std::polar(1.0, 1.0), std::polar(1.0, -1.0), 5.0}));
    EXPECT_LE(std::abs(zeros[2] - std::polar(1.0, -1.0)), 1e-14) << "the first zero found is the last element";
    EXPECT_LE(std::abs(zeros[1] - 5.0), 1e-14);

    // The no-shift steps overflow; before them two zeros at the origin are split off. What is left stays in front.
    bool found = true;
    EXPECT_EQ(zeros_of({0.0, 0.0, -1.2e97, -8.3e-47, 0.0, 0.0}, found),
              (Values{-1.2e97, -8.3e-47, 0.0, 0.0, 0.0, 0.0}));
    EXPECT_FALSE(found);
}

/// Checks an H-step that divides by `h`, having been given `given`.
void expect_h_step(const Values& p, const Values& given, const Values& h, const Complex& s)
{
    const auto n = static_cast<Integer>(p.size());
    Values next = given;
    Complex value;
    HStep(p.data(), next.data(), n, value, s, std::max(1.0, std::abs(s)));

    const Wide ps = value_at(p, s), t = ps / value_at(h, s, 0.0L);
    const Wide scale = std::abs(s) > 1.0 ? std::pow(Wide(s), n) : Wide(1.0L);
    EXPECT_LE(std::abs(Wide(value) - ps / scale), 1e-14L * n) << s;
    const std::vector<Wide> product = expand({s}, {next.begin(), next.end()}); // (z - s) H is p - t h
    for (std::size_t k = 0; k < p.size(); ++k) {
        const long double size = std::abs(Wide(p[k])) + std::abs(t * Wide(h[k])) + std::abs(product[k]) + std::abs(s);
        EXPECT_LE(std::abs(product[k] - (Wide(p[k]) - t * Wide(h[k]))), 1e-13L * size) << s << ", no. " << k + 1;
    }
    EXPECT_EQ(next.back(), 1.0) << "monic";
}

TEST(HStep, DividesOutTheShift)
{
    Random random(19);
    for (const std::size_t n : {3u, 6u, 20u})
        for (const Complex s :
             {Complex(0.3, -0.4), Complex(0.0, 1.0), Complex(0.8, 0.9), Complex(-3.0, 2.0), Complex(0.0)}) {
            const Values p = random.complexes(n);
            Values h = random.complexes(n);
            h.back() = 1.0;
            expect_h_step(p, h, h, s);
        }
    const Values p{5.0, Complex(-1.0, 2.0), 3.0}; // an H that vanishes at the shift is shifted up
    expect_h_step(p, {0.0, -2.0, 1.0}, {0.0, 0.0, -2.0}, 2.0);
    expect_h_step(p, {0.0, -0.5, 1.0}, {0.0, 0.0, -0.5}, 0.5);
    expect_h_step(p, {1.0, -1.0, 0.0}, {0.0, 0.0, 1.0}, 1.0); // twice

    Values h{0.0, 0.0, 1.0}, far(20, 1.0);
    Complex value;
    HStep(p.data(), h.data(), 3, value, Complex(0.0), 1.0);
    EXPECT_TRUE(std::isnan(h[0].real())) << "at a shift of zero no turn helps";
    HStep(Values(20, 1.0).data(), far.data(), 20, value, Complex(1e200, 1e200), std::sqrt(2.0) * 1e200);
    EXPECT_EQ(value.real(), 1.0) << "p(s) / s^n stays finite";
    EXPECT_TRUE(std::all_of(far.begin(), far.end(), [](const Complex& a) { return std::isfinite(a.real()); }));
}

TEST(FourierTransform, IsTheDiscreteFourierTransform)
{
    Random random(20);
    Values table(128);
    FourierTransform transform(table.data());
    for (const Index m : {16, 64, 32, 256}) { // the table grows, and serves shorter lengths too
        const Values a = random.complexes(static_cast<std::size_t>(m));
        Values values = a;
        transform(values.data(), m);
        for (Index k = 0; k < m; ++k) {
            const auto turns = static_cast<long double>(k) / static_cast<long double>(m);
            const Wide expected = value_at(a, std::polar(1.0L, 2.0L * std::numbers::pi_v<long double> * turns), 0.0L);
            const auto place = static_cast<std::size_t>(FourierTransform::bit_reversed(k, m));
            EXPECT_LE(std::abs(expected - Wide(values[place])), 1e-15 * static_cast<Real>(m)) << k << " of " << m;
        }
    }
}

} // namespace
} // namespace tessel::testing
