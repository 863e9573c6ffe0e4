#include "fields/basis.h"

#include "fields/crew.h"

#include <Eigen/QR>

#include <algorithm>
#include <cmath>

namespace tessel::fields {

namespace {

constexpr std::ptrdiff_t kRun = 64; // powers by products, before one is formed anew
constexpr double kNothing = 1e-15;  // of a slab's columns: nothing of them in a direction
constexpr double kLittle = 1e-9;    // of a slab's columns: its square is nothing
constexpr double kWorthwhile = 0.9; // of the work with the columns themselves
constexpr Index kColumnsOfTask = 8;
constexpr Extended kLargestNeper = 11000L; // of the range of extended precision

/// exp(x). The exponential of the C library has last bits of the processor's maker.
Extended exponential(Extended x)
{
    if (x < -kLargestNeper)
        return 0;
    x = std::min(x, kLargestNeper);
    constexpr Extended log2High = 0x0.b17217f7d1cp0L, log2Low = 0x0.f79abc9e3b39803fp-44L; // k high is exact
    const Extended k = std::nearbyint(x * 1.44269504088896340736L);
    const Extended r = (x - k * log2High) - k * log2Low;
    Extended sum = 1;
    for (int n = 20; n > 0; --n)
        sum = 1 + sum * r / static_cast<Extended>(n);
    return std::ldexp(sum, static_cast<int>(k));
}

} // namespace

ExtendedComplex power(const Term& term, std::ptrdiff_t steps)
{
    const auto n = static_cast<Extended>(steps);
    const Extended size = exponential(-term.decay * n);
    if (term.real)
        return size;
    // whole turns are taken off exactly: the high part has 32 bits
    const Extended scale = 0x1p32L;
    const Extended high = std::nearbyint(term.cycles * scale) / scale;
    Extended turns = high * n;
    turns -= std::nearbyint(turns);
    turns += (term.cycles - high) * n;
    Extended sine, cosine;
    sincosl(kTwoPi * turns, &sine, &cosine);
    return {size * cosine, size * sine};
}

Columns::Columns(const Grid& grid, const Terms& terms, std::size_t drift)
{
    for (const Term& term : terms) {
        linear.push_back(modes);
        parameters.push_back(parameterTotal);
        widths.push_back(term.real && !grid.complex ? 1 : 2);
        modes += widths.back();
        parameterTotal += term.real ? 1 : 2;
    }
    linears = modes + static_cast<Index>((drift + 1) * grid.parts());
    for (const Index l : linear)
        poles.push_back(linears + l);
    total = linears + modes;
}

template <class Work>
void Span::inParts(Index columns, const Work& work) const
{
    const auto tasks = static_cast<std::size_t>((columns + kColumnsOfTask - 1) / kColumnsOfTask);
    share(threads_, tasks, [&](std::size_t task) {
        const Index from = static_cast<Index>(task) * kColumnsOfTask;
        work(from, std::min(kColumnsOfTask, columns - from));
    });
}

Span::Span(const Grid& grid, Terms terms, std::size_t drift, const std::vector<double>& weights, double unit,
           unsigned threads)
    : grid_(grid),
      terms_(std::move(terms)),
      columns_(grid, terms_, drift),
      drift_(drift),
      unit_(unit),
      threads_(threads),
      weights_(grid.rows(), unit)
{
    for (std::size_t row = 0; row < weights_.size() && !weights.empty(); ++row)
        weights_[row] = weights[row / grid.parts()] * unit;
    v_ = evaluate(terms_);
    const Eigen::HouseholderQR<Matrix> qr(v_.cast<double>());
    q_ = qr.householderQ() * Matrix::Identity(v_.rows(), columns_.total);
}

Basis::Basis(Span span) : Span(std::move(span)), packed_(q_), slabs_(grid_.slabs())
{
    share(threads_, slabs_.size(), [&](std::size_t s) { slabs_[s] = slabOf(s); });
    // Whatever rounding and packing made of the basis: these are the columns in it.
    r_ = inner(v_);
}

/// Packs a slab; where the columns are made of directions, packed_ becomes what that gives. The projection on some
/// directions loses of lengths and angles of the columns what the square of the part outside of them is.
Basis::Slab Basis::slabOf(std::size_t slab)
{
    const auto from = static_cast<Index>(slab * kSlab), rows = static_cast<Index>(grid_.rowsOf(slab));
    const Index width = columns_.total;
    const auto weight = Eigen::Map<const Vector>(weights_.data() + from, rows).asDiagonal();
    // The last directions of a decomposition that takes the largest columns first are orthogonal to all.
    Eigen::ColPivHouseholderQR<Matrix> local(q_.middleRows(from, rows));
    local.setThreshold(kNothing);
    const Index count = std::min(rows - local.rank(), static_cast<Index>(kEmpty));
    local.setThreshold(kLittle);
    const Index rank = local.rank();
    const auto directions = [&](Index first, Index some) {
        Matrix out = Matrix::Zero(rows, some);
        out.middleRows(first, some).setIdentity();
        out.applyOnTheLeft(local.householderQ());
        return out;
    };
    Slab out;
    out.emptyCount = static_cast<std::size_t>(count);
    if (count > 0)
        out.empty = packed(weight * directions(rows - count, count));
    if (static_cast<double>(rank * (rows + width)) < kWorthwhile * static_cast<double>(rows * width)) {
        const Matrix rectangle = local.matrixR().topRows(rank).template triangularView<Eigen::Upper>();
        const Matrix columns = rectangle * local.colsPermutation().transpose(), kept = directions(0, rank);
        packed_.middleRows(from, rows).noalias() = kept * columns;
        out.rank = static_cast<std::size_t>(rank);
        out.rows = packed(weight * kept);
        out.columns = packed(columns);
    } else {
        out.rows = packed(weight * q_.middleRows(from, rows));
    }
    return out;
}

void Basis::addComponents(std::size_t slab, const double* x, double* y) const
{
    const Kernels& use = kernels();
    const Slab& own = slabs_[slab];
    const std::size_t rows = grid_.rowsOf(slab);
    if (own.rank == 0)
        return use.product(rows, width(), own.rows.data(), x, y);
    alignas(64) double parts[kSlab * kTile];
    std::fill_n(parts, own.rank * kTile, 0.0);
    use.product(rows, own.rank, own.rows.data(), x, parts);
    use.product(own.rank, width(), own.columns.data(), parts, y);
}

/// The transposed basis times columns. Products of doubles are summed in extended precision; what the columns hold
/// beyond doubles is small.
ExtendedMatrix Basis::inner(const ExtendedMatrix& v) const
{
    const Matrix high = v.cast<double>(), low = (v - high.cast<Extended>()).cast<double>();
    ExtendedMatrix out = (packed_.transpose() * low).cast<Extended>();
    const Index width = packed_.cols(), rows = packed_.rows(), slab = static_cast<Index>(kSlab);
    inParts(v.cols(), [&](Index first, Index count) {
        const Index end = first + count;
        for (Index from = 0; from < rows; from += slab) {
            const Index stop = std::min(from + slab, rows);
            for (Index c = first; c < end; ++c)
                for (Index i = 0; i < width; i += 4) {
                    // Four sums hide that each waits for its last term.
                    const double* const x = &high(0, c);
                    const double* q[4];
                    for (Index n = 0; n < 4; ++n)
                        q[n] = &packed_(0, std::min(i + n, width - 1));
                    Extended a = 0, b = 0, d = 0, e = 0;
                    for (Index k = from; k < stop; ++k) {
                        const auto value = static_cast<Extended>(x[k]);
                        a += value * static_cast<Extended>(q[0][k]);
                        b += value * static_cast<Extended>(q[1][k]);
                        d += value * static_cast<Extended>(q[2][k]);
                        e += value * static_cast<Extended>(q[3][k]);
                    }
                    const Extended sums[] = {a, b, d, e};
                    for (Index n = 0; n < std::min<Index>(4, width - i); ++n)
                        out(i + n, c) += sums[n];
                }
        }
    });
    return out;
}

std::size_t Basis::emptyTotal() const
{
    std::size_t total = 0;
    for (const Slab& slab : slabs_)
        total += slab.emptyCount;
    return total;
}

ExtendedMatrix Span::evaluate(const Terms& terms) const
{
    const auto sums = static_cast<Index>(grid_.sums);
    const Index parts = static_cast<Index>(grid_.parts());
    ExtendedMatrix v = ExtendedMatrix::Zero(sums * parts, columns_.total);
    // the number of a column of c = a + i b and its values at sum k: of a real field the real part is seen
    const auto set = [&](Index column, Index width, Index k, ExtendedComplex e) {
        v(k * parts, column) = e.real();
        if (parts == 2)
            v(k * parts + 1, column) = e.imag();
        if (width == 2) {
            v(k * parts, column + 1) = -e.imag();
            if (parts == 2)
                v(k * parts + 1, column + 1) = e.real();
        }
    };
    const auto q = static_cast<std::ptrdiff_t>(grid_.factor);
    share(threads_, terms.size(), [&](std::size_t j) {
        const Term& term = terms[j];
        const auto o = static_cast<Index>(origin(j));
        std::vector<ExtendedComplex> run;
        for (std::ptrdiff_t k = 0; k < kRun; ++k)
            run.push_back(power(term, q * k));
        ExtendedComplex start = 1;
        for (Index k = 0; k < sums; ++k) {
            if (k % kRun == 0)
                start = power(term, q * (k - o));
            const ExtendedComplex e = product(start, run[static_cast<std::size_t>(k % kRun)]);
            set(columns_.linear[j], columns_.widths[j], k, e);
            const Extended t = static_cast<Extended>(k - o) / static_cast<Extended>(sums);
            set(columns_.poles[j], columns_.widths[j], k, t * e);
        }
    });
    for (std::size_t degree = 0; degree <= drift_; ++degree)
        for (Index k = 0; k < sums; ++k) {
            const Extended t = 2 * static_cast<Extended>(k) / static_cast<Extended>(sums) - 1;
            Extended p = 1;
            for (std::size_t d = 0; d < degree; ++d)
                p *= t;
            set(columns_.modes + static_cast<Index>(degree) * parts, parts, k, p);
        }
    for (Index row = 0; row < v.rows(); ++row)
        v.row(row) *= static_cast<Extended>(weights_[static_cast<std::size_t>(row)] / unit_);
    return v;
}

Matrix Basis::moved(const Terms& terms) const
{
    return (evaluate(terms) - v_).cast<double>();
}

ExtendedMatrix Basis::projected(const Terms& terms) const
{
    const Matrix change = moved(terms);
    Matrix inside(packed_.cols(), change.cols());
    inParts(change.cols(), [&](Index from, Index count) {
        inside.middleCols(from, count).noalias() = packed_.transpose() * change.middleCols(from, count);
    });
    return r_ + inside.cast<Extended>();
}

Vector Basis::outside(const Terms& terms) const
{
    const Matrix change = moved(terms);
    Vector out(change.cols());
    inParts(change.cols(), [&](Index from, Index count) {
        Matrix rest = change.middleCols(from, count);
        const Matrix inside = packed_.transpose() * rest;
        rest.noalias() -= packed_ * inside;
        out.segment(from, count) = rest.colwise().squaredNorm().transpose();
    });
    return out;
}

std::vector<double> packed(const Matrix& columns)
{
    std::vector<double> out;
    for (Index begin = 0; begin < columns.cols(); begin += kColumnGroup)
        for (Index row = 0; row < columns.rows(); ++row)
            for (Index c = begin; c < std::min(columns.cols(), begin + static_cast<Index>(kColumnGroup)); ++c)
                out.push_back(columns(row, c));
    return out;
}

} // namespace tessel::fields
