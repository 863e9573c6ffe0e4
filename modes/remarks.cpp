#include "modes/remarks.h"

#include "common/elementary.h"

#include <cmath>
#include <cstdio>

namespace tessel::modes {

namespace {

constexpr double kUnexplained = 1.5; // chi^2 per degree of freedom
constexpr double kCoarse = 2.5;      // samples a period
constexpr double kEdge = 0.45;       // cycles a sample
constexpr double kResolved = 3;      // standard errors between two modes
constexpr double kKnownDecay = 0.5;  // relative standard error of a decay

std::string number(double value)
{
    char text[40];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

/// Whether a term was found outside a band that was given: then it is the band that is empty, not the record.
bool rings_outside(const Result& result, const Stage& stage, double spacing)
{
    const double edge = stage.highest / spacing;
    if (result.highest == edge && result.lowest == (stage.series.complex() ? -edge : 0))
        return false;
    const double scale = 2 * M_PI * static_cast<double>(stage.factor) * spacing;
    for (const Term& term : stage.fit.terms) {
        const double frequency = static_cast<double>(term.angle) / scale;
        if (term.kind == Term::Kind::oscillating && (frequency < result.lowest || frequency > result.highest))
            return true;
    }
    return false;
}

std::string nothing_rings(const Result& result, const Stage& stage, double spacing)
{
    if (!rings_outside(result, stage, spacing))
        return "nothing rings in this record";
    if (!(result.lowest < result.highest))
        return "nothing rings in the band from " + number(result.lowest) + " on, but there are lines below";
    return "nothing rings in the band from " + number(result.lowest) + " to " + number(result.highest) +
           ", but there are lines outside";
}

} // namespace

const char* name(Kind kind) noexcept
{
    switch (kind) {
    case Kind::oscillating:
        return "oscillating";
    case Kind::overdamped:
        return "overdamped";
    case Kind::growing:
        return "growing";
    }
    return "";
}

const char* name(FirstSampleReason reason) noexcept
{
    switch (reason) {
    case FirstSampleReason::wholeRecord:
        return "wholeRecord";
    case FirstSampleReason::given:
        return "given";
    case FirstSampleReason::driveSkipped:
        return "driveSkipped";
    }
    return "";
}

const char* name(RemarkCode code) noexcept
{
    switch (code) {
    case RemarkCode::driveSkipped:
        return "driveSkipped";
    case RemarkCode::nothingRings:
        return "nothingRings";
    case RemarkCode::constantRecord:
        return "constantRecord";
    case RemarkCode::recordTooShort:
        return "recordTooShort";
    case RemarkCode::bandEdge:
        return "bandEdge";
    case RemarkCode::spacingTooCoarse:
        return "spacingTooCoarse";
    case RemarkCode::modelUnexplained:
        return "modelUnexplained";
    case RemarkCode::closeModes:
        return "closeModes";
    case RemarkCode::searchStopped:
        return "searchStopped";
    case RemarkCode::background:
        return "background";
    case RemarkCode::noiseAssumed:
        return "noiseAssumed";
    case RemarkCode::growingMode:
        return "growingMode";
    case RemarkCode::colouredNoise:
        return "colouredNoise";
    case RemarkCode::recordsDiffer:
        return "recordsDiffer";
    }
    return "";
}

void remark(Result& result, RemarkCode code, double value, const std::string& text)
{
    result.remarks.push_back({code, value, text});
}

void add_remarks(Result& result, const Stage& stage, double start, double spacing, double peak)
{
    if (stage.skipped)
        remark(result, RemarkCode::driveSkipped, start + static_cast<double>(stage.first) * spacing,
               "a drive was skipped: the first sample used is at " +
                   number(start + static_cast<double>(stage.first) * spacing));
    if (stage.fit.stopped)
        remark(result, RemarkCode::searchStopped, static_cast<double>(stage.fit.terms.size()),
               "the search stopped at its limit of " + std::to_string(stage.fit.terms.size()) + " modes");
    else if (stage.fit.exhausted)
        remark(result, RemarkCode::searchStopped, static_cast<double>(stage.fit.terms.size()),
               "the search stopped at its limit of work");
    if (!stage.noise.found)
        remark(result, RemarkCode::noiseAssumed, result.noise,
               "there is no empty band to measure the noise in: it was taken as " + number(result.noise));
    if (stage.fit.failed || result.reducedChiSquare > kUnexplained)
        remark(result, RemarkCode::modelUnexplained, result.reducedChiSquare,
               "the modes do not explain the record: chi^2 per degree of freedom is " +
                   number(result.reducedChiSquare));
    const double span = static_cast<double>(stage.series.size() * stage.factor) * spacing;
    for (std::size_t j = 0; j < result.modes.size(); ++j) {
        const Mode& mode = result.modes[j];
        const double cycles = std::abs(mode.frequency) * spacing;
        if (cycles > kEdge)
            remark(result, RemarkCode::bandEdge, mode.frequency,
                   "the line at " + number(mode.frequency) + " lies near the edge of the band and may be folded");
        else if (cycles * kCoarse > 1)
            remark(result, RemarkCode::spacingTooCoarse, 1 / (4 * std::abs(mode.frequency)),
                   "the spacing leaves fewer than 2.5 samples a period of " + number(mode.frequency) + ": take " +
                       number(1 / (4 * std::abs(mode.frequency))));
        if (mode.kind == Kind::growing)
            remark(result, RemarkCode::growingMode, mode.frequency,
                   "the mode at " + number(mode.frequency) + " grows: the simulation may be unstable");
        // A decay's standard error falls with the record's length to the power 3/2.
        if (mode.kind == Kind::oscillating && mode.decayError > kKnownDecay * std::abs(mode.decay))
            remark(result, RemarkCode::recordTooShort,
                   span * exponential(2.0 / 3.0 * logarithm(mode.decayError / (kKnownDecay * std::abs(mode.decay)))),
                   "the record is too short for the decay of " + number(mode.frequency));
        if (j + 1 < result.modes.size()) {
            const Mode& next = result.modes[j + 1];
            const double apart = std::hypot(2 * M_PI * (next.frequency - mode.frequency), next.decay - mode.decay);
            const double error = std::hypot(std::hypot(2 * M_PI * mode.frequencyError, mode.decayError),
                                            std::hypot(2 * M_PI * next.frequencyError, next.decayError));
            if (apart < kResolved * error)
                remark(result, RemarkCode::closeModes, (mode.frequency + next.frequency) / 2,
                       "two modes near " + number(mode.frequency) + " are closer than their errors resolve");
        }
    }
    if (result.modes.empty())
        remark(result, RemarkCode::nothingRings, peak, nothing_rings(result, stage, spacing));
}

} // namespace tessel::modes
