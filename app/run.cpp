#include "app/run.h"

#include "app/csv.h"
#include "app/error.h"
#include "app/interrupt.h"
#include "app/joint.h"
#include "app/json.h"
#include "app/plot.h"
#include "app/progress.h"
#include "app/records.h"
#include "app/table.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <mutex>
#include <new>
#include <numeric>
#include <system_error>
#include <thread>

namespace tessel::app {

namespace {

/// One place in the order of results.
struct Slot
{
    std::size_t file = 0;
    Outcome outcome;
    bool done = false;
};

/// Reads files, hands out records, keeps results until their turn comes.
class Work
{
public:
    Work(const Options& options, const std::vector<std::size_t>& files,
         const std::function<void(const Printed&)>& print)
        : options_(options),
          files_(files),
          print_(print),
          progress_(!options.quiet),
          jobs_(options.jobs > 0 ? options.jobs : std::max(std::thread::hardware_concurrency(), 1u))
    {}

    int run()
    {
        std::vector<std::thread> threads;
        // A worker is started while there may be something left for it.
        const auto join = [&] {
            for (std::thread& thread : threads)
                thread.join();
        };
        try {
            for (unsigned k = 0; k < jobs_ && (k == 0 || more_to_do()); ++k)
                threads.emplace_back([this] { work(); });
            print_all();
        } catch (...) {
            stop();
            join();
            throw;
        }
        join();
        return failed_ ? 1 : 0;
    }

private:
    /// Whether another worker would find something; after the first file is read.
    bool more_to_do()
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return read_once_; });
        return !waiting_.empty() || next_file_ < files_.size();
    }

    void stop()
    {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
        changed_.notify_all();
    }

    /// The next record to be analysed; null if there is none. Reads a file if need be, one thread at a time.
    Slot* take()
    {
        const std::lock_guard reading(reading_);
        for (;;) {
            std::size_t file = 0;
            {
                const std::lock_guard lock(mutex_);
                if (stopped_)
                    return nullptr;
                if (!waiting_.empty()) {
                    Slot* const slot = waiting_.front();
                    waiting_.pop_front();
                    return slot;
                }
                if (next_file_ == files_.size()) {
                    all_read_ = true;
                    changed_.notify_all();
                    return nullptr;
                }
                file = files_[next_file_++];
            }
            std::vector<Outcome> outcomes;
            progress_.say("reading " + options_.files[file]);
            try {
                outcomes = read_outcomes(options_.files[file], options_);
            } catch (const Interrupted&) {
                stop();
                return nullptr;
            }
            const std::lock_guard lock(mutex_);
            for (Outcome& outcome : outcomes) {
                slots_.push_back({file, std::move(outcome), false});
                slots_.back().done = !slots_.back().outcome.error.empty();
                if (!slots_.back().done)
                    waiting_.push_back(&slots_.back());
            }
            read_once_ = true;
            all_read_ = next_file_ == files_.size();
            changed_.notify_all();
        }
    }

    void work()
    {
        while (Slot* const slot = take()) {
            analyse_slot(slot->outcome);
            const std::lock_guard lock(mutex_);
            slot->done = true;
            changed_.notify_all();
        }
        const std::lock_guard lock(mutex_);
        read_once_ = true;
        changed_.notify_all();
    }

    void analyse_slot(Outcome& outcome)
    {
        const std::string title = title_of(outcome.record);
        std::string error;
        try {
            outcome.result = analyse(outcome.record, options_, [&](const modes::Progress& progress) {
                progress_.say(progress_text(title, progress));
                return interrupted() == 0 && !stopped_;
            });
        } catch (const modes::Stopped&) {
            stop();
            return;
        } catch (const std::bad_alloc&) {
            error = "the analysis needs more memory than there is";
        } catch (const std::exception& e) {
            error = e.what();
        }
        if (!outcome.result)
            outcome.error = title + ": " + error;
        if (options_.plot.empty() || !outcome.result) {
            outcome.record.real = {};
            outcome.record.complex = {};
        }
    }

    /// Waits for each result in turn and gives it away.
    void print_all()
    {
        std::size_t drawn = 0;
        for (;;) {
            Slot* slot = nullptr;
            {
                std::unique_lock lock(mutex_);
                changed_.wait(lock, [this] {
                    return stopped_ || (!slots_.empty() && slots_.front().done) || (all_read_ && slots_.empty());
                });
                if (stopped_)
                    break;
                if (slots_.empty())
                    break;
                slot = &slots_.front();
            }
            const Outcome outcome = std::move(slot->outcome);
            const std::size_t file = slot->file;
            {
                const std::lock_guard lock(mutex_);
                slots_.pop_front();
            }
            progress_.clear();
            failed_ = failed_ || !outcome.result;
            print_(printed_of(file, outcome));
            if (outcome.result && !options_.plot.empty())
                draw_one(outcome, drawn++);
        }
        progress_.clear();
        if (interrupted() != 0)
            throw Interrupted();
    }

    Printed printed_of(std::size_t file, const Outcome& outcome) const
    {
        Printed printed{file, {}, {}};
        if (!outcome.result)
            printed.err = "tessel-modes: " + outcome.error + "\n";
        if (options_.format == Format::json) {
            printed.out = json_object(outcome);
        } else if (outcome.result && options_.format == Format::table) {
            printed.out = table(outcome, options_.quiet);
        } else if (outcome.result) {
            printed.out = csv(outcome);
            if (!options_.quiet)
                for (const std::string& remark : remarks_of(outcome))
                    printed.err += title_of(outcome.record) + ": " + remark + "\n";
        }
        return printed;
    }

    void draw_one(const Outcome& outcome, std::size_t index)
    {
        try {
            const std::string file = plot_name(options_.plot, index);
            draw(plot_script(outcome, file), file);
        } catch (const Error& e) {
            failed_ = true;
            std::fprintf(stderr, "tessel-modes: %s\n", e.what());
        }
    }

    const Options& options_;
    const std::vector<std::size_t>& files_;
    const std::function<void(const Printed&)>& print_;
    ProgressLine progress_;
    unsigned jobs_;
    std::mutex reading_; ///< held while a file is read
    std::mutex mutex_;   ///< guards all below
    std::condition_variable changed_;
    std::deque<Slot> slots_; ///< places do not move while others are added behind or taken in front
    std::deque<Slot*> waiting_;
    std::size_t next_file_ = 0;
    bool read_once_ = false, all_read_ = false;
    std::atomic<bool> stopped_ = false; ///< looked at without the mutex too
    // Of the printing thread
    bool failed_ = false;
};

} // namespace

