#include "examples/resonator/report.h"

#include <gtest/gtest.h>

#include <functional>
#include <numbers>

namespace resonator {
namespace {

TEST(Comparison, PairsEachExactModeWithTheNearestFound)
{
    const Record record{0.0, 0.5, std::vector<Complex>(100)};
    const std::vector<CavityMode> exact{
        {2, 1, {-0.1, 5.0}, 1.0}, {1, 1, {-0.1, 3.0}, 1e-4}, {1, 2, {-0.1, 7.0}, 5e-7}, {1, 3, {-0.1, 8.0}, 1e-9}};
    const auto mode = [](double frequency, Kind kind) { return Mode{{-0.1, frequency}, 1.0, 1.0, kind}; };
    const auto pairs = compare(
        exact, {mode(3.0001, Kind::kept), mode(5.0, Kind::conjugate), mode(7.0001, Kind::kept), mode(8.0, Kind::kept)},
        record, {4, 1, 96}, 1e-6);
    ASSERT_EQ(pairs.size(), 4u);
    EXPECT_EQ(pairs[0].found->pole.imag(), 3.0001);
    EXPECT_EQ(pairs[1].exact->m, 2);
    EXPECT_FALSE(pairs[1].found) << "only kept modes count";
    EXPECT_TRUE(pairs[2].exact && pairs[2].found) << "just below the threshold, but found";
    EXPECT_FALSE(pairs[3].exact) << "too weak to be seen";
}

/// Nine modes, everything about which is barely as good as is asked for.
Findings barely_good()
{
    Findings findings;
    for (Index m = 1; m <= 9; ++m) {
        const auto number = static_cast<double>(m);
        const Complex exact(-0.1, 2.0 * std::numbers::pi * number);
        const auto off = [&](double frequency, double quality) {
            return Complex(exact.real() * (1.0 + quality), exact.imag() * (1.0 + frequency));
        };
        findings.pairs.push_back({CavityMode{m, 1, exact, 1.0}, Mode{off(0.9e-8, 0.9e-4), 1.0, 1.0, Kind::kept},
                                  off(0.9e-11, 0.9e-8), off(0.9e-11, 0.9e-8)});
        findings.response.peaks.push_back(number + 0.9 * line_of(exact).width / 2.0);
        findings.response.exact.emplace_back(100.0 / number, 0.0);
        findings.response.values.emplace_back(100.0 / number, 0.9e-4);
    }
    findings.pairs[8].found.reset(); // the ninth is not asked for
    findings.hankel.rank = 18;
    findings.analytic = Hankel{false, 9, {}, {}, {}};
    findings.fit.order = 18;
    return findings;
}

TEST(Verdict, MissesWhateverIsWorse)
{
    EXPECT_TRUE(print_verdicts(barely_good()));
    const std::function<void(Findings&)> changes[] = {
        [](Findings& f) { f.pairs[7].found->pole *= 1.0 + 0.2e-8; },
        [](Findings& f) { f.pairs[0].found->pole -= 0.2e-5; },
        [](Findings& f) { f.pairs[3].found.reset(); },
        [](Findings& f) { f.pairs[8].exact.reset(); },
        [](Findings& f) { f.pairs.resize(7); },
        [](Findings& f) { *f.pairs[2].arpack *= 1.0 + 0.2e-11; },
        [](Findings& f) { *f.pairs[2].hybrj1 -= 0.2e-9; },
        [](Findings& f) { f.hankel.rank = 17; },
        [](Findings& f) { f.fit.order = 17; },
        [](Findings& f) { f.analytic->rank = 8; },
        [](Findings& f) { f.analytic->rank = 18; },
        [](Findings& f) { f.analytic.reset(); },
        [](Findings& f) { f.response.peaks[7] += 0.1 * 0.1 / std::numbers::pi; },
        [](Findings& f) { f.response.values[8] += Complex(0.0, 0.2e-4); },
    };
    for (const auto& change : changes) {
        Findings findings = barely_good();
        change(findings);
        EXPECT_FALSE(print_verdicts(findings)) << &change - changes;
    }
}

} // namespace
} // namespace resonator
