#include "common/elementary.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace tessel {

namespace {

constexpr Real kInfinity = std::numeric_limits<Real>::infinity();
constexpr Real kNaN = std::numeric_limits<Real>::quiet_NaN();

/// A constant to twice the precision. The high part has so few bits that sums of it with others of its kind are exact.
template <class T>
struct Constant
{
    T high, low;
};

/// c and -log c.
struct LogRow
{
    Real c, high, low;
};

// clang-format off

constexpr Constant<Real> kLog2 = {0x0.b17217f7d1cp+0, 0x0.f79abc9e3b398p-44}; // high part in units of 2^-42
constexpr Extended kInverseLog2 = 0x0.b8aa3b295c17f0bcp+1L;

// By the nearest 1 + j/32 to a number in 1..2, j = 0..32: its reciprocal to eight bits, next to 1 and 2 exactly.
// From sqrt(2) on the logarithm is that of half the number. In units of 2^-42.
constexpr LogRow kLogs[] = {
    {256 / 256.0,                 0.0,                     0.0},
    {256 / 256.0,                 0.0,                     0.0},
    {241 / 256.0,   0x0.f7518e0034p-4,  0x0.e1eec1b036c488p-43},
    {234 / 256.0,   0x0.b806985756p-3,   0x0.e0f46d4cef699p-48},
    {228 / 256.0,   0x0.ed393b1c22p-3,  0x0.d44a00fd38b998p-45},
    {221 / 256.0,   0x0.968b086434p-2,  0x0.9ceb665c0da508p-46},
    {216 / 256.0,   0x0.adfa035aa2p-2,  -0x0.93811f5b44c0ep-45},
    {210 / 256.0,   0x0.cad2d6e7b8p-2,  0x0.bf9142c507fb78p-46},
    {205 / 256.0,    0x0.e37fde378p-2,  0x0.f709c69d34ea18p-43},
    {200 / 256.0,   0x0.fcc8e3659ep-2,  -0x0.c868266be641ap-43},
    {195 / 256.0,   0x0.8b5ae65d68p-1, -0x0.9194c8216ba5f8p-43},
    {191 / 256.0,  0x0.95f783e6e48p-1,   0x0.d4e7d2528027ap-44},
    {186 / 256.0,   0x0.a38c6e138ep-1,  0x0.8360c7da60a628p-43},
    {182 / 256.0,   0x0.aeadeefacbp-1,  -0x0.d0595045232eep-46},
    {178 / 256.0,   -0x0.a8d56c397p-1,  0x0.fa5ec6d853e608p-43},
    {174 / 256.0,  -0x0.9d3262ab4ap-1,  -0x0.bd38e5e6b9ae8p-43},
    {171 / 256.0,  -0x0.944ad09ef4p-1,  -0x0.d46bd692609f8p-43},
    {167 / 256.0, -0x0.882c5fcd728p-1,  0x0.a55cec0bea9668p-43},
    {164 / 256.0,  -0x0.fdc8c36af2p-2,  0x0.eab9555cc9e438p-46},
    {161 / 256.0,  -0x0.eae10b5a7ep-2,  0x0.8dd48dde5340d8p-44},
    {158 / 256.0,  -0x0.d79e4a7406p-2,   0x0.d27319fe6c833p-51},
    {155 / 256.0,  -0x0.c3fd032906p-2,  -0x0.910902009017ep-43},
    {152 / 256.0,  -0x0.aff983853dp-2,   0x0.c2c378c1df5f9p-43},
    {149 / 256.0,  -0x0.9b8fe100f4p-2,  -0x0.f743bcd96c55ep-43},
    {146 / 256.0,  -0x0.86bbf3e684p-2,  -0x0.e596697717a41p-43},
    {144 / 256.0,  -0x0.f1383b7158p-3,   0x0.d1a161578001ep-44},
    {141 / 256.0,  -0x0.c61a2eb18cp-3,  -0x0.d907ad65a1533p-43},
    {139 / 256.0,   -0x0.a8d839f83p-3,  -0x0.c1fb493c73435p-43},
    {137 / 256.0,  -0x0.8b29b7751cp-3,  0x0.a3e2f3b47d1848p-45},
    {134 / 256.0,  -0x0.bba2c7b198p-4,  0x0.8c0ee72c357848p-43},
    {128 / 256.0,                 0.0,                     0.0},
    {128 / 256.0,                 0.0,                     0.0},
    {128 / 256.0,                 0.0,                     0.0},
};
constexpr int kFirstHalved = 14;

// atan(i/16), i = 0..16; in units of 2^-60, as is pi
constexpr Constant<Extended> kArcTangents[] = {
    {                   0.0L,                       0.0L},
    { 0x0.ffaaddb967ef4ep-4L,  0x0.db2c9e4b7038b835p-62L},
    { 0x0.feadd4d5617b6ep-3L,  0x0.cb225e627cfa223cp-61L},
    {0x0.bdcbda5e72d8114p-2L, -0x0.b84f4b077e3638b8p-62L},
    { 0x0.fadbafc96406ebp-2L,  0x0.ab6e3cf7afbd10bfp-61L},
    {0x0.9b13b9b83f5e5e6p-1L,  0x0.9c5abb498d27af33p-61L},
    {0x0.b7b0ca0f26f7848p-1L, -0x0.c755cdedd2301bb8p-61L},
    {0x0.d327761e611fe5cp-1L, -0x0.9bd836a16ffe18edp-61L},
    {0x0.ed63382b0dda7b4p-1L,   0x0.adfc88bd978751ap-62L},
    {0x0.832bf4a6d9867e3p+0L, -0x0.b692bec693cb5d48p-61L},
    {0x0.8f005d5ef7f59fap+0L, -0x0.946f943d33477917p-61L},
    {0x0.9a2f80e671bdda2p+0L,  0x0.844df1c4409fe77ap-65L},
    {0x0.a4bc7d1934f7092p+0L,  0x0.83350fe548afb594p-61L},
    {0x0.aeac4c38b4d8c08p+0L,   0x0.a392f179f290385p-67L},
    {0x0.b8053e2bc2319e7p+0L,  0x0.f2cb69548429110fp-62L},
    {0x0.c0ce85b8ac52664p+0L,  0x0.89dd62c46e92fa25p-64L},
    {0x0.c90fdaa22168c23p+0L,  0x0.9898cc51701b839ap-61L},
};
// 2^(i/16), i = 0..15
constexpr Constant<Extended> kRoots[] = {
    {0x0.8p+1L,                                   0.0L},
    {0x0.85aac367cc487b15p+1L, -0x0.e8da91cf7aacf938p-65L},
    {0x0.8b95c1e3ea8bd6e7p+1L, -0x0.8373af14eb586dfdp-68L},
    {0x0.91c3d373ab11c336p+1L,  0x0.fd6d8e0ae5ac9d82p-67L},
    {0x0.9837f0518db8a96fp+1L,  0x0.8d5a46305c85ededp-64L},
    {0x0.9ef5326091a111aep+1L, -0x0.beddc1ec288c045dp-64L},
    {0x0.a5fed6a9b15138eap+1L,  0x0.e5ebfb10b88380d9p-66L},
    {0x0.ad583eea42a14ac6p+1L,  0x0.93015191eb345d89p-64L},
    {0x0.b504f333f9de6484p+1L,  0x0.b2fb1366ea957d3ep-64L},
    {0x0.bd08a39f580c36bfp+1L, -0x0.aefdc09325e0a10cp-64L},
    {0x0.c5672a115506daddp+1L,  0x0.f8ab432593767cdep-65L},
    {0x0.ce248c151f8480e4p+1L, -0x0.ee53e3835069c895p-66L},
    {0x0.d744fccad69d6af4p+1L,  0x0.e69a2ee640b4ff78p-65L},
    {0x0.e0ccdeec2a94e111p+1L,  0x0.cb12a091ba667944p-68L},
    {0x0.eac0c6e7dd24392fp+1L, -0x0.bf4a29323e46ac15p-65L},
    {0x0.f5257d152486cc2cp+1L,  0x0.f73a18f5db301f87p-64L},
};
constexpr Constant<Extended> kPi     = {0x0.c90fdaa22168c234p+2L,  0x0.c4c6628b80dc1cd1p-62L};
constexpr Constant<Extended> kHalfPi = {0x0.c90fdaa22168c238p+1L, -0x0.cece675d1fc8f8ccp-61L};

// clang-format on

/// c(0) + c(1) x + ..., from the highest term down.
template <class T, class C, std::size_t Terms>
T polynomial(const std::array<C, Terms>& c, T x)
{
    T sum = c[Terms - 1];
    for (std::size_t k = Terms - 1; k-- > 0;)
        sum = sum * x + c[k];
    return sum;
}

std::uint64_t bits_of(Real x) noexcept
{
    return std::bit_cast<std::uint64_t>(x);
}

/// The upper 26 bits of the mantissa.
Real upper_part(Real x) noexcept
{
    return std::bit_cast<Real>(bits_of(x) >> 27 << 27);
}

/// 2^n, n = -1022..1023
Real power_of_two(int n) noexcept
{
    return std::bit_cast<Real>(static_cast<std::uint64_t>(1023 + n) << 52);
}

/// Whether a double is positive and normal, and so is its reciprocal.
bool well_inside(Real x) noexcept
{
    return (bits_of(x) >> 52) - 2 < 2042;
}

/// log(2^shift (x + rest)), x well inside the doubles and rest far below it:
///
///     x + rest = 2^e (1 + r) / c,   log = e log 2 - log c + r - s (r - 2 (s^2/3 + s^4/5 + ...)),   s = r / (2 + r).
///
/// The products that r is made of are exact, and so is the sum of the first two terms. Next to 1 nothing but r counts,
/// and r is x - 1 + rest.
template <class T>
inline T log_of_sum(T x, T rest, int shift) noexcept
{
    static constexpr std::array<Real, 5> kSeries = {2.0 / 3.0, 2.0 / 5.0, 2.0 / 7.0, 2.0 / 9.0, 2.0 / 11.0};

    const std::uint64_t bits = bits_of(static_cast<Real>(x));
    const int e = static_cast<int>(bits >> 52) - 1023;
    const auto row = static_cast<int>(((bits >> 46 & 63) + 1) >> 1);
    const auto [c, high, low] = kLogs[row];
    const T scale = power_of_two(-e), m = x * scale;
    const T upper = upper_part(static_cast<Real>(m));
    const T first = upper * c - T(1), second = (m - upper) * c;
    const T whole = first + second, r = whole + rest * scale * c, r_low = second - (whole - first);

    const T s = r / (T(2) + r), square = s * s;
    const T twos = shift + e + (row >= kFirstHalved ? 1 : 0);
    const T known = twos * kLog2.high + high, sum = known + r, sum_low = r - (sum - known);
    return sum + (sum_low + (twos * kLog2.low + low + r_low) - s * (r - square * polynomial(kSeries, square)));
}

/// x^2 to the last bit.
Constant<Extended> exact_square(Real x) noexcept
{
    const Extended whole = x, u = upper_part(x), v = whole - u, high = whole * whole;
    return {high, ((u * u - high) + 2.0L * u * v) + v * v};
}

/// log sqrt(a^2 + b^2), a >= b >= 0 finite and a > 0. The sum is kept to twice the precision: of a modulus next to 1
/// the leading bits cancel.
Real log_of_modulus(Real a, Real b) noexcept
{
    const Constant<Extended> a2 = exact_square(a), b2 = exact_square(b);
    const Extended sum = a2.high + b2.high, lost = b2.high - (sum - a2.high), rest = (lost + a2.low) + b2.low;
    const int shift = a < 0x1p-400 ? -1400 : a > 0x1p400 ? 1400 : 0;
    const Extended factor = shift < 0 ? 0x1p1400L : shift > 0 ? 0x1p-1400L : 1.0L;
    return static_cast<Real>(0.5L * log_of_sum<Extended>(sum * factor, rest * factor, shift));
}

} // namespace

