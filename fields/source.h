/// @file
/// A field over time and space, as it is read.
#ifndef TESSEL_FIELDS_SOURCE_H
#define TESSEL_FIELDS_SOURCE_H

#include <cstddef>
#include <string>
#include <vector>

namespace tessel::fields {

/// What is known of a field before it is read.
struct Shape
{
    std::vector<std::size_t> space; ///< 1 to 3 extents, the slowest first
    std::size_t steps = 0;
    double start = 0;   ///< time of the first step
    double spacing = 0; ///< time from one step to the next
    bool complex = false;
    bool single = false;         ///< stored in single precision
    bool timeFirst = true;       ///< one instant lies together in the file, not one point's record
    std::size_t chunkSteps = 1;  ///< steps that are best read together
    std::size_t chunkPoints = 1; ///< points that are best read together

    std::size_t points() const
    {
        std::size_t product = 1;
        for (const std::size_t extent : space)
            product *= extent;
        return product;
    }
};

/// Steps [firstStep, endStep) of points [firstPoint, endPoint). Points are numbered with the last extent of space
/// fastest.
struct Range
{
    std::size_t firstStep, endStep, firstPoint, endPoint;
    std::size_t steps() const { return endStep - firstStep; }
    std::size_t points() const { return endPoint - firstPoint; }
};

/// How far apart the samples of a part lie: neighbours are points where time comes first, steps where it comes last.
struct Strides
{
    Strides(const Shape& shape, const Range& range)
        : step(shape.timeFirst ? range.points() : 1), point(shape.timeFirst ? 1 : range.steps())
    {}
    std::size_t step, point;
};

/// A field that can be read in parts.
class Source
{
public:
    Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    virtual ~Source() = default;

    virtual const Shape& shape() const = 0;

    /// Reads a part of a field that is stored in double precision, in the order of the file: see Strides. Of a complex
    /// field the imaginary parts go into `im`, which is null for a real one.
    /// @throws Error  the file cannot be read
    /// @par State  one call at a time, unless concurrent()
    virtual void read(const Range& range, double* re, double* im) = 0;
    /// As read(); converts where the field is stored in the other precision.
    virtual void read(const Range& range, float* re, float* im) = 0;

    /// Whether several threads may read at once, in the precision of the file.
    virtual bool concurrent() const { return false; }
};

} // namespace tessel::fields

#endif
