#pragma once

#include "examples/resonator/cavity.h"
#include "examples/resonator/hankel.h"

#include <tessel/modes.h>

#include <vector>

namespace resonator {

/// A driven response over frequency.
struct Response
{
    std::vector<double> frequencies; ///< [Hz]
    std::vector<Complex> values;     ///< [V/(m A)]
    std::vector<Complex> exact;

    /// Largest difference from the exact one, relative to the highest peak.
    double error() const;
    /// Whether there is a peak within half of a line's width at half the power [Hz].
    bool has_peak(double frequency, double width) const;
};

/// The field at the probe for each ampere of a current that oscillates for ever, at frequencies over the band of the
/// modes and closely around each: the spectrum of the record, as if it had been recorded until the field has decayed,
/// divided by that of the pulse. Samples before the window are used directly, the rest comes from a linear system
///
///     x(k+1) = A x(k), sample(k) = c x(k):    sum_(k >= 0) c A^k x(0) z^-k = c (1 - A/z)^-1 x(0),
///
/// realised from the Hankel matrix (J.-N. Juang, R. S. Pappa, J. Guidance 8 (1985) 620, eqs. 11 to 15) and solved by
/// slot zgesv. It is independent of the search for modes.
Response driven_response(FDTDCalcAPI& api, const Cavity& cavity, const Record& record, const Window& window,
                         const Hankel& hankel, const std::vector<tessel::modes::Mode>& modes);

} // namespace resonator
