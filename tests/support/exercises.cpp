#include "tests/support/exercises.h"

#include "common/complex_ops.h"
#include "prony/adaptive_prony.h"
#include "prony/csvdc.h"
#include "prony/czero.h"
#include "prony/leastsq_prony_svd.h"
#include "prony/svbksb.h"
#include "tests/support/hostile.h"
#include "tests/support/plain_fit.h"
#include "tests/support/plain_svd.h"
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
#include <array>
#include <cfenv>
#include <cmath>
#include <initializer_list>
#include <string_view>

namespace tessel::testing {

namespace {

std::size_t extent(Index count)
{
    return static_cast<std::size_t>(std::max<Index>(count, 0));
}

/// Equal to the bit. Which NaN an operation on two of them returns is left to the machine.
bool same_bits(const Complex* x, const Complex* y, Index count)
{
    const auto same = [](Real a, Real b) {
        return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
    };
    return std::equal(x, x + count, y, [&](const Complex& a, const Complex& b) {
        return same(a.real(), b.real()) && same(a.imag(), b.imag());
    });
}

/// The plain routines give the same bits when results are rounded to nearest. Otherwise the modulus of a real number,
/// which they take and which is rounded twice, can differ from the absolute value.
bool equals_plain()
{
    return std::fegetround() == FE_TONEAREST;
}

/// The status pair of one call.
struct StatusPair
{
    StatusPair(Random& random, Room& room)
        : length(random.below(130) - 20), flag(room.take<Integer>(1)), message(room.take<char>(extent(length)))
    {}

    /// Flag 0 and blanks, or -1 and one of the texts, cut or padded.
    void check(bool success, std::initializer_list<std::string_view> texts) const
    {
        const auto holds = [this](std::string_view text) {
            for (std::size_t i = 0; i < extent(length); ++i)
                if (message[i] != (i < text.size() ? text[i] : ' '))
                    return false;
            return true;
        };
        require(*flag == (success ? 0 : -1), "the flag is wrong");
        require(success ? holds("") : std::any_of(texts.begin(), texts.end(), holds), "the message is wrong");
    }