Real logarithm(Real x) noexcept
{
    if (well_inside(x))
        return log_of_sum<Real>(x, 0.0, 0);
    if (x > 0.0 && x < kInfinity) {
        const int shift = x < 1.0 ? -100 : 100;
        return log_of_sum<Real>(x * power_of_two(-shift), 0.0, shift);
    }
    return x == 0.0 ? -kInfinity : x > 0.0 ? x : kNaN;
}

Complex logarithm(const Complex& z) noexcept
{
    const Real re = std::fabs(z.real()), im = std::fabs(z.imag());
    const Real angle = arc_tangent(z.imag(), z.real());
    if (std::isinf(re) || std::isinf(im))
        return {kInfinity, angle};
    if (std::isnan(re) || std::isnan(im))
        return {kNaN, angle};
    if (re == 0.0 && im == 0.0)
        return {-kInfinity, angle};
    return {re >= im ? log_of_modulus(re, im) : log_of_modulus(im, re), angle};
}

Real exponential(Real x) noexcept
{
    // Of (exp r - 1 - r) / r^2, by powers of r^2: 1/2!, 1/4!, ..., 1/14! and 1/3!, 1/5!, ..., 1/15!.
    static constexpr auto kSeries = [] {
        std::array<std::array<Real, 7>, 2> c{};
        Real factorial = 1.0; // exact up to 18!
        for (std::size_t k = 2; k < 16; ++k)
            c[k % 2][k / 2 - 1] = 1.0 / (factorial *= static_cast<Real>(k));
        return c;
    }();

    if (!(std::fabs(x) < 746.0))
        return std::isnan(x) ? x : x > 0.0 ? kInfinity : 0.0;
    const int n = static_cast<int>(x * kInverseLog2 + (x < 0.0 ? -0.5 : 0.5));
    const Real twos = n, first = x - twos * kLog2.high, second = twos * kLog2.low; // the first is exact
    const Real r = first - second, r_low = (first - r) - second, square = r * r;   // |r| <= log(2) / 2
    const Real series = polynomial(kSeries[0], square) + r * polynomial(kSeries[1], square);
    const Real sum = 1.0 + r, sum_low = r - (sum - 1.0);
    const Real value = sum + (sum_low + (r_low + square * series));
    return value * power_of_two(n / 2) * power_of_two(n - n / 2); // 2^n alone may be out of range
}