std::vector<Outcome> read_outcomes(const std::string& file, const Options& options)
{
    std::vector<Outcome> outcomes;
    std::string error;
    try {
        for (Record& record : make_records(read_columns(file, options), file, options)) {
            Outcome outcome;
            outcome.samples = record.size();
            outcome.complex = !record.complex.empty();
            outcome.record = std::move(record);
            outcomes.push_back(std::move(outcome));
        }
        return outcomes;
    } catch (const Error& e) {
        error = e.in(file == "-" ? "standard input" : file);
    } catch (const Interrupted&) {
        throw;
    } catch (const std::bad_alloc&) {
        error = file + ": too large for the memory";
    } catch (const std::exception& e) {
        error = file + ": " + e.what();
    }
    Outcome outcome;
    outcome.record.file = file;
    outcome.error = error;
    outcomes.clear();
    outcomes.push_back(std::move(outcome));
    return outcomes;
}

modes::Options library_options(const Options& options, const TimeUnit& unit,
                               const std::function<bool(const modes::Progress&)>& progress)
{
    modes::Options how;
    if (options.lowest)
        how.lowest = in_inverse_unit(*options.lowest, unit);
    if (options.highest)
        how.highest = in_inverse_unit(*options.highest, unit);
    how.noise = options.noise;
    how.mostModes = options.mostModes;
    how.progress = progress;
    return how;
}

std::optional<std::size_t> first_sample(const Options& options, const TimeUnit& unit, double start, double spacing)
{
    if (!options.start)
        return {};
    const double first = std::ceil((in_unit(*options.start, unit) - start) / spacing - 1e-6);
    return first > 0 ? static_cast<std::size_t>(std::min(first, 1e18)) : 0;
}

modes::Result analyse(const Record& record, const Options& options,
                      const std::function<bool(const modes::Progress&)>& progress)
{
    modes::Options how = library_options(options, record.unit, progress);
    how.first = first_sample(options, record.unit, record.start, record.spacing);
    if (how.first.value_or(0) >= record.size())
        throw Error("--start lies behind the end of the record");
    return record.complex.empty() ? modes::analyse(record.real, record.start, record.spacing, how)
                                  : modes::analyse(record.complex, record.start, record.spacing, how);
}

std::string progress_text(const std::string& title, const modes::Progress& progress)
{
    return title + ": " + progress.stage + ", " + std::to_string(progress.modes) + " modes, " +
           std::to_string(static_cast<int>(100 * std::clamp(progress.part, 0.0, 1.0))) + " %";
}

void finish_output()
{
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        throw std::runtime_error(std::string("standard output cannot be written: ") + std::strerror(errno));
}

Printer::Printer(const Options& options) : options_(options)
{
    if (options_.format == Format::csv)
        std::fputs(csv_head().c_str(), stdout);
}

void Printer::print(const Printed& printed)
{
    std::fputs(printed.err.c_str(), stderr);
    if (options_.format == Format::json) {
        objects_.push_back(printed.out);
        return;
    }
    if (any_ && options_.format == Format::table && !printed.out.empty())
        std::fputc('\n', stdout);
    any_ = any_ || !printed.out.empty();
    std::fwrite(printed.out.data(), 1, printed.out.size(), stdout);
    std::fflush(stdout);
}

void Printer::finish()
{
    if (options_.format == Format::json && interrupted() == 0)
        std::fputs(json(objects_).c_str(), stdout);
    finish_output();
}

int run(const Options& options, const std::vector<std::size_t>& files, const std::function<void(const Printed&)>& print)
{
    return Work(options, files, print).run();
}

int run(const Options& options)
{
    if (options.joint)
        return run_jointly(options);
    std::vector<std::size_t> files(options.files.size());
    std::iota(files.begin(), files.end(), std::size_t{0});
    Printer printer(options);
    try {
        const int status = run(options, files, [&](const Printed& printed) { printer.print(printed); });
        printer.finish();
        return status;
    } catch (const Interrupted&) {
        printer.finish();
        throw;
    }
}

} // namespace tessel::app
