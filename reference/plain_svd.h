/// The unoptimised complex singular value decomposition: rotation by rotation and BLAS call by BLAS call, in the order
/// of the published method. The bit-for-bit oracle of the fast one, and its baseline in the benchmarks.
#pragma once

#include "common/types.h"

namespace tessel::reference {

/// Arguments as those of SLATEC_CSVDC, 1 <= p <= n; returns INFO.
Integer plain_svd(Integer job, Integer n, Integer p, Complex* x, Integer ldx, Complex* u, Integer ldu, Complex* s,
                  Complex* v, Integer ldv, Complex* work, Complex* e);

} // namespace tessel::reference
