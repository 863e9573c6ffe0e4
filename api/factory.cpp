#include "api/fdtd_calc_impl.h"

#include <new>

/// The library's ordinary allocation: it goes through the new-handler, and its std::bad_alloc passes to the host. A
/// host may have put its own operator new in its place, one that returns null.
FDTDCalcAPI* createFDTDCalcApi()
{
    void* const volatile allocated = ::operator new(sizeof(internal::FDTDCalcImpl)); // volatile keeps the test below
    void* const storage = allocated;
    return storage == nullptr ? nullptr : ::new (storage) internal::FDTDCalcImpl;
}
