/// @file
/// Coloured noise: its spectrum from what a fit leaves, and the filter that makes it white.
#ifndef TESSEL_MODES_COLOUR_H
#define TESSEL_MODES_COLOUR_H

#include "modes/model.h"

namespace tessel::modes {

/// A finite filter y'(k) = sum_i a_i y(k + p - i), i = 0..p. There is no transient: a sum of exponentials stays one,
/// each residue multiplied by P(z) = sum_i a_i z^(p-i).
struct Whitener
{
    std::vector<double> taps; ///< a; empty for none

    std::size_t order() const { return taps.empty() ? 0 : taps.size() - 1; }
    /// P(z) at z = exp(s).
    ExtendedComplex response(ExtendedComplex s) const;
    /// d ln P / d s.
    ExtendedComplex slope(ExtendedComplex s) const;
};

/// Noise as it is found in what a fit leaves.
struct Colour
{
    Whitener whitener;
    double contrast = 1; ///< largest over smallest spectral density, as amplitudes
};

/// The filter that makes noise of the residual's spectrum white, of variance one beside the series' weights.
///
/// The spectrum is a running median of the windowed periodogram, over which single lines have no influence; an
/// autoregressive model is fitted to it.
/// @par Source  J. Makhoul, Proc. IEEE 63 (1975) 561 (autoregressive models of a given spectrum).
Colour colour_of(const Series& series, const std::vector<double>& residual);

/// Whether the residual's spectrum rises somewhere by more than chance above `level` times the density of the series'
/// weights. A level below one: the noise was measured where it is largest.
bool coloured(const Series& series, const std::vector<double>& residual, double level);

/// The series behind the filter, shorter by its order.
Series whiten(const Series& series, const Whitener& whitener);

/// Terms of a series, as terms of the series behind the filter, or (`back`) the other way round.
Terms through(const Terms& terms, const Whitener& whitener, bool back);

} // namespace tessel::modes

#endif
