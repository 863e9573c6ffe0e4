/// The types of the small matrices of a field.
#pragma once

#include <Eigen/Core>

#include <complex>

namespace tessel::fields {

using Extended = long double;
using ExtendedComplex = std::complex<long double>;
using ExtendedMatrix = Eigen::Matrix<Extended, Eigen::Dynamic, Eigen::Dynamic>;
using ExtendedVector = Eigen::Matrix<Extended, Eigen::Dynamic, 1>;
using Matrix = Eigen::MatrixXd;
using Vector = Eigen::VectorXd;
using Index = Eigen::Index;

constexpr Extended kTwoPi = 6.28318530717958647692528676655900577L;

/// Product of complex numbers, neither scaled nor repaired.
inline ExtendedComplex product(ExtendedComplex a, ExtendedComplex b)
{
    return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

} // namespace tessel::fields
