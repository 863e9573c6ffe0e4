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

/// Columns by which the front moves on in one go. Behind it stand the columns that later sweeps still need.
constexpr Index kTileColumns = 40;
static_assert(kTileColumns + kMaxSweeps + 1 <= kRingColumns);

/// One panel of rows, packed as far as the front needs it.
class Panel
{
public:
    Panel(const Matrix<Complex>& matrix, Index first_row, Index row_count) : a(matrix), row(first_row), rows(row_count)
    {
        if (rows < kPanelRows)
            std::fill(std::begin(ring), std::end(ring), 0.0); // rows that are worked on, though there are none
    }

    void pack(Index j)
    {
        const Complex* const from = a.from(row, j);
        std::copy_n(reinterpret_cast<const double*>(from), 2 * rows, place(j));
    }
    void unpack(Index j) { std::copy_n(place(j), 2 * rows, reinterpret_cast<double*>(a.from(row, j))); }

    /// Rotations first..end-1 of one sweep.
    void apply(const Sweep& sweep, Index first, Index end)
    {
        if (first < end)
            kernels->single(ring, first, end, sweep.rotation + (first - sweep.first));
    }

    /// Rotations first_a..end_a-1 of sweep a, then first_b..end_b-1 of sweep b. Rotation k of b needs those up to
    /// k + 1 of a; where the two run side by side, they go together.
    void apply(const Sweep& sweep_a, Index first_a, Index end_a, const Sweep& sweep_b, Index first_b, Index end_b)
    {
        const Index first = std::max(first_a, first_b + 1), end = std::min(end_a, end_b + 1);
        if (first >= end) {
            apply(sweep_a, first_a, end_a);
            apply(sweep_b, first_b, end_b);
            return;
        }
        apply(sweep_a, first_a, first);
        apply(sweep_b, first_b, first - 1);
        kernels->pair(ring, first, end, sweep_a.rotation + (first - sweep_a.first),
                      sweep_b.rotation + (first - 1 - sweep_b.first));
        apply(sweep_a, end, end_a);
        apply(sweep_b, end - 1, end_b);
    }

private:
    double* place(Index j) { return ring + (j & (kRingColumns - 1)) * kPanelDoubles; }

    Matrix<Complex> a;
    Index row, rows;
    alignas(64) double ring[kRingColumns * kPanelDoubles];
};

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
    kernels->columns(2 * n, reinterpret_cast<double*>(x), reinterpret_cast<double*>(y), rotation.c, rotation.s);
}

void apply_sweeps(const Matrix<Complex>& a, Index rows, const Sweep* sweeps, Index count)
{
    if (count == 0)
        return;
    Index lowest = sweeps[0].first, highest = sweeps[0].end; // columns touched
    for (Index i = 1; i < count; ++i) {
        lowest = std::min(lowest, sweeps[i].first);
        highest = std::max(highest, sweeps[i].end);
    }

    for (Index row = 1; row <= rows; row += kPanelRows) {
        Panel panel(a, row, std::min(kPanelRows, rows - row + 1));
        Index packed = lowest, unpacked = lowest; // the next columns to go in and out

        // The front goes through the columns. Sweep i, from 0, stays i columns behind it, so that it meets columns on
        // which the sweeps before it are done.
        for (Index front = lowest; unpacked <= highest; front += kTileColumns) {
            const Index next = front + kTileColumns;
            for (; packed <= std::min(next, highest); ++packed)
                panel.pack(packed);

            const auto first = [&](Index i) { return std::max(sweeps[i].first, front - i); };
            const auto end = [&](Index i) { return std::min(sweeps[i].end, next - i); };
            Index i = 0;
            for (; i + 1 < count; i += 2)
                panel.apply(sweeps[i], first(i), end(i), sweeps[i + 1], first(i + 1), end(i + 1));
            if (i < count)
                panel.apply(sweeps[i], first(i), end(i));

            const Index done = next - count + 1 >= highest ? highest : next - count;
            for (; unpacked <= done; ++unpacked)
                panel.unpack(unpacked);
        }
    }
}

} // namespace tessel
