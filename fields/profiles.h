/// Amplitudes and phases at each point, with their standard errors.
#pragma once

#include "fields/poles.h"

namespace tessel::fields {

/// What the points say of a mode together.
struct Peak
{
    double amplitude = 0, statistic = 0; ///< the largest; rise of chi^2 at one point without the mode
    std::size_t point = 0;               ///< where the amplitude is largest
};

class ProfileMaker
{
public:
    ProfileMaker(const Basis& basis, const Poles& poles);

    /// Raises the peaks, of all terms, by those of a block as it is stored.
    void peaks(std::size_t firstPoint, std::size_t points, const double* values, std::vector<Peak>& peaks) const;
    /// The profiles of some terms in a block as it is stored.
    ///
    /// Errors hold the point's own noise and, where it adds to them, the uncertainty of all poles.
    Profiles profiles(std::size_t firstPoint, std::size_t points, const double* values,
                      const std::vector<std::size_t>& terms) const;
    /// Rise of chi^2 over all points without a term.
    double statistic(std::size_t term) const;

private:
    Matrix linear(std::size_t points, const double* values) const;

    const Basis& basis_;
    const Poles& poles_;
    std::vector<double> inverse_; ///< packed, slab by slab of its rows
    struct Mode
    {
        Eigen::Matrix2d covariance, precision; ///< of (a, b) at given poles and unit variance
        std::complex<double> scale;            ///< from a sum's coefficient to a sample's at the first step
        double size, turn;                     ///< of the scale: modulus and angle
        double poleError;                      ///< root of the trace of the poles' covariance
    };
    std::vector<Mode> modes_;
    Matrix carried_;  ///< how coefficients at the first step answer to poles, over their scale
    Matrix strength_; ///< norms of its blocks
    Matrix covariance_;
};

} // namespace tessel::fields
