/// Fields, stores and teams without files and processes.
#pragma once

#include "fields/fields.h"

#include <algorithm>
#include <barrier>
#include <cmath>
#include <complex>
#include <cstring>
#include <map>
#include <mutex>
#include <random>
#include <thread>

namespace tessel::fields {

/// A field in memory, [step * points + point].
class MemorySource : public Source
{
public:
    MemorySource(std::vector<std::size_t> space, std::size_t steps, bool complex = false)
    {
        form.space = std::move(space);
        form.steps = steps;
        form.spacing = 1;
        form.complex = complex;
    }

    Shape form;
    std::vector<double> re, im;

    const Shape& shape() const override { return form; }
    void read(const Range& range, double* toRe, double* toIm) override { copy(range, toRe, toIm); }
    void read(const Range& range, float* toRe, float* toIm) override { copy(range, toRe, toIm); }
    bool concurrent() const override { return form.chunkSteps == 1; }

    /// Rounds to single precision.
    void make_single()
    {
        form.single = true;
        for (std::vector<double>* each : {&re, &im})
            for (double& v : *each)
                v = static_cast<double>(static_cast<float>(v));
    }

private:
    template <class T>
    void copy(const Range& range, T* toRe, T* toIm) const
    {
        const std::size_t points = form.points();
        const Strides strides(form, range);
        for (std::size_t k = range.firstStep; k < range.endStep; ++k)
            for (std::size_t p = range.firstPoint; p < range.endPoint; ++p) {
                const std::size_t at = (k - range.firstStep) * strides.step + (p - range.firstPoint) * strides.point;
                toRe[at] = static_cast<T>(re[k * points + p]);
                if (toIm != nullptr)
                    toIm[at] = static_cast<T>(im[k * points + p]);
            }
    }
};

class MemoryStore : public Store
{
public:
    std::map<std::string, std::string> texts;
    std::map<std::size_t, std::vector<double>> blocks;
    std::string pass;
    std::size_t puts = 0;

    std::optional<std::string> text(const std::string& name) override
    {
        const auto found = texts.find(name);
        return found == texts.end() ? std::nullopt : std::optional(found->second);
    }
    void keep(const std::string& name, const std::string& text) override { texts[name] = text; }
    void begin(const std::string& name, std::size_t) override
    {
        if (name != pass)
            blocks.clear();
        pass = name;
    }
    bool has(std::size_t block) override { return blocks.count(block) > 0; }
    void put(std::size_t block, const double* values, std::size_t count) override
    {
        blocks[block].assign(values, values + count);
        ++puts;
    }
    void get(std::size_t block, double* values, std::size_t count) override
    {
        std::copy_n(blocks.at(block).begin(), count, values);
    }
};

/// Ranks that are threads of one process.
class Ranks
{
public:
    explicit Ranks(int size) : size_(size), barrier_(size), parts_(static_cast<std::size_t>(size)) {}

    class Member : public Team
    {
    public:
        Member(Ranks& all, int rank) : all_(all), rank_(rank) {}
        int rank() const override { return rank_; }
        int size() const override { return all_.size_; }
        void broadcast(void* data, std::size_t bytes) override
        {
            share(data, bytes);
            if (rank_ != 0 && bytes > 0)
                std::memcpy(data, all_.parts_[0].data(), bytes);
            all_.barrier_.arrive_and_wait();
        }
        void sum(__float128* data, std::size_t count) override
        {
            share(data, count * sizeof *data);
            std::fill(data, data + count, 0);
            for (const std::vector<char>& part : all_.parts_)
                for (std::size_t i = 0; i < count; ++i) {
                    __float128 value;
                    std::memcpy(&value, part.data() + i * sizeof value, sizeof value);
                    data[i] += value;
                }
            all_.barrier_.arrive_and_wait();
        }
        void gather(const void* data, std::size_t bytes, void* all, const std::size_t*) override
        {
            share(data, bytes);
            if (rank_ == 0)
                for (const std::vector<char>& part : all_.parts_) {
                    std::copy(part.begin(), part.end(), static_cast<char*>(all));
                    all = static_cast<char*>(all) + part.size();
                }
            all_.barrier_.arrive_and_wait();
        }
        bool any(bool mine) override
        {
            __float128 count = mine;
            sum(&count, 1);
            return count > 0;
        }
        void agree(const std::string& fault) override
        {
            share(fault.data(), fault.size());
            std::string first;
            for (const std::vector<char>& part : all_.parts_)
                if (first.empty())
                    first.assign(part.begin(), part.end());
            all_.barrier_.arrive_and_wait();
            if (!first.empty())
                throw Error(first);
        }

