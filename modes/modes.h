/// @file
/// From a raw record of a field solver to the modes in it, each with its standard error.
///
/// A record is a sum of damped oscillations and white noise, after whatever drove it:
///
///     y(t) = sum_j A_j exp(-g_j (t - t0)) cos(2 pi f_j (t - t0) + p_j) + noise        (a real record)
///     y(t) = sum_j A_j exp(i p_j) exp((-g_j + 2 pi i f_j) (t - t0)) + noise           (a complex record)
///
/// Nothing needs to be chosen: band, noise, first sample and the number of modes are found from the record. Needs C++17
/// and the standard library alone.
///
///     const tessel::modes::Result result = tessel::modes::analyse(samples, start, spacing);
///     for (const tessel::modes::Mode& mode : result.modes)
///         use(mode.frequency, mode.frequencyError);
#ifndef TESSEL_MODES_H
#define TESSEL_MODES_H

#include <complex>
#include <cstddef>
#include <functional>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

/// Seen by hosts of the library.
#define TESSEL_MODES_API __attribute__((visibility("default")))

namespace tessel::modes {

/// What a mode does in time.
enum class Kind
{
    oscillating, ///< frequency not zero, decay not below zero by more than its standard error explains
    overdamped,  ///< a real decay without oscillation
    growing,     ///< grows with time, significantly: an unstable simulation
};

/// One mode. A standard error is the square root of the estimate's variance; errors are Gaussian to first order.
struct Mode
{
    double frequency = 0;      ///< f in 1 / unit of time; of a complex record with its sign
    double decay = 0;          ///< g in 1 / unit of time; negative if the mode grows
    double quality = 0;        ///< pi |f| / g; infinite if g is zero, negative if the mode grows
    double amplitude = 0;      ///< A at the reference time, in the unit of the record; of a real record's cosine
    double phase = 0;          ///< p at the reference time, in (-pi, pi]
    double frequencyError = 0; ///< standard error of the frequency
    double decayError = 0;     ///< standard error of the decay
    double qualityError = 0;   ///< standard error of the quality factor
    double amplitudeError = 0; ///< standard error of the amplitude
    double phaseError = 0;     ///< standard error of the phase
    /// Rise of chi^2 without this mode, over the rise that chance reaches once in a thousand records: above 1 for all
    /// modes that are reported.
    double significance = 0;
    Kind kind = Kind::oscillating; ///< what the mode does in time
};

/// "oscillating", "overdamped" or "growing".
TESSEL_MODES_API const char* name(Kind kind) noexcept;

/// What a program can tell apart about a result; Remark::text says it to a person.
enum class RemarkCode
{
    driveSkipped,   ///< value: time of the first sample used
    nothingRings,   ///< no mode was found; value: highest sample, by magnitude
    constantRecord, ///< all samples are equal; value: the sample
    recordTooShort, ///< for the resolution of a decay; value: length that is needed, in time
    bandEdge, ///< a line lies close to the highest frequency of the spacing and may be folded; value: its frequency
    spacingTooCoarse, ///< fewer than 2.5 samples a period; value: spacing that would do
    modelUnexplained, ///< the modes do not explain the record; value: chi^2 per degree of freedom
    closeModes,       ///< two modes closer than their errors resolve; value: the frequency between them
    searchStopped,    ///< at a limit of modes or of work; value: number of modes then
    background,       ///< an offset or a slow drift was fitted beside the modes; value: its size at the reference time
    noiseAssumed,     ///< no empty band to measure the noise in; value: the standard deviation that was taken
    growingMode,      ///< a mode grows: the simulation may be unstable; value: its frequency
    colouredNoise,    ///< the noise is not white, and was weighted by its spectrum; value: largest over smallest level
    recordsDiffer,    ///< a record shares no poles with the others; value: its place, from 0
};

/// The enumerator's name, such as "driveSkipped".
TESSEL_MODES_API const char* name(RemarkCode code) noexcept;

/// One remark.
struct Remark
{
    RemarkCode code = RemarkCode::nothingRings; ///< what the remark is
    double value = 0;                           ///< what it is about, as RemarkCode says
    std::string text;                           ///< one sentence, without a line break
};

/// Where the work stands, for Options::progress.
struct Progress
{
    const char* stage = ""; ///< "band", "start", "refine", "search", "select", "drive" or "errors"
    std::size_t modes = 0;  ///< modes held now
    double part = 0;        ///< of the record that is modelled, 0 to 1
};

/// Everything has a default that means "find out".
struct Options
{
    std::optional<double> lowest;     ///< lower edge of the band, in 1 / unit of time: modes outside are not reported
    std::optional<double> highest;    ///< upper edge of the band
    std::optional<std::size_t> first; ///< first sample that no drive reaches, from 0
    std::optional<double> noise;      ///< standard deviation of the noise of a sample (of each of its two parts)
    std::optional<std::size_t> mostModes;          ///< no more are told of, the most significant first; 300 otherwise
    std::function<bool(const Progress&)> progress; ///< called often, from the caller's thread; false stops the work
};

/// Why a record is used from Result::firstSample on.
enum class FirstSampleReason
{
    wholeRecord,  ///< nothing had to be left out
    given,        ///< Options::first says so
    driveSkipped, ///< what lies before is no sum of few modes
};

/// "wholeRecord", "given" or "driveSkipped".
TESSEL_MODES_API const char* name(FirstSampleReason reason) noexcept;

/// What was found.
struct Result
{
    std::vector<Mode> modes;     ///< by rising frequency
    double referenceTime = 0;    ///< of amplitudes and phases: the time of the first sample used
    std::size_t firstSample = 0; ///< first sample used, from 0
    FirstSampleReason firstSampleReason = FirstSampleReason::wholeRecord; ///< why the first sample used is that one
    std::size_t decimation = 1;                                           ///< samples averaged into one
    double noise = 0;            ///< standard deviation of the noise of a sample, at the first sample used
    double reducedChiSquare = 0; ///< chi^2 per degree of freedom by the noise that was found before the fit
    double lowest = 0;           ///< band that was searched, in 1 / unit of time
    double highest = 0;          ///< band that was searched
    std::vector<Remark> remarks; ///< what should be known about the result

