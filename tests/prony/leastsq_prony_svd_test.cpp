#include "prony/leastsq_prony_svd.h"

#include "tests/support/message.h"
#include "tests/support/plain_fit.h"
#include "tests/support/random.h"
#include "tests/support/sanitized.h"
#include "tests/support/signals.h"

#include <cstring>
#include <functional>
#include <limits>
#include <ostream>
#include <string>

namespace tessel::testing {
namespace {

constexpr char kOutOfBounds[] = "Sub LEASTSQ_PRONY_SVD: input parameters out of bounds !";
constexpr char kNoStorage[] = "Sub LEASTSQ_PRONY_SVD: work storage not available !";
constexpr Complex kSentinel(-7.25, 3.5);
constexpr Real kNaN = std::numeric_limits<Real>::quiet_NaN();
constexpr Real kInf = std::numeric_limits<Real>::infinity();

/// One fit, with outputs that carry sentinels before and behind what may be written.
struct Fit
{
    Fit(std::vector<Complex> samples, Real spacing, Integer order)
        : n(static_cast<Integer>(samples.size())),
          ndim(n),
          m(order),
          mmax(order),
          dt(spacing),
          y(std::move(samples)),
          poles(room(), kSentinel),
          residues(room(), kSentinel)
    {}
    Fit(const Signal& signal, Integer order) : Fit(signal.y, signal.dt, order) {}

    void call(Integer& error_flag, char* text, CharLen length)
    {
        LEASTSQ_PRONY_SVD(&n, &ndim, y.data(), &dt, &m, &mmax, residues.data(), poles.data(), &measures[0],
                          &measures[1], &measures[2], &measures[3], &measures[4], &error_flag, text, length);
    }
    /// Runs the fit and keeps flag and message; the lists are cut to the order if it succeeds.
    Fit& run()
    {
        Message text;
        call(flag, text.data(), text.length());
        message = text.text();
        EXPECT_EQ(flag == 0, message == padded("")) << message;
        for (std::size_t j = m > 0 ? static_cast<std::size_t>(m) : 0; j < poles.size(); ++j)
            EXPECT_TRUE(poles[j] == kSentinel && residues[j] == kSentinel) << "element " << j << " is beyond M";
        if (flag == 0) {
            poles.resize(static_cast<std::size_t>(m));
            residues.resize(static_cast<std::size_t>(m));
        }
        return *this;
    }
    bool nothing_written() const
    {
        const auto is_sentinel = [](const Complex& z) { return z == kSentinel; };
        return std::all_of(poles.begin(), poles.end(), is_sentinel) &&
               std::all_of(residues.begin(), residues.end(), is_sentinel) &&
               std::all_of(std::begin(measures), std::end(measures), [](Real x) { return x == -1.0; });
    }
    std::size_t room() const { return static_cast<std::size_t>(std::max(m, 0)) + 4; }
    Complex z(std::size_t j) const { return std::exp(poles[j] * dt); }
    Real l2() const { return measures[0]; }

    Integer n, ndim, m, mmax, flag = 77;
    Real dt;
    std::vector<Complex> y, poles, residues;
    Real measures[5] = {-1.0, -1.0, -1.0, -1.0, -1.0}; // L2, RMS, peak, RMS to mean, peak to mean
    std::string message;
};

/// Equal to the bit, NaNs included.
bool same_bits(const std::vector<Complex>& a, const std::vector<Complex>& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(Complex)) == 0;
}

struct KnownCase
{
    const char* name;
    Signal (*make)();
    Integer m;
    Real worst_pole; // relative
    Real worst_l2;

