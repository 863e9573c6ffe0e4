#include "prony/leastsq_prony_svd.h"

#include "common/complex_ops.h"
#include "common/elementary.h"
#include "common/status.h"
#include "common/views.h"
#include "common/work_storage.h"
#include "prony/csvdc.h"
#include "prony/czero.h"
#include "prony/svbksb.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace tessel {

namespace {

constexpr Real kMinTimeStep = 1e-102;
constexpr Integer kSvdJob = 21; // the first P left singular vectors, and the right ones

/// Relative thresholds of the three passes; a singular value below threshold times the largest one counts as zero.
constexpr Index kPasses = 3;
constexpr Real kSvTol[kPasses] = {5e-17, 2.23e-16, 1e-15};

/// A leading dimension for so many rows: whole cache lines, since a column of a matrix, too, starts on one. Columns
/// that are a multiple of 4096 bytes apart would all fall into the same sets of the cache.
std::size_t leading_dimension(std::size_t rows)
{
    const std::size_t ld = WorkArena::padded(rows);
    return ld % (4096 / sizeof(Complex)) == 0 ? ld + WorkArena::kLine : ld;
}

/// No fewer elements than the arrays of a fit of ndim samples and mmax exponentials take. At most about 3 (2^31)^2,
/// which is representable; the size in bytes may not be.
std::size_t work_extent(std::size_t ndim, std::size_t mmax)
{
    const std::size_t rows = leading_dimension(ndim), columns = leading_dimension(mmax + 1);
    return 2 * rows * mmax + columns * mmax + 4 * rows + 8 * columns;
}

/// A matrix in the arena.
Matrix<Complex> take_matrix(WorkArena& arena, Index rows, Index columns)
{
    constexpr std::size_t most = std::numeric_limits<Integer>::max(); // that a leading dimension can be
    const auto ld = static_cast<Index>(std::min(leading_dimension(static_cast<std::size_t>(rows)), most));
    return {arena.take(ld * columns), ld};
}

/// The work arrays of a fit of n samples and m exponentials. The arena is sized by the declared lengths; the arrays
/// are adjacent in it, so that no more pages are touched than the fit needs.
struct FitArrays
{
    WorkArena& arena;
    Index n, m;

