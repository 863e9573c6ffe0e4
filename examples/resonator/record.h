#pragma once

#include <complex>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace resonator {

using Complex = std::complex<double>;
using Index = std::ptrdiff_t;

/// Equally spaced samples of a field at one place: values[k] is the field at start + k * spacing, in seconds.
struct Record
{
    double start = 0.0;
    double spacing = 0.0;
    std::vector<Complex> values;

    Index size() const { return static_cast<Index>(values.size()); }
    double time(Index k) const { return start + static_cast<double>(k) * spacing; }
    const Complex& at(Index k) const { return values[static_cast<std::size_t>(k)]; }
    /// Whether no value has an imaginary part: then every mode comes with its complex conjugate.
    bool is_real() const;
};

/// The samples of a record that are fitted: every `stride`-th from `first` on, `count` of them.
struct Window
{
    Index first = 0, stride = 1, count = 0;

    Index last() const { return first + (count - 1) * stride; }
};

/// The samples of a window.
std::vector<Complex> samples_of(const Record& record, const Window& window);

/// Reads a record from columns of text.
///
/// Without `spacing` the columns are time, real part and, of a complex record, imaginary part; with it the times are
/// left out. Columns stand apart by blanks, commas or semicolons; the exponent may be written with D; `#` starts a
/// comment, also behind values. Throws an Error that names file and line.
Record read_record(const std::string& path, std::optional<double> spacing);

} // namespace resonator