    friend void PrintTo(const KnownCase& test, std::ostream* out) { *out << test.name; }
};

class KnownSignal : public ::testing::TestWithParam<KnownCase>
{};

TEST_P(KnownSignal, IsRecovered)
{
    const KnownCase& test = GetParam();
    const Signal signal = test.make();
    const Fit fit = Fit(signal, test.m).run();
    ASSERT_EQ(fit.flag, 0);
    const Real error = worst_pole_error(signal.poles, fit.poles);
    RecordProperty("worst_pole_error", ::testing::PrintToString(error));
    EXPECT_LE(error, test.worst_pole);
    EXPECT_LE(fit.l2(), test.worst_l2);
    EXPECT_TRUE(same_bits(fit.y, signal.y)) << "the samples are not modified";
}

INSTANTIATE_TEST_SUITE_P(Prony, KnownSignal,
                         ::testing::Values(KnownCase{"lanczos1", lanczos1, 3, 2e-8, 1e-11},
                                           KnownCase{"lanczos2", lanczos2, 3, 2e-3, 5e-6},
                                           KnownCase{"fifteen_modes_15", fifteen_modes, 15, 5e-8, 5e-7},
                                           KnownCase{"fifteen_modes_30", fifteen_modes, 30, 2e-11, 1e-12},
                                           KnownCase{"four_cosines_8", four_cosines, 8, 1e-10, 1e-10},
                                           KnownCase{"four_cosines_20", four_cosines, 20, 1e-13, 1e-13},
                                           KnownCase{"yee_20", [] { return yee_cavity(0.9); }, 20, 1e-10, 1e-11},
                                           KnownCase{"yee_24", [] { return yee_cavity(0.9); }, 24, 1e-12, 1e-12}),
                         [](const auto& test) { return std::string(test.param.name); });

/// No three-term model of the data is better than the certified one, and the two-stage fit is not far from it.
TEST(Prony, ApproachesTheCertifiedResidual)
{
    const Fit fit = Fit(lanczos2(), 3).run();
    ASSERT_EQ(fit.flag, 0);
    Real sse = 0.0;
    for (std::size_t k = 0; k < fit.y.size(); ++k) {
        Complex model = 0.0;
        for (std::size_t j = 0; j < 3; ++j)
            model += fit.residues[j] * std::exp(fit.poles[j] * (static_cast<Real>(k) * fit.dt));
        sse += std::norm(model - fit.y[k]);
    }
    EXPECT_GE(sse, kLanczos2Floor);
    EXPECT_LE(sse, 20.0 * kLanczos2Floor);

    // The way over the orders is known, and not monotone.
    const Real known[] = {7.728641e-4, 3.802892e-6, 7.899436e-6, 6.881080e-7, 3.614238e-7};
    for (Integer m = 2; m <= 6; ++m)
        EXPECT_NEAR(Fit(lanczos2(), m).run().l2() / known[m - 2], 1.0, 1e-2) << "order " << m;
}

TEST(Prony, SmallestFitIsExact)
{
    const Fit fit = Fit({1.0, 0.5}, 2.0, 1).run(); // N = 2 M
    ASSERT_EQ(fit.flag, 0);
    EXPECT_NEAR(fit.poles[0].real(), std::log(0.5) / 2.0, 1e-15);
    EXPECT_NEAR(std::abs(fit.residues[0] - 1.0), 0.0, 1e-15);

    const Signal square = make_signal({Complex(-0.1, 1.0), Complex(-0.3, -0.5)}, {2.0, Complex(0.0, 1.0)}, 1.0, 4);
    EXPECT_LE(worst_pole_error(square.poles, Fit(square, 2).run().poles), 1e-13);
}

/// The five measures by their definitions, from the model that the poles and residues make.
TEST(Prony, MeasuresFollowTheirDefinitions)
{
    Random random(5);
    Signal signal = four_cosines();
    for (Complex& sample : signal.y)
        sample += 1e-2 * random.complex();
    const Fit fit = Fit(signal, 12).run();
    ASSERT_EQ(fit.flag, 0);
    Real sse = 0.0, peak = 0.0, sum = 0.0, square = 0.0, top = 0.0;
    for (std::size_t k = 0; k < fit.y.size(); ++k) {
        Complex model = 0.0;
        for (std::size_t j = 0; j < fit.poles.size(); ++j)
            model += fit.residues[j] * std::pow(fit.z(j), static_cast<Real>(k));
        const Real error = std::abs(model - fit.y[k]), size = std::abs(fit.y[k]);
        sse += error * error;
        peak = std::max(peak, error);
        sum += size;
        square += size * size;
        top = std::max(top, size);
    }
    const Real n = fit.n;
    const Real expected[] = {std::sqrt(sse / square), std::sqrt(sse / n) / top, peak / top, std::sqrt(sse * n) / sum,
                             n * peak / sum};
    for (int i = 0; i < 5; ++i)
        EXPECT_NEAR(fit.measures[i] / expected[i], 1.0, 1e-9) << "measure " << i;
    EXPECT_LE(fit.measures[1], fit.measures[0]);
    EXPECT_LE(fit.measures[0], fit.measures[3]);
    EXPECT_LE(fit.measures[2], fit.measures[4]);
    EXPECT_LE(fit.measures[1], fit.measures[2]);
    EXPECT_NEAR(fit.measures[1] * top * n, fit.measures[3] * sum, 1e-12 * sum);
}

/// The residues are the least-squares solution of the Vandermonde system: V^H (V c - y) = 0.
TEST(Prony, ResiduesSolveTheNormalEquations)
{
    Random random(6);
    Signal signal = yee_cavity(0.9, 120);
    for (Complex& sample : signal.y)
        sample += 1e-3 * random.complex();
    const Fit fit = Fit(signal, 30).run();
    ASSERT_EQ(fit.flag, 0);
    std::vector<Complex> error(fit.y.size());
    Real size = 0.0;
    for (std::size_t k = 0; k < error.size(); ++k) {
        error[k] = -fit.y[k];
        size += std::norm(fit.y[k]);
        for (std::size_t j = 0; j < fit.poles.size(); ++j)
            error[k] += fit.residues[j] * std::pow(fit.z(j), static_cast<Real>(k));
    }
    for (std::size_t j = 0; j < fit.poles.size(); ++j) {
        Complex product = 0.0;
        Real norm = 0.0;
        for (std::size_t k = 0; k < error.size(); ++k) {
            const Complex power = std::pow(fit.z(j), static_cast<Real>(k));
            product += std::conj(power) * error[k];
            norm += std::norm(power);
        }
        EXPECT_LE(std::abs(product), 1e-10 * std::sqrt(norm * size)) << "pole " << j;
    }
}

/// What a change of the samples does to poles z and residues c, whatever the signal.
TEST(Prony, FollowsTransformationsOfTheSignal)
{
    const Signal signal = make_signal({Complex(-0.05, 0.9), Complex(-0.2, -1.3), Complex(-0.01, 0.1)},
                                      {1.0, Complex(0.5, -2.0), Complex(0.0, 0.25)}, 1.0, 40);
    const Fit original = Fit(signal, 3).run();
    ASSERT_EQ(original.flag, 0);

    using Map = std::function<Complex(const Complex&, std::size_t)>;
    const auto expect = [&](const char* what, const Signal& changed, const Map& pole, const Map& residue) {
        const Fit fit = Fit(changed, 3).run();
        ASSERT_EQ(fit.flag, 0) << what;
        for (std::size_t j = 0; j < 3; ++j) {
            const Complex expected = pole(original.poles[j], j);
            const auto nearest = std::min_element(fit.poles.begin(), fit.poles.end(), [&](Complex a, Complex b) {
                return std::abs(a - expected) < std::abs(b - expected);
            });
            EXPECT_LE(std::abs(*nearest - expected), 1e-11) << what;
            const Complex found = fit.residues[static_cast<std::size_t>(nearest - fit.poles.begin())];
            EXPECT_LE(std::abs(found - residue(original.residues[j], j)), 1e-10) << what;
        }
    };
    const Map same = [](const Complex& value, std::size_t) { return value; };
    Signal changed = signal;
    const Complex alpha(0.3, -1.7);
    for (Complex& y : changed.y)
        y *= alpha;
    expect("scaled", changed, same, [&](const Complex& c, std::size_t) { return alpha * c; });

    changed = signal;
    changed.dt = 0.25;
    expect(
        "other spacing", changed, [](const Complex& s, std::size_t) { return 4.0 * s; }, same);

    changed = signal;
    for (std::size_t k = 0; k < changed.y.size(); ++k)
        changed.y[k] *= std::polar(1.0, 0.4 * static_cast<Real>(k));
    expect(
        "modulated", changed, [](const Complex& s, std::size_t) { return s + Complex(0.0, 0.4); }, same);

    changed = signal;
    for (Complex& y : changed.y)
        y = std::conj(y);
    const Map conjugate = [](const Complex& value, std::size_t) { return std::conj(value); };
    expect("conjugated", changed, conjugate, conjugate);

    changed = signal;
    changed.y.erase(changed.y.begin(), changed.y.begin() + 5);
    expect("later start", changed, same,
           [&](const Complex& c, std::size_t j) { return c * std::exp(5.0 * original.poles[j]); });

    changed = signal;
    changed.y.clear();
    for (std::size_t k = 0; k < signal.y.size(); k += 2)
        changed.y.push_back(signal.y[k]);
    changed.dt = 2.0;
    expect("every other sample", changed, same, same);
}

TEST(Prony, RefusesArgumentsOutOfBounds)
{
    const auto refused = [](const char* what, auto change) {
        Fit fit(lanczos1(), 3);
        change(fit);
        expect_status(-1, kOutOfBounds,
                      [&](Integer& flag, char* text, CharLen length) { fit.call(flag, text, length); });
        EXPECT_TRUE(fit.nothing_written()) << what;
    };
    refused("N < 2", [](Fit& fit) { fit.n = 1; });
    refused("N > NDIM", [](Fit& fit) { fit.ndim = fit.n - 1; });
    refused("DT below the least", [](Fit& fit) { fit.dt = 9.99999e-103; });
    refused("DT zero", [](Fit& fit) { fit.dt = 0.0; });
    refused("DT negative", [](Fit& fit) { fit.dt = -1.0; });
    refused("M < 1", [](Fit& fit) { fit.m = 0; });
    refused("M > MMAX", [](Fit& fit) { fit.mmax = fit.m - 1; });
    refused("2 M > N", [](Fit& fit) { fit.n = 5; });
    refused("2 M beyond 32 bits", [](Fit& fit) { fit.m = fit.mmax = 2000000000; });
    refused("bounds before storage", [](Fit& fit) { fit.n = 1, fit.ndim = fit.mmax = 2147483647; });
}

TEST(Prony, TakesArgumentsAtTheirBounds)
{
    Fit smallest(lanczos1(), 3);
    smallest.dt = 1e-102;
    EXPECT_EQ(smallest.run().flag, 0);

    Fit not_a_number(lanczos1(), 3);
    not_a_number.dt = kNaN;
    ASSERT_EQ(not_a_number.run().flag, 0);
    EXPECT_TRUE(std::isnan(not_a_number.poles[0].real()));
}

TEST(Prony, SaysWhenWorkStorageCannotBeHad)
{
    std::vector<Integer> extents = {2000000000, 2147483647};
    if (!kSanitized) // whose allocator ends the process instead
        extents.push_back(100000000);
    for (const Integer extent : extents) {
        Fit fit(lanczos1(), 3);
        fit.ndim = fit.mmax = extent;
        expect_status(-1, kNoStorage, [&](Integer& flag, char* text, CharLen length) { fit.call(flag, text, length); });
        EXPECT_TRUE(fit.nothing_written());
    }
}

/// The limit on the order is that of the back-substitution, which comes after the first decomposition.
TEST(Prony, RefusesMoreThanFiveThousandExponentials)
{
    Fit fit(std::vector<Complex>(10002, 0.0), 1.0, 5001);
    fit.run();
    EXPECT_EQ(fit.message, padded("Sub RECIPES_SVBKSB: input parameters out of bounds !"));
    EXPECT_TRUE(fit.nothing_written());
}

/// Declared lengths size the storage and change no bit; nor does what was fitted before.
TEST(Prony, DependsOnItsSamplesAlone)
{
    const Fit tight = Fit(four_cosines(), 12).run();
    Fit roomy(four_cosines(), 12);
    roomy.ndim = 8 * roomy.n;
    roomy.mmax = 8 * roomy.m;
    ASSERT_EQ(roomy.run().flag, 0);
    EXPECT_TRUE(same_bits(tight.poles, roomy.poles) && same_bits(tight.residues, roomy.residues));

    (void)Fit(fifteen_modes(), 30).run();
    const Fit again = Fit(four_cosines(), 12).run();
    EXPECT_TRUE(same_bits(tight.poles, again.poles) && same_bits(tight.residues, again.residues));
}

/// Shared passes, the model taken from the kept product and the fast decomposition change no bit.
TEST(Prony, HasTheBitsOfThePlainFit)
{
    Random random(31);
    Signal noisy = four_cosines();
    for (Complex& sample : noisy.y)
        sample += 1e-3 * random.complex();
    Signal two_passes; // of the second stage: the later one leaves out more and is worse
    for (int k = 0; k < 17; ++k)
        two_passes.y.push_back(1e12 * std::pow(0.5, k) + std::pow(10.0, k));
    const struct
    {
        Signal signal;
        std::vector<Integer> orders;
    } cases[] = {{lanczos1(), {1, 2, 3, 5, 12}},
                 {lanczos2(), {3, 8, 12}},
                 {fifteen_modes(), {15, 30, 64}},
                 {four_cosines(), {8, 20, 60, 125}},
                 {noisy, {8, 60}},
                 {yee_cavity(0.9), {20, 24, 100}},
                 {two_passes, {2}}};
    for (const auto& test : cases)
        for (const Integer m : test.orders) {
            const Fit fit = Fit(test.signal, m).run();
            std::vector<Complex> residues(static_cast<std::size_t>(m)), poles(residues);
            Real measures[5] = {};
            const bool good = plain_fit(fit.n, fit.y.data(), fit.dt, m, residues.data(), poles.data(), measures);
            ASSERT_TRUE(good && fit.flag == 0) << m;
            EXPECT_TRUE(same_bits(fit.poles, poles) && same_bits(fit.residues, residues)) << m;
            EXPECT_EQ(std::memcmp(fit.measures, measures, sizeof measures), 0) << m;
        }
}

/// Samples 1, 0, t, t at order 2: the matrix has the singular values 1 and t, exactly. With both, z^2 - z - t.
TEST(Prony, KeepsASingularValueEqualToTheThreshold)
{
    const Fit kept = Fit({1.0, 0.0, 5e-17, 5e-17}, 1.0, 2).run();
    ASSERT_EQ(kept.flag, 0);
    EXPECT_LE(std::min(std::abs(kept.poles[0]), std::abs(kept.poles[1])), 1e-15);

    const Real below = std::nextafter(5e-17, 0.0);
    const Fit dropped = Fit({1.0, 0.0, below, below}, 1.0, 2).run();
    ASSERT_EQ(dropped.flag, 0);
    EXPECT_GE(std::min(std::abs(dropped.poles[0]), std::abs(dropped.poles[1])), 1.0);
}

TEST(Prony, KeepsASingularValueThatIsNotANumber)
{
    const Fit fit = Fit({kNaN, 1.0}, 1.0, 1).run();
    ASSERT_EQ(fit.flag, 0);
    EXPECT_TRUE(std::isnan(fit.poles[0].real()));
    EXPECT_EQ(fit.measures[2], 0.0) << "a NaN is never the maximum";
}

TEST(Prony, AllZeroSamplesAreNotAFailure)
{
    const Fit fit = Fit(std::vector<Complex>(12, 0.0), 1.0, 3).run();
    ASSERT_EQ(fit.flag, 0);
    for (const Real measure : fit.measures)
        EXPECT_TRUE(std::isnan(measure));
    for (const Complex& residue : fit.residues)
        EXPECT_EQ(residue, Complex(0.0));
}

TEST(Prony, AnImpulseHasItsZeroAtTheOrigin)
{
    const Real dt = 0.5;
    const Fit fit = Fit({1.0, 0.0, 0.0, 0.0}, dt, 1).run();
    ASSERT_EQ(fit.flag, 0);
    EXPECT_EQ(fit.poles[0].real(), -kInf);
    EXPECT_EQ(std::fabs(fit.poles[0].imag()), std::numbers::pi / dt);
}

/// Growing exponentials whose powers leave the range of the numbers in stage 2: the poles stand, the rest is untouched.
TEST(Prony, KeepsThePolesWhenTheSecondStageFails)
{
    std::vector<Complex> y;
    for (int k = 0; k < 30; ++k)
        y.push_back(std::pow(10.0, 11.0 * k - 170.0) + std::pow(-3.0, k));
    Fit fit(y, 1.0, 2);
    fit.run();
    EXPECT_EQ(fit.flag, -1);
    EXPECT_EQ(fit.message, padded("Sub SLATEC_CSVDC: not all singular values are correct !"));
    EXPECT_FALSE(fit.poles[0] == kSentinel || fit.poles[1] == kSentinel);
    EXPECT_EQ(fit.residues[0], kSentinel);
    EXPECT_EQ(fit.l2(), -1.0);
}

TEST(Prony, ReturnsWhateverTheSamples)
{
    const Real special[] = {kNaN, kInf, -kInf, 1e300, 1e-170, 1e-310, 1e155, 0.0};
    // each special value alone, in each position, the last included, which never enters the first matrix
    for (const Real value : special)
        for (std::size_t position = 0; position < 24; ++position) {
            Fit fit(lanczos1(), 3);
            fit.y[position] = value;
            EXPECT_NE(fit.run().flag, 77);
        }
    Random random(23);
    for (int turn = 0; turn < 3000; ++turn) {
        const Integer m = 1 + random.below(6);
        std::vector<Complex> y(static_cast<std::size_t>(2 * m + random.below(8)));
        const Real rate = random.uniform(), spread = random.uniform() < 0.5 ? 0.0 : 150.0;
        for (Complex& sample : y)
            sample = random.uniform() < rate * 0.5 ? Complex(special[random.below(8)], random.uniform())
                                                   : std::pow(10.0, random.uniform(-spread, spread)) * random.complex();
        EXPECT_NE(Fit(y, 1.0, m).run().flag, 77);
    }
}

} // namespace
} // namespace tessel::testing
