#pragma once

#include "examples/resonator/hankel.h"
#include "examples/resonator/record.h"

#include <vector>

namespace resonator {

/// The free ringing as a linear system, x(k+1) = A x(k), sample(k) = c x(k).
struct StateSpace
{
    Eigen::MatrixXcd a;
    Eigen::VectorXcd start; ///< x(0)
    Eigen::RowVectorXcd c;
};

/// The system of order H.rank whose samples these are, by the eigensystem realisation algorithm (J.-N. Juang,
/// R. S. Pappa, J. Guidance 8 (1985) 620, eqs. 11 to 15). It shares no step with the Prony fit.
StateSpace realise(const Hankel& h, const std::vector<Complex>& samples);

/// The spectrum of a record at a frequency f [Hz], as if it had been recorded until nothing rings any more: the samples
/// before the window as they are, the rest from the system,
///
///     spacing sum_(k >= 0) c A^k x(0) z^-k = spacing c (1 - A/z)^-1 x(0),    z = exp(2 pi i f spacing),
///
/// by zgesv. Infinite at an eigenvalue without loss. Divided by the spectrum of the source, it is the response to a
/// steady drive at f.
Complex spectrum_at(FDTDCalcAPI& api, const StateSpace& system, const Record& record, const Window& window,
                    double frequency);

/// A resonance: a frequency and the width of its line at half the power [Hz].
struct Line
{
    double frequency, width;
};

Line line_of(const Complex& pole);

/// Frequencies for a curve: evenly over a band that holds the lines, and closely around each of them. Of a real record
/// the band begins at 0 or above; it ends at the Nyquist frequency of the window.
std::vector<double> choose_frequencies(const std::vector<Line>& lines, const Record& record, const Window& window);

/// Where a curve is higher than on both sides.
std::vector<double> peaks(const std::vector<double>& frequencies, const std::vector<Complex>& values);

/// A driven response, or a spectrum, over frequency.
struct Response
{
    std::vector<double> frequencies; ///< [Hz]
    std::vector<Complex> values;
    std::vector<Complex> exact; ///< empty if not known
    std::vector<double> peaks;  ///< frequencies of the maxima [Hz]

    /// Largest difference from the exact one, relative to the highest peak.
    double error() const;
};

/// Whether a peak stands within half a width of the line.
bool stands_out(const Line& line, const std::vector<double>& peaks);

} // namespace resonator
