#include "prony/leastsq_prony_svd.h"

#include "tests/support/message.h"
#include "tests/support/plain_fit.h"
#include "tests/support/random.h"
#include "tests/support/sanitized.h"
#include "tests/support/signals.h"

#include <cstring>
#include <limits>
#include <string>

namespace tessel::testing {
namespace {

constexpr char kOutOfBounds[] = "Sub LEASTSQ_PRONY_SVD: input parameters out of bounds !";
constexpr char kNoStorage[] = "Sub LEASTSQ_PRONY_SVD: work storage not available !";
constexpr Complex kSentinel(-7.25, 3.5);
constexpr Real kNaN = std::numeric_limits<Real>::quiet_NaN();

/// One fit; `message` is what it said.
struct Fit
{
    Fit(std::vector<Complex> samples, Real spacing, Integer order)
        : n(static_cast<Integer>(samples.size())),
          ndim(n),
          m(order),
          mmax(order),
          dt(spacing),
          y(std::move(samples)),
          poles(static_cast<std::size_t>(order), kSentinel),
          residues(poles)
    {}
    Fit(const Signal& signal, Integer order) : Fit(signal.y, signal.dt, order) {}

    Fit& run()
    {
        message = status_of([&](Integer& flag, char* text, CharLen length) {
            LEASTSQ_PRONY_SVD(&n, &ndim, y.data(), &dt, &m, &mmax, residues.data(), poles.data(), &measures[0],
                              &measures[1], &measures[2], &measures[3], &measures[4], &flag, text, length);
        });
        return *this;
    }
    /// Model less sample, for every sample.
    std::vector<Complex> errors() const
    {
        std::vector<Complex> error(y.size());
        for (std::size_t k = 0; k < y.size(); ++k) {
            for (std::size_t j = 0; j < poles.size(); ++j)
                error[k] += residues[j] * std::exp(poles[j] * (static_cast<Real>(k) * dt));
            error[k] -= y[k];
        }
        return error;
    }

