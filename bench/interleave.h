/// Fair ratios on a machine that others use as well: peers take turns on the same data.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace tessel::bench {

/// One way to do a task. A run restores the inputs that it destroys: that is part of its time, for every peer alike.
struct Peer
{
    std::string name;
    std::function<void()> run;
};

/// Seconds that a benchmark may take, and the fewest rounds it makes even if that takes longer.
struct Effort
{
    double seconds = 4.0;
    int fewest_rounds = 3;
};
Effort& effort();

/// Processor time of this thread in seconds: what other processes take does not count.
double processor_time();

double median(std::vector<double> values);

/// Runs all peers in turn, one round after the other, each round starting with another peer. Counters: the median
/// time of each peer in seconds, under its name, and for each but the first the median over the rounds of the ratio
/// first / peer, under "first/peer". Short tasks are repeated, so that the clock does not show.
void interleave(benchmark::State& state, const std::vector<Peer>& peers);

/// Registers a benchmark that calls interleave, once. Its name goes to the error stream when it starts.
template <class Function>
void add(const std::string& name, Function function)
{
    const auto announced = [name, function](benchmark::State& state) {
        std::fprintf(stderr, "%s\n", name.c_str());
        function(state);
    };
    benchmark::RegisterBenchmark(name.c_str(), announced)->Iterations(1)->UseManualTime();
}

} // namespace tessel::bench
