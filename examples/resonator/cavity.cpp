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
/// of the cut must not excite what the fit would see. Its spectrum, a Gaussian too, falls as fast.
constexpr double kPulseReach = 8.0;

double pulse_deviation(const Cavity& cavity)
{
    return 1.0 / (2.0 * std::numbers::pi * cavity.bandwidth);
}

/// A mode sin(m pi i/Nx) sin(n pi j/Ny) of the discrete cavity.
struct Shape
{
    Index m, n;
    double k;    ///< S^2 (sin^2(m pi/(2 Nx)) + sin^2(n pi/(2 Ny)))
    double gain; ///< couples the current at the source to the mode and the mode to the field at the probe [V/(m A)]
};

std::vector<Shape> shapes(const Cavity& cavity)
{
    using std::numbers::pi;
    const auto nx = static_cast<double>(cavity.cells_x), ny = static_cast<double>(cavity.cells_y);
    const double epsilon = cavity.permittivity * kEpsilon0;
    const double coupling = cavity.time_step() / (epsilon * cavity.cell * cavity.cell) * 4.0 / (nx * ny);
    const auto sine = [](double waves, Index node, double cells) {
        return std::sin(waves * pi * static_cast<double>(node) / cells);
    };
    std::vector<Shape> result;
    for (Index m = 1; m < cavity.cells_x; ++m)
        for (Index n = 1; n < cavity.cells_y; ++n) {
            const auto p = static_cast<double>(m), q = static_cast<double>(n);
            const double sine_x = std::sin(p * pi / (2.0 * nx)), sine_y = std::sin(q * pi / (2.0 * ny));
            const double seen = sine(p, cavity.source.i, nx) * sine(q, cavity.source.j, ny) *
                                sine(p, cavity.probe.i, nx) * sine(q, cavity.probe.j, ny);
            result.push_back(
                {m, n, cavity.courant * cavity.courant * (sine_x * sine_x + sine_y * sine_y), coupling * seen});
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

Index Cavity::pulse_steps() const
{
    return static_cast<Index>(std::ceil(2.0 * kPulseReach * pulse_deviation(*this) / time_step()));
}

double Cavity::current_after(Index n) const
{
    if (n < 0 || n >= pulse_steps())
        return 0.0;
    const double t = (static_cast<double>(n) + 0.5 - 0.5 * static_cast<double>(pulse_steps())) * time_step();
    const double u = t / pulse_deviation(*this);
    return current * std::exp(-0.5 * u * u) * std::sin(2.0 * std::numbers::pi * carrier * t);
}

Complex Cavity::current_spectrum(double frequency) const
{
    const Complex step = std::polar(1.0, -2.0 * std::numbers::pi * frequency * time_step());
    Complex sum = 0.0; // by Horner's rule
    for (Index n = pulse_steps(); n-- > 0;)
        sum = sum * step + current_after(n);
    return sum * std::sqrt(step) * time_step(); // the first current flows after half a step
}

Record simulate(const Cavity& cavity, const std::function<void(Index)>& on_step)
{
    const Index nx = cavity.cells_x, ny = cavity.cells_y;
    const double dt = cavity.time_step(), a = cavity.loss();
    const double epsilon = cavity.permittivity * kEpsilon0;
    const double keep_e = (1.0 - a) / (1.0 + a);
    const double step_e = dt / (epsilon * cavity.cell) / (1.0 + a);
    const double step_h = dt / (kMu0 * cavity.cell);

    // Ez on the nodes; Hx and Hy on the edges behind them in y and in x. Lines of equal i are contiguous.
    const Index line = ny + 1;
    const auto nodes = static_cast<std::size_t>((nx + 1) * line);
    std::vector<double> ez(nodes), hx(nodes), hy(nodes);
    double& source = ez[static_cast<std::size_t>(cavity.source.i * line + cavity.source.j)];
    const double& probe = ez[static_cast<std::size_t>(cavity.probe.i * line + cavity.probe.j)];

    Record record{0.0, dt, {}};
    record.values.reserve(static_cast<std::size_t>(cavity.steps) + 1);
    record.values.emplace_back(probe);
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
        source -= step_e * cavity.current_after(step) / cavity.cell;
        record.values.emplace_back(probe);
        on_step(step + 1);
    }
    return record;
}

/// With the magnetic field eliminated, the amplitude e of the mode sin(m pi i/Nx) sin(n pi j/Ny) obeys
///
///     (1 + a) e(k+1) - (2 - 4 K) e(k) + (1 - a) e(k-1) = G (I(k-1/2) - I(k+1/2)),
///     K = S^2 (sin^2(m pi/(2 Nx)) + sin^2(n pi/(2 Ny))),
///
/// where G holds the current's coupling to the mode. The roots of (1 + a) z^2 - (2 - 4 K) z + (1 - a) are
/// z = exp(s dt) with s dt = -artanh(a) +- i arccos((1 - 2 K) / sqrt(1 - a^2)). One unit on the right hand side at step
/// l answers with (z^(k-l) - conj(z)^(k-l)) / ((1 + a) (z - conj(z))); summed over the pulse, behind its end, this is
/// c z^k + conj(c z^k).
std::vector<CavityMode> exact_modes(const Cavity& cavity)
{
    const double dt = cavity.time_step(), a = cavity.loss();
    std::vector<double> kicks; // I(l-1/2) - I(l+1/2)
    for (Index l = 0; l <= cavity.pulse_steps(); ++l)
        kicks.push_back(cavity.current_after(l - 1) - cavity.current_after(l));

    std::vector<CavityMode> modes;
    for (const Shape& shape : shapes(cavity)) {
        const Complex step(-std::atanh(a), std::acos((1.0 - 2.0 * shape.k) / std::sqrt(1.0 - a * a)));
        const Complex z = std::exp(step), back = std::exp(-step);

        Complex drive = 0.0; // sum_l kick(l) z^-l, by Horner's rule
        for (auto kick = kicks.rbegin(); kick != kicks.rend(); ++kick)
            drive = drive * back + *kick;
        modes.push_back({shape.m, shape.n, step / dt, shape.gain * drive / ((1.0 + a) * (z - std::conj(z)))});
    }
    return modes;
}

/// In the equation above with e(k) = E z^k and I(k+1/2) = z^(k+1/2), |z| = 1:
///
///     E = sum G (z^-1/2 - z^1/2) / ((1 + a) z - (2 - 4 K) + (1 - a) / z).
std::vector<Complex> exact_response(const Cavity& cavity, const std::vector<double>& frequencies)
{
    const double a = cavity.loss();
    const std::vector<Shape> all = shapes(cavity);
    std::vector<Complex> result;
    result.reserve(frequencies.size());
    for (const double frequency : frequencies) {
        const Complex half = std::polar(1.0, std::numbers::pi * frequency * cavity.time_step()), z = half * half;
        const Complex unshifted = (1.0 + a) * z - 2.0 + (1.0 - a) * std::conj(z);
        Complex sum = 0.0;
        for (const Shape& shape : all) {
            const Complex denominator = unshifted + 4.0 * shape.k;
            sum += shape.gain / std::norm(denominator) * std::conj(denominator);
        }
        result.push_back((std::conj(half) - half) * sum);
    }
    return result;
}

double distance_from_closed_form(const std::vector<CavityMode>& exact, const Record& record, const Window& window)
{
    double distance = 0.0, peak = 0.0;
    for (Index k = window.first; k <= window.last(); k += window.stride) {
        double sum = 0.0;
        for (const CavityMode& mode : exact)
            sum += 2.0 * std::real(mode.residue * std::exp(mode.pole * record.time(k)));
        distance = std::max(distance, std::abs(sum - record.at(k).real()));
        peak = std::max(peak, std::abs(record.at(k)));
    }
    return distance / peak;
}

} // namespace resonator
