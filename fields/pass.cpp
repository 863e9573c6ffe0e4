#include "fields/pass.h"
#include "common/elementary.h"
#include "fields/crew.h"
#include "fields/spectrum.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>

namespace tessel::fields {

namespace {

constexpr std::size_t kTilesOfBlock = kBlock / kTile;
constexpr std::size_t kPiece = std::size_t(16) << 20;     // bytes read together where time comes first
constexpr std::size_t kLongPiece = std::size_t(64) << 20; // where records lie together
constexpr std::size_t kRowsAtOnce = 8;                    // streams that a processor can follow
constexpr std::size_t kEmptyWanted = 8;                   // degrees of freedom
constexpr double kCancelled = 1e-12;      // of a record's energy: below it the difference of two energies says little
constexpr double kOwnRounding = 3;        // of the sums over time, in units of 2^-53 of a record's root mean square
constexpr double kFilters[] = {0, 4, 16}; // nepers of a decay over the record
constexpr double kRounded = 10;           // times the variance that rounding leaves: nothing else is looked for below
constexpr std::size_t kNeighbours = 8;
constexpr std::size_t kRescan = 4096; // steps read together to find a sample that is not finite

constexpr double kOnes[kEmpty] = {1, 1, 1, 1, 1, 1, 1, 1};

using Quad = __float128;

bool sign_of(std::size_t point)
{
    std::uint64_t x = point + 0x9e3779b97f4a7c15ULL;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
    return ((x ^ (x >> 31)) & 1U) != 0;
}

/// Degrees of freedom of a point's variance, less two: so the mean of its inverse, which weighs the point, is right.
/// `lost`: the noise is lost in the difference of two energies, and is taken from the directions beside the basis.
double freedom_of(const Basis& basis, bool lost)
{
    return static_cast<double>(lost ? basis.emptyTotal() : basis.grid().rows() - basis.width()) - 2;
}

/// Variance of a row that rounding leaves in a record of this energy: that of its samples, and of the components.
double rounding_of(const Basis& basis, bool single, double energy)
{
    const auto rows = static_cast<double>(basis.grid().rows()), factor = static_cast<double>(basis.grid().factor);
    const double unit = single ? 0x1p-25 : 0x1p-54;
    return energy * (unit * unit / (3 * factor * rows) + 0x1p-106);
}

/// A block while its records pass by.
class BlockState
{
public:
    BlockState(const Basis& basis, std::size_t firstPoint, std::size_t points)
        : points_(points),
          tiles_((points + kTile - 1) / kTile),
          samples_(tiles_ * kTileStride, 0),
          y_(tiles_ * basis.width() * kTile, 0),
          energy_(tiles_ * kTile, 0),
          empty_(tiles_ * kTile, 0),
          sign_(tiles_ * kTile, 0),
          projection_(basis.grid().rows(), 0)
    {
        for (std::size_t p = 0; p < points; ++p)
            sign_[p] = sign_of(firstPoint + p) ? 1 : -1;
    }

    /// Adds steps [from, end), counted from the first used; a step's samples lie `stride` behind the last one's.
    template <class T>
    void absorb(const Basis& basis, std::size_t from, std::size_t end, const T* re, const T* im, std::size_t stride)
    {
        const Grid& grid = basis.grid();
        const std::size_t parts = grid.parts(), perSlab = kSlab / parts;
        for (std::size_t k = from; k < end;) {
            const std::size_t sum = k / grid.factor, slab = sum / perSlab, row = sum % perSlab * parts;
            const std::size_t stop = std::min(end, (sum + 1) * grid.factor);
            for (std::size_t at = k; at < stop; at += kRowsAtOnce) {
                const std::size_t rows = std::min(kRowsAtOnce, stop - at), offset = (at - from) * stride;
                const bool fresh = at == sum * grid.factor;
                add(rows, re + offset, stride, fresh, &samples_[row * kTile]);
                if (parts == 2)
                    add(rows, im + offset, stride, fresh, &samples_[(row + 1) * kTile]);
            }
            k = stop;
            if (stop == (sum + 1) * grid.factor && row + parts == grid.rowsOf(slab))
                close(basis, slab);
        }
    }

