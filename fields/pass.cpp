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
constexpr std::size_t kTilesAtOnce = 8;                   // whose state a cache holds
constexpr std::size_t kStrip = 64;                        // steps of records that are turned at a time
constexpr std::size_t kLanes = 8;                         // of Kernels::project
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

    /// Adds steps [from, end), counted from the first used. Tiles go through all of them a few at a time, so that what
    /// belongs to these stays in the cache.
    template <class T>
    void absorb(const Basis& basis, std::size_t from, std::size_t end, const T* re, const T* im, Strides strides)
    {
        const Grid& grid = basis.grid();
        const std::size_t parts = grid.parts(), perSlab = kSlab / parts;
        const auto slab_of = [&](std::size_t step) { return step / grid.factor / perSlab; };
        const auto closes = [&](std::size_t slab, std::size_t step) {
            return step == (slab * perSlab + grid.rowsOf(slab) / parts) * grid.factor;
        };
        const std::size_t first = slab_of(from);
        std::vector<double> lanes((slab_of(end - 1) + 1 - first) * kSlab * kLanes, 0);
        const bool turned = strides.point != 1, whole = from == 0 && end == grid.factor * grid.sums;
        std::vector<T> strip(turned ? kStrip * kTile * parts : 0);
        const std::size_t some = turned ? 1 : kTilesAtOnce;
        for (std::size_t t = 0; t < tiles_; t += some) {
            const std::size_t tiles = std::min(some, tiles_ - t), point = t * kTile;
            const std::size_t points = std::min(points_ - point, tiles * kTile);
            double* const samples = &samples_[(turned && whole ? 0 : t) * kTileStride];
            std::size_t stripFrom = from, stripEnd = from;
            for (std::size_t at = from; at < end;) {
                const std::size_t sum = at / grid.factor, slab = slab_of(at), row = sum % perSlab * parts;
                std::size_t stop = std::min({end, (sum + 1) * grid.factor, at + kRowsAtOnce});
                std::size_t offset = (at - from) * strides.step + point * strides.point, stride = strides.step;
                const T *realPart = re + offset, *imagPart = parts == 2 ? im + offset : nullptr;
                if (turned) {
                    if (at == stripEnd) {
                        stripFrom = at;
                        stripEnd = std::min(end, at + kStrip);
                        turn(points, stripEnd - at, realPart, strides.point, strip.data());
                        if (parts == 2)
                            turn(points, stripEnd - at, imagPart, strides.point, &strip[kStrip * kTile]);
                    }
                    stop = std::min(stop, stripEnd);
                    stride = kTile;
                    realPart = &strip[(at - stripFrom) * kTile];
                    imagPart = parts == 2 ? realPart + kStrip * kTile : nullptr;
                }
                const bool fresh = at == sum * grid.factor;
                add(points, stop - at, realPart, stride, fresh, samples + row * kTile);
                if (parts == 2)
                    add(points, stop - at, imagPart, stride, fresh, samples + (row + 1) * kTile);
                at = stop;
                if (closes(slab, at))
                    close(basis, slab, t, tiles, samples, &lanes[(slab - first) * kSlab * kLanes]);
            }
        }
        for (std::size_t slab = first; slab <= slab_of(end - 1); ++slab)
            for (std::size_t k = 0; k < grid.rowsOf(slab) && (slab < slab_of(end - 1) || closes(slab, end)); ++k) {
                const double* l = &lanes[((slab - first) * kSlab + k) * kLanes];
                projection_[slab * kSlab + k] =
                    basis.weights(slab)[k] * (((l[0] + l[1]) + (l[2] + l[3])) + ((l[4] + l[5]) + (l[6] + l[7])));
            }
        for (std::size_t p = 0; p < points_ && !bad_; ++p)
            if (!std::isfinite(energy_[p]))
                bad_ = p;
    }

    /// The first point of which a sample so far was not finite.
    std::optional<std::size_t> bad() const { return bad_; }

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
    static void add(std::size_t points, std::size_t rows, const float* in, std::size_t stride, bool fresh, double* out)
    {
        kernels().addSingle(points, rows, in, stride, fresh, out);
    }
    static void add(std::size_t points, std::size_t rows, const double* in, std::size_t stride, bool fresh, double* out)
    {
        kernels().addDouble(points, rows, in, stride, fresh, out);
    }
    static void turn(std::size_t points, std::size_t steps, const float* in, std::size_t stride, float* out)
    {
        kernels().turnSingle(points, steps, in, stride, out);
    }
    static void turn(std::size_t points, std::size_t steps, const double* in, std::size_t stride, double* out)
    {
        kernels().turnDouble(points, steps, in, stride, out);
    }

    /// Takes a slab of some tiles into the basis; the sums over points go on from tile to tile.
    void close(const Basis& basis, std::size_t slab, std::size_t first, std::size_t count, const double* samples,
               double* lanes)
    {
        const Kernels& use = kernels();
        const std::size_t rows = basis.grid().rowsOf(slab), empties = basis.emptyCount(slab);
        for (std::size_t k = 0; k < count; ++k) {
            const std::size_t t = first + k;
            const double* x = samples + k * kTileStride;
            basis.addComponents(slab, x, &y_[t * basis.width() * kTile]);
            use.squares(rows, basis.weights(slab), x, &energy_[t * kTile]);
            double noise[kEmpty * kTile] = {};
            use.product(rows, empties, basis.empty(slab), x, noise);
            use.squares(empties, kOnes, noise, &empty_[t * kTile]);
            use.project(rows, x, &sign_[t * kTile], lanes);
        }
    }

    std::size_t points_, tiles_;
    std::vector<double> samples_, y_, energy_, empty_, sign_, projection_;
    std::optional<std::size_t> bad_;
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
    std::size_t chunk = 1; ///< points of whole records that pieces end behind multiples of
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
        const std::size_t free = (room > used ? room - used : 0) / (part.blocks * step);
        part.steps = std::min(std::max(kPiece * parts / (part.blocks * step), chunk), free);
    } else {
        const std::size_t bytes = std::min(kLongPiece, room / 2);
        part.blocks = std::max<std::size_t>(bytes / (steps * step), work.options.threads);
        part.blocks = std::clamp<std::size_t>(std::min(part.blocks, room / 2 / state), 1, all);
        part.steps = room / 2 / (part.blocks * step);
        // What a piece holds beyond its blocks has its room, too.
        if (shape.chunkPoints <= part.blocks * kBlock && shape.chunkPoints * steps * step / kBlock <= room / 4)
            part.chunk = shape.chunkPoints;
    }
    part.steps = std::clamp<std::size_t>(part.steps, 1, steps);
    if (part.steps > shape.chunkSteps)
        part.steps -= part.steps % shape.chunkSteps;
    return part;
}

