/// An eigen-solve through slots 1 and 2 as a host drives it: reverse communication until IDO = 99, then the vectors.
#pragma once

#include "common/types.h"
#include "tests/support/call_arrays.h"

#include <tessel/FDTDCalcAPI.h>

#include <functional>
#include <vector>

namespace tessel::testing {

/// A tridiagonal matrix with constant diagonals.
struct Tridiagonal
{
    Real lower, diagonal, upper;

    Real operator()(Integer i, Integer j) const
    {
        return i == j ? diagonal : i == j + 1 ? lower : i + 1 == j ? upper : 0.0;
    }
    /// y := A x
    template <class T>
    void multiply(Integer n, const T* x, T* y) const
    {
        for (Integer i = 0; i < n; ++i)
            y[i] = diagonal * x[i] + (i > 0 ? lower * x[i - 1] : 0.0) + (i + 1 < n ? upper * x[i + 1] : 0.0);
    }
};

/// The arguments of one solve, with their usual values, and its results.
struct Arnoldi
{
    using Operator = std::function<void(const Real* x, Real* y)>;

    char bmat = 'I', howmny = 'A';
    const char* which = "LM";
    Integer n = 100, nev = 4, ncv = 30, mode = 1, shifts = 1, restarts = 300;
    Logical rvec = 1;
    Complex sigma = 0;
    Operator op;                  ///< modes 1, 2: y := OP x; modes 3, 4: y := Re or Im of (A - sigma B)^-1 x
    Operator b;                   ///< y := B x, if BMAT = 'G'
    std::size_t missing_work = 0; ///< by how much LWORKL falls short
    std::size_t z_columns = 5;

    Integer info = 77, post_info = 77;
    Integer iparam[11] = {};
    std::vector<Real> resid, dr, di, z;

    /// The whole solve. The start vector is that in `resid` if there is one, otherwise one of no special symmetry.
    void solve(FDTDCalcAPI& api)
    {
        const auto size = static_cast<std::size_t>(n), width = static_cast<std::size_t>(ncv),
                   work = 3 * width * width + 6 * width - missing_work;
        const auto lworkl = static_cast<Integer>(work);
        if (resid.empty())
            for (std::size_t i = 0; i < size; ++i)
                resid.push_back(1.0 + static_cast<Real>(i * 7 % 11) / 3.0);
        static CallArrays arrays;
        arrays.begin();
        Real *const residual = arrays.take(resid), *const v = arrays.take<Real>(size * width),
                    *const workd = arrays.take<Real>(3 * size), *const workl = arrays.take<Real>(work),
                    *const workev = arrays.take<Real>(3 * width), *const vectors = arrays.take<Real>(size * z_columns);
        Logical* const select = arrays.take<Logical>(width);
        const Real sigmar = sigma.real(), sigmai = sigma.imag();
        Real tol = 0.0;
        Integer ipntr[14] = {}, ido = 0;
        iparam[0] = shifts;
        iparam[2] = restarts;
        iparam[3] = 1;
        iparam[6] = mode;
        info = 1;
        for (std::vector<Real> image(size);;) {
            api.dnaupd(&ido, &bmat, 1, &n, which, 2, &nev, &tol, residual, &ncv, v, &n, iparam, ipntr, workd, workl,
                       &lworkl, &info);
            const Real* const x = workd + ipntr[0] - 1;
            Real* const y = workd + ipntr[1] - 1;
            if (ido == 2) {
                b(x, y);
            } else if (ido != 1 && ido != -1) {
                break;
            } else if (mode < 3 || bmat == 'I') {
                op(x, y);
            } else if (ido == 1) {
                op(workd + ipntr[2] - 1, y);
            } else {
                b(x, image.data());
                op(image.data(), y);
            }
        }
        if (info >= 0) {
            post_info = info;
            dr.resize(static_cast<std::size_t>(nev) + 1);
            di = dr;
            api.dneupd(&rvec, &howmny, 1, select, dr.data(), di.data(), vectors, &n, &sigmar, &sigmai, workev, &bmat, 1,
                       &n, which, 2, &nev, &tol, residual, &ncv, v, &n, iparam, ipntr, workd, workl, &lworkl,
                       &post_info);
            z.assign(vectors, vectors + size * z_columns);
        }
        arrays.end(); // throws if anything was written beside an array
    }

    /// Number of eigenvalues that were found.
    std::size_t found() const { return static_cast<std::size_t>(iparam[4]); }
    Complex value(std::size_t k) const { return {dr[k], di[k]}; }
    /// Eigenvector k. Of a pair the column of the first holds the real part, the next one the imaginary part, and the
    /// second vector is the conjugate of the first.
    std::vector<Complex> vector(std::size_t k) const
    {
        const auto complex_before = std::count_if(&di[0], &di[k], [](Real part) { return part != 0.0; });
        const bool real = di[k] == 0.0, second = !real && complex_before % 2 == 1;
        const Real *const re = &z[(second ? k - 1 : k) * static_cast<std::size_t>(n)], *const im = re + n;
        std::vector<Complex> x;
        for (Integer i = 0; i < n; ++i)
            x.emplace_back(re[i], real ? 0.0 : second ? -im[i] : im[i]);
        return x;
    }
};

/// The 1-D convection-diffusion operator: a quick solve with a known spectrum.
inline Arnoldi sample_problem()
{
    Arnoldi problem;
    problem.op = [](const Real* x, Real* y) { Tridiagonal{-1.05, 2.0, -0.95}.multiply(100, x, y); };
    return problem;
}

} // namespace tessel::testing
