#include "fields/samples.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <set>

namespace tessel::fields {

namespace {

__extension__ typedef unsigned __int128 Wide;

constexpr std::size_t kSpare = 4;                     // points that are read for each one that is wanted
constexpr std::size_t kPiece = std::size_t(16) << 20; // bytes read together

/// A number below `range` from a counter.
std::size_t draw(std::uint64_t counter, std::size_t range)
{
    std::uint64_t x = counter * 0x9e3779b97f4a7c15ULL + 0x2545f4914f6cdd1dULL;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
    x ^= x >> 31;
    return static_cast<std::size_t>((static_cast<Wide>(x) * range) >> 64);
}

/// Numbers below `range` in the order of their drawing, each once.
std::vector<std::size_t> draw_some(std::size_t count, std::size_t range)
{
    std::vector<std::size_t> out;
    std::set<std::size_t> seen;
    for (std::uint64_t k = 0; out.size() < std::min(count, range); ++k)
        if (const std::size_t at = draw(k, range); seen.insert(at).second)
            out.push_back(at);
    return out;
}

/// The records of those of the points that this rank has, as doubles; of a complex field re and im of a sample follow
/// one another. What does not vary is found on the way where the whole field is read.
template <class T>
class Reader
{
public:
    Reader(Work& work, const std::vector<std::size_t>& points) : work_(work)
    {
        for (const std::size_t p : points)
            if (p >= work.firstPoint && p < work.endPoint)
                mine_.push_back(p);
        parts_ = work.shape().complex ? 2 : 1;
        records.assign(mine_.size() * work.shape().steps * parts_, 0);
    }

    /// `all`: whether every record varies is wanted too.
    void run(bool all)
    {
        const Shape& shape = work_.shape();
        if (work_.firstPoint == work_.endPoint)
            return;
        if (shape.timeFirst || all)
            stream(all);
        else
            for (std::size_t i = 0; i < mine_.size(); ++i) {
                const std::size_t piece = std::max<std::size_t>(1, kPiece / sizeof(T));
                for (std::size_t from = 0; from < shape.steps; from += piece) {
                    const Range range{from, std::min(shape.steps, from + piece), mine_[i], mine_[i] + 1};
                    work_.read(range, re_, im_);
                    for (std::size_t k = 0; k < range.steps(); ++k)
                        take(i, from + k, k);
                }
                work_.progress("samples", i + 1, mine_.size());
            }
        for (std::size_t i = 0; i < mine_.size(); ++i)
            for (std::size_t k = 0; k < shape.steps * parts_; ++k)
                if (!std::isfinite(records[i * shape.steps * parts_ + k]))
                    work_.notFinite(k / parts_, mine_[i]);
    }

    std::vector<double> records;
    std::vector<char> varies; ///< of each point of the rank

private:
    void take(std::size_t i, std::size_t step, std::size_t at)
    {
        double* to = &records[(i * work_.shape().steps + step) * parts_];
        to[0] = static_cast<double>(re_[at]);
        if (parts_ == 2)
            to[1] = static_cast<double>(im_[at]);
    }

    void stream(bool all)
    {
        const Shape& shape = work_.shape();
        const std::size_t own = work_.endPoint - work_.firstPoint;
        const std::size_t piece = std::min(kPiece, work_.options.memory / 2);
        const std::size_t points =
            shape.timeFirst ? std::min(own, std::max<std::size_t>(1, piece / (sizeof(T) * parts_ * shape.chunkSteps)))
                            : std::min(own, std::max<std::size_t>(1, piece / (sizeof(T) * parts_ * shape.steps)));
        if (all)
            varies.assign(own, 0);
        std::vector<T> firstRe(points), firstIm(points);
        std::size_t done = 0;
        for (std::size_t begin = work_.firstPoint; begin < work_.endPoint; begin += points) {
            const std::size_t end = std::min(work_.endPoint, begin + points), width = end - begin;
            std::size_t steps = std::max<std::size_t>(1, piece / (sizeof(T) * parts_ * width));
            if (steps > shape.chunkSteps)
                steps -= steps % shape.chunkSteps;
            for (std::size_t from = 0; from < shape.steps; from += steps) {
                const Range range{from, std::min(shape.steps, from + steps), begin, end};
                const Strides strides(shape, range);
                work_.read(range, re_, im_);
                for (std::size_t i = 0; i < mine_.size(); ++i)
                    if (mine_[i] >= begin && mine_[i] < end)
                        for (std::size_t k = 0; k < range.steps(); ++k)
                            take(i, from + k, k * strides.step + (mine_[i] - begin) * strides.point);
                if (all) {
                    char* out = &varies[begin - work_.firstPoint];
                    const auto compare = [&](const std::vector<T>& part, std::vector<T>& first) {
                        for (std::size_t p = 0; from == 0 && p < width; ++p)
                            first[p] = part[p * strides.point];
                        for (std::size_t k = 0; k < range.steps(); ++k)
                            for (std::size_t p = 0; p < width; ++p)
                                out[p] |= part[k * strides.step + p * strides.point] != first[p];
                    };
                    compare(re_, firstRe);
                    if (parts_ == 2)
                        compare(im_, firstIm);
                }
                done += range.steps() * width;
                work_.progress("samples", done * work_.sampleBytes(), own * shape.steps * work_.sampleBytes());
            }
        }
    }

