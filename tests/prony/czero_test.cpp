#include "prony/czero.h"

#include "common/fortran.h"
#include "prony/circle_transform.h"
#include "tests/support/message.h"
#include "tests/support/random.h"

#include <algorithm>
#include <limits>
#include <numbers>
#include <numeric>
#include <string>
#include <vector>

namespace tessel::testing {
namespace {

using Wide = std::complex<long double>;
using Values = std::vector<Complex>;

constexpr char kTooManyIterations[] = "Sub NAPACK_CZERO: too many iterations necessary !";
constexpr Real kNaN = std::numeric_limits<Real>::quiet_NaN();
constexpr Real kInfinity = std::numeric_limits<Real>::infinity();
constexpr Real kEpsilon = std::numeric_limits<Real>::epsilon();

struct Solution
{
    explicit Solution(const Values& coefficients) : zeros(coefficients.size())
    {
        const auto n = static_cast<Integer>(coefficients.size());
        Complex w;
        const std::string message = status_of([&](Integer& flag, char* text, CharLen length) {
            NAPACK_CZERO(zeros.data(), coefficients.data(), n, &w, flag, text, length);
        });
        found = message.empty();
        EXPECT_EQ(message, found ? "" : kTooManyIterations);
    }

    bool found;
    Values zeros;
};

/// (z - zeros(1)) (z - zeros(2)) ... times a(1) + a(2) z + ..., constant term first.
std::vector<Wide> expand(const std::vector<Wide>& zeros, std::vector<Wide> a = {1.0L})
{
    for (const Wide& zero : zeros) {
        a.insert(a.begin(), 0.0L);
        for (std::size_t k = 0; k + 1 < a.size(); ++k)
            a[k] -= zero * a[k + 1];
    }
    return a;
}

/// Coefficients of the polynomial with these zeros; in extended precision, rounded once.
Values from_zeros(const Values& zeros)
{
    const std::vector<Wide> a = expand({zeros.begin(), zeros.end()});
    return {a.begin(), a.end() - 1};
}

/// Largest of |p(z)| over the rounding bound n eps sum |a(k)| |z|^(k-1).
Real worst_residual(const Values& coefficients, const Values& zeros)
{
    long double worst = 0.0L;
    for (const Wide x : zeros) {
        Wide p = 1.0L;
        long double bound = 1.0L;
        for (auto a = coefficients.rbegin(); a != coefficients.rend(); ++a) {
            p = p * x + Wide(*a);
            bound = bound * std::abs(x) + std::abs(Wide(*a));
        }
        worst = std::max(worst, std::abs(p) / bound);
    }
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

Values roots_of(const Complex& c, int n) // of z^n = c
{
    Values zeros;
    for (int k = 0; k < n; ++k)
        zeros.push_back(std::polar(std::pow(std::abs(c), 1.0 / n), (std::arg(c) + 2.0 * std::numbers::pi * k) / n));
    return zeros;
}

TEST(PolynomialZeros, AreFoundAgain)
{
    Random random(11);
    Values wilkinson(15);
    std::iota(wilkinson.begin(), wilkinson.end(), 1.0);
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
        {"double", {1.0, 1.0, {0.0, 2.0}, -3.0}, 1e-6},
        {"triple", {{1.0, 1.0}, {1.0, 1.0}, {1.0, 1.0}, -2.0, 0.5}, 3e-4},
        {"cluster", {1.0, 1.0001, {1.0, 0.0001}, -2.0, {0.0, 3.0}}, 1e-6},
        {"Wilkinson", wilkinson, 1e-3},
    };
    for (const auto& [name, zeros, tolerance] : cases) {
        const Values coefficients = from_zeros(zeros);
        const Solution solution(coefficients);
        ASSERT_TRUE(solution.found) << name;
        EXPECT_LE(distance(solution.zeros, zeros), tolerance) << name;
        EXPECT_LE(worst_residual(coefficients, solution.zeros), 100.0) << name;
    }
}

// H(0) vanishes throughout the no-shift stage, and the samples of the circle tie.
TEST(PolynomialZeros, RootsOfUnityAndOfAnyNumber)
{
    for (int n = 3; n <= 130; n += n < 64 ? 1 : 11)
        for (const Complex c :
             {Complex(1.0), Complex(-1.0), Complex(0.0, 1.0), Complex(3e-30, -2e-30), Complex(-5e40)}) {
            Values coefficients(static_cast<std::size_t>(n), 0.0);
            coefficients[0] = -c;
            const Solution solution(coefficients);
            ASSERT_TRUE(solution.found) << n << " " << c;
            EXPECT_LE(distance(solution.zeros, roots_of(c, n)), n <= 64 ? 1e-10 : 1e-8) << n << " " << c;
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
            const Solution solution(coefficients);
            ASSERT_TRUE(solution.found) << "degree " << degree << ", no. " << i;
            EXPECT_LE(worst_residual(coefficients, solution.zeros), bound) << "degree " << degree << ", no. " << i;
        }
}

/// Eigenvalues of the companion matrix.
Values companion_eigenvalues(const Values& coefficients)
{
    const auto n = static_cast<Integer>(coefficients.size());
    const Integer one = 1, work_length = 4 * n;
    Values matrix(coefficients.size() * coefficients.size()), values(coefficients.size());
    Values work(static_cast<std::size_t>(work_length));
    std::vector<Real> real_work(2 * coefficients.size());
    for (std::size_t i = 0; i < coefficients.size(); ++i) {
        if (i > 0)
            matrix[i + (i - 1) * coefficients.size()] = 1.0;
        matrix[i + (coefficients.size() - 1) * coefficients.size()] = -coefficients[i];
    }
    Integer info = 77;
    fortran::zgeev_("N", "N", &n, matrix.data(), &n, values.data(), nullptr, &one, nullptr, &one, work.data(),
                    &work_length, real_work.data(), &info, 1, 1);
    EXPECT_EQ(info, 0);
    return values;
}

TEST(PolynomialZeros, AgreeWithEigenvaluesOfTheCompanionMatrix)
{
    Random random(14);
    for (const std::size_t degree : {3u, 6u, 15u, 30u, 60u})
        for (int i = 0; i < 10; ++i) {
            const Values coefficients = random.complexes(degree);
            EXPECT_LE(distance(Solution(coefficients).zeros, companion_eigenvalues(coefficients)), 1e-9) << degree;
        }
}

TEST(PolynomialZeros, DegreesBelowThreeAreClosed)
{
    EXPECT_EQ(Solution({Complex(2.5, -1.0)}).zeros, Values{Complex(-2.5, 1.0)});
    EXPECT_EQ(Solution({6.0, -5.0}).zeros, (Values{2.0, 3.0})) << "the larger is the second";
    EXPECT_EQ(Solution({0.0, Complex(3.0, 4.0)}).zeros, (Values{0.0, Complex(-3.0, -4.0)})) << "no zero is split off";
    EXPECT_EQ(Solution({4.0, 0.0}).zeros, (Values{Complex(0.0, -2.0), Complex(0.0, 2.0)})) << "ties take the plus";
    EXPECT_EQ(Solution({0.0, 0.0}).zeros, (Values{0.0, 0.0}));
    const Solution extreme({-1e-300, 1e300});
    EXPECT_EQ(extreme.zeros[1], -1e300);
    EXPECT_EQ(extreme.zeros[0], 0.0);
    EXPECT_TRUE(Solution({kNaN, kInfinity}).found) << "the closed form has no failure";
}

TEST(PolynomialZeros, FillTheArrayFromTheHighEnd)
{
    const Solution origin({0.0, Complex(-0.0, 0.0), 0.0, 6.0, -5.0});
    EXPECT_EQ(origin.zeros, (Values{2.0, 3.0, 0.0, 0.0, 0.0})) << "zeros at the origin go to the end, exact";
    EXPECT_EQ(Solution({0.0, 0.0, 0.0}).zeros, (Values{0.0, 0.0, 0.0}));

    // Of a conjugate pair the samples on the circle tie exactly; the later one lies in the lower half plane.
    const Values zeros = Solution(from_zeros({std::polar(1.0, 1.0), std::polar(1.0, -1.0), 5.0})).zeros;
    EXPECT_LE(std::abs(zeros[2] - std::polar(1.0, -1.0)), 1e-14) << "the first zero found is the last element";
    EXPECT_LE(std::abs(zeros[0] - std::polar(1.0, 1.0)), 1e-14);
    EXPECT_LE(std::abs(zeros[1] - 5.0), 1e-14);
}

TEST(PolynomialZeros, FailureKeepsWhatWasFoundAndWhatIsLeft)
{
    // The no-shift steps overflow; before them two zeros at the origin are split off.
    const Solution overflow({0.0, 0.0, -1.2e97, -8.3e-47, 0.0, 0.0});
    EXPECT_FALSE(overflow.found);
    EXPECT_EQ(overflow.zeros, (Values{-1.2e97, -8.3e-47, 0.0, 0.0, 0.0, 0.0}));

    // Z(1..left) as coefficients times the factors of Z(left+1..n) is the polynomial, term by term.
    const auto is_factored = [](const Values& z, std::ptrdiff_t left, const Values& coefficients) {
        std::vector<Wide> quotient(z.begin(), z.begin() + left), zeros(z.begin() + left, z.end());
        quotient.emplace_back(1.0L);
        const std::vector<Wide> product = expand(zeros, quotient);
        for (Wide& value : quotient)
            value = std::abs(value);
        for (Wide& zero : zeros)
            zero = -std::abs(zero);
        const std::vector<Wide> size = expand(zeros, quotient);
        for (std::size_t k = 0; k < coefficients.size(); ++k)
            if (!(std::abs(product[k] - Wide(coefficients[k])) <= 1e-8L * size[k].real()))
                return false;
        return true;
    };
    Random random(15);
    int partly_done = 0;
    for (int i = 0; i < 1500; ++i) {
        Values coefficients = random.complexes(6);
        for (Complex& a : coefficients)
            a *= std::pow(10.0, random.uniform(-150.0, 150.0));
        const auto [found, zeros] = Solution(coefficients);
        if (found || zeros == coefficients)
            continue;
        ++partly_done;
        EXPECT_TRUE(is_factored(zeros, 3, coefficients) || is_factored(zeros, 4, coefficients) ||
                    is_factored(zeros, 5, coefficients))
            << "no. " << i;
    }
    EXPECT_GT(partly_done, 10);
}

TEST(PolynomialZeros, CoefficientsThatAreNotFiniteAreReported)
{
    for (const std::size_t degree : {3u, 9u})
        for (std::size_t k = 0; k < degree; ++k)
            for (const Complex& value : {Complex(kNaN, 1.0), Complex(1.0, -kInfinity), Complex(1.7e308, 1.7e308)}) {
                Values coefficients = Random(16).complexes(degree);
                coefficients[k] = value;
                EXPECT_FALSE(Solution(coefficients).found) << "degree " << degree << ", coefficient " << k + 1;
            }
}

Wide value_at(const Values& a, const Wide& z, Wide leading)
{
    for (auto value = a.rbegin(); value != a.rend(); ++value)
        leading = leading * z + Wide(*value);
    return leading;
}

/// Checks an H-step that divides by `h`, having been given `given`.
void expect_h_step(const Values& p, const Values& given, const Values& h, const Complex& s)
{
    const auto n = static_cast<Integer>(p.size());
    const Real r = std::max(1.0, std::abs(s));
    Values next = given;
    Complex value;
    HStep(p.data(), next.data(), n, value, s, r);

    const Wide ps = value_at(p, Wide(s), 1.0L), t = ps / value_at(h, Wide(s), 0.0L);
    const Wide scale = r > 1.0 ? std::pow(Wide(s), n) : Wide(1.0L);
    EXPECT_LE(std::abs(Wide(value) - ps / scale), 1e-14L * n) << s;
    const std::vector<Wide> product = expand({Wide(s)}, {next.begin(), next.end()});
    for (std::size_t k = 0; k < p.size(); ++k) {
        const long double size = std::abs(Wide(p[k])) + std::abs(t * Wide(h[k])) + std::abs(product[k]) + std::abs(s);
        EXPECT_LE(std::abs(product[k] - (Wide(p[k]) - t * Wide(h[k]))), 1e-13L * size)
            << s << ", coefficient " << k + 1;
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
    Complex value;
    Values p(20, 1.0), h(20, 1.0);
    HStep(p.data(), h.data(), 20, value, Complex(1e200, 1e200), std::sqrt(2.0) * 1e200);
    EXPECT_EQ(value.real(), 1.0) << "p(s) / s^n stays finite";
    EXPECT_EQ(h.back(), 1.0);
    EXPECT_TRUE(std::all_of(h.begin(), h.end(), [](const Complex& a) { return std::isfinite(a.real()); }));
}

TEST(HStep, ShiftsUpAnHThatVanishesAtTheShift)
{
    const Values p{5.0, Complex(-1.0, 2.0), 3.0};
    expect_h_step(p, {0.0, -2.0, 1.0}, {0.0, 0.0, -2.0}, 2.0);
    expect_h_step(p, {0.0, -0.5, 1.0}, {0.0, 0.0, -0.5}, 0.5);

    Values h{0.0, 0.0, 1.0}; // at a shift of zero no turn helps
    Complex value;
    HStep(p.data(), h.data(), 3, value, Complex(0.0), 1.0);
    EXPECT_EQ(value, 5.0);
    EXPECT_TRUE(std::isnan(h[0].real()));
}

TEST(CircleTransform, IsTheDiscreteFourierTransform)
{
    Random random(20);
    Values table(128);
    CircleTransform transform(table.data());
    for (const Index m : {16, 64, 32, 256}) { // the table grows, and serves shorter lengths too
        const Values a = random.complexes(static_cast<std::size_t>(m));
        Values values = a;
        transform(values.data(), m);
        for (Index k = 0; k < m; ++k) {
            const auto turns = static_cast<long double>(k) / static_cast<long double>(m);
            const Wide expected = value_at(a, std::polar(1.0L, 2.0L * std::numbers::pi_v<long double> * turns), 0.0L);
            const auto place = static_cast<std::size_t>(CircleTransform::bit_reversed(k, m));
            EXPECT_LE(std::abs(expected - Wide(values[place])), 1e-15 * static_cast<Real>(m)) << k << " of " << m;
        }
    }
}

} // namespace
} // namespace tessel::testing
