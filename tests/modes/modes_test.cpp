// Known answers, and relations between the results of related records.
#include "tests/modes/synthetic.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>

namespace tessel::modes {
namespace {

constexpr auto kRadians = static_cast<double>(kTwoPi); // a cycle

const std::vector<Line> kLines = {{0.021, 0.0004, 1.0, 0.3}, {0.034, 0.002, 0.4, -1.2}, {0.0347, 0.0011, 0.6, 2.1}};

void expect_lines(const Result& result, const std::vector<Line>& lines, double errors)
{
    ASSERT_EQ(result.modes.size(), lines.size());
    for (std::size_t j = 0; j < lines.size(); ++j) {
        const Mode& m = result.modes[j];
        EXPECT_NEAR(m.frequency, lines[j].frequency, errors * m.frequencyError + 1e-12);
        EXPECT_NEAR(m.decay, lines[j].decay, errors * m.decayError + 1e-12);
        EXPECT_NEAR(m.amplitude, lines[j].amplitude, errors * m.amplitudeError + 1e-9);
        EXPECT_NEAR(m.phase, lines[j].phase, errors * m.phaseError + 1e-9);
        EXPECT_NEAR(m.quality, kRadians / 2 * m.frequency / m.decay, 1e-12 * m.quality);
        EXPECT_GT(m.significance, 1);
    }
}

/// The modes of both have the same bits, in units of time and of the record that differ by these powers of two.
void expect_same(const Result& one, const Result& other, int time = 0, int amplitude = 0)
{
    ASSERT_EQ(one.modes.size(), other.modes.size());
    EXPECT_EQ(one.reducedChiSquare, other.reducedChiSquare);
    EXPECT_EQ(std::ldexp(one.noise, amplitude), other.noise);
    EXPECT_EQ(std::ldexp(one.highest, -time), other.highest);
    for (std::size_t j = 0; j < one.modes.size(); ++j) {
        const Mode &a = one.modes[j], &b = other.modes[j];
        EXPECT_EQ(std::ldexp(a.frequency, -time), b.frequency);
        EXPECT_EQ(std::ldexp(a.frequencyError, -time), b.frequencyError);
        EXPECT_EQ(std::ldexp(a.decay, -time), b.decay);
        EXPECT_EQ(std::ldexp(a.decayError, -time), b.decayError);
        EXPECT_EQ(std::ldexp(a.amplitude, amplitude), b.amplitude);
        EXPECT_EQ(std::ldexp(a.amplitudeError, amplitude), b.amplitudeError);
        EXPECT_EQ(a.phase, b.phase);
        EXPECT_EQ(a.phaseError, b.phaseError);
        EXPECT_EQ(a.quality, b.quality);
        EXPECT_EQ(a.significance, b.significance);
        EXPECT_EQ(a.kind, b.kind);
    }
}

/// Two values of one quantity: they differ by less than this part of the first one's standard errors.
void expect_near(const Mode& a, const Mode& b, double errors)
{
    EXPECT_NEAR(a.frequency, b.frequency, errors * a.frequencyError);
    EXPECT_NEAR(a.decay, b.decay, errors * a.decayError);
    EXPECT_NEAR(a.amplitude, b.amplitude, errors * a.amplitudeError);
    EXPECT_NEAR(std::remainder(a.phase - b.phase, kRadians), 0, errors * a.phaseError);
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
    const std::vector<double> y = record(kLines, 3000, 1e-5);
    const Result one = analyse(y, 0, 1);
    std::vector<double> scaled = y;
    for (double& v : scaled)
        v = std::ldexp(v, 40);
    const Result other = analyse(scaled, 5, std::ldexp(1.0, -50));
    EXPECT_EQ(other.referenceTime, 5);
    expect_same(one, other, -50, 40);

    // By a number that rounds every sample.
    for (double& v : scaled)
        v = std::ldexp(v, -40) * 3e-7;
    const Result third = analyse(scaled, 0, 1.0 / 3);
    ASSERT_EQ(third.modes.size(), one.modes.size());
    for (std::size_t j = 0; j < one.modes.size(); ++j) {
        Mode m = third.modes[j];
        m.frequency /= 3;
        m.decay /= 3;
        m.amplitude /= 3e-7;
        expect_near(one.modes[j], m, 1e-3);
        EXPECT_NEAR(m.frequencyError / 3, one.modes[j].frequencyError, 1e-3 * one.modes[j].frequencyError);
    }
}

TEST(Modes, FirstSampleGivenIsTheRecordCut)
{
    const std::vector<double> y = record(kLines, 3000, 1e-5);
    Options options;
    options.first = 300;
    const Result given = analyse(y, 7, 0.5, options);
    EXPECT_EQ(given.firstSample, 300U);
    EXPECT_EQ(given.firstSampleReason, FirstSampleReason::given);
    EXPECT_EQ(given.referenceTime, 157);
    EXPECT_TRUE(given.remarks.empty());
    options.first = 0;
    expect_same(given, analyse(std::vector<double>(y.begin() + 300, y.end()), 157, 0.5, options));
    // The same modes as from the whole, their amplitudes and phases carried on.
    const Result whole = analyse(y, 7, 0.5);
    EXPECT_EQ(whole.firstSampleReason, FirstSampleReason::wholeRecord);
    ASSERT_EQ(whole.modes.size(), given.modes.size());
    for (std::size_t j = 0; j < whole.modes.size(); ++j) {
        Mode m = whole.modes[j];
        m.amplitude *= std::exp(-m.decay * 150);
        m.phase += kRadians * m.frequency * 150;
        expect_near(given.modes[j], m, 4);
    }
}

TEST(Modes, ConjugateRecordHasConjugateModes)
{
    std::vector<double> re = record({}, 2000, 1e-5, 1), im = record({}, 2000, 1e-5, 2);
    std::vector<std::complex<double>> y, conjugate;
    for (std::size_t k = 0; k < re.size(); ++k) {
        const double t = static_cast<double>(k);
        y.push_back(std::polar(std::exp(-0.001 * t), 0.3 * t + 1) + std::polar(0.2, -0.11 * t) +
                    std::complex<double>(re[k], im[k]));
        conjugate.push_back(std::conj(y.back()));
    }
    const Result a = analyse(y, 0, 1), b = analyse(conjugate, 0, 1);
    ASSERT_EQ(a.modes.size(), 2U);
    ASSERT_EQ(b.modes.size(), 2U);
    EXPECT_NEAR(a.modes[1].frequency, 0.3 / kRadians, 5 * a.modes[1].frequencyError);
    EXPECT_NEAR(a.modes[1].amplitude, 1, 5 * a.modes[1].amplitudeError);
    EXPECT_NEAR(a.modes[1].phase, 1, 5 * a.modes[1].phaseError);
    EXPECT_NEAR(a.modes[0].frequency, -0.11 / kRadians, 5 * a.modes[0].frequencyError);
    for (std::size_t j : {0, 1}) {
        Mode m = b.modes[1 - j];
        m.frequency = -m.frequency;
        m.phase = -m.phase;
        expect_near(a.modes[j], m, 1e-3);
    }
}

TEST(Modes, RealRecordAsAComplexOne)
{
    const std::vector<double> y = record(kLines, 3000, 1e-4);
    const Result real = analyse(y, 0, 1);
    const Result complex = analyse(std::vector<std::complex<double>>(y.begin(), y.end()), 0, 1);
    ASSERT_EQ(real.modes.size(), 3U);
    ASSERT_EQ(complex.modes.size(), 6U);
    for (std::size_t j = 0; j < 3; ++j)
        for (const bool negative : {false, true}) {
            Mode m = complex.modes[negative ? 2 - j : 3 + j];
            m.amplitude *= 2; // of the pair
            if (negative) {
                m.frequency = -m.frequency;
                m.phase = -m.phase;
            }
            expect_near(real.modes[j], m, 0.1);
            EXPECT_NEAR(m.frequencyError, real.modes[j].frequencyError, 0.1 * m.frequencyError);
        }
}

TEST(Modes, AnAddedModeLeavesTheOthers)
{
    std::vector<double> y = record(kLines, 3000, 1e-4);
    const Result before = analyse(y, 0, 1);
    const Line added = {0.027, 0.0007, 0.05, -2};
    add_lines(y, {added});
    const Result after = analyse(y, 0, 1);
    expect_lines(after, {kLines[0], added, kLines[1], kLines[2]}, 5);
    ASSERT_EQ(before.modes.size(), 3U);
    for (std::size_t j : {0, 1, 2})
        expect_near(before.modes[j], after.modes[j == 0 ? 0 : j + 1], 0.5);
}

TEST(Modes, HalvesOfARecordAgree)
{
    const std::vector<double> y = record(kLines, 3000, 1e-5);
    const auto middle = y.begin() + 1500;
    const Result early = analyse(std::vector<double>(y.begin(), middle), 0, 1);
    const Result late = analyse(std::vector<double>(middle, y.end()), 1500, 1);
    ASSERT_EQ(early.modes.size(), 3U);
    ASSERT_EQ(late.modes.size(), 3U);
    for (std::size_t j = 0; j < 3; ++j) {
        const Mode &a = early.modes[j], &b = late.modes[j];
        EXPECT_NEAR(a.frequency, b.frequency, 5 * std::hypot(a.frequencyError, b.frequencyError));
        EXPECT_NEAR(a.decay, b.decay, 5 * std::hypot(a.decayError, b.decayError));
        EXPECT_NEAR(a.amplitude * std::exp(-a.decay * 1500), b.amplitude,
                    5 * std::hypot(b.amplitude * 1500 * a.decayError, b.amplitudeError));
        EXPECT_NEAR(std::remainder(a.phase + kRadians * a.frequency * 1500 - b.phase, kRadians), 0,
                    5 * std::hypot(kRadians * 1500 * a.frequencyError, b.phaseError));
    }
}

TEST(Modes, SameBitsFromSeveralThreads)
{
    std::vector<double> y = record({kLines[0], kLines[2]}, 3000, 1e-4);
    add_burst(y, 3, 150, 30, 0.17);
    const Result alone = analyse(y, 0, 1);
    EXPECT_EQ(alone.modes.size(), 2U);
    std::vector<Result> results(3);
    std::vector<std::thread> threads;
    for (Result& result : results)
        threads.emplace_back([&] { result = analyse(y, 0, 1); });
    for (std::thread& thread : threads)
        thread.join();
    results.push_back(analyse(y, 0, 1));
    for (const Result& result : results)
        expect_same(alone, result);
}

TEST(Modes, KindsAreToldApart)
{
    const Result growth = analyse(record({kLines[0], {0.015, -0.001, 1e-3, 0.5}}, 4000, 1e-5), 0, 1);
    ASSERT_EQ(growth.modes.size(), 2U);
    EXPECT_EQ(growth.modes[0].kind, Kind::growing);
    EXPECT_LT(growth.modes[0].quality, 0);
    EXPECT_EQ(growth.modes[1].kind, Kind::oscillating);

    const Result slow = analyse(record({kLines[0], {0, 0.002, 0.5, 0}}, 4000, 1e-5), 0, 1);
    ASSERT_EQ(slow.modes.size(), 2U);
    EXPECT_EQ(slow.modes[0].kind, Kind::overdamped);
    EXPECT_EQ(slow.modes[0].frequency, 0);
    EXPECT_NEAR(slow.modes[0].decay, 0.002, 5 * slow.modes[0].decayError);
    EXPECT_NEAR(slow.modes[0].amplitude, 0.5, 5 * slow.modes[0].amplitudeError);
    EXPECT_STREQ(name(slow.modes[0].kind), "overdamped");
}

// The residual shows little of a mode between two of its kind: they take it up, and would be off by many errors.
TEST(Modes, AHiddenNeighbourDoesNotMoveTheOthers)
{
    const double n = 1250;
    for (const double amplitude : {0.002, 0.005, 0.01})
        for (const double phase : {0.0, 1.5, 3.0, 4.5}) {
            const std::vector<Line> lines = {{82.2 / n, 17.8 / n, 0.28, 0.4},
                                             {89.2 / n, 21.6 / n, 0.43, -0.7},
                                             {110.8 / n, 1.2 / n, 0.58, 2.0},
                                             {86.3 / n, 16.7 / n, amplitude, phase}};
            const Result result = analyse(record(lines, 1250, 6e-5), 0, 1);
            for (std::size_t j = 0; j < 3; ++j) {
                const auto apart = [&](const Mode& mode) { return std::abs(mode.frequency - lines[j].frequency); };
                const auto near =
                    std::min_element(result.modes.begin(), result.modes.end(),
                                     [&](const Mode& one, const Mode& other) { return apart(one) < apart(other); });
                ASSERT_NE(near, result.modes.end());
                EXPECT_LT(apart(*near), 5 * near->frequencyError) << j << " " << amplitude << " " << phase;
                EXPECT_LT(std::abs(near->decay - lines[j].decay), 5 * near->decayError) << j;
            }
        }
}

} // namespace
} // namespace tessel::modes
