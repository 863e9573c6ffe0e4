#include "prony/csvdc.h"

#include "common/complex_ops.h"
#include "common/fortran.h"
#include "common/status.h"
#include "common/views.h"
#include "prony/rotations.h"

#include <algorithm>
#include <cmath>

namespace tessel {

namespace {

using fortran::drotg;
using fortran::dznrm2;
using fortran::zaxpy;
using fortran::zdotc;
using fortran::zscal;
using fortran::zswap;

/// QR steps that one singular value may take.
constexpr Index kMaxQrSteps = 30;

/// Exact zero in the sense of the cheap modulus; a NaN is not zero.
bool is_zero(const Complex& z)
{
    return abs1(z) == 0.0;
}

/// What the next turn of the iteration has to do with the block l..m of the bidiagonal matrix.
enum class Task
{
    deflate,  ///< s(m) is negligible: chase e(m-1) out of column m
    split,    ///< s(l-1) is negligible: chase e(l-1) out of row l-1
    qr_step,  ///< nothing is negligible: one implicit-shift QR step
    converged ///< e(m-1) is negligible: s(m) is a singular value
};

/// One decomposition: the arguments as views, the stages as member functions.
class Decomposition
{
public:
    Decomposition(Index job, Index rows, Index columns, const Matrix<Complex>& matrix,
                  const Matrix<Complex>& left_matrix, const Matrix<Complex>& right_matrix, Complex* values,
                  Complex* superdiagonal, Complex* scratch)
        : n(rows),
          p(columns),
          x(matrix),
          u(left_matrix),
          v(right_matrix),
          s(values),
          e(superdiagonal),
          work(scratch),
          left(left_matrix, rows, columns),
          right(right_matrix, columns, columns)
    {
        const Index left_code = job % 100 / 10; // both remainders keep the sign of job
        wantu = left_code != 0;
        wantv = job % 10 != 0;
        ncu = left_code <= 1 ? n : p;
        nct = std::min(n - 1, p); // n >= p: at least p - 1
        nrt = std::max<Index>(0, p - 2);
    }

    /// Returns 0, or the order of the part that did not converge.
    Index run()
    {
        reduce_to_bidiagonal();
        if (wantu)
            generate_left_vectors();
        if (wantv)
            generate_right_vectors();
        make_real();
        const Index unfinished = iterate();
        put_in_order(unfinished);
        return unfinished;
    }

private:
    void reduce_to_bidiagonal();
    void reflect_column(Index l);
    void update_column(Index l, Index j);
    void reflect_row(Index l);
    void generate_left_vectors();
    void generate_right_vectors();
    void make_real();
    Index iterate();
    Task classify(Index m, Index& l);
    void deflate(Index l, Index m);
    void split(Index l, Index m);
    void qr_step(Index l, Index m);
    void accept(Index m);
    void put_in_order(Index m);

    // From make_real() on only the real parts of s and e carry values; every write stores the imaginary part 0.
    Real sr(Index i) const { return s(i).real(); }
    Real er(Index i) const { return e(i).real(); }
    void set_s(Index i, Real value) { s(i) = Complex(value, 0.0); }
    void set_e(Index i, Real value) { e(i) = Complex(value, 0.0); }

    Index n, p;        // rows and columns
    Index ncu;         // number of left vectors
    Index nct, nrt;    // numbers of column and of row reflections
    bool wantu, wantv; // whether left, right vectors are asked for
    Matrix<Complex> x, u, v;
    Vector<Complex> s, e, work;
    bool row_update_pending = false; // the last row reflection is still to be applied to the rows below it
    RotationQueue left, right;       // rotations of the columns of U and of V
};

/// Applies the reflection with the vector h, whose first element is h1, to one column after the other:
///
///     y := y + t h,   t = -(h^H y) / h1.
///
/// While columns stay in the innermost cache, one is changed when the product with the next is made: its t has then
/// had the time to arrive.
class ColumnReflector
{
public:
    ColumnReflector(Index elements, const Complex* vector) : count(elements), h(vector) {}

    void apply(Complex* y)
    {
        const Complex factor = divide_plain(-zdotc(count, h, y), h[0]);
        finish();
        t = factor;
        pending = y;
        if (count > kInnermost)
            finish();
    }

    /// Changes the last column.
    void finish()
    {
        if (pending != nullptr)
            zaxpy(count, t, h, pending);
        pending = nullptr;
    }

private:
    static constexpr Index kInnermost = 640; // four columns of 10 KiB: h, two of y, and what updates them

