#include "prony/czero.h"

#include "common/fortran.h"
#include "prony/circle_transform.h"
#include "tests/support/message.h"
#include "tests/support/random.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <limits>
#include <numbers>
#include <numeric>
#include <vector>

#include <sys/resource.h>

namespace tessel::testing {
namespace {

using Wide = std::complex<long double>;
using Values = std::vector<Complex>;

constexpr char kTooManyIterations[] = "Sub NAPACK_CZERO: too many iterations necessary !";
constexpr char kNoStorage[] = "Sub NAPACK_CZERO: work storage not available !";
constexpr Complex kSentinel(-7.25, 3.5);
constexpr Real kNaN = std::numeric_limits<Real>::quiet_NaN();
constexpr Real kInfinity = std::numeric_limits<Real>::infinity();
constexpr Real kEpsilon = std::numeric_limits<Real>::epsilon();

/// One call, with canaries around Z and behind W(1).
struct Solution
{
    explicit Solution(const Values& coefficients)
    {
        const auto n = static_cast<Integer>(coefficients.size());
        Values room(coefficients.size() + 2, kSentinel), work(4, kSentinel);
        Message message;
        NAPACK_CZERO(room.data() + 1, coefficients.data(), n, work.data(), flag, message.data(), message.length());
        EXPECT_EQ(room.front(), kSentinel);
        EXPECT_EQ(room.back(), kSentinel);
        EXPECT_EQ(work, (Values{Complex(n, 0.0), kSentinel, kSentinel, kSentinel}));
        EXPECT_EQ(message.text(), padded(flag == 0 ? "" : kTooManyIterations));
        EXPECT_TRUE(flag == 0 || flag == -1);
        zeros.assign(room.begin() + 1, room.end() - 1);
    }