    /// Whether a remark of this kind was made.
    bool has(RemarkCode code) const
    {
        for (const Remark& remark : remarks)
            if (remark.code == code)
                return true;
        return false;
    }
};

/// What is wrong with the input.
enum class InputFault
{
    tooFewSamples, ///< fewer than 8 are left
    notFinite,     ///< index() says which sample
    spacing,       ///< not a positive finite number
    start,         ///< not finite
    option,        ///< a band, a noise level or a first sample that means nothing
};

/// The input cannot be analysed.
class TESSEL_MODES_API InputError : public std::invalid_argument
{
public:
    /// @param fault  what is wrong
    /// @param index  the sample that it is about, from 0
    /// @param text   one sentence
    InputError(InputFault fault, std::size_t index, const std::string& text)
        : std::invalid_argument(text), fault_(fault), index_(index)
    {}
    /// A copy.
    InputError(const InputError&) = default;
    /// Becomes a copy.
    InputError& operator=(const InputError&) = default;
    ~InputError() override;
    /// What is wrong.
    InputFault fault() const noexcept { return fault_; }
    /// The sample that it is about, from 0.
    std::size_t index() const noexcept { return index_; }

private:
    InputFault fault_;
    std::size_t index_;
};

/// Options::progress returned false.
class TESSEL_MODES_API Stopped : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
    /// A copy.
    Stopped(const Stopped&) = default;
    /// Becomes a copy.
    Stopped& operator=(const Stopped&) = default;
    ~Stopped() override;
};

/// Finds the modes of a real record.
///
/// @param samples  the record, of at least 8 samples, equally spaced
/// @param start    time of the first sample
/// @param spacing  time from one sample to the next
/// @param options  all "find out" by default
/// @throws InputError      if the input cannot be analysed
/// @throws Stopped         if Options::progress returned false; what it throws itself passes through
/// @throws std::bad_alloc  if memory cannot be had
/// @par Limits  Stationary noise, white or coloured. Records below some 100 samples, lines above 0.4 cycles a sample in a
///   real record, and drives that come back after their end are found less reliably; see the remarks of the result.
/// @par State  None. Any number of threads may call at once. The same input gives the same result, to the
///   bit, on every processor. Nothing is printed.
/// @par Source  G. H. Golub, V. Pereyra, SIAM J. Numer. Anal. 10 (1973) 413 and L. Kaufman, BIT 15 (1975) 49 (variable
///   projection); R. Roy, T. Kailath, IEEE Trans. ASSP 37 (1989) 984 (start values by rotational invariance).
TESSEL_MODES_API Result analyse(const std::vector<double>& samples, double start, double spacing,
                                const Options& options = Options());

