/// Signals whose exponentials are known, from the literature and from closed forms.
#pragma once

#include "common/types.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

namespace tessel::testing {

/// y(k) = sum_j c_j exp(s_j (k - 1) dt), k = 1..n, formed in extended precision and rounded once.
struct Signal
{
    std::vector<Complex> poles;
    std::vector<Complex> residues;
    Real dt = 1.0;
    std::vector<Complex> y;
};

inline Signal make_signal(std::vector<Complex> poles, std::vector<Complex> residues, Real dt, int n)
{
    using Wide = std::complex<long double>;
    Signal signal{std::move(poles), std::move(residues), dt, std::vector<Complex>(static_cast<std::size_t>(n))};
    for (int k = 0; k < n; ++k) {
        Wide sum = 0;
        for (std::size_t j = 0; j < signal.poles.size(); ++j)
            sum += Wide(signal.residues[j]) * std::exp(Wide(signal.poles[j]) * Wide(static_cast<long double>(k) * dt));
        signal.y[static_cast<std::size_t>(k)] = Complex(sum);
    }
    return signal;
}

/// NIST StRD Lanczos1 and Lanczos2: 0.0951 e^-x + 0.8607 e^-3x + 1.5576 e^-5x, rounded to 14 and to 6 digits.
inline Signal lanczos1()
{
    Signal signal{{-1.0, -3.0, -5.0}, {9.5100000027e-02, 8.6070000013e-01, 1.5575999998e+00}, 0.05, {}};
    signal.y = {2.513400000000E+00, 2.044333373291E+00, 1.668404436564E+00, 1.366418021208E+00, 1.123232487372E+00,
                9.268897180037E-01, 7.679338563728E-01, 6.388775523106E-01, 5.337835317402E-01, 4.479363617347E-01,
                3.775847884350E-01, 3.197393199326E-01, 2.720130773746E-01, 2.324965529032E-01, 1.996589546065E-01,
                1.722704126914E-01, 1.493405660168E-01, 1.300700206922E-01, 1.138119324644E-01, 1.000415587559E-01,
                8.833209084540E-02, 7.833544019350E-02, 6.976693743449E-02, 6.239312536719E-02};
    return signal;
}
inline Signal lanczos2()
{
    Signal signal{{-1.0, -3.0, -5.0}, {9.6251029939e-02, 8.6424689056e-01, 1.5529016879e+00}, 0.05, {}};
    signal.y = {2.51340E+00, 2.04433E+00, 1.66840E+00, 1.36642E+00, 1.12323E+00, 9.26890E-01, 7.67934E-01, 6.38878E-01,
                5.33784E-01, 4.47936E-01, 3.77585E-01, 3.19739E-01, 2.72013E-01, 2.32497E-01, 1.99659E-01, 1.72270E-01,
                1.49341E-01, 1.30070E-01, 1.13812E-01, 1.00042E-01, 8.83321E-02, 7.83354E-02, 6.97669E-02, 6.23931E-02};
    return signal;
}
/// Certified least residual sum of squares of any three-term model of Lanczos2.
constexpr Real kLanczos2Floor = 2.2299428125e-11;

/// Fifteen crowded modes (harmonic inversion, arXiv:1606.00391), all residues 1.
inline Signal fifteen_modes()
{
    const Real omega[] = {32.85,  36.51,  38.29,  48.82,  105.63, 146.96, 183.24, 191.10,
                          217.34, 241.39, 253.59, 283.60, 298.20, 299.85, 304.95};
    const Real gamma[] = {4.61,  9.44, 12.95, 0.09, 9.24, 14.88, 10.19, 7.46,
                          11.21, 2.18, 11.03, 9.64, 4.42, 12.25, 9.20};
    std::vector<Complex> poles;
    for (int j = 0; j < 15; ++j)
        poles.emplace_back(-gamma[j], omega[j]);
    return make_signal(poles, std::vector<Complex>(15, 1.0), 1.0 / 127.0, 128);
}

/// Four damped cosines: each is two conjugate exponentials.
inline Signal four_cosines()
{
    const Real f[] = {80, 120, 250, 560}, a[] = {0.4, 1, 0.89, 0.65}, d[] = {70, 50, 90, 80};
    std::vector<Complex> poles, residues;
    for (int j = 0; j < 4; ++j)
        for (const Real sign : {1.0, -1.0}) {
            poles.emplace_back(-d[j], sign * 2.0 * std::numbers::pi * f[j]);
            residues.emplace_back(a[j] / 2.0);
        }
    return make_signal(poles, residues, 1.0 / 2205.0, 250);
}

/// One-dimensional Yee grid of 11 cells with E = 0 at both ends and uniform loss: the record of a cell is exactly a
/// sum of 20 exponentials.
inline Signal yee_cavity(Real courant, int samples = 400)
{
    constexpr int cells = 11;
    const Real a = 0.02;
    Signal signal;
    Real e[cells + 1] = {}, h[cells] = {};
    for (int i = 1; i < cells; ++i)
        e[i] = std::exp(-std::pow((i - 3.3) / 1.1, 2));
    for (int k = 0; k < samples; ++k) {
        signal.y.emplace_back(e[4]);
        for (int i = 0; i < cells; ++i)
            h[i] += courant * (e[i + 1] - e[i]);
        for (int i = 1; i < cells; ++i)
            e[i] = ((1 - a) * e[i] + courant * (h[i] - h[i - 1])) / (1 + a);
    }
    for (int m = 1; m < cells; ++m) {
        const Real sine = std::sin(m * std::numbers::pi / (2 * cells));
        const Real half = (1 - 2 * courant * courant * sine * sine) / (1 + a); // z^2 - 2 half z + (1-a)/(1+a) = 0
        const Complex z(half, std::sqrt((1 - a) / (1 + a) - half * half));
        signal.poles.push_back(std::log(z));
        signal.poles.push_back(std::conj(std::log(z)));
    }
    return signal;
}

/// Largest relative distance of a known pole from the nearest of those found.
inline Real worst_pole_error(const std::vector<Complex>& known, const std::vector<Complex>& found)
{
    Real worst = 0.0;
    for (const Complex& pole : known) {
        Real nearest = INFINITY;
        for (const Complex& other : found)
            nearest = std::min(nearest, std::abs(other - pole));
        worst = std::max(worst, nearest / std::abs(pole));
    }
    return worst;
}

/// A signal, the order of a fit and the errors that it keeps within.
struct KnownSignal
{
    const char* name;
    Signal signal;
    Integer m;
    Real pole_error, l2; ///< largest relative error of a pole, ERR_L2
};

inline std::vector<KnownSignal> known_signals()
{
    return {{"two samples", make_signal({-0.5}, {1.0}, 2.0, 2), 1, 1e-15, 1e-15},
            {"N = 2 M", make_signal({{-0.1, 1.0}, {-0.3, -0.5}}, {2.0, 1.0}, 1.0, 4), 2, 1e-13, 1e-13},
            {"lanczos1", lanczos1(), 3, 2e-8, 1e-11},
            {"lanczos2", lanczos2(), 3, 2e-3, 5e-6},
            {"fifteen modes, 15", fifteen_modes(), 15, 5e-8, 5e-7},
            {"fifteen modes, 30", fifteen_modes(), 30, 2e-11, 1e-12},
            {"four cosines, 8", four_cosines(), 8, 1e-10, 1e-10},
            {"four cosines, 20", four_cosines(), 20, 1e-13, 1e-13},
            {"Yee cavity, 20", yee_cavity(0.9), 20, 1e-10, 1e-11},
            {"Yee cavity, 24", yee_cavity(0.9), 24, 1e-12, 1e-12}};
}

} // namespace tessel::testing