/// A pass over the blocks that the store lacks: reads the next piece while the last one is taken in.
template <class T>
class PassReader
{
public:
    using Done = std::function<void(std::size_t, const std::vector<double>&)>;
    using Tell = std::function<void(const Range&)>;

    PassReader(const Work& work, const Basis& basis, std::size_t firstStep, Done done, Tell tell)
        : work_(work),
          basis_(basis),
          firstStep_(firstStep),
          endStep_(firstStep + basis.grid().factor * basis.grid().sums),
          done_(std::move(done)),
          tell_(std::move(tell))
    {}

    /// Blocks [firstBlock, endBlock), so many at once and so many steps at a time.
    void run(std::size_t firstBlock, std::size_t endBlock, const Part& part)
    {
        const std::size_t steps = endStep_ - firstStep_;
        if (!work_.shape().timeFirst && part.steps == steps)
            return records(firstBlock, endBlock, part.blocks, part.chunk);
        for (std::size_t b = firstBlock; b < endBlock; b += part.blocks)
            instants(b, std::min(endBlock, b + part.blocks), part.steps);
    }

private:
    using States = std::vector<std::optional<BlockState>>;

    /// A part that was read. Its memory is first touched by the threads that read.
    class Buffer
    {
    public:
        void grow(std::size_t size)
        {
            if (size > size_)
                data_ = std::make_unique_for_overwrite<T[]>(size_ = size);
        }
        T* at(std::size_t place) { return data_ ? data_.get() + place : nullptr; }

    private:
        std::unique_ptr<T[]> data_;
        std::size_t size_ = 0;
    };

    States states_of(std::size_t firstBlock, std::size_t endBlock) const
    {
        States states(endBlock - firstBlock);
        share(work_.options.threads, states.size(), [&](std::size_t i) {
            const std::size_t b = firstBlock + i;
            states[i].emplace(basis_, b * kBlock, work_.pointsOf(b));
        });
        return states;
    }
    std::size_t endOf(std::size_t endBlock) const { return std::min(work_.endPoint, endBlock * kBlock); }

    /// Steps of all blocks, piece by piece.
    void instants(std::size_t firstBlock, std::size_t endBlock, std::size_t pieceSteps)
    {
        States states = states_of(firstBlock, endBlock);
        const std::size_t chunk = work_.shape().chunkSteps;
        // pieces end where chunks do
        const auto piece = [&](std::size_t from) {
            const std::size_t end = from + pieceSteps;
            return Range{
                from, std::min(endStep_, chunk > 1 && end > from / chunk * chunk + chunk ? end / chunk * chunk : end),
                firstBlock * kBlock, endOf(endBlock)};
        };
        Range now = piece(firstStep_);
        read(now, 0, 0, [](std::size_t) {});
        for (int buffer = 0; now.steps() > 0; buffer = 1 - buffer) {
            const Range next = piece(now.endStep);
            read(next, 1 - buffer, states.size(), [&](std::size_t i) {
                const Strides strides(work_.shape(), now);
                const std::size_t offset = i * kBlock * strides.point;
                states[i]->absorb(basis_, now.firstStep - firstStep_, now.endStep - firstStep_, re_[buffer].at(offset),
                                  im_[buffer].at(offset), strides);
            });
            for (std::size_t i = 0; i < states.size(); ++i)
                check(*states[i], now.firstPoint + i * kBlock, now.endStep);
            now = next;
        }
        finish(states, firstBlock);
    }

