#include "bench/stock.h"

#include <cstdlib>
#include <optional>
#include <string>

extern "C" {
char* openblas_get_corename();
void openblas_read_env();
void gotoblas_dynamic_init();
void gotoblas_dynamic_quit();
}

namespace tessel::bench {

namespace {

constexpr const char* kVariable = "OPENBLAS_CORETYPE";

/// OpenBLAS chooses again, as it does when it is loaded. The variable is put back, for other libraries.
void use_kernels(const char* name)
{
    const char* const value = std::getenv(kVariable);
    const auto before = value != nullptr ? std::optional<std::string>(value) : std::nullopt;
    setenv(kVariable, name, 1);
    openblas_read_env();
    gotoblas_dynamic_quit();
    gotoblas_dynamic_init();
    if (before)
        setenv(kVariable, before->c_str(), 1);
    else
        unsetenv(kVariable);
}

} // namespace

const Stock& stock()
{
    static constexpr Stock routines{
        fortran::zgesvd_,     fortran::zgesdd_,
        fortran::zgeev_,      fortran::dgesvd_,
        fortran::zgesv_,      reference::plain_svd,
        reference::plain_fit, [] { return static_cast<const char*>(openblas_get_corename()); },
        use_kernels};
    return routines;
}

} // namespace tessel::bench