    Work& work_;
    std::size_t parts_;
    std::vector<std::size_t> mine_;
    std::vector<T> re_, im_;
};

/// Records of points in the order given, on all ranks.
struct Read
{
    std::vector<double> records;
    std::vector<char> varies;
};

Read read_points(Work& work, const std::vector<std::size_t>& points, bool all)
{
    Read out;
    std::vector<double> mine;
    const auto run = [&](auto type) {
        Reader<decltype(type)> reader(work, points);
        reader.run(all);
        mine = std::move(reader.records);
        out.varies = std::move(reader.varies);
    };
    work.together([&] {
        if (work.shape().single)
            run(0.0F);
        else
            run(0.0);
    });
    const std::vector<double> ranks = work.collect(mine);
    // what came from each rank is in the order given; ranks follow one another by their points
    std::vector<std::size_t> order(points.size());
    std::iota(order.begin(), order.end(), 0);
    const int size = work.team.size();
    std::vector<std::size_t> ends;
    for (int r = 0; r < size; ++r)
        ends.push_back(owned(work.shape().points(), r, size).second);
    const auto rank_of = [&](std::size_t point) { return std::upper_bound(ends.begin(), ends.end(), point); };
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return rank_of(points[a]) < rank_of(points[b]); });
    const std::size_t length = points.empty() ? 0 : ranks.size() / points.size();
    out.records.resize(ranks.size());
    for (std::size_t i = 0; i < order.size(); ++i)
        std::copy_n(ranks.begin() + static_cast<std::ptrdiff_t>(i * length), length,
                    out.records.begin() + static_cast<std::ptrdiff_t>(order[i] * length));
    return out;
}

/// Those points that are wanted and vary, at most `count`.
Samples pick(const Work& work, const std::vector<std::size_t>& points, const std::vector<double>& records,
             std::size_t count)
{
    Samples out;
    const std::size_t parts = work.shape().complex ? 2 : 1, length = work.shape().steps * parts;
    for (std::size_t i = 0; i < points.size() && out.points.size() < count; ++i) {
        const double* r = &records[i * length];
        bool varies = false;
        for (std::size_t k = parts; k < length; ++k)
            varies = varies || r[k] != r[k % parts];
        if (!varies)
            continue;
        modes::Record record;
        record.start = work.shape().start;
        if (parts == 1) {
            record.samples = std::vector<double>(r, r + length);
        } else {
            std::vector<std::complex<double>> samples;
            for (std::size_t k = 0; k < length; k += 2)
                samples.emplace_back(r[k], r[k + 1]);
            record.samples = std::move(samples);
        }
        out.points.push_back(points[i]);
        out.records.push_back(std::move(record));
    }
    return out;
}

} // namespace

Samples choose_samples(Work& work, std::size_t count)
{
    const Shape& shape = work.shape();
    const std::size_t room = work.options.memory / 4 / (shape.steps * (shape.complex ? 16 : 8));
    const std::size_t spare = std::max(count, std::min(kSpare * count, room));
    const std::vector<std::size_t> drawn = draw_some(spare, shape.points());
    Samples samples = pick(work, drawn, read_points(work, drawn, false).records, count);
    if (samples.points.size() >= std::min(count, shape.points()) || drawn.size() == shape.points())
        return samples;
    // Most of the field rests: draw among the points that do not.
    const Read read = read_points(work, {}, true);
    std::vector<std::size_t> mine = {static_cast<std::size_t>(std::count(read.varies.begin(), read.varies.end(), 1))};
    const std::vector<std::size_t> varying = work.collect(mine);
    const std::size_t total = std::accumulate(varying.begin(), varying.end(), std::size_t(0));
    const auto before = std::accumulate(varying.begin(), varying.begin() + work.team.rank(), std::size_t(0));
    std::vector<std::size_t> chosen = draw_some(count, total); // numbers among the varying points
    std::vector<std::size_t> places(chosen.size(), 0);
    std::size_t at = before;
    for (std::size_t p = 0; p < read.varies.size(); ++p)
        if (read.varies[p]) {
            for (std::size_t i = 0; i < chosen.size(); ++i)
                if (chosen[i] == at)
                    places[i] = work.firstPoint + p;
            ++at;
        }
    std::vector<__float128> sums(places.begin(), places.end());
    work.team.sum(sums.data(), sums.size());
    for (std::size_t i = 0; i < places.size(); ++i)
        places[i] = static_cast<std::size_t>(sums[i]);
    return read_samples(work, places);
}

Samples read_samples(Work& work, const std::vector<std::size_t>& points)
{
    return pick(work, points, read_points(work, points, false).records, points.size());
}

} // namespace tessel::fields
