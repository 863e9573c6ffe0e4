#include "app/joint.h"

#include "app/csv.h"
#include "app/error.h"
#include "app/interrupt.h"
#include "app/json.h"
#include "app/number.h"
#include "app/plot.h"
#include "app/progress.h"
#include "app/run.h"
#include "app/table.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <functional>
#include <new>
#include <set>
#include <utility>

namespace tessel::app {

namespace {

constexpr double kSameSpacing = 1e-6; // relative, of two that say the same
constexpr double kSameSample = 1e-6;  // of the highest
constexpr double kShows = 4;          // standard errors

std::string with_unit(double time, const TimeUnit& unit)
{
    const Scale scale = time_scale(std::abs(time), unit);
    return plain_form(shifted(time, scale.shift), 10) + " " + scale.name;
}

/// A sentence of the library that begins with "record N": the number, and what follows it.
std::optional<std::pair<std::size_t, std::string>> record_in(const std::string& text)
{
    constexpr std::string_view kWord = "record ";
    if (!text.starts_with(kWord))
        return {};
    std::size_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, status] = std::from_chars(text.data() + kWord.size(), end, number);
    if (status != std::errc())
        return {};
    return std::pair{number, std::string(stop, end)};
}

void fail(JointOutcome& joint, std::size_t record, const std::string& text)
{
    Outcome& outcome = joint.records[record];
    outcome.error = title_of(outcome.record) + text;
    joint.failed.push_back(std::move(outcome));
    joint.records.erase(joint.records.begin() + static_cast<std::ptrdiff_t>(record));
}

/// The samples move to the library's form, or back.
std::vector<modes::Record> lend(std::vector<Outcome>& records)
{
    std::vector<modes::Record> lent;
    for (Outcome& outcome : records) {
        modes::Record& record = lent.emplace_back();
        record.start = outcome.record.start;
        if (outcome.complex)
            record.samples = std::move(outcome.record.complex);
        else
            record.samples = std::move(outcome.record.real);
    }
    return lent;
}

void take_back(std::vector<modes::Record>& lent, std::vector<Outcome>& records)
{
    for (std::size_t p = 0; p < records.size(); ++p) {
        if (records[p].complex)
            records[p].record.complex = std::move(std::get<1>(lent[p].samples));
        else
            records[p].record.real = std::move(std::get<0>(lent[p].samples));
    }
}

/// Whether two records are the same one, but for what printing rounds.
template <typename Sample>
bool alike(const std::vector<Sample>& a, const std::vector<Sample>& b)
{
    if (a.size() != b.size())
        return false;
    double peak = 0;
    for (const Sample& v : a)
        peak = std::max(peak, std::abs(v));
    return std::equal(a.begin(), a.end(), b.begin(),
                      [&](const Sample& v, const Sample& w) { return std::abs(v - w) <= kSameSample * peak; });
}

template <typename Sample>
bool varies(const std::vector<Sample>& samples)
{
    return std::adjacent_find(samples.begin(), samples.end(), std::not_equal_to<>()) != samples.end();
}

/// Notes a record that is there twice: its noise passes for that of two, and noise in common for modes.
void note_repeated(std::vector<Outcome>& records)
{
    for (std::size_t p = 1; p < records.size(); ++p) {
        Record& own = records[p].record;
        const auto same = [&](const Outcome& other) {
            return alike(own.real, other.record.real) && alike(own.complex, other.record.complex);
        };
        const auto end = records.begin() + static_cast<std::ptrdiff_t>(p);
        if (!varies(own.real) && !varies(own.complex))
            continue;
        if (const auto at = std::find_if(records.begin(), end, same); at != end)
            own.notes.push_back("it has the samples of " + title_of(at->record) +
                                ": leave one out, or their noise may pass for modes");
    }
}

/// Analyses the set; a record that is too short for it is left out.
void analyse(JointOutcome& joint, const Options& options, ProgressLine& progress)
{
    agree(joint.records);
    note_repeated(joint.records);
    while (!joint.records.empty()) {
        const std::string title = title_of(joint);
        const Record& first = joint.records.front().record;
        double start = first.start;
        for (const Outcome& outcome : joint.records)
            start = std::min(start, outcome.record.start);
        modes::Options how = library_options(options, first.unit, [&](const modes::Progress& where) {
            progress.say(progress_text(title, where));
            return interrupted() == 0;
        });
        how.first = first_sample(options, first.unit, start, first.spacing);
        std::vector<modes::Record> lent = lend(joint.records);
        try {
            joint.result = modes::analyseJointly(lent, first.spacing, how);
            take_back(lent, joint.records);
            for (std::size_t p = 0; p < joint.records.size(); ++p)
                (joint.records[p].result = joint.result->of(p))->remarks.clear(); // they are said once for all
            return;
        } catch (const modes::InputError& e) {
            take_back(lent, joint.records);
            const auto named = record_in(e.what());
            if (!named)
                throw Error(e.what());
            if (e.fault() != modes::InputFault::tooFewSamples)
                throw Error(title_of(joint.records[named->first].record) + named->second);
            fail(joint, named->first, named->second);
        }
    }
}

JointOutcome work(const Options& options, ProgressLine& progress)
{
    JointOutcome joint;
    for (const std::string& file : options.files) {
        progress.say("reading " + file);
        for (Outcome& outcome : read_outcomes(file, options))
            (outcome.error.empty() ? joint.records : joint.failed).push_back(std::move(outcome));
        check_interrupt();
    }
    try {
        analyse(joint, options, progress);
    } catch (const modes::Stopped&) {
        throw Interrupted();
    } catch (const std::bad_alloc&) {
        joint.error = "the analysis needs more memory than there is";
    } catch (const std::exception& e) {
        joint.error = e.what();
    }
    return joint;
}

} // namespace

