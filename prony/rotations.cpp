#include "prony/rotations.h"

#include <algorithm>

namespace tessel {

namespace {

const RotationKernels* kernels_for(VectorWidth width)
{
    switch (width) {
    case VectorWidth::avx512:
        return &kAvx512Kernels;
    case VectorWidth::avx2:
        return &kAvx2Kernels;
    default:
        return &kBaselineKernels;
    }
}

const RotationKernels* kernels = kernels_for(widest_vectors());

} // namespace

VectorWidth widest_vectors()
{
    __builtin_cpu_init(); // this may run before the constructors of the compiler's library
    if (__builtin_cpu_supports("avx512f"))
        return VectorWidth::avx512;
    if (__builtin_cpu_supports("avx2"))
        return VectorWidth::avx2;
    return VectorWidth::baseline;
}

void use_vectors(VectorWidth width)
{
    kernels = kernels_for(std::min(width, widest_vectors()));
}

void rotate_columns(Index n, Complex* x, Complex* y, Rotation rotation)
{
    double* const right = reinterpret_cast<double*>(y);
    kernels->front[0](2 * n, right, right - reinterpret_cast<double*>(x), &rotation);
}

RotationQueue::RotationQueue(const Matrix<Complex>& matrix, Index rows, Index columns)
    : matrix_(matrix), rows_(rows), row_(rows + 1)
{
    const auto fits = [columns](Index depth, Index batches) {
        return batches * depth * (columns + depth) <= kCapacity;
    };
    depth_ = columns < kDeferredFrom ? 0 : kMaxFront;
    while (depth_ > 0 && !fits(depth_, 1))
        --depth_;
    overlapped_ = depth_ > 0 && fits(depth_, 2);
    made_.rotation = rotation_;
    applied_.rotation = rotation_ + (overlapped_ ? kCapacity / 2 : 0);
    // A slice of the rows for each sweep but one: the front is through when the next batch is there.
    slice_ = (rows / (kMaxFront - 1) + 4) / 4 * 4;
}

void RotationQueue::hand_over()
{
    finish();
    std::swap(made_, applied_);
    made_.sweeps = 0;
    row_ = 1;
    begin_ = full_begin_ = applied_.begins[0];
    end_ = full_end_ = applied_.ends[0];
    for (Index i = 1; i < applied_.sweeps; ++i) {
        begin_ = std::min(begin_, applied_.begins[i]);
        full_begin_ = std::max(full_begin_, applied_.begins[i]);
        end_ = std::max(end_, applied_.ends[i]);
        full_end_ = std::min(full_end_, applied_.ends[i]);
    }
    position_ = begin_;
    if (!overlapped_)
        finish();
}

void RotationQueue::advance()
{
    const Index rows = std::min(slice_, rows_ - row_ + 1);
    const Index stride = 2 * matrix_.leading_dimension();
    const Rotation* const rotation = applied_.rotation + (position_ - 1) * depth_;
    const auto apply = [&](Index i, Index count) {
        auto* const last = reinterpret_cast<double*>(matrix_.from(row_, position_ - i + 1));
        kernels->front[count - 1](2 * rows, last, stride, rotation + i);
    };

    if (position_ >= full_begin_ && position_ < full_end_) {
        apply(0, applied_.sweeps);
    } else {
        const auto takes_part = [&](Index i) {
            return applied_.begins[i] <= position_ && position_ < applied_.ends[i];
        };
        for (Index i = 0; i < applied_.sweeps;) {
            Index j = i;
            while (j < applied_.sweeps && takes_part(j))
                ++j;
            if (j > i)
                apply(i, j - i);
            i = j + 1;
        }
    }

    if (++position_ == end_) {
        position_ = begin_;
        row_ += rows;
    }
}

void RotationQueue::finish()
{
    while (row_ <= rows_)
        advance();
}

void RotationQueue::flush()
{
    if (made_.sweeps > 0)
        hand_over();
    finish();
}

} // namespace tessel
