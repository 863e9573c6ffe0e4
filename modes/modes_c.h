/**
 * @file
 * From a raw record of a field solver to the modes in it, for hosts in C and in languages that call C.
 *
 * Plain C (C99) and C++ (C++11); needs the standard library and the header of the fit alone. It is the interface of
 * `<tessel/modes.h>`, which says what a record, a mode and a remark are, in plain types:
 *
 *     tessel_modes_result* result;
 *     char message[128];
 *     if (tessel_modes_analyse(samples, count, start, spacing, NULL, &result, message, sizeof message) != 0)
 *         fprintf(stderr, "%s\n", message);
 *     else {
 *         tessel_mode mode;
 *         for (size_t j = 0; tessel_modes_list(result, j, &mode, 1, sizeof mode) > j; ++j)
 *             use(mode.frequency, mode.frequency_se);
 *         tessel_modes_free(result);
 *     }
 *
 * Units are those of the record: times are in the unit of the spacing, frequencies and decays in 1 / that unit.
 *
 * No function throws, prints or keeps state. Any number of threads may call at once; a result may be read by any number
 * of threads at once, and freed by one when all are done. The same input gives the same bits as `<tessel/modes.h>`.
 */
#ifndef TESSEL_MODES_C_H
#define TESSEL_MODES_C_H

#include <tessel/leastsq_prony_svd.h> /* tessel_complex */

#include <stddef.h>
#include <stdint.h>

/** Seen by hosts of the library. */
#define TESSEL_MODES_C_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/** How an analysis ended. */
typedef enum tessel_modes_status
{
    TESSEL_MODES_OK = 0,              /**< there is a result; it may hold no mode */
    TESSEL_MODES_TOO_FEW_SAMPLES = 1, /**< fewer than 8 are left */
    TESSEL_MODES_NOT_FINITE = 2,      /**< a sample is infinite or not a number */
    TESSEL_MODES_SPACING = 3,         /**< the spacing is not a positive finite number */
    TESSEL_MODES_START = 4,           /**< the time of the first sample is not finite */
    TESSEL_MODES_OPTION = 5,          /**< a band, a noise level or a first sample that means nothing */
    TESSEL_MODES_STOPPED = 6,         /**< the progress function stopped the work */
    TESSEL_MODES_NO_MEMORY = 7,       /**< memory cannot be had */
    TESSEL_MODES_ARGUMENT = 8,        /**< a null pointer, or options that were not initialised */
    TESSEL_MODES_FAILED = 9           /**< anything else; the message says what */
} tessel_modes_status;

/** What a mode does in time. */
typedef enum tessel_mode_kind
{
    TESSEL_MODE_OSCILLATING = 0, /**< it rings */
    TESSEL_MODE_OVERDAMPED = 1,  /**< a real decay without oscillation */
    TESSEL_MODE_GROWING = 2      /**< grows with time, significantly: an unstable simulation */
} tessel_mode_kind;

/** One mode: A exp(-g (t - t0)) cos(2 pi f (t - t0) + p) of a real record, A exp(i p) exp((-g + 2 pi i f) (t - t0)) of
 * a complex one, with t0 the reference time. The ending _se is for the standard error. Later versions may add members
 *  at the end. */
typedef struct tessel_mode
{
    double frequency;    /**< f; of a complex record with its sign */
    double decay;        /**< g; negative if the mode grows */
    double quality;      /**< pi |f| / g; infinite if g is zero, negative if the mode grows */
    double amplitude;    /**< A, in the unit of the record */
    double phase;        /**< p, in (-pi, pi] */
    double frequency_se; /**< standard error of the frequency */
    double decay_se;     /**< standard error of the decay */
    double quality_se;   /**< standard error of the quality factor */
    double amplitude_se; /**< standard error of the amplitude */
    double phase_se;     /**< standard error of the phase */
    double significance; /**< above 1 for all modes that are reported; see tessel::modes::Mode */
    int32_t kind;        /**< a #tessel_mode_kind */
} tessel_mode;

