/// Sequences of plane rotations, applied to the columns of a matrix.
///
/// A QR step rotates columns k, k+1 for k = first, first+1, ...: a sweep. A few sweeps are kept and applied together by
/// a diagonal wavefront that passes once through the columns, sweep i staying i columns behind the first, so that a
/// column is loaded and stored once for all of them. Element by element the result has the bits of the rotations done
/// one after the other, each
///
///     x := c x + s y,   y := c y - s x,
///
/// with two products and one sum, nothing fused; the order between rotations of different columns does not matter.
///
/// The rotations of a sweep come from a recurrence, which leaves the vector units idle. The previous sweeps are
/// therefore applied while the next ones are computed: with each rotation passed in, their wavefront advances by one
/// column.
///
/// Source: F. G. Van Zee, R. A. van de Geijn, G. Quintana-Orti, ACM TOMS 40 (2014) 18.
#pragma once

#include "common/types.h"
#include "common/views.h"
#include "prony/column_kernels.h"

namespace tessel {

/// The columns of a matrix as doubles: `length` of them each, two for a complex element.
struct DoubleColumns
{
    Matrix<Real> a;
    Index length;
};

/// Applies one rotation to columns i and j.
inline void rotate_columns(const DoubleColumns& columns, Index i, Index j, Rotation rotation)
{
    Real* const x = columns.a.from(1, i);
    Real* const y = columns.a.from(1, j);
    kernels().wavefront[0](columns.length, y, y - x, &rotation);
}

/// The pending rotations of adjacent columns of one matrix. Call flush() before the columns are used otherwise.
class RotationQueue
{
public:
    // cppcheck-suppress uninitMemberVar ; 64 KiB that are written before they are read
    RotationQueue(const DoubleColumns& columns, Index count);

    /// Starts a sweep whose first rotation is that of columns `first`, `first` + 1.
    void begin_sweep(Index first)
    {
        if (depth_ == 0)
            return;
        if (made_.sweeps == depth_)
            hand_over();
        made_.begin(first);
    }

    /// The next rotation of the sweep, of columns k and k + 1.
    void push(Index k, Rotation rotation)
    {
        if (depth_ == 0)
            return rotate_columns(columns_, k, k + 1, rotation);
        made_.add(k, depth_, rotation);
        if (row_ <= columns_.length)
            advance();
    }

    /// Applies all that is pending. The next rotation starts a new sweep.
    void flush();

private:
    /// Columns from which rotations are kept: fewer stay in the cache, and rotating them at once overlaps just as well.
    static constexpr Index kDeferredFrom = 24;
    static constexpr Index kCapacity = 4096; // 64 KiB: two queues and all else fit a stack of 256 KiB

    /// Sweeps that are applied together. Rotation k of sweep i lies where the wavefront finds those of one position
    /// side by side: position k + i, place i.
    struct Batch
    {
        Rotation* rotation;
        Index sweeps = 0;
        Index begins[kMaxWavefront],
            ends[kMaxWavefront]; ///< positions of the first rotation of a sweep and behind its last

        void begin(Index first)
        {
            begins[sweeps] = ends[sweeps] = first + sweeps;
            ++sweeps;
        }
        void add(Index k, Index depth, Rotation r)
        {
            const Index i = sweeps - 1, position = k + i;
            rotation[(position - 1) * depth + i] = r;
            ends[i] = position + 1;
        }
    };

    void hand_over();
    void advance();
    void finish();

    DoubleColumns columns_;
    Index depth_;     // sweeps in a batch; 0: every rotation is applied at once
    bool overlapped_; // whether a batch that is made and one that is applied both fit
    Batch made_, applied_;
    Index row_, slice_;         // the rows that the wavefront works on: row_ is behind the last when all is done
    Index position_ = 0;        // of the wavefront
    Index begin_ = 0, end_ = 0; // where it begins and ends
    Index full_begin_ = 0, full_end_ = 0; // where all sweeps take part
    alignas(64) Rotation rotation_[kCapacity];
};

} // namespace tessel
