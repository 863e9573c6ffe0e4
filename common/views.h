/// One-based, column-major views of arrays, so that a line of code reads like its formula.
///
/// A view is a pointer and, for a matrix, its leading dimension; it owns nothing, checks nothing and compiles to the
/// bare address arithmetic.
#pragma once

#include "common/types.h"

namespace tessel {

/// x(1), x(2), ...
template <class T>
class Vector
{
public:
    explicit constexpr Vector(T* first) noexcept : first_(first) {}

    constexpr T& operator()(Index i) const noexcept { return first_[i - 1]; }
    /// Address of x(i): the start of the slice x(i..).
    constexpr T* from(Index i) const noexcept { return first_ + (i - 1); }

private:
    T* first_;
};

/// a(i, j), i down the column; element (i, j) lies at (i - 1) + (j - 1) ld.
template <class T>
class Matrix
{
public:
    constexpr Matrix(T* first, Index leading_dimension) noexcept : first_(first), ld_(leading_dimension) {}
    /// The same matrix, to be read only.
    constexpr operator Matrix<const T>() const noexcept { return {first_, ld_}; }

    constexpr T& operator()(Index i, Index j) const noexcept { return first_[(i - 1) + (j - 1) * ld_]; }
    /// Address of a(i, j): the start of the slice a(i.., j).
    constexpr T* from(Index i, Index j) const noexcept { return first_ + ((i - 1) + (j - 1) * ld_); }
    constexpr Index leading_dimension() const noexcept { return ld_; }
    constexpr Vector<T> column(Index j) const noexcept { return Vector<T>(from(1, j)); }

private:
    T* first_;
    Index ld_;
};

/// t(0), t(1), ...: a table from degree 0.
template <class T>
class Table
{
public:
    explicit constexpr Table(T* first) noexcept : first_(first) {}

    constexpr T& operator()(Index k) const noexcept { return first_[k]; }

private:
    T* first_;
};

} // namespace tessel
