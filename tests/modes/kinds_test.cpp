// Seeded records of several kinds: the modes that are in them are found, and no others.
#include "tests/modes/synthetic.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <ostream>

namespace tessel::modes {
namespace {

using testing::Random;

struct Draft
{
    std::vector<double> y;
    std::vector<Line> lines;
};

double logarithmic(Random& random, double low, double high)
{
    return low * std::exp(random.uniform() * std::log(high / low));
}

/// A record of lines that stay apart by their widths and by the resolution of the record.
Draft lines_apart(Random& random)
{
    Draft draft;
    draft.y.resize(static_cast<std::size_t>(logarithmic(random, 2000, 5000)));
    const double highest = 1 / logarithmic(random, 10, 40);
    const int count = 2 + random.below(6);
    for (int tries = 0; tries < 1000 && static_cast<int>(draft.lines.size()) < count; ++tries) {
        const double f = highest * random.uniform(0.2, 1);
        const Line line = {f, f / logarithmic(random, 8, 2000), logarithmic(random, 0.05, 1), random.uniform(-3, 3)};
        const auto apart = [&](const Line& other) {
            return std::abs(f - other.frequency) >
                   4 / static_cast<double>(draft.y.size()) + (line.decay + other.decay) / 3;
        };
        if (std::all_of(draft.lines.begin(), draft.lines.end(), apart))
            draft.lines.push_back(line);
    }
    return draft;
}

void finish(Draft& draft, double noise, Random& random, double memory = 0)
{
    add_lines(draft.y, draft.lines);
    add_noise(draft.y, noise, random.bits(), memory);
}

struct Kind
{
    const char* name;
    std::function<Draft(Random&)> draw;
};

void PrintTo(const Kind& kind, std::ostream* out)
{
    *out << kind.name;
}

const Kind kKinds[] = {
    {"clean",
     [](Random& random) {
         Draft draft = lines_apart(random);
         finish(draft, 0, random);
         return draft;
     }},
    {"noisy",
     [](Random& random) {
         Draft draft = lines_apart(random);
         finish(draft, logarithmic(random, 1e-6, 1e-3), random);
         return draft;
     }},
    {"pairs",
     [](Random& random) {
         Draft draft = lines_apart(random);
         Line line = draft.lines[0];
         const double width = std::max(line.decay / 3, 1 / static_cast<double>(draft.y.size()));
         line.frequency += width * random.uniform(0.5, 1);
         draft.lines.insert(draft.lines.begin() + 1, line);
         draft.lines.resize(2);
         finish(draft, 1e-5, random);
         return draft;
     }},
    {"driven",
     [](Random& random) {
         Draft draft = lines_apart(random);
         for (Line& line : draft.lines)
             line.decay = std::min(line.decay, 5 / static_cast<double>(draft.y.size()));
         finish(draft, 1e-6, random);
         add_burst(draft.y, 3, 200, 33, 3 * draft.lines[0].frequency);
         return draft;
     }},
    {"single precision",
     [](Random& random) {
         Draft draft = lines_apart(random);
         finish(draft, 0, random);
         for (double& v : draft.y)
             v = static_cast<float>(v);
         return draft;
     }},
    {"coloured",
     [](Random& random) {
         Draft draft = lines_apart(random);
         finish(draft, 1e-4, random, random.uniform(-0.9, 0.9));
         return draft;
     }},
    {"drifting",
     [](Random& random) {
         Draft draft = lines_apart(random);
         finish(draft, 1e-5, random);
         const double offset = random.uniform(-3, 3), slope = random.uniform(-1e-3, 1e-3);
         for (std::size_t k = 0; k < draft.y.size(); ++k)
             draft.y[k] += offset + slope * static_cast<double>(k);
         return draft;
     }},
    {"growing",
     [](Random& random) {
         Draft draft = lines_apart(random);
         draft.lines[0].decay = -random.uniform(2, 5) / static_cast<double>(draft.y.size());
         draft.lines[0].amplitude = 0.01;
         finish(draft, 1e-5, random);
         return draft;
     }},
};

bool near(const Mode& mode, const Line& line)
{
    const double scale = 1e-8 * line.frequency;
    return std::abs(mode.frequency - line.frequency) < 8 * mode.frequencyError + scale &&
           std::abs(mode.decay - line.decay) < 8 * mode.decayError + scale;
}

class Kinds : public ::testing::TestWithParam<Kind>
{};

TEST_P(Kinds, ModesAreFoundAndNoOthers)
{
    int all = 0, found = 0, others = 0;
    for (std::uint64_t seed = 1; seed <= 4; ++seed) {
        Random random(seed);
        const Draft draft = GetParam().draw(random);
        const Result result = analyse(draft.y, 0, 1);
        const auto here = std::count_if(draft.lines.begin(), draft.lines.end(), [&](const Line& line) {
            return std::any_of(result.modes.begin(), result.modes.end(), [&](const Mode& m) { return near(m, line); });
        });
        all += static_cast<int>(draft.lines.size());
        found += static_cast<int>(here);
        others += static_cast<int>(result.modes.size()) - static_cast<int>(here);
    }
    // A processor that adds in another order may lose one.
    EXPECT_GE(found, all - 1);
    EXPECT_LE(others, 1);
}

INSTANTIATE_TEST_SUITE_P(Modes, Kinds, ::testing::ValuesIn(kKinds), [](const auto& kind) {
    std::string name = kind.param.name;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
});

} // namespace
} // namespace tessel::modes
