// Several records built of shared modes: known answers, relations that must hold, remarks, exceptions.
#include <tessel/modes.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace tessel::modes;

constexpr double kTwoPi = 6.283185307179586;

struct Pole
{
    double frequency, decay;
};

const std::vector<Pole> kPoles = {{0.021, 0.0004}, {0.034, 0.002}, {0.0347, 0.0011}};

/// Gaussian to good approximation, the same on every system.
double noise_of(std::mt19937& engine)
{
    double g = -6;
    for (int i = 0; i < 12; ++i)
        g += static_cast<double>(engine()) / 4294967296.0;
    return g;
}

/// Residues as complex amplitudes at the record's first sample.
std::vector<double> samples_of(const std::vector<Pole>& poles, const std::vector<std::complex<double>>& residues,
                               std::size_t n, double noise, unsigned seed)
{
    std::mt19937 engine(seed);
    std::vector<double> y(n);
    for (std::size_t k = 0; k < n; ++k) {
        const auto t = static_cast<double>(k);
        for (std::size_t j = 0; j < poles.size(); ++j)
            y[k] += std::exp(-poles[j].decay * t) *
                    (residues[j] * std::polar(1.0, kTwoPi * std::fmod(poles[j].frequency * t, 1.0))).real();
        y[k] += noise * noise_of(engine);
    }
    return y;
}

TEST(JointModes, EachModeMayBeMissingSomewhere)
{
    // Units, noise, lengths and starts of their own; each mode is missing in one record.
    const std::vector<std::vector<std::complex<double>>> residues = {
        {{1, 0.3}, {0, 0}, {0.2, -0.5}}, {{0, 0}, {40, 70}, {-90, 20}}, {{2e-6, 1e-6}, {-1e-6, 3e-6}, {0, 0}}};
    const double unit[] = {1, 100, 3e-6};
    std::vector<Record> records;
    for (std::size_t p = 0; p < 3; ++p) {
        const double level = unit[p] * (p == 1 ? 1e-2 : 1e-4);
        records.push_back({samples_of(kPoles, residues[p], 3000 - 400 * p, level, 11 + static_cast<unsigned>(p)),
                           7.0 + 50.0 * static_cast<double>(p)});
    }
    const JointResult result = analyseJointly(records, 1.0);
    ASSERT_EQ(result.modes.size(), 3U);
    ASSERT_EQ(result.records.size(), 3U);
    EXPECT_NEAR(result.reducedChiSquare, 1, 0.1);
    EXPECT_FALSE(result.has(RemarkCode::recordsDiffer));
    for (std::size_t j = 0; j < 3; ++j) {
        const JointMode& mode = result.modes[j];
        EXPECT_NEAR(mode.frequency, kPoles[j].frequency, 5 * mode.frequencyError);
        EXPECT_NEAR(mode.decay, kPoles[j].decay, 5 * mode.decayError);
        EXPECT_LT(mode.decayError, 1e-2 * mode.decay);
        EXPECT_GT(mode.significance, 1);
        for (std::size_t p = 0; p < 3; ++p) {
            const Residue& found = mode.residues[p];
            const std::complex<double> error = std::polar(found.amplitude, found.phase) - residues[p][j];
            EXPECT_LT(std::abs(error), 5 * std::max(found.amplitudeError, 1e-15)) << j << " in " << p;
            EXPECT_EQ(result.records[p].referenceTime, records[p].start);
        }
    }
}

TEST(JointModes, WhatIsWeakInEveryRecordIsFound)
{
    std::vector<Record> records;
    std::size_t alone = 0;
    for (unsigned p = 0; p < 24; ++p) {
        const std::vector<std::complex<double>> residues = {std::polar(1.0, 1.0 * p), std::polar(0.5, 2.0 * p),
                                                            std::polar(1.1e-3, 3.0 * p)};
        const std::vector<Pole> poles = {kPoles[0], kPoles[1], {0.047, 0.0008}};
        const std::vector<double> samples = samples_of(poles, residues, 3000, 1e-2, 100 + p);
        for (const Mode& mode : analyse(samples, 0, 1).modes)
            alone += std::abs(mode.frequency - 0.047) < 1e-3;
        records.push_back({samples, 0});
    }
    EXPECT_EQ(alone, 0U);
    const JointResult result = analyseJointly(records, 1);
    ASSERT_EQ(result.modes.size(), 3U);
    EXPECT_NEAR(result.modes[2].frequency, 0.047, 5 * result.modes[2].frequencyError);
    // The order of the records means nothing.
    std::reverse(records.begin(), records.end());
    const JointResult turned = analyseJointly(records, 1);
    ASSERT_EQ(turned.modes.size(), 3U);
    for (std::size_t j = 0; j < 3; ++j) {
        EXPECT_NEAR(turned.modes[j].frequency, result.modes[j].frequency, 0.05 * result.modes[j].frequencyError);
        EXPECT_NEAR(turned.modes[j].residues[0].amplitude, result.modes[j].residues[23].amplitude,
                    0.05 * result.modes[j].residues[23].amplitudeError);
    }
}

