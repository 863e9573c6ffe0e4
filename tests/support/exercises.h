/// Random calls of the own routines with valid shapes and values of any kind, each checked against the contract: status
/// and text, outputs that must stay untouched, bounds of every array, and where there is an oracle, equality to the
/// bit. The tests of bounds, concurrency and environment and the fuzz targets use them.
///
/// A violation throws `Breach`. The value returned is a hash of all outputs.
#pragma once

#include "tests/support/call_arrays.h"
#include "tests/support/random.h"

#include <cstdint>

namespace tessel::testing {

using Exercise = std::uint64_t(Random& random, CallArrays& arrays);

Exercise exercise_fit;       ///< LEASTSQ_PRONY_SVD against the plain fit
Exercise exercise_search;    ///< ADAPTIVE_PRONY
Exercise exercise_zeros;     ///< NAPACK_CZERO, HStep
Exercise exercise_svd;       ///< SLATEC_CSVDC against the plain routine, RECIPES_SVBKSB
Exercise exercise_utilities; ///< one of the numerical utilities

} // namespace tessel::testing
