#pragma once

#include "examples/resonator/cavity.h"
#include "examples/resonator/comparison.h"
#include "examples/resonator/eigenmodes.h"
#include "examples/resonator/fit.h"
#include "examples/resonator/hankel.h"
#include "examples/resonator/options.h"
#include "examples/resonator/response.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace resonator {

/// A record and, if it was simulated, the cavity that it comes from.
struct Subject
{
    Record record;
    std::optional<Cavity> cavity;
    std::vector<CavityMode> exact; ///< of the cavity
};

/// All that is found out about a record.
struct Findings
{
    std::vector<Fit> fits;
    Fit fit; ///< the best of them
    std::vector<Mode> modes;
    Hankel hankel;
    std::optional<Hankel> analytic; ///< of a real record that is long enough
    Response response;              ///< of a record: its spectrum
    std::vector<Pair> pairs;        ///< of a cavity
    std::optional<Eigensolve> eigensolve;
};

using Progress = std::function<void(const std::string&)>;

/// The samples to fit. Throws an Error if there are none.
Window choose_window(const Options& options, const Subject& subject);

/// Fits the record and realises its system; of a cavity, takes the other roads to its modes as well. `progress` is told
/// what is being done.
Findings analyse(FDTDCalcAPI& api, const Options& options, const Subject& subject, const Window& window,
                 const Progress& progress);

} // namespace resonator
