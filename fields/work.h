/// What every stage of an analysis works with.
#pragma once

#include "fields/fields.h"

#include <functional>
#include <string>
#include <vector>

namespace tessel::fields {

/// The field, the processes and the options; how faults and the wish to stop reach all ranks.
struct Work
{
    Source& source;
    Team& team;
    Store& store;
    const Options& options;
    std::size_t firstPoint, endPoint; ///< of this rank

    const Shape& shape() const { return source.shape(); }
    std::size_t firstBlock() const { return firstPoint / kBlock; }
    std::size_t endBlock() const { return (endPoint + kBlock - 1) / kBlock; }
    std::size_t pointsOf(std::size_t block) const;

    /// Does a rank's own part of the work, which calls neither the team nor what may not be stopped; then all ranks
    /// learn of faults: Error, or modes::Stopped, on all of them.
    void together(const std::function<void()>& part);
    /// @throws modes::Stopped
    void progress(const char* stage, std::size_t done, std::size_t all) const;
    /// Text of rank 0 on all ranks.
    std::string spread(const std::string& text);
    /// Each rank's elements, one behind the other, on all ranks.
    template <class T>
    std::vector<T> collect(const std::vector<T>& mine)
    {
        std::vector<T> all;
        collectBytes(mine.data(), mine.size() * sizeof(T), [&](std::size_t bytes) {
            all.resize(bytes / sizeof(T));
            return static_cast<void*>(all.data());
        });
        return all;
    }
    /// Bytes of a sample in the file, of both parts.
    std::size_t sampleBytes() const { return (shape().single ? 4U : 8U) * (shape().complex ? 2U : 1U); }
    /// Reads into storage of the field's precision, which grows to what is needed.
    void read(const Range& range, std::vector<float>& re, std::vector<float>& im) const;
    void read(const Range& range, std::vector<double>& re, std::vector<double>& im) const;
    /// The parts of a range, one behind the other in memory, that as many threads may read as there are.
    std::vector<Range> parts(const Range& range) const;
    /// "(i, j)" of a point.
    std::string place(std::size_t point) const;
    [[noreturn]] void notFinite(std::size_t step, std::size_t point) const;

private:
    void collectBytes(const void* mine, std::size_t bytes, const std::function<void*(std::size_t)>& room);
};

} // namespace tessel::fields
