#include "prony/svbksb.h"

#include "common/complex_ops.h"
#include "common/status.h"
#include "common/views.h"

#include <cstddef>

namespace tessel {

namespace {

/// Most unknowns that one call takes: the size of its temporary.
constexpr Index kMaxUnknowns = 5000;

/// Whether a component takes part in the solution. A part that is not a number counts as different from zero.
bool is_nonzero(const Complex& w)
{
    return w.real() != 0.0 || w.imag() != 0.0;
}

/// sum conj(x) y in the order of the elements.
Complex inner_product(Index n, const Complex* x, const Complex* y)
{
    Real re = 0.0, im = 0.0;
    for (Index i = 0; i < n; ++i) {
        re += x[i].real() * y[i].real() + x[i].imag() * y[i].imag();
        im += x[i].real() * y[i].imag() - x[i].imag() * y[i].real();
    }
    return {re, im};
}

} // namespace

extern "C" void RECIPES_SVBKSB(const Complex* U, const Complex* W, const Complex* V, const Integer& M, const Integer& N,
                               const Integer& MP, const Integer& NP, const Complex* B, Complex* X, Integer& ErrorFlag,
                               char* ErrorMessage, CharLen ErrorMessageLength)
{
    const Status status(ErrorFlag, ErrorMessage, ErrorMessageLength);
    const Index m = M, n = N;
    const Matrix<const Complex> u(U, MP), v(V, NP);
    const Vector<const Complex> w(W);
    const Vector<Complex> x(X);

    if (n > NP || n > kMaxUnknowns || m > MP)
        return status.fail("Sub RECIPES_SVBKSB: input parameters out of bounds !");

    // y := diag(1/w) U^H b. A zero singular value drops its component: this is the truncation.
    alignas(Complex) std::byte storage[kMaxUnknowns * sizeof(Complex)]; // bytes: left uninitialised
    const Vector<Complex> y(reinterpret_cast<Complex*>(storage));
    for (Index j = 1; j <= n; ++j)
        y(j) = is_nonzero(w(j)) ? divide_by_reciprocal(inner_product(m, u.from(1, j), B), w(j)) : Complex(0.0, 0.0);

    // x := V y, column by column.
    for (Index j = 1; j <= n; ++j)
        x(j) = 0.0;
    for (Index jj = 1; jj <= n; ++jj) {
        const Complex yj = y(jj);
        for (Index j = 1; j <= n; ++j)
            x(j) += multiply(v(j, jj), yj);
    }
    status.succeed();
}

} // namespace tessel
