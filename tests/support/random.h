/// Seeded inputs: the same on every machine.
#pragma once

#include "common/types.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numbers>
#include <span>
#include <vector>

namespace tessel::testing {

/// SplitMix64 (Steele, Lea, Flood 2014): small, and its sequence does not depend on the standard library.
class Random
{
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}
    /// The sequence begins with the given bytes, eight a draw, and goes on from a seed that is their hash (FNV-1a).
    explicit Random(std::span<const std::uint8_t> first) : state_(0xcbf29ce484222325u), first_(first)
    {
        for (const std::uint8_t byte : first)
            state_ = (state_ ^ byte) * 0x100000001b3u;
    }

    std::uint64_t bits()
    {
        if (!first_.empty()) {
            std::uint64_t value = 0;
            const std::size_t count = std::min(first_.size(), sizeof value);
            std::memcpy(&value, first_.data(), count);
            first_ = first_.subspan(count);
            return value;
        }
        std::uint64_t z = (state_ += 0x9e3779b97f4a7c15u);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
        return z ^ (z >> 31);
    }
    /// Uniform in [0, 1).
    Real uniform() { return static_cast<Real>(bits() >> 11) * 0x1p-53; }
    Real uniform(Real low, Real high) { return low + (high - low) * uniform(); }
    /// 0 .. n-1
    int below(int n) { return static_cast<int>(bits() % static_cast<std::uint64_t>(n)); }
    Real normal()
    {
        const Real radius = std::sqrt(-2.0 * std::log(1.0 - uniform()));
        return radius * std::cos(2.0 * std::numbers::pi * uniform());
    }
    /// Both parts uniform in [-1, 1).
    Complex complex() { return {uniform(-1.0, 1.0), uniform(-1.0, 1.0)}; }
    std::vector<Complex> complexes(std::size_t n)
    {
        std::vector<Complex> values(n);
        for (Complex& value : values)
            value = complex();
        return values;
    }

private:
    std::uint64_t state_;
    std::span<const std::uint8_t> first_;
};

} // namespace tessel::testing