/// Finds the modes of a complex record, in the same way.
TESSEL_MODES_API Result analyse(const std::vector<std::complex<double>>& samples, double start, double spacing,
                                const Options& options = Options());

/// One record of several.
struct Record {
    /// The samples, of at least 8; all records are real, or all are complex.
    std::variant<std::vector<double>, std::vector<std::complex<double>>> samples;
    double start = 0; ///< time of the first sample
};

/// What a mode is in one record.
struct Residue {
    double amplitude = 0;      ///< A at the record's reference time, in the unit of the record
    double phase = 0;          ///< p at the record's reference time, in (-pi, pi]
    double amplitudeError = 0; ///< standard error of the amplitude; the amplitude may be smaller
    double phaseError = 0;     ///< standard error of the phase; pi or more says nothing about it
};

/// A mode of several records: one pole, and a residue in each.
struct JointMode {
    double frequency = 0;      ///< as Mode has it, and so the others
    double decay = 0;          ///< g
    double quality = 0;        ///< pi |f| / g
    double frequencyError = 0; ///< standard error of the frequency
    double decayError = 0;     ///< standard error of the decay
    double qualityError = 0;   ///< standard error of the quality factor
    /// Rise of chi^2 without this mode, of all records or of the one that it matters most to, over that which chance
    /// reaches once in a thousand sets: above 1 for all modes that are reported.
    double significance = 0;
    Kind kind = Kind::oscillating; ///< what the mode does in time
    std::vector<Residue> residues; ///< in each record, in the order in which they were given
};

/// What was found about one record of several.
struct JointRecord {
    double referenceTime = 0;     ///< of its amplitudes and phases: the time of its first sample used
    std::size_t firstSample = 0;  ///< first sample used, from 0
    double noise = 0;             ///< standard deviation of the noise of a sample, at the first sample used
    double reducedChiSquare = 0;  ///< its chi^2 per degree of freedom
    bool constant = false;        ///< all its samples are equal: it was left out, and no mode shows in it
};

/// What was found in several records.
struct JointResult {
    std::vector<JointMode> modes;     ///< by rising frequency
    std::vector<JointRecord> records; ///< in the order in which they were given
    FirstSampleReason firstSampleReason = FirstSampleReason::wholeRecord; ///< why the first samples used are those
    std::size_t decimation = 1;       ///< samples averaged into one
    double reducedChiSquare = 0;      ///< chi^2 per degree of freedom of all records
    double lowest = 0;                ///< band that was searched, in 1 / unit of time
    double highest = 0;               ///< band that was searched
    std::vector<Remark> remarks;      ///< what should be known about the result

    /// Whether a remark of this kind was made.
    bool has(RemarkCode code) const
    {
        for (const Remark& remark : remarks)
            if (remark.code == code)
                return true;
        return false;
    }

    /// The part of one record, from 0: the modes with its own amplitudes and phases, and the remarks about it.
    TESSEL_MODES_API Result of(std::size_t record) const;
};

/// Finds the modes of several records of one structure, such as those of a solver's probes, together.
///
/// All records have the modes' frequencies and decays in common; amplitudes and phases are each record's own, and may
/// be nothing in some. The noise of each record is found, and weighs it. A mode that is weak in every record is found by what
/// all of them say together. Time grows linearly with the number of records.
///
/// @param records  at least one, of any lengths, starts and units
/// @param spacing  time from one sample to the next, of all records
/// @param options  as of analyse(). Options::first counts samples from the earliest start of a record; Options::noise is
///                 that of every record
/// @throws InputError      if the input cannot be analysed; its text names the record, from 0
/// @throws Stopped         if Options::progress returned false; what it throws itself passes through
/// @throws std::bad_alloc  if memory cannot be had
/// @par Limits  Stationary noise, white or coloured, that is independent from record to record: noise in common is taken
///   for modes, but for a simulation's own rounding. A drive ends at one instant for all records. Starts are taken to the nearest sample of the earliest record's grid when that
///   instant is looked for, and only then.
/// @par State  None, as of analyse().
/// @par Source  G. H. Golub, R. J. LeVeque, Proc. 1979 Army Numerical Analysis and Computers Conf., 1 (variable projection
///   with several right sides).
TESSEL_MODES_API JointResult analyseJointly(const std::vector<Record>& records, double spacing,
                                            const Options& options = Options());

} // namespace tessel::modes

#endif