/// x = n log(2) / 16 + r, |r| <= log(2) / 32.
Extended exponential(Extended x) noexcept
{
    // Of (exp r - 1 - r) / r^2: 1/2!, 1/3!, ..., 1/8!.
    static constexpr auto kSeries = [] {
        std::array<Extended, 7> c{};
        Extended factorial = 1.0L;
        for (std::size_t k = 2; k < 9; ++k)
            c[k - 2] = 1.0L / (factorial *= static_cast<Extended>(k));
        return c;
    }();
    constexpr Extended kWhole = 0x1.8p+63L; // sums with it are whole numbers
    constexpr int kStep = 1000;             // 2^kStep and its reciprocal are doubles

    if (!(std::fabs(x) < 11400.0L))
        return std::isnan(x) ? x : x > 0.0L ? std::numeric_limits<Extended>::infinity() : 0.0L;
    const Extended sixteenths = (x * (16.0L * kInverseLog2) + kWhole) - kWhole;
    const int n = static_cast<int>(static_cast<Real>(sixteenths));
    const Extended r = (x - sixteenths * (kLog2.high / 16.0)) - sixteenths * (kLog2.low / 16.0), square = r * r;
    const Extended low = (kSeries[0] + r * kSeries[1]) + square * (kSeries[2] + r * kSeries[3]);
    const Extended high = (kSeries[4] + r * kSeries[5]) + square * kSeries[6];
    const auto [root, root_low] = kRoots[n & 15];
    Extended value = root + (root_low + root * (r + square * (low + square * square * high)));
    int twos = n >> 4;
    for (; twos > kStep; twos -= kStep)
        value *= power_of_two(kStep);
    for (; twos < -kStep; twos += kStep)
        value *= power_of_two(-kStep);
    return value * power_of_two(twos);
}

