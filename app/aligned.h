// Columns of text that are aligned at the points of numbers, and those of modes.
#ifndef TESSEL_APP_ALIGNED_H
#define TESSEL_APP_ALIGNED_H

#include "app/number.h"
#include "app/units.h"

#include <tessel/modes.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace tessel::app {

/// A column of the table, aligned at the points.
struct Field
{
    std::string head;
    std::vector<std::string> cells;
    bool aligned = true;
};

/// A line of heads and a line for each row. All columns have as many cells.
std::string lines_of(std::vector<Field>& fields);

/// The columns that a mode of a record, of several and of a field have in common.
class Poles
{
public:
    template <typename Modes>
    Poles(const Modes& modes, const TimeUnit& unit) : unit_(unit)
    {
        double highest = 0, fastest = 0;
        for (const auto& mode : modes) {
            highest = std::max(highest, std::abs(mode.frequency));
            fastest = std::max(fastest, std::abs(mode.decay));
        }
        hertz_ = frequency_scale(highest > 0 ? highest : fastest, unit);
        frequency.head = "frequency [" + hertz_.name + "]";
        for (const auto& mode : modes)
            add(mode);
    }

    Field frequency, quality{"Q", {}, true}, significance{"significance", {}, true}, kind{"", {}, false};

private:
    template <typename Mode>
    void add(const Mode& mode)
    {
        frequency.cells.push_back(
            short_form(shifted(mode.frequency, hertz_.shift), shifted(mode.frequencyError, hertz_.shift)));
        const bool turns = mode.kind != modes::Kind::overdamped;
        quality.cells.push_back(turns ? short_form(mode.quality, mode.qualityError) : "-");
        significance.cells.push_back(plain_form(mode.significance, 3));
        std::string text;
        if (mode.kind != modes::Kind::oscillating) {
            const Scale scale = time_scale(std::abs(mode.decay) > 0 ? 1 / std::abs(mode.decay) : 1, unit_);
            const double decay = shifted(mode.decay, -scale.shift), error = shifted(mode.decayError, -scale.shift);
            text = (mode.decay < 0 ? "grows by " : "decays by ") + short_form(std::abs(decay), error) + " /" +
                   (scale.name == "steps" ? "step" : scale.name);
        }
        kind.cells.push_back(text);
    }

    const TimeUnit& unit_;
    Scale hertz_;
};

} // namespace tessel::app

#endif