void agree(std::vector<Outcome>& records)
{
    if (records.empty())
        return;
    const Record& first = records.front().record;
    const Record* best = &first;
    for (Outcome& outcome : records) {
        Record& record = outcome.record;
        const auto differ = [&](const std::string& own, const std::string& other, const Record& than,
                                const std::string& common) {
            return Error(title_of(record) + ": " + own + ", but " + other + " in " + title_of(than) +
                         ": --joint takes records of one " + common);
        };
        if (outcome.complex != records.front().complex)
            throw differ(outcome.complex ? "complex samples" : "real samples", outcome.complex ? "real" : "complex",
                         first, "kind");
        if (!(record.unit == first.unit)) {
            if (!record.unit.exponent || !first.unit.exponent)
                throw differ("times in " + record.unit.name, first.unit.name, first, "unit");
            const int shift = *record.unit.exponent - *first.unit.exponent;
            record.start = shifted(record.start, shift);
            record.spacing = shifted(record.spacing, shift);
            record.unit = first.unit;
        }
        const double doubt = std::max(kSameSpacing, 10 * std::hypot(record.spacingError, best->spacingError));
        if (!(std::abs(record.spacing - best->spacing) <= doubt * best->spacing))
            throw differ("spacing " + with_unit(record.spacing, record.unit), with_unit(best->spacing, best->unit),
                         *best, "spacing");
        if (record.spacingError < best->spacingError)
            best = &record;
    }
    const double spacing = best->spacing, error = best->spacingError;
    for (Outcome& outcome : records) {
        outcome.record.spacing = spacing;
        outcome.record.spacingError = error;
    }
}

std::string title_of(const JointOutcome& joint)
{
    std::set<std::string> files;
    for (const Outcome& outcome : joint.records)
        files.insert(outcome.record.file);
    const std::size_t count = joint.records.size();
    std::string text = count == 1 ? "1 record of " : std::to_string(count) + " records of ";
    if (files.size() != 1)
        return text + std::to_string(files.size()) + " files";
    return text + (*files.begin() == "-" ? "standard input" : *files.begin());
}

