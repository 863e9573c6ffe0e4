/// @file
/// From a field over time to the modes in it and their profiles.
#ifndef TESSEL_FIELDS_FIELDS_H
#define TESSEL_FIELDS_FIELDS_H

#include "fields/source.h"
#include "fields/team.h"

#include <tessel/modes.h>

#include <complex>
#include <cstddef>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tessel::fields {

/// One sentence for the user.
class Error : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// What is done in which stage, for a line of progress; `done` of `all` bytes read.
struct Progress
{
    const char* stage = "";
    std::size_t done = 0, all = 0;
};

struct Options
{
    modes::Options modes;                      ///< band, first sample, noise, most modes: as for records
    std::size_t samples = 32;                  ///< points whose records determine the first poles
    std::size_t memory = std::size_t(1) << 30; ///< bytes that a process may take for the field's sake
    unsigned threads = 1;
    std::function<bool(const Progress&)> progress; ///< false stops the work: modes::Stopped is thrown
};

/// A mode of the whole field.
struct FieldMode
{
    double frequency = 0, decay = 0, quality = 0;
    double frequencyError = 0, decayError = 0, qualityError = 0;
    double significance = 0;
    modes::Kind kind = modes::Kind::oscillating;
    double peak = 0;           ///< largest amplitude of the profile
    std::size_t peakPoint = 0; ///< where it is; profiles of a real field are the cosine's amplitude, 2|c|
};

/// What was found, without the profiles.
struct Outcome
{
    std::vector<FieldMode> modes; ///< by rising frequency
    std::size_t firstStep = 0;
    double referenceTime = 0; ///< of amplitudes and phases: the first step used
    modes::FirstSampleReason firstStepReason = modes::FirstSampleReason::wholeRecord;
    std::size_t decimation = 1; ///< steps averaged into one
    double noise = 0;           ///< root mean square over the points of a sample's noise
    double reducedChiSquare = 0;
    std::vector<std::size_t> samples; ///< points whose records were analysed
    std::vector<modes::Remark> remarks;
};

/// Profiles of consecutive points: `[mode * points + point]`.
struct Profiles
{
    std::size_t firstPoint = 0, points = 0;
    std::vector<double> amplitude, phase, amplitudeError, phaseError;
    std::vector<double> real, imag; ///< amplitude times cosine and sine of the phase
};

/// Points are worked on in blocks of this many, always the same ones whatever the number of ranks, threads and bytes of
/// memory: no bit of a result hangs on them.
constexpr std::size_t kBlock = 1024;

/// Where projections of blocks wait until the poles are final, and survive a run that is stopped. Called from the thread
/// that called analyse().
class Store
{
public:
    Store() = default;
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
    virtual ~Store() = default;

    /// Text that an earlier run kept under this name, if its field and options were these; the same on all ranks.
    virtual std::optional<std::string> text(const std::string& name) = 0;
    /// Rank 0 keeps a text: the poles found in the chosen points.
    virtual void keep(const std::string& name, const std::string& text) = 0;
    /// Begins a pass whose blocks have at most this many doubles each, on all ranks together. Blocks of an earlier pass of
    /// another name are dropped.
    virtual void begin(const std::string& pass, std::size_t doubles) = 0;
    virtual bool has(std::size_t block) = 0;
    virtual void put(std::size_t block, const double* values, std::size_t count) = 0;
    virtual void get(std::size_t block, double* values, std::size_t count) = 0;
};

/// Finds the modes of a field and gives their profiles, block by block.
///
/// @param store     on every rank; holds what each rank puts, on that rank
/// @param begin     on every rank, once, before the first profile
/// @param profiles  on the rank that owns the points, for each of its blocks in order; ranks own consecutive blocks, see
///                  owned(). Not called where there are no modes. From begin() to the last profiles() of a rank it calls
///                  Team::agree() alone, and only with a fault of its own; what the two throw passes through, and must be
///                  thrown on all ranks
/// @throws Error            the field cannot be read or analysed, on all ranks
/// @throws modes::Stopped   Options::progress returned false
Outcome analyse(Source& source, Team& team, Store& store, const Options& options,
                const std::function<void(const Outcome&)>& begin, const std::function<void(const Profiles&)>& profiles);

/// Points of a rank, [first, second): whole blocks.
std::pair<std::size_t, std::size_t> owned(std::size_t points, int rank, int size);

} // namespace tessel::fields

#endif
