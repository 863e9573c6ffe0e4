/// What each file of benchmarks adds to the program.
#pragma once

#include "prony/rotations.h"

namespace tessel::bench {

/// Decompositions with vectors of the width that is in use, beside narrower ones and LAPACK's drivers.
void add_svd_benchmarks(VectorWidth in_use);
void add_zeros_benchmarks();
void add_fit_benchmarks();

} // namespace tessel::bench
