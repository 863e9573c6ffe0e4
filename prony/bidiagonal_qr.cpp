#include "prony/bidiagonal_qr.h"

#include "prony/level1.h"
#include "prony/rotations.h"

#include <algorithm>
#include <cmath>

namespace tessel {

namespace {

/// QR steps that one singular value may take.
constexpr Index kMaxQrSteps = 30;

/// What the next turn of the iteration has to do with the block first..m of the bidiagonal matrix.
enum class Task
{
    deflate,  ///< s(m) is negligible: chase e(m-1) out of column m
    split,    ///< another s(k) is: chase e(k) out of row k
    qrStep,   ///< nothing is: one implicit-shift QR step
    converged ///< the block is s(m) alone, a singular value
};

/// What was found. Negligible are e(first-1), unless first is 1, and for the first two tasks s(zero).
struct Turn
{
    Task task;
    Index first;
    Index zero;
};

/// Plane rotation with c f + s g = r, c g - s f = 0; f becomes r. The bits are those of the reference's DROTG, whose
/// reconstruction value is not needed.
inline Rotation make_rotation(Real& f, Real g)
{
    constexpr Real kSmallest = 0x1p-1022, kLargest = 0x1p1023;
    const Real f_size = std::fabs(f), g_size = std::fabs(g);
    if (g_size == 0.0)
        return {1.0, 0.0};
    if (f_size == 0.0) {
        f = g;
        return {0.0, 1.0};
    }
    const Real scale = std::min(kLargest, std::max({kSmallest, f_size, g_size}));
    const Real x = f / scale, y = g / scale;
    const Real r =
        std::copysign(scale * std::sqrt(x * x + y * y), f_size > g_size ? f : g); // a tie takes the sign of g
    const Rotation rotation{f / r, g / r};
    f = r;
    return rotation;
}

/// Multiplies a column by -1, in the arithmetic of its elements.
void negate(const VectorColumns& columns, Index j)
{
    Real* const column = columns.a.from(1, j);
    if (columns.parts == 1)
        level1::scale(columns.rows, -1.0, column);
    else
        level1::scale(columns.rows, Complex(-1.0, 0.0), reinterpret_cast<Complex*>(column));
}

/// The bidiagonal matrix, the columns of its vectors, and what is to be done to these.
struct Iteration
{
    Index p;
    Vector<Real> s, e;
    VectorColumns u, v;
    Vector<Real> order; ///< column of the vectors of s(j) for j > m, with a minus if V's is to be negated

    RotationQueue left{doubles(u), p}, right{doubles(v), p}; ///< rotations of the columns of U and of V

    static DoubleColumns doubles(const VectorColumns& columns) { return {columns.a, columns.rows * columns.parts}; }

