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
    int exponent = 0;            ///< of the power of two that the chosen samples stay below
    std::size_t rounds = 0;      ///< joint analyses before this one
    std::size_t passes = 0;      ///< over the whole field since the last of them: the poles are theirs
    std::size_t dropped = 0;     ///< terms that the whole field did not bear out
    double reducedChiSquare = 0; ///< of the records
    /// Standard deviation of the noise over time, up to a factor: its logarithm at steps after the first used, and
    /// between them on straight lines. Empty: it is constant.
    std::vector<double> noiseSteps, noiseLogs;
    std::vector<std::size_t> samples;
    std::vector<modes::Remark> remarks;
};

/// Exact: hexadecimal numbers.
std::string to_text(const Start& start);
/// Nothing of a text that to_text() did not write.
std::optional<Start> from_text(const std::string& text);

/// The basis of a pass with these poles: block means that leave standard errors as they are to 1 %.
/// @throws Error  the field has too few steps
Span make_span(const Shape& shape, const Start& start, unsigned threads);

/// Analyses the records together, on rank 0.
Start analyse_samples(Work& work, const Samples& samples);

} // namespace tessel::fields