    Integer flag = 77;
    Values zeros;
};

/// Coefficients of the polynomial with these zeros, constant term first; in extended precision, rounded once.
Values from_zeros(const Values& zeros)
{
    std::vector<Wide> a{1.0L};
    for (const Complex& zero : zeros) {
        a.insert(a.begin(), 0.0L);
        for (std::size_t k = 0; k + 1 < a.size(); ++k)
            a[k] -= Wide(zero) * a[k + 1];
    }
    return {a.begin(), a.end() - 1};
}

/// |p(z)| over the rounding bound n eps sum |a(k)| |z|^(k-1).
Real scaled_residual(const Values& coefficients, const Complex& z)
{
    const Wide x(z);
    Wide p = 1.0L;
    long double bound = 1.0L;
    for (auto a = coefficients.rbegin(); a != coefficients.rend(); ++a) {
        p = p * x + Wide(*a);
        bound = bound * std::abs(x) + std::abs(Wide(*a));
    }
    return static_cast<Real>(std::abs(p) / (bound * kEpsilon * static_cast<long double>(coefficients.size())));
}

Real worst_residual(const Values& coefficients, const Values& zeros)
{
    Real worst = 0.0;
    for (const Complex& z : zeros)
        worst = std::max(worst, scaled_residual(coefficients, z));
    return worst;
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

struct Known
{
    const char* name;
    Values zeros;
    Real tolerance; // for the distance: what the conditioning of the zeros allows
};

std::vector<Known> known_zeros()
{
    Random random(11);
    std::vector<Known> cases;
    for (const std::size_t n : {3u, 4u, 7u, 12u})
        cases.push_back({"random", random.complexes(n), 1e-9});
    cases.push_back(
        {"real and conjugate", {2.0, -3.0, 0.5, {1.0, 2.0}, {1.0, -2.0}, {-0.1, 0.3}, {-0.1, -0.3}}, 1e-11});
    cases.push_back({"at the origin", {0.0, 0.0, 0.0, 1.0, {0.0, 2.0}, {-1.0, 1.0}}, 1e-13});
    cases.push_back({"tiny to huge", {1e-12, {0.0, -1e-7}, {2e-3, 1e-3}, 1.0, {3e5, -4e5}, 1e11}, 1e-12});
    cases.push_back({"on one circle and far out", {1e150, {0.0, 1e-150}, 1.0, {0.0, 1.0}}, 1e-13});
    cases.push_back({"double", {1.0, 1.0, {0.0, 2.0}, -3.0}, 1e-6});
    cases.push_back({"triple", {{1.0, 1.0}, {1.0, 1.0}, {1.0, 1.0}, -2.0, 0.5}, 3e-4});
    cases.push_back({"cluster", {1.0, 1.0001, {1.0, 0.0001}, -2.0, {0.0, 3.0}}, 1e-6});
    Values wilkinson(15);
    std::iota(wilkinson.begin(), wilkinson.end(), 1.0);
    cases.push_back({"Wilkinson", wilkinson, 1e-3});
    return cases;
}

TEST(PolynomialZeros, AreFoundAgain)
{
    for (const auto& [name, zeros, tolerance] : known_zeros()) {
        const Values coefficients = from_zeros(zeros);
        const Solution solution(coefficients);
        ASSERT_EQ(solution.flag, 0) << name;
        EXPECT_LE(distance(solution.zeros, zeros), tolerance) << name << ", degree " << zeros.size();
        EXPECT_LE(worst_residual(coefficients, solution.zeros), 100.0) << name << ", degree " << zeros.size();
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
            ASSERT_EQ(solution.flag, 0) << n << " " << c;
            EXPECT_LE(distance(solution.zeros, roots_of(c, n)), n <= 64 ? 1e-10 : 1e-8) << n << " " << c;
        }
}

TEST(PolynomialZeros, LeaveResidualsOfRoundingAlone)
{
    struct Group
    {
        std::size_t degree;
        int count;
        Real bound; // in units of the rounding bound: division adds to it as the degree grows
    };
    Random random(12);
    for (const auto& [degree, count, bound] : {Group{3, 500, 10.0},
                                               {5, 500, 20.0},
                                               {10, 300, 100.0},
                                               {20, 100, 1e3},
                                               {50, 20, 1e4},
                                               {100, 8, 1e5},
                                               {200, 3, 1e5}})
        for (int i = 0; i < count; ++i) {
            Values coefficients = random.complexes(degree);
            if (i % 2 == 1) // real ones
                for (Complex& a : coefficients)
                    a = a.real();
            const Solution solution(coefficients);
            ASSERT_EQ(solution.flag, 0) << "degree " << degree << ", no. " << i;
            EXPECT_LE(worst_residual(coefficients, solution.zeros), bound) << "degree " << degree << ", no. " << i;
        }
}

TEST(PolynomialZeros, TakeCoefficientsOverManyDecades)
{
    Random random(13);
    for (const Real decades : {10.0, 40.0})
        for (const std::size_t degree : {3u, 4u, 6u, 9u, 12u, 20u, 40u})
            for (int i = 0; i < 150; ++i) {
                Values coefficients = random.complexes(degree);
                for (Complex& a : coefficients)
                    a *= std::pow(10.0, random.uniform(-decades, decades));
                const Solution solution(coefficients);
                ASSERT_EQ(solution.flag, 0) << "degree " << degree << ", no. " << i;
                if (degree <= 12) {
                    EXPECT_LE(worst_residual(coefficients, solution.zeros), 100.0)
                        << "degree " << degree << ", no. " << i;
                }
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
    for (const Integer degree : {-5, 0, 1}) {
        const Complex coefficient(2.5, -1.0);
        Complex z = kSentinel, w = kSentinel;
        expect_status(0, "", [&](Integer& flag, char* text, CharLen length) {
            NAPACK_CZERO(&z, &coefficient, degree, &w, flag, text, length);
        });
        EXPECT_EQ(z, Complex(-2.5, 1.0));
        EXPECT_EQ(w, Complex(degree, 0.0));
    }
    EXPECT_EQ(Solution({6.0, -5.0}).zeros, (Values{2.0, 3.0})) << "the larger is the second";
    EXPECT_EQ(Solution({0.0, Complex(3.0, 4.0)}).zeros, (Values{0.0, Complex(-3.0, -4.0)})) << "no zero is split off";
    EXPECT_EQ(Solution({4.0, 0.0}).zeros, (Values{Complex(0.0, -2.0), Complex(0.0, 2.0)})) << "ties take the plus";
    EXPECT_EQ(Solution({0.0, 0.0}).zeros, (Values{0.0, 0.0}));
    const Solution extreme({-1e-300, 1e300});
    EXPECT_EQ(extreme.zeros[1], -1e300);
    EXPECT_EQ(extreme.zeros[0], 0.0);
    EXPECT_EQ(Solution({1e-320, -1e-160}).flag, 0);
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
    const Values coefficients{0.0, 0.0, -1.2e97, -8.3e-47, 0.0, 0.0};
    Values z(coefficients.size());
    Complex w;
    const Integer n = 6;
    expect_status(-1, kTooManyIterations, [&](Integer& flag, char* text, CharLen length) {
        NAPACK_CZERO(z.data(), coefficients.data(), n, &w, flag, text, length);
    });
    EXPECT_EQ(z, (Values{-1.2e97, -8.3e-47, 0.0, 0.0, 0.0, 0.0}));
    EXPECT_EQ(w, Complex(6.0, 0.0));
}

/// Whether z(1..left) as coefficients times the factors of z(left+1..n) is the polynomial, term by term.
bool is_factored(const Values& z, std::size_t left, const Values& coefficients)
{
    std::vector<Wide> a(z.begin(), z.begin() + static_cast<std::ptrdiff_t>(left));
    std::vector<long double> size;
    a.emplace_back(1.0L);
    for (const Wide& value : a)
        size.push_back(std::abs(value));
    for (std::size_t i = left; i < z.size(); ++i) {
        a.insert(a.begin(), 0.0L);
        size.insert(size.begin(), 0.0L);
        for (std::size_t k = 0; k + 1 < a.size(); ++k) {
            a[k] -= Wide(z[i]) * a[k + 1];
            size[k] += std::abs(Wide(z[i])) * size[k + 1];
        }
    }
    for (std::size_t k = 0; k < coefficients.size(); ++k)
        if (!(std::abs(a[k] - Wide(coefficients[k])) <= 1e-8L * size[k]))
            return false;
    return true;
}

TEST(PolynomialZeros, FailureInTheMiddleLeavesAFactorisation)
{
    Random random(15);
    int partly_done = 0;
    for (int i = 0; i < 1500; ++i) {
        Values coefficients = random.complexes(6);
        for (Complex& a : coefficients)
            a *= std::pow(10.0, random.uniform(-150.0, 150.0));
        const Solution solution(coefficients);
        if (solution.flag == 0 || solution.zeros == coefficients)
            continue;
        ++partly_done;
        bool factored = false;
        for (std::size_t left = 3; left < 6; ++left)
            factored = factored || is_factored(solution.zeros, left, coefficients);
        EXPECT_TRUE(factored) << "no. " << i;
    }
    EXPECT_GT(partly_done, 10);
}

TEST(PolynomialZeros, CoefficientsThatAreNotFiniteAreReported)
{
    for (const std::size_t degree : {3u, 4u, 9u})
        for (std::size_t k = 0; k < degree; ++k)
            for (const Complex& value : {Complex(kNaN, 1.0), Complex(1.0, -kInfinity), Complex(kInfinity, kNaN)}) {
                Values coefficients = Random(16).complexes(degree);
                coefficients[k] = value;
                EXPECT_EQ(Solution(coefficients).flag, -1) << "degree " << degree << ", coefficient " << k + 1;
            }
    EXPECT_EQ(Solution({kNaN, kInfinity}).flag, 0) << "the closed form has no failure";
    EXPECT_EQ(Solution({1.0, Complex(1.7e308, 1.7e308), 1.0}).flag, -1) << "finite, but of infinite size";
}

TEST(PolynomialZeros, EveryCallReturns)
{
    // clang-format off
    const Real special[] = {0.0, -0.0, 1.0, -1.0, kInfinity, -kInfinity, kNaN, 5e-324, -1e-310, 2.2e-308, 1.7e308, -1.7e308,
                            1e300, 1e-300, 1e154, 1e-154, 1e97, 1e-162, 65536.0, 0x1p-16};
    // clang-format on
    Random random(17);
    const auto any = [&] { return special[random.below(std::size(special))]; };
    for (int i = 0; i < 6000; ++i) {
        Values coefficients = random.complexes(static_cast<std::size_t>(1 + random.below(i % 100 == 0 ? 40 : 9)));
        for (Complex& a : coefficients) {
            if (i % 4 == 0 || (i % 4 == 1 && random.below(3) == 0))
                a = Complex(any(), any());
            else if (i % 4 == 2)
                a *= std::pow(10.0, random.uniform(-320.0, 308.0));
            else if (i % 4 == 3)
                a = Complex(random.below(3) - 1, random.below(3) - 1);
        }
        const Solution solution(coefficients);
        if (i % 4 == 3) {
            EXPECT_EQ(solution.flag, 0) << "no. " << i;
        }
    }
}

TEST(PolynomialZeros, DoNotDependOnEarlierCalls)
{
    Random random(18);
    std::vector<Values> polynomials;
    for (int i = 0; i < 60; ++i)
        polynomials.push_back(random.complexes(static_cast<std::size_t>(3 + random.below(30))));
    polynomials.push_back(Values(16, kNaN)); // gives up in between
    const auto same_bits = [](const Complex& a, const Complex& b) {
        return std::bit_cast<std::uint64_t>(a.real()) == std::bit_cast<std::uint64_t>(b.real()) &&
               std::bit_cast<std::uint64_t>(a.imag()) == std::bit_cast<std::uint64_t>(b.imag());
    };
    std::vector<Values> first;
    for (const Values& polynomial : polynomials)
        first.push_back(Solution(polynomial).zeros);
    for (std::size_t i = polynomials.size(); i-- > 0;) {
        const Values again = Solution(polynomials[i]).zeros;
        EXPECT_TRUE(std::equal(again.begin(), again.end(), first[i].begin(), same_bits)) << "polynomial " << i;
    }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(PolynomialZerosDeathTest, MissingStorageIsReported)
{
    // The child leaves with 0 if the call reports, with its address space cut to what it has.
    const auto child = [] {
        const Integer n = 3'000'000; // 5 GB
        Values coefficients(n, 1.0), z(n);
        Complex w;
        Message message(60);
        Integer flag = 77;
        const rlimit limit{1u << 30, 1u << 30};
        if (setrlimit(RLIMIT_AS, &limit) != 0)
            std::_Exit(2);
        NAPACK_CZERO(z.data(), coefficients.data(), n, &w, flag, message.data(), message.length());
        const bool reported = flag == -1 && message.text() == padded(kNoStorage, 60) && z == coefficients;
        std::_Exit(reported ? 0 : 1);
    };
    EXPECT_EXIT(child(), ::testing::ExitedWithCode(0), "");
}
#endif

/// (z - s) q(z), n + 1 coefficients; q has n.
std::vector<Wide> times_factor(const Values& q, const Complex& s)
{
    std::vector<Wide> product(q.size() + 1);
    for (std::size_t k = 0; k < q.size(); ++k) {
        product[k + 1] += Wide(q[k]);
        product[k] -= Wide(s) * Wide(q[k]);
    }
    return product;
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
    const std::vector<Wide> product = times_factor(next, s);
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
