/// Column-major test matrices with padded leading dimensions, and the scaled measures they are judged by.
#pragma once

#include "common/fortran.h"
#include "common/types.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
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

/// A kind of matrix that a decomposition meets.
struct MatrixKind
{
    const char* name;
    void (*make)(TestMatrix&, Random&);
};

inline constexpr MatrixKind kMatrixKinds[] = {
    {"random", [](TestMatrix& a, Random& random) { a.fill([&](Index, Index) { return random.complex(); }); }},
    {"real", [](TestMatrix& a, Random& random) { a.fill([&](Index, Index) { return random.uniform(-1.0, 1.0); }); }},
    {"huge", [](TestMatrix& a, Random& random) { a.fill([&](Index, Index) { return 1e140 * random.complex(); }); }},
    {"tiny", [](TestMatrix& a, Random& random) { a.fill([&](Index, Index) { return 1e-140 * random.complex(); }); }},
    {"zero", [](TestMatrix& a, Random&) { a.fill([](Index, Index) { return Complex(0.0, -0.0); }); }},
    {"zero columns",
     [](TestMatrix& a, Random& random) {
         a.fill([&](Index, Index j) { return j % 2 == 0 ? Complex(0.0) : random.complex(); });
     }},
    {"graded",
     [](TestMatrix& a, Random& random) {
         a.fill([&](Index i, Index j) {
             return std::pow(10.0, -14.0 * static_cast<Real>(i + j) / static_cast<Real>(a.rows())) * random.complex();
         });
     }},
    {"rank two",
     [](TestMatrix& a, Random& random) {
         const auto x = random.complexes(static_cast<std::size_t>(2 * a.rows())), y = random.complexes(x.size());
         a.fill([&](Index i, Index j) {
             const auto row = static_cast<std::size_t>(2 * i), column = static_cast<std::size_t>(2 * j);
             return x[row] * y[column] + x[row + 1] * y[column + 1];
         });
     }},
    {"repeated values", // a multiple of a unitary matrix
     [](TestMatrix& a, Random&) {
         a.fill([&](Index i, Index j) {
             return std::polar(2.5, 2.0 * std::numbers::pi * static_cast<Real>(i * j) / static_cast<Real>(a.rows()));
         });
     }},
    {"two exponentials", // the first stage of a fit without noise
     [](TestMatrix& a, Random& random) {
         const Complex s1(-0.01, random.uniform(-3.0, 3.0)), s2(-0.02, random.uniform(-3.0, 3.0));
         a.fill([&](Index i, Index j) {
             return std::exp(s1 * static_cast<Real>(i - j)) + std::exp(s2 * static_cast<Real>(i - j));
         });
     }},
    {"Vandermonde",
     [](TestMatrix& a, Random& random) {
         for (Index j = 0; j < a.columns(); ++j) {
             const Complex z = std::polar(random.uniform(0.9, 1.0), random.uniform(-3.0, 3.0));
             a(0, j) = 1.0;
             for (Index i = 1; i < a.rows(); ++i)
                 a(i, j) = a(i - 1, j) * z;
         }
     }},
    {"deflating", // bidiagonal with zeros on its diagonal: every reflection meets zeros, the iteration splits
     [](TestMatrix& a, Random& random) {
         a.fill([&](Index i, Index j) {
             return i == j ? Complex(i % 5 == 1 ? 0.0 : random.uniform(0.5, 1.0)) : Complex(j == i + 1 ? 1.0 : 0.0);
         });
     }},
    {"deflating late", // bidiagonal: values become negligible when rotations are pending
     [](TestMatrix& a, Random& random) {
         a.fill([&](Index i, Index j) {
             const Real size = random.uniform(0.5, 1.0);
             return Complex(i == j ? (random.below(4) == 0 ? 1e-14 * size : size) : j == i + 1 ? size : 0.0);
         });
     }},
};

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
