#include "examples/resonator/cavity.h"
#include "examples/resonator/dispersion.h"
#include "examples/resonator/eigenmodes.h"
#include "examples/resonator/error.h"
#include "examples/resonator/fit.h"
#include "examples/resonator/hankel.h"
#include "examples/resonator/record.h"
#include "examples/resonator/report.h"
#include "examples/resonator/response.h"

#include <gtest/gtest.h>
#include <tessel/Loader.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>

namespace resonator {
namespace {

using std::numbers::pi;

tessel::Api solvers()
{
    return tessel::Library(TESSEL_LIBRARY).create();
}

/// A record of c exp(s t) sums.
Record sum_of_modes(const std::vector<std::pair<Complex, Complex>>& modes, double spacing, Index count)
{
    Record record{0.0, spacing, {}};
    for (Index k = 0; k < count; ++k) {
        Complex sum = 0.0;
        for (const auto& [pole, residue] : modes)
            sum += residue * std::exp(pole * (static_cast<double>(k) * spacing));
        record.values.push_back(sum);
    }
    return record;
}

TEST(Cavity, RingsAsTheSumOfItsExactModes)
{
    // Among them a Courant number at the limit, strong loss, and nodes beside a wall.
    Cavity strong{.cells_x = 23, .cells_y = 17, .conductivity = 0.05, .courant = 0.705, .steps = 900};
    strong.source = {1, 16}, strong.probe = {22, 9}, strong.bandwidth = 5e9;
    Cavity weak{.cells_x = 31, .cells_y = 24, .permittivity = 1.0, .conductivity = 1e-4, .courant = 0.4, .steps = 1500};
    weak.source = {11, 9}, weak.probe = {20, 15}, weak.bandwidth = 3e9;
    for (const Cavity& cavity : {strong, weak}) {
        const Record record = simulate(cavity, [](Index) {});
        const Index end = cavity.pulse_steps();
        ASSERT_TRUE(record.size() == cavity.steps + 1 && end < cavity.steps / 2);
        const auto modes = exact_modes(cavity);
        EXPECT_LT(distance_from_closed_form(modes, record, {end, 1, cavity.steps + 1 - end}), 1e-11);
        EXPECT_GT(distance_from_closed_form(modes, record, {end / 2, 1, 100}), 1e-3) << "the pulse drives the record";
    }
    // The default one is near the continuous one, in SI units.
    const Cavity cavity;
    const double width = 120e-3, height = 84e-3, permittivity = 2.1, conductivity = 2e-3;
    const double frequency = 299792458.0 / std::sqrt(permittivity) / 2.0 * std::hypot(1.0 / width, 1.0 / height);
    const Complex pole = exact_modes(cavity).front().pole;
    EXPECT_NEAR(frequency_of(pole) / frequency, 1.0, 1e-4);
    EXPECT_NEAR(quality_of(pole) * conductivity / (2.0 * pi * frequency * permittivity * 8.8541878e-12), 1.0, 1e-4);
}

TEST(Roads, LeadToTheExactModesOfStrongLoss)
{
    const tessel::Api api = solvers();
    const Cavity cavity{.cells_x = 31, .cells_y = 24, .conductivity = 0.03, .source = {11, 9}, .probe = {20, 15}};
    Index calls = 0;
    const Eigensolve solve = eigenmodes(*api, cavity, 4e9, 8e9, 11, [&](Index solves) { EXPECT_EQ(solves, ++calls); });
    EXPECT_EQ(solve.order, 30 * 23 + 30 * 24 + 31 * 23);
    EXPECT_EQ(solve.solves, calls);
    for (const CavityMode& mode : exact_modes(cavity))
        if (const double turns = frequency_of(mode.pole); 4e9 < turns && turns < 8e9) {
            const double size = std::abs(mode.pole);
            const auto is_it = [&](const Eigenmode& found) { return std::abs(found.pole - mode.pole) < 1e-11 * size; };
            EXPECT_TRUE(std::any_of(solve.modes.begin(), solve.modes.end(), is_it)) << mode.m << ", " << mode.n;
            EXPECT_LT(std::abs(pole_from_dispersion(*api, cavity, mode.m, mode.n) - mode.pole), 1e-12 * size);
        }
}

/// Three modes and a bit of noise.
Record noisy_record(double noise, bool real, Index count)
{
    Record record = sum_of_modes({{{-0.02, 3.1}, 1.0}, {{-0.03, 3.7}, {0.0, 0.1}}, {{-0.01, 4.0}, 0.5}}, 0.05, count);
    unsigned state = 1;
    for (Complex& value : record.values) {
        state = state * 1664525u + 1013904223u;
        value = (real ? value.real() : value) + noise * (static_cast<double>(state >> 8) / 8388608.0 - 1.0);
    }
    return record;
}

TEST(SingularValues, CountTheExponentialsAboveTheNoise)
{
    const tessel::Api api = solvers();
    for (const double noise : {0.0, 1e-9, 1e-3})
        for (const bool real : {true, false}) {
            const Record record = noisy_record(noise, real, 1601);
            const Window window{1, 8, 200};
            const Hankel hankel = decompose(*api, samples_of(record, window));
            EXPECT_EQ(hankel.real, real);
            EXPECT_EQ(hankel.rank, real ? 6 : 3) << noise;
            const Eigen::MatrixXcd product = hankel.left * hankel.values.asDiagonal() * hankel.right;
            EXPECT_LT(std::abs(product(3, 4) - record.at(1 + 7 * 8)), 1e-12);
            if (real) {
                EXPECT_EQ(decompose(*api, analytic_samples(record, window)).rank, 3) << noise;
            }
        }
}

TEST(SingularValues, AnalyticSignalIsTwiceThePositiveFrequencies)
{
    Record record = sum_of_modes({{{-0.02, 6.1}, 0.5}, {{-0.03, 7.7}, {0.1, 0.3}}}, 0.05, 1000);
    const Record positive = record;
    for (Complex& value : record.values)
        value = value.real();
    const auto samples = analytic_samples(record, {100, 9, 91});
    const Index reach = 90 * 9 / 6;
    ASSERT_EQ(samples.size(), 61u);
    for (std::size_t k = 0; k < samples.size(); ++k)
        EXPECT_LT(std::abs(samples[k] - positive.at(100 + reach + 9 * static_cast<Index>(k))), 1e-13) << k;

    // Its noise fills all singular values; three slow modes come with a trace of their conjugates.
    const tessel::Api api = solvers();
    Record noisy = noisy_record(1e-2, true, 800);
    for (Index k = 0; k < noisy.size(); ++k)
        noisy.values[static_cast<std::size_t>(k)] += 9.0 * std::cos(1.3 * static_cast<double>(k));
    const Index rank = decompose(*api, analytic_samples(noisy, {0, 1, 800})).rank;
    EXPECT_TRUE(4 <= rank && rank <= 7) << rank;
}

TEST(DrivenResponse, IsTheSpectrumOfTheWholeRecord)
{
    // sum_k c exp((s - i w) k dt) = c / (1 - exp((s - i w) dt)), with a source that is over when the window begins.
    const tessel::Api api = solvers();
    const std::vector<std::pair<Complex, Complex>> modes{{{-0.05, 1.1}, 0.5}, {{-0.08, -1.7}, {0.1, 0.3}}};
    Record record = sum_of_modes(modes, 0.5, 200);
    record.start = -7.0;
    record.values[2] += 3.0;
    record.values[3] += 100.0; // not among the samples
    const Window window{10, 4, 40};
    const auto samples = samples_of(record, window);
    const StateSpace system = realise(decompose(*api, samples), samples);
    ASSERT_EQ(system.a.rows(), 2);
    for (const double frequency : {-0.27, 0.0, 0.1, 0.175}) {
        const Complex turn(0.0, 2.0 * pi * frequency);
        Complex expected = 3.0;
        for (const auto& [pole, residue] : modes)
            expected += residue * std::exp(pole * 1.0) / (1.0 - std::exp((pole - turn) * 2.0));
        expected *= 2.0 * std::exp(turn * 6.0);
        const Complex found = spectrum_at(*api, system, record, window, frequency);
        EXPECT_LT(std::abs(found - expected), 1e-11 * std::abs(expected)) << frequency;
    }
    const StateSpace nothing{Eigen::MatrixXcd(0, 0), Eigen::VectorXcd(0), Eigen::RowVectorXcd(0)};
    EXPECT_EQ(spectrum_at(*api, nothing, {0.0, 1.0, {1.0, 2.0}}, {1, 1, 1}, 0.0), 1.0);
    const StateSpace lossless{Eigen::MatrixXcd::Ones(1, 1), Eigen::VectorXcd::Ones(1), Eigen::RowVectorXcd::Ones(1)};
    EXPECT_TRUE(std::isinf(std::abs(spectrum_at(*api, lossless, {0.0, 1.0, {1.0}}, {0, 1, 1}, 0.0))));
}

TEST(DrivenResponse, CurveIsFineAroundLines)
{
    Record record{0.0, 0.25, {1.0, 2.0}};
    const std::vector<Line> lines{{0.2, 0.001}, {0.9, 0.004}};
    auto frequencies = choose_frequencies(lines, record, {0, 2, 1});
    EXPECT_TRUE(std::is_sorted(frequencies.begin(), frequencies.end()));
    EXPECT_NEAR(frequencies.front(), 0.2 - 0.027, 1e-12);
    EXPECT_NEAR(frequencies.back(), 0.9 + 0.027, 1e-12);
    for (const Line& line : lines) {
        const auto place = std::lower_bound(frequencies.begin(), frequencies.end(), line.frequency);
        EXPECT_EQ(*place, line.frequency);
        EXPECT_LT(place[1] - place[0], 0.2 * line.width);
    }
    EXPECT_EQ(choose_frequencies({{0.01, 0.02}}, record, {0, 2, 1}).front(), 0.0) << "a real record";
    record.values[0] = {0.0, 1.0};
    EXPECT_NEAR(choose_frequencies({{0.01, 0.02}}, record, {0, 2, 1}).front(), -0.09, 1e-12);
    EXPECT_EQ(choose_frequencies({}, record, {0, 2, 1}).back(), 1.0);

    const std::vector<double> found = peaks({1, 2, 3, 4, 5, 6}, {1.0, {0.0, 2.0}, 1.0, 3.0, 3.0, 4.0});
    EXPECT_EQ(found, (std::vector<double>{2}));
    EXPECT_TRUE(stands_out({2.4, 0.9}, found));
    EXPECT_FALSE(stands_out({2.4, 0.7}, found));
}

TEST(Decimation, LeavesAFewSamplesPerPeriodOfTheHighestFrequency)
{
    // Modes at 1 and 4 Hz, beside one at 9 Hz that is too weak to count.
    const auto highest = [](Complex pole, double spacing = 0.01) {
        const Complex strong(-0.02, 2.0 * pi), weak(-0.02, 18.0 * pi);
        return highest_frequency(sum_of_modes({{strong, 1.0}, {pole, 0.1}, {weak, 1e-6}}, spacing, 4000), 0);
    };
    EXPECT_NEAR(highest({-0.02, 8.0 * pi}), 4.2, 0.2);
    EXPECT_NEAR(highest({-0.02, -8.0 * pi}), 4.2, 0.2) << "a negative frequency counts as well";
    EXPECT_NEAR(highest({-0.8, 8.0 * pi}), 5.0, 1.0) << "one that is soon gone counts as well";

    const Index stride = choose_stride(sum_of_modes({{{-0.02, 8.0 * pi}, 1.0}}, 0.01, 4000), 0);
    EXPECT_GE(1.0 / (4.0 * 0.01 * static_cast<double>(stride)), 2.5);
    EXPECT_LE(1.0 / (4.0 * 0.01 * static_cast<double>(stride)), 5.0);
    // What does not oscillate keeps samples enough, what fills the band is not decimated.
    EXPECT_EQ(choose_stride(sum_of_modes({{{-1.0, 0.0}, 1.0}}, 1e-4, 6400), 0), 100);
    EXPECT_EQ(choose_stride(sum_of_modes({{{0.0, 3.0}, 1.0}}, 1.0, 400), 0), 1);

    EXPECT_EQ(choose_orders(300), (std::vector<Index>{75, 81, 87, 93, 100}));
    EXPECT_EQ(choose_orders(4), (std::vector<Index>{1}));
}

TEST(Choice, TakesTheLeastOfTheLargestMeasures)
{
    const auto fit = [](Index order, double peak_mean, double rms_mean = 0.0) {
        return Fit{order, "", {}, {}, 0.0, 0.0, 0.0, rms_mean, peak_mean};
    };
    Fit failed = fit_samples(*solvers(), {1.0, 2.0, 3.0, 4.0}, 1.0, 3);
    const Fit none = fit(1, std::nan(""));
    EXPECT_EQ(best_fit({none, fit(2, 1e-5), fit(3, 1e-6), fit(4, 1e-9, 1e-3), failed, fit(6, 1e-6)}).order, 3);
    const auto error_of = [](const Fit& only) {
        try {
            return best_fit({only}).failure;
        } catch (const Error& error) {
            return std::string(error.what());
        }
    };
    EXPECT_EQ(error_of(none), "no fit has finite measures");
    EXPECT_EQ(error_of(failed), "Sub LEASTSQ_PRONY_SVD: input parameters out of bounds !");
}

TEST(Selection, TellsModesFromTheRest)
{
    const double infinity = std::numeric_limits<double>::infinity();
    Fit fit;
    fit.poles = {{0.5, 3.0}, {-0.1, 2.0}, {-0.1, -2.0}, {-0.1, 4.0}, {1e-12, 1.0}, {-infinity, 0.0}, {-3.0, 0.0}};
    fit.residues = {100.0, 1.0, 1.0, 1e-5, {0.0, 0.5}, 1e-3, 0.5};
    Record record = sum_of_modes({{fit.poles[1], 1.0}}, 0.1, 200);
    const Window window{0, 1, 200};
    const auto kinds = [&](double threshold) {
        std::vector<Kind> result;
        for (const Mode& mode : classify(fit, record, window, threshold))
            result.push_back(mode.kind);
        return result;
    };
    using enum Kind;
    // By rising imaginary part: -2, then 0 (at once gone) and 0, 1 (no loss), 2, 3 (growing) and 4 (weak).
    EXPECT_EQ(kinds(1e-3), (std::vector<Kind>{kept, negligible, kept, kept, kept, growing, negligible}));
    for (Complex& value : record.values)
        value = value.real();
    EXPECT_EQ(kinds(1e-6), (std::vector<Kind>{conjugate, kept, kept, kept, kept, growing, kept}));
    fit.err_rms = 0.2; // what the fit leaves unexplained hides what is smaller
    EXPECT_EQ(kinds(1e-6), (std::vector<Kind>{conjugate, negligible, negligible, kept, kept, growing, negligible}));

    const Mode lossless = classify(fit, record, window, 0.0)[3];
    EXPECT_EQ(lossless.quality(), infinity);
    EXPECT_NEAR(lossless.share, 0.5, 1e-9);
    EXPECT_NEAR(lossless.phase(), 90.0, 1e-12);
    const Mode damped = classify(fit, record, window, 0.0)[4];
    EXPECT_NEAR(damped.quality(), 10.0, 1e-12);
    EXPECT_NEAR(damped.share, std::sqrt(std::expm1(-4.0) / std::expm1(-0.02) / 200.0), 1e-12);

    fit.poles = {{-infinity, pi}, {-1.0, 0.0}};
    fit.residues = {5.0, 2.0};
    EXPECT_EQ(model_at(fit, 0.0), 2.0);
    EXPECT_EQ(model_at(fit, 1.0), 2.0 * std::exp(-1.0));
}

/// The verdict that is returned, and printed.
template <class Print>
bool met(Print print)
{
    ::testing::internal::CaptureStdout();
    const bool result = print();
    EXPECT_EQ(::testing::internal::GetCapturedStdout().find("MISSED") == std::string::npos, result);
    return result;
}

TEST(Verdict, AsksForTheEightLowestAndNothingThatIsNotThere)
{
    using Pairs = std::vector<Pair>;
    const auto verdict = [](const std::function<void(Pairs&)>& change) {
        Pairs pairs;
        for (Index m = 1; m <= 9; ++m) {
            const Complex pole(-0.1, static_cast<double>(m));
            pairs.push_back({CavityMode{m, 1, pole, 1.0}, Mode{pole, 1.0, 1.0, Kind::kept}, pole, pole});
        }
        change(pairs);
        return met([&] { return print_verdict(pairs); });
    };
    const std::function<void(Pairs&)> good[] = {
        [](Pairs&) {},
        [](Pairs& pairs) { pairs[7].found->pole *= 1.0 + 0.9e-8; },
        [](Pairs& pairs) { pairs[0].found->pole -= 0.9e-5; },
        [](Pairs& pairs) { pairs[8].found.reset(); }, // the ninth is not asked for
        [](Pairs& pairs) { *pairs[2].arpack *= 1.0 + 0.9e-11; },
    };
    const std::function<void(Pairs&)> missed[] = {
        [](Pairs& pairs) { pairs[7].found->pole *= 1.0 + 1.1e-8; },
        [](Pairs& pairs) { pairs[0].found->pole -= 1.1e-5; },
        [](Pairs& pairs) { pairs[3].found.reset(); },
        [](Pairs& pairs) { pairs.resize(7); },
        [](Pairs& pairs) {
            pairs.push_back({{}, pairs[0].found});
        },
        [](Pairs& pairs) { *pairs[2].arpack *= 1.0 + 1.1e-11; },
        [](Pairs& pairs) { *pairs[2].hybrj1 -= 1.1e-9; },
        [](Pairs& pairs) { pairs[7].hybrj1.reset(); },
    };
    for (std::size_t k = 0; k < std::size(good); ++k)
        EXPECT_TRUE(verdict(good[k])) << k;
    for (std::size_t k = 0; k < std::size(missed); ++k)
        EXPECT_FALSE(verdict(missed[k])) << k;
}

TEST(Verdict, AsksForTheOrderAndTheResponse)
{
    // An order between the singular values and the fit.
    const std::vector<Pair> five(5, Pair{CavityMode{1, 1, {-0.1, 1.0}, 1.0}, {}});
    const auto order = [&](Index record, std::optional<Hankel> analytic) {
        return met([&] { return print_order_verdict(Hankel{true, record, {}, {}, {}}, analytic, 10, five); });
    };
    const auto rank = [](Index analytic) { return Hankel{false, analytic, {}, {}, {}}; };
    EXPECT_TRUE(order(10, rank(5)));
    EXPECT_FALSE(order(9, rank(5)) || order(11, rank(5)) || order(10, rank(4)) || order(10, rank(10)) || order(10, {}));

    // A peak at each mode and the exact response.
    std::vector<Pair> pairs;
    Response response;
    for (Index m = 1; m <= 9; ++m) {
        const double frequency = static_cast<double>(m);
        pairs.push_back({CavityMode{m, 1, {-0.1, 2.0 * pi * frequency}, 1.0}, {}});
        response.peaks.push_back(frequency + 0.4 * 0.1 / pi);
        response.exact.push_back(100.0 / frequency);
    }
    response.values = response.exact;
    const auto verdict = [&](const Response& changed) {
        return met([&] { return print_response_verdict(changed, pairs); });
    };
    EXPECT_TRUE(verdict(response));
    Response changed = response;
    changed.peaks[7] += 0.2 * 0.1 / pi;
    EXPECT_FALSE(verdict(changed)) << "off by more than half the width of the line";
    changed = response;
    changed.values[8] += Complex(0.0, 0.9e-4);
    EXPECT_TRUE(verdict(changed)) << "relative to the highest peak";
    changed.values[8] += Complex(0.0, 0.2e-4);
    EXPECT_FALSE(verdict(changed));
}

TEST(Comparison, PairsEachExactModeWithTheNearestFound)
{
    Record record{0.0, 0.5, std::vector<Complex>(100)};
    const Window window{4, 1, 96};
    const std::vector<CavityMode> exact{
        {2, 1, {-0.1, 5.0}, 1.0}, {1, 1, {-0.1, 3.0}, 1e-4}, {1, 2, {-0.1, 7.0}, 5e-7}, {1, 3, {-0.1, 8.0}, 1e-9}};
    const auto mode = [](double frequency, Kind kind) { return Mode{{-0.1, frequency}, 1.0, 1.0, kind}; };
    const auto pairs = compare(
        exact, {mode(3.0001, Kind::kept), mode(5.0, Kind::conjugate), mode(7.0001, Kind::kept), mode(8.0, Kind::kept)},
        record, window, 1e-6);
    ASSERT_EQ(pairs.size(), 4u);
    EXPECT_EQ(pairs[0].exact->m, 1);
    EXPECT_EQ(pairs[0].found->pole.imag(), 3.0001);
    EXPECT_NEAR(std::abs(pairs[0].exact->residue), 1e-4 * std::exp(-0.2), 1e-18) << "at the first fitted sample";
    EXPECT_NEAR(pairs[0].frequency_error(Road::fit), 0.0001 / 3.0, 1e-12);
    EXPECT_EQ(pairs[1].exact->m, 2);
    EXPECT_FALSE(pairs[1].found) << "only kept modes count";
    EXPECT_TRUE(pairs[2].exact && pairs[2].found) << "just below the threshold, but found";
    EXPECT_FALSE(pairs[3].exact) << "too weak to be seen";

    std::vector<Pair> more = pairs;
    add_eigenmodes(more, {{{-0.1, 9.0}, 0.0}, {{-0.1, 5.0001}, 0.0}, {{-0.1, 3.1}, 0.0}});
    EXPECT_EQ(more[1].pole(Road::arpack), Complex(-0.1, 5.0001));
    EXPECT_FALSE(more[0].arpack || more[2].arpack || more[3].arpack);
}

} // namespace
} // namespace resonator