std::string label_of(const JointOutcome& joint, std::size_t record)
{
    const Record& own = joint.records[record].record;
    const bool alone = std::all_of(joint.records.begin(), joint.records.end(),
                                   [&](const Outcome& other) { return other.record.file == own.file; });
    return alone && !own.column.empty() ? own.column : title_of(own);
}

bool shows(const modes::Residue& residue)
{
    return residue.amplitude > kShows * residue.amplitudeError;
}

std::size_t strongest(const modes::JointMode& mode)
{
    const auto at = std::max_element(mode.residues.begin(), mode.residues.end(),
                                     [](const modes::Residue& a, const modes::Residue& b) {
                                         return std::pair(shows(a), a.amplitude) < std::pair(shows(b), b.amplitude);
                                     });
    return static_cast<std::size_t>(at - mode.residues.begin());
}

std::vector<std::string> notes_of(const JointOutcome& joint)
{
    std::vector<std::vector<std::string>> all;
    for (const Outcome& outcome : joint.records)
        all.push_back(notes_of(outcome));
    std::vector<std::string> texts;
    const auto add = [&](const std::string& text) {
        if (std::find(texts.begin(), texts.end(), text) == texts.end())
            texts.push_back(text);
    };
    // Whose it is: of all, of a file, or of a record.
    for (std::size_t p = 0; p < all.size(); ++p)
        for (const std::string& note : all[p]) {
            const Record& own = joint.records[p].record;
            bool common = true, ofFile = true;
            for (std::size_t q = 0; q < all.size(); ++q) {
                const bool held = std::find(all[q].begin(), all[q].end(), note) != all[q].end();
                common = common && held;
                ofFile = ofFile && (held || joint.records[q].record.file != own.file);
            }
            add(common ? note : (ofFile ? own.file : title_of(own)) + ": " + note);
        }
    return texts;
}

std::vector<std::string> remarks_of(const JointOutcome& joint)
{
    std::vector<std::string> texts = notes_of(joint);
    std::vector<double> frequencies{joint.result->lowest, joint.result->highest};
    for (const modes::JointMode& mode : joint.result->modes)
        frequencies.push_back(mode.frequency);
    for (const modes::Remark& remark : joint.result->remarks) {
        if (const auto named = record_in(remark.text); named && named->first < joint.records.size())
            texts.push_back(title_of(joint.records[named->first].record) + named->second + ".");
        else
            texts.push_back(sentence(remark, frequencies, joint.records.front().record.unit));
    }
    return texts;
}

int run_jointly(const Options& options)
{
    ProgressLine progress(!options.quiet);
    const JointOutcome joint = work(options, progress);
    progress.clear();

    bool failed = !joint.result;
    for (const Outcome& outcome : joint.failed) {
        failed = true;
        std::fprintf(stderr, "tessel-modes: %s\n", outcome.error.c_str());
    }
    if (!joint.error.empty())
        std::fprintf(stderr, "tessel-modes: %s\n", joint.error.c_str());

    std::string text;
    if (options.format == Format::json)
        text = json(joint);
    else if (options.format == Format::csv)
        text = csv_head();
    else
        text = table(joint, options.quiet);
    if (options.format == Format::csv)
        for (const Outcome& outcome : joint.records)
            text += csv(outcome);
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (options.format == Format::csv && joint.result && !options.quiet)
        for (const std::string& remark : remarks_of(joint))
            std::fprintf(stderr, "%s: %s\n", title_of(joint).c_str(), remark.c_str());
    finish_output();
    for (std::size_t p = 0; joint.result && !options.plot.empty() && p < joint.records.size(); ++p)
        try {
            const std::string file = plot_name(options.plot, p);
            draw(plot_script(joint.records[p], file), file);
        } catch (const Error& e) {
            failed = true;
            std::fprintf(stderr, "tessel-modes: %s\n", e.what());
        }
    return failed ? 1 : 0;
}

} // namespace tessel::app
