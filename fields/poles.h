/// The poles of a whole field, from the sums of a pass.
///
/// The records, projected on a basis, are Y = A(s) c + noise, where A holds the projections of the columns at the poles
/// s. With the amplitudes eliminated at each point, chi^2 over all points is tr((1 - P_A) S), S = sum Y Y' / variance:
/// the sums S are all that the poles need of the field, and what lies outside of the basis is information of second
/// order.
///
/// Source: G. H. Golub, V. Pereyra, SIAM J. Numer. Anal. 10 (1973) 413; L. Kaufman, BIT 15 (1975) 49.
#pragma once

#include "fields/pass.h"

namespace tessel::fields {

struct Poles
{
    Terms terms;
    ExtendedMatrix covariance; ///< of the parameters, as Columns has them
    double reduced = 0;        ///< chi^2 per degree of freedom of what the basis holds beside the modes
    bool settled = false;      ///< the poles converged, and the basis holds what there is to know of them

    ExtendedMatrix inverse; ///< from Y to linear parameters
    ExtendedMatrix linear;  ///< covariance of linear parameters at given poles and unit variance
    ExtendedMatrix carried; ///< inverse times the poles' columns: how linear parameters answer to poles
    ExtendedMatrix squares; ///< sum over the points of products of linear parameters over the variance
};

Poles solve_poles(const Basis& basis, const Sums& sums);

} // namespace tessel::fields
