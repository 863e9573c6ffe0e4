#include "reference/plain_svd.h"

#include "common/complex_ops.h"
#include "common/views.h"
#include "reference/level1.h"

#include <algorithm>
#include <cmath>

namespace tessel::reference {

namespace {

constexpr Index kMaxQrSteps = 30; // that one singular value may take

bool is_zero(const Complex& z)
{
    return abs1(z) == 0.0;
}

/// Negligible is what does not change the sum of its neighbours; a NaN never is.
bool is_negligible(Real value, Real neighbours)
{
    return neighbours + std::fabs(value) == neighbours;
}

/// y := y - (h^H y / h1) h: the reflection with the vector h, whose first element is h1.
void apply_reflection(Index count, const Complex* h, Complex* y)
{
    zaxpy(count, divide_plain(-zdotc(count, h, y), h[0]), h, y);
}

/// Turns h into its reflection vector and returns minus the element that h is reflected to. A zero h is left alone.
Complex make_reflection(Index count, Complex* h)
{
    Complex norm(dznrm2(count, h), 0.0);
    if (is_zero(norm))
        return norm;
    if (!is_zero(h[0]))
        norm = csign(norm, h[0]);
    zscal(count, divide_plain(Complex(1.0, 0.0), norm), h);
    h[0] = 1.0 + h[0];
    return norm;
}

void make_unit_column(const Matrix<Complex>& q, Index rows, Index j)
{
    std::fill_n(q.from(1, j), rows, Complex(0.0, 0.0));
    q(j, j) = 1.0;
}

struct Decomposition
{
    Index n, p;   // rows and columns
    Index nu, nv; // lengths of the left and of the right vectors; 0 if they are not asked for
    Index ncu;    // number of left vectors
    Matrix<Complex> x, u, v;
    Vector<Complex> s, e, work;
    Index nct = std::min(n - 1, p), nrt = std::max<Index>(0, p - 2); // numbers of column and of row reflections

    /// Of a real matrix all imaginary parts stay zero, unless a quotient leaves the range of its formula. All its
    /// zeros have the sign plus: real arithmetic cannot reproduce those of the complex products.
    bool is_real() const
    {
        for (Index j = 1; j <= p; ++j)
            for (Index i = 1; i <= n; ++i)
                if (std::fpclassify(x(i, j).imag()) != FP_ZERO)
                    return false;
        return true;
    }
    void drop_signs_of_zeros() const
    {
        const auto drop = [](Index rows, Index columns, const Matrix<Complex>& a) {
            for (Index j = 1; j <= columns; ++j)
                for (Index i = 1; i <= rows; ++i)
                    a(i, j) = {a(i, j).real() == 0.0 ? 0.0 : a(i, j).real(),
                               a(i, j).imag() == 0.0 ? 0.0 : a(i, j).imag()};
        };
        drop(nu, nu > 0 ? ncu : 0, u);
        drop(nv, nv, v);
        drop(p, 1, {s.from(1), p});
        drop(p, 1, {e.from(1), p});
    }

    /// Column reflections from the left make s, row reflections from the right make e; the vectors stay in U and V.
    void reduce_to_bidiagonal()
    {
        for (Index l = 1; l <= nct; ++l) {
            reflect_column(l);
            if (l <= nrt)
                reflect_row(l);
        }
        if (nct < p)
            s(nct + 1) = x(nct + 1, nct + 1);
        if (nrt + 1 < p)
            e(nrt + 1) = x(nrt + 1, p);
        e(p) = 0.0;
    }

    void reflect_column(Index l)
    {
        s(l) = -make_reflection(n - l + 1, x.from(l, l));
        for (Index j = l + 1; j <= p; ++j) {
            if (!is_zero(s(l)))
                apply_reflection(n - l + 1, x.from(l, l), x.from(l, j));
            e(j) = std::conj(x(l, j));
        }
        if (nu > 0)
            std::copy_n(x.from(l, l), n - l + 1, u.from(l, l));
    }