    /// Whether a sample so far was not finite, and the first such point.
    std::optional<std::size_t> bad() const
    {
        for (std::size_t p = 0; p < points_; ++p)
            if (!std::isfinite(energy_[p]))
                return p;
        return std::nullopt;
    }

    /// What is kept, by BlockLayout.
    std::vector<double> finish(const Basis& basis, bool single) const
    {
        const BlockLayout layout(basis);
        const std::size_t empties = basis.emptyTotal();
        std::vector<double> out(layout.size(points_), 0);
        for (std::size_t p = 0; p < points_; ++p) {
            double* to = &out[p * layout.stride()];
            double inside = 0;
            for (std::size_t c = 0; c < layout.width; ++c) {
                to[c] = y_[(p / kTile * layout.width + c) * kTile + p % kTile];
                inside += to[c] * to[c];
            }
            double outside = energy_[p] - inside, freedom = freedom_of(basis, false);
            if (outside < kCancelled * energy_[p] && empties >= kEmptyWanted) {
                outside = empty_[p];
                freedom = freedom_of(basis, true);
            }
            to[layout.width] = std::max(outside / freedom, rounding_of(basis, single, energy_[p]));
        }
        Eigen::Map<Vector> residual(&out[points_ * layout.stride()], static_cast<Index>(layout.rows));
        residual = Eigen::Map<const Vector>(projection_.data(), static_cast<Index>(layout.rows));
        Vector inside(basis.matrix().cols());
        for (int twice = 0; twice < 2; ++twice) {
            inside.noalias() = basis.matrix().transpose() * residual;
            residual.noalias() -= basis.matrix() * inside;
        }
        return out;
    }

private:
    void add(std::size_t rows, const float* in, std::size_t stride, bool fresh, double* out) const
    {
        kernels().addSingle(points_, rows, in, stride, fresh, out);
    }
    void add(std::size_t rows, const double* in, std::size_t stride, bool fresh, double* out) const
    {
        kernels().addDouble(points_, rows, in, stride, fresh, out);
    }

    void close(const Basis& basis, std::size_t slab)
    {
        const Kernels& use = kernels();
        const std::size_t rows = basis.grid().rowsOf(slab), count = basis.emptyCount(slab);
        double lanes[kSlab * 8] = {};
        for (std::size_t t = 0; t < tiles_; ++t) {
            const double* x = &samples_[t * kTileStride];
            basis.addComponents(slab, x, &y_[t * basis.width() * kTile]);
            use.squares(rows, basis.weights(slab), x, &energy_[t * kTile]);
            double noise[kEmpty * kTile] = {};
            use.product(rows, count, basis.empty(slab), x, noise);
            use.squares(count, kOnes, noise, &empty_[t * kTile]);
            use.project(rows, x, &sign_[t * kTile], lanes);
        }
        for (std::size_t k = 0; k < rows; ++k) {
            const double* l = &lanes[k * 8];
            projection_[slab * kSlab + k] =
                basis.weights(slab)[k] * (((l[0] + l[1]) + (l[2] + l[3])) + ((l[4] + l[5]) + (l[6] + l[7])));
        }
    }

    std::size_t points_, tiles_;
    std::vector<double> samples_, y_, energy_, empty_, sign_, projection_;
};

using Filters = std::vector<std::vector<double>>;

/// What blocks add up to. Quadruple precision: their order does not reach the bits of a double.
class Accumulator
{
public:
    Accumulator(const Basis& basis, const Spectrum& spectrum, const Filters& filters, bool single)
        : basis_(basis),
          spectrum_(spectrum),
          gram(basis.width() * (basis.width() + 1) / 2, 0),
          periodogram(filters.size() * spectrum.size(), 0),
          filters_(filters),
          single_(single)
    {}