    Matrix<Complex> a = take_matrix(arena, n, m); ///< the Vandermonde matrix, kept for the residuals
    Matrix<Complex> f = take_matrix(arena, n, m); ///< the matrix of a stage, decomposed in place: left singular vectors
    Matrix<Complex> v = take_matrix(arena, m, m); ///< right singular vectors
    Vector<Complex> b{arena.take(n)};             ///< right-hand side of the prediction system
    Vector<Complex> work{arena.take(n)};          ///< of the decomposition
    Vector<Complex> product{arena.take(n)};       ///< matrix times solution, of one pass
    Vector<Complex> model{arena.take(n)};         ///< the same of the pass that is kept: after stage 2 the model
    Vector<Complex> sv{arena.take(m)};            ///< singular values
    Vector<Complex> wt{arena.take(m)};            ///< singular values of one pass, truncated
    Vector<Complex> e{arena.take(m)};             ///< super-diagonal of the decomposition
    Vector<Complex> zr{arena.take(m)};            ///< zeros of the characteristic polynomial: the discrete poles
    Matrix<Complex> x{arena.take(kPasses * m), m}; ///< solutions, a column for each pass
    Table<Complex> coef{arena.take(m + 1)};        ///< characteristic polynomial, constant term first
    Vector<Complex> zw{arena.take(1)};             ///< scratch that the zero finder asks for
};

/// wt := sv without what lies below the threshold. Values equal to the threshold, and NaN, stay.
/// Returns the number of values left out.
Index truncate(Index m, Real tolerance, const Vector<Complex>& sv, const Vector<Complex>& wt)
{
    const Real threshold = tolerance * modulus(sv(1));
    Index dropped = 0;
    for (Index j = 1; j <= m; ++j) {
        const bool drops = modulus(sv(j)) < threshold;
        wt(j) = drops ? Complex(0.0, 0.0) : sv(j);
        dropped += drops ? 1 : 0;
    }
    return dropped;
}

/// product := A x, column by column.
void multiply_matrix(Index rows, Index m, const Matrix<const Complex>& a, const Vector<Complex>& x, Complex* product)
{
    std::fill_n(product, rows, Complex(0.0, 0.0));
    for (Index j = 1; j <= m; ++j) {
        const Complex xj = x(j);
        const Complex* const column = a.from(1, j);
        for (Index i = 0; i < rows; ++i)
            product[i] += multiply(column[i], xj);
    }
}

/// Solves A x = b, in the work arrays of a fit, with each of the thresholds and returns the column of w.x
/// that holds the solution to keep: the one of the smallest residual, the lower pass on a tie; a NaN is never the
/// smallest. Its product A x is left in w.model. Returns 0 if a routine failed; the status is then that routine's.
///
/// Higher thresholds leave out the same values and perhaps more. A pass that leaves out no more than the one before
/// would give the same solution and is skipped.
Index solve_truncated(const Status& status, FitArrays& w, Integer rows, Integer m, const Matrix<const Complex>& a,
                      const Complex* b)
{
    for (Index j = 1; j <= m; ++j)
        std::copy_n(a.from(1, j), rows, w.f.from(1, j));
    const auto ldf = static_cast<Integer>(w.f.leading_dimension()), ldv = static_cast<Integer>(w.v.leading_dimension());
    Integer info = 0; // a failure shows in the flag as well
    SLATEC_CSVDC(kSvdJob, rows, m, w.f.from(1, 1), ldf, w.f.from(1, 1), ldf, w.sv.from(1), w.v.from(1, 1), ldv,
                 w.work.from(1), w.e.from(1), info, status.flag, status.message, status.length);
    if (status.has_failed())
        return 0;

    Index best = 0, dropped_before = 0;
    Real least = 0.0;
    for (Index pass = 1; pass <= kPasses; ++pass) {
        const Index dropped = truncate(m, kSvTol[pass - 1], w.sv, w.wt);
        if (pass > 1 && dropped == dropped_before)
            continue;
        dropped_before = dropped;
        RECIPES_SVBKSB(w.f.from(1, 1), w.wt.from(1), w.v.from(1, 1), rows, m, ldf, ldv, b, w.x.from(1, pass),
                       status.flag, status.message, status.length);
        if (status.has_failed())
            return 0;

        multiply_matrix(rows, m, a, w.x.column(pass), w.product.from(1));
        Real residual = 0.0;
        for (Index i = 1; i <= rows; ++i)
            residual += modulus_squared(w.product(i) - b[i - 1]);
        if (best == 0 || residual < least) {
            best = pass;
            least = residual;
            std::swap(w.product, w.model);
        }
    }
    return best;
}

/// a(i, j) := z_j^(i-1), i = 1..n, by running products, of several columns at once to hide the latency.
void build_vandermonde(Index n, Index m, const Vector<Complex>& zr, const Matrix<Complex>& a)
{
    constexpr Index kBlock = 8;
    for (Index first = 1; first <= m; first += kBlock) {
        const Index columns = std::min(kBlock, m - first + 1);
        Complex power[kBlock];
        for (Index j = 0; j < columns; ++j)
            power[j] = Complex(1.0, 0.0);
        for (Index i = 1; i <= n; ++i)
            for (Index j = 0; j < columns; ++j) {
                a(i, first + j) = power[j];
                power[j] = multiply(power[j], zr(first + j));
            }
    }
}

struct Measures
{
    Real l2, rms, peak, rms_mean, peak_mean;
};

/// Quotients are not guarded: all-zero samples give NaN. The maxima ignore NaN.
Measures measure_error(Index n, const Vector<const Complex>& y, const Vector<Complex>& model)
{
    Real sum_y = 0.0, sum_y2 = 0.0, max_y = 0.0, sse = 0.0, max_e = 0.0;
    for (Index k = 1; k <= n; ++k) {
        const Real size = modulus(y(k)), error = modulus(model(k) - y(k));
        sum_y += size;
        sum_y2 += size * size;
        if (size > max_y)
            max_y = size;
        sse += error * error;
        if (error > max_e)
            max_e = error;
    }
    const Real count = static_cast<Real>(n);
    return {std::sqrt(sse / sum_y2), std::sqrt(sse / count) / max_y, max_e / max_y, std::sqrt(sse * count) / sum_y,
            count * max_e / sum_y};
}

} // namespace

} // namespace tessel

