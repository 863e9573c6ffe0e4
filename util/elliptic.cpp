#include "util/elliptic.h"

#include "common/elementary.h"
#include "common/stop.h"

#include <array>
#include <cstddef>

namespace tessel {

namespace {

// Coefficients from the constant term on, in their printed digits. The products of the derivatives are stored as well,
// not multiplied out at run time.
// clang-format off

// A&S 17.3.34, |error| <= 2e-8
constexpr Real kKA[] = {1.38629436112, 0.09666344259, 0.03590092383, 0.03742563713, 0.01451196212};
constexpr Real kKB[] = {0.5,           0.12498593597, 0.06880248576, 0.03328355346, 0.00441787012};
// -dA/dm1 and dB/dm1 of it
constexpr Real kKP[] = {-0.09666344259, -0.07180184766, -0.11227691139, -0.05804784848};
constexpr Real kKQ[] = { 0.12498593597,  0.13760497152,  0.09985066038,  0.01767148048};

// A&S 17.3.36, |error| <= 2e-8; B has no constant term, and adding zero changes no bit
constexpr Real kEA[] = {1.0, 0.44325141463, 0.06260601220, 0.04757383546, 0.01736506451};
constexpr Real kEB[] = {0.0, 0.24998368310, 0.09200180037, 0.04069697526, 0.00526449639};
// -dA/dm1 and dB/dm1 of it
constexpr Real kEP[] = {-0.44325141463, -0.1252120244,  -0.14272150638, -0.06946025804};
constexpr Real kEQ[] = { 0.24998368310,  0.18400360074,  0.12209092578,  0.02105798556};

// clang-format on

constexpr Real kLargestParameter = 0.999999999999999;

using Powers = std::array<Real, 5>; ///< m1^0 .. m1^4

/// Powers of the complementary parameter m1 = 1 - x, by successive multiplication. An x out of range ends the process;
/// NaN passes.
Powers complementary_powers(Real x, const char* range_message)
{
    if (x < 0.0 || x > kLargestParameter)
        stop(range_message);
    const Real m1 = 1.0 - x;
    const Real m2 = m1 * m1;
    const Real m3 = m1 * m2;
    const Real m4 = m1 * m3;
    return {1.0, m1, m2, m3, m4};
}

/// sum c(k) m1^k from the lowest term up.
template <std::size_t Terms>
Real polynomial(const Real (&c)[Terms], const Powers& m)
{
    Real sum = c[0] + c[1] * m[1];
    for (std::size_t k = 2; k < Terms; ++k)
        sum += c[k] * m[k];
    return sum;
}

/// A - B log(m1)
Real integral(const Real (&a)[5], const Real (&b)[5], const Powers& m)
{
    const Real log_m1 = logarithm(m[1]);
    return polynomial(a, m) - polynomial(b, m) * log_m1;
}

/// d(A - B log(m1))/dx = P + Q log(m1) + B/m1 with P = -dA/dm1 and Q = dB/dm1.
Real derivative(const Real (&p)[4], const Real (&q)[4], const Real (&b)[5], const Powers& m)
{
    const Real log_m1 = logarithm(m[1]);
    return (polynomial(p, m) + polynomial(q, m) * log_m1) + polynomial(b, m) / m[1];
}

} // namespace

extern "C" Real CELLIK_POL(const Real& X)
{
    return integral(kKA, kKB, complementary_powers(X, "Sub CELLIK_POL: argument x in K(x) out of range !"));
}

extern "C" Real CELLIE_POL(const Real& X)
{
    return integral(kEA, kEB, complementary_powers(X, "Sub CELLIE_POL: argument x in E(x) out of range !"));
}

extern "C" Real D_CELLIK_POL(const Real& X)
{
    return derivative(kKP, kKQ, kKB,
                      complementary_powers(X, "Sub D_CELLIK_POL: argument x in dK(x)/dx out of range !"));
}

extern "C" Real D_CELLIE_POL(const Real& X)
{
    return derivative(kEP, kEQ, kEB,
                      complementary_powers(X, "Sub D_CELLIE_POL: argument x in dE(x)/dx out of range !"));
}

} // namespace tessel
