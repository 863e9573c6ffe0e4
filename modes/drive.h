/// @file
/// The end of the drive: the first sample from which a record is a sum of modes.
#ifndef TESSEL_MODES_DRIVE_H
#define TESSEL_MODES_DRIVE_H

#include "modes/colour.h"
#include "modes/fit.h"
#include "modes/noise.h"

namespace tessel::modes {

/// A record from one of its samples on, decimated, with its fit.
struct Stage
{
    std::size_t first = 0;
    std::size_t factor = 1;
    double highest = 0; ///< cycles a raw sample
    Noise noise;
    Series series; ///< behind the whitener
    Whitener whitener;
    double contrast = 1; ///< of the noise's spectrum, if it was made white
    Fit fit;
    bool good = false;    ///< the fit explains the series
    bool skipped = false; ///< what lies before `first` was taken for a drive
};

/// Fits the record from `first` on, anew.
Stage fit_from(const Series& record, std::size_t first, const Options& options, double unit, Effort effort,
               const Watch& watch);

/// Fits a record, behind its drive if it has one; its noise may be coloured.
Stage fit_stage(const Series& record, const Options& options, double unit, const Watch& watch);

/// Samples in a block mean of a record of so many, whose lines end at `highest` cycles a sample.
std::size_t block_factor(double highest, std::size_t samples);

/// The noise of a part of the record from `from` on, carried to another first sample: a drive must not count as noise.
Noise extend(const Series& record, const Noise& noise, std::size_t from, std::size_t first, double depth);

/// The shortest time, in samples, in which a term that decays falls by a neper.
double shortest_life(const Terms& terms);

/// Whether what the terms leave has one mean square over time.
bool stationary(const Series& series, const Terms& terms);

/// Whether the noise that a good fit leaves is coloured.
bool is_coloured(const Stage& stage);

/// Fits a late part of the record, from its onset or a quarter, a half or seven tenths behind it on; good if one of
/// them is a sum of few modes and noise, white or, if asked for, coloured.
Stage fit_late(const Series& record, const Options& options, double unit, bool coloured_noise, const Watch& watch);

/// Walks a late fit back to the end of the drive.
///
/// The record from an earlier sample on must be explained by the same modes and at most one new mode for every
/// kPeriodsPerMode periods of the highest line, as modes of short life imitate any drive. The steps halve where one
/// fails.
Stage walk_to_drive(const Series& record, Stage late, const Watch& watch);

/// Fits the decimated record of a stage anew, its noise coloured: in turns the noise's spectrum is found in what the
/// fit leaves, and the record fitted behind the filter that makes it white. Good only if what is left does not change
/// over time: a drive is no noise.
Stage fit_coloured(const Series& record, const Stage& base, const Watch& watch);

/// Leaves out the first samples where terms explain nothing else: the last of a drive, such as a step's rise.
Stage skip_artefacts(const Series& record, Stage stage, const Watch& watch);

/// Cost of a stage against another: its modes, and the periods that it leaves out over kPeriodsPerMode.
double cost(const Stage& stage);

} // namespace tessel::modes

#endif
