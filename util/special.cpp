#include "util/special.h"

#include "common/complex_ops.h"
#include "common/elementary.h"
#include "common/views.h"

#include <cmath>

namespace tessel {

namespace {

/// Linear congruential sequence j -> (1366 j + 150889) mod 714025, drawn through a table: each value drawn picks the
/// place of the next, and the place is filled anew. Every intermediate stays below 2^31.
class ShuffledGenerator
{
public:
    Real draw()
    {
        if (idum_ < 0) // only before the first draw
            fill();
        const Vector<Integer> ir(ir_);
        const Integer j = 1 + kPlaces * iy_ / kModulus;
        iy_ = ir(j);
        advance();
        ir(j) = idum_;
        return iy_ * kReciprocal;
    }

private:
    static constexpr Integer kModulus = 714025, kMultiplier = 1366, kIncrement = 150889, kPlaces = 97;
    static constexpr Real kReciprocal = 1.4005111865831029e-06; // 1 / 714025

    void advance() { idum_ = (kMultiplier * idum_ + kIncrement) % kModulus; }
    void fill()
    {
        idum_ = (kIncrement - idum_) % kModulus;
        for (Integer& place : ir_) {
            advance();
            place = idum_;
        }
        advance();
        iy_ = idum_;
    }

    Integer idum_ = -3297351; // current value of the sequence; negative until the table is filled
    Integer iy_ = 0;          // last value drawn
    Integer ir_[kPlaces] = {};
};

constinit ShuffledGenerator generator;

} // namespace

extern "C" Real SINC(const Real& X)
{
    const Real x = X;
    return std::fabs(x) < 1e-30 ? 1.0 : sine_cosine(x).sine / x;
}

extern "C" Complex FRESNEL_CS(const Real& X)
{
    const Real x = X, a = std::fabs(x);

    // A&S 7.3.32 and 7.3.33, |error| <= 2e-3. The coefficients are single-precision values.
    const Real f = (Real{0.926f} * a + 1.0) / ((Real{3.104f} * a + Real{1.792f}) * a + 2.0);
    const Real g = 1.0 / (((Real{6.670f} * a + Real{3.492f}) * a + Real{4.142f}) * a + 2.0);

    // A&S 7.3.9 and 7.3.10.
    const auto [sine, cosine] = sine_cosine(x * x * 3.141592653589793 * 0.5);
    const Real c = 0.5 + f * sine - g * cosine;
    const Real s = 0.5 - f * cosine - g * sine;
    return x < 0.0 ? Complex(-c, s) : Complex(c, -s);
}

extern "C" Real CPHASE(const Complex& Z)
{
    const Complex z = Z;
    if (modulus_extended(z) < 1e-300) // false for NaN
        return 0.0;
    return arc_tangent(z.imag(), z.real());
}

extern "C" Real RECIPES_RAN2()
{
    return generator.draw();
}

extern "C" Real GAUSS_RAN(const Real& MEAN, const Real& SIGMA)
{
    Real sum = 0.0;
    for (int k = 1; k <= 12; ++k)
        sum += generator.draw();
    return (sum - 6.0) * SIGMA + MEAN;
}

} // namespace tessel