    void add(std::uint64_t block, std::size_t points, const double* values)
    {
        const BlockLayout layout(basis_);
        add_gram(points, values);
        for (std::size_t p = 0; p < points; ++p) {
            const double v = values[p * layout.stride() + layout.width];
            variance += static_cast<Quad>(v);
            used += v > 0;
        }
        BlockSearch found;
        found.block = block;
        add_periodogram(values + points * layout.stride(), found);
        stand_out(points, values, found);
        blocks.push_back(found);
    }

private:
    const Basis& basis_;
    const Spectrum& spectrum_;

public:
    std::vector<Quad> gram; ///< lower triangle by rows
    std::vector<Quad> periodogram;
    Quad variance = 0, used = 0;
    std::vector<BlockSearch> blocks;

private:
    /// The kernel of the pass, with points in place of time and columns in place of points.
    void add_gram(std::size_t points, const double* values)
    {
        const std::size_t width = basis_.width(), stride = width + 1, tiles = (width + kTile - 1) / kTile;
        x_.resize(tiles * kSlab * kTile);
        weighted_.resize(kSlab * width);
        sums_.assign(tiles * width * kTile, 0);
        for (std::size_t begin = 0; begin < points; begin += kSlab) {
            const std::size_t rows = std::min(kSlab, points - begin);
            std::fill(x_.begin(), x_.end(), 0.0);
            for (std::size_t k = 0; k < rows; ++k) {
                const double* y = values + (begin + k) * stride;
                const double weight = y[width] > 0 ? 1 / y[width] : 0;
                for (std::size_t c = 0; c < width; ++c) {
                    x_[(c / kTile * kSlab + k) * kTile + c % kTile] = y[c];
                    const std::size_t group = c / kColumnGroup * kColumnGroup;
                    const std::size_t wide = std::min(kColumnGroup, width - group);
                    weighted_[rows * group + k * wide + c - group] = weight * y[c];
                }
            }
            for (std::size_t t = 0; t < tiles; ++t) // the lower triangle
                kernels().product(rows, width - t * kTile, &weighted_[rows * t * kTile], &x_[t * kSlab * kTile],
                                  &sums_[(t * width + t * kTile) * kTile]);
        }
        std::size_t at = 0;
        for (std::size_t c = 0; c < width; ++c)
            for (std::size_t j = 0; j <= c; ++j)
                gram[at++] += static_cast<Quad>(sums_[(j / kTile * width + c) * kTile + j % kTile]);
    }

    void add_periodogram(const double* residual, BlockSearch& found)
    {
        const std::size_t rows = basis_.grid().rows(), bins = spectrum_.size();
        std::vector<double> filtered(rows);
        for (std::size_t level = 0; level < filters_.size(); ++level) {
            for (std::size_t row = 0; row < rows; ++row)
                filtered[row] = filters_[level][row] * residual[row];
            const std::vector<double> power = spectrum_.power(filtered.data());
            std::vector<double> sorted = power;
            const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(bins / 2);
            std::nth_element(sorted.begin(), middle, sorted.end());
            const double mean = *middle / 0.6931471805599453; // of an exponential distribution
            if (!(mean > 0))
                return;
            for (std::size_t j = 0; j < bins; ++j) {
                const double score = power[j] / mean;
                periodogram[level * bins + j] += static_cast<Quad>(score);
                // the ends of a real field's have one degree of freedom
                const bool end = !basis_.grid().complex && (j == 0 || j + 1 == bins);
                if (!end)
                    found.score = std::max(found.score, score);
            }
        }
    }

