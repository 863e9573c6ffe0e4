#include "prony/svbksb.h"

#include "common/complex_ops.h"
#include "common/status.h"
#include "common/views.h"

#include <cstddef>

namespace tessel {

namespace {

/// Most unknowns that one call takes: the size of its temporary.
constexpr Index kMaxUnknowns = 5000;

/// Whether a component takes part in the solution. NaN counts as different from zero.
bool is_nonzero(const Complex& w)
{
    return w.real() != 0.0 || w.imag() != 0.0;
}

/// s(j) := sum_i conj(u(i, j)) b(i) for `columns` columns from `first` on, each sum in the order of i. Side by side,
/// since each sum is a chain of dependent additions.
template <Index columns>
void inner_products(Index m, const Matrix<const Complex>& u, Index first, const Vector<const Complex>& b,
                    const Vector<Complex>& s)
{
    Real re[columns] = {}, im[columns] = {};
    for (Index i = 1; i <= m; ++i)
        for (Index j = 0; j < columns; ++j) {
            const Complex x = u(i, first + j), y = b(i);
            re[j] += x.real() * y.real() + x.imag() * y.imag();
            im[j] += x.real() * y.imag() - x.imag() * y.real();
        }
    for (Index j = 0; j < columns; ++j)
        s(first + j) = Complex(re[j], im[j]);
}

} // namespace

extern "C" void RECIPES_SVBKSB(const Complex* U, const Complex* W, const Complex* V, const Integer& M, const Integer& N,
                               const Integer& MP, const Integer& NP, const Complex* B, Complex* X, Integer& ErrorFlag,
                               char* ErrorMessage, CharLen ErrorMessageLength)
{
    const Status status{ErrorFlag, ErrorMessage, ErrorMessageLength};
    const Index m = M, n = N;
    const Matrix<const Complex> u(U, MP), v(V, NP);
    const Vector<const Complex> w(W), b(B);
    const Vector<Complex> x(X);

    if (n > NP || n > kMaxUnknowns || m > MP)
        return status.fail("Sub RECIPES_SVBKSB: input parameters out of bounds !");

    // y := diag(1/w) U^H b. A zero singular value drops its component: this is the truncation.
    alignas(Complex) std::byte storage[kMaxUnknowns * sizeof(Complex)]; // bytes: left uninitialised
    const Vector<Complex> y(reinterpret_cast<Complex*>(storage));
    constexpr Index kSideBySide = 4; // including dropped components, which is cheaper than skipping them
    Index j = 1;
    for (; j + kSideBySide - 1 <= n; j += kSideBySide)
        inner_products<kSideBySide>(m, u, j, b, y);
    for (; j <= n; ++j)
        inner_products<1>(m, u, j, b, y);
    for (j = 1; j <= n; ++j)
        y(j) = is_nonzero(w(j)) ? divide_by_reciprocal(y(j), w(j)) : Complex(0.0, 0.0);

    // x := V y, column by column.
    for (j = 1; j <= n; ++j)
        x(j) = 0.0;
    for (Index jj = 1; jj <= n; ++jj) {
        const Complex yj = y(jj);
        for (j = 1; j <= n; ++j)
            x(j) += multiply(v(j, jj), yj);
    }
    status.succeed();
}

} // namespace tessel
