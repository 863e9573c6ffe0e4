/// What the groups of checks of the conformance program share.
#pragma once

#include "common/types.h"
#include "tests/support/library.h"

#include <tessel/leastsq_prony_svd.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace tessel::testing {

constexpr Real kEps = std::numeric_limits<Real>::epsilon();

inline std::size_t size_of(Integer count)
{
    return static_cast<std::size_t>(std::max(count, 0));
}

/// One line of the table.
struct Group
{
    const char* name;
    const char* figure;
    Real bound;
    int cases = 0;
    Real worst = 0.0;

    void add(Real value)
    {
        ++cases;
        if (!(value <= worst)) // a NaN stays the worst
            worst = std::isnan(worst) ? worst : value;
    }
    /// A case that is right or wrong; the figure is how many were wrong.
    void count(bool right) { add(right ? 0.0 : worst + 1.0); }
    bool passes() const { return cases > 0 && worst <= bound; }
};

/// What the checks reach: the fit through the export, all else through the object.
struct Subject
{
    decltype(&LEASTSQ_PRONY_SVD) fit;
    FDTDCalcAPI& api;
};

Group decomposes(const Subject& subject);
Group solves_systems(const Subject& subject);
Group finds_eigenvalues(const Subject& subject);
Group solves_nonlinear_systems(const Subject& subject);
Group knows_the_machine(const Subject& subject);

} // namespace tessel::testing
