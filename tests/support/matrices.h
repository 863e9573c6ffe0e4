/// Column-major test matrices with padded leading dimensions, and the scaled measures they are judged by.
#pragma once

#include "common/fortran.h"
#include "common/types.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <vector>

namespace tessel::testing {

constexpr Real kEps = std::numeric_limits<Real>::epsilon();

/// rows x columns with `pad` rows of sentinels below each column and one column of them behind the last.
template <class T>
class BasicTestMatrix
{
public:
    BasicTestMatrix(Index rows, Index columns, Index pad = 0)
        : rows_(rows),
          columns_(columns),
          ld_(std::max<Index>(rows + pad, 1)),
          data_(static_cast<std::size_t>(ld_ * (columns + 1)), kSentinel)
    {}

    T& operator()(Index i, Index j) { return data_[static_cast<std::size_t>(i + j * ld_)]; }
    const T& operator()(Index i, Index j) const { return data_[static_cast<std::size_t>(i + j * ld_)]; }
    T* data() { return data_.data(); }
    Index rows() const { return rows_; }
    Index columns() const { return columns_; }
    Integer ld() const { return static_cast<Integer>(ld_); }

    template <class F>
    BasicTestMatrix& fill(F value)
    {
        for (Index j = 0; j < columns_; ++j)
            for (Index i = 0; i < rows_; ++i)
                (*this)(i, j) = value(i, j);
        return *this;
    }
    BasicTestMatrix& fill_random(Random& random)
    {
        return fill([&](Index, Index) { return random.complex(); });
    }

    /// Whether nothing outside rows x columns was written.
    bool padding_intact() const
    {
        for (Index j = 0; j <= columns_; ++j)
            for (Index i = j < columns_ ? rows_ : 0; i < ld_; ++i)
                if ((*this)(i, j) != kSentinel)
                    return false;
        return true;
    }
    bool untouched() const
    {
        return std::all_of(data_.begin(), data_.end(), [](const T& z) { return z == kSentinel; });
    }
    bool operator==(const BasicTestMatrix& other) const
    {
        for (Index j = 0; j < columns_; ++j)
            for (Index i = 0; i < rows_; ++i)
                if ((*this)(i, j) != other(i, j))
                    return false;
        return rows_ == other.rows_ && columns_ == other.columns_;
    }

private:
    static constexpr T kSentinel{-7.25};
    Index rows_, columns_, ld_;
    std::vector<T> data_;
};
using TestMatrix = BasicTestMatrix<Complex>;

inline Real conjugate(Real x)
{
    return x;
}
inline Complex conjugate(Complex z)
{
    return std::conj(z);
}

/// A^H
template <class T>
BasicTestMatrix<T> adjoint(const BasicTestMatrix<T>& a)
{
    return BasicTestMatrix<T>(a.columns(), a.rows()).fill([&](Index i, Index j) { return conjugate(a(j, i)); });
}

/// max |A^H A - 1| over the first `columns` columns.
template <class T>
Real departure_from_orthonormal(const BasicTestMatrix<T>& a, Index columns)
{
    Real worst = 0.0;
    for (Index j = 0; j < columns; ++j)
        for (Index k = 0; k <= j; ++k) {
            T sum = j == k ? -1.0 : 0.0;
            for (Index i = 0; i < a.rows(); ++i)
                sum += conjugate(a(i, k)) * a(i, j);
            worst = std::max(worst, std::abs(sum));
        }
    return worst;
}

template <class T>
Real max_modulus(const BasicTestMatrix<T>& a)
{
    Real size = 0.0;
    for (Index j = 0; j < a.columns(); ++j)
        for (Index i = 0; i < a.rows(); ++i)
            size = std::max(size, std::abs(a(i, j)));
    return size;
}

/// Singular values by LAPACK.
inline std::vector<Real> lapack_singular_values(TestMatrix a)
{
    const auto m = static_cast<Integer>(a.rows()), n = static_cast<Integer>(a.columns());
    const Integer lda = a.ld(), one = 1, lwork = 64 * (m + n);
    std::vector<Real> s(static_cast<std::size_t>(std::min(m, n))), rwork(5 * s.size());
    std::vector<Complex> work(static_cast<std::size_t>(lwork));
    Complex none;
    Integer info = 0;
    fortran::zgesvd_("N", "N", &m, &n, a.data(), &lda, s.data(), &none, &one, &none, &one, work.data(), &lwork,
                     rwork.data(), &info, 1, 1);
    EXPECT_EQ(info, 0);
    return s;
}

} // namespace tessel::testing
