#include "modes/fourier.h"

#include "common/elementary.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <type_traits>
#include <vector>

namespace tessel::modes {

namespace {

constexpr double kHalfRoot3 = 0.86602540378443864676; // sin 60 degrees
constexpr double kCos72 = 0.30901699437494742410, kSin72 = 0.95105651629515357212;
constexpr double kCos144 = -0.80901699437494742410, kSin144 = 0.58778525229247312917;

/// z_j := sum_i z_i exp(-2 pi i i j / P) of P numbers.
template <int P>
inline void butterfly(double (&re)[P], double (&im)[P])
{
    if constexpr (P == 2) {
        const double r = re[1], i = im[1];
        re[1] = re[0] - r, im[1] = im[0] - i;
        re[0] += r, im[0] += i;
    } else if constexpr (P == 3) {
        const double sr = re[1] + re[2], si = im[1] + im[2];
        const double dr = kHalfRoot3 * (re[1] - re[2]), di = kHalfRoot3 * (im[1] - im[2]);
        const double mr = re[0] - 0.5 * sr, mi = im[0] - 0.5 * si;
        re[0] += sr, im[0] += si;
        re[1] = mr + di, im[1] = mi - dr;
        re[2] = mr - di, im[2] = mi + dr;
    } else if constexpr (P == 4) {
        const double ar = re[0] + re[2], ai = im[0] + im[2], br = re[0] - re[2], bi = im[0] - im[2];
        const double cr = re[1] + re[3], ci = im[1] + im[3], dr = re[1] - re[3], di = im[1] - im[3];
        re[0] = ar + cr, im[0] = ai + ci;
        re[1] = br + di, im[1] = bi - dr;
        re[2] = ar - cr, im[2] = ai - ci;
        re[3] = br - di, im[3] = bi + dr;
    } else {
        static_assert(P == 5);
        const double ar = re[1] + re[4], ai = im[1] + im[4], br = re[1] - re[4], bi = im[1] - im[4];
        const double cr = re[2] + re[3], ci = im[2] + im[3], dr = re[2] - re[3], di = im[2] - im[3];
        const double er = re[0] + kCos72 * ar + kCos144 * cr, ei = im[0] + kCos72 * ai + kCos144 * ci;
        const double fr = re[0] + kCos144 * ar + kCos72 * cr, fi = im[0] + kCos144 * ai + kCos72 * ci;
        const double gr = kSin72 * br + kSin144 * dr, gi = kSin72 * bi + kSin144 * di;
        const double hr = kSin144 * br - kSin72 * dr, hi = kSin144 * bi - kSin72 * di;
        re[0] += ar + cr, im[0] += ai + ci;
        re[1] = er + gi, im[1] = ei - gr;
        re[2] = fr + hi, im[2] = fi - hr;
        re[3] = fr - hi, im[3] = fi + hr;
        re[4] = er - gi, im[4] = ei + gr;
    }
}

/// The two parts of a row of numbers.
template <class T>
struct Parts
{
    T *re, *im;
};

/// One stage of radix P on `stride` interleaved transforms of length P m. It leaves P stride of them, of length m:
///
///     to(q + stride (P k + j)) = w^(j k) sum_i from(q + stride (k + m i)) exp(-2 pi i i j / P),
///     w = exp(-2 pi i / (P m))
template <int P, class Stride>
void stage(Parts<const double> from, Parts<double> to, Parts<const double> roots, std::size_t m, Stride stride)
{
    const std::size_t s = stride, apart = s * m;
    for (std::size_t k = 0; k < m; ++k) {
        double wr[P], wi[P];
        for (std::size_t j = 1; j < P; ++j) {
            wr[j] = roots.re[j * k * s];
            wi[j] = roots.im[j * k * s];
        }
        const double* __restrict xr = from.re + k * s, * __restrict xi = from.im + k * s;
        double* __restrict yr = to.re + k * P * s, * __restrict yi = to.im + k * P * s;
        for (std::size_t q = 0; q < s; ++q) {
            double re[P], im[P];
            for (std::size_t i = 0; i < P; ++i) {
                re[i] = xr[q + i * apart];
                im[i] = xi[q + i * apart];
            }
            butterfly(re, im);
            yr[q] = re[0];
            yi[q] = im[0];
            for (std::size_t j = 1; j < P; ++j) {
                yr[q + j * s] = wr[j] * re[j] - wi[j] * im[j];
                yi[q + j * s] = wr[j] * im[j] + wi[j] * re[j];
            }
        }
    }
}

template <int P>
void stage_of(Parts<const double> from, Parts<double> to, Parts<const double> roots, std::size_t m, std::size_t stride)
{
    // Strides that the compiler knows make the first stages faster.
    if (stride == 1)
        stage<P>(from, to, roots, m, std::integral_constant<std::size_t, 1>());
    else if (stride == 4)
        stage<P>(from, to, roots, m, std::integral_constant<std::size_t, 4>());
    else
        stage<P>(from, to, roots, m, stride);
}

} // namespace

std::size_t fast_length(std::size_t n)
{
    std::size_t best = 2;
    while (best < n)
        best *= 2;
    for (std::size_t five = 1; five < 2 * n; five *= 5)
        for (std::size_t three = five; three < 2 * n; three *= 3) {
            std::size_t length = 2 * three;
            while (length < n)
                length *= 2;
            best = std::min(best, length);
        }
    return best;
}

Fourier::Fourier(std::size_t n) : size_(n)
{
    for (Row* row : {&cosine_, &sine_, &re_, &im_, &toRe_, &toIm_})
        *row = std::make_unique_for_overwrite<double[]>(n);
    // The sine and cosine of some 2 n^(1/2) angles serve all: of a root next to 1 the difference from 1 is kept,
    //
    //     z w = z + z (w - 1),
    //
    // which is right almost to the last bit with z in two parts.
    const auto width = static_cast<std::size_t>(std::sqrt(static_cast<double>(n))) + 1;
    const auto at = [n](std::size_t k) {
        const Extended angle = -2 * std::numbers::pi_v<Extended> * static_cast<Extended>(k) / static_cast<Extended>(n);
        return exponential(ExtendedComplex(0, angle));
    };
    std::vector<double> re(width), im(width);
    for (std::size_t k = 0; k < width; ++k) {
        const ExtendedComplex w = at(k);
        re[k] = static_cast<double>(w.real() - 1);
        im[k] = static_cast<double>(w.imag());
    }
    for (std::size_t begin = 0; begin < n; begin += width) {
        const ExtendedComplex z = at(begin);
        const auto c = static_cast<double>(z.real()), s = static_cast<double>(z.imag());
        const auto cl = static_cast<double>(z.real() - static_cast<Extended>(c));
        const auto sl = static_cast<double>(z.imag() - static_cast<Extended>(s));
        const std::size_t count = std::min(width, n - begin);
        for (std::size_t k = 0; k < count; ++k) {
            cosine_[begin + k] = c + (cl + (c * re[k] - s * im[k]));
            sine_[begin + k] = s + (sl + (c * im[k] + s * re[k]));
        }
    }
}

void Fourier::forward()
{
    std::size_t left = size_;
    for (std::size_t stride = 1; left > 1;) {
        const std::size_t radix = left % 4 == 0 ? 4 : left % 2 == 0 ? 2 : left % 3 == 0 ? 3 : 5;
        const auto run = radix == 4 ? stage_of<4> : radix == 2 ? stage_of<2> : radix == 3 ? stage_of<3> : stage_of<5>;
        left /= radix;
        run({re_.get(), im_.get()}, {toRe_.get(), toIm_.get()}, {cosine_.get(), sine_.get()}, left, stride);
        re_.swap(toRe_);
        im_.swap(toIm_);
        stride *= radix;
    }
}

void Fourier::backward()
{
    // of the numbers with real and imaginary parts exchanged
    re_.swap(im_);
    forward();
    re_.swap(im_);
}

} // namespace tessel::modes