    /// work := X e, X := X - work (e / e(l+1))^H on the rows and columns from l+1 on.
    void reflect_row(Index l)
    {
        e(l) = -std::conj(make_reflection(p - l, e.from(l + 1)));
        if (!is_zero(e(l))) {
            std::fill_n(work.from(l + 1), n - l, Complex(0.0, 0.0));
            for (Index j = l + 1; j <= p; ++j)
                zaxpy(n - l, e(j), x.from(l + 1, j), work.from(l + 1));
            for (Index j = l + 1; j <= p; ++j)
                zaxpy(n - l, std::conj(divide_plain(-e(j), e(l + 1))), work.from(l + 1), x.from(l + 1, j));
        }
        if (nv > 0)
            std::copy_n(e.from(l + 1), p - l, v.from(l + 1, l));
    }

    /// Multiplies the column reflections together, from the last to the first.
    void generate_left_vectors()
    {
        for (Index j = nct + 1; j <= ncu; ++j)
            make_unit_column(u, n, j);
        for (Index l = nct; l >= 1; --l) {
            if (is_zero(s(l))) {
                make_unit_column(u, n, l);
                continue;
            }
            for (Index j = l + 1; j <= ncu; ++j)
                apply_reflection(n - l + 1, u.from(l, l), u.from(l, j));
            zscal(n - l + 1, Complex(-1.0, 0.0), u.from(l, l));
            u(l, l) = 1.0 + u(l, l);
            std::fill_n(u.from(1, l), l - 1, Complex(0.0, 0.0));
        }
    }

    void generate_right_vectors()
    {
        for (Index l = p; l >= 1; --l) {
            if (l <= nrt && !is_zero(e(l)))
                for (Index j = l + 1; j <= p; ++j)
                    apply_reflection(p - l, v.from(l + 1, l), v.from(l + 1, j));
            make_unit_column(v, p, l);
        }
    }

    /// Moves the phases of s and e into the columns of U and V.
    void make_real()
    {
        for (Index i = 1; i <= p; ++i) {
            if (!is_zero(s(i))) {
                const Complex t(modulus(s(i)), 0.0), r = divide_plain(s(i), t);
                s(i) = t;
                if (i < p)
                    e(i) = divide_plain(e(i), r);
                zscal(nu, r, u.from(1, i));
            }
            if (i < p && !is_zero(e(i))) {
                const Complex t(modulus(e(i)), 0.0), r = divide_plain(t, e(i));
                e(i) = t;
                s(i + 1) = multiply(s(i + 1), r);
                zscal(nv, r, v.from(1, i + 1));
            }
        }
        for (Index i = 1; i <= p; ++i) { // a zero that was not made real may carry a minus
            s(i).imag(0.0);
            e(i).imag(0.0);
        }
    }

    // From here on only the real parts of s and e carry values.
    Real sr(Index i) const { return s(i).real(); }
    Real er(Index i) const { return e(i).real(); }
    void set_s(Index i, Real value) const { s(i) = Complex(value, 0.0); }
    void set_e(Index i, Real value) const { e(i) = Complex(value, 0.0); }

    /// QR iteration on the real bidiagonal matrix, from its lower end up. The active part is 1..m; returns the m at
    /// which a limit is met, or 0.
    Index iterate()
    {
        Index steps = 0, chases_left = 2 * p; // NaN would be chased for ever
        for (Index m = p; m > 0;) {
            if (steps >= kMaxQrSteps)
                return m;
            Index l = m - 1;
            while (l >= 1 && !is_negligible(er(l), std::fabs(sr(l)) + std::fabs(sr(l + 1))))
                --l;
            if (l >= 1)
                set_e(l, 0.0);
            if (l == m - 1) {
                accept(m--);
                steps = 0;
                continue;
            }

            Index k = m;
            while (k > l &&
                   !is_negligible(sr(k), (k != m ? std::fabs(er(k)) : 0.0) + (k != l + 1 ? std::fabs(er(k - 1)) : 0.0)))
                --k;
            if (k == l) {
                qr_step(l + 1, m);
                ++steps;
                continue;
            }
            set_s(k, 0.0);
            if (chases_left-- == 0)
                return m;
            if (k == m)
                deflate(l + 1, m);
            else
                split(k + 1, m);
        }
        return 0;
    }

    /// Chases e(m-1) up and out of column m, in which s(m) = 0.
    void deflate(Index l, Index m) const
    {
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
            zdrot(nv, v.from(1, k), v.from(1, m), c, sn);
        }
    }

