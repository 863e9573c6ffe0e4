#include "examples/resonator/library.h"

#include "examples/resonator/error.h"

#include <dlfcn.h>

#include <filesystem>

namespace resonator {

Library::Library(const std::string& path) : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (!handle_)
        throw Error(std::string("the library cannot be loaded: ") + dlerror());
    const auto create = reinterpret_cast<decltype(&createFDTDCalcApi)>(dlsym(handle_, "createFDTDCalcApi"));
    if (!create) {
        dlclose(handle_);
        throw Error(path + ": this library does not export createFDTDCalcApi");
    }
    api_.reset(create());
}

Library::~Library()
{
    api_.reset(); // its code goes with the library
    dlclose(handle_);
}

Fit Library::fit(const std::vector<Complex>& samples, double spacing, Index order) const
{
    const auto n = static_cast<int32_t>(samples.size()), m = static_cast<int32_t>(order);
    Fit fit;
    fit.order = order;
    fit.poles.resize(static_cast<std::size_t>(order));
    fit.residues.resize(static_cast<std::size_t>(order));
    int32_t flag = 0;
    std::string message(80, ' ');
    api_->leastsqPronySvd(&n, &n, samples.data(), &spacing, &m, &m, fit.residues.data(), fit.poles.data(), &fit.err_l2,
                          &fit.err_rms, &fit.err_peak, &fit.err_rms_mean, &fit.err_peak_mean, &flag, message.data(),
                          static_cast<int32_t>(message.size()));
    if (flag != 0)
        fit.failure = message.substr(0, message.find_last_not_of(' ') + 1);
    return fit;
}

std::string default_library()
{
    namespace fs = std::filesystem;
    std::error_code ignored;
    const fs::path folder = fs::read_symlink("/proc/self/exe", ignored).parent_path();
    for (const char* place : {"../..", "../lib", "."})
        if (const fs::path path = folder / place / "libtessel.so"; fs::exists(path, ignored))
            return path.lexically_normal();
    return "libtessel.so.1";
}

} // namespace resonator
