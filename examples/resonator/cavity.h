#pragma once

#include "examples/resonator/record.h"

#include <functional>
#include <utility>
#include <vector>

namespace resonator {

using ExtendedComplex = std::complex<long double>;

/// A rectangular microwave cavity with perfectly conducting walls, filled with a lossy dielectric and infinite in z, on
/// a two-dimensional Yee grid of square cells. A line current at one node excites it with a short pulse, a
/// sine under a Gaussian; the electric field Ez is recorded at another node. SI units throughout.
struct Cavity
{
    struct Node
    {
        Index i, j;
    };

    Index cells_x = 120, cells_y = 84;
    double cell = 1e-3;         ///< edge of a cell [m]
    double permittivity = 2.1;  ///< relative, of the filling
    double conductivity = 2e-3; ///< of the filling [S/m]
    double courant = 0.7;       ///< velocity * time step / cell; stable up to 1 / sqrt(2)
    Index steps = 8000;
    Node source{17, 13}, probe{71, 53};
    double current = 1e-3;     ///< of the pulse, at the peak of its Gaussian [A]
    double carrier = 3e9;      ///< of the pulse [Hz]
    double bandwidth = 0.45e9; ///< standard deviation of the pulse's spectrum [Hz]

    double time_step() const;
    /// Loss per step, a = conductivity * time step / (2 * permittivity), without a unit.
    double loss() const;
    /// What the program multiplies by, rounded as it is: E' = keep E + curl (difference of H), H' = H + induce
    /// (difference of E).
    struct Coefficients
    {
        double keep, curl, induce;
    };
    Coefficients coefficients() const;
    /// Number of steps that the pulse drives: from record entry pulse_steps() on, the cavity rings freely.
    Index pulse_steps() const;
    /// The driving current between the steps n and n + 1 [A].
    double current_after(Index n) const;
    /// Its Gaussian there, relative to the peak; 0 where the pulse is cut off.
    double envelope_after(Index n) const;
    /// Its spectrum, the integral of I(t) exp(-2 pi i frequency t) [A s].
    Complex current_spectrum(double frequency) const;
};

/// A mode of the discrete cavity with m and n half waves along x and y. What the probe sees of it, from the end of the
/// pulse on, is residue * exp(pole * t) plus the complex conjugate; at any node it is strength * shape. In extended
/// precision: the record determines a strong mode more precisely than a double holds.
struct CavityMode
{
    Index m, n;
    ExtendedComplex pole;          ///< [1/s]
    ExtendedComplex residue;       ///< [V/m]
    ExtendedComplex strength = {}; ///< [V/m]

    long double frequency() const; ///< [Hz]
    long double quality() const;
    /// The residue if time is counted from t [s].
    ExtendedComplex residue_at(long double t) const { return residue * std::exp(pole * t); }
};

/// What is told of each step: the number of steps made, and Ez [V/m] at all (cells_x + 1) * (cells_y + 1) nodes, those
/// of equal i one behind the other.
using OnStep = std::function<void(Index, const std::vector<double>&)>;

/// Steps the cavity from rest. The record holds Ez at the probe [V/m] before the first step and after each.
Record simulate(const Cavity& cavity, const OnStep& on_step);

/// sin(m pi i / cells_x) over i = 0..cells_x of a mode, and sin(n pi j / cells_y) over j: its shape is their product.
std::pair<std::vector<long double>, std::vector<long double>> shape_of(const Cavity& cavity, const CavityMode& mode);

/// All (cells_x - 1) * (cells_y - 1) modes that the simulation really has: in closed form, of the discrete cavity with
/// the program's coefficients as rounded. The loss must be small enough that every mode oscillates.
std::vector<CavityMode> exact_modes(const Cavity& cavity);

/// The field at the probe [V/m] for each ampere of a current that oscillates for ever at each of the frequencies [Hz],
/// summed over all modes of the discrete cavity.
std::vector<Complex> exact_response(const Cavity& cavity, const std::vector<double>& frequencies);

/// Largest difference of the record from the sum of all its exact modes, relative to its peak, over samples behind the
/// pulse, one in 24.
double distance_from_closed_form(const std::vector<CavityMode>& exact, const Cavity& cavity, const Record& record);

} // namespace resonator
