#include "prony/czero.h"

#include "common/elementary.h"
#include "common/polynomial.h"
#include "common/status.h"
#include "common/views.h"
#include "common/work_storage.h"
#include "prony/fourier_transform.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <optional>

namespace tessel {

namespace {

constexpr Real kEpsilon = std::numeric_limits<Real>::epsilon();
constexpr Real kBase = 65536.0; // 2^16: scaling by it is exact
constexpr Real kInverseBase = 1.52587890625e-05;
constexpr int kBaseBits = 16;
constexpr Real kLowestExponent = -67.0; // a smaller power of the base is zero

constexpr Index kFirstSteps = 10;       // no-shift steps of the first pass
constexpr Index kFixedSteps = 5;        // steps at the shift that the circle gives
constexpr Index kSamplesBefore = 8;     // doubled on entry of every pass
constexpr Index kUnlimitedPasses = 5;   // passes that every search may make
constexpr Index kSamplesPerDegree = 32; // no further pass once there are more
constexpr Index kVariableSteps = 4000;  // step lengths that decrease reach zero long before
constexpr Index kStalledSteps = 50;     // successive steps of length zero: the zero is too small a number

/// The largest number of samples that a search of degree n can come to.
Index most_samples(Index n)
{
    const auto limit = static_cast<std::size_t>(2 * kSamplesPerDegree * n);
    return std::max(kSamplesBefore << kUnlimitedPasses, static_cast<Index>(std::bit_floor(limit)));
}

/// A point at which polynomials are evaluated; outside the unit circle through their reversed forms in 1 / s.
struct Point
{
    explicit Point(const Complex& point) noexcept : Point(point, modulus(point)) {}
    /// `r` is |s|, or max(1, |s|) where only the side of the unit circle matters.
    Point(const Complex& point, Real r) noexcept
        : s(point), radius(r), outside(r > 1.0), x(outside ? reciprocal(point) : point)
    {}

    Complex s;
    Real radius;
    bool outside;
    Complex x;
};

/// p(s) and H(s); outside the unit circle p(s) / s^n and H(s) / s^(n-1).
struct Values
{
    Complex p, h;
};

/// The values at a point. Further sums over the coefficients of p go through
/// the same loop, which waits for the latency of its recurrences.
template <class... Sum>
Values evaluate(const Complex* p, const Complex* h, Index n, const Point& at, Sum&... sums)
{
    HornerSum ps{Vector(p), at.x, at.outside ? 0.0 : 1.0}, hs{Vector(h), at.x, 0.0};
    if (at.outside) {
        horner_upwards(1, n, ps, hs, sums...);
        ps.add(1.0);
        (sums.add(1.0), ...);
    } else {
        horner_downwards(n, ps, hs, sums...);
    }
    return {ps.value, hs.value};
}

/// H := (p - t H) / (z - s), t = p(s) / H(s), by synthetic division from the top. Returns the new H(s): its Horner sum
/// takes the coefficients as they appear.
Complex divide_downwards(Vector<const Complex> p, Vector<Complex> h, Index n, const Point& at, const Values& values)
{
    const Complex t = divide_extended(values.p, values.h);
    HornerSum sum{Vector<const Complex>(h.from(1)), at.s, 0.0};
    Complex b = 1.0;
    for (Index k = n; k >= 2; --k) {
        const Complex c = p(k) - multiply(t, h(k));
        h(k) = b;
        sum.add(b);
        b = multiply(at.s, b) + c;
    }
    h(1) = b;
    sum.add(b);
    return sum.value;
}

/// The same quotient for |s| > 1, from the constant term up, where the division by s = 1 / w keeps errors small; with
/// the scaled values t w = values.p / values.h. Returns the new H(s) / s^(n-1).
Complex divide_upwards(Vector<const Complex> p, Vector<Complex> h, Index n, const Point& at, const Values& values)
{
    const Complex w = at.x, tw = divide_extended(values.p, values.h);
    HornerSum sum{Vector<const Complex>(h.from(1)), w, 0.0};
    Complex b = 0.0;
    for (Index k = 1; k < n; ++k) {
        b = multiply(w, b - p(k)) + multiply(tw, h(k));
        h(k) = b;
        sum.add(b);
    }
    h(n) = 1.0;
    sum.add(1.0);
    return sum.value;
}

/// One H-step at a point, given the values there. `values` becomes those of the H that was divided by, should a zero
/// H(s) have made it shift up. Returns the new H(s).
Complex h_step(const Complex* p, Complex* h, Index n, const Point& at, Values& values)
{
    // H := z H cut to degree n - 1, until H(s) is not zero. After n turns H is zero and its quotient NaN.
    for (Index turn = 1; turn <= n && abs1(values.h) == 0.0; ++turn) {
        std::copy_backward(h, h + n - 1, h + n);
        h[0] = 0.0;
        values = evaluate(p, h, n, at);
    }
    const Vector<const Complex> ps(p);
    const Vector<Complex> hs(h);
    return at.outside ? divide_upwards(ps, hs, n, at, values) : divide_downwards(ps, hs, n, at, values);
}

/// Shifts zeros at the origin to the high end of Z while the degree exceeds 2. Returns the degree that is left.
Index remove_zeros_at_origin(Vector<Complex> z, Index n)
{
    for (; n > 2 && abs1(z(1)) == 0.0; --n) {
        std::copy(z.from(2), z.from(n + 1), z.from(1));
        z(n) = 0.0;
    }
    return n;
}

/// Divides z - s out of p, from the leading coefficient; the remainder is dropped. s takes the place that becomes free.
void deflate(Vector<Complex> p, Index n, const Complex& s)
{
    Complex b = 1.0;
    for (Index k = n; k >= 2; --k) {
        const Complex next = multiply(s, b) + p(k);
        p(k) = b;
        b = next;
    }
    p(1) = b;
    p(n) = s;
}

/// The work arrays of a call, for a polynomial of degree n and circles of `most` samples.
struct SearchArrays
{
    WorkArena& arena;
    Index n, most;

