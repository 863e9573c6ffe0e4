/// Column-major test matrices with padded leading dimensions, and the scaled measures they are judged by.
#pragma once

#include "common/fortran.h"
#include "common/types.h"
#include "tests/support/measures.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace tessel::testing {

/// rows x columns with `pad` rows of sentinels below each column and one column of them behind the last.
class TestMatrix
{
public:
    TestMatrix(Index rows, Index columns, Index pad = 0)
        : rows_(rows),
          columns_(columns),
          ld_(std::max<Index>(rows + pad, 1)),
          data_(static_cast<std::size_t>(ld_ * (columns + 1)), kSentinel)
    {}

    Complex& operator()(Index i, Index j) { return data_[static_cast<std::size_t>(i + j * ld_)]; }
    const Complex& operator()(Index i, Index j) const { return data_[static_cast<std::size_t>(i + j * ld_)]; }
    Complex* data() { return data_.data(); }
    Index rows() const { return rows_; }
    Index columns() const { return columns_; }
    Integer ld() const { return static_cast<Integer>(ld_); }

    template <class F>
    TestMatrix& fill(F value)
    {
        for (Index j = 0; j < columns_; ++j)
            for (Index i = 0; i < rows_; ++i)
                (*this)(i, j) = value(i, j);
        return *this;
    }
    TestMatrix& fill_random(Random& random)
    {
        return fill([&](Index, Index) { return random.complex(); });
    }

private:
    static constexpr Complex kSentinel{-7.25};
    Index rows_, columns_, ld_;
    std::vector<Complex> data_;
};

/// A kind of matrix that a decomposition meets: its elements, counted from 0, in a matrix of so many rows.
struct MatrixKind
{
    const char* name;
    Complex (*element)(Random& random, Real i, Real j, Real rows);

    TestMatrix make(Random& random, Index rows, Index columns, Index pad) const
    {
        TestMatrix a(rows, columns, pad);
        return a.fill([&](Index i, Index j) {
            return element(random, static_cast<Real>(i), static_cast<Real>(j), static_cast<Real>(rows));
        });
    }
};

inline constexpr MatrixKind kMatrixKinds[] = {
    {"random", [](Random& random, Real, Real, Real) { return random.complex(); }},
    {"real", [](Random& random, Real, Real, Real) { return Complex(random.uniform(-1.0, 1.0)); }},
    {"huge", [](Random& random, Real, Real, Real) { return 1e140 * random.complex(); }},
    {"tiny", [](Random& random, Real, Real, Real) { return 1e-140 * random.complex(); }},
    {"zero", [](Random&, Real, Real, Real) { return Complex(0.0, -0.0); }},
    {"zero columns",
     [](Random& random, Real, Real j, Real) { return std::fmod(j, 2.0) == 0.0 ? 0.0 : random.complex(); }},
    {"graded", [](Random& random, Real i, Real j,
                  Real rows) { return std::pow(10.0, -14.0 * (i + j) / rows) * random.complex(); }},
    {"rank two",
     [](Random&, Real i, Real j, Real) { return std::polar(1.0, i * i + 2.0 * j * j) + std::polar(0.5, 3.0 * i + j); }},
    {"repeated values", // a multiple of a unitary matrix
     [](Random&, Real i, Real j, Real rows) { return std::polar(2.5, 2.0 * std::numbers::pi * i * j / rows); }},
    {"two exponentials", // the first stage of a fit without noise
     [](Random&, Real i, Real j, Real) {
         return std::exp(Complex(-0.01, 0.7) * (i - j)) + std::exp(Complex(-0.02, -2.1) * (i - j));
     }},
    {"two modes", // the same of a real record
     [](Random&, Real i, Real j, Real) {
         return Complex(std::exp(-0.01 * (i - j)) * std::cos(0.7 * (i - j)) +
                        std::exp(-0.02 * (i - j)) * std::sin(2.1 * (i - j)));
     }},
    {"real graded", [](Random& random, Real i, Real j,
                       Real rows) { return Complex(std::pow(10.0, -14.0 * (i + j) / rows) * random.normal()); }},
    {"Vandermonde", [](Random&, Real i, Real j, Real) { return std::exp(i * Complex(-1e-3 * j, 2.4 * j)); }},
    {"deflating", // bidiagonal with zeros on its diagonal: every reflection meets zeros, the iteration splits
     [](Random& random, Real i, Real j, Real) {
         return Complex(i == j ? (std::fmod(i, 5.0) == 1.0 ? 0.0 : random.uniform(0.5, 1.0)) : j == i + 1.0);
     }},
    {"deflating late", // bidiagonal: values become negligible when rotations are pending
     [](Random& random, Real i, Real j, Real) {
         const Real size = random.uniform(0.5, 1.0);
         return Complex(i == j ? (random.below(4) == 0 ? 1e-14 * size : size) : j == i + 1.0 ? size : 0.0);
     }},
};

inline Real max_modulus(const TestMatrix& a)
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
