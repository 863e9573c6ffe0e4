/// @file
/// Standard errors.
#ifndef TESSEL_MODES_ERRORS_H
#define TESSEL_MODES_ERRORS_H

#include "modes/colour.h"
#include "modes/model.h"
#include "modes/modes.h"

namespace tessel::modes {

/// Inverse of a normal matrix: the covariance of the parameters at unit noise.
ExtendedMatrix inverse_normal(const ExtendedMatrix& normal);

/// One mode of the raw record, at its first sample, from the covariance of its term's parameters: those linear first, then
/// (decay, angle). See modes_of.
Mode mode_of(const Term& term, const ExtendedMatrix& covariance, std::size_t factor, const Whitener& whitener,
             double spacing, double scale);

/// Modes of the raw record with their standard errors.
///
/// @param terms    of the decimated series
/// @param factor   samples in a mean
/// @param spacing  of the raw record
/// @param scale    variance of the noise over that of the weights, for each term
std::vector<Mode> modes_of(const Series& series, const Terms& terms, std::size_t factor, const Whitener& whitener,
                           double spacing, const std::vector<double>& scale);

} // namespace tessel::modes

#endif