    Complex* h = arena.take(n);
    Complex* saved = arena.take(n);                                   ///< H behind the last no-shift stage
    Complex* mantissas = arena.take(n + 1);                           ///< of the terms of p on a circle
    Real* exponents = reinterpret_cast<Real*>(arena.take(n / 2 + 1)); ///< the same, n + 1
    Complex* samples = arena.take(most);
    Complex* roots = arena.take(most / 2); ///< table of the Fourier transform

    /// No fewer elements than the arrays take.
    static std::size_t extent(Index n, Index most)
    {
        constexpr Index padding = 6 * WorkArena::kLine;
        return static_cast<std::size_t>(4 * n + most + most / 2 + padding);
    }
};

/// The search for one zero of p, of degree n >= 3 and with a constant term that is not zero.
class Search
{
public:
    Search(const Complex* p, Index n, const SearchArrays& work, FourierTransform& transform, Complex& turn)
        : p_(p), n_(n), work_(work), transform_(transform), turn_(turn), tolerance_(static_cast<Real>(n) * kEpsilon)
    {}

    /// The zero, or nothing if the limit on passes is met or the values are not finite.
    std::optional<Complex> find()
    {
        if (!set_up())
            return std::nullopt;
        Index samples = kSamplesBefore;
        for (Index pass = 1; pass <= kUnlimitedPasses || samples <= kSamplesPerDegree * n_; ++pass) {
            samples *= 2;
            no_shift_stage();
            const Point shift(smallest_on_circle(samples));
            switch (variable_shift_stage(shift, fixed_shift_stage(shift))) {
            case Outcome::found:
                return zero_;
            case Outcome::failed:
                return std::nullopt;
            case Outcome::restart:
                break;
            }
        }
        return std::nullopt;
    }

private:
    enum class Outcome
    {
        found,
        restart,
        failed
    };

    /// H := p' / n, radius := |p(0)|^(1/n), the geometric mean of the moduli of the zeros. False if p is not finite.
    bool set_up()
    {
        const Vector<const Complex> p(p_);
        const Vector<Complex> h(work_.saved);
        const Extended inverse_degree = 1.0L / static_cast<Extended>(n_);
        for (Index k = 1; k < n_; ++k) {
            const Extended factor = static_cast<Extended>(k) * inverse_degree;
            h(k) = Complex(static_cast<Real>(factor * p(k + 1).real()), static_cast<Real>(factor * p(k + 1).imag()));
        }
        h(n_) = 1.0;
        log_constant_ = logarithm(modulus(p(1)));
        log_radius_ = log_constant_ / static_cast<Real>(n_);
        return std::all_of(p_, p_ + n_, [](const Complex& a) { return std::isfinite(abs1(a)); });
    }

