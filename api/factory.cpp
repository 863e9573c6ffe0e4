#include "api/fdtd_calc_impl.h"

#include <new>

/// The library's ordinary allocation: it goes through the new-handler, and its std::bad_alloc passes to the host. A
/// host may have put its own operator new in its place, one that returns null; the build keeps the test for that.
FDTDCalcAPI* createFDTDCalcApi()
{
    void* const storage = ::operator new(sizeof(internal::FDTDCalcImpl));
    if (storage == nullptr)
        return nullptr;
    return ::new (storage) internal::FDTDCalcImpl;
}
