/// @file
/// Which terms are real: backward elimination.
#ifndef TESSEL_MODES_SELECT_H
#define TESSEL_MODES_SELECT_H

#include "modes/refine.h"

#include <functional>

namespace tessel::modes {

/// Called after every refinement; false ends the work.
using Account = std::function<bool(const Refined&)>;

/// Wald's statistic of every term: the rise of chi^2 without it, to first order, poles free.
std::vector<double> wald(const Series& series, const Terms& terms, std::size_t n);

/// Takes terms out while chi^2, over max(1, its value per degree of freedom), rises by less than twice the chance score
/// when all others are refined without it. The quotient of residue and standard error alone would take close pairs.
Refined eliminate(const Series& series, Refined model, std::size_t n, std::vector<double>& significance,
                  const Account& account);

/// Takes out, many at a time, terms that the statistic calls insignificant and that the others can replace.
Refined thin(const Series& series, Refined model, std::size_t n, const Account& account);

/// Takes out at once what the statistic calls insignificant by far, without refinement.
Terms prune(const Series& series, const Terms& terms, std::size_t n);

/// Degrees of freedom of chi^2.
double freedom(const Series& series, const Terms& terms, std::size_t n);

} // namespace tessel::modes

#endif