    CharLen length;
    Integer* flag;
    char* message;
};

constexpr std::string_view kFitTexts[] = {"Sub SLATEC_CSVDC: not all singular values are correct !",
                                          "Sub NAPACK_CZERO: too many iterations necessary !"};

/// One in sixteen calls has an argument that may be out of bounds.
bool breaks_bounds(Random& random)
{
    return random.below(16) == 0;
}

/// The measures keep their order, unless a square leaves the range: quotients of squares do below 1e-150.
void check_measures(const Real* measure, const std::vector<Complex>& y)
{
    const auto moderate = [](const Complex& z) { return z == 0.0 || (abs1(z) > 1e-100 && abs1(z) < 1e100); };
    if (!std::all_of(y.begin(), y.end(), moderate) ||
        !std::all_of(measure, measure + 5, [](Real x) { return x < 1e40; }))
        return;
    const auto in_order = [](Real lower, Real upper) { return lower <= upper * (1.0 + 1e-12) + 1e-150; };
    const Real l2 = measure[0], rms = measure[1], peak = measure[2], rms_mean = measure[3], peak_mean = measure[4];
    require(in_order(rms, l2) && in_order(l2, rms_mean) && in_order(rms, peak) && in_order(peak, peak_mean),
            "the measures are not in their order");
}

} // namespace

std::uint64_t exercise_fit(Random& random, Room& room)
{
    room.begin();
    Integer n = 2 + random.below(62), m = 1 + random.below(n / 2), ndim = n + random.below(3),
            mmax = m + random.below(3);
    Real dt = random.below(2) == 0 ? 1.0 : std::fabs(hostile_value(random, Values::mixed));
    const std::vector<Complex> y = hostile_complexes(random, extent(n));
    const std::size_t room_for_samples = extent(ndim), room_for_poles = extent(mmax);
    Complex* const samples = room.take<Complex>(room_for_samples);
    std::copy(y.begin(), y.end(), samples);
    if (breaks_bounds(random)) {
        Integer* const argument[] = {&n, &m, &ndim, &mmax};
        *argument[random.below(4)] = random.below(3) == 0 ? static_cast<Integer>(random.bits()) : random.below(5) - 2;
        dt = hostile_value(random, Values::mixed);
    }
    const bool valid = !(n < 2 || n > ndim || dt < 1e-102 || m < 1 || m > mmax || 2 * Index{m} > n);
    if (valid && (Index{ndim} > 1000 || Index{mmax} > 1000)) // other extents than those of the arrays
        return room.end();

    Complex *const residue = room.take<Complex>(room_for_poles), *const pole = room.take<Complex>(room_for_poles);
    Real* const measure = room.take<Real>(5);
    const StatusPair status(random, room);
    LEASTSQ_PRONY_SVD(&n, &ndim, samples, &dt, &m, &mmax, residue, pole, &measure[0], &measure[1], &measure[2],
                      &measure[3], &measure[4], status.flag, status.message, status.length);

    require(std::memcmp(samples, y.data(), y.size() * sizeof(Complex)) == 0 &&
                Room::untouched(samples, y.size(), room_for_samples),
            "the samples were written to");
    if (!valid) {
        status.check(false, {"Sub LEASTSQ_PRONY_SVD: input parameters out of bounds !"});
        require(Room::untouched(residue, 0, room_for_poles) && Room::untouched(pole, 0, room_for_poles) &&
                    Room::untouched(measure, 0, 5),
                "a call that was refused wrote");
        return room.end();
    }
    std::vector<Complex> plain_residue(extent(m)), plain_pole(extent(m));
    Real plain_measure[5] = {};
    const bool plain_success = plain_fit(n, samples, dt, m, plain_residue.data(), plain_pole.data(), plain_measure);
    const bool success = equals_plain() ? plain_success : *status.flag == 0;
    status.check(success, {kFitTexts[0], kFitTexts[1]});
    const std::size_t written = success ? extent(m) : 0;
    require(Room::untouched(residue, written, room_for_poles), "residues were written that are none");
    require(Room::untouched(pole, extent(m), room_for_poles), "poles were written that are none");
    if (success) {
        require(!equals_plain() ||
                    (same_bits(residue, plain_residue.data(), m) && same_bits(pole, plain_pole.data(), m)),
                "the fit differs from the plain one");
        for (int i = 0; i < 5 && equals_plain(); ++i)
            require(same_bits(std::array{Complex(measure[i])}.data(), std::array{Complex(plain_measure[i])}.data(), 1),
                    "a measure differs from that of the plain fit");
        check_measures(measure, y);
    } else {
        require(Room::untouched(measure, 0, 5), "a fit that failed has measures");
    }
    return room.end();
}

std::uint64_t exercise_search(Random& random, Room& room)
{
    room.begin();
    const Integer n = 2 + random.below(28), ndim = n + random.below(3), first = 1 + random.below(12);
    const Integer last = first + random.below(4);
    Integer* const m = room.take<Integer>(1);
    const Real dt = std::fabs(hostile_value(random, Values::mixed));
    Real tolerance[5];
    for (Real& value : tolerance)
        value = random.below(4) == 0 ? hostile_value(random, Values::mixed) : std::exp(random.uniform(-34.0, 0.0));
    Complex* const y = room.take<Complex>(extent(ndim));
    const std::vector<Complex> samples = hostile_complexes(random, extent(n));
    std::copy(samples.begin(), samples.end(), y);
    Complex *const residue = room.take<Complex>(extent(last)), *const pole = room.take<Complex>(extent(last));
    const StatusPair status(random, room);
    ADAPTIVE_PRONY(n, ndim, y, dt, first, last, tolerance[0], tolerance[1], tolerance[2], tolerance[3], tolerance[4],
                   *m, residue, pole, *status.flag, status.message, status.length);

    const bool refused = dt <= 0.0 || std::any_of(tolerance, tolerance + 5, [](Real x) { return x < 1e-15; });
    if (refused) {
        status.check(false, {"Sub ADAPTIVE_PRONY: input parameters out of bounds !"});
        require(Room::untouched(m, 0, 1), "a search that was refused wrote");
        return room.end();
    }
    status.check(*status.flag == 0,
                 {"Sub ADAPTIVE_PRONY: best Prony fit is not good enough !",
                  "Sub LEASTSQ_PRONY_SVD: input parameters out of bounds !", kFitTexts[0], kFitTexts[1]});
    const Integer cap = std::min(last, n / 2);
    require(*m >= std::min(first, cap) && *m <= cap, "the order lies outside the search");
    require(Room::untouched(residue, extent(*m), extent(last)) && Room::untouched(pole, extent(*m), extent(last)),
            "more was written than the order tells");
    return room.end();
}

std::uint64_t exercise_zeros(Random& random, Room& room)
{
    room.begin();
    const Integer n = random.below(20) == 0 ? -random.below(2) : 1 + random.below(48);
    const std::size_t count = extent(std::max(n, 1));
    const std::vector<Complex> coefficients = hostile_complexes(random, count);
    Complex* const p = room.take(coefficients);
    Complex *const z = room.take<Complex>(count), *const again = room.take<Complex>(count),
                   *const w = room.take<Complex>(1);
    const StatusPair status(random, room);
    NAPACK_CZERO(z, p, n, w, *status.flag, status.message, status.length);
    status.check(*status.flag == 0, {kFitTexts[1]});
    require(n > 2 || *status.flag == 0, "a closed form failed");
    require(*w == Complex(n, 0.0), "the work array does not hold the degree");
    NAPACK_CZERO(again, p, n, w, *status.flag, status.message, status.length);
    require(std::memcmp(z, again, count * sizeof(Complex)) == 0, "a second call gives other zeros");
    require(std::memcmp(p, coefficients.data(), count * sizeof(Complex)) == 0, "the coefficients were written to");

    Complex *const h = room.take(hostile_complexes(random, count)), *const value = room.take<Complex>(1);
    const Complex s = hostile_complex(random, any_kind(random));
    const auto degree = static_cast<Integer>(count);
    HStep(p, h, degree, *value, s, std::max(1.0, modulus(s)));
    require(h[count - 1] == 1.0, "the quotient is not monic");
    return room.end();
}

std::uint64_t exercise_svd(Random& random, Room& room)
{
    static constexpr Integer jobs[] = {0, 1, 10, 11, 20, 21, 120, -11};
    room.begin();
    const Integer job = jobs[random.below(8)];
    const Integer n = 1 + random.below(80), p = breaks_bounds(random) ? n + 1 : random.below(n + 1);
    const Integer ld = std::max(n, p) + random.below(3), ldv = std::max(p, 1) + random.below(3);
    const bool in_place = job / 10 % 10 >= 2 && random.below(2) == 0;
    const Index left = job / 10 % 10 >= 2 ? p : n;
    const auto matrix = hostile_complexes(random, extent(Index{ld} * p));
    Complex* const x = room.take(matrix);
    Complex* const u = in_place ? x : room.take<Complex>(extent(Index{ld} * left));
    Complex *const s = room.take<Complex>(extent(p)), *const e = room.take<Complex>(extent(p));
    Complex *const v = room.take<Complex>(extent(Index{ldv} * p)), *const work = room.take<Complex>(extent(n));
    Integer* const info = room.take<Integer>(1);
    const StatusPair status(random, room);
    SLATEC_CSVDC(job, n, p, x, ld, u, ld, s, v, ldv, work, e, *info, *status.flag, status.message, status.length);
    if (n < p) {
        status.check(false, {"Sub SLATEC_CSVDC: SVD here only implemented for N>=P !"});
        require(Room::untouched(info, 0, 1) && Room::untouched(s, 0, extent(p)), "a call that was refused wrote");
        return room.end();
    }
    status.check(*info == 0, {kFitTexts[0]});
    require(*info >= 0 && *info <= p, "INFO is no order");
    if (p == 0)
        return room.end();

    std::vector<Complex> x0(matrix), own(in_place ? 0 : extent(Index{ld} * left)), s0(extent(p)), e0(extent(p)),
        v0(extent(Index{ldv} * p)), scratch(extent(n));
    std::vector<Complex>& u0 = in_place ? x0 : own;
    const Integer info0 =
        plain_svd(job, n, p, x0.data(), ld, u0.data(), ld, s0.data(), v0.data(), ldv, scratch.data(), e0.data());
    require(info0 == *info || !equals_plain(), "INFO differs from that of the plain routine");
    bool same = same_bits(s, s0.data(), p) && same_bits(e, e0.data(), p);
    if (job / 10 % 10 != 0)
        for (Index j = 0; j < left; ++j)
            same = same && same_bits(u + j * ld, u0.data() + j * ld, n);
    if (job % 10 != 0)
        for (Index j = 0; j < p; ++j)
            same = same && same_bits(v + j * ldv, v0.data() + j * ldv, p);
    require(same || !equals_plain(), "the decomposition differs from the plain one");

    // What came out, or what lies there, goes into a back-substitution.
    const Integer rows = breaks_bounds(random) ? ld + 1 : n;
    if (job / 10 % 10 == 0 || left < p)
        return room.end();
    Complex *const b = room.take(hostile_complexes(random, extent(rows))), *const solution =
                                                                               room.take<Complex>(extent(p));
    RECIPES_SVBKSB(u, s, v, rows, p, ld, ldv, b, solution, *status.flag, status.message, status.length);
    status.check(rows <= ld, {"Sub RECIPES_SVBKSB: input parameters out of bounds !"});
    require(rows <= ld || Room::untouched(solution, 0, extent(p)), "a call that was refused wrote");
    return room.end();
}

namespace {

void interval(Random& random, Room& room)
{
    std::vector<Real> x = hostile_reals(random, extent(2 + random.below(40)));
    std::erase_if(x, [](Real value) { return std::isnan(value); });
    std::sort(x.begin(), x.end());
    if (x.size() < 2 || x.front() >= x.back())
        return;
    const auto n = static_cast<Integer>(x.size());
    const Real at = random.below(2) == 0 ? x[extent(random.below(n))] : hostile_value(random, Values::mixed);
    const Real* const table = room.take(x);
    Integer& i = *room.take<Integer>(1);
    FIND_INTERVAL(table, n, at, i);
    const bool inside = i >= 1 && i < n && !(table[i - 1] > at) && !(at > table[i]);
    require(inside || (i == 0 && at < x.front()) || (i == n && at > x.back()),
            "the interval does not hold the abscissa");
}

void lagrange(Random& random, Room& room)
{
    const Integer n = random.below(20) - 2;
    const std::vector<Real> nodes = hostile_reals(random, extent(n + 1));
    const Real at = hostile_value(random, any_kind(random));
    const Real* const xn = room.take(nodes);
    Real* const w = room.take<Real>(nodes.size());
    const StatusPair status(random, room);
    LAGRANGE_COEFF(at, xn, n, w, *status.flag, status.message, status.length);
    const bool in_range = n >= 0 && !(nodes.front() > at) && !(at > nodes.back());
    status.check(in_range, {"Sub LAGRANGE_COEFF: abszissa x out of range x0...xN !"});
    require(in_range || Room::untouched(w, 0, nodes.size()), "a call that was refused wrote");
}

void legendre(Random& random, Room& room)
{
    const Integer n1 = random.below(12) - 2, n2 = random.below(40) - 1, nmax = random.below(42) - 1;
    const Logical continued = random.below(4);
    const bool in_bounds = n1 >= 0 && n1 <= n2 && n2 <= nmax && (continued % 2 == 0 || n1 >= 2);
    const StatusPair status(random, room);
    const auto check = [&](bool accepted, const auto* p, std::string_view text) {
        status.check(accepted, {text});
        const Index first = !accepted ? 0 : continued % 2 == 0 ? n2 + 1 : 0;
        const std::size_t end = accepted && continued % 2 != 0 ? extent(n1) : extent(nmax + 1);
        require(Room::untouched(p, extent(first), end) &&
                    Room::untouched(p, extent(accepted ? n2 + 1 : 0), extent(nmax + 1)),
                "degrees were written that were not asked for");
    };
    if (random.below(2) == 0) {
        const Real x = random.below(2) == 0 ? random.uniform(-1.0, 1.0) : hostile_value(random, Values::mixed);
        Real* const p = room.take<Real>(extent(nmax + 1));
        NEW_PN0UOX(x, n1, n2, nmax, continued, p, *status.flag, status.message, status.length);
        check(in_bounds && std::fabs(x) <= 1.0, p, "Sub NEW_PN0UOX: input parameters out of bounds !");
    } else {
        Complex* const p = room.take<Complex>(extent(nmax + 1));
        NEW_PN0UOZ(hostile_complex(random, any_kind(random)), n1, n2, nmax, continued, p, *status.flag, status.message,
                   status.length);
        check(in_bounds, p, "Sub NEW_PN0UOZ: input parameters out of bounds !");
    }
}

void rotation(Random& random, Room& room)
{
    const Values kind = any_kind(random);
    const Real theta = hostile_value(random, kind), phi = hostile_value(random, kind),
               psi = hostile_value(random, kind);
    Real* const r = room.take<Real>(9);
    const StatusPair status(random, room);
    IHE_orig_ROT3D(theta, phi, psi, r, *status.flag, status.message, status.length);
    const bool refused = std::fabs(theta) > 1.5707963267948966;
    status.check(!refused, {"Sub IHE_orig_ROT3D: input parameters out of bounds !"});
    require(!refused || Room::untouched(r, 0, 9), "a call that was refused wrote");
    if (!refused && std::isfinite(theta) && std::isfinite(phi) && std::isfinite(psi))
        for (int i = 0; i < 3; ++i)
            require(std::fabs(r[i] * r[i] + r[i + 3] * r[i + 3] + r[i + 6] * r[i + 6] - 1.0) < 1e-14,
                    "a row of a rotation is not a unit vector");
}

void sort(Random& random, Room& room)
{
    const std::vector<Real> keys = hostile_reals(random, extent(random.below(300)));
    const auto n = static_cast<Integer>(keys.size());
    Real* const key = room.take(keys);
    Integer* const companion = room.take<Integer>(keys.size());
    for (Integer i = 0; i < n; ++i)
        companion[i] = i;
    RECIPES_SORT2(n, key, companion);
    std::vector<bool> seen(keys.size());
    for (Integer i = 0; i < n; ++i) {
        const auto from = extent(companion[i]);
        require(companion[i] >= 0 && companion[i] < n && !seen[from] &&
                    std::memcmp(&key[i], &keys[from], sizeof(Real)) == 0,
                "keys and companions are no longer pairs");
        seen[from] = true;
    }
    const bool ordered = std::none_of(keys.begin(), keys.end(), [](Real x) { return std::isnan(x); });
    require(!ordered || std::is_sorted(key, key + n), "the keys are not in order");
}

void grids(Random& random, Room& room)
{
    const Values kind = any_kind(random);
    const Real a = hostile_value(random, kind), b = hostile_value(random, kind);
    const Integer n = random.below(65) - 1;
    const auto count = extent(n);
    Real *const x = room.take<Real>(count), *const w = room.take<Real>(count),
                *const grid = room.take<Real>(extent(n + 1)), *const h = room.take<Real>(1);
    RECIPES_GAULEG(a, b, x, w, n);
    LINEAR_GRID(a, b, n, nullptr, *h, grid);
    if (kind == Values::ordinary && a < b)
        require(std::is_sorted(x, x + count) && std::all_of(w, w + count, [](Real weight) { return weight > 0.0; }),
                "the nodes of a quadrature are not in order");
}

void polynomials(Random& random, Room& room)
{
    const Integer n = 1 + random.below(40);
    const std::size_t count = extent(n);
    const Complex *const a = room.take(hostile_complexes(random, count)),
                         *const h = room.take(hostile_complexes(random, count)),
                         *const g = room.take(hostile_complexes(random, count)),
                         *const w = room.take(hostile_complexes(random, count));
    Complex *const z = room.take<Complex>(4), *const mantissa = room.take<Complex>(count),
                   *const exponent = room.take<Complex>(count);
    Real* const bound = room.take<Real>(4);
    const Values kind = any_kind(random);
    for (int i = 0; i < 4; ++i)
        z[i] = hostile_complex(random, kind);
    const Real radius = std::fabs(hostile_value(random, kind));
    CPOLY_EVAL_STEP(a, h, g, w, n, z[0], z[1], bound[0], bound[1]);
    CQUAD_ROOTS(z[2], z[3]);
    CPOLY_BOUND(a, n, radius, bound[2]);
    const Real base = random.below(2) == 0 ? 65536.0 : random.uniform(1.01, 100.0);
    CSCALE_EXP(a, mantissa, exponent, n, base, 1.0 / base);
    for (std::size_t i = 0; i < count; ++i) {
        const Real size = CSIZE(mantissa[i]);
        require(exponent[i].imag() == 0.0 && std::isfinite(exponent[i].real()), "an exponent is not a number");
        // Subnormal sizes do not scale exactly, and one that overflows is cut if the host rounds towards zero.
        const bool in_reach = CSIZE(a[i]) > 1e-290 && CSIZE(a[i]) < 1e308;
        require(!in_reach || size <= 1.0 + 1e-10, "a mantissa is too large");
    }
    bound[3] = 0.0;
}

void special_functions(Random& random, Room& room)
{
    const Values kind = any_kind(random);
    const Real x = hostile_value(random, kind), y = hostile_value(random, kind);
    Real* const value = room.take<Real>(8);
    const Complex fresnel = FRESNEL_CS(x);
    value[0] = fresnel.real();
    value[1] = fresnel.imag();
    value[2] = SINC(x);
    value[3] = CPHASE({x, y});
    const Real parameter = std::isnan(x) ? x : std::clamp(std::fabs(x), 0.0, 0.999999999999999);
    value[4] = CELLIK_POL(parameter);
    value[5] = CELLIE_POL(parameter);
    value[6] = D_CELLIK_POL(parameter);
    value[7] = D_CELLIE_POL(parameter);
    require(!std::isfinite(x) || std::fabs(value[2]) <= 1.0, "a sine integral's kernel is above 1");
    require(!(std::fabs(value[3]) > 3.1415926535897932), "a phase is beyond pi");
    require(std::isnan(x) || (value[4] >= 1.5707 && value[5] <= 1.5708 && value[5] >= 0.9999),
            "an elliptic integral is out of its range");
}

} // namespace

std::uint64_t exercise_utilities(Random& random, Room& room)
{
    static constexpr void (*routines[])(Random&, Room&) = {interval, lagrange, legendre,    rotation,
                                                           sort,     grids,    polynomials, special_functions};
    room.begin();
    routines[random.below(static_cast<int>(std::size(routines)))](random, room);
    return room.end();
}

} // namespace tessel::testing
