/// @file
/// What a model leaves: matched filters of damped oscillations on the residual.
#ifndef TESSEL_MODES_SEARCH_H
#define TESSEL_MODES_SEARCH_H

#include "modes/model.h"
#include "modes/rounding.h"

namespace tessel::modes {

/// A term that the residual asks for, without residue.
struct Candidate
{
    Term term;
    double score = 0; ///< half the gain in chi^2
};

/// Least score that chance does not explain, of m samples: ln(15 m / 1e-3).
double chance_score(std::size_t m);

/// Candidates in the residual of `terms` over the samples [0, n), best first, at most `most`, all above the chance
/// score times `inflation` and 2 % of the largest.
std::vector<Candidate> search(const Series& series, const Terms& terms, std::size_t n, std::size_t most,
                              double inflation);

} // namespace tessel::modes

#endif
