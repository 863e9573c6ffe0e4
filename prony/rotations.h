/// Sequences of plane rotations, applied to the columns of a complex matrix.
///
/// A QR step rotates columns k, k+1 for k = first, first+1, ...: a sweep. Its rotations are kept and applied later,
/// several sweeps at a time, so that a column is loaded and stored once for all of them. Element by element the result
/// has the bits of the rotations done one after the other, each
///
///     x := c x + s y,   y := c y - s x,
///
/// with two products and one sum, nothing fused; the order between rotations of different columns does not matter.
///
/// Source: F. G. Van Zee, R. A. van de Geijn, G. Quintana-Orti, ACM TOMS 40 (2014) 18.
#pragma once

#include "common/types.h"
#include "common/views.h"
#include "prony/rotation_kernels.h"

namespace tessel {

/// Rotations of columns (first, first + 1), (first + 1, first + 2), ..., (end - 1, end).
struct Sweep
{
    Index first, end;
    const Rotation* rotation; ///< rotation[k - first] is the one of columns k and k + 1
};

/// Most sweeps that apply_sweeps takes at once.
constexpr Index kMaxSweeps = 16;

/// Applies `count` sweeps, one after the other, to rows 1..rows of `a`.
void apply_sweeps(const Matrix<Complex>& a, Index rows, const Sweep* sweeps, Index count);

/// Applies one rotation to two columns of n elements.
void rotate_columns(Index n, Complex* x, Complex* y, Rotation rotation);

/// The vector units that the kernels are built for. Results do not depend on the choice.
enum class VectorWidth
{
    baseline,
    avx2,
    avx512
};

/// The widest of them on this machine, which is in use from load on.
VectorWidth widest_vectors();
/// Changes the one in use, for comparisons. Not while another thread is in a routine; never wider than the machine's.
void use_vectors(VectorWidth width);

/// The rotations of adjacent columns of one matrix, kept until there are enough of them to apply together. Columns
/// that are used in another way must be flushed before.
class RotationQueue
{
public:
    /// With `deferred` false every rotation is applied at once: better as long as the columns stay in the cache.
    // cppcheck-suppress uninitMemberVar ; 64 KiB that are written before they are read
    RotationQueue(const Matrix<Complex>& matrix, Index rows, bool deferred)
        : matrix_(matrix), rows_(rows), deferred_(deferred)
    {}

    /// Starts a sweep whose first rotation is that of columns `first`, `first` + 1.
    void begin_sweep(Index first)
    {
        if (!deferred_)
            return;
        if (sweeps_ == kMaxSweeps)
            flush();
        sweep_[sweeps_++] = {first, first, rotation_ + rotations_};
    }

    /// The next rotation of the sweep, of columns k and k + 1.
    void push(Index k, Real c, Real s)
    {
        if (!deferred_)
            return rotate_columns(rows_, matrix_.from(1, k), matrix_.from(1, k + 1), {c, s});
        if (rotations_ == kCapacity) {
            flush();
            begin_sweep(k);
        }
        rotation_[rotations_++] = {c, s};
        sweep_[sweeps_ - 1].end = k + 1;
    }

    /// Applies all that is pending. The next rotation starts a new sweep.
    void flush()
    {
        apply_sweeps(matrix_, rows_, sweep_, sweeps_);
        sweeps_ = 0;
        rotations_ = 0;
    }

private:
    static constexpr Index kCapacity = 4096; // 64 KiB: two queues and all else fit a stack of 256 KiB

    Matrix<Complex> matrix_;
    Index rows_;
    bool deferred_;
    Index sweeps_ = 0, rotations_ = 0;
    Sweep sweep_[kMaxSweeps];
    Rotation rotation_[kCapacity];
};

} // namespace tessel