void LEASTSQ_PRONY_SVD(const std::int32_t* N, const std::int32_t* NDIM, const tessel_complex* Y, const double* DT,
                       const std::int32_t* M, const std::int32_t* MMAX, tessel_complex* RESIDUE, tessel_complex* POLE,
                       double* ERR_L2, double* ERR_RMS, double* ERR_PEAK, double* ERR_RMS_MEAN, double* ERR_PEAK_MEAN,
                       std::int32_t* ErrorFlag, char* ErrorMessage, std::int32_t ErrorMessageLength)
{
    using namespace tessel;
    const Status status{*ErrorFlag, ErrorMessage, ErrorMessageLength};
    const Integer n = *N, m = *M;
    const Integer ndim = *NDIM, mmax = *MMAX;
    const Real dt = *DT;
    const Vector<const Complex> y(Y);
    const Vector<Complex> residue(RESIDUE), pole(POLE);

    if (n < 2 || n > ndim || dt < kMinTimeStep || m < 1 || m > mmax || 2 * Index{m} > n)
        return status.fail("Sub LEASTSQ_PRONY_SVD: input parameters out of bounds !");

    WorkArena arena(work_extent(static_cast<std::size_t>(ndim), static_cast<std::size_t>(mmax)));
    if (!arena)
        return status.fail("Sub LEASTSQ_PRONY_SVD: work storage not available !");
    FitArrays w{arena, n, m};

    // Stage 1, linear prediction: sum_j a_j y(m+i-j) = -y(m+i), i = 1..n-m. Element (i, j) of this matrix is y(m+i-j):
    // the samples from y(m) on, with a leading dimension of -1.
    const Matrix<const Complex> prediction(y.from(m), -1);
    for (Index i = 1; i <= n - m; ++i)
        w.b(i) = -y(m + i);
    Index best = solve_truncated(status, w, n - m, m, prediction, w.b.from(1));
    if (best == 0)
        return;

    // The characteristic polynomial z^m + a_1 z^(m-1) + ... + a_m. Its zeros are the discrete poles. POLE is written
    // before stage 2: it stays if that fails.
    w.coef(m) = 1.0;
    for (Index j = 1; j <= m; ++j)
        w.coef(m - j) = w.x(j, best);
    NAPACK_CZERO(w.zr.from(1), &w.coef(0), m, w.zw.from(1), status.flag, status.message, status.length);
    if (status.has_failed())
        return;
    for (Index j = 1; j <= m; ++j) {
        const Complex logarithm = tessel::logarithm(w.zr(j));
        pole(j) = Complex(logarithm.real() / dt, logarithm.imag() / dt);
    }

    // Stage 2, residues: sum_j c_j z_j^(k-1) = y(k), k = 1..n. The product of this matrix with the residues is the
    // model at the samples: it is made of the discrete poles, not of exp(pole dt).
    build_vandermonde(n, m, w.zr, w.a);
    best = solve_truncated(status, w, n, m, w.a, Y);
    if (best == 0)
        return;
    std::copy_n(w.x.from(1, best), m, residue.from(1));

    const Measures measures = measure_error(n, y, w.model);
    *ERR_L2 = measures.l2;
    *ERR_RMS = measures.rms;
    *ERR_PEAK = measures.peak;
    *ERR_RMS_MEAN = measures.rms_mean;
    *ERR_PEAK_MEAN = measures.peak_mean;
    status.succeed();
}
