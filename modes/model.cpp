#include "modes/model.h"

#include "common/elementary.h"

#include <algorithm>
#include <cmath>

namespace tessel::modes {

namespace {

constexpr Extended kApart = 16; // of (|z - 1| n)^2: closed form above, doubling below
constexpr std::size_t kTile = 128;
// Below this a term is nothing beside its start: its square is lost in a double.
constexpr Extended kNegligible = -57; // nepers

/// sum of z^k, k z^k and k^2 z^k over k < n, with z = exp(x), by doubling of n: no cancellation for any x.
struct PowerSums
{
    ExtendedComplex s0, s1, s2;
};

ExtendedComplex product(ExtendedComplex a, ExtendedComplex b)
{
    return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

PowerSums power_sums(ExtendedComplex z, std::size_t n)
{
    PowerSums sums{1, 0, 0};
    if (n == 0)
        return {0, 0, 0};
    ExtendedComplex zn = z; // z^length
    std::size_t length = 1;
    int bit = 63 - __builtin_clzll(n);
    while (--bit >= 0) {
        const auto l = static_cast<Extended>(length);
        sums.s2 += product(zn, sums.s2 + 2 * l * sums.s1 + l * l * sums.s0);
        sums.s1 += product(zn, sums.s1 + l * sums.s0);
        sums.s0 += product(zn, sums.s0);
        zn = product(zn, zn);
        length *= 2;
        if ((n >> bit) & 1U) {
            const auto e = static_cast<Extended>(length);
            sums.s0 += zn;
            sums.s1 += e * zn;
            sums.s2 += e * e * zn;
            zn = product(zn, z);
            ++length;
        }
    }
    return sums;
}

} // namespace

int linearCount(const Term& term)
{
    return term.kind == Term::Kind::oscillating ? 2 : 1;
}
int poleCount(const Term& term)
{
    return term.kind == Term::Kind::oscillating ? 2 : 1;
}

Layout::Layout(const Terms& terms)
{
    for (const Term& term : terms) {
        linear.push_back(linearTotal);
        linearTotal += linearCount(term);
    }
    total = linearTotal;
    for (const Term& term : terms) {
        pole.push_back(total);
        total += poleCount(term);
    }
}

ExtendedComplex power(const Term& term, Extended steps)
{
    if (term.kind != Term::Kind::oscillating)
        return exponential(-term.decay * steps);
    return exponential(ExtendedComplex(-term.decay * steps, term.angle * steps));
}

Evaluation evaluate(const Series& series, const Terms& terms, std::size_t n, std::vector<double>* residual)
{
    using Tile = Eigen::Array<double, kTile, 1>;
    const std::size_t count = terms.size();
    const bool complex = series.complex();
    Evaluation out;
    out.x.assign(count, 0);
    out.y.assign(count, 0);
    if (residual != nullptr)
        residual->assign(complex ? 2 * n : n, 0);

    // Powers of each term within a tile.
    Eigen::ArrayXXd stepRe(kTile, count), stepIm(kTile, count), re(kTile, count), im(kTile, count);
    std::vector<ExtendedComplex> jump(count), start(count);
    for (std::size_t j = 0; j < count; ++j) {
        const ExtendedComplex z = power(terms[j], 1);
        ExtendedComplex p = 1;
        for (std::size_t i = 0; i < kTile; ++i) {
            stepRe(static_cast<Eigen::Index>(i), static_cast<Eigen::Index>(j)) = static_cast<double>(p.real());
            stepIm(static_cast<Eigen::Index>(i), static_cast<Eigen::Index>(j)) = static_cast<double>(p.imag());
            p = product(p, z);
        }
        jump[j] = power(terms[j], static_cast<Extended>(kTile));
    }
    Tile ramp;
    for (std::size_t i = 0; i < kTile; ++i)
        ramp[static_cast<Eigen::Index>(i)] = static_cast<double>(i);

    std::vector<char> live(count);
    Tile r, ri, w, t;
    for (std::size_t begin = 0; begin < n; begin += kTile) {
        const std::size_t length = std::min(kTile, n - begin);
        r.setZero();
        ri.setZero();
        w.setZero();
        for (std::size_t i = 0; i < length; ++i) {
            const auto e = static_cast<Eigen::Index>(i);
            r[e] = series.re[begin + i];
            if (complex)
                ri[e] = series.im[begin + i];
            w[e] = series.weightAt(begin + i);
        }
        for (std::size_t j = 0; j < count; ++j) {
            const Term& term = terms[j];
            const auto c = static_cast<Eigen::Index>(j);
            const Extended from = static_cast<Extended>(begin) - static_cast<Extended>(term.origin);
            const Extended largest = std::max(-term.decay * from, -term.decay * (from + Extended(length)));
            live[j] = largest > kNegligible ? 1 : 0;
            // a recurrence in extended precision, begun anew before its rounding shows in a double
            const bool anew = begin % (64 * kTile) == 0 || !(std::abs(start[j].real()) + std::abs(start[j].imag()) > 0);
            if (live[j])
                start[j] = anew ? power(term, from) : product(start[j], jump[j]);
            else
                start[j] = 0;
            if (!live[j])
                continue;
            const auto a = static_cast<double>(start[j].real()), b = static_cast<double>(start[j].imag());
            if (term.kind == Term::Kind::oscillating) {
                re.col(c) = a * stepRe.col(c) - b * stepIm.col(c);
                im.col(c) = a * stepIm.col(c) + b * stepRe.col(c);
                const double cr = term.c.real(), ci = term.c.imag();
                r -= cr * re.col(c) - ci * im.col(c);
                if (complex)
                    ri -= cr * im.col(c) + ci * re.col(c);
            } else {
                re.col(c) = a * stepRe.col(c);
                r -= term.c.real() * re.col(c);
            }
        }
        if (residual != nullptr)
            for (std::size_t i = 0; i < length; ++i) {
                (*residual)[begin + i] = r[static_cast<Eigen::Index>(i)];
                if (complex)
                    (*residual)[n + begin + i] = ri[static_cast<Eigen::Index>(i)];
            }
        out.chiSquare += (w * r * r).sum();
        if (complex)
            out.chiSquare += (w * ri * ri).sum();
        if (residual != nullptr)
            continue;
        r *= w;
        ri *= w;
        for (std::size_t j = 0; j < count; ++j) {
            if (!live[j])
                continue;
            const auto c = static_cast<Eigen::Index>(j);
            const double from = static_cast<double>(begin) - static_cast<double>(terms[j].origin);
            if (terms[j].kind != Term::Kind::oscillating) {
                t = re.col(c) * r;
                const double x = t.sum();
                out.x[j] += x;
                out.y[j] += (ramp * t).sum() + from * x;
                continue;
            }
            t = re.col(c) * r;
            if (complex)
                t += im.col(c) * ri;
            const double xr = t.sum(), yr = (ramp * t).sum() + from * xr;
            t = -im.col(c) * r;
            if (complex)
                t += re.col(c) * ri;
            const double xi = t.sum(), yi = (ramp * t).sum() + from * xi;
            out.x[j] += Complex(xr, xi);
            out.y[j] += Complex(yr, yi);
        }
    }
    return out;
}

namespace {

/// The sums over segments of constant weight of u^a v^b e, where e is the product of two terms, z its ratio from sample
/// to sample, u and v the samples' distances from the terms' origins. For |z - 1| n > kApart^(1/2), by their closed
/// form at the segments' ends:
///
///     sum_{k < m} z^k = z^m q + const,   sum k z^k = z^m (m q - z q^2) + const,   q = 1 / (z - 1), ...
template <class At, class U, class V>
Products::Sums apart(ExtendedComplex z, const std::vector<Extended>& weights, const At& at, const U& u, const V& v)
{
    ExtendedComplex e0 = 0, eu = 0, ev = 0, euv = 0;
    for (std::size_t b = 0; b <= weights.size(); ++b) {
        const Extended step = (b > 0 ? weights[b - 1] : 0) - (b < weights.size() ? weights[b] : 0);
        const ExtendedComplex e = step * at(b);
        const Extended ub = u(b), vb = v(b);
        e0 += e;
        eu += ub * e;
        ev += vb * e;
        euv += ub * vb * e;
    }
    const ExtendedComplex q = ExtendedComplex(1) / (z - ExtendedComplex(1));
    const ExtendedComplex zq2 = product(z, product(q, q));
    const ExtendedComplex zzq3 = product(product(zq2, q), z + ExtendedComplex(1));
    Products::Sums sums;
    sums.s[0][0] = product(q, e0);
    sums.s[1][0] = product(q, eu) - product(zq2, e0);
    sums.s[0][1] = product(q, ev) - product(zq2, e0);
    sums.s[1][1] = product(q, euv) - product(zq2, eu + ev) + product(zzq3, e0);
    return sums;
}

/// The same for terms that stay together over the record, by doubling.
template <class At, class U, class V>
Products::Sums together(ExtendedComplex z, const std::vector<std::size_t>& begins, const std::vector<Extended>& weights,
                        const At& at, const U& u, const V& v)
{
    Products::Sums sums;
    PowerSums ps;
    std::size_t have = 0;
    for (std::size_t b = 0; b < weights.size(); ++b) {
        const std::size_t length = begins[b + 1] - begins[b];
        const ExtendedComplex e = weights[b] * at(b);
        // 1e-30 of the largest weight is nothing in extended precision
        if (b > 0 && std::norm(e) < 1e-60L * std::norm(weights[0]))
            continue;
        if (length != have) {
            ps = power_sums(z, length);
            have = length;
        }
        const Extended ub = u(b), vb = v(b);
        sums.s[0][0] += product(e, ps.s0);
        sums.s[1][0] += product(e, ps.s1 + ub * ps.s0);
        sums.s[0][1] += product(e, ps.s1 + vb * ps.s0);
        sums.s[1][1] += product(e, ps.s2 + (ub + vb) * ps.s1 + ub * vb * ps.s0);
    }
    return sums;
}

} // namespace

Products::Products(const Series& series, const Terms& terms, std::size_t n)
    : count_(terms.size()), complex_(series.complex())
{
    conjugate_.resize(count_ * count_);
    plain_.resize(count_ * count_);
    // Segments of equal weight are joined, as one often is the whole record.
    std::vector<std::size_t> begins;
    std::vector<Extended> weights;
    for (std::size_t b = 0; b * series.segment < n && b < series.weight.size(); ++b)
        if (begins.empty() || static_cast<Extended>(series.weight[b]) != weights.back()) {
            begins.push_back(b * series.segment);
            weights.push_back(static_cast<Extended>(series.weight[b]));
        }
    begins.push_back(n);
    const std::size_t segments = weights.size();

    std::vector<ExtendedComplex> ratio(count_);
    std::vector<std::vector<ExtendedComplex>> start(segments + 1, std::vector<ExtendedComplex>(count_));
    for (std::size_t j = 0; j < count_; ++j) {
        ratio[j] = power(terms[j], 1);
        for (std::size_t b = 0; b <= segments; ++b)
            start[b][j] = power(terms[j], static_cast<Extended>(begins[b]) - static_cast<Extended>(terms[j].origin));
    }
    for (std::size_t i = 0; i < count_; ++i)
        for (std::size_t j = i; j < count_; ++j)
            for (const bool conjugate : {true, false}) {
                if (!conjugate && complex_)
                    continue;
                const ExtendedComplex first = conjugate ? std::conj(ratio[i]) : ratio[i];
                const ExtendedComplex z = product(first, ratio[j]);
                Sums& sums = (conjugate ? conjugate_ : plain_)[i * count_ + j];
                const auto at = [&](std::size_t b) {
                    return product(conjugate ? std::conj(start[b][i]) : start[b][i], start[b][j]);
                };
                const auto before = [&](std::size_t b, std::size_t term) {
                    return static_cast<Extended>(begins[b]) - static_cast<Extended>(terms[term].origin);
                };
                if (std::norm(z - ExtendedComplex(1)) * static_cast<Extended>(n) * static_cast<Extended>(n) > kApart)
                    sums = apart(
                        z, weights, at, [&](std::size_t b) { return before(b, i); },
                        [&](std::size_t b) { return before(b, j); });
                else
                    sums = together(
                        z, begins, weights, at, [&](std::size_t b) { return before(b, i); },
                        [&](std::size_t b) { return before(b, j); });
                // the other triangle: (conj E_i E_j)* and E_j E_i
                Sums& mirror = (conjugate ? conjugate_ : plain_)[j * count_ + i];
                if (i != j)
                    for (int a = 0; a < 2; ++a)
                        for (int b = 0; b < 2; ++b)
                            mirror.s[b][a] = conjugate ? std::conj(sums.s[a][b]) : sums.s[a][b];
            }
}

/// < Re(fi k^a E_i), Re(fj k^b E_j) > of a real record, Re < fi k^a E_i, fj k^b E_j > of a complex one.
Extended Products::entry(std::size_t i, int a, ExtendedComplex fi, std::size_t j, int b, ExtendedComplex fj) const
{
    const std::size_t at = i * count_ + j;
    const Extended p = product(product(std::conj(fi), fj), conjugate_[at].s[a][b]).real();
    if (complex_)
        return p;
    return (p + product(product(fi, fj), plain_[at].s[a][b]).real()) / 2;
}

namespace {

const ExtendedComplex kFactors[2] = {{1, 0}, {0, 1}};

/// d model / d (decay, angle) = (-c, i c) (k - origin) E.
ExtendedComplex pole_factor(const Term& term, int p)
{
    const ExtendedComplex c(term.c.real(), term.c.imag());
    if (term.kind == Term::Kind::real)
        return -c.real();
    return p == 0 ? -c : ExtendedComplex(-c.imag(), c.real());
}

} // namespace

ExtendedMatrix Products::linear(const Terms& terms) const
{
    const Layout layout(terms);
    ExtendedMatrix g(layout.linearTotal, layout.linearTotal);
    for (std::size_t i = 0; i < count_; ++i)
        for (std::size_t j = i; j < count_; ++j)
            for (int p = 0; p < linearCount(terms[i]); ++p)
                for (int q = 0; q < linearCount(terms[j]); ++q) {
                    const Extended v = entry(i, 0, kFactors[p], j, 0, kFactors[q]);
                    g(layout.linear[i] + p, layout.linear[j] + q) = v;
                    g(layout.linear[j] + q, layout.linear[i] + p) = v;
                }
    return g;
}

ExtendedMatrix Products::normal(const Terms& terms) const
{
    const Layout layout(terms);
    ExtendedMatrix g(layout.total, layout.total);
    g.topLeftCorner(layout.linearTotal, layout.linearTotal) = linear(terms);
    for (std::size_t i = 0; i < count_; ++i)
        for (std::size_t j = 0; j < count_; ++j) {
            for (int p = 0; p < linearCount(terms[i]); ++p) {
                for (int q = 0; q < poleCount(terms[j]); ++q) {
                    const Extended v = entry(i, 0, kFactors[p], j, 1, pole_factor(terms[j], q));
                    g(layout.linear[i] + p, layout.pole[j] + q) = v;
                    g(layout.pole[j] + q, layout.linear[i] + p) = v;
                }
            }
            if (j < i)
                continue;
            for (int p = 0; p < poleCount(terms[i]); ++p)
                for (int q = 0; q < poleCount(terms[j]); ++q) {
                    const Extended v = entry(i, 1, pole_factor(terms[i], p), j, 1, pole_factor(terms[j], q));
                    g(layout.pole[i] + p, layout.pole[j] + q) = v;
                    g(layout.pole[j] + q, layout.pole[i] + p) = v;
                }
        }
    return g;
}

ExtendedVector gradient(const Evaluation& evaluation, const Terms& terms)
{
    const Layout layout(terms);
    ExtendedVector g(layout.total);
    for (std::size_t i = 0; i < terms.size(); ++i) {
        const ExtendedComplex x(evaluation.x[i].real(), evaluation.x[i].imag());
        const ExtendedComplex y(evaluation.y[i].real(), evaluation.y[i].imag());
        for (int p = 0; p < linearCount(terms[i]); ++p)
            g[layout.linear[i] + p] = product(std::conj(kFactors[p]), x).real();
        for (int p = 0; p < poleCount(terms[i]); ++p)
            g[layout.pole[i] + p] = product(std::conj(pole_factor(terms[i], p)), y).real();
    }
    return g;
}

} // namespace tessel::modes
