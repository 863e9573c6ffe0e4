#include "bench/interleave.h"

#include <algorithm>
#include <ctime>

namespace tessel::bench {

namespace {

constexpr double kShortTask = 1e-4; // seconds; the clock itself takes less than 1e-6
constexpr int kMostRounds = 2000;

double time_of(const Peer& peer, int repetitions)
{
    const double start = processor_time();
    for (int i = 0; i < repetitions; ++i)
        peer.run();
    return (processor_time() - start) / repetitions;
}

} // namespace

Effort& effort()
{
    static Effort value;
    return value;
}

double processor_time()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void interleave(benchmark::State& state, const std::vector<Peer>& peers)
{
    const std::size_t count = peers.size();
    std::vector<std::vector<double>> seconds(count), ratios(count);
    for (auto _ : state) {
        std::vector<int> repetitions(count, 1);
        int rounds = 1; // the first round tells how many there will be
        for (int r = 0; r < rounds; ++r) {
            for (std::size_t k = 0; k < count; ++k) {
                const std::size_t i = (k + static_cast<std::size_t>(r)) % count;
                seconds[i].push_back(time_of(peers[i], repetitions[i]));
            }
            for (std::size_t i = 1; i < count; ++i)
                ratios[i].push_back(seconds[0].back() / seconds[i].back());
            if (r > 0)
                continue;
            double round = 0.0;
            for (std::size_t i = 0; i < count; ++i) {
                const double once = seconds[i].front();
                repetitions[i] = once < kShortTask ? static_cast<int>(kShortTask / once) + 1 : 1;
                round += once * repetitions[i];
            }
            rounds = std::clamp(static_cast<int>(effort().seconds / round), effort().fewest_rounds, kMostRounds);
        }
        state.SetIterationTime(median(seconds[0]));
        state.counters["rounds"] = rounds;
    }
    for (std::size_t i = 0; i < count; ++i)
        state.counters[peers[i].name] = median(seconds[i]);
    for (std::size_t i = 1; i < count; ++i)
        state.counters[peers[0].name + '/' + peers[i].name] = median(ratios[i]);
}

} // namespace tessel::bench
