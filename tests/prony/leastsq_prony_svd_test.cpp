#include "prony/leastsq_prony_svd.h"

#include "reference/plain_fit.h"
#include "tests/support/message.h"
#include "tests/support/random.h"
#include "tests/support/same_bits.h"
#include "tests/support/sanitized.h"
#include "tests/support/signals.h"

#include <algorithm>
#include <complex>
#include <string>
#include <utility>
#include <vector>

namespace tessel::testing {
namespace {

/// One fit; `message` is what it said.
struct Fit
{
    Fit(std::vector<Complex> samples, Real dt, Integer order) : Fit({{}, {}, dt, std::move(samples)}, order) {}
    Fit(const Signal& signal, Integer order)
        : n(static_cast<Integer>(signal.y.size())),
          m(order),
          y(signal.y),
          poles(static_cast<std::size_t>(m)),
          residues(poles)
    {
        run(signal.dt, n, m);
    }
    void run(Real dt, Integer ndim, Integer mmax)
    {
        message = status_of([&](Integer& flag, char* text, CharLen length) {
            LEASTSQ_PRONY_SVD(&n, &ndim, y.data(), &dt, &m, &mmax, residues.data(), poles.data(), &measures[0],
                              &measures[1], &measures[2], &measures[3], &measures[4], &flag, text, length);
        });
    }

