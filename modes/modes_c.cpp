#include "modes/modes_c.h"
#include "modes/modes.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

using tessel::modes::InputError;
using tessel::modes::InputFault;
using tessel::modes::JointMode;
using tessel::modes::JointResult;
using tessel::modes::Kind;
using tessel::modes::Options;
using tessel::modes::Remark;
using tessel::modes::RemarkCode;
using tessel::modes::Residue;
using tessel::modes::Result;

struct tessel_modes_result
{
    Result found;
};

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

static_assert(TESSEL_MODE_OSCILLATING == static_cast<int>(Kind::oscillating));
static_assert(TESSEL_MODE_OVERDAMPED == static_cast<int>(Kind::overdamped));
static_assert(TESSEL_MODE_GROWING == static_cast<int>(Kind::growing));

/// Copies a structure to a caller who knows `size` bytes of it: a shorter or a longer version.
template <typename Structure>
void give(const Structure& value, void* out, std::size_t size)
{
    if (out == nullptr)
        return;
    std::memcpy(out, &value, std::min(size, sizeof value));
    if (size > sizeof value)
        std::memset(static_cast<char*>(out) + sizeof value, 0, size - sizeof value);
}

tessel_modes_status status_of(InputFault fault)
{
    switch (fault) {
    case InputFault::tooFewSamples:
        return TESSEL_MODES_TOO_FEW_SAMPLES;
    case InputFault::notFinite:
        return TESSEL_MODES_NOT_FINITE;
    case InputFault::spacing:
        return TESSEL_MODES_SPACING;
    case InputFault::start:
        return TESSEL_MODES_START;
    case InputFault::option:
        return TESSEL_MODES_OPTION;
    }
    return TESSEL_MODES_FAILED;
}

/// What keeps the options of C from being options at all; null if nothing does.
const char* misuse(const tessel_modes_options* given)
{
    if (given == nullptr)
        return nullptr;
    if (given->size != sizeof *given)
        return "the options were not set by tessel_modes_options_init";
    return nullptr;
}

Options options_of(const tessel_modes_options* given)
{
    Options options;
    if (given == nullptr)
        return options;
    if (given->lowest != -kInfinity)
        options.lowest = given->lowest;
    if (given->highest != kInfinity)
        options.highest = given->highest;
    if (given->first < -1)
        throw InputError(InputFault::option, 0, "the first sample is negative: " + std::to_string(given->first));
    if (given->first >= 0)
        options.first = static_cast<std::size_t>(given->first);
    if (given->noise != 0)
        options.noise = given->noise;
    if (given->most_modes != 0)
        options.mostModes = given->most_modes;
    if (given->progress != nullptr)
        options.progress = [given](const tessel::modes::Progress& p) {
            return given->progress(p.stage, p.modes, p.part, given->progress_data) == 0;
        };
    return options;
}

tessel_modes_status say(tessel_modes_status status, std::string_view text, char* message, std::size_t room)
{
    if (message != nullptr && room > 0) {
        const std::size_t length = std::min(text.size(), room - 1);
        std::memcpy(message, text.data(), length);
        message[length] = '\0';
    }
    return status;
}

/// Work with everything that may leave it turned into a status and a message.
template <typename Work>
tessel_modes_status guarded(const tessel_modes_options* given, char* message, std::size_t room,
                            const Work& work) noexcept
{
    const auto end = [&](tessel_modes_status status, std::string_view text) {
        return say(status, text, message, room);
    };
    if (const char* const text = misuse(given))
        return end(TESSEL_MODES_ARGUMENT, text);
    try {
        work(options_of(given));
        return end(TESSEL_MODES_OK, "");
    } catch (const InputError& e) {
        return end(status_of(e.fault()), e.what());
    } catch (const tessel::modes::Stopped& e) {
        return end(TESSEL_MODES_STOPPED, e.what());
    } catch (const std::bad_alloc&) {
        return end(TESSEL_MODES_NO_MEMORY, "memory cannot be had");
    } catch (const std::length_error&) { // more samples than any memory holds
        return end(TESSEL_MODES_NO_MEMORY, "memory cannot be had");
    } catch (const std::exception& e) {
        return end(TESSEL_MODES_FAILED, e.what());
    } catch (...) {
        return end(TESSEL_MODES_FAILED, "an exception of unknown type");
    }
}

template <typename Sample>
tessel_modes_status analyse(const Sample* samples, std::size_t count, double start, double spacing,
                            const tessel_modes_options* given, tessel_modes_result** result, char* message,
                            std::size_t room) noexcept
{
    if (result == nullptr)
        return say(TESSEL_MODES_ARGUMENT, "there is no place for the result", message, room);
    *result = nullptr;
    if (samples == nullptr && count > 0)
        return say(TESSEL_MODES_ARGUMENT, "there are no samples", message, room);
    return guarded(given, message, room, [&](const Options& options) {
        auto made = std::make_unique<tessel_modes_result>();
        made->found = tessel::modes::analyse(std::vector<Sample>(samples, samples + count), start, spacing, options);
        *result = made.release();
    });
}

