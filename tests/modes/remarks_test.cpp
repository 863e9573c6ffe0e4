// Each remark is made where it is due, with its value; each fault of the input is named; options do what they say.
#include "tests/modes/synthetic.h"
#include "tests/support/address_space.h"
#include "tests/support/child.h"
#include "tests/support/sanitized.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <set>
#include <string>
#include <thread>

#include <sys/resource.h>

namespace tessel::modes {
namespace {

const std::vector<Line> kLines = {{0.021, 0.0004, 1.0, 0.3}, {0.034, 0.002, 0.4, -1.2}, {0.0347, 0.0011, 0.6, 2.1}};

/// The value of a remark that is made once, as one sentence.
double value_of(const Result& result, RemarkCode code)
{
    double value = NAN;
    int count = 0;
    for (const Remark& remark : result.remarks)
        if (remark.code == code) {
            value = remark.value;
            ++count;
            EXPECT_FALSE(remark.text.empty());
            EXPECT_EQ(remark.text.find('\n'), std::string::npos);
        }
    EXPECT_EQ(count, 1) << name(code);
    EXPECT_EQ(result.has(code), count > 0);
    return value;
}

TEST(Remarks, NoneOfACleanRecord)
{
    for (const double noise : {0.0, 1e-4})
        EXPECT_TRUE(analyse(record(kLines, 4000, noise), 0, 1).remarks.empty());
}

TEST(Remarks, DriveSkipped)
{
    for (const double noise : {0.0, 1e-6}) {
        std::vector<double> y = record({kLines[0], kLines[2]}, 5000, noise);
        add_burst(y, 3, 200, 38, 0.17); // sinks below 1e-9 at 466, below the rounding of a double at 524
        const Result result = analyse(y, 10, 0.5);
        EXPECT_EQ(result.firstSampleReason, FirstSampleReason::driveSkipped);
        EXPECT_EQ(value_of(result, RemarkCode::driveSkipped), 10 + 0.5 * static_cast<double>(result.firstSample));
        EXPECT_EQ(result.referenceTime, value_of(result, RemarkCode::driveSkipped));
        EXPECT_GT(result.firstSample, 300U);
        EXPECT_LT(result.firstSample, 800U);
        ASSERT_EQ(result.modes.size(), 2U);
        EXPECT_NEAR(result.modes[0].frequency, 2 * kLines[0].frequency, 6 * result.modes[0].frequencyError + 1e-11);
        EXPECT_NEAR(result.modes[1].decay, 2 * kLines[2].decay, 6 * result.modes[1].decayError + 1e-11);
    }
}

TEST(Remarks, NothingRings)
{
    std::vector<double> pulse(2000), step(2000);
    add_burst(pulse, 1, 300, 21, 0.3);
    std::fill(step.begin() + 700, step.end(), 1.0);
    for (const std::vector<double>& y : {record({}, 3000, 1.0), pulse, step}) {
        const Result result = analyse(y, 0, 1);
        EXPECT_TRUE(result.modes.empty());
        ASSERT_TRUE(result.has(RemarkCode::nothingRings));
        EXPECT_EQ(result.remarks.back().text, "nothing rings in this record");
    }
}

// Of a band without a line, in a record that has one.
TEST(Remarks, NothingRingsInTheBand)
{
    const std::vector<double> y = record({{0.02, 1e-3, 1, 0.5}}, 2000, 1e-3);
    const auto text = [](const auto& result) {
        EXPECT_TRUE(result.modes.empty());
        return result.has(RemarkCode::nothingRings) ? result.remarks.back().text : "";
    };
    Options options;
    options.lowest = 0.1;
    EXPECT_EQ(text(analyse(y, 0, 1, options)), "nothing rings in the band from 0.1 on, but there are lines below");
    options.highest = 0.2;
    const std::string band = "nothing rings in the band from 0.1 to 0.2, but there are lines outside";
    EXPECT_EQ(text(analyse(y, 0, 1, options)), band);
    EXPECT_EQ(text(analyseJointly({{y, 0}, {y, 5}}, 1, options)), band);
    EXPECT_EQ(text(analyse(record({}, 2000, 1.0), 0, 1, options)), "nothing rings in this record");
}

TEST(Remarks, ConstantRecord)
{
    for (const double value : {0.0, -2.5}) {
        const Result result = analyse(std::vector<double>(500, value), 0, 1);
        EXPECT_TRUE(result.modes.empty());
        EXPECT_EQ(value_of(result, RemarkCode::constantRecord), value);
        EXPECT_EQ(value_of(result, RemarkCode::nothingRings), std::abs(value));
    }
}

// A pulse without noise falls far below what its own rounding allows: exponentials explain any smooth tail.
TEST(Remarks, TailOfAPulseHasNoMode)
{
    for (const double turn : {0.03, 0.1, 0.2, 0.3}) {
        std::vector<double> y(600);
        for (std::size_t k = 0; k < y.size(); ++k) {
            const double t = static_cast<double>(k) - 120;
            y[k] = 0.014 * std::exp(-0.5 * t * t / 225) * std::cos(turn * t);
        }
        const Result result = analyse(y, 0, 1);
        EXPECT_TRUE(result.modes.empty()) << turn;
        EXPECT_TRUE(result.has(RemarkCode::nothingRings)) << turn;
    }
}

// A record of the length that the remark asks for tells the decay.
TEST(Remarks, RecordTooShort)
{
    const std::vector<Line> line = {{0.02, 5e-5, 1, 0.5}};
    const Result result = analyse(record(line, 800, 0.1), 0, 1);
    ASSERT_EQ(result.modes.size(), 1U);
    const double length = value_of(result, RemarkCode::recordTooShort);
    EXPECT_GT(length, 800);
    ASSERT_LT(length, 20000);
    const Result longer = analyse(record(line, static_cast<std::size_t>(1.2 * length), 0.1), 0, 1);
    ASSERT_EQ(longer.modes.size(), 1U);
    EXPECT_FALSE(longer.has(RemarkCode::recordTooShort));
    EXPECT_LT(longer.modes[0].decayError, 0.7 * longer.modes[0].decay);
}

TEST(Remarks, CoarseSpacing)
{
    const Result edge = analyse(record({{0.1, 1e-3, 1, 0.2}, {0.47, 1e-3, 1, 0.5}}, 2000, 1e-3), 0, 1);
    ASSERT_EQ(edge.modes.size(), 2U);
    EXPECT_EQ(value_of(edge, RemarkCode::bandEdge), edge.modes[1].frequency);
    const Result coarse = analyse(record({{0.1, 1e-3, 1, 0.2}, {0.42, 1e-3, 1, 0.5}}, 2000, 1e-3), 0, 1);
    ASSERT_EQ(coarse.modes.size(), 2U);
    EXPECT_FALSE(coarse.has(RemarkCode::bandEdge));
    const double spacing = value_of(coarse, RemarkCode::spacingTooCoarse);
    EXPECT_LE(spacing * coarse.modes[1].frequency, 0.4);
    EXPECT_GE(spacing * coarse.modes[1].frequency, 0.2);
}

// A cosine whose phase jumps at random has no modes, and no other description that would do.
TEST(Remarks, ModelUnexplained)
{
    testing::Random random(3);
    std::vector<double> y(2000);
    double phase = 0;
    for (std::size_t k = 0; k < y.size(); ++k) {
        if (random.uniform() < 0.02)
            phase += random.uniform(1, 5);
        y[k] = std::cos(0.2 * static_cast<double>(k) + phase);
    }
    add_noise(y, 1e-4, 1);
    Options options;
    options.first = 0;
    const Result result = analyse(y, 0, 1, options);
    EXPECT_TRUE(result.modes.empty());
    EXPECT_EQ(value_of(result, RemarkCode::modelUnexplained), result.reducedChiSquare);
    EXPECT_GT(result.reducedChiSquare, 1.5);
}

TEST(Remarks, CloseModes)
{
    const Result result = analyse(record({{0.02, 1e-3, 1, 0.3}, {0.0202, 1e-3, 1, 3.3}}, 3000, 0.3, 3), 0, 1);
    ASSERT_EQ(result.modes.size(), 2U);
    EXPECT_EQ(value_of(result, RemarkCode::closeModes), (result.modes[0].frequency + result.modes[1].frequency) / 2);
}

TEST(Remarks, Background)
{
    std::vector<double> y = record({kLines[0]}, 4000, 1e-5);
    for (std::size_t k = 0; k < y.size(); ++k)
        y[k] += 3 + 1e-4 * static_cast<double>(k);
    const Result drift = analyse(y, 0, 1);
    ASSERT_EQ(drift.modes.size(), 1U);
    EXPECT_NEAR(drift.modes[0].decay, kLines[0].decay, 5 * drift.modes[0].decayError);
    EXPECT_TRUE(drift.has(RemarkCode::background));

    y = record({kLines[0]}, 4000, 1e-5);
    for (double& v : y)
        v -= 3;
    const Result offset = analyse(y, 0, 1);
    ASSERT_EQ(offset.modes.size(), 1U);
    EXPECT_NEAR(std::abs(value_of(offset, RemarkCode::background)), 3, 1e-4);
}

// Few samples leave no band for the noise: it is what the fit leaves.
TEST(Remarks, NoiseAssumed)
{
    const std::vector<Line> lines = {{0.11, 0.01, 1, 0.3}, {0.24, 0.02, 0.5, 1}};
    for (const double noise : {1e-2, 1e-3, 1e-6}) {
        const Result result = analyse(record(lines, 40, noise), 0, 1);
        ASSERT_EQ(result.modes.size(), 2U);
        EXPECT_EQ(value_of(result, RemarkCode::noiseAssumed), result.noise);
        EXPECT_NEAR(result.noise, noise, 0.5 * noise);
        for (std::size_t j : {0, 1}) {
            EXPECT_NEAR(result.modes[j].frequency, lines[j].frequency, 6 * result.modes[j].frequencyError);
            EXPECT_NEAR(result.modes[j].decay, lines[j].decay, 6 * result.modes[j].decayError);
        }
    }
}

TEST(Remarks, GrowingMode)
{
    const Result result = analyse(record({kLines[0], {0.015, -0.001, 1e-3, 0.5}}, 4000, 1e-5), 0, 1);
    ASSERT_EQ(result.modes.size(), 2U);
    EXPECT_EQ(value_of(result, RemarkCode::growingMode), result.modes[0].frequency);
}

TEST(Remarks, ColouredNoise)
{
    const std::vector<Line> lines = {{0.2, 0.002, 1, 0.3}, {0.31, 0.004, 0.5, 1}};
    std::vector<double> y(3000);
    add_lines(y, lines);
    add_noise(y, 1e-3, 1, 0.9); // its spectrum falls from 1 / (1 - 0.9) to 1 / (1 + 0.9)
    const Result result = analyse(y, 0, 1);
    ASSERT_EQ(result.modes.size(), 2U);
    const double contrast = value_of(result, RemarkCode::colouredNoise);
    EXPECT_GT(contrast, 19.0 / 2);
    EXPECT_LT(contrast, 19.0 * 2);
    for (std::size_t j : {0, 1})
        EXPECT_NEAR(result.modes[j].frequency, lines[j].frequency, 5 * result.modes[j].frequencyError);
}

TEST(Remarks, SearchStopped)
{
    Options options;
    options.mostModes = 2;
    const Result result = analyse(record(kLines, 4000, 1e-4), 0, 1, options);
    EXPECT_TRUE(result.has(RemarkCode::searchStopped));
}

TEST(Remarks, NamesAreThoseOfTheEnumerators)
{
    std::set<std::string> names;
    for (int code = 0; code <= static_cast<int>(RemarkCode::colouredNoise); ++code)
        names.insert(name(static_cast<RemarkCode>(code)));
    EXPECT_EQ(names.size(), 13U);
    EXPECT_EQ(names.count(""), 0U);
    EXPECT_STREQ(name(RemarkCode::recordTooShort), "recordTooShort");
}

template <class Samples>
void expect_fault(const Samples& samples, double start, double spacing, const Options& options, InputFault fault,
                  std::size_t index)
{
    try {
        analyse(samples, start, spacing, options);
        ADD_FAILURE() << "accepted";
    } catch (const InputError& error) {
        EXPECT_EQ(error.fault(), fault) << error.what();
        EXPECT_EQ(error.index(), index) << error.what();
        EXPECT_GT(std::strlen(error.what()), 10U);
    }
}

TEST(Faults, EachIsNamed)
{
    constexpr double kInfinite = std::numeric_limits<double>::infinity();
    const std::vector<double> y = record(kLines, 100, 0);
    expect_fault(std::vector<double>(), 0, 1, {}, InputFault::tooFewSamples, 0);
    expect_fault(std::vector<double>(7, 1.0), 0, 1, {}, InputFault::tooFewSamples, 7);
    for (const double spacing : {0.0, -1.0, kInfinite, double(NAN)})
        expect_fault(y, 0, spacing, {}, InputFault::spacing, 0);
    for (const double start : {kInfinite, double(NAN)})
        expect_fault(y, start, 1, {}, InputFault::start, 0);
    for (const double wrong : {-kInfinite, double(NAN)}) {
        std::vector<double> broken = y;
        broken[42] = broken[77] = wrong;
        expect_fault(broken, 0, 1, {}, InputFault::notFinite, 42);
        std::vector<std::complex<double>> complex(y.begin(), y.end());
        complex[99] = {0, wrong};
        expect_fault(complex, 0, 1, {}, InputFault::notFinite, 99);
    }
    Options options;
    for (const std::size_t first : {std::size_t(93), std::size_t(100), std::numeric_limits<std::size_t>::max()}) {
        options.first = first;
        expect_fault(y, 0, 1, options, InputFault::tooFewSamples, 100);
    }
    for (const double noise : {0.0, -1.0, kInfinite, double(NAN)}) {
        options = Options();
        options.noise = noise;
        expect_fault(y, 0, 1, options, InputFault::option, 0);
    }
    options = Options();
    options.lowest = 0.2;
    for (const double highest : {0.2, 0.1, double(NAN)}) {
        options.highest = highest;
        expect_fault(y, 0, 1, options, InputFault::option, 0);
    }
}

// The fewest samples, and the smallest and largest numbers: an answer, with nothing in it that is not a number.
TEST(Faults, NoneAtTheLimits)
{
    for (const double scale : {1e-300, 1.0, 1e300}) {
        std::vector<double> y = record({kLines[0]}, 2000, 1e-4);
        for (double& v : y)
            v *= scale;
        const Result result = analyse(y, 0, 1);
        ASSERT_EQ(result.modes.size(), 1U) << scale;
        EXPECT_NEAR(result.modes[0].frequency, kLines[0].frequency, 5 * result.modes[0].frequencyError);
        EXPECT_NEAR(result.modes[0].amplitude / scale, 1, 5 * result.modes[0].amplitudeError / scale);
    }
    for (std::size_t n = 8; n < 40; ++n)
        for (const Mode& m : analyse(record({{0.13, 0.02, 1, 1}}, n, 1e-2, n), 0, 1).modes) {
            EXPECT_TRUE(std::isfinite(m.frequency + m.decay + m.amplitude + m.phase)) << n;
            EXPECT_TRUE(std::isfinite(m.frequencyError + m.decayError + m.amplitudeError + m.phaseError)) << n;
        }
}

TEST(Options, BandChoosesWhatIsReported)
{
    const std::vector<double> y = record(kLines, 4000, 1e-4);
    const Result all = analyse(y, 0, 1);
    Options options;
    options.lowest = 0.03;
    options.highest = 0.0345;
    const Result some = analyse(y, 0, 1, options);
    EXPECT_EQ(some.lowest, 0.03);
    EXPECT_EQ(some.highest, 0.0345);
    ASSERT_EQ(all.modes.size(), 3U);
    ASSERT_EQ(some.modes.size(), 1U);
    EXPECT_EQ(some.modes[0].frequency, all.modes[1].frequency);
    EXPECT_EQ(some.modes[0].frequencyError, all.modes[1].frequencyError);
}

TEST(Options, NoiseIsTheUnitOfChiSquare)
{
    const std::vector<double> y = record(kLines, 4000, 1e-4);
    const Result found = analyse(y, 0, 1);
    Options options;
    options.noise = 2e-4;
    const Result given = analyse(y, 0, 1, options);
    EXPECT_EQ(given.noise, 2e-4);
    EXPECT_NEAR(found.noise, 1e-4, 2e-5);
    EXPECT_NEAR(given.reducedChiSquare, 0.25, 0.05);
    ASSERT_EQ(given.modes.size(), 3U);
    for (std::size_t j = 0; j < 3; ++j)
        EXPECT_NEAR(given.modes[j].frequency, found.modes[j].frequency, 0.1 * found.modes[j].frequencyError);
}

TEST(Options, ProgressIsToldAndCanStop)
{
    const std::vector<double> y = record(kLines, 4000, 1e-4);
    const std::set<std::string> stages = {"band", "start", "refine", "search", "select", "drive", "errors"};
    const std::thread::id caller = std::this_thread::get_id();
    Options options;
    std::size_t calls = 0, modes = 0;
    options.progress = [&](const Progress& progress) {
        EXPECT_EQ(std::this_thread::get_id(), caller);
        EXPECT_EQ(stages.count(progress.stage), 1U) << progress.stage;
        EXPECT_GE(progress.part, 0);
        EXPECT_LE(progress.part, 1);
        modes = progress.modes;
        ++calls;
        return true;
    };
    EXPECT_EQ(analyse(y, 0, 1, options).modes.size(), 3U);
    EXPECT_GE(modes, 3U);
    const std::size_t all = calls;
    ASSERT_GT(all, 3U);
    for (std::size_t stop = 1; stop <= all; ++stop) {
        calls = 0;
        options.progress = [&](const Progress&) { return ++calls < stop; };
        EXPECT_THROW(analyse(y, 0, 1, options), Stopped);
        EXPECT_EQ(calls, stop);
    }
    options.progress = [](const Progress&) -> bool { throw 7; };
    EXPECT_THROW(analyse(y, 0, 1, options), int);
}

// Twenty times the record, and what the allocator keeps beside: a process that can have no more comes to its end.
TEST(Memory, IsBoundedByTheRecord)
{
    if (testing::kSanitized)
        GTEST_SKIP() << "shadow memory counts";
    const std::vector<double> y = record(kLines, 400000, 1e-4);
    const testing::Outcome outcome = testing::run_in_child([&] {
        const rlim_t most = testing::address_space() + 20 * y.size() * sizeof(double);
        const rlimit limit = {most, most};
        setrlimit(RLIMIT_AS, &limit);
        return analyse(y, 0, 1).modes.size() == kLines.size() ? 0 : 1;
    });
    EXPECT_TRUE(outcome.well) << outcome.output;
}

} // namespace
} // namespace tessel::modes
