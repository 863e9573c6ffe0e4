/// Monic polynomials in extended precision: a(1) + a(2) z + ... + z^n, constant term first.
#pragma once

#include "common/types.h"

#include <complex>
#include <vector>

namespace tessel::testing {

using Wide = std::complex<long double>;

/// The value at z, with the coefficient of z^n.
inline Wide value_at(const std::vector<Complex>& a, const Wide& z, Wide leading = 1.0L)
{
    for (auto coefficient = a.rbegin(); coefficient != a.rend(); ++coefficient)
        leading = leading * z + Wide(*coefficient);
    return leading;
}

/// Sum of the moduli of the terms at z: what rounding errors of the value are measured by.
inline long double size_at(const std::vector<Complex>& a, const Wide& z)
{
    std::vector<Complex> sizes;
    for (const Complex& coefficient : a)
        sizes.emplace_back(std::abs(coefficient));
    return value_at(sizes, std::abs(z)).real();
}

/// (z - zeros(1)) (z - zeros(2)) ... times a(1) + a(2) z + ...
inline std::vector<Wide> expand(const std::vector<Complex>& zeros, std::vector<Wide> a = {1.0L})
{
    for (const Complex& zero : zeros) {
        a.insert(a.begin(), 0.0L);
        for (std::size_t k = 0; k + 1 < a.size(); ++k)
            a[k] -= Wide(zero) * a[k + 1];
    }
    return a;
}

/// Coefficients of the polynomial with these zeros, rounded once.
inline std::vector<Complex> from_zeros(const std::vector<Complex>& zeros)
{
    const std::vector<Wide> a = expand(zeros);
    return {a.begin(), a.end() - 1};
}

} // namespace tessel::testing
