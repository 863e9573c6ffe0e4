#include "examples/resonator/cavity.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace resonator {

namespace {

constexpr double kLightSpeed = 299792458.0; // m/s, exact
constexpr double kMu0 = 4e-7 * std::numbers::pi;
constexpr double kEpsilon0 = 1.0 / (kMu0 * kLightSpeed * kLightSpeed);

/// The pulse is cut this many standard deviations before and behind its peak, where it has fallen to 1e-14: the step
/// of the cut must not excite modes that the fit would find. Its spectrum, a Gaussian too, falls as fast.
constexpr double kPulseReach = 8.0;

double pulse_deviation(const Cavity& cavity)
{
    return 1.0 / (2.0 * std::numbers::pi * cavity.bandwidth);
}

/// Between the steps n and n + 1, from the middle of the pulse [s].
double time_in_pulse(const Cavity& cavity, Index n)
{
    return (static_cast<double>(n) + 0.5 - 0.5 * static_cast<double>(cavity.pulse_steps())) * cavity.time_step();
}

/// What the current takes from the field at the source after step n [V/m], as the program rounds it.
double kick_after(const Cavity& cavity, Index n)
{
    return cavity.coefficients().curl / cavity.cell * cavity.current_after(n);
}

constexpr long double kPi = std::numbers::pi_v<long double>;

/// A mode sin(m pi i/Nx) sin(n pi j/Ny) of the discrete cavity.
struct Shape
{
    Index m, n;
    long double q;      ///< turns the field into its second difference in time, without loss
    long double driven; ///< couples the field at the source to the mode
    long double seen;   ///< and the mode to the field at the probe
};

/// sin(pi waves node / cells) with its argument reduced while it is whole
long double sine(Index waves, Index node, Index cells)
{
    return std::sin(kPi * static_cast<long double>(waves * node % (2 * cells)) / static_cast<long double>(cells));
}

std::vector<Shape> shapes(const Cavity& cavity)
{
    const auto [keep, curl, induce] = cavity.coefficients();
    const Index nx = cavity.cells_x, ny = cavity.cells_y;
    std::vector<Shape> result;
    for (Index m = 1; m < nx; ++m)
        for (Index n = 1; n < ny; ++n) {
            const long double sine_x = sine(m, 1, 2 * nx), sine_y = sine(n, 1, 2 * ny);
            result.push_back(
                {m, n, 4.0L * curl * induce * (sine_x * sine_x + sine_y * sine_y),
                 4.0L / static_cast<long double>(nx * ny) * sine(m, cavity.source.i, nx) * sine(n, cavity.source.j, ny),
                 sine(m, cavity.probe.i, nx) * sine(n, cavity.probe.j, ny)});
        }
    return result;
}

} // namespace

double Cavity::time_step() const
{
    return courant * cell * std::sqrt(permittivity) / kLightSpeed;
}

double Cavity::loss() const
{
    return conductivity * time_step() / (2.0 * permittivity * kEpsilon0);
}

Cavity::Coefficients Cavity::coefficients() const
{
    const double a = loss(), epsilon = permittivity * kEpsilon0;
    return {(1.0 - a) / (1.0 + a), time_step() / (epsilon * cell) / (1.0 + a), time_step() / (kMu0 * cell)};
}

Index Cavity::pulse_steps() const
{
    return static_cast<Index>(std::ceil(2.0 * kPulseReach * pulse_deviation(*this) / time_step()));
}

double Cavity::envelope_after(Index n) const
{
    if (n < 0 || n >= pulse_steps())
        return 0.0;
    const double u = time_in_pulse(*this, n) / pulse_deviation(*this);
    return std::exp(-0.5 * u * u);
}

double Cavity::current_after(Index n) const
{
    return current * envelope_after(n) * std::sin(2.0 * std::numbers::pi * carrier * time_in_pulse(*this, n));
}

Complex Cavity::current_spectrum(double frequency) const
{
    const Complex step = std::polar(1.0, -2.0 * std::numbers::pi * frequency * time_step());
    Complex sum = 0.0; // by Horner's rule
    for (Index n = pulse_steps(); n-- > 0;)
        sum = sum * step + current_after(n);
    return sum * std::sqrt(step) * time_step(); // the first current flows after half a step
}

Record simulate(const Cavity& cavity, const OnStep& on_step)
{
    const Index nx = cavity.cells_x, ny = cavity.cells_y;
    const auto [keep_e, step_e, step_h] = cavity.coefficients();

    // Ez on the nodes; Hx and Hy on the edges behind them in y and in x. Lines of equal i are contiguous.
    const Index line = ny + 1;
    const auto nodes = static_cast<std::size_t>((nx + 1) * line);
    std::vector<double> ez(nodes), hx(nodes), hy(nodes);
    double& source = ez[static_cast<std::size_t>(cavity.source.i * line + cavity.source.j)];
    const double& probe = ez[static_cast<std::size_t>(cavity.probe.i * line + cavity.probe.j)];

    Record record{cavity.time_step(), {}};
    record.values.reserve(static_cast<std::size_t>(cavity.steps) + 1);
    record.values.push_back(probe);
    for (Index step = 0; step < cavity.steps; ++step) {
        // mu dHx/dt = -dEz/dy,  mu dHy/dt = dEz/dx
        for (Index i = 0; i < nx; ++i) {
            const double *e = &ez[static_cast<std::size_t>(i * line)], *e_next = e + line;
            double *x = &hx[static_cast<std::size_t>(i * line)], *y = &hy[static_cast<std::size_t>(i * line)];
            for (Index j = 0; j < ny; ++j)
                x[j] -= step_h * (e[j + 1] - e[j]);
            for (Index j = 0; j < ny; ++j)
                y[j] += step_h * (e_next[j] - e[j]);
        }
        // epsilon dEz/dt + sigma Ez = dHy/dx - dHx/dy - J inside; Ez stays zero on the walls.
        for (Index i = 1; i < nx; ++i) {
            double* e = &ez[static_cast<std::size_t>(i * line)];
            const double *x = &hx[static_cast<std::size_t>(i * line)], *y = &hy[static_cast<std::size_t>(i * line)];
            const double* y_before = y - line;
            for (Index j = 1; j < ny; ++j)
                e[j] = keep_e * e[j] + step_e * ((y[j] - y_before[j]) - (x[j] - x[j - 1]));
        }
        source -= kick_after(cavity, step);
        record.values.push_back(probe);
        on_step(step + 1, ez);
    }
    return record;
}

