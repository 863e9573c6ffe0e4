/// The points whose records determine the first poles.
#pragma once

#include "fields/work.h"

namespace tessel::fields {

/// Points and their whole records, the same on all ranks.
struct Samples
{
    std::vector<std::size_t> points;
    std::vector<modes::Record> records;
};

/// Points drawn by a counter, without repetition, whose records are not constant; fewer if the field has fewer.
Samples choose_samples(Work& work, std::size_t count);

/// The records of given points.
Samples read_samples(Work& work, const std::vector<std::size_t>& points);

} // namespace tessel::fields
