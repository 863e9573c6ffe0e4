#include "fields/basis.h"

#include <Eigen/QR>

#include <algorithm>
#include <cmath>

namespace tessel::fields {

namespace {

constexpr std::ptrdiff_t kRun = 64;        // powers by products, before one is formed anew
constexpr Extended kNothing = 1e-17L;      // of a slab's columns: nothing of them in a direction
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

Basis::Basis(const Grid& grid, Terms terms, std::size_t drift, const std::vector<double>& weights, double unit)
    : grid_(grid),
      terms_(std::move(terms)),
      columns_(grid, terms_, drift),
      drift_(drift),
      unit_(unit),
      weights_(grid.rows(), unit)
{
    for (std::size_t row = 0; row < weights_.size() && !weights.empty(); ++row)
        weights_[row] = weights[row / grid.parts()] * unit;
    v_ = evaluate(terms_);
    const Index width = columns_.total;
    const Eigen::HouseholderQR<ExtendedMatrix> qr(v_);
    r_ = qr.matrixQR().topRows(width).triangularView<Eigen::Upper>();
    const ExtendedMatrix q = qr.householderQ() * ExtendedMatrix::Identity(v_.rows(), width);
    q_ = q.cast<double>();

    packed_.assign(grid.slabs() * kSlab * this->width(), 0);
    packedEmpty_.assign(grid.slabs() * kSlab * kEmpty, 0);
    const auto pack = [](const auto& from, const double* weight, double* to) {
        for (Index begin = 0; begin < from.cols(); begin += kColumnGroup) {
            const Index end = std::min(from.cols(), begin + static_cast<Index>(kColumnGroup));
            for (Index row = 0; row < from.rows(); ++row)
                for (Index c = begin; c < end; ++c)
                    *to++ = static_cast<double>(from(row, c)) * weight[row];
        }
    };
    for (std::size_t s = 0; s < grid.slabs(); ++s) {
        const auto from = static_cast<Index>(s * kSlab), rows = static_cast<Index>(grid.rowsOf(s));
        pack(q_.middleRows(from, rows), this->weights(s), packed_.data() + s * kSlab * this->width());
        // The last directions of a decomposition that takes the largest columns first.
        Eigen::ColPivHouseholderQR<ExtendedMatrix> local(q.middleRows(from, rows));
        local.setThreshold(kNothing);
        const Index rank = local.rank();
        const Index count = std::min(rows - rank, static_cast<Index>(kEmpty));
        emptyCounts_.push_back(static_cast<std::size_t>(count));
        ExtendedMatrix last = ExtendedMatrix::Zero(rows, count);
        for (Index c = 0; c < count; ++c)
            last(rows - count + c, c) = 1;
        if (count > 0)
            last.applyOnTheLeft(local.householderQ());
        pack(last, this->weights(s), packedEmpty_.data() + s * kSlab * kEmpty);
    }
}

std::size_t Basis::emptyTotal() const
{
    std::size_t total = 0;
    for (const std::size_t count : emptyCounts_)
        total += count;
    return total;
}

ExtendedMatrix Basis::evaluate(const Terms& terms) const
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
    for (std::size_t j = 0; j < terms.size(); ++j) {
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
    }
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
    const Matrix change = q_.transpose() * moved(terms);
    return r_ + change.cast<Extended>();
}

Vector Basis::outside(const Terms& terms) const
{
    Matrix change = moved(terms);
    const Matrix inside = q_.transpose() * change;
    change.noalias() -= q_ * inside;
    return change.colwise().squaredNorm().transpose();
}

} // namespace tessel::fields
