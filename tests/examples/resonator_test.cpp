#include "examples/resonator/report.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <numbers>

namespace resonator {
namespace {

constexpr double kTurn = 2.0 * std::numbers::pi;

tessel::modes::Mode mode(double frequency, double decay, double amplitude)
{
    tessel::modes::Mode mode;
    mode.frequency = frequency;
    mode.decay = decay;
    mode.quality = std::numbers::pi * frequency / decay;
    mode.amplitude = amplitude;
    return mode;
}

CavityMode exact_mode(Index m, double frequency, double decay, double amplitude)
{
    return {m, 1, {-decay, kTurn * frequency}, {0.0, 0.5 * amplitude}};
}

TEST(Comparison, PairsModesFoundWithTheExactOnes)
{
    tessel::modes::Result result;
    result.modes = {mode(3.0001, 0.1, 1e-4), mode(4.0, 2.0, 1e-8), mode(5.0, 0.1, 1.0), mode(7.0, 0.1, 5e-7),
                    mode(8.0, 0.1, 1e-2)};
    const auto pairs =
        compare({exact_mode(2, 5.0, 0.1, 1.0), exact_mode(1, 3.0, 0.1, 1e-4), exact_mode(3, 7.0001, 0.1, 5e-7),
                 exact_mode(4, 8.0, 0.1, 1e-9), exact_mode(5, 4.0, 0.1, 1e-3)},
                result, 1.0);
    ASSERT_EQ(pairs.size(), 6u);
    EXPECT_TRUE(pairs[0].excited && pairs[0].exact->m == 1 && pairs[0].found->frequency == 3.0001);
    EXPECT_TRUE(pairs[1].excited && pairs[1].exact->m == 5 && !pairs[1].found) << "another decay is another mode";
    EXPECT_TRUE(pairs[2].excited && pairs[2].exact->m == 2 && pairs[2].found);
    EXPECT_TRUE(!pairs[3].excited && pairs[3].exact->m == 3 && pairs[3].found) << "too weak to be asked for";
    EXPECT_TRUE(!pairs[4].excited && !pairs[4].exact && pairs[4].found->frequency == 4.0);
    EXPECT_TRUE(pairs[5].excited && !pairs[5].exact && pairs[5].found->frequency == 8.0) << "far too strong";
}

TEST(Comparison, CountsErrorsInStandardErrorsAndAmplitudesOfCosines)
{
    // 2 |c| at the time of the first sample used; half a turn of phase later.
    const double decay = 0.25, time = 1.5;
    tessel::modes::Result result;
    result.firstSample = 3;
    result.modes = {mode(1.0 + 3e-6, decay, 4.0 * std::exp(-decay * time) * (1.0 - 2e-6))};
    tessel::modes::Mode& found = result.modes[0];
    found.phase = 0.5 * std::numbers::pi - std::numbers::pi + 1e-5 + kTurn;
    found.frequencyError = 1e-6;
    found.qualityError = found.quality * 2e-6;
    found.phaseError = 1e-6;
    const Pair pair = compare({exact_mode(1, 1.0, decay, 4.0)}, result, 0.5)[0];
    EXPECT_NEAR(pair.estimate(Quantity::frequency).error, 3e-6, 1e-14);
    EXPECT_NEAR(pair.estimate(Quantity::frequency).deviation(), 3.0, 1e-6);
    EXPECT_NEAR(pair.estimate(Quantity::quality).deviation(), 1.5, 1e-4);
    EXPECT_NEAR(pair.estimate(Quantity::amplitude).error, -2e-6, 1e-13);
    EXPECT_NEAR(pair.estimate(Quantity::amplitude).standard_error, 0.5 * std::numeric_limits<double>::epsilon(), 1e-20)
        << "no value is better than a double can say";
    EXPECT_NEAR(pair.estimate(Quantity::phase).error, 1e-5 * 360.0 / kTurn, 1e-12);
    EXPECT_NEAR(pair.estimate(Quantity::phase).deviation(), 10.0, 1e-6);
}

/// Nine modes, everything about which is barely as good as is asked for.
Findings barely_good()
{
    Findings findings;
    for (Index m = 1; m <= 9; ++m) {
        const auto number = static_cast<double>(m);
        const CavityMode exact = exact_mode(m, number, 0.1, 1.0);
        const double quality = static_cast<double>(exact.quality());
        tessel::modes::Mode found = mode(number * (1.0 + 0.9e-8), 0.1, 1.0 + 3.9e-3);
        found.quality = quality * (1.0 - 0.9e-4);
        found.phase = 0.5 * std::numbers::pi;
        found.frequencyError = 0.9e-8 * number;
        found.qualityError = 0.9e-4 * quality;
        found.amplitudeError = found.phaseError = 1e-3;
        const Complex other(-0.1 * (1.0 + 0.9e-8), kTurn * number * (1.0 + 0.9e-11));
        findings.pairs.push_back({exact, found, true, other, other});

        const double off = 0.9 * number / quality / 2.0;
        for (const double step : {off - 1e-4, off, off + 1e-4}) {
            findings.response.frequencies.push_back(number + step);
            findings.response.exact.emplace_back(step == off ? 100.0 : 10.0, 0.0);
            findings.response.values.emplace_back(findings.response.exact.back() + 0.9e-4);
        }
    }
    findings.pairs.push_back({{}, mode(2.5, 3.0, 1e-8), false}); // weak: not judged
    findings.hankel.rank = 18;
    return findings;
}

TEST(Verdict, MissesWhateverIsWorse)
{
    EXPECT_TRUE(print_verdicts(barely_good()));
    const std::function<void(Findings&)> changes[] = {
        [](Findings& f) { f.pairs[8].found->frequency *= 1.0 + 0.2e-8; },
        [](Findings& f) { f.pairs[0].found->quality *= 1.0 - 0.2e-4; },
        [](Findings& f) { f.pairs[1].found->frequencyError *= 1.2; },
        [](Findings& f) { f.pairs[1].found->qualityError *= 1.2; },
        [](Findings& f) { f.pairs[3].found.reset(); },
        [](Findings& f) { f.pairs[8].exact.reset(); },
        [](Findings& f) { f.pairs[9].excited = true; },
        [](Findings& f) { f.pairs.clear(); },
        [](Findings& f) { f.pairs[4].found->frequencyError = 0.2e-8; },
        [](Findings& f) { f.pairs[4].found->qualityError *= 0.2; },
        [](Findings& f) { f.pairs[4].found->amplitude += 0.2e-3; },
        [](Findings& f) { f.pairs[4].found->phase -= 4.1e-3; },
        [](Findings& f) { *f.pairs[2].arpack *= 1.0 + 0.2e-11; },
        [](Findings& f) { f.pairs[2].arpack.reset(); },
        [](Findings& f) { *f.pairs[2].hybrj1 -= 0.2e-9; },
        [](Findings& f) { f.hankel.rank = 17; },
        [](Findings& f) { f.response.values[22] = 0.0; },
        [](Findings& f) { f.response.frequencies[22] += 0.1 * 0.1 / std::numbers::pi; },
        [](Findings& f) { f.response.values[26] += Complex(0.0, 0.6e-4); },
    };
    for (const auto& change : changes) {
        Findings findings = barely_good();
        change(findings);
        EXPECT_FALSE(print_verdicts(findings)) << &change - changes;
    }
}

} // namespace
} // namespace resonator
