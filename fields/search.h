/// What the chosen points missed: the residual of a pass.
#pragma once

#include "fields/pass.h"

namespace tessel::fields {

/// -ln of the probability 1e-3 over so many trials.
double rare(double trials);
/// Half the value that chi^2 with 2 `pairs` degrees of freedom exceeds with probability exp(-rare) at most.
/// Source: B. Laurent, P. Massart, Annals of Statistics 28 (2000) 1302, lemma 1.
double half_bound(double pairs, double rare);

/// Points in whose records modes show that the basis lacks, the clearest first; none, if there are none. The same on
/// all ranks.
std::vector<std::size_t> find_missed(Work& work, const Basis& basis, const Pass& pass);

} // namespace tessel::fields
