/// Equality to the bit.
#pragma once

#include "common/types.h"

#include <cmath>
#include <cstddef>
#include <cstring>
#include <type_traits>

namespace tessel::testing {

/// Whether two arrays of real or complex values have the same bits. Which NaN an operation on two of them returns is
/// left to the machine.
template <class T>
bool same_bits(const T* a, const T* b, std::size_t count)
{
    const auto *const x = reinterpret_cast<const Real*>(a), *const y = reinterpret_cast<const Real*>(b);
    const std::size_t parts = std::is_same_v<T, Complex> ? 2 : 1;
    for (std::size_t i = 0; i < count * parts; ++i)
        if (std::memcmp(&x[i], &y[i], sizeof(Real)) != 0 && !(std::isnan(x[i]) && std::isnan(y[i])))
            return false;
    return true;
}

} // namespace tessel::testing
