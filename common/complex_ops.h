/// Complex arithmetic by name: each rule once, with its order of operations.
///
/// The operators * and / of std::complex are not used: they compile to __muldc3 and __divdc3, which repair NaNs, scale
/// their operands and so return other bits (and take several times as long). + and - of std::complex are plain.
#pragma once

#include "common/types.h"

#include <cmath>

namespace tessel {

/// |re| + |im|: the cheap modulus of exact-zero tests, the size of a coefficient.
inline Real abs1(const Complex& z) noexcept
{
    return std::fabs(z.real()) + std::fabs(z.imag());
}

/// The same of a real value.
inline Real abs1(Real x) noexcept
{
    return std::fabs(x);
}

/// sqrt(re^2 + im^2) in extended precision: the squares can neither overflow nor underflow.
inline Extended modulus_extended(const Complex& z) noexcept
{
    const Extended re = z.real(), im = z.imag();
    return std::sqrt(re * re + im * im);
}

/// sqrt(re^2 + im^2) in extended precision, rounded once.
inline Real modulus(const Complex& z) noexcept
{
    return static_cast<Real>(modulus_extended(z));
}

/// The modulus of a real value, formed in the same way.
inline Real modulus(Real x) noexcept
{
    const Extended re = x;
    return static_cast<Real>(std::sqrt(re * re));
}

/// Square of the modulus: the modulus rounded to double, then squared.
inline Real modulus_squared(const Complex& z) noexcept
{
    const Real r = modulus(z);
    return r * r;
}

/// a b by the four products, neither scaled nor repaired.
inline Complex multiply(const Complex& a, const Complex& b) noexcept
{
    return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

inline Real multiply(Real a, Real b) noexcept
{
    return a * b;
}

/// Real factor times complex value.
inline Complex multiply(Real a, const Complex& b) noexcept
{
    return {a * b.real(), a * b.imag()};
}

/// a conj(b) / (re(b)^2 + im(b)^2), one division for each part, without rescaling: |b| must lie within about
/// 1e-153..1e153.
inline Complex divide_plain(const Complex& a, const Complex& b) noexcept
{
    const Real d = b.real() * b.real() + b.imag() * b.imag();
    return {(a.real() * b.real() + a.imag() * b.imag()) / d, (a.imag() * b.real() - a.real() * b.imag()) / d};
}

/// The same of real values: not a / b, whose bits differ.
inline Real divide_plain(Real a, Real b) noexcept
{
    return (a * b) / (b * b);
}

/// a / b formed in extended precision and each part rounded once: no double overflows or underflows on the way.
inline Complex divide_extended(const Complex& a, const Complex& b) noexcept
{
    const Extended ar = a.real(), ai = a.imag(), br = b.real(), bi = b.imag();
    const Extended d = br * br + bi * bi;
    return {static_cast<Real>((ar * br + ai * bi) / d), static_cast<Real>((ai * br - ar * bi) / d)};
}

/// a conj(b) times the reciprocal of |b|^2, all in extended precision, each part rounded once.
inline Complex divide_by_reciprocal(const Complex& a, const Complex& b) noexcept
{
    const Extended ar = a.real(), ai = a.imag(), br = b.real(), bi = b.imag();
    const Extended r = 1.0L / (br * br + bi * bi);
    return {static_cast<Real>((ar * br + ai * bi) * r), static_cast<Real>((ai * br - ar * bi) * r)};
}

/// The value of modulus |a| with the phase of b: |a| * b / |b|, from left to right.
inline Complex csign(const Complex& a, const Complex& b) noexcept
{
    const Real size = modulus(a), unit = modulus(b);
    return {size * b.real() / unit, size * b.imag() / unit};
}
inline Real csign(Real a, Real b) noexcept
{
    return modulus(a) * b / modulus(b);
}

/// The conjugate, of the same type: std::conj makes a complex value of a real one.
inline Complex conjugate(const Complex& z) noexcept
{
    return std::conj(z);
}
inline Real conjugate(Real x) noexcept
{
    return x;
}

} // namespace tessel
