/// An eigen-solve through slots 1 and 2 as a host drives it: reverse communication until IDO = 99, then the vectors.
#pragma once

#include "common/types.h"
#include "tests/support/guarded.h"

#include <tessel/FDTDCalcAPI.h>

#include <algorithm>
#include <functional>
#include <vector>

namespace tessel::testing {

/// A real square matrix, column-major.
struct SquareMatrix
{
    explicit SquareMatrix(Integer order) : n(order), a(static_cast<std::size_t>(n) * static_cast<std::size_t>(n)) {}

    Real& operator()(Index i, Index j) { return a[static_cast<std::size_t>(i + j * n)]; }
    Real operator()(Index i, Index j) const { return a[static_cast<std::size_t>(i + j * n)]; }

    /// y := A x
    template <class T>
    void multiply(const T* x, T* y) const
    {
        for (Integer i = 0; i < n; ++i)
            y[i] = 0;
        for (Integer j = 0; j < n; ++j)
            for (Integer i = 0; i < n; ++i)
                y[i] += (*this)(i, j) * x[j];
    }

    /// lower on the first subdiagonal, diagonal and upper beside it.
    static SquareMatrix tridiagonal(Integer n, Real lower, Real diagonal, Real upper)
    {
        SquareMatrix t(n);
        for (Integer i = 0; i < n; ++i) {
            t(i, i) = diagonal;
            if (i > 0) {
                t(i, i - 1) = lower;
                t(i - 1, i) = upper;
            }
        }
        return t;
    }

    Integer n;
    std::vector<Real> a;
};

/// The arguments of one solve, with their usual values, and its results. Its arrays end at an inaccessible page.
struct Arnoldi
{
    using Operator = std::function<void(const Real* x, Real* y)>;

    explicit Arnoldi(Integer order) : n(order) {}

    char bmat = 'I', howmny = 'A';
    const char* which = "LM";
    Integer n, nev = 4, ncv = 20, mode = 1, shifts = 1, restarts = 300;
    Logical rvec = 1;
    Complex sigma = 0;
    Real tol = 0;
    Operator op;                  ///< modes 1, 2: y := OP x; modes 3, 4: y := Re or Im of (A - sigma B)^-1 x
    Operator b;                   ///< y := B x, if BMAT = 'G'
    std::size_t missing_work = 0; ///< by how much LWORKL falls short
    std::size_t z_columns = 0;    ///< columns of Z, NEV + 1 if 0

    Integer info = 77, post_info = 77;
    Integer iparam[11] = {};
    std::vector<Logical> select;
    std::vector<Real> resid, dr, di, z;

    /// The whole solve. The start vector is that in `resid` if there is one, otherwise one of no special symmetry.
    void solve(FDTDCalcAPI& api)
    {
        const auto size = static_cast<std::size_t>(n > 0 ? n : 1), width = static_cast<std::size_t>(ncv > 0 ? ncv : 1);
        if (resid.empty())
            for (std::size_t i = 0; i < size; ++i)
                resid.push_back(1.0 + static_cast<Real>(i * 7 % 11) / 3.0);
        select.resize(width, 0x55555554);
        dr.assign(static_cast<std::size_t>(nev) + 1, kUntouched);
        di = dr;
        z.assign(size * (z_columns > 0 ? z_columns : dr.size()), kUntouched);
        const std::size_t work = 3 * width * width + 6 * width - missing_work;
        const Integer lworkl = static_cast<Integer>(work);
        const Guarded<Real> v(size * width), workd(3 * size), workl(work), workev(3 * width), residual(size),
            vectors(z.size());
        std::copy(resid.begin(), resid.end(), residual.last(size));
        std::copy(z.begin(), z.end(), vectors.last(z.size()));
        const Real sigmar = sigma.real(), sigmai = sigma.imag();
        Integer ipntr[14] = {}, ido = 0;
        iparam[0] = shifts;
        iparam[2] = restarts;
        iparam[3] = 1;
        iparam[6] = mode;
        info = 1;
        std::vector<Real> image(size);
        for (;;) {
            api.dnaupd(&ido, &bmat, 1, &n, which, 2, &nev, &tol, residual.last(size), &ncv, v.last(size * width), &n,
                       iparam, ipntr, workd.last(3 * size), workl.last(work), &lworkl, &info);
            const Real* const x = workd.last(3 * size) + ipntr[0] - 1;
            Real* const y = workd.last(3 * size) + ipntr[1] - 1;
            if (ido == 2) {
                b(x, y);
            } else if (ido == 1 && mode >= 3 && bmat == 'G') {
                op(workd.last(3 * size) + ipntr[2] - 1, y);
            } else if (ido == -1 && mode >= 3 && bmat == 'G') {
                b(x, image.data());
                op(image.data(), y);
            } else if (ido == 1 || ido == -1) {
                op(x, y);
            } else {
                break;
            }
        }
        if (info < 0)
            return;
        post_info = info;
        api.dneupd(&rvec, &howmny, 1, select.data(), dr.data(), di.data(), vectors.last(z.size()), &n, &sigmar, &sigmai,
                   workev.last(3 * width), &bmat, 1, &n, which, 2, &nev, &tol, residual.last(size), &ncv,
                   v.last(size * width), &n, iparam, ipntr, workd.last(3 * size), workl.last(work), &lworkl,
                   &post_info);
        std::copy_n(vectors.last(z.size()), z.size(), z.begin());
    }

    /// Number of eigenvalues that were found.
    std::size_t found() const { return static_cast<std::size_t>(iparam[4]); }
    Complex value(std::size_t k) const { return {dr[k], di[k]}; }
    /// Eigenvector k: of a pair the real part stands in the column of its first, the imaginary part in the next.
    std::vector<Complex> vector(std::size_t k) const
    {
        const auto size = static_cast<std::size_t>(n);
        const std::size_t first = di[k] < 0 ? k - 1 : k;
        std::vector<Complex> x(size);
        for (std::size_t i = 0; i < size; ++i)
            x[i] = {z[i + first * size], di[k] == 0 ? 0.0 : (di[k] < 0 ? -1.0 : 1.0) * z[i + (first + 1) * size]};
        return x;
    }

    static constexpr Real kUntouched = -7.25e111;
};

/// The 1-D convection-diffusion operator on n interior points: a quick solve with a known spectrum.
inline Arnoldi sample_problem(Integer n = 100)
{
    Arnoldi problem(n);
    problem.op = [a = SquareMatrix::tridiagonal(n, -1.05, 2.0, -0.95)](const Real* x, Real* y) { a.multiply(x, y); };
    problem.ncv = 30;
    return problem;
}

} // namespace tessel::testing