    /// Steps H := (p - p(0)/H(0) H) / z: 10 in the first pass, and in every other as many as brings the count of the
    /// search to twice what it was. The small zeros come to dominate H, and every step bounds their size:
    ///
    ///     g_k = g_(k-1)^(1-1/k) |p(0)/H_k(0)|^(1/k),    radius <= g_k n^(1/k).
    ///
    /// Logarithms keep the means from overflow. The result is saved for the next pass to go on from.
    void no_shift_stage()
    {
        const Vector<const Complex> p(p_);
        const Vector<Complex> h(work_.saved);
        const Real log_degree = logarithm(static_cast<Real>(n_));
        const Index end = next_step_ + steps_;
        for (Index k = next_step_; k < end; ++k) {
            const Real weight = 1.0 / static_cast<Real>(k);
            log_mean_ *= 1.0 - weight;
            if (abs1(h(1)) == 0.0) { // a step of its own: H := H / z
                std::copy(h.from(2), h.from(n_ + 1), h.from(1));
                h(n_) = 0.0;
                continue;
            }
            const Real log_quotient = log_constant_ - logarithm(modulus(h(1)));
            log_radius_ = std::min(log_radius_, log_mean_ + weight * (log_degree + log_quotient));
            log_mean_ += weight * log_quotient;

            const Complex t = divide_extended(p(1), h(1));
            for (Index j = 1; j < n_; ++j)
                h(j) = p(j + 1) - multiply(t, h(j + 1));
            h(n_) = 1.0;
        }
        next_step_ = steps_ = end;
        std::copy_n(work_.saved, n_, work_.h);
    }

    /// Of m equally spaced points of the circle the one at which p is smallest; the later one on a tie.
    Complex smallest_on_circle(Index m)
    {
        radius_ = exponential(log_radius_);
        radius_bound_ = tolerance_ * circle_bound<Extended>(p_, n_, radius_);
        const Complex start = multiply(radius_, turn_);
        Complex* const sample = work_.samples;
        fold_terms(start, sample, m);
        transform_(sample, m);

        Index smallest = 0;
        Complex root = 1.0;
        Real size = std::numeric_limits<Real>::infinity();
        for (Index place = 0; place < m; ++place) {
            const Real candidate = abs1(sample[place]);
            if (candidate > size)
                continue;
            const Index k = FourierTransform::bit_reversed(place, m);
            if (candidate < size || (candidate == size && k > smallest)) { // of equal samples the later one
                size = candidate;
                smallest = k;
                root = transform_.root(place);
            }
        }

        // The next circle starts a quarter of the spacing further on.
        const Complex turned = multiply(turn_, transform_.quarter_step(m));
        turn_ = turned / modulus(turned);
        return multiply(start, root);
    }

    /// sample(l) := sum of the terms p(k) start^k with k = l modulo m. Their common scale 65536^e is left out:
    /// mantissas and exponents are kept apart until the largest exponent is known.
    void fold_terms(const Complex& start, Complex* sample, Index m)
    {
        const Table<Complex> mantissa(work_.mantissas);
        const Table<Real> exponent(work_.exponents);
        const Scaled factor = scale(start, kBase, kInverseBase);
        Scaled power{1.0, 0.0};
        Real largest = -std::numeric_limits<Real>::infinity();
        for (Index k = 0; k <= n_; ++k) {
            const Scaled a = scale(k < n_ ? p_[k] : Complex(1.0), kBase, kInverseBase);
            mantissa(k) = multiply(a.mantissa, power.mantissa);
            exponent(k) = a.exponent + power.exponent;
            largest = std::max(largest, exponent(k));

            const Scaled next = scale(multiply(power.mantissa, factor.mantissa), kBase, kInverseBase);
            power = {next.mantissa, next.exponent + power.exponent + factor.exponent};
        }

        std::fill_n(sample, m, Complex(0.0));
        for (Index k = 0; k <= n_; ++k)
            if (const Real below = exponent(k) - largest; below >= kLowestExponent)
                sample[k & (m - 1)] += multiply(std::ldexp(1.0, kBaseBits * static_cast<int>(below)), mantissa(k));
    }

    /// Five H-steps at the same shift. Returns the values there.
    Values fixed_shift_stage(const Point& shift)
    {
        Values values = evaluate(p_, work_.h, n_, shift);
        for (Index step = 1; step <= kFixedSteps; ++step)
            values.h = h_step(p_, work_.h, n_, shift, values);
        return values;
    }