    Index iterate();
    Turn classify(Index m) const;
    void deflate(Index l, Index m);
    void split(Index l, Index m);
    void qr_step(Index l, Index m);
    void accept(Index m) const;
    void put_in_order(Index m);
};

/// QR iteration on the real bidiagonal matrix, from its lower end up. The active part is 1..m. Returns 0, or the m at
/// which a limit is met.
Index Iteration::iterate()
{
    Index steps = 0; // QR steps since the last convergence

    // Deflations and splits do not count as QR steps. With finite values each singular value takes part in at most one
    // of each; NaN would repeat them for ever.
    Index chases_left = 2 * p;

    for (Index m = p; m > 0;) {
        if (steps >= kMaxQrSteps)
            return m;
        const auto [task, first, zero] = classify(m);
        if (first > 1)
            e(first - 1) = 0.0;
        switch (task) {
        case Task::deflate:
        case Task::split:
            s(zero) = 0.0;
            if (chases_left-- == 0)
                return m;
            task == Task::deflate ? deflate(first, m) : split(zero + 1, m);
            break;
        case Task::qrStep:
            qr_step(first, m);
            ++steps;
            break;
        case Task::converged:
            accept(m);
            steps = 0;
            --m;
            break;
        }
    }
    return 0;
}

/// Finds the block that ends at m and what the next turn has to do with it. Negligible is what does not change the sum
/// of its neighbours; a NaN is never negligible.
Turn Iteration::classify(Index m) const
{
    const auto is_negligible = [](Real value, Real neighbours) { return neighbours + std::fabs(value) == neighbours; };

    Index first = m;
    while (first > 1 && !is_negligible(e(first - 1), std::fabs(s(first - 1)) + std::fabs(s(first))))
        --first;
    if (first == m)
        return {Task::converged, first, 0};

    for (Index k = m; k >= first; --k) {
        const Real neighbours = (k != m ? std::fabs(e(k)) : 0.0) + (k != first ? std::fabs(e(k - 1)) : 0.0);
        if (is_negligible(s(k), neighbours))
            return {k == m ? Task::deflate : Task::split, first, k};
    }
    return {Task::qrStep, first, 0};
}

/// Chases e(m-1) up and out of column m, in which s(m) = 0.
void Iteration::deflate(Index l, Index m)
{
    right.flush();
    Real f = e(m - 1);
    e(m - 1) = 0.0;
    for (Index k = m - 1; k >= l; --k) {
        const Rotation rotation = make_rotation(s(k), f);
        if (k != l) {
            f = -rotation.s * e(k - 1);
            e(k - 1) = rotation.c * e(k - 1);
        }
        if (v.wanted)
            rotate_columns(doubles(v), k, m, rotation);
    }
}

/// Chases e(l-1) down and out of row l-1, in which s(l-1) = 0.
void Iteration::split(Index l, Index m)
{
    left.flush();
    Real f = e(l - 1);
    e(l - 1) = 0.0;
    for (Index k = l; k <= m; ++k) {
        const Rotation rotation = make_rotation(s(k), f);
        f = -rotation.s * e(k);
        e(k) = rotation.c * e(k);
        if (u.wanted)
            rotate_columns(doubles(u), k, l - 1, rotation);
    }
}

/// One implicit-shift QR step on the block l..m.
void Iteration::qr_step(Index l, Index m)
{
    // The shift, from the lower end of the block. All is scaled, so that no square overflows.
    const Real scale =
        std::max({std::fabs(s(m)), std::fabs(s(m - 1)), std::fabs(e(m - 1)), std::fabs(s(l)), std::fabs(e(l))});
    const Real sm = s(m) / scale, smm1 = s(m - 1) / scale, emm1 = e(m - 1) / scale;
    const Real sl = s(l) / scale, el = e(l) / scale;
    const Real b = ((smm1 + sm) * (smm1 - sm) + emm1 * emm1) * 0.5;
    const Real c0 = (sm * emm1) * (sm * emm1);
    Real shift = 0.0;
    if (b != 0.0 || c0 != 0.0) {
        shift = std::sqrt(b * b + c0);
        if (b < 0.0)
            shift = -shift;
        shift = c0 / (b + shift);
    }
    Real f = (sl + sm) * (sl - sm) - shift; // minus: part of the contract; a derivation gives plus
    Real g = sl * el;

    // Chase the bulge: a rotation of columns k, k+1 from the right, then of rows k, k+1 from the left.
    if (u.wanted)
        left.begin_sweep(l);
    if (v.wanted)
        right.begin_sweep(l);
    for (Index k = l; k <= m - 1; ++k) {
        auto [c, sn] = make_rotation(f, g);
        if (k != l)
            e(k - 1) = f;
        f = c * s(k) + sn * e(k);
        e(k) = c * e(k) - sn * s(k);
        g = sn * s(k + 1);
        s(k + 1) = c * s(k + 1);
        if (v.wanted)
            right.push(k, {c, sn});

        const Rotation rows = make_rotation(f, g);
        c = rows.c, sn = rows.s;
        s(k) = f;
        f = c * e(k) + sn * s(k + 1);
        s(k + 1) = -sn * e(k) + c * s(k + 1);
        g = sn * e(k + 1);
        e(k + 1) = c * e(k + 1);
        if (u.wanted)
            left.push(k, rows);
    }
    e(m - 1) = f;
}

/// Makes the singular value s(m) positive and inserts it in order among those found before. Later rotations do not
/// change their columns, so it is only recorded which column belongs to a value.
void Iteration::accept(Index m) const
{
    order(m) = static_cast<Real>(m);
    if (s(m) < 0.0) {
        s(m) = -s(m);
        order(m) = -order(m);
    }
    for (Index l = m; l != p && s(l) < s(l + 1); ++l) { // equal values stay in place
        std::swap(s(l), s(l + 1));
        std::swap(order(l), order(l + 1));
    }
}

/// Applies the pending rotations and moves the columns of the singular values m+1..p to their places.
void Iteration::put_in_order(Index m)
{
    left.flush();
    right.flush();

    const auto source = [this](Index j) { return static_cast<Index>(std::fabs(order(j))); };
    for (Index j = m + 1; j <= p; ++j)
        if (v.wanted && order(j) < 0.0)
            negate(v, source(j));
    for (Index j = m + 1; j <= p; ++j) {
        Index from = source(j);
        while (from < j) // that column has been exchanged: follow it
            from = source(from);
        if (from == j)
            continue;
        for (const VectorColumns* columns : {&u, &v})
            if (columns->wanted)
                std::swap_ranges(columns->a.from(1, j), columns->a.from(1, j) + columns->rows * columns->parts,
                                 columns->a.from(1, from));
    }
}

} // namespace

Index iterate_bidiagonal(Index p, const Vector<Real>& s, const Vector<Real>& e, const VectorColumns& u,
                         const VectorColumns& v, const Vector<Real>& order)
{
    Iteration iteration{p, s, e, u, v, order};
    const Index unfinished = iteration.iterate();
    iteration.put_in_order(unfinished);
    return unfinished;
}

} // namespace tessel
