#include "modes/joint_search.h"
#include "modes/chance.h"
#include "modes/spectrum.h"

#include "common/elementary.h"

#include <algorithm>
#include <cmath>

namespace tessel::modes {

namespace {

constexpr double kPartOfLargest = 0.02;
constexpr double kTail = 5; // nepers after which a filter ends
constexpr Extended kTwoPi = 6.28318530717958647692528676655900577L;

/// A peak of the statistic: the sum over the records and the largest of them, over their thresholds.
struct Peak
{
    Term term;
    double all, one;
};

/// The weighted residuals of a set.
struct Residuals
{
    std::vector<std::vector<double>> re, im;
};

/// Statistics |sum r exp(-s u)|^2 / sum exp(-2 g u) of all records at the decay g, from their first samples on or
/// (backward) from their last ones.
class Scores
{
public:
    Scores(const Residuals& residuals, double g, bool backward, std::size_t longest, Spectra& spectra)
    {
        const bool complex = !residuals.im.front().empty();
        const auto reach = [&](std::size_t n) {
            return g == 0 ? n : std::min(n, static_cast<std::size_t>(kTail / g) + 1);
        };
        padded = fast_length(2 * reach(longest));
        std::vector<double> filter(reach(longest)), energy(reach(longest) + 1, 0);
        for (std::size_t k = 0; k < filter.size(); ++k) {
            filter[k] = exponential(-g * static_cast<double>(k));
            energy[k + 1] = energy[k] + filter[k] * filter[k];
        }
        all.assign(complex ? padded : padded / 2 + 1, 0);
        one = all;
        const auto filtered = [&](const std::vector<double>& from) {
            std::vector<double> out(reach(from.size()));
            for (std::size_t k = 0; k < out.size(); ++k)
                out[k] = from[backward ? from.size() - 1 - k : k] * filter[k];
            return out;
        };
        who.assign(all.size(), 0);
        const auto take = [&](std::size_t k, double score, std::size_t record) {
            all[k] += score;
            if (score > one[k]) {
                one[k] = score;
                who[k] = record;
            }
        };
        const std::size_t count = residuals.re.size();
        for (std::size_t p = 0; p < count; ++p) {
            const double e = energy[reach(residuals.re[p].size())];
            if (complex) {
                const std::vector<double>& power =
                    spectra.power(filtered(residuals.re[p]), filtered(residuals.im[p]), padded);
                for (std::size_t k = 0; k < all.size(); ++k)
                    take(k, power[k] / (2 * e), p);
                continue;
            }
            if (p + 1 < count && residuals.re[p].size() == residuals.re[p + 1].size()) {
                // two real records in one transform
                const std::vector<Complex> f =
                    spectra.transform(filtered(residuals.re[p]), filtered(residuals.re[p + 1]), padded);
                for (std::size_t k = 0; k < all.size(); ++k) {
                    const Complex a = f[k], b = std::conj(f[k == 0 ? 0 : padded - k]);
                    take(k, std::norm(a + b) / (4 * e), p);
                    take(k, std::norm(a - b) / (4 * e), p + 1);
                }
                ++p;
                continue;
            }
            const std::vector<double>& power = spectra.power(filtered(residuals.re[p]), {}, padded);
            for (std::size_t k = 0; k < all.size(); ++k)
                take(k, power[k] / e, p);
        }
        if (!complex) { // one degree of freedom
            all[0] /= 2;
            one[0] /= 2;
        }
    }

