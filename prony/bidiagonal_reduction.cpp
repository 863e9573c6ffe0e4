#include "prony/bidiagonal_reduction.h"

#include "common/complex_ops.h"
#include "common/fortran.h"
#include "prony/level1.h"

#include <algorithm>
#include <limits>

namespace tessel {

namespace {

using level1::is_zero;

/// The matrix and the results, while it is reduced.
template <class T>
struct Reduction
{
    Index n, p; ///< rows and columns
    WantedVectors wanted;
    Matrix<T> x, u, v;
    Vector<T> s, e, work;

    Index nct = std::min(n - 1, p), nrt = std::max<Index>(0, p - 2); ///< numbers of column and of row reflections
    bool row_update_pending = false; ///< the last row reflection is still to be applied to the rows below it

    bool reduce();
    bool reflect_column(Index l);
    bool reflect_row(Index l);
    void generate_left_vectors() const;
    void generate_right_vectors() const;
    bool make_real() const;
};

/// Whether a complex quotient with the divisor z could have a NaN part where the real quotient is a number, so that
/// real arithmetic would not give the same result.
bool leaves_range(const Complex&)
{
    return false;
}
bool leaves_range(Real z)
{
    const Real square = z * z;
    return !(square > 0.0 && square <= std::numeric_limits<Real>::max()); // a NaN leaves it, too
}

/// Turns the vector h into its reflection vector; `norm` becomes minus the element that h is reflected to, zero if h is
/// zero, which is then left alone. False if a quotient leaves the range of real arithmetic.
template <class T>
bool make_reflection(Index count, T* h, T& norm)
{
    norm = fortran::norm(count, h);
    if (is_zero(norm))
        return true;
    if (!is_zero(h[0]))
        norm = csign(norm, h[0]);
    if (leaves_range(norm))
        return false;
    level1::scale(count, divide_plain(T(1.0), norm), h);
    h[0] = 1.0 + h[0];
    return true;
}

/// Column reflections from the left make s, row reflections from the right make e; the vectors stay in U and V.
///
/// Two passes over the matrix for each pair. The first applies the row reflection before and forms the products with
/// the new column's vector, which settle the next row; the second applies the column reflection and forms the sum of
/// columns that the row reflection needs.
template <class T>
bool Reduction<T>::reduce()
{
    for (Index l = 1; l <= nct; ++l)
        if (!reflect_column(l) || !reflect_row(l))
            return false;

    // What is left of the last columns is bidiagonal already.
    if (nct < p)
        s(nct + 1) = x(nct + 1, nct + 1);
    if (nrt + 1 < p)
        e(nrt + 1) = x(nrt + 1, p);
    e(p) = 0.0;
    return true;
}

/// Annihilates column l below its diagonal and makes row l of the columns behind it, conjugated, in e. The reflection
///
///     y := y + t h,   t = -(h^H y) / h1,
///
/// is applied to that row alone; its coefficients t stay in s(l+1..p).
template <class T>
bool Reduction<T>::reflect_column(Index l)
{
    const Index rows = n - l + 1, columns = p - l, ld = x.leading_dimension();
    T* const h = x.from(l, l);
    T* const behind = columns > 0 ? x.from(l, l + 1) : h;

    // What is pending of row l-1: x := x - work conj(e(j) / e(l)).
    if (row_update_pending) {
        const T divisor = e(l);
        for (Index j = l; j <= p; ++j)
            e(j) = conjugate(divide_plain(-e(j), divisor));
        level1::update(rows, 1, h, ld, work.from(l), e.from(l));
    }
    if (!make_reflection(rows, h, s(l)))
        return false;

    if (is_zero(s(l))) {
        if (row_update_pending)
            level1::update(rows, columns, behind, ld, work.from(l), e.from(l + 1));
    } else {
        std::fill_n(s.from(l + 1), columns, T(0.0));
        if (row_update_pending)
            level1::update_dot(rows, columns, behind, ld, work.from(l), e.from(l + 1), h, s.from(l + 1));
        else
            level1::dot(rows, columns, behind, ld, h, s.from(l + 1));
        for (Index j = l + 1; j <= p; ++j) {
            s(j) = divide_plain(-s(j), h[0]);
            if (!is_zero(s(j)))
                x(l, j) += multiply(s(j), h[0]);
        }
    }
    for (Index j = l + 1; j <= p; ++j)
        e(j) = conjugate(x(l, j));
    if (wanted.left > 0 && !wanted.in_x)
        std::copy_n(h, rows, u.from(l, l));
    row_update_pending = false;
    return true;
}

/// Annihilates row l behind its super-diagonal, applies column reflection l to the rows below it and forms work := X e
/// of them.
template <class T>
bool Reduction<T>::reflect_row(Index l)
{
    const Index rows = n - l, columns = p - l, ld = x.leading_dimension();
    if (columns == 0) {
        s(l) = -s(l);
        return true;
    }
    const bool reflects = !is_zero(s(l));
    s(l) = -s(l);

    if (l <= nrt) {
        if (!make_reflection(columns, e.from(l + 1), e(l)))
            return false;
        row_update_pending = !is_zero(e(l));
        e(l) = -conjugate(e(l));
        if (wanted.right)
            std::copy_n(e.from(l + 1), columns, v.from(l + 1, l));
    }
    if (row_update_pending)
        std::fill_n(work.from(l + 1), rows, T(0.0));
    if (reflects && row_update_pending)
        level1::update_sum(rows, columns, x.from(l + 1, l + 1), ld, x.from(l + 1, l), s.from(l + 1), work.from(l + 1),
                           e.from(l + 1));
    else if (reflects)
        level1::update(rows, columns, x.from(l + 1, l + 1), ld, x.from(l + 1, l), s.from(l + 1));
    else if (row_update_pending)
        level1::sum(rows, columns, x.from(l + 1, l + 1), ld, work.from(l + 1), e.from(l + 1));
    return true;
}

/// Multiplies reflections together, from the last to the first, in place: column l of q holds the vector of reflection
/// l from row l + offset on and becomes column l of the product. `reflects(l)` says whether there is a reflection l,
/// `start(j)` makes column j of the product with the reflections from j on.
///
/// Columns are finished from the last to the first, a few at a time, so that they stay in the cache while the vectors
/// are read; a reflection is applied in the same pass as the products of the next.
template <class T, class Reflects, class Start>
void multiply_reflections(const Matrix<T>& q, Index rows, Index columns, Index offset, Index reflections,
                          Reflects reflects, Start start)
{
    constexpr Index kBlock = 8 / level1::kParts<T>;
    const Index ld = q.leading_dimension();
    T t[kBlock], products[kBlock];
    const auto settle = [&](Index width, const T& h1) {
        for (Index j = 0; j < width; ++j)
            t[j] = divide_plain(-products[j], h1);
    };

    for (Index last = columns; last >= 1; last -= kBlock) {
        const Index first = std::max<Index>(1, last - kBlock + 1);
        for (Index l = last; l >= first; --l) {
            if (l < last && l <= reflections && reflects(l)) {
                const Index count = rows - l - offset + 1;
                const T* const h = q.from(l + offset, l);
                std::fill_n(products, last - l, T(0.0));
                level1::dot(count, last - l, q.from(l + offset, l + 1), ld, h, products);
                settle(last - l, h[0]);
                level1::update(count, last - l, q.from(l + offset, l + 1), ld, h, t);
            }
            start(l);
        }

        const Index width = last - first + 1;
        Index before = 0; // the reflection that is still to be applied
        for (Index l = std::min(first - 1, reflections); l >= 1; --l) {
            if (!reflects(l))
                continue;
            const T* const h = q.from(l + offset, l);
            T* const y = q.from(l + offset, first);
            const Index count = rows - l - offset + 1, untouched = before == 0 ? count : before - l;
            std::fill_n(products, width, T(0.0));
            level1::dot(untouched, width, y, ld, h, products);
            if (before != 0)
                level1::update_dot(count - untouched, width, y + untouched, ld, q.from(before + offset, before), t,
                                   h + untouched, products);
            settle(width, h[0]);
            before = l;
        }
        if (before != 0)
            level1::update(rows - before - offset + 1, width, q.from(before + offset, first), ld,
                           q.from(before + offset, before), t);
    }
}

/// Column j of the unit matrix.
template <class T>
void make_unit_column(const Matrix<T>& q, Index rows, Index j)
{
    std::fill_n(q.from(1, j), rows, T(0.0));
    q(j, j) = 1.0;
}

template <class T>
void Reduction<T>::generate_left_vectors() const
{
    const auto reflects = [this](Index l) { return !is_zero(s(l)); };
    multiply_reflections(u, n, wanted.left, 0, nct, reflects, [&](Index j) {
        if (j > nct || !reflects(j))
            return make_unit_column(u, n, j);
        level1::scale(n - j + 1, T(-1.0), u.from(j, j));
        u(j, j) = 1.0 + u(j, j);
        std::fill_n(u.from(1, j), j - 1, T(0.0));
    });
}

template <class T>
void Reduction<T>::generate_right_vectors() const
{
    multiply_reflections(
        v, p, p, 1, nrt, [this](Index l) { return !is_zero(e(l)); }, [this](Index j) { make_unit_column(v, p, j); });
}

/// Moves the phases of s and e into the columns of U and V.
template <class T>
bool Reduction<T>::make_real() const
{
    for (Index i = 1; i <= p; ++i) {
        if (!is_zero(s(i))) {
            const T t(modulus(s(i)));
            if (leaves_range(t))
                return false;
            const T r = divide_plain(s(i), t);
            s(i) = t;
            if (i < p)
                e(i) = divide_plain(e(i), r);
            if (wanted.left > 0)
                level1::scale(n, r, u.from(1, i));
        }
        if (i == p)
            break;
        if (!is_zero(e(i))) {
            const T t(modulus(e(i)));
            if (leaves_range(t))
                return false;
            const T r = divide_plain(t, e(i));
            e(i) = t;
            s(i + 1) = multiply(s(i + 1), r);
            if (wanted.right)
                level1::scale(p, r, v.from(1, i + 1));
        }
    }
    return true;
}

} // namespace

template <class T>
bool reduce_to_bidiagonal(Index n, Index p, WantedVectors wanted, const Matrix<T>& x, const Matrix<T>& u,
                          const Matrix<T>& v, const Vector<T>& s, const Vector<T>& e, const Vector<T>& work)
{
    Reduction<T> reduction{n, p, wanted, x, u, v, s, e, work};
    if (!reduction.reduce())
        return false;
    if (wanted.left > 0)
        reduction.generate_left_vectors();
    if (wanted.right)
        reduction.generate_right_vectors();
    return reduction.make_real();
}

template bool reduce_to_bidiagonal(Index, Index, WantedVectors, const Matrix<Real>&, const Matrix<Real>&,
                                   const Matrix<Real>&, const Vector<Real>&, const Vector<Real>&, const Vector<Real>&);
template bool reduce_to_bidiagonal(Index, Index, WantedVectors, const Matrix<Complex>&, const Matrix<Complex>&,
                                   const Matrix<Complex>&, const Vector<Complex>&, const Vector<Complex>&,
                                   const Vector<Complex>&);

} // namespace tessel
