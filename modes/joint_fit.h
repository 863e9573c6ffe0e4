/// @file
/// The whole fit of several records: start values, refinement over growing parts, search, selection, end of the drive.
#ifndef TESSEL_MODES_JOINT_FIT_H
#define TESSEL_MODES_JOINT_FIT_H

#include "modes/drive.h"
#include "modes/joint.h"

namespace tessel::modes {

/// A joint model of a set.
struct JointFit
{
    JointModel model;
    std::vector<double> significance; ///< of each term
    bool stopped = false;             ///< at the limit of modes
    bool exhausted = false;           ///< at the limit of work
    bool failed = false;              ///< given up: no sum of few exponentials and noise
    bool walks = false;               ///< the lines stand on feet that rounding explains
    double reduced = 0;               ///< chi^2 per degree of freedom
};

/// Raw records and where each begins, in samples after the earliest.
struct RawSet
{
    std::vector<Series> records;
    std::vector<std::size_t> offset;
    std::vector<double> unit; ///< what one of a record's values stands for, in the caller's unit

    /// First sample of a record that is not before `from`, counted from the earliest start.
    std::size_t first(std::size_t p, std::size_t from) const { return from > offset[p] ? from - offset[p] : 0; }
    std::vector<std::size_t> firsts(std::size_t from) const;
    /// Some of the records.
    RawSet some(const std::vector<std::size_t>& which) const;
    /// Latest `from` that leaves every record this many samples.
    std::size_t latest(std::size_t fewest) const;
};

/// The records from one instant on, decimated, with their fit.
struct JointStage
{
    std::size_t from = 0; ///< the instant, in samples after the earliest start
    std::size_t factor = 1;
    double highest = 0;             ///< cycles a raw sample
    std::vector<Noise> noise;       ///< of each record
    std::vector<Whitener> whitener; ///< of each record, if the noise is coloured
    double contrast = 1;            ///< of the noise's spectrum, where it is largest
    std::vector<double> level;      ///< of that noise in each record: standard deviation of a mean of samples
    std::vector<Series> series;     ///< behind the whitener
    JointFit fit;
    bool good = false;    ///< the fit explains the records
    bool skipped = false; ///< what lies before was taken for a drive

    RecordSet set() const { return RecordSet(series); }
};

/// Fits the records, behind their drive if they have one: it ends at one instant for all.
JointStage fit_records(const RawSet& raw, const Options& options, const Watch& watch);

} // namespace tessel::modes

#endif
