#include "tests/support/exercises.h"

#include "common/complex_ops.h"
#include "prony/adaptive_prony.h"
#include "prony/csvdc.h"
#include "prony/czero.h"
#include "prony/leastsq_prony_svd.h"
#include "prony/svbksb.h"
#include "reference/plain_fit.h"
#include "reference/plain_svd.h"
#include "tests/support/extreme_values.h"
#include "tests/support/same_bits.h"
#include "util/elliptic.h"
#include "util/interpolation.h"
#include "util/legendre.h"
#include "util/poly_eval.h"
#include "util/poly_roots.h"
#include "util/quadrature.h"
#include "util/rotation.h"
#include "util/sort.h"
#include "util/special.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <string_view>

namespace tessel::testing {

namespace {

std::size_t extent(Index count)
{
    return static_cast<std::size_t>(std::max<Index>(count, 0));
}

/// memcmp for arrays that may be empty, whose addresses may then be null.
bool same_bytes(const void* a, const void* b, std::size_t bytes)
{
    return bytes == 0 || std::memcmp(a, b, bytes) == 0;
}

/// The status pair of one call.
struct StatusPair
{
    StatusPair(CharLen message_length, CallArrays& arrays)
        : length(message_length), flag(arrays.take<Integer>(1)), message(arrays.take<char>(extent(length)))
    {}
    StatusPair(Random& random, CallArrays& arrays) : StatusPair(random.below(130) - 20, arrays) {}

    bool holds(std::string_view text) const
    {
        for (std::size_t i = 0; i < extent(length); ++i)
            if (message[i] != (i < text.size() ? text[i] : ' '))
                return false;
        return true;
    }
    /// Flag 0 and blanks, or -1 and one of the texts, cut or padded. Returns whether it is a success.
    bool check(bool success, std::initializer_list<std::string_view> texts) const
    {
        require(*flag == (success ? 0 : -1), "the flag is wrong");
        require(success ? holds("") : std::any_of(texts.begin(), texts.end(), [&](auto text) { return holds(text); }),
                "the message is wrong");
        return success;
    }