TEST(JointModes, StandardErrorsAreHonest)
{
    std::size_t within[2] = {0, 0}, count[2] = {0, 0};
    for (unsigned seed = 0; seed < 40; ++seed) {
        const std::vector<std::vector<std::complex<double>>> residues = {{{1, 0}, {0.3, 0.2}, {0.1, 0.4}},
                                                                         {{-0.5, 0.1}, {0.4, 0}, {0.2, -0.3}},
                                                                         {{0.1, 0}, {0.2, 0.5}, {-0.3, 0.1}}};
        std::vector<Record> records;
        for (std::size_t p = 0; p < 3; ++p)
            records.push_back({samples_of(kPoles, residues[p], 1500, 1e-3 * static_cast<double>(p + 1),
                                          100 * seed + static_cast<unsigned>(p) + 1),
                               0});
        const JointResult result = analyseJointly(records, 1);
        ASSERT_EQ(result.modes.size(), 3U);
        for (std::size_t j = 0; j < 3; ++j) {
            const JointMode& mode = result.modes[j];
            within[0] += std::abs(mode.frequency - kPoles[j].frequency) < mode.frequencyError;
            within[0] += std::abs(mode.decay - kPoles[j].decay) < mode.decayError;
            count[0] += 2;
            for (std::size_t p = 0; p < 3; ++p) {
                const Residue& found = mode.residues[p];
                within[1] += std::abs(found.amplitude - std::abs(residues[p][j])) < found.amplitudeError;
                within[1] +=
                    std::abs(std::remainder(found.phase - std::arg(residues[p][j]), kTwoPi)) < found.phaseError;
                count[1] += 2;
            }
        }
    }
    for (int k = 0; k < 2; ++k)
        EXPECT_NEAR(static_cast<double>(within[k]) / static_cast<double>(count[k]), 0.683, 0.08);
}

TEST(JointModes, ComplexRecordsKeepTheSignOfFrequencies)
{
    std::vector<Record> records;
    std::mt19937 engine(3);
    for (int p = 0; p < 4; ++p) {
        std::vector<std::complex<double>> y(2000);
        for (std::size_t k = 0; k < y.size(); ++k) {
            const auto t = static_cast<double>(k);
            y[k] = std::exp(-0.001 * t) * std::polar(1.0, kTwoPi * 0.03 * t) +
                   std::exp(-0.002 * t) * std::polar(p * 0.5, -kTwoPi * 0.045 * t + 1.0) +
                   1e-3 * std::complex<double>(noise_of(engine), noise_of(engine));
        }
        records.push_back({y, 0});
    }
    const JointResult result = analyseJointly(records, 1);
    ASSERT_EQ(result.modes.size(), 2U);
    EXPECT_NEAR(result.modes[0].frequency, -0.045, 5 * result.modes[0].frequencyError);
    EXPECT_NEAR(result.modes[1].frequency, 0.03, 5 * result.modes[1].frequencyError);
    EXPECT_NEAR(result.modes[0].residues[3].phase, 1.0, 5 * result.modes[0].residues[3].phaseError);
}

TEST(JointModes, DriveIsSkippedAtOneInstant)
{
    std::vector<Record> records;
    for (unsigned p = 0; p < 14; ++p) {
        const std::vector<std::complex<double>> residues = {std::polar(0.5, 1.0 * p), std::polar(0.3 + 0.05 * p, 2.0),
                                                            std::polar(0.6, 3.0 * p)};
        std::vector<double> y = samples_of(kPoles, residues, 2500, 1e-4, 200 + p);
        for (std::size_t k = 0; k < 120; ++k) {
            const double x = static_cast<double>(k) / 120;
            y[k] = 3 * std::pow(std::sin(kTwoPi / 2 * x), 2) * std::sin(3 + (5.0 + p) * x * x);
        }
        records.push_back({y, 0});
    }
    const JointResult result = analyseJointly(records, 1);
    ASSERT_EQ(result.modes.size(), 3U);
    EXPECT_TRUE(result.has(RemarkCode::driveSkipped));
    EXPECT_GE(result.records[0].firstSample, 100U);
    EXPECT_LT(result.records[0].firstSample, 200U);
    for (std::size_t j = 0; j < 3; ++j)
        EXPECT_NEAR(result.modes[j].decay, kPoles[j].decay, 5 * result.modes[j].decayError);
}

