/// Sort of an array, with a companion array in the same order.
#pragma once

#include "common/stop.h"
#include "common/types.h"

namespace tessel {

/// Sorts keys into ascending order in place, by quicksort, and moves each companion with its key. Not stable: equal
/// keys may change their order.
///
/// @param[in]     N    number of elements; N <= 1 changes nothing
/// @param[in,out] ARR  keys, N; ascending on return. With NaN among the keys the order of all is unspecified; both
///                     arrays still hold the same pairs.
/// @param[in,out] BRR  companions, N; typically 1..N on entry, and so the permutation on return
///
/// @par Errors   Ends the process with "Sub RECIPES_SORT2: workspace array ISTACK() too small !" should more than 50
///               pieces wait at once. As the larger piece waits and is at least as long as the one being sorted, at
///               most log2(N) do, which for a 32-bit N is below 31.
/// @par State    None: the stack belongs to the call.
/// @par Source   W. H. Press et al., Numerical Recipes, 2nd ed., sec. 8.2; R. Sedgewick, Implementing Quicksort
///               Programs, Comm. ACM 21 (1978) 847-857.
extern "C" void RECIPES_SORT2(const Integer& N, Real* ARR, Integer* BRR);

/// A piece of the arrays that is still to be sorted: elements left..right.
struct SortPiece
{
    Integer left, right;
};

/// The pieces that wait, last in, first out. A piece beyond the capacity ends the process.
class SortStack
{
public:
    static constexpr int kCapacity = 100; ///< bounds, two a piece

    bool empty() const noexcept { return depth_ == 0; }
    void push(SortPiece piece)
    {
        if (depth_ + 2 > kCapacity)
            stop("Sub RECIPES_SORT2: workspace array ISTACK() too small !");
        pieces_[depth_ / 2] = piece;
        depth_ += 2;
    }
    SortPiece pop() noexcept
    {
        depth_ -= 2;
        return pieces_[depth_ / 2];
    }

private:
    SortPiece pieces_[kCapacity / 2]; // uninitialised: only what was pushed is read
    int depth_ = 0;
};

} // namespace tessel
