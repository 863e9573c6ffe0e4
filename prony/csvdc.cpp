#include "prony/csvdc.h"

#include "common/status.h"
#include "common/views.h"
#include "prony/bidiagonal_qr.h"
#include "prony/bidiagonal_reduction.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

namespace tessel {

namespace {

/// Largest element of a matrix that is decomposed in real arithmetic: no product comes near to overflow.
constexpr Real kLargestReal = 1e140;

/// The arguments of a call.
struct Problem
{
    Index n, p;
    WantedVectors wanted;
    Matrix<Complex> x, u, v;
    Vector<Complex> s, e, work;
};

/// Storage of complex values, taken as real ones.
Vector<Real> as_real(const Vector<Complex>& z)
{
    return Vector<Real>(reinterpret_cast<Real*>(z.from(1)));
}
Matrix<Real> as_real(const Matrix<Complex>& a)
{
    return {reinterpret_cast<Real*>(a.from(1, 1)), 2 * a.leading_dimension()};
}

/// Moves the real parts of complex values to the beginning of their storage. Four at a time: what a step stores, the
/// next does not load.
void compress(Index count, Real* x)
{
    Index i = 0;
    for (; i + 4 <= count; i += 4) {
        const Real a = x[2 * i], b = x[2 * i + 2], c = x[2 * i + 4], d = x[2 * i + 6];
        x[i] = a, x[i + 1] = b, x[i + 2] = c, x[i + 3] = d;
    }
    for (; i < count; ++i)
        x[i] = x[2 * i];
}

/// Moves real values from the beginning of their storage to the real parts of complex ones.
void expand(Index count, Real* x)
{
    for (Index i = count - 1; i >= 0; --i) {
        x[2 * i] = x[i];
        x[2 * i + 1] = 0.0;
    }
}

/// Gives zeros the sign plus.
void drop_signs_of_zeros(Index count, Real* x)
{
    for (Index i = 0; i < count; ++i)
        x[i] = x[i] == 0.0 ? 0.0 : x[i];
}

/// Properties of the elements of a matrix.
struct Elements
{
    bool real = true; ///< no imaginary parts
    /// Of a real matrix: no element is NaN, huge, or flushed to zero by an addition, which the cheap modulus of a
    /// complex value is, unlike that of a real value.
    bool moderate = true;
};

Elements classify_elements(const Problem& a)
{
    Elements elements;
    for (Index j = 1; j <= a.p && elements.real; ++j) {
        const Complex* const column = a.x.from(1, j);
        std::uint64_t imaginary = 0, outside = 0;
        for (Index i = 0; i < a.n; ++i) {
            imaginary |= std::bit_cast<std::uint64_t>(column[i].imag()) << 1; // a subnormal part is one, too
            const Real x = column[i].real();
            outside |= std::fabs(x) <= kLargestReal && x + 0.0 == x ? 0 : 1;
        }
        elements.real = imaginary == 0;
        elements.moderate = elements.moderate && outside == 0;
    }
    return elements;
}

/// Reduces a real matrix in real arithmetic, in the same storage: the first half of each column is worked on, the
/// second half keeps the original, so that complex arithmetic can start from it if real arithmetic fails. Returns
/// whether it succeeded; the vectors are then real, at the beginning of their columns.
bool reduce_real(const Problem& a)
{
    const Matrix<Real> x = as_real(a.x);
    for (Index j = 1; j <= a.p; ++j) {
        compress(a.n, x.from(1, j));
        std::copy_n(x.from(1, j), a.n, x.from(a.n + 1, j));
    }
    if (reduce_to_bidiagonal(a.n, a.p, a.wanted, x, as_real(a.u), as_real(a.v), as_real(a.s), as_real(a.e),
                             as_real(a.work)))
        return true;
    for (Index j = 1; j <= a.p; ++j)
        for (Index i = 1; i <= a.n; ++i)
            a.x(i, j) = x(a.n + i, j); // in this order no element is overwritten before it is read
    return false;
}

/// Returns 0, or the order of the part that did not converge.
Index decompose(const Problem& a)
{
    const Vector<Real> s = as_real(a.s), e = as_real(a.e);
    const Matrix<Real> u = as_real(a.u), v = as_real(a.v);
    const auto [real, moderate] = classify_elements(a);
    const bool in_reals = real && moderate && reduce_real(a);
    if (!in_reals) {
        reduce_to_bidiagonal(a.n, a.p, a.wanted, a.x, a.u, a.v, a.s, a.e, a.work);
        compress(a.p, s.from(1));
        compress(a.p, e.from(1));
    }

    const Index parts = in_reals ? 1 : 2;
    const Index unfinished = iterate_bidiagonal(a.p, s, e, {u, a.n, parts, a.wanted.left > 0},
                                                {v, a.p, parts, a.wanted.right}, as_real(a.work));
    if (real) {
        // Real arithmetic cannot reproduce the signs of the zeros that complex products give: they are all plus.
        const auto finish = [parts, in_reals = in_reals](Index rows, Index columns, const Matrix<Real>& vectors) {
            for (Index j = 1; j <= columns; ++j) {
                drop_signs_of_zeros(rows * parts, vectors.from(1, j));
                if (in_reals)
                    expand(rows, vectors.from(1, j));
            }
        };
        finish(a.n, a.wanted.left, u);
        finish(a.p, a.wanted.right ? a.p : 0, v);
        drop_signs_of_zeros(a.p, s.from(1));
        drop_signs_of_zeros(a.p, e.from(1));
    }
    expand(a.p, s.from(1));
    expand(a.p, e.from(1));
    return unfinished;
}

} // namespace

extern "C" void SLATEC_CSVDC(const Integer& JOB, const Integer& N, const Integer& P, Complex* X, const Integer& LDX,
                             Complex* U, const Integer& LDU, Complex* S, Complex* V, const Integer& LDV, Complex* WORK,
                             Complex* E, Integer& INFO, Integer& ErrorFlag, char* ErrorMessage,
                             CharLen ErrorMessageLength)
{
    const Status status{ErrorFlag, ErrorMessage, ErrorMessageLength};
    const Index job = JOB, n = N, p = P;
    const Matrix<Complex> x(X, LDX), u(U, LDU), v(V, LDV);

    if (n < p)
        return status.fail("Sub SLATEC_CSVDC: SVD here only implemented for N>=P !");

    const Index left_code = job % 100 / 10; // both remainders keep the sign of job
    const WantedVectors wanted{left_code == 0 ? 0 : left_code == 1 || left_code < 0 ? n : p, job % 10 != 0, U == X};
    INFO = 0;
    if (p > 0)
        INFO = static_cast<Integer>(decompose({n, p, wanted, x, u, v, Vector(S), Vector(E), Vector(WORK)}));
    if (INFO != 0)
        return status.fail("Sub SLATEC_CSVDC: not all singular values are correct !");
    status.succeed();
}

} // namespace tessel
