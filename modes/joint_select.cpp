#include "modes/joint_select.h"
#include "modes/chance.h"
#include "modes/errors.h"
#include "modes/joint_search.h"

#include "common/elementary.h"

#include <Eigen/LU>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>

namespace tessel::modes {

namespace {

constexpr double kSurely = 30;         // thresholds, of a statistic that needs no refinement
constexpr std::size_t kNeighbours = 4; // terms whose poles answer to one that is taken out
constexpr double kNothing = 0.2;       // thresholds, of the energy of a term that is nothing
constexpr double kUnexplained = 1.5;   // chi^2 per degree of freedom

/// The rises of chi^2 that chance explains, of terms taken out of a model: their poles and all residues, or one
/// record's alone.
class Chance
{
public:
    Chance(const RecordSet& set, const JointModel& model, std::size_t n) : terms_(model.terms), feet_(set, model, n)
    {
        const double alarm = alarm_of(std::min(n, set.longest()));
        all_ = 2 * half_quantile(alarm, set.size() + 1);
        common_ = 2 * half_quantile(alarm, 2);
        one_ = 2 * half_quantile(alarm / static_cast<double>(set.size()), 2);
        unit_ = unit(model.chiSquare / freedom(set, model.terms, n));
        for (std::size_t p = 0; p < set.size(); ++p)
            units_.push_back(unit(model.chiSquares[p] / freedom(set, model.terms, n, p)));
    }
    /// Of a term, in all records.
    double all(std::size_t term) const
    {
        return unit_ * (all_ + (feet_.any() ? common_ * feet_.foot(angle(term), decay(term)) : 0));
    }
    /// Of a term, in one record.
    double one(std::size_t term, std::size_t p) const
    {
        return units_[p] * one_ * (feet_.any() ? 1 + feet_.foot(p, angle(term), decay(term)) : 1);
    }
    /// The least that any rise is compared to.
    double least() const { return unit_ * one_; }

private:
    /// What a unit of chi^2 is: its value per degree of freedom, if that is above one.
    double unit(double reduced) const
    {
        return std::max(1.0, reduced > kUnexplained ? reduced * feet_.part() : reduced);
    }
    double angle(std::size_t term) const { return static_cast<double>(terms_[term].angle); }
    double decay(std::size_t term) const { return static_cast<double>(terms_[term].decay); }
    Terms terms_;
    JointFeet feet_;
    double all_, common_, one_, unit_;
    std::vector<double> units_;
};

/// The rise of chi^2 from one model to another without some terms, over what chance explains.
double rise(const RecordSet& set, const JointModel& model, const JointModel& without,
            const std::vector<std::size_t>& out, const Chance& chance)
{
    double least = INFINITY; // as one of the terms has it that chance explains best
    for (const std::size_t j : out) {
        double most = (without.chiSquare - model.chiSquare) / chance.all(j);
        for (std::size_t p = 0; p < set.size(); ++p)
            most = std::max(most, (without.chiSquares[p] - model.chiSquares[p]) / chance.one(j, p));
        least = std::min(least, most);
    }
    return least;
}

/// The statistics of all terms over what chance explains.
std::vector<double> statistics(const RecordSet& set, const JointModel& model, std::size_t n, const Chance& chance)
{
    const Projection projection = project(set, model, n);
    const JointCovariance covariance(projection, set);
    std::vector<double> out;
    for (std::size_t j = 0; j < model.terms.size(); ++j) {
        const JointCovariance::Statistic statistic = covariance.wald(j);
        double most = statistic.all / chance.all(j);
        for (std::size_t p = 0; p < set.size(); ++p)
            most = std::max(most, statistic.each[p] / chance.one(j, p));
        out.push_back(most);
    }
    return out;
}

} // namespace

JointCovariance::JointCovariance(const Projection& projection, const RecordSet& set)
    : projection_(projection), set_(set), layout_(projection.model.terms), poles_(inverse_normal(projection.normal))
{}

ExtendedMatrix JointCovariance::own(std::size_t term, std::size_t record) const
{
    const int at = layout_.linear[term], count = linearCount(projection_.model.terms[term]);
    return projection_.grids[projection_.gridOf[record]].inverse.block(at, at, count, count) /
           static_cast<Extended>(set_.weight[record]);
}

ExtendedVector JointCovariance::residue(std::size_t term, std::size_t record) const
{
    const Complex c = projection_.model.residues[record][term];
    ExtendedVector out(linearCount(projection_.model.terms[term]));
    out[0] = static_cast<Extended>(c.real());
    if (out.size() == 2)
        out[1] = static_cast<Extended>(c.imag());
    return out;
}

ExtendedMatrix JointCovariance::block(std::size_t term, std::size_t record, double scale, double poleScale) const
{
    const int count = linearCount(projection_.model.terms[term]);
    const int pole = layout_.pole[term] - layout_.linearTotal, poles = poleCount(projection_.model.terms[term]);
    const Grid& grid = projection_.grids[projection_.gridOf[record]];
    const ExtendedMatrix a = turned(projection_.model.terms, projection_.model.residues[record],
                                    grid.carried.middleRows(layout_.linear[term], count));
    const auto common = static_cast<Extended>(poleScale);
    const ExtendedMatrix ap = common * a * poles_;
    ExtendedMatrix out(count + poles, count + poles);
    out.topLeftCorner(count, count) = static_cast<Extended>(scale) * own(term, record) + ap * a.transpose();
    out.topRightCorner(count, poles) = -ap.middleCols(pole, poles);
    out.bottomLeftCorner(poles, count) = out.topRightCorner(count, poles).transpose();
    out.bottomRightCorner(poles, poles) = common * poles_.block(pole, pole, poles, poles);
    return out;
}

JointCovariance::Statistic JointCovariance::wald(std::size_t term) const
{
    const Terms& terms = projection_.model.terms;
    std::vector<std::size_t> nearest(terms.size());
    std::iota(nearest.begin(), nearest.end(), 0);
    const auto away = [&](std::size_t j) {
        return std::hypot(static_cast<double>(terms[j].angle - terms[term].angle),
                          static_cast<double>(terms[j].decay - terms[term].decay));
    };
    std::stable_sort(nearest.begin(), nearest.end(), [&](std::size_t a, std::size_t b) { return away(a) < away(b); });
    nearest.resize(std::min(nearest.size(), kNeighbours));
    Terms free;
    std::vector<Eigen::Index> columns;
    for (const std::size_t j : nearest) {
        free.push_back(terms[j]);
        for (int q = 0; q < poleCount(terms[j]); ++q)
            columns.push_back(layout_.pole[j] - layout_.linearTotal + q);
    }
    const ExtendedMatrix poles = poles_(columns, columns);
    // c' (A + T P T')^-1 c over all records, with P the poles' covariance: A is block-diagonal, T P T' of low rank.
    ExtendedMatrix inner = inverse_normal(poles);
    ExtendedVector side = ExtendedVector::Zero(inner.rows());
    Extended sum = 0;
    Statistic out;
    for (std::size_t p = 0; p < set_.size(); ++p) {
        Residues residues;
        for (const std::size_t j : nearest)
            residues.push_back(projection_.model.residues[p][j]);
        const ExtendedMatrix t = turned(free, residues,
                                        projection_.grids[projection_.gridOf[p]].carried.middleRows(
                                            layout_.linear[term], linearCount(terms[term]))(Eigen::all, columns));
        const ExtendedMatrix a = own(term, p), inverse = a.inverse();
        const ExtendedVector c = residue(term, p), weighted = inverse * c;
        sum += c.dot(weighted);
        side += t.transpose() * weighted;
        inner += t.transpose() * (inverse * t);
        const ExtendedMatrix covariance = a + t * poles * t.transpose();
        out.each.push_back(static_cast<double>(c.dot(covariance.inverse() * c)));
    }
    out.all = static_cast<double>(sum - side.dot(inverse_normal(inner) * side));
    return out;
}

JointModel prune(const RecordSet& set, const JointModel& model, std::size_t n)
{
    const JointThreshold threshold(set, n);
    const Projection projection = project(set, model, n);
    std::vector<char> kept(model.terms.size(), 0);
    for (std::size_t j = 0; j < model.terms.size(); ++j) {
        double sum = 0, most = 0;
        for (std::size_t p = 0; p < set.size(); ++p) {
            // energy of the term alone, about |c|^2 over half its decay
            const Terms one{projection.model.of(set, p, n)[j]};
            const std::size_t length = set.samples(p, n);
            const Extended g = std::max<Extended>(std::abs(one[0].decay), 1e-18L);
            const Extended x = 2 * g * static_cast<Extended>(length);
            const Extended energy = x < 1e-9L ? static_cast<Extended>(length) : (1 - exponential(-x)) / (2 * g);
            const double own =
                set.weight[p] * std::norm(one[0].c) * static_cast<double>(energy) / (set.complex() ? 1 : 2);
            sum += own;
            most = std::max(most, own);
        }
        kept[j] = sum > 2 * kNothing * threshold.all || most > 2 * kNothing * threshold.one;
    }
    return projection.model.with(kept);
}

JointModel thin(const RecordSet& set, JointModel model, std::size_t n, const JointAccount& account)
{
    std::size_t most = model.terms.size();
    while (most > 0) {
        const Chance chance(set, model, n);
        const std::vector<double> statistic = statistics(set, model, n, chance);
        std::vector<std::size_t> weak;
        for (std::size_t j = 0; j < statistic.size(); ++j)
            if (!(statistic[j] > 1))
                weak.push_back(j);
        if (weak.empty())
            break;
        std::stable_sort(weak.begin(), weak.end(),
                         [&](std::size_t a, std::size_t b) { return statistic[a] < statistic[b]; });
        most = std::min(most, weak.size());
        weak.resize(most);
        std::vector<char> kept(model.terms.size(), 1);
        for (const std::size_t j : weak)
            kept[j] = 0;
        JointModel without = refine(set, model.with(kept), n, 12, model.chiSquare + chance.least());
        if (!account(without))
            break;
        if (rise(set, model, without, weak, chance) < 1)
            model = std::move(without);
        else
            most /= 2;
    }
    return model;
}

JointModel eliminate(const RecordSet& set, JointModel model, std::size_t n, std::vector<double>& significance,
                     const JointAccount& account)
{
    model = thin(set, std::move(model), n, account);
    std::optional<Chance> chance;
    std::vector<char> tested; // and found real since the last removal
    const auto begin = [&] {
        chance.emplace(set, model, n);
        significance = statistics(set, model, n, *chance);
        tested.assign(model.terms.size(), 0);
    };
    begin();
    for (;;) {
        // least significant first
        std::size_t worst = model.terms.size();
        for (std::size_t j = 0; j < model.terms.size(); ++j)
            if (!tested[j] && (worst == model.terms.size() || significance[j] < significance[worst]))
                worst = j;
        if (worst == model.terms.size() || significance[worst] > kSurely)
            break;
        std::vector<char> kept(model.terms.size(), 1);
        kept[worst] = 0;
        JointModel without = refine(set, model.with(kept), n, 20, model.chiSquare + chance->least());
        if (!account(without))
            break;
        const double risen = rise(set, model, without, {worst}, *chance);
        if (risen < 1) {
            model = std::move(without);
            begin();
        } else {
            tested[worst] = 1;
            significance[worst] = risen;
        }
    }
    return model;
}

} // namespace tessel::modes
