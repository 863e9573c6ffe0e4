/// Operations on columns of real or complex elements, each with the bits of the published reference BLAS: the kernels
/// of `column_kernels.h` for elements of type T, with the special cases of the reference routines for coefficients of
/// zero and one.
///
/// T is Real or Complex. Of real matrices both give the same values: the imaginary zeros of complex arithmetic add
/// nothing to any sum.
#pragma once

#include "common/complex_ops.h"
#include "common/types.h"
#include "prony/column_kernels.h"

#include <algorithm>
#include <type_traits>

namespace tessel::level1 {

template <class T>
inline constexpr Index kParts = sizeof(T) / sizeof(Real);

template <class T>
const ColumnKernels& column_kernels()
{
    if constexpr (std::is_same_v<T, Real>)
        return kernels().real;
    else
        return kernels().complex;
}

template <class T>
Real* parts(T* x)
{
    return reinterpret_cast<Real*>(x);
}
template <class T>
const Real* parts(const T* x)
{
    return reinterpret_cast<const Real*>(x);
}

/// Exact zero in the sense of the cheap modulus; a NaN is not zero.
template <class T>
bool is_zero(const T& z)
{
    return abs1(z) == 0.0;
}

template <class T>
bool any_zero(Index count, const T* a)
{
    return std::any_of(a, a + count, [](const T& z) { return is_zero(z); });
}

/// x := a x
template <class T>
void scale(Index count, const T& a, T* x)
{
    if (a != T(1.0))
        column_kernels<T>().scale(count, parts(x), parts(&a));
}

// Of `columns` columns y(0), y(1), ... with the leading dimension ld:

/// d(j) := d(j) + h^H y(j)
template <class T>
void dot(Index rows, Index columns, const T* y, Index ld, const T* h, T* d)
{
    column_kernels<T>().dot(rows, columns, parts(y), ld, parts(h), parts(d));
}

/// y(j) := y(j) + a(j) h
template <class T>
void update(Index rows, Index columns, T* y, Index ld, const T* h, const T* a)
{
    const ColumnKernels& kernel = column_kernels<T>();
    if (!any_zero(columns, a))
        return kernel.update(rows, columns, parts(y), ld, parts(h), parts(a));
    for (Index j = 0; j < columns; ++j)
        if (!is_zero(a[j]))
            kernel.update(rows, 1, parts(y + j * ld), ld, parts(h), parts(a + j));
}

/// y(j) := y(j) + a(j) w, then d(j) := d(j) + h^H y(j)
template <class T>
void update_dot(Index rows, Index columns, T* y, Index ld, const T* w, const T* a, const T* h, T* d)
{
    if (!any_zero(columns, a))
        return column_kernels<T>().update_dot(rows, columns, parts(y), ld, parts(w), parts(a), parts(h), parts(d));
    update(rows, columns, y, ld, w, a);
    dot(rows, columns, y, ld, h, d);
}

/// w := w + e(j) y(j), in the order of j.
template <class T>
void sum(Index rows, Index columns, const T* y, Index ld, T* w, const T* e)
{
    const ColumnKernels& kernel = column_kernels<T>();
    if (!any_zero(columns, e))
        return kernel.sum(rows, columns, parts(y), ld, parts(w), parts(e));
    for (Index j = 0; j < columns; ++j)
        if (!is_zero(e[j]))
            kernel.sum(rows, 1, parts(y + j * ld), ld, parts(w), parts(e + j));
}

/// y(j) := y(j) + a(j) h, then w := w + e(j) y(j), in the order of j.
template <class T>
void update_sum(Index rows, Index columns, T* y, Index ld, const T* h, const T* a, T* w, const T* e)
{
    if (!any_zero(columns, a) && !any_zero(columns, e))
        return column_kernels<T>().update_sum(rows, columns, parts(y), ld, parts(h), parts(a), parts(w), parts(e));
    update(rows, columns, y, ld, h, a);
    sum(rows, columns, y, ld, w, e);
}

} // namespace tessel::level1