TEST(JointModes, ARecordOfAnotherStructureIsNoticed)
{
    const std::vector<Pole> other = {{0.025, 0.0006}, {0.0391, 0.001}, {0.044, 0.0012}};
    std::vector<Record> records;
    for (unsigned p = 0; p < 5; ++p)
        records.push_back({samples_of(p == 3 ? other : kPoles, {1, {0.5, 0.2}, {0, -0.7}}, 2500, 1e-3, p + 1), 0});
    const JointResult result = analyseJointly(records, 1);
    ASSERT_TRUE(result.has(RemarkCode::recordsDiffer));
    for (const Remark& remark : result.remarks)
        if (remark.code == RemarkCode::recordsDiffer) {
            EXPECT_EQ(remark.value, 3);
        }
}

TEST(JointModes, ARecordThatSharesFewModesIsNoticed)
{
    // Nine poles, of which record 3 shares two and has seven of its own.
    std::vector<Pole> poles, other;
    for (int j = 0; j < 9; ++j) {
        poles.push_back({0.012 + 0.004 * j, 0.0005 + 0.0001 * j});
        other.push_back(poles.back());
        if (j >= 2)
            other.back().frequency += 0.0017;
    }
    std::vector<Record> records;
    for (unsigned p = 0; p < 5; ++p)
        records.push_back({samples_of(p == 3 ? other : poles, {1, {0, 1}, 1, {0.6, 1}, -1, 1, {1, 0.2}, {0, 1}, 1},
                                      2500, 1e-3, p + 1),
                           0});
    std::vector<double> told;
    for (const Remark& remark : analyseJointly(records, 1).remarks)
        if (remark.code == RemarkCode::recordsDiffer)
            told.push_back(remark.value);
    EXPECT_EQ(told, std::vector<double>{3});
}

TEST(JointModes, NoiseOfAColourOfItsOwnIsWeightedInEachRecord)
{
    std::vector<Record> records;
    for (unsigned p = 0; p < 6; ++p) {
        std::vector<double> y = samples_of(kPoles, {1, {0.5, 0.2}, std::polar(0.4, 1.0 * p)}, 3000, 0, 1);
        std::mt19937 engine(p + 1);
        const double feedback = p % 2 == 0 ? 0.95 : -0.7;
        double state = 0;
        for (double& v : y)
            v += 1e-3 * (state = feedback * state + noise_of(engine));
        records.push_back({y, 0});
    }
    const JointResult result = analyseJointly(records, 1);
    ASSERT_EQ(result.modes.size(), 3U);
    EXPECT_TRUE(result.has(RemarkCode::colouredNoise));
    EXPECT_NEAR(result.reducedChiSquare, 1, 0.2);
    for (std::size_t j = 0; j < 3; ++j) {
        EXPECT_NEAR(result.modes[j].frequency, kPoles[j].frequency, 4 * result.modes[j].frequencyError);
        EXPECT_NEAR(result.modes[j].decay, kPoles[j].decay, 4 * result.modes[j].decayError);
    }
    EXPECT_NEAR(result.modes[0].residues[2].amplitude, 1, 5 * result.modes[0].residues[2].amplitudeError);
}

TEST(JointModes, ASimulationInSinglePrecisionHasItsModesAndNoOthers)
{
    // A lossless line of 20 cells between walls, rung from a Gaussian field: its rounding excites every mode at each
    // step and all probes hear it.
    constexpr std::size_t kCells = 20, kSteps = 3000, kProbes = 8;
    const float courant = 0.6F;
    std::vector<float> e(kCells + 1, 0), h(kCells, 0);
    for (std::size_t i = 1; i < kCells; ++i)
        e[i] = std::exp(-0.4F * (static_cast<float>(i) - 7.3F) * (static_cast<float>(i) - 7.3F));
    std::vector<std::vector<double>> samples(kProbes);
    for (std::size_t k = 0; k < kSteps; ++k) {
        for (std::size_t p = 0; p < kProbes; ++p)
            samples[p].push_back(static_cast<double>(e[2 * p + 3]));
        for (std::size_t i = 0; i < kCells; ++i)
            h[i] += courant * (e[i + 1] - e[i]);
        for (std::size_t i = 1; i < kCells; ++i)
            e[i] += courant * (h[i] - h[i - 1]);
    }
    std::vector<Record> records;
    for (const std::vector<double>& own : samples)
        records.push_back({own, 0});
    const JointResult result = analyseJointly(records, 1);
    ASSERT_EQ(result.modes.size(), kCells - 1);
    std::size_t within = 0;
    for (std::size_t m = 1; m < kCells; ++m) {
        const double half = static_cast<double>(courant) * std::sin(kTwoPi / 4 * static_cast<double>(m) / kCells);
        const JointMode& mode = result.modes[m - 1];
        const double error = std::abs(mode.frequency - 2 * std::asin(half) / kTwoPi);
        EXPECT_LT(error, 5 * mode.frequencyError) << m;
        within += error < 2 * mode.frequencyError;
    }
    EXPECT_GE(within, 17U);
}