    /// H-steps at shifts s := s - p(s)/H(s), until s is accepted as a zero or the steps no longer shrink.
    Outcome variable_shift_stage(Point at, Values values)
    {
        Real last = 0.0, before_last = 0.0; // step lengths
        Index stalled = 0;                  // how many successive ones were zero
        for (Index step = 1; step <= kVariableSteps; ++step) {
            values.h = h_step(p_, work_.h, n_, at, values);
            if (abs1(values.h) == 0.0)
                return Outcome::restart;
            const Complex quotient = divide_extended(values.p, values.h);
            const Point next(at.s - (at.outside ? multiply(at.s, quotient) : quotient));
            const Real length = abs1(next.s - at.s);
            stalled = length == 0.0 ? stalled + 1 : 0;
            if (std::isnan(length) || stalled == kStalledSteps)
                return Outcome::failed;

            HornerSizeSum<Extended> bound{Vector(p_), next.radius, 1.0L};
            if (next.outside)
                bound = {Vector(p_), 1.0L / next.radius, 0.0L};
            values = evaluate(p_, work_.h, n_, next, bound);
            if (is_zero(next, abs1(values.p), bound.value)) {
                zero_ = next.s;
                return Outcome::found;
            }

            const Real recent = last + before_last;
            if ((step >= 3 && 0.5 * length > recent) || (step >= 5 && 4.0 * length > recent))
                return Outcome::restart;
            before_last = last;
            last = length;
            at = next;
        }
        return Outcome::failed;
    }

    /// Whether |p(s)| is no more than rounding may have made of zero. Outside the unit circle size and bound are those
    /// divided by s^n. Inside the sampled circle the bound of the circle, which is larger, must hold first.
    bool is_zero(const Point& at, Real size, Extended bound) const
    {
        const Real r = std::max(1.0, at.radius);
        if (r <= radius_ && size > radius_bound_) { // a size within the bound holds without the logarithms
            const Real excess = static_cast<Real>(n_) * logarithm(std::max(1.0, radius_) / r) +
                                logarithm(static_cast<Real>(radius_bound_ / size));
            if (excess < 0.0)
                return false;
        }
        return size <= tolerance_ * bound;
    }

    const Complex* p_;
    Index n_;
    const SearchArrays& work_;
    FourierTransform& transform_;
    Complex& turn_; // where the circle's samples start; turned further with every circle of the call
    Real tolerance_;

    Index next_step_ = 1, steps_ = kFirstSteps; // of the no-shift stage
    Real log_constant_ = 0.0;                   // log |p(0)|
    Real log_mean_ = 0.0;                       // log g_k
    Real log_radius_ = 0.0, radius_ = 0.0;
    Extended radius_bound_ = 0.0L; // rounding bound of p on the circle, divided by radius^n if that exceeds 1
    Complex zero_;
};

} // namespace

extern "C" void NAPACK_CZERO(Complex* Z, const Complex* Coef, const Integer& N, Complex* W, Integer& ErrorFlag,
                             char* ErrorMessage, CharLen ErrorMessageLength)
{
    const Status status{ErrorFlag, ErrorMessage, ErrorMessageLength};
    const Index degree = N;
    const Vector<Complex> z(Z);

    W[0] = Complex(static_cast<Real>(degree), 0.0);
    if (degree <= 1) {
        z(1) = -Coef[0];
        return status.succeed();
    }

    // Z(1..n) is the polynomial that is left, Z(n+1..N) holds the zeros found.
    std::copy_n(Coef, degree, Z);
    Index n = remove_zeros_at_origin(z, degree);
    if (n > 2) {
        const Index most = most_samples(n);
        WorkArena arena(SearchArrays::extent(n, most));
        if (!arena)
            return status.fail("Sub NAPACK_CZERO: work storage not available !");
        const SearchArrays work{arena, n, most};
        FourierTransform transform(work.roots);
        Complex turn = 1.0;
        while (n > 2) {
            const std::optional<Complex> zero = Search(Z, n, work, transform, turn).find();
            if (!zero)
                return status.fail("Sub NAPACK_CZERO: too many iterations necessary !");
            deflate(z, n, *zero);
            n = remove_zeros_at_origin(z, n - 1);
        }
    }
    solve_quadratic(z(2), z(1));
    status.succeed();
}

extern "C" void HStep(const Complex* P, Complex* H, const Integer& n, Complex& value, const Complex& s, const Real& r)
{
    const Point at(s, r);
    Values values = evaluate(P, H, n, at);
    h_step(P, H, n, at, values);
    value = values.p;
}

} // namespace tessel
