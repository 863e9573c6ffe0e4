#include "prony/rotations.h"

#include <algorithm>

namespace tessel {

RotationQueue::RotationQueue(const DoubleColumns& columns, Index count) : columns_(columns), row_(columns.length + 1)
{
    const auto fits = [count](Index depth, Index batches) { return batches * depth * (count + depth) <= kCapacity; };
    depth_ = count < kDeferredFrom ? 0 : kMaxWavefront;
    while (depth_ > 0 && !fits(depth_, 1))
        --depth_;
    overlapped_ = depth_ > 0 && fits(depth_, 2);
    made_.rotation = rotation_;
    applied_.rotation = rotation_ + (overlapped_ ? kCapacity / 2 : 0);
    // A slice of the rows for each sweep but one: the wavefront finishes before the next batch is complete.
    slice_ = (columns.length / (kMaxWavefront - 1) + 8) / 8 * 8;
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
    const Index rows = std::min(slice_, columns_.length - row_ + 1);
    const Index stride = columns_.a.leading_dimension();
    const Rotation* const rotation = applied_.rotation + (position_ - 1) * depth_;
    const auto apply = [&](Index i, Index count) {
        kernels().wavefront[count - 1](rows, columns_.a.from(row_, position_ - i + 1), stride, rotation + i);
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
    while (row_ <= columns_.length)
        advance();
}

void RotationQueue::flush()
{
    if (made_.sweeps > 0)
        hand_over();
    finish();
}

} // namespace tessel