TEST(JointModes, ConstantRecordsSayNothing)
{
    const std::vector<double> rings = samples_of(kPoles, {1, 0.5, 0.7}, 2000, 1e-3, 1);
    const JointResult result = analyseJointly({{std::vector<double>(50, 0.0), 0}, {rings, 0}}, 1);
    ASSERT_EQ(result.modes.size(), 3U);
    EXPECT_TRUE(result.records[0].constant);
    EXPECT_TRUE(result.has(RemarkCode::constantRecord));
    EXPECT_EQ(result.modes[0].residues[0].amplitude, 0);
    EXPECT_TRUE(result.of(0).has(RemarkCode::constantRecord));
    EXPECT_FALSE(result.of(1).has(RemarkCode::constantRecord));
    EXPECT_EQ(result.of(1).modes[2].amplitude, result.modes[2].residues[1].amplitude);
    EXPECT_EQ(result.of(1).modes[2].frequencyError, result.modes[2].frequencyError);
    EXPECT_NEAR(result.modes[0].residues[1].amplitude, 1, 0.01);
    EXPECT_TRUE(analyseJointly({{std::vector<double>(50, 2.0), 0}}, 1).has(RemarkCode::nothingRings));
}

TEST(JointModes, WithoutAModeThereIsARemark)
{
    // Noise alone, and a spike beside which nothing else is seen: in the fit of the latter no term is left.
    std::vector<double> spike = samples_of(kPoles, {1, 0.5, 0.7}, 1400, 1e-3, 1);
    spike[40] = 1e300;
    for (const std::vector<double>& y : {samples_of({}, {}, 1500, 1, 7), spike}) {
        const JointResult result = analyseJointly({{y, 0}, {y, 3}}, 1);
        EXPECT_TRUE(result.modes.empty());
        ASSERT_TRUE(result.has(RemarkCode::nothingRings));
        EXPECT_EQ(result.remarks.back().text, "nothing rings in this record");
    }
}

TEST(JointModes, BadInputNamesTheRecord)
{
    const std::vector<double> good = samples_of(kPoles, {1, 0.5, 0.7}, 500, 1e-3, 1);
    std::vector<double> bad = good;
    bad[7] = NAN;
    const auto fault = [](const std::vector<Record>& records, double spacing, const std::string& text) {
        try {
            analyseJointly(records, spacing);
        } catch (const InputError& error) {
            EXPECT_NE(std::string(error.what()).find(text), std::string::npos) << error.what();
            return static_cast<int>(error.fault());
        }
        return -1;
    };
    EXPECT_EQ(fault({}, 1, "no record"), static_cast<int>(InputFault::tooFewSamples));
    EXPECT_EQ(fault({{good, 0}, {bad, 0}}, 1, "record 1: sample 7"), static_cast<int>(InputFault::notFinite));
    EXPECT_EQ(fault({{good, 0}, {std::vector<double>(5), 0}}, 1, "record 1: "),
              static_cast<int>(InputFault::tooFewSamples));
    EXPECT_EQ(fault({{good, 0}, {std::vector<std::complex<double>>(50), 0}}, 1, "record 1: "),
              static_cast<int>(InputFault::option));
    EXPECT_EQ(fault({{good, 0}}, 0, "spacing"), static_cast<int>(InputFault::spacing));
    EXPECT_EQ(fault({{good, 0}, {good, INFINITY}}, 1, "record 1: "), static_cast<int>(InputFault::start));
    Options stop;
    stop.progress = [](const Progress&) { return false; };
    EXPECT_THROW(analyseJointly({{good, 0}}, 1, stop), Stopped);
}

} // namespace