std::complex<Extended> exponential(const std::complex<Extended>& z) noexcept
{
    const Extended size = exponential(z.real());
    Extended sine, cosine;
    sincosl(z.imag(), &sine, &cosine); // plain arithmetic, unlike the double-precision one
    return {size * cosine, size * sine};
}

/// Of the smaller part over the larger, t = c + (t - c) with c the nearest sixteenth:
///
///     atan t = atan c + atan z,   z = (t - c) / (1 + c t),   |z| <= 1/32.
///
/// The octants put 0, pi/2 or pi before it.
Real arc_tangent(Real y, Real x) noexcept
{
    static constexpr std::array<Extended, 7> kSeries = {-1.0L / 3.0L,  1.0L / 5.0L,  -1.0L / 7.0L, 1.0L / 9.0L,
                                                        -1.0L / 11.0L, 1.0L / 13.0L, -1.0L / 15.0L};

    if (std::isnan(x) || std::isnan(y))
        return kNaN;
    const bool steep = std::fabs(y) > std::fabs(x), left = std::signbit(x);
    Extended numerator = std::fabs(steep ? x : y), denominator = std::fabs(steep ? y : x);
    if (std::isinf(denominator)) {
        numerator = std::isinf(numerator) ? 1.0L : 0.0L;
        denominator = 1.0L;
    } else if (denominator == 0.0L) {
        denominator = 1.0L;
    }
    const auto i = static_cast<int>(16.0L * numerator / denominator + 0.5L);
    const Extended c = static_cast<Extended>(i) / 16.0L;
    const Extended z = (numerator - c * denominator) / (denominator + c * numerator), square = z * z;
    const Extended arc = z + z * square * polynomial(kSeries, square);

    // angle = base +- (atan c + arc)
    const Constant<Extended> base = steep ? kHalfPi : left ? kPi : Constant<Extended>{0.0L, 0.0L};
    const Extended sign = steep != left ? -1.0L : 1.0L;
    const Extended angle = (base.high + sign * kArcTangents[i].high) + (base.low + sign * (kArcTangents[i].low + arc));
    return std::copysign(static_cast<Real>(angle), y);
}

SineCosine sine_cosine(Real x) noexcept
{
    Extended sine, cosine;
    sincosl(x, &sine, &cosine);
    return {static_cast<Real>(sine), static_cast<Real>(cosine)};
}

} // namespace tessel
