/// What the groups of checks of the conformance program share.
#pragma once

#include "common/types.h"
#include "tests/support/library.h"
#include "tests/support/measures.h"

#include <algorithm>

namespace tessel::testing {

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
        worst = worse(worst, value);
    }
    /// A case that is right or wrong; the figure is how many were wrong.
    void count(bool right) { add(right ? 0.0 : worst + 1.0); }
    bool passes() const { return cases > 0 && worst <= bound; }
};

/// What is checked: the fit through the library's export, everything else through an object.
struct Subject
{
    const Library& library;
    FDTDCalcAPI& api;
};

Group decomposes(const Subject& subject);
Group solves_systems(const Subject& subject);
Group finds_eigenvalues(const Subject& subject);
Group solves_nonlinear_systems(const Subject& subject);
Group knows_the_machine(const Subject& subject);

} // namespace tessel::testing
