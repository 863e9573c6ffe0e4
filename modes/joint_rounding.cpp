#include "modes/joint_rounding.h"
#include "modes/select.h"

#include <algorithm>
#include <cmath>

namespace tessel::modes {

namespace {

constexpr std::size_t kSampled = 4;  // records in which feet are measured
constexpr double kWorthwhile = 0.05; // of the terms, that another record shows better
constexpr double kUnexplained = 1.5; // chi^2 per degree of freedom
constexpr double kShort = 3;         // nepers over the record, of a filter that ends within it
constexpr double kEnds = 2.0 / 15; // variance at the ends of a random walk of unit length behind its best straight line
constexpr double kPi = 3.14159265358979323846;

/// The records in which the terms stand highest: each the one that adds most to those before.
std::vector<std::size_t> sampled(const std::vector<std::vector<double>>& size)
{
    const std::size_t terms = size.front().size();
    std::vector<double> highest(terms, 0), shown(terms, 0);
    for (const std::vector<double>& own : size)
        for (std::size_t j = 0; j < terms; ++j)
            highest[j] = std::max(highest[j], own[j]);
    std::vector<std::size_t> out;
    while (out.size() < std::min(kSampled, size.size())) {
        double most = kWorthwhile * static_cast<double>(terms);
        std::size_t best = size.size();
        for (std::size_t p = 0; p < size.size(); ++p) {
            double gain = 0;
            for (std::size_t j = 0; j < terms; ++j)
                if (highest[j] > 0)
                    gain += std::max(0.0, size[p][j] / highest[j] - shown[j]);
            if (gain > most) {
                most = gain;
                best = p;
            }
        }
        if (best == size.size())
            break;
        out.push_back(best);
        for (std::size_t j = 0; j < terms; ++j)
            if (highest[j] > 0)
                shown[j] = std::max(shown[j], size[best][j] / highest[j]);
    }
    return out;
}

} // namespace

JointFeet::JointFeet(const RecordSet& set, const JointModel& model, std::size_t n)
{
    const std::size_t terms = model.terms.size();
    if (terms == 0)
        return;
    std::vector<std::vector<double>> height(set.size()); // squares of the amplitudes over the noise
    for (std::size_t p = 0; p < set.size(); ++p)
        for (const Complex& c : model.residues[p])
            height[p].push_back(std::norm(c) * set.weight[p]);
    std::vector<double> walk(terms, 0), more(terms, 0), size(terms, 0);
    double chi = 0, rest = 0, level = 0, count = 0;
    for (const std::size_t p : sampled(height)) {
        const Terms own = model.of(set, p, n);
        const std::size_t length = set.samples(p, n);
        std::vector<double> residual;
        const double square = evaluate(set.records[p], own, length, &residual).chiSquare;
        const Feet feet = feet_of(set.records[p], own, length, residual);
        const double reduced = square / freedom(set.records[p], own, length);
        chi += reduced;
        rest += reduced > kUnexplained && feet.any() ? std::min(reduced, reduced_with_feet(set.records[p], own, length))
                                                     : reduced;
        ++count;
        level += feet.any() ? feet.level : std::min(1.0, reduced);
        for (std::size_t j = 0; j < terms; ++j) {
            size[j] += height[p][j];
            if (feet.any()) {
                walk[j] += feet.walk[j];
                more[j] += std::max(0.0, feet.common - feet.walk[j]);
            }
        }
    }
    if (!std::any_of(walk.begin(), walk.end(), [](double w) { return w > 0; }) &&
        !std::any_of(more.begin(), more.end(), [](double m) { return m > 0; }))
        return;
    part_ = chi > 0 ? rest / chi : 1;
    all_.level = level / count;
    samples_ = std::min(n, set.longest());
    each_.resize(set.size());
    all_.walk.assign(terms, 0);
    for (std::size_t j = 0; j < terms; ++j) {
        all_.angles.push_back(static_cast<double>(model.terms[j].angle));
        life_.push_back(
            1 / std::max(1 / static_cast<double>(samples_), static_cast<double>(std::abs(model.terms[j].decay))));
        const double unit = size[j] > 0 ? 1 / size[j] : 0;
        double sum = 0;
        for (std::size_t p = 0; p < set.size(); ++p) {
            each_[p].walk.push_back(walk[j] * unit * height[p][j]);
            all_.walk[j] += each_[p].walk[j];
            sum += height[p][j];
        }
        more_.push_back(more[j] * unit * sum);
    }
    for (Feet& own : each_)
        own.angles = all_.angles;
}

double JointFeet::foot(const Feet& feet, double angle, double decay) const
{
    double sum = feet.foot(angle, samples_);
    const double g = std::abs(decay);
    if (g * static_cast<double>(samples_) < kShort)
        return sum;
    // A filter that ends within the record sees the walk's level there, which is highest at the record's ends.
    for (std::size_t j = 0; j < feet.walk.size(); ++j) {
        const double apart = std::remainder(angle - feet.angles[j], 2 * kPi);
        sum += feet.walk[j] * kEnds * life_[j] * 2 * g / (g * g + apart * apart);
    }
    return sum;
}

double JointFeet::scale(std::size_t term) const
{
    const double near = kPi / static_cast<double>(samples_);
    return all_.level + all_.foot(all_.angles[term], samples_) + more_[term] / (near * near);
}

} // namespace tessel::modes
