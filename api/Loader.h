/// @file
/// Loading the library at run time, for hosts in C++ that do not link it. Header-only; needs C++11 and `dlopen` (-ldl
/// with a C library before glibc 2.34).
///
///     const tessel::Library library;                     // or Library("/path/to/libtessel.so.1")
///     library.fit(&n, &n, y, &dt, &m, &m, ...);          // LEASTSQ_PRONY_SVD
///     const tessel::Api api = library.create();          // FDTDCalcAPI, from createFDTDCalcApi
///     api->zgesv(...);
#ifndef TESSEL_LOADER_H
#define TESSEL_LOADER_H

#include <tessel/FDTDCalcAPI.h>
#include <tessel/leastsq_prony_svd.h>

#include <dlfcn.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

namespace tessel {

/// The library could not be loaded; `what()` says which file and why.
class LoadError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Deletes an object of the library, and holds the library open until that is done.
class ObjectDeleter
{
public:
    ObjectDeleter() = default;
    /// @param library  handle whose release closes the library
    explicit ObjectDeleter(std::shared_ptr<void> library) : library_(std::move(library)) {}
    /// Deletes the object, through its virtual destructor.
    void operator()(FDTDCalcAPI* object) const { delete object; }

private:
    std::shared_ptr<void> library_;
};

/// Owner of one object. It may outlive the Library that made it: the library stays open until the last owner is gone.
using Api = std::unique_ptr<FDTDCalcAPI, ObjectDeleter>;

/// The library, open for the life of this object, of its copies and of the objects that they made. Copies share one
/// handle. A Library that has been moved from, or closed, can only be assigned to, closed or destroyed.
///
/// Threads: a const Library may be used by any number of threads at once.
class Library
{
public:
    /// Opens the library and finds its two exports.
    ///
    /// @param path  file to load, or a name for the system's loader to search for
    /// @throws LoadError       if the file cannot be loaded or lacks an export; nothing stays loaded then
    /// @throws std::bad_alloc  if memory cannot be allocated
    explicit Library(const std::string& path = "libtessel.so.1")
    {
        void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr)
            throw LoadError("Tessel cannot be loaded: " + reason(path));
        handle_ = std::shared_ptr<void>(handle, dlclose);
        find(path, "LEASTSQ_PRONY_SVD", fit_);
        find(path, "createFDTDCalcApi", create_);
    }

    /// Shares the handle.
    Library(const Library&) = default;
    /// Releases the library and shares the handle of another.
    Library& operator=(const Library&) = default;
    /// Takes over the handle and leaves the other without one.
    Library(Library&& other) noexcept { swap(other); }
    /// Releases the library and takes over the handle of another.
    Library& operator=(Library&& other) noexcept
    {
        Library taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~Library() = default;

    /// Whether there is a library to use: neither moved from nor closed.
    explicit operator bool() const noexcept { return handle_ != nullptr; }

    /// The least-squares Prony fit: `LEASTSQ_PRONY_SVD` of <tessel/leastsq_prony_svd.h>, argument by argument.
    void fit(const std::int32_t* N, const std::int32_t* NDIM, const std::complex<double>* Y, const double* DT,
             const std::int32_t* M, const std::int32_t* MMAX, std::complex<double>* RESIDUE, std::complex<double>* POLE,
             double* ERR_L2, double* ERR_RMS, double* ERR_PEAK, double* ERR_RMS_MEAN, double* ERR_PEAK_MEAN,
             std::int32_t* ErrorFlag, char* ErrorMessage, std::int32_t ErrorMessageLength) const
    {
        fit_(N, NDIM, Y, DT, M, MMAX, RESIDUE, POLE, ERR_L2, ERR_RMS, ERR_PEAK, ERR_RMS_MEAN, ERR_PEAK_MEAN, ErrorFlag,
             ErrorMessage, ErrorMessageLength);
    }

    /// A new object of the interface in <tessel/FDTDCalcAPI.h>, independent of every other.
    ///
    /// @throws std::bad_alloc  if memory cannot be allocated
    Api create() const
    {
        FDTDCalcAPI* const object = create_();
        if (object == nullptr)
            throw std::bad_alloc();
        return Api(object, ObjectDeleter(handle_));
    }

    /// Releases the library now. It is unloaded when no copy and no object of it is left.
    void close() noexcept { Library(std::move(*this)); }

    /// Exchanges the handles of the two.
    void swap(Library& other) noexcept
    {
        handle_.swap(other.handle_);
        std::swap(fit_, other.fit_);
        std::swap(create_, other.create_);
    }

private:
    static std::string reason(const std::string& path)
    {
        const char* const text = dlerror();
        return text != nullptr ? text : path;
    }

    template <class Function>
    void find(const std::string& path, const char* name, Function& function) const
    {
        function = reinterpret_cast<Function>(dlsym(handle_.get(), name));
        if (function == nullptr)
            throw LoadError(path + " is not Tessel: it does not export " + name);
    }

    std::shared_ptr<void> handle_;
    decltype(&LEASTSQ_PRONY_SVD) fit_ = nullptr;
    decltype(&createFDTDCalcApi) create_ = nullptr;
};

} // namespace tessel

#endif
