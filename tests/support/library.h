/// The built library, loaded at run time by the public loader.
#pragma once

#include <tessel/Loader.h>

namespace tessel::testing {

inline bool is_loaded(const char* path)
{
    void* const handle = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr)
        dlclose(handle);
    return handle != nullptr;
}

#ifdef TESSEL_LIBRARY
/// One object for all tests of a program: the slots keep nothing in it.
inline FDTDCalcAPI& api()
{
    static const Api object = Library(TESSEL_LIBRARY).create();
    return *object;
}
#endif

} // namespace tessel::testing