    /// Chases e(l-1) down and out of row l-1, in which s(l-1) = 0.
    void split(Index l, Index m) const
    {
        Real f = er(l - 1), c = 0.0, sn = 0.0;
        set_e(l - 1, 0.0);
        for (Index k = l; k <= m; ++k) {
            Real r = sr(k);
            drotg(r, f, c, sn);
            set_s(k, r);
            f = -sn * er(k);
            set_e(k, c * er(k));
            zdrot(nu, u.from(1, k), u.from(1, l - 1), c, sn);
        }
    }

    /// One implicit-shift QR step on the block l..m: the bulge is chased by rotations of columns k, k+1 from the
    /// right and of rows k, k+1 from the left.
    void qr_step(Index l, Index m) const
    {
        const Real scale = std::max(
            {std::fabs(sr(m)), std::fabs(sr(m - 1)), std::fabs(er(m - 1)), std::fabs(sr(l)), std::fabs(er(l))});
        const Real sm = sr(m) / scale, smm1 = sr(m - 1) / scale, emm1 = er(m - 1) / scale;
        const Real sl = sr(l) / scale, el = er(l) / scale;
        const Real b = ((smm1 + sm) * (smm1 - sm) + emm1 * emm1) * 0.5, c0 = (sm * emm1) * (sm * emm1);
        Real shift = 0.0;
        if (b != 0.0 || c0 != 0.0) {
            const Real root = std::sqrt(b * b + c0);
            shift = c0 / (b + (b < 0.0 ? -root : root));
        }
        Real f = (sl + sm) * (sl - sm) - shift; // the sign of the classic routine
        Real g = sl * el, c = 0.0, sn = 0.0;
        for (Index k = l; k <= m - 1; ++k) {
            drotg(f, g, c, sn);
            if (k != l)
                set_e(k - 1, f);
            f = c * sr(k) + sn * er(k);
            set_e(k, c * er(k) - sn * sr(k));
            g = sn * sr(k + 1);
            set_s(k + 1, c * sr(k + 1));
            zdrot(nv, v.from(1, k), v.from(1, k + 1), c, sn);

            drotg(f, g, c, sn);
            set_s(k, f);
            f = c * er(k) + sn * sr(k + 1);
            set_s(k + 1, -sn * er(k) + c * sr(k + 1));
            g = sn * er(k + 1);
            set_e(k + 1, c * er(k + 1));
            zdrot(nu, u.from(1, k), u.from(1, k + 1), c, sn);
        }
        set_e(m - 1, f);
    }

    /// Makes the singular value s(m) positive and inserts it in order among those found before.
    void accept(Index m) const
    {
        if (sr(m) < 0.0) {
            set_s(m, -sr(m));
            zscal(nv, Complex(-1.0, 0.0), v.from(1, m));
        }
        for (Index l = m; l != p && sr(l) < sr(l + 1); ++l) { // equal values stay in place
            std::swap(s(l), s(l + 1));
            zswap(nv, v.from(1, l), v.from(1, l + 1));
            zswap(nu, u.from(1, l), u.from(1, l + 1));
        }
    }
};

} // namespace

Integer plain_svd(Integer job, Integer n, Integer p, Complex* x, Integer ldx, Complex* u, Integer ldu, Complex* s,
                  Complex* v, Integer ldv, Complex* work, Complex* e)
{
    const Integer left_code = job % 100 / 10; // both remainders keep the sign of job
    Decomposition svd{n,
                      p,
                      left_code != 0 ? n : 0,
                      job % 10 != 0 ? p : 0,
                      left_code <= 1 ? n : p,
                      {x, ldx},
                      {u, ldu},
                      {v, ldv},
                      Vector(s),
                      Vector(e),
                      Vector(work)};
    const bool real = svd.is_real();
    svd.reduce_to_bidiagonal();
    if (svd.nu > 0)
        svd.generate_left_vectors();
    if (svd.nv > 0)
        svd.generate_right_vectors();
    svd.make_real();
    const Index unfinished = svd.iterate();
    if (real)
        svd.drop_signs_of_zeros();
    return static_cast<Integer>(unfinished);
}

} // namespace tessel::reference
