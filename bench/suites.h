/// What each file of benchmarks adds to the program.
#pragma once

#include "prony/rotations.h"

#include <string>

namespace tessel::bench {

/// Decompositions with vectors of the width that is in use, beside narrower ones and LAPACK's drivers.
void add_svd_benchmarks(VectorWidth in_use);
void add_zeros_benchmarks();
void add_fit_benchmarks();
/// The slots of LAPACK of the library at this path beside the stock routines with these kernels.
void add_slots_benchmarks(const std::string& library, const std::string& kernels);
/// Processor time of one small ZGESVD of the stock library with the kernels that it uses.
double time_of_stock_zgesvd();

} // namespace tessel::bench
