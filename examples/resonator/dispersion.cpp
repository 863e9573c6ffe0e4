#include "examples/resonator/dispersion.h"

#include <array>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <string>

namespace resonator {

namespace {

/// What the system needs beside its unknowns. The callback has no pointer for the host's own data.
thread_local struct
{
    double loss, k;
} relation;

/// The relation D(u) = 0 in the unknowns (Re u, Im u) of u = s dt. D is analytic, so that by Cauchy and Riemann its
/// Jacobian is [Re D', -Im D'; Im D', Re D'].
void evaluate(const std::int32_t*, const double* x, double* value, double* jacobian, const std::int32_t* rows,
              std::int32_t* flag)
{
    const Complex u(x[0], x[1]), half = std::sinh(0.5 * u);
    if (*flag == 1) {
        const Complex d = half * half + 0.5 * relation.loss * std::sinh(u) + relation.k;
        value[0] = d.real();
        value[1] = d.imag();
    } else {
        const Complex slope = 0.5 * std::sinh(u) + 0.5 * relation.loss * std::cosh(u);
        double* const second = jacobian + *rows; // column by column
        jacobian[0] = second[1] = slope.real();
        jacobian[1] = slope.imag();
        second[0] = -slope.imag();
    }
}

} // namespace

Complex pole_from_dispersion(FDTDCalcAPI& api, const Cavity& cavity, Index m, Index n)
{
    using std::numbers::pi;
    const double kx = pi * static_cast<double>(m) / static_cast<double>(cavity.cells_x);
    const double ky = pi * static_cast<double>(n) / static_cast<double>(cavity.cells_y);
    const double courant = cavity.courant, sine_x = std::sin(0.5 * kx), sine_y = std::sin(0.5 * ky);
    relation = {cavity.loss(), courant * courant * (sine_x * sine_x + sine_y * sine_y)};

    const std::int32_t unknowns = 2, work_size = unknowns * (unknowns + 13) / 2, precision = 1;
    const double tolerance = 1e4 * api.dpmpar(&precision);
    std::array<double, 2> x{0.0, courant * std::hypot(kx, ky)}, value{};
    std::array<double, 4> jacobian{};
    std::array<double, work_size> work{};
    std::int32_t info = 0;
    api.hybrj1(evaluate, &unknowns, x.data(), value.data(), jacobian.data(), &unknowns, &tolerance, &info, work.data(),
               &work_size);
    if (info != 1)
        throw std::runtime_error("no zero of the dispersion relation found for mode (" + std::to_string(m) + ", " +
                                 std::to_string(n) + "): HYBRJ1 says " + std::to_string(info));
    return Complex(x[0], x[1]) / cavity.time_step();
}

} // namespace resonator