    /// Whole records, some blocks at a time. What chunks hold of the blocks to come is kept for them.
    void records(std::size_t firstBlock, std::size_t endBlock, std::size_t blocks, std::size_t chunk)
    {
        const std::size_t steps = endStep_ - firstStep_, last = endOf(endBlock);
        const auto piece = [&](std::size_t from, std::size_t block) {
            const std::size_t end = endOf(std::min(endBlock, block + blocks));
            return Range{firstStep_, endStep_, std::min(from, last),
                         std::min(last, std::max(from, (end + chunk - 1) / chunk * chunk))};
        };
        Range ahead = piece(firstBlock * kBlock, firstBlock);
        read(ahead, 0, 0, [](std::size_t) {});
        int buffer = 0;
        for (std::size_t b = firstBlock; b < endBlock; b += blocks, buffer = 1 - buffer) {
            const std::size_t end = std::min(endBlock, b + blocks), from = b * kBlock,
                              kept = ahead.endPoint - endOf(end);
            const Range next = piece(ahead.endPoint, end);
            for (Buffer* both : {re_, im_})
                if (const T* old = both[buffer].at((endOf(end) - from) * steps)) {
                    both[1 - buffer].grow((kept + next.points()) * steps);
                    std::copy_n(old, kept * steps, both[1 - buffer].at(0));
                }
            States states = states_of(b, end);
            read(
                next, 1 - buffer, states.size(),
                [&](std::size_t i) {
                    const std::size_t offset = i * kBlock * steps;
                    states[i]->absorb(basis_, 0, steps, re_[buffer].at(offset), im_[buffer].at(offset),
                                      Strides(work_.shape(), next));
                },
                kept * steps);
            for (std::size_t i = 0; i < states.size(); ++i)
                check(*states[i], from + i * kBlock, endStep_);
            finish(states, b);
            ahead = next;
        }
    }

    /// Reads a range into a buffer, from a place in it on, and does `count` other things meanwhile.
    template <class Other>
    void read(const Range& range, int buffer, std::size_t count, const Other& other, std::size_t at = 0)
    {
        const std::size_t size = at + range.steps() * range.points();
        const bool complex = work_.shape().complex;
        re_[buffer].grow(size);
        if (complex)
            im_[buffer].grow(size);
        const auto part = [&](const Range& some) {
            const Strides strides(work_.shape(), range);
            const std::size_t offset = at + (some.firstStep - range.firstStep) * strides.step +
                                       (some.firstPoint - range.firstPoint) * strides.point;
            work_.source.read(some, re_[buffer].at(offset), im_[buffer].at(offset));
        };
        const std::vector<Range> parts = range.steps() * range.points() > 0 ? work_.parts(range) : std::vector<Range>();
        if (parts.size() == 1)
            share(
                work_.options.threads, count, [&] { part(range); }, other);
        else
            share(work_.options.threads, parts.size() + count,
                  [&](std::size_t i) { i < parts.size() ? part(parts[i]) : other(i - parts.size()); });
        if (!parts.empty())
            tell_(range);
    }

    /// @throws Error  a sample is not finite
    void check(const BlockState& state, std::size_t firstPoint, std::size_t end) const
    {
        const std::optional<std::size_t> bad = state.bad();
        if (!bad)
            return;
        const std::size_t point = firstPoint + *bad;
        std::vector<double> one, other;
        for (std::size_t k = firstStep_; k < end; k += kRescan) {
            const Range range{k, std::min(end, k + kRescan), point, point + 1};
            work_.read(range, one, other);
            for (std::size_t n = 0; n < range.steps(); ++n)
                if (!std::isfinite(one[n]) || (work_.shape().complex && !std::isfinite(other[n])))
                    work_.notFinite(k + n, point);
        }
        throw Error("the samples of point " + work_.place(point) + " are too large");
    }

    void finish(const States& states, std::size_t firstBlock) const
    {
        const std::size_t batch = 4 * std::max(1U, work_.options.threads);
        for (std::size_t begin = 0; begin < states.size(); begin += batch) {
            const std::size_t some = std::min(batch, states.size() - begin);
            std::vector<std::vector<double>> values(some);
            share(work_.options.threads, some, [&](std::size_t i) {
                values[i] = states[begin + i]->finish(basis_, work_.shape().single);
                done_(firstBlock + begin + i, values[i]);
            });
            for (std::size_t i = 0; i < some; ++i)
                work_.store.put(firstBlock + begin + i, values[i].data(), values[i].size());
        }
    }

    const Work& work_;
    const Basis& basis_;
    std::size_t firstStep_, endStep_;
    const Done done_;
    const Tell tell_;
    Buffer re_[2], im_[2];
};

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
        const auto pass = [&](auto reading) {
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
                while (end < work.endBlock() && !work.store.has(end))
                    ++end;
                reading.run(b, end, part);
                b = end;
            }
        };
        if (work.shape().single)
            pass(PassReader<float>(work, basis, firstStep, done, tell));
        else
            pass(PassReader<double>(work, basis, firstStep, done, tell));
    });
    return pool.sum(work);
}

} // namespace tessel::fields
