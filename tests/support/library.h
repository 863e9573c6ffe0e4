/// The built library, loaded at run time as a host does it: through the public headers and `dlopen` alone.
#pragma once

#include <tessel/FDTDCalcAPI.h>

#include <dlfcn.h>

#include <memory>
#include <stdexcept>

namespace tessel::testing {

class Library
{
public:
#ifdef TESSEL_LIBRARY
    Library() : Library(TESSEL_LIBRARY) {}
    static bool is_loaded()
    {
        return is_loaded(TESSEL_LIBRARY);
    }
#endif
    explicit Library(const char* path) : handle_(dlopen(path, RTLD_NOW | RTLD_LOCAL))
    {
        if (handle_ == nullptr)
            throw std::runtime_error(dlerror());
    }
    ~Library()
    {
        dlclose(handle_);
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    static bool is_loaded(const char* path)
    {
        void* const handle = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
        if (handle != nullptr)
            dlclose(handle);
        return handle != nullptr;
    }

    /// Address of an exported function of the type of `prototype`.
    template <class Function>
    Function* symbol(const char* name, Function*) const
    {
        void* const address = dlsym(handle_, name);
        if (address == nullptr)
            throw std::runtime_error(dlerror());
        return reinterpret_cast<Function*>(address);
    }
    std::unique_ptr<FDTDCalcAPI> create() const
    {
        static FDTDCalcAPI* (*const prototype)() = nullptr;
        return std::unique_ptr<FDTDCalcAPI>(symbol("createFDTDCalcApi", prototype)());
    }

private:
    void* handle_;
};

#ifdef TESSEL_LIBRARY
/// One object for all tests of a program: the slots keep nothing in it.
inline FDTDCalcAPI& api()
{
    static const Library library;
    static const std::unique_ptr<FDTDCalcAPI> object = library.create();
    return *object;
}
#endif

} // namespace tessel::testing
