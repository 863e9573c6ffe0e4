/// What is known of a field before a pass: its poles, and what the records that gave them say.
#pragma once

#include "fields/basis.h"
#include "fields/samples.h"

namespace tessel::fields {

struct Start
{
    Terms terms;
    std::size_t firstStep = 0;
    modes::FirstSampleReason reason = modes::FirstSampleReason::wholeRecord;
    bool background = false;     ///< records hold a drift
    std::size_t rounds = 0;      ///< joint analyses before this one
    std::size_t passes = 0;      ///< over the whole field since the last of them: the poles are theirs
    double reducedChiSquare = 0; ///< of the records
    std::vector<std::size_t> samples;
    std::vector<modes::Remark> remarks;
};

/// Exact: hexadecimal numbers.
std::string to_text(const Start& start);
/// Nothing of a text that to_text() did not write.
std::optional<Start> from_text(const std::string& text);

/// Analyses the records together, on rank 0.
Start analyse_samples(Work& work, const Samples& samples);

} // namespace tessel::fields