    /// The two points whose variance is the largest multiple of the median of those beside them.
    void stand_out(std::size_t points, const double* values, BlockSearch& found) const
    {
        const std::size_t width = basis_.width(), stride = width + 1;
        const double own = freedom_of(basis_, false);
        found.freedom = own;
        std::vector<double> near;
        std::size_t rounded = 0;
        for (std::size_t p = 0; p < points; ++p) {
            double inside = 0;
            for (std::size_t c = 0; c < width; ++c)
                inside += values[p * stride + c] * values[p * stride + c];
            const double v = values[p * stride + width];
            if (v * own < 2 * kCancelled * inside)
                found.freedom = freedom_of(basis_, true);
            if (v < kRounded * rounding_of(basis_, single_, inside)) {
                ++rounded;
                continue;
            }
            near.clear();
            for (std::size_t n = p > kNeighbours ? p - kNeighbours : 0; n < std::min(points, p + kNeighbours + 1); ++n)
                if (n != p)
                    near.push_back(values[n * stride + width]);
            if (near.empty())
                continue;
            std::nth_element(near.begin(), near.begin() + static_cast<std::ptrdiff_t>(near.size() / 2), near.end());
            const double middle = near[near.size() / 2];
            const double ratio = middle > 0 ? v / middle : 0;
            for (int rank = 0; rank < 2; ++rank)
                if (ratio > found.ratio[rank]) {
                    if (rank == 0) {
                        found.ratio[1] = found.ratio[0];
                        found.point[1] = found.point[0];
                    }
                    found.ratio[rank] = ratio;
                    found.point[rank] = found.block * kBlock + p;
                    break;
                }
        }
        found.rounded = 2 * rounded > points;
    }

    const Filters& filters_;
    bool single_;
    std::vector<double> x_, weighted_, sums_;
};

/// Accumulators for as many threads as work at once.
class Pool
{
public:
    Pool(const Basis& basis, const Spectrum& spectrum, bool single)
        : basis_(basis), spectrum_(spectrum), filters_(filters_of(basis.grid())), single_(single)
    {}

    void add(std::uint64_t block, std::size_t points, const double* values)
    {
        std::unique_ptr<Accumulator> mine;
        {
            const std::lock_guard lock(guard_);
            if (!free_.empty()) {
                mine = std::move(free_.back());
                free_.pop_back();
            }
        }
        if (!mine)
            mine = std::make_unique<Accumulator>(basis_, spectrum_, filters_, single_);
        mine->add(block, points, values);
        const std::lock_guard lock(guard_);
        free_.push_back(std::move(mine));
    }

