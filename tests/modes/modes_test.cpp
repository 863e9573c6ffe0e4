// Records built of known modes: known answers, relations that must hold, remarks, exceptions.
#include <tessel/modes.h>

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <vector>

namespace {

using namespace tessel::modes;

constexpr double kTwoPi = 6.283185307179586;

struct Line {
    double frequency, decay, amplitude, phase;
};

const std::vector<Line> kLines = {{0.021, 0.0004, 1.0, 0.3}, {0.034, 0.002, 0.4, -1.2}, {0.0347, 0.0011, 0.6, 2.1}};

std::vector<double> record(const std::vector<Line>& lines, std::size_t n, double noise, unsigned seed = 1)
{
    std::mt19937 engine(seed);
    std::vector<double> y(n);
    for (std::size_t k = 0; k < n; ++k) {
        const auto t = static_cast<double>(k);
        for (const Line& l : lines)
            y[k] += l.amplitude * std::exp(-l.decay * t) * std::cos(kTwoPi * l.frequency * t + l.phase);
        // a sum of twelve uniform numbers: the same on every system
        double g = -6;
        for (int i = 0; i < 12; ++i)
            g += static_cast<double>(engine()) / 4294967296.0;
        y[k] += noise * g;
    }
    return y;
}

void expect_lines(const Result& result, const std::vector<Line>& lines, double errors)
{
    ASSERT_EQ(result.modes.size(), lines.size());
    for (std::size_t j = 0; j < lines.size(); ++j) {
        const Mode& m = result.modes[j];
        EXPECT_NEAR(m.frequency, lines[j].frequency, errors * m.frequencyError + 1e-12);
        EXPECT_NEAR(m.decay, lines[j].decay, errors * m.decayError + 1e-12);
        EXPECT_NEAR(m.amplitude, lines[j].amplitude, errors * m.amplitudeError + 1e-9);
        EXPECT_NEAR(m.phase, lines[j].phase, errors * m.phaseError + 1e-9);
        EXPECT_GT(m.significance, 1);
    }
}

TEST(Modes, KnownAnswersAtAnyNoise)
{
    for (const double noise : {0.0, 1e-8, 1e-5, 1e-3})
        expect_lines(analyse(record(kLines, 4000, noise), 0, 1), kLines, 5);
}

// Four parameters of three modes in forty records: their errors' mean square is one, but for chance.
TEST(Modes, StandardErrorsAreHonest)
{
    double sum = 0;
    int count = 0;
    for (unsigned seed = 1; seed <= 40; ++seed) {
        const Result result = analyse(record(kLines, 3000, 1e-4, seed), 0, 1);
        ASSERT_EQ(result.modes.size(), kLines.size()) << seed;
        for (std::size_t j = 0; j < kLines.size(); ++j) {
            const Mode& m = result.modes[j];
            sum += std::pow((m.frequency - kLines[j].frequency) / m.frequencyError, 2) +
                   std::pow((m.decay - kLines[j].decay) / m.decayError, 2) +
                   std::pow((m.amplitude - kLines[j].amplitude) / m.amplitudeError, 2) +
                   std::pow((m.phase - kLines[j].phase) / m.phaseError, 2);
            count += 4;
        }
    }
    EXPECT_NEAR(sum / count, 1, 0.25);
}

TEST(Modes, UnitsOfTimeAndRecordScaleThrough)
{
    std::vector<double> y = record(kLines, 3000, 1e-5);
    const Result one = analyse(y, 0, 1);
    for (double& v : y)
        v = std::ldexp(v, 40);
    const Result other = analyse(y, 5, std::ldexp(1.0, -50));
    ASSERT_EQ(one.modes.size(), other.modes.size());
    EXPECT_EQ(other.referenceTime, 5);
    for (std::size_t j = 0; j < one.modes.size(); ++j) {
        EXPECT_EQ(std::ldexp(one.modes[j].frequency, 50), other.modes[j].frequency);
        EXPECT_EQ(std::ldexp(one.modes[j].decayError, 50), other.modes[j].decayError);
        EXPECT_EQ(std::ldexp(one.modes[j].amplitude, 40), other.modes[j].amplitude);
        EXPECT_EQ(one.modes[j].phase, other.modes[j].phase);
    }
}

TEST(Modes, ConjugateRecordHasConjugateModes)
{
    const std::vector<double> re = record(kLines, 2000, 1e-5, 1), noise = record({}, 2000, 1e-5, 2);
    std::vector<std::complex<double>> y, conjugate;
    for (std::size_t k = 0; k < re.size(); ++k) {
        const double t = static_cast<double>(k);
        y.emplace_back(std::polar(std::exp(-0.001 * t), 0.3 * t) + std::complex<double>(1e-5 * re[k], noise[k]));
        conjugate.push_back(std::conj(y.back()));
    }
    const Result a = analyse(y, 0, 1), b = analyse(conjugate, 0, 1);
    ASSERT_EQ(a.modes.size(), b.modes.size());
    ASSERT_GE(a.modes.size(), 1U);
    EXPECT_NEAR(a.modes.back().frequency, -b.modes.front().frequency, 1e-3 * a.modes.back().frequencyError);
    EXPECT_NEAR(a.modes.back().frequency, 0.3 / kTwoPi, 5 * a.modes.back().frequencyError);
}

TEST(Modes, OffsetsDriftsAndGrowthAreToldApart)
{
    std::vector<double> y = record({kLines[0], {0.015, -0.001, 1e-3, 0.5}}, 4000, 1e-5);
    const Result growth = analyse(y, 0, 1);
    ASSERT_EQ(growth.modes.size(), 2U);
    EXPECT_EQ(growth.modes[0].kind, Kind::growing);
    EXPECT_TRUE(growth.has(RemarkCode::growingMode));

    y = record({kLines[0]}, 4000, 1e-5);
    for (std::size_t k = 0; k < y.size(); ++k)
        y[k] += 3 + 1e-4 * static_cast<double>(k);
    const Result drift = analyse(y, 0, 1);
    expect_lines(drift, {kLines[0]}, 5);
    EXPECT_TRUE(drift.has(RemarkCode::background));

    y = record({kLines[0], {0, 0.002, 0.5, 0}}, 4000, 1e-5);
    const Result slow = analyse(y, 0, 1);
    ASSERT_EQ(slow.modes.size(), 2U);
    EXPECT_EQ(slow.modes[0].kind, Kind::overdamped);
    EXPECT_NEAR(slow.modes[0].decay, 0.002, 5 * slow.modes[0].decayError);
}

TEST(Modes, DriveIsSkipped)
{
    for (const double noise : {0.0, 1e-6}) {
        std::vector<double> y = record({kLines[0], kLines[2]}, 5000, noise);
        for (std::size_t k = 0; k < 400; ++k) {
            const double u = (static_cast<double>(k) - 200) / 38;
            y[k] += 3 * std::exp(-u * u / 2) * std::cos(0.17 * static_cast<double>(k));
        }
        const Result result = analyse(y, 0, 1);
        EXPECT_TRUE(result.has(RemarkCode::driveSkipped));
        ASSERT_EQ(result.modes.size(), 2U);
        EXPECT_NEAR(result.modes[0].frequency, kLines[0].frequency, 6 * result.modes[0].frequencyError + 1e-11);
        EXPECT_NEAR(result.modes[1].decay, kLines[2].decay, 6 * result.modes[1].decayError + 1e-11);
    }
}

TEST(Modes, NothingRings)
{
    std::vector<std::vector<double>> records = {record({}, 3000, 1.0), std::vector<double>(500, 0.0),
                                                std::vector<double>(500, 2.5), std::vector<double>(2000)};
    for (std::size_t k = 0; k < records[3].size(); ++k) {
        const double u = (static_cast<double>(k) - 300) / 30;
        records[3][k] = std::exp(-u * u) * std::cos(0.3 * static_cast<double>(k));
    }
    for (const std::vector<double>& y : records) {
        const Result result = analyse(y, 0, 1);
        EXPECT_TRUE(result.modes.empty());
        EXPECT_TRUE(result.has(RemarkCode::nothingRings));
    }
    EXPECT_TRUE(analyse(records[2], 0, 1).has(RemarkCode::constantRecord));
}

InputFault fault(const std::vector<double>& samples, double start, double spacing, const Options& options = {})
{
    try {
        analyse(samples, start, spacing, options);
    } catch (const InputError& e) {
        return e.fault();
    }
    ADD_FAILURE() << "accepted";
    return InputFault::option;
}

TEST(Modes, BadInputIsNamed)
{
    const std::vector<double> y = record(kLines, 100, 0);
    std::vector<double> broken = y;
    broken[42] = NAN;
    EXPECT_EQ(fault({1, 2, 3}, 0, 1), InputFault::tooFewSamples);
    EXPECT_EQ(fault(y, 0, 0), InputFault::spacing);
    EXPECT_EQ(fault(y, NAN, 1), InputFault::start);
    EXPECT_EQ(fault(broken, 0, 1), InputFault::notFinite);
    try {
        analyse(broken, 0, 1);
    } catch (const InputError& e) {
        EXPECT_EQ(e.index(), 42U);
    }
    Options options;
    options.noise = -1;
    EXPECT_EQ(fault(y, 0, 1, options), InputFault::option);
}

TEST(Modes, ProgressCanStop)
{
    Options options;
    int calls = 0;
    options.progress = [&](const Progress&) { return ++calls < 3; };
    EXPECT_THROW(analyse(record(kLines, 4000, 1e-4), 0, 1, options), Stopped);
    EXPECT_EQ(calls, 3);
}

} // namespace