long double CavityMode::frequency() const
{
    return pole.imag() / (2.0L * kPi);
}

long double CavityMode::quality() const
{
    return pole.imag() / (-2.0L * pole.real());
}

/// With the magnetic field eliminated, the amplitude e of the mode sin(m pi i/Nx) sin(n pi j/Ny) obeys
///
///     e(k+1) - (1 + c - q) e(k) + c e(k-1) = g(k),    q = 4 b h (sin^2(m pi/(2 Nx)) + sin^2(n pi/(2 Ny))),
///
/// with the coefficients c to keep, b of the curl and h to induce, and the change g of the current's effect. The roots
/// of z^2 - (1 + c - q) z + c are z = sqrt(c) exp(+-i theta), 4 sqrt(c) sin^2(theta/2) = q - (1 - sqrt(c))^2. One unit
/// on the right hand side at step l answers with (z^(k-l) - conj(z)^(k-l)) / (z - conj(z)); summed over the pulse,
/// behind its end, this is r z^k + conj(r z^k).
std::vector<CavityMode> exact_modes(const Cavity& cavity)
{
    const long double dt = cavity.time_step(), keep = cavity.coefficients().keep;
    const long double root = std::sqrt(keep), less = (1.0L - keep) / (1.0L + root), decay = -0.5L * std::log(keep);
    std::vector<long double> changes;
    for (Index l = 0; l <= cavity.pulse_steps(); ++l)
        changes.push_back(static_cast<long double>(kick_after(cavity, l - 1)) - kick_after(cavity, l));

    std::vector<CavityMode> modes;
    for (const Shape& shape : shapes(cavity)) {
        const long double angle = 2.0L * std::asin(std::sqrt((shape.q - less * less) / (4.0L * root)));
        const ExtendedComplex step(-decay, angle), z = std::exp(step), back = std::exp(-step);

        ExtendedComplex sum = 0.0L; // of change(l) z^-l, by Horner's rule
        for (auto change = changes.rbegin(); change != changes.rend(); ++change)
            sum = sum * back + *change;
        const ExtendedComplex strength = shape.driven * sum / (z - std::conj(z));
        modes.push_back({shape.m, shape.n, step / dt, shape.seen * strength, strength});
    }
    return modes;
}

std::pair<std::vector<long double>, std::vector<long double>> shape_of(const Cavity& cavity, const CavityMode& mode)
{
    std::pair<std::vector<long double>, std::vector<long double>> shape;
    for (Index i = 0; i <= cavity.cells_x; ++i)
        shape.first.push_back(sine(mode.m, i, cavity.cells_x));
    for (Index j = 0; j <= cavity.cells_y; ++j)
        shape.second.push_back(sine(mode.n, j, cavity.cells_y));
    return shape;
}

/// In the equation above with e(k) = E z^k and I(k+1/2) = z^(k+1/2), |z| = 1.
std::vector<Complex> exact_response(const Cavity& cavity, const std::vector<double>& frequencies)
{
    const auto [keep, curl, induce] = cavity.coefficients();
    const std::vector<Shape> all = shapes(cavity);
    std::vector<Complex> result;
    result.reserve(frequencies.size());
    for (const double frequency : frequencies) {
        const Complex half = std::polar(1.0, std::numbers::pi * frequency * cavity.time_step()), z = half * half;
        const Complex unshifted = z - 1.0 - keep + keep * std::conj(z);
        Complex sum = 0.0;
        for (const Shape& shape : all) {
            const Complex denominator = unshifted + static_cast<double>(shape.q);
            sum += static_cast<double>(shape.driven * shape.seen) / std::norm(denominator) * std::conj(denominator);
        }
        result.push_back(curl / cavity.cell * (std::conj(half) - half) * sum);
    }
    return result;
}

double distance_from_closed_form(const std::vector<CavityMode>& exact, const Cavity& cavity, const Record& record)
{
    double distance = 0.0, peak = 0.0;
    for (Index k = cavity.pulse_steps(); k < record.size(); k += 24) {
        double sum = 0.0;
        for (const CavityMode& mode : exact)
            sum += 2.0 * std::real(Complex(mode.residue) * std::exp(Complex(mode.pole) * record.time(k)));
        distance = std::max(distance, std::abs(sum - record.at(k)));
        peak = std::max(peak, std::abs(record.at(k)));
    }
    return distance / peak;
}

} // namespace resonator