    Index count;
    const Complex* h;
    Complex t;
    Complex* pending = nullptr;
};

/// Turns the vector h into its reflection vector and returns minus the element that h is reflected to; zero if h is
/// zero, which is then left alone.
Complex make_reflection(Index count, Complex* h)
{
    Complex norm(dznrm2(count, h), 0.0);
    if (!is_zero(norm)) {
        if (!is_zero(h[0]))
            norm = csign(norm, h[0]);
        zscal(count, divide_plain(Complex(1.0, 0.0), norm), h);
        h[0] = 1.0 + h[0];
    }
    return norm;
}

/// Column reflections from the left make s, row reflections from the right make e; the vectors stay in U and V.
void Decomposition::reduce_to_bidiagonal()
{
    for (Index l = 1; l <= nct; ++l) {
        reflect_column(l);
        if (l <= nrt)
            reflect_row(l);
    }

    // What is left of the last columns is bidiagonal already.
    if (nct < p)
        s(nct + 1) = x(nct + 1, nct + 1);
    if (nrt + 1 < p)
        e(nrt + 1) = x(nrt + 1, p);
    e(p) = 0.0;
}

/// Annihilates column l below its diagonal, applies the reflection to the columns behind it and takes row l of them,
/// conjugated, into e. A column is touched once for this and for what is pending of row l-1.
void Decomposition::reflect_column(Index l)
{
    update_column(l, l);
    s(l) = make_reflection(n - l + 1, x.from(l, l));
    const bool reflects = !is_zero(s(l));
    s(l) = -s(l);
    ColumnReflector reflector(n - l + 1, x.from(l, l));
    for (Index j = p; j > l; --j) { // the row reflection starts with the columns touched last
        update_column(l, j);
        if (reflects)
            reflector.apply(x.from(l, j));
    }
    reflector.finish();
    for (Index j = l + 1; j <= p; ++j)
        e(j) = std::conj(x(l, j));
    row_update_pending = false;
    if (wantu && u.from(l, l) != x.from(l, l)) // u may be x
        std::copy_n(x.from(l, l), n - l + 1, u.from(l, l));
}

/// Applies the reflection of row l-1 to column j from row l on: x := x - work conj(e(j) / e(l)).
void Decomposition::update_column(Index l, Index j)
{
    if (row_update_pending)
        zaxpy(n - l + 1, std::conj(divide_plain(-e(j), e(l))), work.from(l), x.from(l, j));
}

/// Annihilates row l behind its super-diagonal and forms work := X e of the rows below it.
void Decomposition::reflect_row(Index l)
{
    e(l) = make_reflection(p - l, e.from(l + 1));
    row_update_pending = !is_zero(e(l));
    e(l) = -std::conj(e(l));
    if (row_update_pending) {
        std::fill_n(work.from(l + 1), n - l, Complex(0.0, 0.0));
        for (Index j = l + 1; j <= p; ++j)
            zaxpy(n - l, e(j), x.from(l + 1, j), work.from(l + 1));
    }
    if (wantv)
        std::copy_n(e.from(l + 1), p - l, v.from(l + 1, l));
}

/// Multiplies reflections together, from the last to the first, in place: column l of q holds the vector of reflection
/// l from row l + offset on and becomes column l of the product. `reflects(l)` says whether there is a reflection l,
/// `start(j)` makes column j of the product with the reflections from j on.
///
/// Columns are finished from the last to the first, a few at a time, so that they stay in the cache while the vectors
/// pass by.
template <class Reflects, class Start>
void multiply_reflections(const Matrix<Complex>& q, Index rows, Index columns, Index offset, Index reflections,
                          Reflects reflects, Start start)
{
    constexpr Index kBlock = 8;
    for (Index last = columns; last >= 1; last -= kBlock) {
        const Index first = std::max<Index>(1, last - kBlock + 1);
        for (Index l = last; l >= 1; --l) {
            if (l <= reflections && reflects(l)) {
                ColumnReflector reflector(rows - l - offset + 1, q.from(l + offset, l));
                for (Index j = std::max(first, l + 1); j <= last; ++j)
                    reflector.apply(q.from(l + offset, j));
                reflector.finish();
            }
            if (l >= first)
                start(l);
        }
    }
}

/// Column j of the unit matrix.
void make_unit_column(const Matrix<Complex>& q, Index rows, Index j)
{
    std::fill_n(q.from(1, j), rows, Complex(0.0, 0.0));
    q(j, j) = 1.0;
}

void Decomposition::generate_left_vectors()
{
    const auto reflects = [this](Index l) { return !is_zero(s(l)); };
    multiply_reflections(u, n, ncu, 0, nct, reflects, [&](Index j) {
        if (j > nct || !reflects(j))
            return make_unit_column(u, n, j);
        zscal(n - j + 1, Complex(-1.0, 0.0), u.from(j, j));
        u(j, j) = 1.0 + u(j, j);
        std::fill_n(u.from(1, j), j - 1, Complex(0.0, 0.0));
    });
}

void Decomposition::generate_right_vectors()
{
    multiply_reflections(
        v, p, p, 1, nrt, [this](Index l) { return !is_zero(e(l)); }, [this](Index j) { make_unit_column(v, p, j); });
}

/// Moves the phases of s and e into the columns of U and V.
void Decomposition::make_real()
{
    for (Index i = 1; i <= p; ++i) {
        if (!is_zero(s(i))) {
            const Complex t(modulus(s(i)), 0.0);
            const Complex r = divide_plain(s(i), t);
            s(i) = t;
            if (i < p)
                e(i) = divide_plain(e(i), r);
            if (wantu)
                zscal(n, r, u.from(1, i));
        }
        if (i == p)
            break;
        if (!is_zero(e(i))) {
            const Complex t(modulus(e(i)), 0.0);
            const Complex r = divide_plain(t, e(i));
            e(i) = t;
            s(i + 1) = multiply(s(i + 1), r);
            if (wantv)
                zscal(p, r, v.from(1, i + 1));
        }
    }
}

/// QR iteration on the real bidiagonal matrix, from its lower end up. The active part is 1..m.
Index Decomposition::iterate()
{
    Index steps = 0; // QR steps since the last convergence

    // Deflations and splits do not count as QR steps. With finite values each singular value takes part in at most one
    // of each; values that are not numbers would repeat them for ever.
    Index chases_left = 2 * p;

    for (Index m = p; m > 0;) {
        if (steps >= kMaxQrSteps)
            return m;
        Index l = 0;
        const Task task = classify(m, l);
        switch (task) {
        case Task::deflate:
        case Task::split:
            if (chases_left-- == 0)
                return m;
            task == Task::deflate ? deflate(l, m) : split(l, m);
            break;
        case Task::qr_step:
            qr_step(l, m);
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

/// Finds the block l..m that the next turn works on, sets what is negligible there to zero and says what to do.
/// Negligible is what does not change the sum of its neighbours; a NaN is never negligible.
Task Decomposition::classify(Index m, Index& l)
{
    for (l = m - 1; l >= 1; --l) {
        const Real neighbours = std::fabs(sr(l)) + std::fabs(sr(l + 1));
        if (neighbours + std::fabs(er(l)) == neighbours) {
            set_e(l, 0.0);
            break;
        }
    }
    if (l == m - 1)
        return Task::converged;
    ++l;

    for (Index ls = m; ls >= l; --ls) {
        const Real neighbours = (ls != m ? std::fabs(er(ls)) : 0.0) + (ls != l ? std::fabs(er(ls - 1)) : 0.0);
        if (neighbours + std::fabs(sr(ls)) == neighbours) {
            set_s(ls, 0.0);
            if (ls == m)
                return Task::deflate;
            l = ls + 1;
            return Task::split;
        }
    }
    return Task::qr_step;
}

/// Chases e(m-1) up and out of column m, in which s(m) = 0.
void Decomposition::deflate(Index l, Index m)
{
    right.flush();
    Real f = er(m - 1), c = 0.0, sn = 0.0;
    set_e(m - 1, 0.0);
    for (Index k = m - 1; k >= l; --k) {
        Real r = sr(k);
        drotg(r, f, c, sn);
        set_s(k, r);
        if (k != l) {
            f = -sn * er(k - 1);
            set_e(k - 1, c * er(k - 1));
        }
        if (wantv)
            rotate_columns(p, v.from(1, k), v.from(1, m), {c, sn});
    }
}

/// Chases e(l-1) down and out of row l-1, in which s(l-1) = 0.
void Decomposition::split(Index l, Index m)
{
    left.flush();
    Real f = er(l - 1), c = 0.0, sn = 0.0;
    set_e(l - 1, 0.0);
    for (Index k = l; k <= m; ++k) {
        Real r = sr(k);
        drotg(r, f, c, sn);
        set_s(k, r);
        f = -sn * er(k);
        set_e(k, c * er(k));
        if (wantu)
            rotate_columns(n, u.from(1, k), u.from(1, l - 1), {c, sn});
    }
}

/// One implicit-shift QR step on the block l..m.
void Decomposition::qr_step(Index l, Index m)
{
    // The shift, from the lower end of the block. All is scaled, so that no square overflows.
    const Real scale =
        std::max({std::fabs(sr(m)), std::fabs(sr(m - 1)), std::fabs(er(m - 1)), std::fabs(sr(l)), std::fabs(er(l))});
    const Real sm = sr(m) / scale, smm1 = sr(m - 1) / scale, emm1 = er(m - 1) / scale;
    const Real sl = sr(l) / scale, el = er(l) / scale;
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
    Real c = 0.0, sn = 0.0;
    if (wantu)
        left.begin_sweep(l);
    if (wantv)
        right.begin_sweep(l);
    for (Index k = l; k <= m - 1; ++k) {
        drotg(f, g, c, sn);
        if (k != l)
            set_e(k - 1, f);
        f = c * sr(k) + sn * er(k);
        set_e(k, c * er(k) - sn * sr(k));
        g = sn * sr(k + 1);
        set_s(k + 1, c * sr(k + 1));
        if (wantv)
            right.push(k, c, sn);

        drotg(f, g, c, sn);
        set_s(k, f);
        f = c * er(k) + sn * sr(k + 1);
        set_s(k + 1, -sn * er(k) + c * sr(k + 1));
        g = sn * er(k + 1);
        set_e(k + 1, c * er(k + 1));
        if (wantu)
            left.push(k, c, sn);
    }
    set_e(m - 1, f);
}

/// Makes the singular value s(m) positive and lets it sink to its place among those found before. No rotation to come
/// touches their columns, so it is only noted which column belongs to a value, with a minus if V's is to be negated:
/// in the imaginary part of e, which has no other use from m on.
void Decomposition::accept(Index m)
{
    Real column = static_cast<Real>(m);
    if (sr(m) < 0.0) {
        set_s(m, -sr(m));
        column = -column;
    }
    e(m).imag(column);
    for (Index l = m; l != p && sr(l) < sr(l + 1); ++l) { // equal values stay in place
        std::swap(s(l), s(l + 1));
        const Real sinking = e(l).imag();
        e(l).imag(e(l + 1).imag());
        e(l + 1).imag(sinking);
    }
}

/// Applies what is pending and moves the columns of the singular values m+1..p to their places.
void Decomposition::put_in_order(Index m)
{
    left.flush();
    right.flush();

    const auto source = [this](Index j) { return static_cast<Index>(std::fabs(e(j).imag())); };
    for (Index j = m + 1; j <= p; ++j)
        if (wantv && e(j).imag() < 0.0)
            zscal(p, Complex(-1.0, 0.0), v.from(1, source(j)));
    for (Index j = m + 1; j <= p; ++j) {
        Index from = source(j);
        while (from < j) // that column has been exchanged: follow it
            from = source(from);
        if (from == j)
            continue;
        if (wantv)
            zswap(p, v.from(1, j), v.from(1, from));
        if (wantu)
            zswap(n, u.from(1, j), u.from(1, from));
    }
    for (Index j = m + 1; j <= p; ++j)
        e(j).imag(0.0);
}

} // namespace

extern "C" void SLATEC_CSVDC(const Integer& JOB, const Integer& N, const Integer& P, Complex* X, const Integer& LDX,
                             Complex* U, const Integer& LDU, Complex* S, Complex* V, const Integer& LDV, Complex* WORK,
                             Complex* E, Integer& INFO, Integer& ErrorFlag, char* ErrorMessage,
                             CharLen ErrorMessageLength)
{
    const Status status(ErrorFlag, ErrorMessage, ErrorMessageLength);
    const Index job = JOB, n = N, p = P;
    const Matrix<Complex> x(X, LDX), u(U, LDU), v(V, LDV);

    if (n < p)
        return status.fail("Sub SLATEC_CSVDC: SVD here only implemented for N>=P !");

    INFO = 0;
    if (p > 0)
        INFO = static_cast<Integer>(Decomposition(job, n, p, x, u, v, S, E, WORK).run());
    if (INFO != 0)
        return status.fail("Sub SLATEC_CSVDC: not all singular values are correct !");
    status.succeed();
}

} // namespace tessel