    Integer n, ndim, m, mmax;
    Real dt;
    std::vector<Complex> y, poles, residues;
    Real measures[5] = {-1.0, -1.0, -1.0, -1.0, -1.0}; // L2, RMS, peak, RMS to mean, peak to mean
    std::string message;
};

TEST(Prony, RecoversKnownSignals)
{
    const struct
    {
        const char* name;
        Signal signal;
        Integer m;
        Real worst_pole; // relative
        Real worst_l2;
    } cases[] = {
        {"two samples", make_signal({-0.5}, {1.0}, 2.0, 2), 1, 1e-15, 1e-15},
        {"N = 2 M", make_signal({Complex(-0.1, 1.0), Complex(-0.3, -0.5)}, {2.0, 1.0}, 1.0, 4), 2, 1e-13, 1e-13},
        {"lanczos1", lanczos1(), 3, 2e-8, 1e-11},
        {"lanczos2", lanczos2(), 3, 2e-3, 5e-6},
        {"fifteen modes, 15", fifteen_modes(), 15, 5e-8, 5e-7},
        {"fifteen modes, 30", fifteen_modes(), 30, 2e-11, 1e-12},
        {"four cosines, 8", four_cosines(), 8, 1e-10, 1e-10},
        {"four cosines, 20", four_cosines(), 20, 1e-13, 1e-13},
        {"Yee cavity, 20", yee_cavity(0.9), 20, 1e-10, 1e-11},
        {"Yee cavity, 24", yee_cavity(0.9), 24, 1e-12, 1e-12}};
    for (const auto& [name, signal, m, worst_pole, worst_l2] : cases) {
        const Fit fit = Fit(signal, m).run();
        EXPECT_EQ(fit.message, "") << name;
        EXPECT_LE(worst_pole_error(signal.poles, fit.poles), worst_pole) << name;
        EXPECT_LE(fit.measures[0], worst_l2) << name;
    }
}

/// No three-term model of the data is better than the certified one, and the two-stage fit is not far from it.
TEST(Prony, ApproachesTheCertifiedResidual)
{
    const Fit fit = Fit(lanczos2(), 3).run();
    Real sse = 0.0;
    for (const Complex& error : fit.errors())
        sse += std::norm(error);
    EXPECT_GE(sse, kLanczos2Floor);
    EXPECT_LE(sse, 20.0 * kLanczos2Floor);

    // The way over the orders is known, and not monotone.
    const Real known[] = {7.728641e-4, 3.802892e-6, 7.899436e-6, 6.881080e-7, 3.614238e-7};
    for (Integer m = 2; m <= 6; ++m)
        EXPECT_NEAR(Fit(lanczos2(), m).run().measures[0] / known[m - 2], 1.0, 1e-2) << "order " << m;
}

/// The five measures by their definitions, from the model that the poles and residues make.
TEST(Prony, MeasuresFollowTheirDefinitions)
{
    Random random(5);
    Signal signal = four_cosines();
    for (Complex& sample : signal.y)
        sample += 1e-2 * random.complex();
    const Fit fit = Fit(signal, 12).run();
    Real sse = 0.0, peak = 0.0, sum = 0.0, square = 0.0, top = 0.0;
    for (const Complex& error : fit.errors()) {
        sse += std::norm(error);
        peak = std::max(peak, std::abs(error));
    }
    for (const Complex& sample : fit.y) {
        sum += std::abs(sample);
        square += std::norm(sample);
        top = std::max(top, std::abs(sample));
    }
    const Real n = fit.n;
    const Real expected[] = {std::sqrt(sse / square), std::sqrt(sse / n) / top, peak / top, std::sqrt(sse * n) / sum,
                             n * peak / sum};
    for (int i = 0; i < 5; ++i)
        EXPECT_NEAR(fit.measures[i] / expected[i], 1.0, 1e-9) << "measure " << i;
}

/// The residues are the least-squares solution of the Vandermonde system: V^H (V c - y) = 0.
TEST(Prony, ResiduesSolveTheNormalEquations)
{
    Random random(6);
    Signal signal = yee_cavity(0.9, 120);
    for (Complex& sample : signal.y)
        sample += 1e-3 * random.complex();
    const Fit fit = Fit(signal, 30).run();
    const std::vector<Complex> errors = fit.errors();
    Real size = 0.0;
    for (const Complex& sample : fit.y)
        size += std::norm(sample);
    for (const Complex& pole : fit.poles) {
        Complex product = 0.0;
        Real norm = 0.0;
        for (std::size_t k = 0; k < errors.size(); ++k) {
            const Complex power = std::exp(pole * (static_cast<Real>(k) * fit.dt));
            product += std::conj(power) * errors[k];
            norm += std::norm(power);
        }
        EXPECT_LE(std::abs(product), 1e-10 * std::sqrt(norm * size)) << "pole " << pole;
    }
}

/// Samples y(a + b k) alpha mu^k, conjugated or not, at another spacing: what becomes of poles and residues.
TEST(Prony, FollowsTransformationsOfTheSignal)
{
    const Signal signal = make_signal({Complex(-0.05, 0.9), Complex(-0.2, -1.3), Complex(-0.01, 0.1)},
                                      {1.0, Complex(0.5, -2.0), Complex(0.0, 0.25)}, 1.0, 40);
    const struct
    {
        const char* name;
        std::size_t start, stride;
        Complex factor;
        Real modulation; // phase a sample
        bool conjugated;
        Real dt;
    } cases[] = {{"scaled", 0, 1, {0.3, -1.7}, 0.0, false, 1.0},   {"other spacing", 0, 1, 1.0, 0.0, false, 0.25},
                 {"modulated", 0, 1, 1.0, 0.4, false, 1.0},        {"conjugated", 0, 1, 1.0, 0.0, true, 1.0},
                 {"later start", 5, 1, 1.0, 0.0, false, 1.0},      {"every other sample", 0, 2, 1.0, 0.0, false, 2.0},
                 {"all at once", 3, 2, {0.0, 1.5}, 0.3, true, 0.5}};
    for (const auto& test : cases) {
        std::vector<Complex> y;
        for (std::size_t k = test.start; k < signal.y.size(); k += test.stride)
            y.push_back(test.factor * std::polar(1.0, test.modulation * static_cast<Real>(y.size())) *
                        (test.conjugated ? std::conj(signal.y[k]) : signal.y[k]));
        const Fit fit = Fit(y, test.dt, 3).run();
        for (std::size_t j = 0; j < 3; ++j) {
            Complex pole = signal.poles[j],
                    residue = signal.residues[j] * std::exp(static_cast<Real>(test.start) * pole);
            if (test.conjugated) {
                pole = std::conj(pole);
                residue = std::conj(residue);
            }
            pole = (static_cast<Real>(test.stride) * pole + Complex(0.0, test.modulation)) / test.dt;
            const auto nearest = std::min_element(fit.poles.begin(), fit.poles.end(), [&](Complex a, Complex b) {
                return std::abs(a - pole) < std::abs(b - pole);
            });
            EXPECT_LE(std::abs(*nearest - pole), 1e-11) << test.name;
            const Complex found = fit.residues[static_cast<std::size_t>(nearest - fit.poles.begin())];
            EXPECT_LE(std::abs(found - test.factor * residue), 1e-10) << test.name;
        }
    }
}

TEST(Prony, RefusesArgumentsBeyondTheirBoundsAlone)
{
    Fit fit(lanczos1(), 3);
    fit.dt = 1e-102;
    EXPECT_EQ(fit.run().message, "");
    fit.dt = std::nextafter(1e-102, 0.0);
    EXPECT_EQ(fit.run().message, kOutOfBounds);
    fit.dt = kNaN;
    EXPECT_EQ(fit.run().message, "");
    EXPECT_TRUE(std::isnan(fit.poles[0].real()));

    const struct
    {
        const char* what;
        Integer n, ndim, m, mmax;
    } cases[] = {{"N < 2", 1, 24, 1, 3},
                 {"N > NDIM", 24, 23, 3, 3},
                 {"M < 1", 24, 24, 0, 3},
                 {"M > MMAX", 24, 24, 3, 2},
                 {"2 M > N", 5, 24, 3, 3},
                 {"2 M beyond 32 bits", 24, 24, 2000000000, 2000000000},
                 {"bounds before storage", 1, 2147483647, 1, 2147483647}};
    for (const auto& test : cases) {
        Fit refused(lanczos1(), 3);
        refused.n = test.n;
        refused.ndim = test.ndim;
        refused.m = test.m;
        refused.mmax = test.mmax;
        EXPECT_EQ(refused.run().message, kOutOfBounds) << test.what;
    }

    // The limit on the order is that of the back-substitution, which comes after the first decomposition.
    Fit many(std::vector<Complex>(10002, 0.0), 1.0, 5001);
    EXPECT_EQ(many.run().message, "Sub RECIPES_SVBKSB: input parameters out of bounds !");
    EXPECT_EQ(many.poles[0], kSentinel);
}

TEST(Prony, SaysWhenWorkStorageCannotBeHad)
{
    std::vector<Integer> extents = {2000000000, 2147483647};
    if (!kSanitized) // whose allocator ends the process instead
        extents.push_back(100000000);
    for (const Integer extent : extents) {
        Fit fit(lanczos1(), 3);
        fit.ndim = fit.mmax = extent;
        EXPECT_EQ(fit.run().message, kNoStorage);
    }
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
    const auto same_bits = [](const std::vector<Complex>& a, const std::vector<Complex>& b) {
        return std::memcmp(a.data(), b.data(), a.size() * sizeof(Complex)) == 0;
    };
    for (const auto& test : cases)
        for (const Integer m : test.orders) {
            const Fit fit = Fit(test.signal, m).run();
            std::vector<Complex> residues(static_cast<std::size_t>(m)), poles(residues);
            Real measures[5] = {};
            const bool good = plain_fit(fit.n, fit.y.data(), fit.dt, m, residues.data(), poles.data(), measures);
            ASSERT_TRUE(good && fit.message.empty()) << m;
            EXPECT_TRUE(same_bits(fit.poles, poles) && same_bits(fit.residues, residues)) << m;
            EXPECT_EQ(std::memcmp(fit.measures, measures, sizeof measures), 0) << m;
        }
}

/// Samples 1, 0, t, t at order 2: the matrix has the singular values 1 and t, exactly. With both, z^2 - z - t.
TEST(Prony, KeepsASingularValueEqualToTheThresholdOrNotANumber)
{
    const auto least_pole = [](Real t) {
        const Fit fit = Fit({1.0, 0.0, t, t}, 1.0, 2).run();
        return std::min(std::abs(fit.poles[0]), std::abs(fit.poles[1]));
    };
    EXPECT_LE(least_pole(5e-17), 1e-15);
    EXPECT_GE(least_pole(std::nextafter(5e-17, 0.0)), 1.0) << "dropped";

    const Fit fit = Fit({kNaN, 1.0}, 1.0, 1).run();
    EXPECT_EQ(fit.message, "");
    EXPECT_TRUE(std::isnan(fit.poles[0].real()));
    EXPECT_EQ(fit.measures[2], 0.0) << "a NaN is never the maximum";
}

TEST(Prony, ZeroSamplesAndAnImpulseAreNotFailures)
{
    const Fit zero = Fit(std::vector<Complex>(12, 0.0), 1.0, 3).run();
    EXPECT_EQ(zero.message, "");
    for (const Real measure : zero.measures)
        EXPECT_TRUE(std::isnan(measure));
    EXPECT_EQ(zero.residues, std::vector<Complex>(3, 0.0));

    const Fit impulse = Fit({1.0, 0.0, 0.0, 0.0}, 0.5, 1).run();
    EXPECT_EQ(impulse.message, "");
    EXPECT_EQ(impulse.poles[0].real(), -std::numeric_limits<Real>::infinity()) << "a zero at the origin";
    EXPECT_EQ(std::fabs(impulse.poles[0].imag()), 2.0 * std::numbers::pi);
}

/// Growing exponentials whose powers leave the range of the numbers in stage 2: the poles stand, the rest is untouched.
TEST(Prony, KeepsThePolesWhenTheSecondStageFails)
{
    std::vector<Complex> y;
    for (int k = 0; k < 30; ++k)
        y.push_back(std::pow(10.0, 11.0 * k - 170.0) + std::pow(-3.0, k));
    Fit fit(y, 1.0, 2);
    fit.run();
    EXPECT_EQ(fit.message, "Sub SLATEC_CSVDC: not all singular values are correct !");
    EXPECT_FALSE(fit.poles[0] == kSentinel || fit.poles[1] == kSentinel);
    EXPECT_EQ(fit.residues[0], kSentinel);
    EXPECT_EQ(fit.measures[0], -1.0);
}

} // namespace
} // namespace tessel::testing