/** What else was found. Later versions may add members at the end. */
typedef struct tessel_modes_summary
{
    size_t modes;              /**< number of modes */
    size_t remarks;            /**< number of remarks */
    double reference_time;     /**< of amplitudes and phases: the time of the first sample used */
    size_t first_sample;       /**< first sample used, from 0 */
    size_t decimation;         /**< samples averaged into one */
    double noise;              /**< standard deviation of the noise of a sample, at the first sample used */
    double reduced_chi_square; /**< chi^2 per degree of freedom by the noise that was found before the fit */
    double lowest;             /**< lower edge of the band that was searched */
    double highest;            /**< upper edge of the band that was searched */
} tessel_modes_summary;

/**
 * Where the work stands; called often, from the thread that called for the analysis.
 *
 * It may throw nothing and must return: an exception of C++ ends the analysis with TESSEL_MODES_FAILED.
 *
 * @param stage  a word such as "search", for the time of the call
 * @param modes  modes held now
 * @param part   of the record that is modelled, 0 to 1
 * @param data   tessel_modes_options::progress_data
 * @return 0 to go on, anything else to stop
 */
typedef int tessel_modes_progress(const char* stage, size_t modes, double part, void* data);

/** What may be known beforehand. tessel_modes_options_init() sets every member to "find out". Later versions may add
 *  members at the end. */
typedef struct tessel_modes_options
{
    size_t size;       /**< of this structure; set by tessel_modes_options_init() */
    double lowest;     /**< lower edge of the band, modes outside are not reported; -infinity: find out */
    double highest;    /**< upper edge of the band; infinity: find out */
    int64_t first;     /**< first sample that no drive reaches, from 0; -1: find out */
    double noise;      /**< standard deviation of a sample's noise (of each of its two parts); 0: find out */
    size_t most_modes; /**< no more are told of, the most significant first; 0: 300 */
    tessel_modes_progress* progress; /**< may be null */
    void* progress_data;             /**< handed to it */
} tessel_modes_options;

/** What an analysis found. */
typedef struct tessel_modes_result tessel_modes_result;

/**
 * Sets all options to "find out".
 *
 * @param[out] options  written, `size` bytes
 * @param[in]  size     sizeof(tessel_modes_options), as the caller was compiled
 */
TESSEL_MODES_C_API void tessel_modes_options_init(tessel_modes_options* options, size_t size);

/**
 * Finds the modes of a real record.
 *
 * @param[in]  samples  the record, equally spaced; copied once, not modified
 * @param[in]  count    number of samples, at least 8
 * @param[in]  start    time of the first sample
 * @param[in]  spacing  time from one sample to the next
 * @param[in]  options  null: find out everything
 * @param[out] result   what was found, to be given to tessel_modes_free(); null on failure
 * @param[out] message  empty on success, otherwise a sentence about what is wrong, cut to `room` with its terminating
 *                      zero; counts samples from 0; may be null
 * @param[in]  room     size of message; nothing is written if 0
 * @return TESSEL_MODES_OK, or why there is no result
 */
TESSEL_MODES_C_API tessel_modes_status tessel_modes_analyse(const double* samples, size_t count, double start,
                                                            double spacing, const tessel_modes_options* options,
                                                            tessel_modes_result** result, char* message, size_t room);

/** Finds the modes of a complex record, in the same way. */
TESSEL_MODES_C_API tessel_modes_status tessel_modes_analyse_complex(const tessel_complex* samples, size_t count,
                                                                    double start, double spacing,
                                                                    const tessel_modes_options* options,
                                                                    tessel_modes_result** result, char* message,
                                                                    size_t room);