template <typename Sample>
tessel_modes_status analyse_jointly(const Sample* const* samples, const std::size_t* counts, const double* starts,
                                    std::size_t records, double spacing, const tessel_modes_options* given,
                                    tessel_modes_result** results, char* message, std::size_t room) noexcept
{
    if (results == nullptr && records > 0)
        return say(TESSEL_MODES_ARGUMENT, "there is no place for the results", message, room);
    std::fill_n(results, records, nullptr);
    if (records > 0 && (samples == nullptr || counts == nullptr))
        return say(TESSEL_MODES_ARGUMENT, "there are no records", message, room);
    for (std::size_t p = 0; p < records; ++p)
        if (samples[p] == nullptr && counts[p] > 0)
            return say(TESSEL_MODES_ARGUMENT, "there are no samples of a record", message, room);
    return guarded(given, message, room, [&](const Options& options) {
        std::vector<tessel::modes::Record> set(records);
        for (std::size_t p = 0; p < records; ++p)
            set[p] = {std::vector<Sample>(samples[p], samples[p] + counts[p]), starts != nullptr ? starts[p] : 0.0};
        const JointResult joint = tessel::modes::analyseJointly(set, spacing, options);
        std::vector<std::unique_ptr<tessel_modes_result>> made;
        for (std::size_t p = 0; p < records; ++p)
            made.push_back(std::make_unique<tessel_modes_result>(tessel_modes_result{joint.of(p)}));
        for (std::size_t p = 0; p < records; ++p)
            results[p] = made[p].release();
    });
}

} // namespace

void tessel_modes_options_init(tessel_modes_options* options, size_t size)
{
    give(tessel_modes_options{size, -kInfinity, kInfinity, -1, 0, 0, nullptr, nullptr}, options, size);
}

tessel_modes_status tessel_modes_analyse(const double* samples, size_t count, double start, double spacing,
                                         const tessel_modes_options* options, tessel_modes_result** result,
                                         char* message, size_t room)
{
    return analyse(samples, count, start, spacing, options, result, message, room);
}

tessel_modes_status tessel_modes_analyse_complex(const tessel_complex* samples, size_t count, double start,
                                                 double spacing, const tessel_modes_options* options,
                                                 tessel_modes_result** result, char* message, size_t room)
{
    return analyse(samples, count, start, spacing, options, result, message, room);
}

tessel_modes_status tessel_modes_analyse_jointly(const double* const* samples, const size_t* counts,
                                                 const double* starts, size_t records, double spacing,
                                                 const tessel_modes_options* options, tessel_modes_result** results,
                                                 char* message, size_t room)
{
    return analyse_jointly(samples, counts, starts, records, spacing, options, results, message, room);
}

tessel_modes_status tessel_modes_analyse_jointly_complex(const tessel_complex* const* samples, const size_t* counts,
                                                         const double* starts, size_t records, double spacing,
                                                         const tessel_modes_options* options,
                                                         tessel_modes_result** results, char* message, size_t room)
{
    return analyse_jointly(samples, counts, starts, records, spacing, options, results, message, room);
}

size_t tessel_modes_list(const tessel_modes_result* result, size_t from, tessel_mode* modes, size_t room, size_t size)
{
    if (result == nullptr)
        return 0;
    const std::vector<tessel::modes::Mode>& found = result->found.modes;
    auto* out = reinterpret_cast<char*>(modes);
    for (std::size_t j = from; out != nullptr && j < found.size() && j - from < room; ++j) {
        const tessel::modes::Mode& m = found[j];
        const tessel_mode mode = {m.frequency,  m.decay,        m.quality,
                                  m.amplitude,  m.phase,        m.frequencyError,
                                  m.decayError, m.qualityError, m.amplitudeError,
                                  m.phaseError, m.significance, static_cast<std::int32_t>(m.kind)};
        give(mode, out + (j - from) * size, size);
    }
    return found.size();
}

void tessel_modes_about(const tessel_modes_result* result, tessel_modes_summary* summary, size_t size)
{
    const Result none, &r = result != nullptr ? result->found : none;
    give(tessel_modes_summary{r.modes.size(), r.remarks.size(), r.referenceTime, r.firstSample, r.decimation, r.noise,
                              r.reducedChiSquare, r.lowest, r.highest},
         summary, size);
}

const char* tessel_modes_remark(const tessel_modes_result* result, size_t index, const char** name, double* value)
{
    if (result == nullptr || index >= result->found.remarks.size())
        return nullptr;
    const Remark& remark = result->found.remarks[index];
    if (name != nullptr)
        *name = tessel::modes::name(remark.code);
    if (value != nullptr)
        *value = remark.value;
    return remark.text.c_str();
}

int tessel_modes_long_enough(const tessel_modes_result* result, double* until)
{
    double needed = result != nullptr && !result->found.modes.empty() ? -kInfinity : kInfinity;
    if (result != nullptr)
        for (const Remark& remark : result->found.remarks)
            if (remark.code == RemarkCode::recordTooShort) {
                // a length from the first sample used on; not a number counts as one that cannot be told
                const double end = result->found.referenceTime + remark.value;
                needed = std::max(needed, std::isnan(end) ? kInfinity : end);
            }
    if (until != nullptr)
        *until = needed;
    return needed == -kInfinity ? 1 : 0;
}

void tessel_modes_free(tessel_modes_result* result)
{
    delete result;
}
