#include "tests/support/arnoldi.h"
#include "tests/support/library.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>

namespace tessel::testing {
namespace {

constexpr Real kPi = std::numbers::pi;

/// One library and one object for all tests of a program: the slots keep nothing in the object.
FDTDCalcAPI& api()
{
    static const Library library;
    static const std::unique_ptr<FDTDCalcAPI> object = library.create();
    return *object;
}

/// (A - sigma B)^-1 as a host forms it: with the zgesv slot.
std::vector<Complex> shifted_inverse(const SquareMatrix& a, const SquareMatrix& b, Complex sigma)
{
    const auto size = a.a.size();
    std::vector<Complex> shifted(size), inverse(size);
    for (std::size_t i = 0; i < size; ++i)
        shifted[i] = a.a[i] - sigma * b.a[i];
    for (Index i = 0; i < a.n; ++i)
        inverse[static_cast<std::size_t>(i + i * a.n)] = 1.0;
    std::vector<Integer> pivots(static_cast<std::size_t>(a.n));
    Integer info = 77;
    api().zgesv(&a.n, &a.n, shifted.data(), &a.n, pivots.data(), inverse.data(), &a.n, &info);
    EXPECT_EQ(info, 0);
    return inverse;
}

/// y := Re (A - sigma B)^-1 x, or its imaginary part.
Arnoldi::Operator shift_invert(const SquareMatrix& a, const SquareMatrix& b, Complex sigma, bool imaginary = false)
{
    const std::vector<Complex> inverse = shifted_inverse(a, b, sigma);
    SquareMatrix part(a.n);
    for (std::size_t i = 0; i < inverse.size(); ++i)
        part.a[i] = imaginary ? inverse[i].imag() : inverse[i].real();
    return [part](const Real* x, Real* y) { part.multiply(x, y); };
}

Arnoldi::Operator product(const SquareMatrix& a)
{
    return [a](const Real* x, Real* y) { a.multiply(x, y); };
}

SquareMatrix identity(Integer n)
{
    return SquareMatrix::tridiagonal(n, 0.0, 1.0, 0.0);
}

Complex dot(const std::vector<Complex>& x, const std::vector<Complex>& y)
{
    Complex sum = 0;
    for (std::size_t i = 0; i < x.size(); ++i)
        sum += std::conj(x[i]) * y[i];
    return sum;
}

/// Checks that each pair (lambda, x) satisfies |A x - lambda B x| <= bound |A| |x|, and returns the eigenvalues in
/// ascending order (real, then imaginary part). With a complex shift they are the Rayleigh quotients of the vectors.
std::vector<Complex> checked_values(const Arnoldi& solved, const SquareMatrix& a, const SquareMatrix& b, Real bound)
{
    EXPECT_EQ(solved.info, 0);
    EXPECT_EQ(solved.post_info, 0);
    EXPECT_GE(solved.found(), static_cast<std::size_t>(solved.nev));
    Real norm = 0;
    for (const Real value : a.a)
        norm = std::max(norm, std::abs(value));
    std::vector<Complex> values;
    for (std::size_t k = 0; k < solved.found(); ++k) {
        const std::vector<Complex> x = solved.vector(k);
        std::vector<Complex> ax(x.size()), bx(x.size());
        a.multiply(x.data(), ax.data());
        b.multiply(x.data(), bx.data());
        const Complex quotient = dot(x, ax) / dot(x, bx);
        const Complex value = solved.sigma.imag() != 0 ? quotient : solved.value(k);
        for (std::size_t i = 0; i < x.size(); ++i)
            ax[i] -= value * bx[i];
        EXPECT_LE(std::sqrt(dot(ax, ax).real()), bound * norm * std::sqrt(dot(x, x).real())) << "vector " << k;
        values.push_back(value);
    }
    std::sort(values.begin(), values.end(), [](Complex x, Complex y) {
        return std::abs(x.real() - y.real()) > 1e-9 ? x.real() < y.real() : x.imag() < y.imag();
    });
    return values;
}

void expect_values(const std::vector<Complex>& found, const std::vector<Complex>& expected, Real relative)
{
    ASSERT_GE(found.size(), expected.size());
    for (const Complex& value : expected) {
        Real nearest = std::numeric_limits<Real>::infinity();
        for (const Complex& candidate : found)
            nearest = std::min(nearest, std::abs(candidate - value));
        EXPECT_LE(nearest, relative * std::abs(value)) << value;
    }
}

TEST(Arpack, SmallestEigenvaluesOfTheGridLaplacian)
{
    constexpr Integer side = 10;
    constexpr Real per_h2 = 121.0;
    SquareMatrix a(side * side);
    for (Integer j = 0; j < side; ++j)
        for (Integer i = 0; i < side; ++i) {
            const Integer here = i + j * side;
            a(here, here) = 4 * per_h2;
            if (i > 0)
                a(here, here - 1) = a(here - 1, here) = -per_h2;
            if (j > 0)
                a(here, here - side) = a(here - side, here) = -per_h2;
        }
    Arnoldi problem(a.n);
    problem.which = "SM";
    problem.op = product(a);
    problem.solve(api());
    const auto values = checked_values(problem, a, identity(a.n), 1e-13);
    const std::vector<Complex> expected = {19.605400770583174, 48.21934544014579, 48.21934544014579, 76.8332901097084};
    for (std::size_t k = 0; k < expected.size(); ++k)
        EXPECT_LE(std::abs(values[k] - expected[k]), 1e-11 * std::abs(expected[k])) << k;
}

TEST(Arpack, EveryWhichFindsItsEndOfTheSpectrum)
{
    // Rotation blocks [x y; -y x], eigenvalues x +- iy, with the parts in different orders: no two ends coincide.
    constexpr Index blocks = 30;
    SquareMatrix a(static_cast<Integer>(2 * blocks));
    std::vector<Complex> spectrum;
    for (Index k = 0; k < blocks; ++k) {
        const Real x = 1.0 + 0.15 * static_cast<Real>(k), y = 0.2 + 0.1 * static_cast<Real>(k * 11 % blocks);
        a(2 * k, 2 * k) = a(2 * k + 1, 2 * k + 1) = x;
        a(2 * k, 2 * k + 1) = y;
        a(2 * k + 1, 2 * k) = -y;
        spectrum.emplace_back(x, y);
    }
    using Key = Real (*)(Complex);
    const std::pair<const char*, Key> cases[] = {
        {"LM", [](Complex z) { return -std::abs(z); }}, {"SM", [](Complex z) { return std::abs(z); }},
        {"LR", [](Complex z) { return -z.real(); }},    {"SR", [](Complex z) { return z.real(); }},
        {"LI", [](Complex z) { return -z.imag(); }},    {"SI", [](Complex z) { return z.imag(); }},
    };
    for (const auto& [which, key] : cases) {
        SCOPED_TRACE(which);
        Arnoldi problem(a.n);
        problem.which = which;
        problem.ncv = 50;
        problem.op = product(a);
        problem.solve(api());
        std::sort(spectrum.begin(), spectrum.end(), [key = key](Complex x, Complex y) { return key(x) < key(y); });
        expect_values(checked_values(problem, a, identity(a.n), 1e-12),
                      {spectrum[0], std::conj(spectrum[0]), spectrum[1], std::conj(spectrum[1])}, 1e-10);
    }
}

TEST(Arpack, ConvectionDiffusionByShiftAndInvert)
{
    const Real s = 5.0 / 101.0;
    const SquareMatrix a = SquareMatrix::tridiagonal(100, -1 - s, 2, -1 + s);
    Arnoldi problem(a.n);
    problem.mode = 3;
    problem.sigma = 1;
    problem.op = shift_invert(a, identity(a.n), problem.sigma);
    problem.solve(api());
    expect_values(checked_values(problem, a, identity(a.n), 1e-13),
                  {1.0192158750960092, 0.9655706435789795, 1.073809951910944, 0.912926155656727}, 1e-12);
}

TEST(Arpack, ComplexPairsWithTheirVectors)
{
    const Real s = 50.0;
    const SquareMatrix a = SquareMatrix::tridiagonal(100, -1 - s, 2, -1 + s);
    Arnoldi problem(a.n);
    problem.which = "LI";
    problem.ncv = 40;
    problem.op = product(a);
    problem.solve(api());
    std::vector<Complex> expected;
    for (const Integer k : {1, 2, 99, 100})
        expected.emplace_back(2.0, 2.0 * std::sqrt(s * s - 1) * std::cos(k * kPi / 101));
    expect_values(checked_values(problem, a, identity(a.n), 1e-12), expected, 1e-11);
    for (std::size_t k = 0; k < problem.found(); k += 2) {
        EXPECT_GT(problem.di[k], 0) << "the positive imaginary part comes first";
        EXPECT_EQ(problem.di[k + 1], -problem.di[k]);
    }
}

// A = tri(-1, 2, -1), B = tri(1, 4, 1) share their vectors: lambda_k = (2 - 2 cos t) / (4 + 2 cos t), t = k pi / (n +
// 1).
TEST(Arpack, GeneralisedProblemInModesTwoThreeAndFour)
{
    const Integer n = 60;
    const SquareMatrix a = SquareMatrix::tridiagonal(n, -1, 2, -1), b = SquareMatrix::tridiagonal(n, 1, 4, 1);
    const auto exact = [](Integer k) {
        const Real c = std::cos(k * kPi / (n + 1));
        return Complex((2 - 2 * c) / (4 + 2 * c));
    };
    Arnoldi problem(n);
    problem.bmat = 'G';
    problem.b = product(b);

    problem.mode = 2;
    problem.op = [solve = shift_invert(b, b, 0.0), a](const Real* x, Real* y) {
        std::vector<Real> ax(static_cast<std::size_t>(a.n));
        a.multiply(x, ax.data());
        solve(ax.data(), y);
    };
    problem.solve(api());
    expect_values(checked_values(problem, a, b, 1e-11), {exact(n), exact(n - 1), exact(n - 2), exact(n - 3)}, 1e-11);

    problem.mode = 3;
    problem.sigma = -0.01;
    problem.op = shift_invert(a, b, problem.sigma);
    problem.solve(api());
    expect_values(checked_values(problem, a, b, 1e-12), {exact(1), exact(2), exact(3), exact(4)}, 1e-11);

    problem.mode = 4;
    problem.sigma = {0.3, 0.2};
    problem.op = shift_invert(a, b, problem.sigma, true);
    problem.solve(api());
    checked_values(problem, a, b, 1e-8);
}

TEST(Arpack, NonSymmetricPencilAtAComplexShift)
{
    const SquareMatrix a = SquareMatrix::tridiagonal(100, -2, 2, 3), b = SquareMatrix::tridiagonal(100, 1, 4, 1);
    Arnoldi problem(a.n);
    problem.bmat = 'G';
    problem.mode = 3;
    problem.sigma = {0.4, 0.6};
    problem.op = shift_invert(a, b, problem.sigma);
    problem.b = product(b);
    problem.solve(api());
    expect_values(checked_values(problem, a, b, 1e-9),
                  {{0.5, 0.595811773178}, {0.5, -0.595811773178}, {0.5, 0.633117686412}, {0.5, -0.633117686412}}, 1e-9);
}

// The same start vector in each of these solves: the same bits come out, whatever SELECT holds.
TEST(Arpack, SelectIsWorkStorageWhateverItHolds)
{
    std::vector<Real> expected;
    for (const Logical filling : {0, 1, 2, -1, 0x55555554}) {
        Arnoldi problem = sample_problem();
        problem.select.assign(static_cast<std::size_t>(problem.ncv), filling);
        problem.solve(api());
        ASSERT_EQ(problem.post_info, 0);
        if (expected.empty())
            expected = problem.z;
        EXPECT_EQ(problem.z, expected) << filling;
        for (const Logical value : problem.select)
            EXPECT_TRUE(value == 0 || value == 1) << value;
    }
}

TEST(Arpack, BadArgumentsAndLimitsHaveTheirPublishedInfo)
{
    struct Case
    {
        Integer info;
        void (*spoil)(Arnoldi&);
    };
    const Case cases[] = {
        {-1, [](Arnoldi& p) { p.n = 0; }},
        {-2, [](Arnoldi& p) { p.nev = 0; }},
        {-3, [](Arnoldi& p) { p.ncv = p.nev + 1; }},
        {-3, [](Arnoldi& p) { p.ncv = p.n + 1; }},
        {-4, [](Arnoldi& p) { p.restarts = 0; }},
        {-5, [](Arnoldi& p) { p.which = "XX"; }},
        {-6, [](Arnoldi& p) { p.bmat = 'Q'; }},
        {-7, [](Arnoldi& p) { p.missing_work = 1; }},
        {-9, [](Arnoldi& p) { p.resid.assign(static_cast<std::size_t>(p.n), 0.0); }},
        {-10, [](Arnoldi& p) { p.mode = 5; }},
        {-11, [](Arnoldi& p) { p.bmat = 'G'; }},
        {-12, [](Arnoldi& p) { p.shifts = 2; }},
        {1, [](Arnoldi& p) { p.restarts = 1; }},
    };
    for (const Case& bad : cases) {
        Arnoldi problem = sample_problem();
        bad.spoil(problem);
        problem.solve(api());
        EXPECT_EQ(problem.info, bad.info);
    }
    for (const auto& [howmny, info] : {std::pair{'S', -12}, {'X', -13}}) {
        Arnoldi problem = sample_problem();
        problem.howmny = howmny;
        problem.solve(api());
        EXPECT_EQ(problem.info, 0);
        EXPECT_EQ(problem.post_info, info);
    }
    Arnoldi none = sample_problem();
    none.which = "SM"; // one restart from a start vector of all frequencies brings none of these
    none.restarts = 1;
    none.solve(api());
    EXPECT_EQ(none.found(), 0u);
    EXPECT_EQ(none.post_info, -14);
}

} // namespace
} // namespace tessel::testing