    Pass sum(Work& work) const
    {
        const std::size_t width = basis_.width(), entries = width * (width + 1) / 2;
        const std::size_t scores = filters_.size() * spectrum_.size();
        std::vector<Quad> all(entries + scores + 2, 0);
        Pass pass;
        for (const auto& part : free_) {
            for (std::size_t i = 0; i < entries; ++i)
                all[i] += part->gram[i];
            for (std::size_t i = 0; i < scores; ++i)
                all[entries + i] += part->periodogram[i];
            all[all.size() - 2] += part->variance;
            all[all.size() - 1] += part->used;
            pass.search.blocks.insert(pass.search.blocks.end(), part->blocks.begin(), part->blocks.end());
        }
        std::sort(pass.search.blocks.begin(), pass.search.blocks.end(),
                  [](const BlockSearch& a, const BlockSearch& b) { return a.block < b.block; });
        work.team.sum(all.data(), all.size());
        const auto n = static_cast<Index>(width);
        pass.sums.y.resize(n, n);
        std::size_t at = 0;
        for (Index c = 0; c < n; ++c)
            for (Index j = 0; j <= c; ++j)
                pass.sums.y(c, j) = pass.sums.y(j, c) = static_cast<Extended>(static_cast<double>(all[at++]));
        for (std::size_t level = 0; level < filters_.size(); ++level) {
            std::vector<double>& sum = pass.search.periodograms.emplace_back();
            for (std::size_t i = 0; i < spectrum_.size(); ++i)
                sum.push_back(static_cast<double>(all[at++]));
        }
        pass.sums.variance = static_cast<double>(all[at++]);
        pass.sums.points = static_cast<double>(all[at]);
        pass.sums.freedom = static_cast<double>(basis_.grid().rows() - width);
        return pass;
    }

private:
    const Basis& basis_;
    const Spectrum& spectrum_;
    const Filters filters_;
    bool single_;
    std::mutex guard_;
    std::vector<std::unique_ptr<Accumulator>> free_;
};

/// Blocks that pass by together, and the steps that are read at once.
struct Part
{
    std::size_t blocks, steps;
};

Part part_of(const Work& work, const Basis& basis, std::size_t steps)
{
    const Shape& shape = work.shape();
    const std::size_t parts = basis.grid().parts();
    const std::size_t state = kBlock * (kSlab + 1 + basis.width() + 3) * sizeof(double);
    const std::size_t step = 2 * kBlock * work.sampleBytes(); // of two pieces
    const std::size_t room = work.options.memory - work.options.memory / 8;
    const std::size_t chunk = std::min(steps, std::max<std::size_t>(shape.chunkSteps, kRowsAtOnce));
    const std::size_t all = std::max<std::size_t>(1, work.endBlock() - work.firstBlock());
    Part part{};
    if (shape.timeFirst) {
        part.blocks = std::clamp<std::size_t>(room / (state + chunk * step), 1, all);
        const std::size_t used = part.blocks * state;
        const std::size_t bytes = std::min(kPiece * parts, room > used ? room - used : 0);
        part.steps = bytes / (part.blocks * step);
    } else {
        const std::size_t bytes = std::min(kLongPiece, room / 2);
        part.blocks = std::max<std::size_t>(bytes / (steps * step), work.options.threads);
        part.blocks = std::clamp<std::size_t>(std::min(part.blocks, room / 2 / state), 1, all);
        part.steps = room / 2 / (part.blocks * step);
    }
    part.steps = std::clamp<std::size_t>(part.steps, 1, steps);
    if (part.steps > shape.chunkSteps)
        part.steps -= part.steps % shape.chunkSteps;
    return part;
}

/// Reads blocks [firstBlock, endBlock) and gives each finished one to `done`.
template <class T, class Done>
void read_blocks(const Work& work, const Basis& basis, std::size_t firstStep, std::size_t steps, std::size_t firstBlock,
                 std::size_t endBlock, std::size_t pieceSteps, const Done& done,
                 const std::function<void(const Range&)>& tell)
{
    const std::size_t count = endBlock - firstBlock, firstPoint = firstBlock * kBlock;
    const std::size_t endPoint = std::min(work.endPoint, endBlock * kBlock), endStep = firstStep + steps;
    std::vector<BlockState> states;
    for (std::size_t b = firstBlock; b < endBlock; ++b)
        states.emplace_back(basis, b * kBlock, work.pointsOf(b));
    std::vector<T> re[2], im[2];
    // pieces end where chunks do
    const auto end_of = [&](std::size_t from) {
        const std::size_t chunk = work.shape().chunkSteps;
        const std::size_t end = from + pieceSteps;
        return std::min(endStep, chunk > 1 && end > from / chunk * chunk + chunk ? end / chunk * chunk : end);
    };
    const auto read = [&](std::size_t from, int buffer) {
        const Range range{from, end_of(from), firstPoint, endPoint};
        work.read(range, re[buffer], im[buffer]);
        tell(range);
    };
    read(firstStep, 0);
    int buffer = 0;
    for (std::size_t from = firstStep; from < endStep; from = end_of(from), buffer = 1 - buffer) {
        const std::size_t end = end_of(from);
        share(
            work.options.threads, count,
            [&] {
                if (end < endStep)
                    read(end, 1 - buffer);
            },
            [&](std::size_t i) {
                const std::size_t offset = i * kBlock;
                states[i].absorb(basis, from - firstStep, end - firstStep, re[buffer].data() + offset,
                                 im[buffer].data() + (im[buffer].empty() ? 0 : offset), endPoint - firstPoint);
            });
        for (std::size_t i = 0; i < count; ++i)
            if (const std::optional<std::size_t> bad = states[i].bad()) {
                const std::size_t point = firstPoint + i * kBlock + *bad;
                std::vector<double> one, other;
                for (std::size_t k = firstStep; k < end; k += kRescan) {
                    const Range range{k, std::min(end, k + kRescan), point, point + 1};
                    work.read(range, one, other);
                    for (std::size_t n = 0; n < range.steps(); ++n)
                        if (!std::isfinite(one[n]) || (work.shape().complex && !std::isfinite(other[n])))
                            work.notFinite(k + n, point);
                }
                throw Error("the samples of point " + work.place(point) + " are too large");
            }
    }
    const std::size_t batch = 4 * std::max(1U, work.options.threads);
    for (std::size_t begin = 0; begin < count; begin += batch) {
        const std::size_t some = std::min(batch, count - begin);
        std::vector<std::vector<double>> values(some);
        share(work.options.threads, some, [&](std::size_t i) {
            values[i] = states[begin + i].finish(basis, work.shape().single);
            done(firstBlock + begin + i, values[i]);
        });
        for (std::size_t i = 0; i < some; ++i)
            work.store.put(firstBlock + begin + i, values[i].data(), values[i].size());
    }
}

} // namespace

std::vector<std::vector<double>> filters_of(const Grid& grid)
{
    Filters out;
    for (const double nepers : kFilters) {
        std::vector<double>& filter = out.emplace_back();
        const auto sums = static_cast<double>(grid.sums);
        for (std::size_t row = 0; row < grid.rows(); ++row)
            filter.push_back(exponential(-nepers * static_cast<double>(row / grid.parts()) / sums));
    }
    return out;
}

std::string pass_name(const Basis& basis, std::size_t firstStep)
{
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    const auto mix = [&](const std::string& text) {
        for (const char c : text)
            hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3ULL;
    };
    char text[96];
    for (const Term& term : basis.terms()) {
        std::snprintf(text, sizeof text, "%La %La %d;", term.decay, term.cycles, term.real);
        mix(text);
    }
    for (std::size_t row = 0; row < basis.grid().rows(); ++row) {
        std::snprintf(text, sizeof text, "%a;", basis.weights(0)[row]);
        mix(text);
    }
    std::snprintf(text, sizeof text, "%zu %zu %zu %zu", firstStep, basis.grid().factor, basis.grid().sums,
                  basis.width());
    mix(text);
    std::snprintf(text, sizeof text, "pass-%016llx", static_cast<unsigned long long>(hash));
    return text;
}

Pass run_pass(Work& work, const Basis& basis, std::size_t firstStep)
{
    const Grid& grid = basis.grid();
    const BlockLayout layout(basis);
    const Spectrum spectrum(grid.sums, grid.complex);
    Pool pool(basis, spectrum, work.shape().single);
    const std::size_t steps = grid.factor * grid.sums;
    work.store.begin(pass_name(basis, firstStep), layout.size(kBlock)); // all ranks together
    work.together([&] {
        const Part part = part_of(work, basis, steps);
        const std::size_t all = (work.endPoint - work.firstPoint) * steps * work.sampleBytes();
        std::size_t read = 0;
        const auto tell = [&](const Range& range) {
            read += range.steps() * range.points() * work.sampleBytes();
            work.progress("pass", read, all);
        };
        const auto done = [&](std::size_t block, const std::vector<double>& values) {
            pool.add(block, work.pointsOf(block), values.data());
        };
        for (std::size_t b = work.firstBlock(); b < work.endBlock();) {
            if (work.store.has(b)) {
                std::vector<double> values(layout.size(work.pointsOf(b)));
                work.store.get(b, values.data(), values.size());
                done(b, values);
                tell({firstStep, firstStep + steps, b * kBlock, b * kBlock + work.pointsOf(b)});
                ++b;
                continue;
            }
            std::size_t end = b + 1;
            while (end < work.endBlock() && end - b < part.blocks && !work.store.has(end))
                ++end;
            if (work.shape().single)
                read_blocks<float>(work, basis, firstStep, steps, b, end, part.steps, done, tell);
            else
                read_blocks<double>(work, basis, firstStep, steps, b, end, part.steps, done, tell);
            b = end;
        }
    });
    return pool.sum(work);
}

} // namespace tessel::fields
