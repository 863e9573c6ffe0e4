/// Peers as a user has them without this library: LAPACK's drivers out of the packaged OpenBLAS, without any of the
/// remedies that the library's own link applies, and the plain routines of `reference/` on the same BLAS. They live in
/// a shared library of their own, so that the program holds both.
#pragma once

#include "common/fortran.h"
#include "reference/plain_fit.h"
#include "reference/plain_svd.h"

namespace tessel::bench {

struct Stock
{
    decltype(&fortran::zgesvd_) zgesvd;
    decltype(&fortran::zgesdd_) zgesdd;
    decltype(&fortran::zgeev_) zgeev;
    decltype(&fortran::dgesvd_) dgesvd;
    decltype(&fortran::zgesv_) zgesv;
    decltype(&reference::plain_svd) plain_svd;
    decltype(&reference::plain_fit) plain_fit;

    /// The name of the set of kernels in use; at first, what OpenBLAS chose for the processor.
    const char* (*kernels)();
    /// Takes the set of this name into use, whatever it can run on.
    void (*use_kernels)(const char* name);
};

[[gnu::visibility("default")]] const Stock& stock();

} // namespace tessel::bench
