/// Operations on monic complex polynomials, p(z) = z^n + a(n) z^(n-1) + ... + a(2) z + a(1).
///
/// The size of a complex value is |re| + |im| (`abs1`) throughout.
#pragma once

#include "common/complex_ops.h"
#include "common/types.h"
#include "common/views.h"

#include <cmath>
#include <complex>

namespace tessel {

/// 1 / z in extended precision, each part rounded once.
inline Complex reciprocal(const Complex& z) noexcept
{
    return divide_extended(1.0, z);
}

/// A value as mantissa * base^exponent.
struct Scaled
{
    Complex mantissa;
    Real exponent;
};

/// Splits z so that 1/base < size of mantissa <= 1. Zero keeps exponent 0; so does a size that is not finite, which no
/// scaling would ever bring into the range. Exact if the base is a power of two and no part becomes subnormal. The
/// scaling ends when a multiplication no longer changes the size, as with a subnormal one and a base below 1.5.
inline Scaled scale(Complex z, Real base, Real inverse_base) noexcept
{
    Real size = abs1(z), exponent = 0.0;
    const auto multiply_while = [&](auto out_of_range, Real factor, Real step) {
        for (Real next = 0.0; out_of_range() && (next = size * factor) != size; exponent += step) {
            size = next;
            z = multiply(factor, z);
        }
    };
    if (!std::isfinite(size))
        return {z, exponent};
    if (size > 1.0)
        multiply_while([&] { return size > 1.0; }, inverse_base, 1.0);
    else
        multiply_while([&] { return size <= inverse_base && size != 0.0; }, base, -1.0);
    return {z, exponent};
}

/// Replaces the coefficients of z^2 + b z + c by its zeros, the larger in b, for the zero finder:
///
///     w = -b +- sqrt(b^2 - 4 c) with the sign that does not cancel,    b := w / 2,    c := 2 c / w.
///
/// Extended precision throughout, one rounding at the end: b^2 and |w|^2 neither overflow nor underflow, so nothing
/// needs scaling. A tie between the signs takes the plus. b = c = 0 is left unchanged.
inline void solve_quadratic(Complex& b, Complex& c) noexcept
{
    using Wide = std::complex<Extended>;
    const auto size = [](const Wide& z) { return std::fabs(z.real()) + std::fabs(z.imag()); };

    const Wide a1(b), a0(c);
    const Wide square(a1.real() * a1.real() - a1.imag() * a1.imag(), 2.0L * a1.real() * a1.imag());
    const Wide d = std::sqrt(square - 4.0L * a0);
    const Wide plus = d - a1, minus = -(d + a1);
    const Wide w = size(plus) < size(minus) ? minus : plus;
    if (size(w) == 0.0L)
        return;

    const Extended re = 2.0L * a0.real(), im = 2.0L * a0.imag();
    const Extended norm = w.real() * w.real() + w.imag() * w.imag();
    b = Complex(static_cast<Real>(0.5L * w.real()), static_cast<Real>(0.5L * w.imag()));
    c = Complex(static_cast<Real>((re * w.real() + im * w.imag()) / norm),
                static_cast<Real>((im * w.real() - re * w.imag()) / norm));
}

// Horner's rule. A sum takes the coefficients one by one, value := value x + a(k); several sums go through one loop, so
// that the latency of each recurrence hides behind the others.
//
// Inside the unit circle the coefficients are taken downwards with x = z, the value starting from the leading
// coefficient. Outside, z^n would overflow: they are taken upwards with x = 1 / z, the value starting from zero, and a
// last step adds the leading coefficient. That gives p(z) / z^n.

/// Sum of a polynomial's terms.
struct HornerSum
{
    Vector<const Complex> a;
    Complex x, value;

    void add(const Complex& coefficient) noexcept { value = multiply(value, x) + coefficient; }
    void take(Index k) noexcept { add(a(k)); }
};

/// Sum of the sizes of the terms, in the precision of T.
template <class T>
struct HornerSizeSum
{
    Vector<const Complex> a;
    T x, value;

    void add(Real size) noexcept { value = value * x + size; }
    void take(Index k) noexcept { add(abs1(a(k))); }
};

/// Sum of the weights, the real parts of w.
struct HornerWeightSum
{
    Vector<const Complex> w;
    Real x, value;

    void add(Real weight) noexcept { value = value * x + weight; }
    void take(Index k) noexcept { add(w(k).real()); }
};

template <class... Sum>
void horner_upwards(Index first, Index n, Sum&... sums) noexcept
{
    for (Index k = first; k <= n; ++k)
        (sums.take(k), ...);
}

template <class... Sum>
void horner_downwards(Index n, Sum&... sums) noexcept
{
    for (Index k = n; k >= 1; --k)
        (sums.take(k), ...);
}

/// Bound of |p(z)| on the circle |z| = r: r^n + sum size(a(k)) r^(k-1); for r > 1 the same divided by r^n.
template <class T>
T circle_bound(const Complex* a, Index n, T r) noexcept
{
    if (r > T(1)) {
        HornerSizeSum<T> sum{Vector(a), T(1) / r, T(0)};
        horner_upwards(1, n, sum);
        sum.add(1.0);
        return sum.value;
    }
    HornerSizeSum<T> sum{Vector(a), r, T(1)};
    horner_downwards(n, sum);
    return sum.value;
}

} // namespace tessel