/**
 * Finds the modes of several real records of one structure, such as those of a solver's probes, together.
 *
 * All records have the modes' frequencies and decays in common; amplitudes and phases are each record's own, and may be
 * nothing in some. See tessel::modes::analyseJointly.
 *
 * @param[in]  samples  for each record its samples, equally spaced; copied once, not modified
 * @param[in]  counts   number of samples of each record, at least 8
 * @param[in]  starts   time of the first sample of each record; null: 0 for all
 * @param[in]  records  number of records, at least 1
 * @param[in]  spacing  time from one sample to the next, of all records
 * @param[in]  options  null: find out everything; `first` counts samples from the earliest start of a record
 * @param[out] results  `records` pointers: for each record its part of what was found, each to be given to
 *                      tessel_modes_free(); all null on failure. All have the same modes in the same order, with
 *                      frequency, decay, quality, significance and kind in common, and amplitude, phase, reference
 * time, first sample, noise and chi^2 of the record. A remark about one record stands with that record, the others with
 * each.
 * @param[out] message  as of tessel_modes_analyse(); names the record, from 0
 * @param[in]  room     size of message; nothing is written if 0
 * @return TESSEL_MODES_OK, or why there is no result
 */
TESSEL_MODES_C_API tessel_modes_status tessel_modes_analyse_jointly(const double* const* samples, const size_t* counts,
                                                                    const double* starts, size_t records,
                                                                    double spacing, const tessel_modes_options* options,
                                                                    tessel_modes_result** results, char* message,
                                                                    size_t room);

/** Finds the modes of several complex records together, in the same way. */
TESSEL_MODES_C_API tessel_modes_status tessel_modes_analyse_jointly_complex(
    const tessel_complex* const* samples, const size_t* counts, const double* starts, size_t records, double spacing,
    const tessel_modes_options* options, tessel_modes_result** results, char* message, size_t room);

/**
 * Copies modes, by rising frequency.
 *
 * @param[in]  result  null counts as a result without modes
 * @param[in]  from    first mode to copy, from 0
 * @param[out] modes   array of `room` modes, filled as far as there are modes; may be null if room is 0
 * @param[in]  room    number of modes that fit
 * @param[in]  size    sizeof(tessel_mode), as the caller was compiled
 * @return number of modes of the result, whatever was copied
 */
TESSEL_MODES_C_API size_t tessel_modes_list(const tessel_modes_result* result, size_t from, tessel_mode* modes,
                                            size_t room, size_t size);

/**
 * What else was found.
 *
 * @param[in]  result   null counts as a result without modes
 * @param[out] summary  written, `size` bytes
 * @param[in]  size     sizeof(tessel_modes_summary), as the caller was compiled
 */
TESSEL_MODES_C_API void tessel_modes_about(const tessel_modes_result* result, tessel_modes_summary* summary,
                                           size_t size);

/**
 * One remark.
 *
 * @param[in]  result  what was found; may be null
 * @param[in]  index   of the remark, from 0
 * @param[out] name    what a program tells it by: the name of a tessel::modes::RemarkCode, such as "recordTooShort";
 *                     may be null
 * @param[out] value   the number that it is about, as RemarkCode says; may be null
 * @return one sentence, which lives as long as the result; null if there are fewer remarks, and nothing is written then
 */
TESSEL_MODES_C_API const char* tessel_modes_remark(const tessel_modes_result* result, size_t index, const char** name,
                                                   double* value);

/**
 * Whether the record is long enough for the decays of the modes in it, for a host that asks while it runs.
 *
 * @param[in]  result  what was found in the record so far; may be null
 * @param[out] until   time that the record should reach: the end of what is needed for the least certain decay, and
 *                     infinity if that cannot be told, because nothing rings yet or a mode shows no decay; minus
 *                     infinity if the record is long enough. May be null.
 * @return 1 if there are modes and none of them has the remark "recordTooShort", 0 otherwise
 */
TESSEL_MODES_C_API int tessel_modes_long_enough(const tessel_modes_result* result, double* until);

/** Frees a result; null is let pass. */
TESSEL_MODES_C_API void tessel_modes_free(tessel_modes_result* result);

#ifdef __cplusplus
}
#endif

#endif
