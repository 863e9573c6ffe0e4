/// The scalar types of every interface of the library.
#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>

namespace tessel {

using Integer = std::int32_t;         ///< integers, by reference
using Real = double;                  ///< IEEE 754 binary64
using Complex = std::complex<double>; ///< real part first, 16 bytes; arrays are arrays of such pairs
using Logical = std::int32_t;         ///< true when its lowest bit is set
using CharLen = std::int32_t;         ///< length of a character argument: by value, exactly 32 bits wide
using Extended = long double;         ///< the 80-bit format of the x87 unit, where extended precision is asked for
using Index = std::ptrdiff_t;         ///< subscripts and extents inside the routines: products cannot overflow

static_assert(sizeof(Complex) == 2 * sizeof(double) && sizeof(Extended) > sizeof(double));

/// Truth of a logical argument: only the lowest bit counts.
constexpr bool is_true(Logical value) noexcept
{
    return (value & 1) != 0;
}

} // namespace tessel
