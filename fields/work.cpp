#include "fields/work.h"

#include "fields/crew.h"

#include <algorithm>
#include <numeric>
#include <type_traits>

namespace tessel::fields {

std::pair<std::size_t, std::size_t> owned(std::size_t points, int rank, int size)
{
    const std::size_t blocks = (points + kBlock - 1) / kBlock;
    const auto r = static_cast<std::size_t>(rank), n = static_cast<std::size_t>(size);
    // blocks r / n without a product that could overflow
    const auto begin = [&](std::size_t i) { return blocks / n * i + blocks % n * i / n; };
    return {std::min(points, begin(r) * kBlock), std::min(points, begin(r + 1) * kBlock)};
}

std::size_t Work::pointsOf(std::size_t block) const
{
    return std::min(kBlock, shape().points() - block * kBlock);
}

void Work::together(const std::function<void()>& part)
{
    std::string fault;
    bool stopped = false;
    try {
        part();
    } catch (const modes::Stopped&) {
        stopped = true;
    } catch (const std::bad_alloc&) {
        fault = "there is not enough memory for this field";
    } catch (const std::exception& e) {
        fault = e.what();
        if (fault.empty())
            fault = "the field cannot be analysed";
    }
    team.agree(fault);
    if (team.any(stopped))
        throw modes::Stopped("the analysis was stopped");
}

void Work::progress(const char* stage, std::size_t done, std::size_t all) const
{
    if (options.progress && !options.progress({stage, done, all}))
        throw modes::Stopped("the analysis was stopped");
}

std::string Work::spread(const std::string& text)
{
    std::size_t size = text.size();
    team.broadcast(&size, sizeof size);
    std::string all = text;
    all.resize(size);
    team.broadcast(all.data(), size);
    return all;
}

void Work::collectBytes(const void* mine, std::size_t bytes, const std::function<void*(std::size_t)>& room)
{
    const auto ranks = static_cast<std::size_t>(team.size());
    std::vector<__float128> each(ranks, 0);
    each[static_cast<std::size_t>(team.rank())] = static_cast<__float128>(bytes);
    team.sum(each.data(), ranks);
    std::vector<std::size_t> sizes;
    for (const __float128 size : each)
        sizes.push_back(static_cast<std::size_t>(size));
    const std::size_t total = std::accumulate(sizes.begin(), sizes.end(), std::size_t(0));
    void* all = room(total);
    team.gather(mine, bytes, all, sizes.data());
    team.broadcast(all, total);
}

namespace {

template <class T>
void read_part(const Work& work, const Range& range, std::vector<T>& re, std::vector<T>& im)
{
    const std::size_t count = range.steps() * range.points();
    const bool complex = work.shape().complex;
    if (re.size() < count)
        re.resize(count);
    if (complex && im.size() < count)
        im.resize(count);
    const bool own = work.shape().single == std::is_same_v<T, float>;
    const std::vector<Range> parts = own ? work.parts(range) : std::vector<Range>{range};
    const Strides strides(work.shape(), range);
    share(work.options.threads, parts.size(), [&](std::size_t i) {
        const std::size_t at = (parts[i].firstStep - range.firstStep) * strides.step +
                               (parts[i].firstPoint - range.firstPoint) * strides.point;
        work.source.read(parts[i], re.data() + at, complex ? im.data() + at : nullptr);
    });
}

} // namespace

void Work::read(const Range& range, std::vector<float>& re, std::vector<float>& im) const
{
    read_part(*this, range, re, im);
}
void Work::read(const Range& range, std::vector<double>& re, std::vector<double>& im) const
{
    read_part(*this, range, re, im);
}

std::vector<Range> Work::parts(const Range& range) const
{
    const bool first = shape().timeFirst;
    const std::size_t length = first ? range.steps() : range.points();
    const std::size_t count = source.concurrent() ? std::min<std::size_t>(length, options.threads) : 1;
    std::vector<Range> all;
    for (std::size_t k = 0; k < count; ++k) {
        Range& part = all.emplace_back(range);
        const std::size_t from = length * k / count, end = length * (k + 1) / count;
        (first ? part.firstStep : part.firstPoint) += from;
        (first ? part.endStep : part.endPoint) -= length - end;
    }
    return all;
}

std::string Work::place(std::size_t point) const
{
    std::string text;
    for (std::size_t d = shape().space.size(); d-- > 0;) {
        text.insert(0, (d > 0 ? ", " : "") + std::to_string(point % shape().space[d]));
        point /= shape().space[d];
    }
    return "(" + text + ")";
}

void Work::notFinite(std::size_t step, std::size_t point) const
{
    throw Error("sample at step " + std::to_string(step) + " of point " + place(point) + " is not finite");
}

} // namespace tessel::fields
