#include "modes/chance.h"

#include "common/elementary.h"

#include <algorithm>
#include <cmath>

namespace tessel::modes {

namespace {

constexpr double kFalseAlarm = 1e-3;
constexpr double kCells = 15; // independent cells of frequency and decay, a sample

/// ln of exp(-x) sum_{k < pairs} x^k / k!, the probability that half of chi^2 exceeds x.
double log_survival(double x, std::size_t pairs)
{
    double term = 0, largest = 0, sum = 0; // ln of x^k / k!; the sum over exp(largest)
    for (std::size_t k = 0; k < pairs; ++k) {
        if (k > 0)
            term += logarithm(x / static_cast<double>(k));
        if (term > largest) {
            sum *= exponential(largest - term);
            largest = term;
        }
        sum += exponential(term - largest);
    }
    return largest + logarithm(sum) - x;
}

} // namespace

double half_quantile(double probability, std::size_t pairs)
{
    const double wanted = logarithm(probability);
    double low = 0, high = 1;
    while (log_survival(high, pairs) > wanted)
        high *= 2;
    for (int k = 0; k < 60; ++k) {
        const double middle = (low + high) / 2;
        (log_survival(middle, pairs) > wanted ? low : high) = middle;
    }
    return high;
}

double alarm_of(std::size_t m)
{
    return kFalseAlarm / (kCells * static_cast<double>(m));
}

} // namespace tessel::modes