    Integer n, m;
    std::vector<Complex> y, poles, residues;
    Real measures[5] = {}; // L2, RMS, peak, RMS to mean, peak to mean
    std::string message;
};

TEST(Prony, RecoversKnownSignals)
{
    for (const KnownSignal& known : known_signals()) {
        const Fit fit(known.signal, known.m);
        EXPECT_EQ(fit.message, "") << known.name;
        EXPECT_LE(worst_pole_error(known.signal.poles, fit.poles), known.pole_error) << known.name;
        EXPECT_LE(fit.measures[0], known.l2) << known.name;
    }
}

/// What holds whatever the data: the measures are those of the model, the residues fit best with their poles, and
/// neither the size of the samples nor the unit of time matters.
TEST(Prony, KeepsTheRelationsOfALeastSquaresFit)
{
    Random random(17);
    const Fit fit(random.complexes(40), 0.25, 5);
    Real sse = 0.0, square = 0.0, sum = 0.0, most = 0.0, peak = 0.0;
    std::vector<Complex> slope(5);
    for (std::size_t k = 0; k < 40; ++k) {
        Complex error = -fit.y[k];
        const auto power = [&](std::size_t j) { return std::exp(fit.poles[j] * (0.25 * static_cast<Real>(k))); };
        for (std::size_t j = 0; j < 5; ++j)
            error += fit.residues[j] * power(j);
        for (std::size_t j = 0; j < 5; ++j)
            slope[j] += std::conj(power(j)) * error;
        sse += std::norm(error);
        square += std::norm(fit.y[k]);
        sum += std::abs(fit.y[k]);
        most = std::max(most, std::abs(fit.y[k]));
        peak = std::max(peak, std::abs(error));
    }
    const Real expected[] = {std::sqrt(sse / square), std::sqrt(sse / 40) / most, peak / most,
                             std::sqrt(sse * 40) / sum, 40 * peak / sum};
    for (int i = 0; i < 5; ++i)
        EXPECT_NEAR(fit.measures[i] / expected[i], 1.0, 1e-12) << i;
    for (const Complex& component : slope)
        EXPECT_LE(std::abs(component), 1e-12);

    std::vector<Complex> scaled = fit.y;
    for (Complex& sample : scaled)
        sample *= Complex(-3.0, 4.0);
    const Fit other(scaled, 0.125, 5);
    for (std::size_t j = 0; j < 5; ++j) {
        EXPECT_LE(std::abs(other.poles[j] / fit.poles[j] - 2.0), 1e-11) << j;
        EXPECT_LE(std::abs(other.residues[j] / fit.residues[j] - Complex(-3.0, 4.0)), 1e-11) << j;
        EXPECT_NEAR(other.measures[j] / fit.measures[j], 1.0, 1e-12) << j;
    }
}

/// Samples of a changed signal give the poles and residues that the change makes of the known ones.
TEST(Prony, FollowsWhatIsDoneToTheSamples)
{
    const Real dt = 0.5, turn = 0.3;
    const Signal signal = make_signal({{-0.1, 1.9}, {-0.3, -0.5}, {0.02, 0.8}}, {{1.0, -2.0}, 3.0, {0.0, 0.5}}, dt, 48);
    const auto expect = [&](const char* what, std::vector<Complex> y, auto pole_of, auto residue_of) {
        const Fit fit(std::move(y), dt, 3);
        std::vector<Complex> poles, residues;
        for (std::size_t j = 0; j < 3; ++j) {
            poles.push_back(pole_of(signal.poles[j]));
            residues.push_back(residue_of(signal.residues[j], std::exp(signal.poles[j] * dt)));
        }
        EXPECT_LE(worst_pole_error(poles, fit.poles), 1e-10) << what;
        EXPECT_LE(worst_pole_error(residues, fit.residues), 1e-10) << what;
    };
    const auto same = [](Complex s) { return s; };
    const auto same_residue = [](Complex c, Complex) { return c; };
    std::vector<Complex> conjugated, turned, third;
    for (std::size_t k = 0; k < signal.y.size(); ++k) {
        conjugated.push_back(std::conj(signal.y[k]));
        turned.push_back(signal.y[k] * std::polar(1.0, turn * static_cast<Real>(k)));
        if (k % 3 == 0)
            third.push_back(signal.y[k]);
    }
    expect(
        "conjugated", conjugated, [](Complex s) { return std::conj(s); },
        [](Complex c, Complex) { return std::conj(c); });
    expect(
        "turned", turned, [&](Complex s) { return s + Complex(0.0, turn / dt); }, same_residue);
    expect("begun later", {signal.y.begin() + 4, signal.y.end()}, same,
           [](Complex c, Complex z) { return c * std::pow(z, 4); });
    expect(
        "every third", third, [](Complex s) { return 3.0 * s; }, same_residue);
}

/// No three-term model of the data is better than the certified one, and the two-stage fit is not far from it.
TEST(Prony, ApproachesTheCertifiedResidual)
{
    const Fit fit(lanczos2(), 3);
    Real sse = 0.0;
    for (const Complex& sample : fit.y)
        sse += std::norm(fit.measures[0] * sample);
    EXPECT_GE(sse, kLanczos2Floor);
    EXPECT_LE(sse, 20.0 * kLanczos2Floor);
}

TEST(Prony, ReportsSizesThatItCannotHandle)
{
    Fit fit(lanczos1(), 3);
    std::vector<std::pair<Integer, Integer>> extents = {{2147483647, 2147483647},
                                                        {2016324800, 268076039}}; // 2^64 + 8128 bytes
    if (!kSanitized) // whose allocator ends the process instead
        extents.insert(extents.end(), {{100000000, 100000000}, {2147483647, 10000}});
    for (const auto& [ndim, mmax] : extents) {
        fit.run(0.05, ndim, mmax);
        EXPECT_EQ(fit.message, "Sub LEASTSQ_PRONY_SVD: work storage not available !");
    }
    fit.m = 2000000000;
    fit.run(0.05, 2147483647, 2147483647);
    EXPECT_EQ(fit.message, "Sub LEASTSQ_PRONY_SVD: input parameters out of bounds !") << "2 M is beyond 32 bits";

    // The limit on the order is that of the back-substitution, which comes after the first decomposition.
    EXPECT_EQ(Fit(std::vector<Complex>(10002, 0.0), 1.0, 5001).message,
              "Sub RECIPES_SVBKSB: input parameters out of bounds !");
}

/// Skipped passes, the model taken from the kept product and the fast decomposition change no bit.
TEST(Prony, HasTheBitsOfThePlainFit)
{
    Random random(31);
    Signal noisy = four_cosines();
    for (Complex& sample : noisy.y)
        sample += 1e-3 * random.complex();
    const auto tie = [](Real t) { return Signal{{}, {}, 1.0, {1.0, 0.0, t, t}}; }; // singular values 1 and t, exactly
    Signal two_passes; // of the second stage: the later one leaves out more and is worse
    for (int k = 0; k < 17; ++k)
        two_passes.y.push_back(1e12 * std::pow(0.5, k) + std::pow(10.0, k));
    const struct
    {
        Signal signal;
        std::vector<Integer> orders;
    } cases[] = {{lanczos2(), {3, 12}}, {fifteen_modes(), {15, 64}},  {four_cosines(), {60, 125}},
                 {noisy, {60}},         {yee_cavity(0.9), {24, 100}}, {two_passes, {2}},
                 {tie(5e-17), {2}},     {tie(2.23e-16), {2}},         {tie(1e-15), {2}}};
    for (const auto& test : cases)
        for (const Integer m : test.orders) {
            const Fit fit(test.signal, m);
            std::vector<Complex> residues(fit.poles.size()), poles(residues);
            Real measures[5] = {};
            ASSERT_TRUE(
                reference::plain_fit(fit.n, fit.y.data(), test.signal.dt, m, residues.data(), poles.data(), measures));
            EXPECT_TRUE(same_bits(fit.poles.data(), poles.data(), poles.size()) &&
                        same_bits(fit.residues.data(), residues.data(), poles.size()) &&
                        same_bits(fit.measures, measures, 5))
                << m;
        }
}

} // namespace
} // namespace tessel::testing
