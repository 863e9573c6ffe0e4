#pragma once

#include "examples/resonator/record.h"

#include <tessel/FDTDCalcAPI.h>

#include <array>
#include <functional>
#include <string>
#include <vector>

namespace resonator {

/// The highest frequency [Hz] at which the record, from sample `first` on, has a spectral line above 1e-4 of its
/// highest.
double highest_frequency(const Record& record, Index first);

/// The stride that leaves 2.5 to 5 samples per period of the highest frequency.
///
/// A record at the step of a field solver has tens of samples per period. All zeros of the characteristic polynomial
/// then crowd at z = 1 and no order gives a good fit; spread over the unit circle, they are well separated.
Index choose_stride(const Record& record, Index first);

/// Five orders from a quarter to a third of the number of samples: well above the number of modes, which is what makes
/// the fit robust against noise, and far enough below the half, where poles that grow begin to appear.
std::vector<Index> choose_orders(Index samples);

/// The outcome of one fit: samples(k) ~ sum_j residues[j] * exp(poles[j] * k * spacing), k = 0, 1, ...
struct Fit
{
    Index order = 0;
    std::string failure; ///< the library's message; empty when the fit succeeded
    std::vector<Complex> poles, residues;
    double err_l2 = 0.0, err_rms = 0.0, err_peak = 0.0, err_rms_mean = 0.0, err_peak_mean = 0.0;

    std::array<double, 5> measures() const { return {err_l2, err_rms, err_peak, err_rms_mean, err_peak_mean}; }
};

/// One fit (slot leastsqPronySvd).
Fit fit_samples(FDTDCalcAPI& api, const std::vector<Complex>& samples, double spacing, Index order);

/// One fit for each order; `on_fit` is told the order before each.
std::vector<Fit> fit_orders(FDTDCalcAPI& api, const Record& record, const Window& window,
                            const std::vector<Index>& orders, const std::function<void(Index)>& on_fit);

/// The fit whose largest measure is smallest. Throws an Error if no fit has five finite measures.
const Fit& best_fit(const std::vector<Fit>& fits);

double frequency_of(const Complex& pole); ///< Im(pole) / (2 pi) [Hz]
double quality_of(const Complex& pole);   ///< |Im(pole)| / (-2 Re(pole)); infinite without loss
double degrees(const Complex& residue);   ///< its argument

/// What becomes of a pole of the fit.
enum class Kind
{
    kept,      ///< a mode of the record
    conjugate, ///< the mirror image of a mode, in a real record
    growing,   ///< its amplitude grows over the fitted samples: no passive structure does that
    negligible ///< its share of the samples is below the threshold or below what the fit leaves unexplained
};

struct Mode
{
    Complex pole;    ///< [1/s]
    Complex residue; ///< at the first fitted sample
    double share;    ///< root mean square of the mode over the fitted samples
    Kind kind;

    double frequency() const { return frequency_of(pole); }
    double quality() const { return quality_of(pole); }
    double amplitude() const { return std::abs(residue); }
    double phase() const { return degrees(residue); }
};

/// The poles of a fit with what becomes of them, by rising frequency. `threshold` is relative to the largest share.
std::vector<Mode> classify(const Fit& fit, const Record& record, const Window& window, double threshold);

/// The model at any time: sum_j residue_j exp(pole_j (t - start of the window)).
Complex model_at(const Fit& fit, double time_since_first);

} // namespace resonator