    CharLen length;
    Integer* flag;
    char* message;
};

constexpr std::string_view kSvdText = "Sub SLATEC_CSVDC: not all singular values are correct !",
                           kZeroText = "Sub NAPACK_CZERO: too many iterations necessary !";

/// A bound or, equally likely, the next smaller number.
Real at_bound(Random& random, Real bound)
{
    return random.below(2) == 0 ? bound : std::nextafter(bound, -INFINITY);
}

} // namespace

std::uint64_t exercise_fit(Random& random, CallArrays& arrays)
{
    arrays.begin();
    Integer n = 2 + random.below(62), m = 1 + random.below(n / 2), ndim = n + random.below(3),
            mmax = m + random.below(3);
    Real dt = random.below(2) == 0 ? 1.0 : std::fabs(extreme_value(random, Values::mixed));
    Integer* const extents[] = {&n, &m, &ndim, &mmax};
    const int edge = random.below(24); // in some calls an argument at its bound, just beyond it, or anywhere
    if (edge == 0)
        ndim = n - random.below(2);
    else if (edge == 1)
        m = random.below(2);
    else if (edge == 2)
        mmax = m - random.below(2);
    else if (edge == 3)
        m = mmax = n / 2 + random.below(2);
    else if (edge == 4)
        dt = at_bound(random, 1e-102);
    else if (edge == 5)
        *extents[random.below(4)] = static_cast<Integer>(random.bits());
    constexpr Integer kMost = 100;
    const bool valid = !(n < 2 || n > ndim || dt < 1e-102 || m < 1 || m > mmax || 2 * Index{m} > n);
    if (valid && std::max(ndim, mmax) > kMost)
        return arrays.end();

    const std::vector<Complex> y = extreme_complexes(random, extent(std::min({n, ndim, kMost})));
    const std::size_t declared = extent(std::min(ndim, kMost)), poles = extent(std::min(mmax, kMost));
    Complex* const samples = arrays.take<Complex>(declared);
    std::copy(y.begin(), y.end(), samples);
    Complex *const residue = arrays.take<Complex>(poles), *const pole = arrays.take<Complex>(poles);
    Real* const measure = arrays.take<Real>(5);
    const StatusPair status(random, arrays);
    LEASTSQ_PRONY_SVD(&n, &ndim, samples, &dt, &m, &mmax, residue, pole, &measure[0], &measure[1], &measure[2],
                      &measure[3], &measure[4], status.flag, status.message, status.length);

    require(same_bytes(samples, y.data(), y.size() * sizeof(Complex)) &&
                CallArrays::untouched(samples, y.size(), declared),
            "the samples were written to");
    if (!valid) {
        status.check(false, {"Sub LEASTSQ_PRONY_SVD: input parameters out of bounds !"});
        require(arrays.untouched({residue, pole, measure}), "a rejected call wrote to an output");
        return arrays.end();
    }
    Complex *const plain_residue = arrays.take<Complex>(poles), *const plain_pole = arrays.take<Complex>(poles);
    Real* const plain_measure = arrays.take<Real>(5);
    const bool success = reference::plain_fit(n, samples, dt, m, plain_residue, plain_pole, plain_measure);
    status.check(success, {kSvdText, kZeroText});
    require(same_bits(residue, plain_residue, poles) && same_bits(pole, plain_pole, poles) &&
                same_bits(measure, plain_measure, 5),
            "the fit, or what it leaves alone, differs from the plain one");
    return arrays.end();
}

std::uint64_t exercise_search(Random& random, CallArrays& arrays)
{
    arrays.begin();
    const Integer n = 1 + random.below(29), ndim = n - 1 + random.below(8), first = random.below(12),
                  last = first - 1 + random.below(6);
    Real dt = std::fabs(extreme_value(random, Values::mixed)), tolerance[5];
    for (Real& value : tolerance)
        value = std::exp(random.uniform(-34.0, 0.0));
    Complex* const y = arrays.take<Complex>(extent(ndim));
    const std::vector<Complex> samples = extreme_complexes(random, extent(std::min(n, ndim)));
    std::copy(samples.begin(), samples.end(), y);
    const std::size_t poles = extent(last);
    Integer* const m = arrays.take<Integer>(1);
    Complex *const residue = arrays.take<Complex>(poles), *const pole = arrays.take<Complex>(poles);
    Complex *const fit_residue = arrays.take<Complex>(poles), *const fit_pole = arrays.take<Complex>(poles);
    const StatusPair status(random, arrays), fit(status.length, arrays);
    Real e[5] = {1.0, 1.0, 1.0, 1.0, 1.0};
    const auto run_fit = [&](Integer order, Complex* c, Complex* s) {
        LEASTSQ_PRONY_SVD(&n, &ndim, y, &dt, &order, &last, c, s, &e[0], &e[1], &e[2], &e[3], &e[4], fit.flag,
                          fit.message, fit.length);
    };
    const int edge = random.below(8), held = random.below(5);
    if (edge == 0) { // a measure as its own tolerance, and alone
        run_fit(first, std::vector<Complex>(poles).data(), std::vector<Complex>(poles).data());
        std::fill_n(tolerance, 5, 1e300);
        tolerance[held] = at_bound(random, e[held]);
    } else if (edge == 1) {
        tolerance[held] = at_bound(random, 1e-15);
    } else if (edge == 2) {
        tolerance[held] = extreme_value(random, Values::special);
    } else if (edge == 3) {
        dt = 5e-324; // positive, but refused by the fit
    }
    ADAPTIVE_PRONY(n, ndim, y, dt, first, last, tolerance[0], tolerance[1], tolerance[2], tolerance[3], tolerance[4],
                   *m, residue, pole, *status.flag, status.message, status.length);

    if (n < 2 || n > ndim || first < 1 || first > last || dt <= 0.0 ||
        std::any_of(tolerance, tolerance + 5, [](Real x) { return x < 1e-15; })) {
        status.check(false, {"Sub ADAPTIVE_PRONY: input parameters out of bounds !"});
        require(arrays.untouched({m, residue, pole}), "a search that was refused wrote");
        return arrays.end();
    }
    const Integer cap = std::min(last, n / 2);
    Integer order = std::min(first, cap) - 1;
    bool good = false;
    do {
        run_fit(++order, fit_residue, fit_pole);
        good = std::equal(e, e + 5, tolerance, [](Real measure, Real bound) { return !(measure > bound); });
    } while (*fit.flag == 0 && !good && order < cap);
    if (*fit.flag == 0)
        status.check(good, {"Sub ADAPTIVE_PRONY: best Prony fit is not good enough !"});
    else
        require(*status.flag == -1 && same_bytes(status.message, fit.message, extent(fit.length)),
                "the status is not that of the fit that failed");
    require(*m == order && same_bits(residue, fit_residue, poles) && same_bits(pole, fit_pole, poles),
            "the search does not give the fit at which it ends");
    return arrays.end();
}

std::uint64_t exercise_zeros(Random& random, CallArrays& arrays)
{
    arrays.begin();
    const Integer n = random.below(20) == 0 ? -random.below(2) : 1 + random.below(48);
    const std::size_t count = extent(std::max(n, 1));
    const std::vector<Complex> coefficients = extreme_complexes(random, count);
    const bool finite =
        std::all_of(coefficients.begin(), coefficients.end(), [](const Complex& a) { return std::isfinite(abs1(a)); });
    Complex* const p = arrays.take(coefficients);
    Complex *const z = arrays.take<Complex>(count), *const again = arrays.take<Complex>(count),
                   *const w = arrays.take<Complex>(1);
    const StatusPair status(random, arrays);
    NAPACK_CZERO(z, p, n, w, *status.flag, status.message, status.length);
    status.check(*status.flag == 0, {kZeroText});
    require(n > 2 || *status.flag == 0, "a closed form failed");
    require(n <= 2 || finite || p[0] == 0.0 || *status.flag != 0, "success for coefficients that are not finite");
    require(*w == Complex(n, 0.0), "the work array does not hold the degree");
    NAPACK_CZERO(again, p, n, w, *status.flag, status.message, status.length);
    require(same_bytes(z, again, count * sizeof(Complex)), "a second call gives other zeros");
    require(same_bytes(p, coefficients.data(), count * sizeof(Complex)), "the coefficients were written to");

    Complex *const h = arrays.take(extreme_complexes(random, count)), *const value = arrays.take<Complex>(1);
    const Complex s = extreme_complex(random, any_kind(random));
    HStep(p, h, static_cast<Integer>(count), *value, s, std::max(1.0, modulus(s)));
    require(h[count - 1] == 1.0, "the quotient is not monic");
    return arrays.end();
}

std::uint64_t exercise_svd(Random& random, CallArrays& arrays)
{
    static constexpr Integer jobs[] = {0, 1, 10, 11, 20, 21, 120, -11};
    arrays.begin();
    const Integer job = jobs[random.below(8)], left_code = job / 10 % 10, n = 1 + random.below(80),
                  p = random.below(16) == 0 ? n + random.below(2) : random.below(n + 1),
                  ld = std::max(n, p) + random.below(3), ldv = std::max(p, 1) + random.below(3);
    const bool in_place = left_code >= 2 && random.below(2) == 0;
    const Integer left = left_code >= 2 ? p : n;
    auto matrix = extreme_complexes(random, extent(Index{ld} * p));
    if (random.below(2) == 0) // real ones are decomposed in real arithmetic
        for (Complex& value : matrix)
            value.imag(0.0);
    const std::size_t size_u = extent(Index{ld} * left), size_v = extent(Index{ldv} * p), size_s = extent(p);
    Complex *const x = arrays.take(matrix), *const u = in_place ? x : arrays.take<Complex>(size_u),
                   *const s = arrays.take<Complex>(size_s), *const e = arrays.take<Complex>(size_s),
                   *const v = arrays.take<Complex>(size_v), *const work = arrays.take<Complex>(extent(n));
    Integer* const info = arrays.take<Integer>(1);
    const StatusPair status(random, arrays);
    SLATEC_CSVDC(job, n, p, x, ld, u, ld, s, v, ldv, work, e, *info, *status.flag, status.message, status.length);
    if (n < p) {
        status.check(false, {"Sub SLATEC_CSVDC: SVD here only implemented for N>=P !"});
        require(arrays.untouched({info, s, e, v}), "a rejected call wrote to an output");
        return arrays.end();
    }
    Complex *const x0 = arrays.take(matrix), *const u0 = in_place ? x0 : arrays.take<Complex>(size_u),
                   *const s0 = arrays.take<Complex>(size_s), *const e0 = arrays.take<Complex>(size_s),
                   *const v0 = arrays.take<Complex>(size_v), *const work0 = arrays.take<Complex>(extent(n));
    const Integer plain_info = p == 0 ? 0 : reference::plain_svd(job, n, p, x0, ld, u0, ld, s0, v0, ldv, work0, e0);
    status.check(plain_info == 0, {kSvdText});
    require(*info == plain_info && same_bits(s, s0, size_s) && same_bits(e, e0, size_s) && same_bits(u, u0, size_u) &&
                same_bits(v, v0, size_v),
            "the decomposition, or an untouched output, differs from the plain one");

    // The factors, or what the arrays hold otherwise, are used in a back-substitution.
    if (left_code == 0 || left < p)
        return arrays.end();
    const Integer mp = random.below(16) == 0 ? n - 1 : ld, np = random.below(16) == 0 ? p - 1 : ldv;
    Complex *const b = arrays.take(extreme_complexes(random, extent(n))), *const y = arrays.take<Complex>(size_s),
                   *const y0 = arrays.take<Complex>(size_s);
    const Complex* const w = random.below(2) == 0 ? s : arrays.take(extreme_complexes(random, size_s));
    RECIPES_SVBKSB(u, w, v, n, p, mp, np, b, y, *status.flag, status.message, status.length);
    if (status.check(n <= mp && p <= np, {"Sub RECIPES_SVBKSB: input parameters out of bounds !"}))
        reference::plain_back_substitution(u, w, v, n, p, mp, np, b, y0);
    require(same_bits(y, y0, size_s), "the solution, or an untouched output, differs from the plain one");
    return arrays.end();
}

namespace {

// For the utilities, status and untouched outputs are checked here, values in their own tests.

void interpolation(Random& random, CallArrays& arrays)
{
    const std::vector<Real> x = extreme_reals(random, extent(random.below(40)));
    const auto n = static_cast<Integer>(x.size());
    const Real at =
        n == 0 || random.below(2) == 0 ? extreme_value(random, any_kind(random)) : x[extent(random.below(n))];
    Real *const nodes = arrays.take(x), *const w = arrays.take<Real>(x.size());
    if (n >= 2 && !(x.front() >= x.back()))
        FIND_INTERVAL(nodes, n, at, *arrays.take<Integer>(1));
    const StatusPair status(random, arrays);
    LAGRANGE_COEFF(at, nodes, n - 1, w, *status.flag, status.message, status.length);
    if (!status.check(n >= 1 && !(x.front() > at) && !(at > x.back()),
                      {"Sub LAGRANGE_COEFF: abszissa x out of range x0...xN !"}))
        require(arrays.untouched({w}), "a rejected call wrote to an output");
}

void legendre(Random& random, CallArrays& arrays)
{
    const Values kind = any_kind(random);
    const Real x = random.below(4) == 0 ? -at_bound(random, -1.0) : extreme_value(random, kind);
    const Complex z = extreme_complex(random, kind);
    const Integer n1 = random.below(12) - 2, n2 = random.below(40) - 1, nmax = n2 - 1 + random.below(4);
    const Logical continued = random.below(4);
    const bool valid = n1 >= 0 && n1 <= n2 && n2 <= nmax && (continued % 2 == 0 || n1 >= 2);
    const std::size_t size = extent(nmax + 1);
    Real* const p = arrays.take<Real>(size);
    Complex* const q = arrays.take<Complex>(size);
    const StatusPair status(random, arrays);

    NEW_PN0UOX(x, n1, n2, nmax, continued, p, *status.flag, status.message, status.length);
    bool success = status.check(valid && std::fabs(x) <= 1.0, {"Sub NEW_PN0UOX: input parameters out of bounds !"});
    require(CallArrays::untouched(p, success ? extent(n2 + 1) : 0, size), "something was written beyond the degree");
    NEW_PN0UOZ(z, n1, n2, nmax, continued, q, *status.flag, status.message, status.length);
    success = status.check(valid, {"Sub NEW_PN0UOZ: input parameters out of bounds !"});
    require(CallArrays::untouched(q, success ? extent(n2 + 1) : 0, size), "something was written beyond the degree");
}

void rotation(Random& random, CallArrays& arrays)
{
    const Values kind = any_kind(random);
    const Real phi = extreme_value(random, kind), psi = extreme_value(random, kind), half_pi = 1.5707963267948966,
               theta = random.below(4) == 0 ? -at_bound(random, -half_pi) : extreme_value(random, kind);
    Real* const r = arrays.take<Real>(9);
    const StatusPair status(random, arrays);
    IHE_orig_ROT3D(theta, phi, psi, r, *status.flag, status.message, status.length);
    if (!status.check(!(std::fabs(theta) > half_pi), {"Sub IHE_orig_ROT3D: input parameters out of bounds !"}))
        require(arrays.untouched({r}), "a rejected call wrote to an output");
}

void sort_and_grids(Random& random, CallArrays& arrays)
{
    const Integer n = random.below(300) - 1;
    const std::size_t count = extent(n);
    RECIPES_SORT2(n, arrays.take(extreme_reals(random, count)), arrays.take<Integer>(count));

    const Real a = extreme_value(random, Values::mixed), b = extreme_value(random, Values::mixed);
    const Integer steps = std::min(n, 64);
    LINEAR_GRID(a, b, steps, nullptr, *arrays.take<Real>(1), arrays.take<Real>(extent(steps + 1)));
    RECIPES_GAULEG(a, b, arrays.take<Real>(extent(steps)), arrays.take<Real>(extent(steps)), steps);
}

void polynomials(Random& random, CallArrays& arrays)
{
    const Integer n = 1 + random.below(40);
    const std::size_t count = extent(n);
    const Complex* const a = arrays.take(extreme_complexes(random, count));
    const Complex* const h = arrays.take(extreme_complexes(random, count));
    Complex* const z = arrays.take(extreme_complexes(random, 4));
    Real* const bound = arrays.take<Real>(3);
    CPOLY_EVAL_STEP(a, h, a, h, n, z[0], z[1], bound[0], bound[1]);
    CQUAD_ROOTS(z[2], z[3]);
    CPOLY_BOUND(a, n, CSIZE(z[1]), bound[2]);
    const Real base = random.uniform(1.01, 100.0);
    CSCALE_EXP(a, arrays.take<Complex>(count), arrays.take<Complex>(count), n, base, 1.0 / base);
}

void special_functions(Random& random, CallArrays& arrays)
{
    const Values kind = any_kind(random);
    const Real x = extreme_value(random, kind), y = extreme_value(random, kind),
               parameter = std::isnan(x) ? x : std::min(std::fabs(x), 0.999999999999999);
    const Complex fresnel = FRESNEL_CS(x);
    arrays.take(std::vector<Real>{fresnel.real(), fresnel.imag(), SINC(x), CPHASE({x, y}), CELLIK_POL(parameter),
                                  CELLIE_POL(parameter), D_CELLIK_POL(parameter), D_CELLIE_POL(parameter)});

    // There is one generator for the process: calls are serialised, and the deviates are not part of the hash.
    static std::mutex turn;
    const std::lock_guard lock(turn);
    const Real uniform = RECIPES_RAN2(), normal = GAUSS_RAN(0.0, 1.0);
    require(uniform >= 0.0 && uniform < 1.0 && std::fabs(normal) <= 6.0, "a deviate is out of its range");
}

} // namespace

std::uint64_t exercise_utilities(Random& random, CallArrays& arrays)
{
    static constexpr void (*routines[])(Random&, CallArrays&) = {interpolation,  legendre,    rotation,
                                                                 sort_and_grids, polynomials, special_functions};
    arrays.begin();
    routines[random.below(static_cast<int>(std::size(routines)))](random, arrays);
    return arrays.end();
}

} // namespace tessel::testing
