/// Calls of the own routines with shapes within their contract and values of any kind, each checked against the
/// contract: status and text, what must stay untouched, bounds of every array, and where there is one its oracle, bit
/// for bit. The tests of bounds, concurrency and environment and the fuzz targets draw their calls from here.
///
/// A breach throws `Breach`. The value returned is a hash of all that the call gave back.
#pragma once

#include "tests/support/random.h"
#include "tests/support/room.h"

#include <cstdint>

namespace tessel::testing {

using Exercise = std::uint64_t(Random& random, Room& room);

Exercise exercise_fit;       ///< LEASTSQ_PRONY_SVD against the plain fit
Exercise exercise_search;    ///< ADAPTIVE_PRONY
Exercise exercise_zeros;     ///< NAPACK_CZERO, HStep
Exercise exercise_svd;       ///< SLATEC_CSVDC against the plain routine, RECIPES_SVBKSB
Exercise exercise_utilities; ///< one of the numerical utilities

} // namespace tessel::testing
