#pragma once

#include "examples/resonator/cavity.h"
#include "examples/resonator/comparison.h"
#include "examples/resonator/eigenmodes.h"
#include "examples/resonator/hankel.h"
#include "examples/resonator/response.h"

#include <functional>
#include <string>
#include <vector>

namespace resonator {

/// A simulated cavity.
struct Subject
{
    Cavity cavity;
    Record record;
    std::vector<CavityMode> exact;
};

/// All results for it.
struct Findings
{
    tessel::modes::Result result; ///< from the record alone
    std::vector<Pair> pairs;      ///< its modes beside the exact ones, and what the other methods find
    Eigensolve eigensolve;
    Window window; ///< of the Hankel matrix
    Hankel hankel;
    Response response;
};

using Progress = std::function<void(const std::string&)>;

/// Finds the modes of the record, as it is and with nothing chosen; then those of the cavity, without the record.
/// `progress` is called with the name of each step.
Findings analyse(FDTDCalcAPI& api, const Subject& subject, const Progress& progress);

} // namespace resonator
