#pragma once

#include "examples/resonator/record.h"

#include <tessel/FDTDCalcAPI.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace resonator {

/// The outcome of one fit: samples(k) ~ sum_j residues[j] * exp(poles[j] * k * spacing), k = 0, 1, ...
struct Fit
{
    Index order = 0;
    std::string failure; ///< the library's message; empty when the fit succeeded
    std::vector<Complex> poles, residues;
    double err_l2 = 0.0, err_rms = 0.0, err_peak = 0.0, err_rms_mean = 0.0, err_peak_mean = 0.0;

    std::array<double, 5> measures() const { return {err_l2, err_rms, err_peak, err_rms_mean, err_peak_mean}; }
};

/// The library, loaded for the life of this object, and one object of its calculation interface.
class Library
{
public:
    /// Opens the library at `path`; throws an Error that says what is missing.
    explicit Library(const std::string& path);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    FDTDCalcAPI& api() const { return *api_; }
    Fit fit(const std::vector<Complex>& samples, double spacing, Index order) const;

private:
    void* handle_;
    std::unique_ptr<FDTDCalcAPI> api_;
};

/// Where the library is when nobody says: in the build folder or the `lib` beside this program, otherwise wherever
/// the system's loader finds its name.
std::string default_library();

} // namespace resonator
