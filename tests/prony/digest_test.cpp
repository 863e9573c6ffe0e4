/// Digests of results. Results are part of the interface and the same on every processor: a change of them is
/// deliberate and has a line in the changelog.
///
/// The inputs come from seeded integers by sums, products and quotients alone, one draw to a statement or in braces,
/// whose order is fixed: they are the same everywhere. A group has ten kinds of a hundred cases. Where digests differ,
/// the message holds the table as it came out, ready to take the place of the old one, and the first cases of the first
/// kind that differs, to be compared with another machine's.

#include "common/complex_ops.h"
#include "prony/csvdc.h"
#include "prony/czero.h"
#include "prony/leastsq_prony_svd.h"
#include "prony/rotations.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <iomanip>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace tessel::testing {
namespace {

using Values = std::vector<Complex>;
using Digests = std::array<std::uint64_t, 10>;

// clang-format off
constexpr Digests kPolynomials = {
    0xf2474eb18c557d1au, 0x1838ce31793f734au, 0x151e6bc92aeaa3edu, 0xfd59c793a58b0062u,
    0x633fbc328787aeefu, 0x5e706b9966e71006u, 0x9719c0159f6657fbu, 0xb857a73acb3b6da8u,
    0x61a99645a56ffa5fu, 0xb5f7980be28ed610u};
constexpr Digests kDecompositions = {
    0x8397065522d2ddddu, 0x9992138245c7d071u, 0x11dc99e0f7f38bd4u, 0x5af514f88ba4a10eu,
    0xe57ec1c1d4fe3a3au, 0x9fa8bf39c87b71d3u, 0x7e6c9c0a04d1fe97u, 0x5186fce92d267a9eu,
    0xf2fb417968c2d29fu, 0xa6eef8b8ead6d5f8u};
constexpr Digests kFits = {
    0x6edbfe19f4a980cbu, 0x1944b2de23fd7222u, 0x6948c4f14d0d4bb5u, 0x7329a7a3e0e38a7du,
    0x0f3dac7f6e54ea67u, 0x2a0425aff506f7c3u, 0x5b99366974eefc37u, 0x66e9a0ec2f3d0219u,
    0xcbfb4c749a9e4bb3u, 0xa38b0fd8007d5384u};
// clang-format on

constexpr int kCases = 100;
constexpr std::uint64_t kFirst = 0xcbf29ce484222325u; // FNV-1a

class Hash
{
public:
    void add(std::uint64_t bits)
    {
        for (int byte = 0; byte < 8; ++byte)
            value_ = (value_ ^ (bits >> 8 * byte & 255)) * 0x100000001b3u;
    }
    /// One NaN is as good as another: compilers choose the order of operands, on which sign and payload depend.
    void add(Real x) { add(std::isnan(x) ? ~std::uint64_t{0} : std::bit_cast<std::uint64_t>(x)); }
    void add(const Values& values)
    {
        for (const Complex& z : values) {
            add(z.real());
            add(z.imag());
        }
    }
    std::uint64_t value() const { return value_; }

private:
    std::uint64_t value_ = kFirst;
};

std::size_t size_of(Index n)
{
    return static_cast<std::size_t>(n);
}

/// A point on the unit circle, (1 + i t)^2 / (1 + t^2).
Complex on_circle(Real t)
{
    const Real norm = 1.0 + t * t;
    return {(1.0 - t * t) / norm, 2.0 * t / norm};
}

Values real_parts(Values values)
{
    for (Complex& z : values)
        z = z.real();
    return values;
}

/// Samples of `terms` damped exponentials, with noise of this size; of a real record the real parts.
Values ringing(Random& random, Index n, int terms, Real noise, bool real)
{
    Values y(size_of(n));
    for (int j = 0; j < terms; ++j) {
        const Real radius = random.uniform(0.9, 1.0);
        const Complex z = multiply(radius, on_circle(random.uniform(-3.0, 3.0)));
        Complex value = random.complex();
        for (Complex& sample : y) {
            sample += value;
            value = multiply(value, z);
        }
    }
    for (Complex& sample : y)
        sample += multiply(noise, random.complex());
    return real ? real_parts(y) : y;
}

/// Coefficients of the polynomial with these zeros.
Values from_zeros(const Values& zeros)
{
    Values a(zeros.size() + 1);
    a[0] = 1.0;
    for (std::size_t n = 0; n < zeros.size(); ++n)
        for (std::size_t k = n + 2; k-- > 0;)
            a[k] = (k > 0 ? a[k - 1] : 0.0) - multiply(zeros[n], a[k]);
    a.pop_back();
    return a;
}

/// Values over many binary orders of magnitude.
Values spread(Random& random, std::size_t n, int bits)
{
    Values values = random.complexes(n);
    for (Complex& z : values)
        z = multiply(std::ldexp(1.0, random.below(2 * bits + 1) - bits), z);
    return values;
}

Values polynomial(int kind, Random& random)
{
    const auto degree = size_of(1 + random.below(kind < 7 ? 12 : kind < 9 ? 40 : 100));
    switch (kind) {
    case 0:
    case 7:
        return random.complexes(degree);
    case 1:
    case 8:
    case 9:
        return real_parts(random.complexes(degree));
    case 2:
        return from_zeros(spread(random, degree, 3));
    case 3: { // zeros on the unit circle
        Values zeros(degree);
        for (Complex& z : zeros)
            z = on_circle(random.uniform(-9.0, 9.0));
        return from_zeros(zeros);
    }
    case 4:
        return spread(random, degree, 40);
    case 5: { // of small integers, many of them zero
        Values a(degree);
        for (Complex& z : a)
            z = {random.below(5) - 2.0, random.below(2) * 1.0};
        return a;
    }
    default: { // roots of any number
        Values a(degree);
        a[0] = random.complex();
        return a;
    }
    }
}

std::uint64_t zeros_of(int kind, Random& random)
{
    const Values coefficients = polynomial(kind, random);
    Values zeros(coefficients.size());
    Complex w;
    Integer flag = 77;
    NAPACK_CZERO(zeros.data(), coefficients.data(), static_cast<Integer>(zeros.size()), &w, flag, nullptr, 0);
    Hash hash;
    hash.add(zeros);
    hash.add(static_cast<Real>(flag));
    return hash.value();
}

/// A matrix of `n` rows and `p` columns, in columns of length `ld`.
Values matrix(int kind, Random& random, Index n, Index p, Index ld)
{
    Values a(size_of(ld * p), -7.25);
    const Values y = ringing(random, n + p, 4, kind == 2 ? 0.0 : 1e-6, kind == 3);
    const Values z = spread(random, size_of(p), 0);
    for (Index j = 0; j < p; ++j) {
        Complex power = 1.0;
        for (Index i = 0; i < n; ++i) {
            Complex& element = a[size_of(i + j * ld)];
            switch (kind) {
            case 2:
            case 3: // prediction matrices, of low rank and with noise
                element = y[size_of(p - 1 + i - j)];
                break;
            case 4: // Vandermonde
                element = power;
                power = multiply(power, z[size_of(j)]);
                break;
            case 5: // deflating: bidiagonal, with zeros on the diagonal
                element = i == j ? Complex(random.below(4)) : Complex(j == i + 1 ? 1.0 : 0.0);
                break;
            case 6: // of small integers, many of them zero
                element = {random.below(3) - 1.0, random.below(2) * 1.0};
                break;
            case 7: // graded
                element = multiply(std::ldexp(1.0, -static_cast<int>(40 * (i + j) / (n + p))), random.complex());
                break;
            default:
                element = random.complex();
            }
            if (kind == 1 || kind == 8)
                element = element.real();
        }
    }
    return a;
}

std::uint64_t decomposition(int kind, Random& random)
{
    static constexpr Integer jobs[] = {21, 21, 21, 11, 20, 1, 10, 0, 109, -1};
    const bool large = kind >= 8;
    const Integer job = jobs[random.below(10)];
    const auto p = static_cast<Integer>(1 + random.below(large && random.below(8) == 0 ? 100 : large ? 40 : 20));
    const auto n = static_cast<Integer>(p + random.below(large ? 60 : 30));
    const int padding = random.below(3);
    const auto ld = padding == 0 ? n
                                 : static_cast<Integer>(padding == 1 ? n + random.below(5)
                                                                     : static_cast<Integer>(std::bit_ceil(size_of(n))));
    const Integer left = job < 0 ? 1 : job % 100 / 10;
    const bool in_place = left >= 2 && random.below(4) != 0;

    Values x = matrix(kind, random, n, p, ld), u(size_of(ld) * size_of(n), -7.25), v(size_of(p) * size_of(p), -7.25),
           s(size_of(p)), e(size_of(p)), work(size_of(n));
    Integer info = 77, flag = 77;
    SLATEC_CSVDC(job, n, p, x.data(), ld, in_place ? x.data() : u.data(), ld, s.data(), v.data(), p, work.data(),
                 e.data(), info, flag, nullptr, 0);
    Hash hash;
    hash.add(s);
    hash.add(e);
    hash.add(v);
    hash.add(in_place ? x : u);
    hash.add(static_cast<Real>(info));
    hash.add(static_cast<Real>(flag));
    return hash.value();
}

std::uint64_t fit(int kind, Random& random)
{
    const bool large = kind == 9 && random.below(4) == 0;
    const Integer m = 1 + random.below(kind < 2 ? 6 : large ? 100 : kind < 6 ? 20 : kind < 9 ? 40 : 12);
    const Integer n = large ? 4 * m : 2 * m + random.below(kind == 9 ? 400 - 2 * m : 3 * m);
    const bool real = kind % 2 == 1;
    Values y;
    if (kind == 8) { // small integers, impulses, far from 1
        y.resize(size_of(n));
        for (Complex& sample : y) {
            const int mantissa = random.below(7) - 3, exponent = random.below(3) * 100 - 100;
            sample = random.below(m) > 2 ? 0.0 : std::ldexp(mantissa, exponent);
        }
    } else if (kind == 4 || kind == 5) {
        y = random.complexes(size_of(n));
        y = real ? real_parts(y) : y;
    } else {
        y = ringing(random, n, kind < 2 ? m : 5, kind < 2 ? 0.0 : 1e-6, real);
    }

    const Real dt = 0.125;
    Values residues(size_of(m), -7.25), poles(residues);
    Real measures[5] = {-7.25, -7.25, -7.25, -7.25, -7.25};
    Integer flag = 77;
    LEASTSQ_PRONY_SVD(&n, &n, y.data(), &dt, &m, &m, residues.data(), poles.data(), &measures[0], &measures[1],
                      &measures[2], &measures[3], &measures[4], &flag, nullptr, 0);
    Hash hash;
    hash.add(poles);
    hash.add(residues);
    for (const Real measure : measures)
        hash.add(measure);
    hash.add(static_cast<Real>(flag));
    return hash.value();
}

void expect_digests(const char* group, std::uint64_t (*run)(int kind, Random& random), const Digests& expected)
{
    Digests digests{};
    std::ostringstream first;
    first << std::hex << std::setfill('0');
    for (std::size_t kind = 0; kind < digests.size(); ++kind) {
        std::array<std::uint64_t, kCases> cases{};
        Hash hash;
        for (std::size_t i = 0; i < cases.size(); ++i) {
            Random random(1000 * kind + i);
            hash.add(cases[i] = run(static_cast<int>(kind), random));
        }
        digests[kind] = hash.value();
        if (hash.value() != expected[kind] && first.tellp() == 0) {
            first << "cases of kind " << kind << ':';
            for (const std::uint64_t value : cases)
                first << ' ' << std::setw(4) << (value & 0xffff);
        }
    }
    std::ostringstream table;
    table << std::hex;
    for (const std::uint64_t digest : digests)
        table << "0x" << std::setfill('0') << std::setw(16) << digest << "u, ";
    EXPECT_EQ(digests, expected) << group << ": " << table.str() << '\n' << first.str();
}

/// With the vectors of every width that this machine has.
class Digest : public ::testing::TestWithParam<VectorWidth>
{
protected:
    void SetUp() override { use_vectors(GetParam()); }
    void TearDown() override { use_vectors(widest_vectors()); }
};

TEST_P(Digest, OfDecompositions)
{
    expect_digests("decompositions", decomposition, kDecompositions);
}

TEST_P(Digest, OfFits)
{
    expect_digests("fits", fit, kFits);
}

std::string name_of(const ::testing::TestParamInfo<VectorWidth>& width)
{
    static constexpr const char* names[] = {"Baseline", "Avx2", "Avx512"};
    return names[static_cast<std::size_t>(width.param)];
}

std::vector<VectorWidth> widths_here()
{
    std::vector<VectorWidth> widths = {VectorWidth::baseline, VectorWidth::avx2, VectorWidth::avx512};
    widths.resize(static_cast<std::size_t>(widest_vectors()) + 1);
    return widths;
}

INSTANTIATE_TEST_SUITE_P(Vectors, Digest, ::testing::ValuesIn(widths_here()), name_of);

TEST(PolynomialDigest, OfZeros)
{
    expect_digests("polynomials", zeros_of, kPolynomials);
}

} // namespace
} // namespace tessel::testing
