#include "util/sort.h"

#include "common/views.h"

#include <utility>

namespace tessel {

namespace {

/// Pieces with right - left below this are finished by insertion.
constexpr Index kInsertionThreshold = 7;

/// The keys with their companions: what moves, moves in pairs.
struct Pairs
{
    Vector<Real> key;
    Vector<Integer> companion;

    void exchange(Index i, Index j) const noexcept
    {
        std::swap(key(i), key(j));
        std::swap(companion(i), companion(j));
    }
    void copy(Index from, Index to) const noexcept
    {
        key(to) = key(from);
        companion(to) = companion(from);
    }
    void store(Index i, Real a, Integer b) const noexcept
    {
        key(i) = a;
        companion(i) = b;
    }
};

void sort_by_insertion(const Pairs& pairs, Index l, Index r)
{
    for (Index j = l + 1; j <= r; ++j) {
        const Real a = pairs.key(j);
        const Integer b = pairs.companion(j);
        Index i = j - 1;
        for (; i >= l && pairs.key(i) > a; --i)
            pairs.copy(i, i + 1);
        pairs.store(i + 1, a, b);
    }
}

/// Splits l..r by the median of the first, the middle and the last key.
/// @return i and j: l..j-1 hold no key above the pivot, i..r none below it, and those between are in their place
std::pair<Index, Index> partition(const Pairs& pairs, Index l, Index r)
{
    const Vector<Real> key = pairs.key;

    // The ends bound the scans: neither key(l) > pivot nor key(r) < pivot, and this holds for NaNs too.
    pairs.exchange((l + r) / 2, l + 1);
    if (key(l) > key(r))
        pairs.exchange(l, r);
    if (key(l + 1) > key(r))
        pairs.exchange(l + 1, r);
    if (key(l) > key(l + 1))
        pairs.exchange(l, l + 1);
    const Real a = key(l + 1);
    const Integer b = pairs.companion(l + 1);

    // Each scan moves before it tests, and stops at a key equal to the pivot: equal keys split in the middle.
    Index i = l + 1, j = r;
    for (;;) {
        do
            ++i;
        while (key(i) < a);
        do
            --j;
        while (key(j) > a);
        if (j < i)
            break;
        pairs.exchange(i, j);
    }
    pairs.copy(j, l + 1);
    pairs.store(j, a, b);
    return {i, j};
}

} // namespace

extern "C" void RECIPES_SORT2(const Integer& N, Real* ARR, Integer* BRR)
{
    const Pairs pairs{Vector<Real>(ARR), Vector<Integer>(BRR)};
    SortStack waiting;
    const auto push = [&waiting](Index left, Index right) {
        waiting.push({static_cast<Integer>(left), static_cast<Integer>(right)});
    };

    Index l = 1, r = N;
    for (;;) {
        if (r - l < kInsertionThreshold) {
            sort_by_insertion(pairs, l, r);
            if (waiting.empty())
                return;
            const SortPiece piece = waiting.pop();
            l = piece.left;
            r = piece.right;
            continue;
        }
        // The larger piece waits: the stack stays as low as the logarithm of N.
        const auto [i, j] = partition(pairs, l, r);
        if (r - i + 1 >= j - l) {
            push(i, r);
            r = j - 1;
        } else {
            push(l, j - 1);
            l = i;
        }
    }
}

} // namespace tessel