    private:
        void share(const void* data, std::size_t bytes)
        {
            const char* from = static_cast<const char*>(data);
            all_.parts_[static_cast<std::size_t>(rank_)].assign(from, from + bytes);
            all_.barrier_.arrive_and_wait();
        }
        Ranks& all_;
        int rank_;
    };

private:
    int size_;
    std::barrier<> barrier_;
    std::vector<std::vector<char>> parts_;
};

/// What an analysis gave, with profiles over all points: [mode * points + point].
struct Found
{
    Outcome outcome;
    std::vector<double> amplitude, phase, amplitudeError, phaseError;
};

inline Found analyse_field(Source& source, const Options& options, Store& store, Team& team)
{
    Found found;
    const std::size_t points = source.shape().points();
    found.outcome = analyse(
        source, team, store, options,
        [&](const Outcome& outcome) {
            for (std::vector<double>* each : {&found.amplitude, &found.phase, &found.amplitudeError, &found.phaseError})
                each->assign(outcome.modes.size() * points, -1);
        },
        [&](const Profiles& part) {
            const std::vector<double>* from[] = {&part.amplitude, &part.phase, &part.amplitudeError, &part.phaseError};
            std::vector<double>* to[] = {&found.amplitude, &found.phase, &found.amplitudeError, &found.phaseError};
            for (int i = 0; i < 4; ++i)
                for (std::size_t j = 0; j < from[i]->size() / part.points; ++j)
                    std::copy_n(from[i]->begin() + static_cast<std::ptrdiff_t>(j * part.points), part.points,
                                to[i]->begin() + static_cast<std::ptrdiff_t>(j * points + part.firstPoint));
        });
    return found;
}

inline Found analyse_field(Source& source, const Options& options = Options())
{
    MemoryStore store;
    Team alone;
    return analyse_field(source, options, store, alone);
}

/// On so many ranks, each with its share of the profiles.
inline Found analyse_on(int size, Source& source, const Options& options = Options())
{
    Ranks ranks(size);
    std::vector<Found> parts(static_cast<std::size_t>(size));
    {
        std::vector<std::jthread> threads;
        for (int r = 0; r < size; ++r)
            threads.emplace_back([&, r] {
                Ranks::Member member(ranks, r);
                MemoryStore store;
                parts[static_cast<std::size_t>(r)] = analyse_field(source, options, store, member);
            });
    }
    Found all = parts[0];
    const std::size_t points = source.shape().points(), modes = all.outcome.modes.size();
    for (int r = 0; r < size; ++r) {
        const auto [begin, end] = owned(points, r, size);
        const Found& part = parts[static_cast<std::size_t>(r)];
        const std::vector<double>* from[] = {&part.amplitude, &part.phase, &part.amplitudeError, &part.phaseError};
        std::vector<double>* to[] = {&all.amplitude, &all.phase, &all.amplitudeError, &all.phaseError};
        for (int i = 0; i < 4; ++i)
            for (std::size_t j = 0; j < modes; ++j)
                for (std::size_t p = begin; p < end; ++p)
                    (*to[i])[j * points + p] = (*from[i])[j * points + p];
    }
    return all;
}

/// A mode of a field that is made: its profile is a function of the point.
struct Made
{
    double frequency, decay;                   ///< a step
    std::vector<std::complex<double>> profile; ///< c at the first step: Re(c E), or c E in a complex field
};

/// The sum of the modes and of noise of this standard deviation (of each part).
inline void make_field(MemorySource& source, const std::vector<Made>& modes, double noise, unsigned seed)
{
    const std::size_t points = source.form.points(), steps = source.form.steps;
    std::mt19937_64 engine(seed);
    std::normal_distribution<double> normal(0, 1);
    source.re.assign(points * steps, 0);
    source.im.assign(source.form.complex ? points * steps : 0, 0);
    for (std::size_t k = 0; k < steps; ++k) {
        const auto t = static_cast<long double>(k);
        for (const Made& mode : modes) {
            const long double turn = 6.283185307179586476925286766559L * mode.frequency * t;
            const long double size = std::exp(-mode.decay * t);
            const std::complex<double> e(static_cast<double>(size * std::cos(turn)),
                                         static_cast<double>(size * std::sin(turn)));
            for (std::size_t p = 0; p < points; ++p) {
                const std::complex<double> c = mode.profile[p];
                source.re[k * points + p] += c.real() * e.real() - c.imag() * e.imag();
                if (source.form.complex)
                    source.im[k * points + p] += c.real() * e.imag() + c.imag() * e.real();
            }
        }
        if (noise > 0)
            for (std::size_t p = 0; p < points; ++p) {
                source.re[k * points + p] += noise * normal(engine);
                if (source.form.complex)
                    source.im[k * points + p] += noise * normal(engine);
            }
    }
}

} // namespace tessel::fields
