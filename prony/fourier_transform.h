/// Values of a polynomial on the unit circle, by a fast Fourier transform.
#pragma once

#include "common/complex_ops.h"
#include "common/types.h"

#include <cmath>
#include <complex>

namespace tessel {

/// Discrete Fourier transform with the positive sign, of any length that is a power of two:
///
///     value(k) = sum_l a(l) exp(2 pi i k l / m),    k = 0..m-1.
///
/// Halves the problem from the top: a mod (x^(2L) - c^2) gives a mod (x^L - c) and a mod (x^L + c), down to L = 1. So
/// it works in place on a natural order and leaves the values in bit-reversed order, value(k) at `bit_reversed(k, m)`.
/// The table of the constants c of a length is the beginning of that of twice the length: it only ever grows.
///
/// @par Source  C. M. Fiduccia, Polynomial evaluation via the division algorithm, Proc. 4th ACM STOC (1972) 88.
class FourierTransform
{
public:
    /// `table` holds half as many elements as the largest length, and at least 2.
    explicit FourierTransform(Complex* table) noexcept : c_(table)
    {
        c_[0] = 1.0;
        c_[1] = stage_root_;
    }

    void operator()(Complex* a, Index m) noexcept
    {
        grow(m / 2);
        for (Index half = m / 2; half >= 1; half /= 2)
            for (Index first = 0, b = 0; first < m; first += 2 * half, ++b)
                for (Index k = first; k < first + half; ++k) {
                    const Complex y = multiply(c_[b], a[k + half]);
                    a[k + half] = a[k] - y;
                    a[k] += y;
                }
    }

    /// The root of unity at which the value at this place is taken, whatever the length, up to the longest so far.
    Complex root(Index place) const noexcept { return place % 2 == 0 ? c_[place / 2] : -c_[place / 2]; }

    /// exp(2 pi i / (4 m)), a quarter of the spacing: the root of the table that is a spacing from 1, halved twice.
    Complex quarter_step(Index m) const noexcept { return half_angle(half_angle(c_[m / 4])); }

    /// The bits of k, of m values, in reversed order.
    static Index bit_reversed(Index k, Index m) noexcept
    {
        Index reversed = 0;
        for (Index bit = 1; bit < m; bit *= 2, k /= 2)
            reversed = 2 * reversed + k % 2;
        return reversed;
    }

private:
    /// The square root of a value on the unit circle, in the right half plane.
    static Complex half_angle(const Complex& z) noexcept
    {
        const Real cosine = std::sqrt(0.5 * (1.0 + z.real()));
        return {cosine, 0.5 * z.imag() / cosine};
    }

    /// c(L + j) = c(j) times the root of the stage, each stage's root the square root of the last one's. The second
    /// half of a stage mirrors the first at the imaginary axis: real polynomials then have exactly conjugate values.
    void grow(Index count) noexcept
    {
        for (; ready_ < count; ready_ *= 2) {
            stage_root_ = std::sqrt(stage_root_);
            for (Index j = 0; j < ready_ / 2; ++j) {
                const Complex c = multiply(c_[j], stage_root_);
                c_[ready_ + j] = c;
                c_[2 * ready_ - 1 - j] = Complex(-c.real(), c.imag());
            }
        }
    }

    Complex* c_;
    Complex stage_root_{0.0, 1.0};
    Index ready_ = 2;
};

} // namespace tessel
