/// Values for which every routine must return: not finite, subnormal, huge, tiny, of every exponent, and mixtures.
#pragma once

#include "common/types.h"
#include "tests/support/random.h"

#include <bit>
#include <cmath>
#include <complex>
#include <iterator>
#include <limits>
#include <vector>

namespace tessel::testing {

enum class Values
{
    ordinary,  ///< uniform in [-1, 1)
    few,       ///< small integers: ties, cancellation, exact zeros
    special,   ///< zeros, infinities, NaN, the ends of the range, thresholds
    subnormal, ///< and zero
    wide,      ///< every exponent equally likely
    bits,      ///< any pattern
    mixed      ///< each value of a random kind
};
constexpr int kValueKinds = 7;

inline Values any_kind(Random& random)
{
    return static_cast<Values>(random.below(kValueKinds));
}

inline Real extreme_value(Random& random, Values kind)
{
    static constexpr Real inf = std::numeric_limits<Real>::infinity(), nan = std::numeric_limits<Real>::quiet_NaN(),
                          least = std::numeric_limits<Real>::denorm_min(), normal = std::numeric_limits<Real>::min(),
                          most = std::numeric_limits<Real>::max(), eps = std::numeric_limits<Real>::epsilon();
    static constexpr Real special[] = {0.0,    -0.0, 1.0,   -1.0, inf,   -inf,   nan,    least,
                                       normal, most, -most, eps,  1e154, -1e154, 1e-162, 1e-300};
    switch (kind) {
    case Values::ordinary:
        return random.uniform(-1.0, 1.0);
    case Values::few:
        return random.below(5) - 2;
    case Values::special:
        return special[random.below(static_cast<int>(std::size(special)))];
    case Values::subnormal:
        return random.uniform(-1.0, 1.0) * 0x1p-1022;
    case Values::wide:
        return std::ldexp(random.uniform(-1.0, 1.0), random.below(2098) - 1073);
    case Values::bits:
        return std::bit_cast<Real>(random.bits());
    case Values::mixed:
        break;
    }
    return extreme_value(random, static_cast<Values>(random.below(kValueKinds - 1)));
}

inline Complex extreme_complex(Random& random, Values kind)
{
    const Real re = extreme_value(random, kind);
    return {re, random.below(4) == 0 ? 0.0 : extreme_value(random, kind)};
}

inline std::vector<Real> extreme_reals(Random& random, std::size_t n)
{
    const Values kind = any_kind(random);
    std::vector<Real> values(n);
    for (Real& value : values)
        value = extreme_value(random, kind);
    return values;
}

/// An array: a sum of exponentials, an impulse, or values of one kind; in some cases scaled as a whole,
/// in some with a few elements replaced by values of another kind.
inline std::vector<Complex> extreme_complexes(Random& random, std::size_t n)
{
    std::vector<Complex> values(n);
    switch (const int shape = random.below(4); shape) {
    case 0:
        for (int terms = 1 + random.below(4); terms > 0; --terms) {
            const Real size = random.uniform(0.5, 1.2), phase = random.uniform(-4.0, 4.0);
            const Complex z = std::polar(size, phase);
            Complex power = random.complex();
            for (Complex& value : values) {
                value += power;
                power *= z;
            }
        }
        break;
    case 1:
        if (n > 0)
            values[static_cast<std::size_t>(random.below(static_cast<int>(n)))] =
                extreme_complex(random, Values::mixed);
        break;
    default:
        const Values kind = any_kind(random);
        for (Complex& value : values)
            value = extreme_complex(random, kind);
    }
    if (random.below(3) == 0) {
        const Real scale = std::ldexp(1.0, random.below(2098) - 1073);
        for (Complex& value : values)
            value *= scale;
    }
    if (n > 0 && random.below(3) == 0)
        for (int count = 1 + random.below(3); count > 0; --count)
            values[static_cast<std::size_t>(random.below(static_cast<int>(n)))] =
                extreme_complex(random, Values::special);
    return values;
}

} // namespace tessel::testing