    std::vector<double> all, one;
    std::vector<std::size_t> who; ///< the record of the largest
    std::size_t padded = 0;
};

void scan(const Residuals& residuals, bool backward, std::size_t longest, const JointThreshold& threshold,
          const JointFeet& feet, Spectra& spectra, std::vector<Peak>& out)
{
    const bool complex = !residuals.im.front().empty();
    for (int level = backward ? 1 : 0;; ++level) {
        const double g = level == 0 ? 0 : 0.7 / static_cast<double>(longest) * std::ldexp(1.0, level - 1);
        if (g > 1)
            break;
        const Scores scores(residuals, g, backward, longest, spectra);
        const std::size_t size = scores.all.size();
        const auto peaks = [&](const std::vector<double>& score, std::size_t k) {
            const double left = k > 0 ? score[k - 1] : (complex ? score[size - 1] : 0);
            const double right = k + 1 < size ? score[k + 1] : (complex ? score[0] : 0);
            return score[k] >= left && score[k] >= right;
        };
        for (std::size_t k = 0; k < size; ++k) {
            const bool ofAll = scores.all[k] > threshold.all && peaks(scores.all, k);
            const bool ofOne = scores.one[k] > threshold.one && peaks(scores.one, k);
            if (!ofAll && !ofOne)
                continue;
            Extended angle = kTwoPi * static_cast<Extended>(k) / static_cast<Extended>(scores.padded);
            if (complex && 2 * k > scores.padded)
                angle -= kTwoPi;
            Peak peak;
            peak.term.angle = complex && backward ? -angle : angle;
            double all = threshold.all, one = threshold.one;
            if (feet.any()) {
                const auto at = static_cast<double>(peak.term.angle);
                all += threshold.common * feet.foot(at, g);
                one *= 1 + feet.foot(scores.who[k], at, g);
            }
            peak.all = scores.all[k] / all;
            peak.one = scores.one[k] / one;
            if (!(ofAll && peak.all > 1) && !(ofOne && peak.one > 1))
                continue;
            // the width between two levels of the decay, so that a step from it can go either way
            peak.term.decay = static_cast<Extended>(level == 0 ? 0.1 / static_cast<double>(longest) : g);
            if (backward)
                peak.term.decay = -peak.term.decay;
            if (!complex && k == 0) {
                peak.term.kind = Term::Kind::real;
                peak.term.angle = 0;
            }
            out.push_back(peak);
        }
    }
}

} // namespace

JointThreshold::JointThreshold(const RecordSet& set, std::size_t n)
{
    const double alarm = alarm_of(std::min(n, set.longest()));
    all = half_quantile(alarm, set.size());
    one = half_quantile(alarm / static_cast<double>(set.size()), 1);
    common = half_quantile(alarm, 1);
}

std::vector<Candidate> search(const RecordSet& set, const JointModel& model, std::size_t n, std::size_t most)
{
    Residuals residuals;
    for (std::size_t p = 0; p < set.size(); ++p) {
        const Series& series = set.records[p];
        const std::size_t length = set.samples(p, n);
        std::vector<double> residual, re(length), im(set.complex() ? length : 0);
        evaluate(series, model.of(set, p, n), length, &residual);
        for (std::size_t k = 0; k < length; ++k) {
            const double w = std::sqrt(series.weightAt(k));
            re[k] = residual[k] * w;
            if (set.complex())
                im[k] = residual[length + k] * w;
        }
        residuals.re.push_back(std::move(re));
        residuals.im.push_back(std::move(im));
    }
    const JointThreshold threshold(set, n);
    const std::size_t longest = std::min(n, set.longest());
    std::vector<Peak> peaks;
    Spectra spectra;
    const JointFeet feet(set, model, n);
    scan(residuals, false, longest, threshold, feet, spectra, peaks);
    scan(residuals, true, longest, threshold, feet, spectra, peaks);
    double all = 0, one = 0;
    for (const Peak& peak : peaks) {
        all = std::max(all, peak.all);
        one = std::max(one, peak.one);
    }
    std::vector<Candidate> candidates, out;
    for (const Peak& peak : peaks)
        if ((peak.all > 1 && peak.all > kPartOfLargest * all) || (peak.one > 1 && peak.one > kPartOfLargest * one))
            candidates.push_back({peak.term, std::max(peak.all, peak.one)});
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const Candidate& a, const Candidate& b) { return a.score > b.score; });
    const auto resolution = static_cast<double>(kTwoPi) / static_cast<double>(longest);
    for (const Candidate& c : candidates) {
        if (out.size() >= most)
            break;
        bool apart = true;
        for (const Candidate& kept : out) {
            const double width = std::max({1.5 * resolution, 2 * static_cast<double>(std::abs(c.term.decay)),
                                           2 * static_cast<double>(std::abs(kept.term.decay))});
            apart = apart && std::abs(static_cast<double>(c.term.angle - kept.term.angle)) > width;
        }
        if (apart)
            out.push_back(c);
    }
    return out;
}

} // namespace tessel::modes
