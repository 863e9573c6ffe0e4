#include "examples/resonator/cavity.h"
#include "examples/resonator/dispersion.h"
#include "examples/resonator/eigenmodes.h"
#include "examples/resonator/error.h"
#include "examples/resonator/fit.h"
#include "examples/resonator/hankel.h"
#include "examples/resonator/options.h"
#include "examples/resonator/record.h"
#include "examples/resonator/report.h"
#include "examples/resonator/response.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <tessel/Loader.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <numbers>

namespace resonator {
namespace {

using std::numbers::pi;

/// A file that is there for the life of this object.
struct TemporaryFile
{
    explicit TemporaryFile(const std::string& content)
    {
        char name[] = "/tmp/resonator-test-XXXXXX";
        const int descriptor = mkstemp(name);
        EXPECT_GE(descriptor, 0);
        close(descriptor);
        path = name;
        std::ofstream(path) << content;
    }
    ~TemporaryFile() { std::filesystem::remove(path); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    std::string path;
};

template <class Action>
std::string error_of(Action action)
{
    try {
        action();
    } catch (const Error& error) {
        return error.what();
    }
    return "no error";
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
    // Among them a Courant number at the limit, strong loss, and nodes beside a
    // wall.
    Cavity strong{.cells_x = 23, .cells_y = 17, .conductivity = 0.05, .courant = 0.705, .steps = 900};
    strong.source = {1, 16}, strong.probe = {22, 9}, strong.bandwidth = 5e9;
    Cavity weak{.cells_x = 31, .cells_y = 24, .permittivity = 1.0, .conductivity = 1e-4, .courant = 0.4, .steps = 1500};
    weak.source = {11, 9}, weak.probe = {20, 15}, weak.bandwidth = 3e9;
    for (const Cavity& cavity : {strong, weak}) {
        const Record record = simulate(cavity, [](Index) {});
        ASSERT_EQ(record.size(), cavity.steps + 1);
        const Index end = cavity.pulse_steps();
        ASSERT_LT(end, cavity.steps / 2);
        const auto modes = exact_modes(cavity);
        EXPECT_LT(distance_from_closed_form(modes, record, {end, 1, cavity.steps + 1 - end}), 1e-11);
        EXPECT_GT(distance_from_closed_form(modes, record, {end / 2, 1, 100}), 1e-3) << "the pulse drives the record";
    }
}

TEST(Cavity, NearsTheContinuousOneInSiUnits)
{
    const Cavity cavity;
    const double width = static_cast<double>(cavity.cells_x) * cavity.cell;
    const double height = static_cast<double>(cavity.cells_y) * cavity.cell;
    const double velocity = 299792458.0 / std::sqrt(cavity.permittivity);
    const double frequency = velocity / 2.0 * std::sqrt(1.0 / (width * width) + 1.0 / (height * height));
    const double quality = 2.0 * pi * frequency * cavity.permittivity * 8.8541878e-12 / cavity.conductivity;
    const CavityMode mode = exact_modes(cavity).front();
    EXPECT_NEAR(mode.pole.imag() / (2.0 * pi), frequency, 1e-4 * frequency);
    EXPECT_NEAR(mode.pole.imag() / (-2.0 * mode.pole.real()), quality, 1e-4 * quality);
}

/// A small cavity with strong loss, with its modes by rising frequency.
struct SmallCavity
{
    SmallCavity() : modes(exact_modes(cavity))
    {
        std::sort(modes.begin(), modes.end(),
                  [](const CavityMode& a, const CavityMode& b) { return a.pole.imag() < b.pole.imag(); });
    }
    Cavity cavity{.cells_x = 31, .cells_y = 24, .conductivity = 0.03, .source = {11, 9}, .probe = {20, 15}};
    std::vector<CavityMode> modes;
};

TEST(Roads, LeadToTheExactModes)
{
    const tessel::Api api = tessel::Library(TESSEL_LIBRARY).create();
    const SmallCavity small;
    const double lowest = small.modes[0].pole.imag(), highest = small.modes[9].pole.imag();
    Index calls = 0;
    const Eigensolve solve = eigenmodes(*api, small.cavity, lowest / (2.0 * pi), highest / (2.0 * pi), 11,
                                        [&](Index solves) { EXPECT_EQ(solves, ++calls); });
    EXPECT_EQ(solve.order, 30 * 23 + 30 * 24 + 31 * 23);
    EXPECT_EQ(solve.solves, calls);
    ASSERT_GE(solve.modes.size(), 11u);
    for (std::size_t k = 0; k < 10; ++k) {
        const Complex exact = small.modes[k].pole;
        const auto nearest =
            std::min_element(solve.modes.begin(), solve.modes.end(), [&](const Eigenmode& a, const Eigenmode& b) {
                return std::abs(a.pole - exact) < std::abs(b.pole - exact);
            });
        EXPECT_LT(std::abs(nearest->pole - exact), 1e-11 * std::abs(exact)) << "mode " << k;
        EXPECT_LT(nearest->residual, 1e-11);
        const Complex zero = pole_from_dispersion(*api, small.cavity, small.modes[k].m, small.modes[k].n);
        EXPECT_LT(std::abs(zero - exact), 1e-12 * std::abs(exact)) << "mode " << k;
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
    const tessel::Api api = tessel::Library(TESSEL_LIBRARY).create();
    for (const double noise : {0.0, 1e-9, 1e-3})
        for (const bool real : {true, false}) {
            const Record record = noisy_record(noise, real, 1601);
            const Window window{1, 8, 200};
            const Hankel hankel = decompose(*api, samples_of(record, window));
            EXPECT_EQ(hankel.real, real);
            EXPECT_EQ(hankel.rank, real ? 6 : 3) << noise;
            ASSERT_EQ(hankel.values.size(), 100);
            EXPECT_TRUE(std::is_sorted(hankel.values.begin(), hankel.values.end(), std::greater()));
            const Eigen::MatrixXcd product = hankel.left * hankel.values.asDiagonal() * hankel.right;
            EXPECT_LT(std::abs(product(3, 4) - record.at(1 + 7 * 8)), 1e-12);
            if (real) {
                const auto analytic = analytic_samples(record, window);
                EXPECT_EQ(decompose(*api, analytic).rank, 3) << noise;
            }
        }
}

TEST(SingularValues, AnalyticNoiseFillsAllOfThem)
{
    const tessel::Api api = tessel::Library(TESSEL_LIBRARY).create();
    Record record = noisy_record(1e-2, true, 800);
    for (Index k = 0; k < record.size(); ++k)
        record.values[static_cast<std::size_t>(k)] += 9.0 * std::cos(1.3 * static_cast<double>(k));
    // The three slow modes come with a trace of their conjugates.
    const Index rank = decompose(*api, analytic_samples(record, {0, 1, 800})).rank;
    EXPECT_GE(rank, 4);
    EXPECT_LE(rank, 7);
}

TEST(SingularValues, AnalyticSignalIsTwiceThePositiveFrequencies)
{
    const std::vector<std::pair<Complex, Complex>> modes{{{-0.02, 6.1}, 0.5}, {{-0.03, 7.7}, {0.1, 0.3}}};
    Record record = sum_of_modes(modes, 0.05, 1000);
    const Record positive = record;
    for (Complex& value : record.values)
        value = value.real();
    const auto samples = analytic_samples(record, {100, 9, 91});
    const Index reach = 90 * 9 / 6;
    ASSERT_EQ(samples.size(), 61u);
    for (std::size_t k = 0; k < samples.size(); ++k)
        EXPECT_LT(std::abs(samples[k] - positive.at(100 + reach + 9 * static_cast<Index>(k))), 1e-13) << k;
}

TEST(DrivenResponse, IsTheSpectrumOfTheWholeRecord)
{
    // sum_k c exp((s - i w) k dt) = c / (1 - exp((s - i w) dt)), with a source that is over when the window begins.
    const tessel::Api api = tessel::Library(TESSEL_LIBRARY).create();
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

TEST(DrivenResponse, OfTheCavityIsThatOfAVeryLongRecord)
{
    SmallCavity small;
    small.cavity.bandwidth = 3e9;
    small.cavity.steps = 20000; // until nothing rings any more
    const Record record = simulate(small.cavity, [](Index) {});
    for (const double frequency : {3e9, 7.13e9}) {
        Complex sum = 0.0;
        for (Index k = 0; k < record.size(); ++k)
            sum += record.at(k) * std::polar(record.spacing, -2.0 * pi * frequency * record.time(k));
        const Complex exact = exact_response(small.cavity, {frequency})[0];
        EXPECT_LT(std::abs(sum / small.cavity.current_spectrum(frequency) - exact), 1e-9 * std::abs(exact));
    }
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

TEST(RecordFile, TakesTheUsualForms)
{
    const TemporaryFile complex_file("# a probe\n\n  1.0e-9, +1 , -2.5 # "
                                     "first\r\n2D-9;3;4\n3.0000001e-09\t5\t1d2\n");
    const Record record = read_record(complex_file.path, {});
    EXPECT_DOUBLE_EQ(record.start, 1e-9);
    EXPECT_NEAR(record.spacing, 1e-9, 1e-15);
    EXPECT_EQ(record.values, (std::vector<Complex>{{1.0, -2.5}, {3.0, 4.0}, {5.0, 100.0}}));
    EXPECT_FALSE(record.is_real());

    const TemporaryFile real_file("0.5 1\n0.25 2\n0.125 3");
    const Record untimed = read_record(real_file.path, 0.125);
    EXPECT_EQ(untimed.spacing, 0.125);
    EXPECT_EQ(untimed.values, (std::vector<Complex>{{0.5, 1.0}, {0.25, 2.0}, {0.125, 3.0}}));

    const TemporaryFile one_column("1\n2\n");
    EXPECT_TRUE(read_record(one_column.path, 1.0).is_real());
}

TEST(RecordFile, NamesTheLineAtFault)
{
    struct Case
    {
        const char* content;
        std::optional<double> spacing;
        const char* message; ///< behind the path
    };
    const Case cases[] = {
        {"# x\n0 1\n1 one\n", {}, ":3: 'one' is not a number"},
        {"0 1\n1 2.5.1\n", {}, ":2: '2.5.1' is not a number"},
        {"0 1\n1 nan\n", {}, ":2: 'nan' is not a finite number in double precision"},
        {"0 1\n1 1e999\n", {}, ":2: '1e999' is not a finite number in double precision"},
        {"0 1 2\n1 2 3\n2 3\n", {}, ":3: 2 columns, where the lines before have 3"},
        {"0 1\n\n1 2 3\n", {}, ":3: 3 columns, where the lines before have 2"},
        {"7\n8\n",
         {},
         ":1: 1 column; the columns are: time, real part [imaginary part]; for a "
         "record without times give --dt"},
        {"0 1 2\n", 0.1, ":1: 3 columns; with --dt the columns are: real part [imaginary part]"},
        {"0 1\n1 1\n2 1\n4 1\n5 1\n",
         {},
         ":4: the times are not equally spaced: a step of 2 to 4, where 1 is "
         "usual"},
        {"0 1\n1 1\n2 1\n2 1\n3 1\n", {}, ":4: time 2 does not come after 2"},
        // Every step is within its tolerance of the usual one, but they do not
        // add up to a straight line.
        {"0 1\n1 1\n2 1\n3 1\n4 1\n5.09 1\n6.18 1\n7.27 1\n8.36 1\n",
         {},
         ":4: the times are not equally spaced: 3, where equal steps lead to "
         "3.135"},
        {"# nothing\n", {}, ": no record: the file has fewer than two samples"},
    };
    for (const Case& c : cases) {
        const TemporaryFile file(c.content);
        EXPECT_EQ(error_of([&] { read_record(file.path, c.spacing); }), file.path + c.message) << c.content;
    }
    EXPECT_EQ(error_of([] { read_record("/no/such/file", {}); }),
              "/no/such/file: cannot be opened: No such file or directory");
    EXPECT_EQ(error_of([] { read_record("/tmp", {}); }), "/tmp: cannot be read: Is a directory");
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
    // What does not oscillate keeps samples enough, what fills the band is not
    // decimated.
    EXPECT_EQ(choose_stride(sum_of_modes({{{-1.0, 0.0}, 1.0}}, 1e-4, 6400), 0), 100);
    EXPECT_EQ(choose_stride(sum_of_modes({{{0.0, 3.0}, 1.0}}, 1.0, 400), 0), 1);

    EXPECT_EQ(choose_orders(300), (std::vector<Index>{75, 81, 87, 93, 100}));
    EXPECT_EQ(choose_orders(4), (std::vector<Index>{1}));
}

Fit fit_with_measures(Index order, double peak_mean, std::string failure = "")
{
    Fit fit;
    fit.order = order;
    fit.failure = std::move(failure);
    fit.err_peak_mean = peak_mean;
    return fit;
}

TEST(Choice, TakesTheLeastOfTheLargestMeasures)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    Fit hidden = fit_with_measures(4, 1e-9); // its largest measure is another
    hidden.err_rms_mean = 1e-3;
    const std::vector<Fit> fits{fit_with_measures(1, nan),
                                fit_with_measures(2, 1e-5),
                                fit_with_measures(3, 1e-6),
                                hidden,
                                fit_with_measures(5, 0.0, "Sub X: too bad !"),
                                fit_with_measures(6, 1e-6)};
    EXPECT_EQ(best_fit(fits).order, 3);
    EXPECT_EQ(error_of([&] { best_fit({fits[0]}); }), "no fit has finite measures");
    EXPECT_EQ(error_of([&] { best_fit({fits[4]}); }), "Sub X: too bad !");
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
    // By rising imaginary part: -2, then 0 (at once gone) and 0, 1 (no loss), 2,
    // 3 (growing) and 4 (weak).
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
    double sum = 0.0;
    for (Index k = 0; k < 200; ++k)
        sum += std::exp(-0.02 * static_cast<double>(k));
    EXPECT_NEAR(damped.share, std::sqrt(sum / 200.0), 1e-12);
}

TEST(Selection, ModelDoesWithAPoleAtMinusInfinity)
{
    Fit fit;
    fit.poles = {{-std::numeric_limits<double>::infinity(), pi}, {-1.0, 0.0}};
    fit.residues = {5.0, 2.0};
    EXPECT_EQ(model_at(fit, 0.0), 2.0);
    EXPECT_EQ(model_at(fit, 1.0), 2.0 * std::exp(-1.0));
}

TEST(Verdict, AsksForTheEightLowestAndNothingThatIsNotThere)
{
    const auto verdict = [](auto change) {
        std::vector<Pair> pairs;
        for (Index m = 1; m <= 9; ++m) {
            const Complex pole(-0.1, static_cast<double>(m));
            pairs.push_back({CavityMode{m, 1, pole, 1.0}, Mode{pole, 1.0, 1.0, Kind::kept}, pole, pole});
        }
        change(pairs);
        ::testing::internal::CaptureStdout();
        const bool met = print_verdict(pairs);
        return std::pair(met, ::testing::internal::GetCapturedStdout().find("MISSED") == std::string::npos);
    };
    const std::pair good(true, true), missed(false, false);
    EXPECT_EQ(verdict([](auto&) {}), good);
    EXPECT_EQ(verdict([](auto& pairs) { pairs[7].found->pole *= 1.0 + 0.9e-8; }), good);
    EXPECT_EQ(verdict([](auto& pairs) { pairs[7].found->pole *= 1.0 + 1.1e-8; }), missed);
    EXPECT_EQ(verdict([](auto& pairs) { pairs[0].found->pole -= 0.9e-5; }), good);
    EXPECT_EQ(verdict([](auto& pairs) { pairs[0].found->pole -= 1.1e-5; }), missed);
    EXPECT_EQ(verdict([](auto& pairs) { pairs[3].found.reset(); }), missed);
    EXPECT_EQ(verdict([](auto& pairs) { pairs[8].found.reset(); }), good) << "the ninth is not asked for";
    EXPECT_EQ(verdict([](auto& pairs) { pairs.resize(7); }), missed);
    EXPECT_EQ(verdict([](auto& pairs) { pairs.push_back({{}, pairs[0].found}); }), missed);
    EXPECT_EQ(verdict([](auto& pairs) { *pairs[2].arpack *= 1.0 + 0.9e-11; }), good);
    EXPECT_EQ(verdict([](auto& pairs) { *pairs[2].arpack *= 1.0 + 1.1e-11; }), missed);
    EXPECT_EQ(verdict([](auto& pairs) { *pairs[2].hybrj1 -= 1.1e-9; }), missed);
    EXPECT_EQ(verdict([](auto& pairs) { pairs[7].hybrj1.reset(); }), missed);
}

TEST(Verdict, AsksForAnOrderBetweenTheSingularValuesAndTheFit)
{
    const std::vector<Pair> pairs(5, Pair{CavityMode{1, 1, {-0.1, 1.0}, 1.0}, {}});
    const auto verdict = [&](Index record, std::optional<Index> analytic, Index order) {
        ::testing::internal::CaptureStdout();
        const auto of_rank = [](Index rank) { return Hankel{true, rank, {}, {}, {}}; };
        const bool met = print_order_verdict(of_rank(record),
                                             analytic ? std::optional(of_rank(*analytic)) : std::nullopt, order, pairs);
        EXPECT_EQ(::testing::internal::GetCapturedStdout().find("MISSED") == std::string::npos, met);
        return met;
    };
    EXPECT_TRUE(verdict(10, 5, 10));
    EXPECT_FALSE(verdict(9, 5, 10));
    EXPECT_FALSE(verdict(11, 5, 10));
    EXPECT_FALSE(verdict(10, 4, 10));
    EXPECT_FALSE(verdict(10, 10, 10));
    EXPECT_FALSE(verdict(10, {}, 10));
}

TEST(Verdict, AsksForAPeakAtEachModeAndTheExactResponse)
{
    std::vector<Pair> pairs;
    Response response;
    for (Index m = 1; m <= 9; ++m) {
        const double frequency = static_cast<double>(m);
        pairs.push_back({CavityMode{m, 1, {-0.1, 2.0 * pi * frequency}, 1.0}, {}});
        response.peaks.push_back(frequency + 0.4 * 0.1 / pi);
        response.frequencies.push_back(frequency);
        response.exact.push_back(100.0 / frequency);
    }
    response.values = response.exact;
    const auto verdict = [&](const Response& changed) {
        ::testing::internal::CaptureStdout();
        const bool met = print_response_verdict(changed, pairs);
        ::testing::internal::GetCapturedStdout();
        return met;
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

TEST(Choice, ReportsWhyTheFitFailed)
{
    const tessel::Api api = tessel::Library(TESSEL_LIBRARY).create();
    const Fit fit = fit_samples(*api, {1.0, 2.0, 3.0, 4.0}, 1.0, 3);
    EXPECT_EQ(fit.failure, "Sub LEASTSQ_PRONY_SVD: input parameters out of bounds !");
    EXPECT_EQ(error_of([&] { best_fit({fit}); }), fit.failure);
}

TEST(CommandLine, NamesTheOptionAtFault)
{
    const auto error = [](std::vector<std::string> words) { return error_of([&] { parse_options(words); }); };
    EXPECT_EQ(error({"--records", "x"}), "--records: unknown option; --help lists them");
    EXPECT_EQ(error({"x.dat"}), "x.dat: unknown option; --help lists them");
    EXPECT_EQ(error({"--start"}), "--start: a value is missing");
    EXPECT_EQ(error({"--decimate", "0"}), "--decimate: '0' is not a whole number from 1 on");
    EXPECT_EQ(error({"--samples=1e3"}), "--samples: '1e3' is not a whole number from 1 on");
    EXPECT_EQ(error({"--record", "x", "--dt", "nan"}), "--dt: 'nan' is not a time above zero");
    EXPECT_EQ(error({"--dt", "1"}), "--dt: the spacing belongs to a record, which --record names");
    EXPECT_EQ(error({"--orders", "3:1"}), "--orders: '3:1' ends before it begins");
    EXPECT_EQ(error({"--orders", "1:2:3:4"}), "--orders: '1:2:3:4' is not FIRST, FIRST:LAST or FIRST:LAST:STEP");

    EXPECT_EQ(parse_options({"--orders", "4:9:2"}).orders, (std::vector<Index>{4, 6, 8}));
    EXPECT_EQ(parse_options({"--orders=7"}).orders, (std::vector<Index>{7}));
    EXPECT_EQ(parse_options({"--start", "-1.5e-9"}).start, -1.5e-9);
}

struct Outcome
{
    int status;
    std::string output, errors;
};

Outcome run(const std::string& arguments, const std::string& environment = "")
{
    const TemporaryFile errors("");
    const std::string command = environment + " " RESONATOR_PROGRAM " " + arguments + " 2>" + errors.path;
    std::FILE* const pipe = popen(command.c_str(), "r");
    Outcome outcome{};
    char part[4096];
    while (const std::size_t size = std::fread(part, 1, sizeof part, pipe))
        outcome.output.append(part, size);
    outcome.status = WEXITSTATUS(pclose(pipe));
    std::ifstream stream(errors.path);
    outcome.errors.assign(std::istreambuf_iterator<char>(stream), {});
    return outcome;
}

/// The number of lines of a file that are no comment.
Index data_lines(const std::string& path)
{
    std::ifstream file(path);
    Index count = 0;
    for (std::string line; std::getline(file, line);)
        count += !line.empty() && line[0] != '#';
    return count;
}

TEST(Program, FindsTheModesOfTheSimulatedCavity)
{
    char folder[] = "/tmp/resonator-test-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::string prefix = std::string(folder) + "/new/cavity";
    const Outcome outcome = run("--output " + prefix + " --orders 90");
    EXPECT_EQ(outcome.status, 0) << outcome.output << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    EXPECT_NE(outcome.output.find("as expected."), std::string::npos) << outcome.output;
    EXPECT_EQ(data_lines(prefix + "-record.dat"), Cavity{}.steps + 1);
    EXPECT_GE(data_lines(prefix + "-modes.dat"), 8);
    EXPECT_EQ(data_lines(prefix + "-poles.dat"), 90);
    EXPECT_EQ(data_lines(prefix + "-singular.dat"), 132 + 88);
    EXPECT_GE(data_lines(prefix + "-response.dat"), 600);
    std::filesystem::remove_all(folder);
}

TEST(Program, ReportsModesThatItMissed)
{
    const Outcome outcome = run("--orders 10");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.output.find("MISSED"), std::string::npos) << outcome.output;
}

TEST(Program, FitsARecordFromAFile)
{
    std::string content = "# time, field\n";
    for (int k = 0; k < 400; ++k) {
        const double t = 1e-12 * k;
        char line[100];
        std::snprintf(line, sizeof line, "%.17g %.17g\n", t,
                      std::exp(-5e8 * t) * std::cos(2.0 * pi * 60e9 * t) +
                          0.2 * std::exp(-2e9 * t) * std::sin(2.0 * pi * 95e9 * t));
        content += line;
    }
    const TemporaryFile file(content);
    const Outcome outcome = run("--record " + file.path);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_NE(outcome.output.find("2 modes, 2 complex conjugates"), std::string::npos) << outcome.output;
    EXPECT_NE(outcome.output.find("Singular values above noise: 4 of 67 of the record"), std::string::npos)
        << outcome.output;
    EXPECT_NE(outcome.output.find("60.0000000000        376.9911   5.00000e-01"), std::string::npos) << outcome.output;
    EXPECT_NE(outcome.output.find("95.0000000000        149.2257   1.00000e-01"), std::string::npos) << outcome.output;
}

TEST(Program, DoesWithoutGnuplot)
{
    const TemporaryFile file("0 1\n1 0.5\n2 0.25\n3 0.125\n4 0.0625\n5 0.03125\n");
    const TemporaryFile prefix("");
    const Outcome outcome = run("--record " + file.path + " --orders 1 --output " + prefix.path, "PATH=/nowhere");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_NE(outcome.output.find("no picture: gnuplot: No such file or directory\n"), std::string::npos);
    for (const char* name : {"-record.dat", "-modes.dat", "-poles.dat", "-singular.dat", "-response.dat"})
        EXPECT_TRUE(std::filesystem::remove(prefix.path + name)) << name;
}

TEST(Program, SaysInOneLineWhatIsWrong)
{
    const TemporaryFile bad("0 1\n1 x\n"), zero("0 0\n1 0\n2 0\n3 0\n"), brief("0 1\n1 2\n2 3\n");
    const TemporaryFile ramp("0 1\n1 2\n2 3\n3 4\n4 5\n");
    const std::pair<std::string, std::string> cases[] = {
        {"--record " + bad.path, bad.path + ":2: 'x' is not a number"},
        {"--record " + zero.path, "the record is zero where it would be fitted: "
                                  "is the probe on a node of every mode?"},
        {"--record " + brief.path, "too few samples are left to fit: 3, where 4 are the least"},
        {"--record " + ramp.path + " --start 9", "--start: the record ends before this time"},
        {"--record " + ramp.path + " --orders 3", "order 3 takes 6 samples at least; there are 5"},
        {"--record " + ramp.path + " --output " + bad.path + "/x", bad.path + ": cannot be made: Not a directory"},
        {"--library /no/such/library.so", "Tessel cannot be loaded: /no/such/library.so: cannot open shared "
                                          "object "
                                          "file: No such file or directory"},
        {"--bogus", "--bogus: unknown option; --help lists them"},
    };
    for (const auto& [arguments, message] : cases) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.errors, "resonator: " + message + "\n") << arguments;
    }
    EXPECT_EQ(run("--help").output, kHelp);
}

} // namespace
} // namespace resonator
