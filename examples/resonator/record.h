#pragma once

#include <complex>
#include <cstddef>
#include <vector>

namespace resonator {

using Complex = std::complex<double>;
using Index = std::ptrdiff_t;

/// Equally spaced samples of a field at one place: values[k] is the field at k * spacing, in seconds.
struct Record
{
    double spacing = 0.0;
    std::vector<double> values;

    Index size() const { return static_cast<Index>(values.size()); }
    double time(Index k) const { return static_cast<double>(k) * spacing; }
    double at(Index k) const { return values[static_cast<std::size_t>(k)]; }
};

/// A part of a record, thinned out: every `stride`-th sample from `first` on, `count` of them.
struct Window
{
    Index first = 0, stride = 1, count = 0;

    Index last() const { return first + (count - 1) * stride; }
};

} // namespace resonator
