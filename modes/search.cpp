#include "modes/search.h"
#include "modes/spectrum.h"

#include "common/elementary.h"

#include <algorithm>
#include <cmath>

namespace tessel::modes {

namespace {

constexpr double kFalseAlarm = 1e-3;
constexpr double kCells = 15; // independent cells of frequency and decay, a sample
constexpr double kPartOfLargest = 0.02;
constexpr double kTail = 5; // nepers after which a filter ends
constexpr Extended kTwoPi = 6.28318530717958647692528676655900577L;

void scan(const std::vector<double>& re, const std::vector<double>& im, bool backward, double threshold,
          const Feet& feet, Spectra& spectra, std::vector<Candidate>& out)
{
    const std::size_t n = re.size();
    const bool complex = !im.empty();
    for (int level = 0;; ++level) {
        const double g = level == 0 ? 0 : 0.7 / static_cast<double>(n) * std::ldexp(1.0, level - 1);
        if (g > 1)
            break;
        if (level == 0 && backward)
            continue;
        const std::size_t length = level == 0 ? n : std::min(n, static_cast<std::size_t>(kTail / g) + 1);
        std::vector<double> a(length), b(complex ? length : 0);
        const double ratio = static_cast<double>(exponential(-static_cast<Extended>(g)));
        double e = 1, energy = 0;
        for (std::size_t k = 0; k < length; ++k) {
            const std::size_t at = backward ? n - 1 - k : k;
            a[k] = re[at] * e;
            if (complex)
                b[k] = im[at] * e;
            energy += e * e;
            e *= ratio;
        }
        const std::size_t padded = fast_length(2 * length);
        std::vector<double>& score = spectra.power(a, b, padded);
        for (double& s : score)
            s /= complex ? 2 * energy : energy;
        if (!complex)
            score[0] /= 2;
        const std::size_t size = score.size();
        for (std::size_t k = 0; k < size; ++k) {
            const double left = k > 0 ? score[k - 1] : (complex ? score[size - 1] : 0);
            const double right = k + 1 < size ? score[k + 1] : (complex ? score[0] : 0);
            if (score[k] < threshold || score[k] < left || score[k] < right)
                continue;
            Candidate c;
            c.score = score[k];
            if (feet.any()) {
                double at = static_cast<double>(kTwoPi) * static_cast<double>(k) / static_cast<double>(padded);
                if (complex && backward)
                    at = -at;
                c.score /= feet.excess(at, length);
                if (c.score < threshold)
                    continue;
            }
            Extended angle = kTwoPi * static_cast<Extended>(k) / static_cast<Extended>(padded);
            if (complex && 2 * k > padded)
                angle -= kTwoPi;
            c.term.angle = backward ? -angle : angle;
            if (!complex)
                c.term.angle = angle;
            // the width between two levels of the decay, so that a step from it can go either way
            c.term.decay = static_cast<Extended>(level == 0 ? 0.1 / static_cast<double>(n) : g);
            if (backward) {
                c.term.decay = -c.term.decay;
                c.term.origin = n - 1;
            }
            if (!complex && k == 0) {
                c.term.kind = Term::Kind::real;
                c.term.angle = 0;
            }
            out.push_back(c);
        }
    }
}

} // namespace

double chance_score(std::size_t m)
{
    return logarithm(kCells * static_cast<double>(m) / kFalseAlarm);
}

std::vector<Candidate> search(const Series& series, const Terms& terms, std::size_t n, std::size_t most,
                              double inflation)
{
    std::vector<double> residual;
    evaluate(series, terms, n, &residual);
    std::vector<double> re(n), im(series.complex() ? n : 0);
    for (std::size_t k = 0; k < n; ++k) {
        const double w = std::sqrt(series.weightAt(k));
        re[k] = residual[k] * w;
        if (series.complex())
            im[k] = residual[n + k] * w;
    }
    const double threshold = chance_score(n) * inflation;
    std::vector<Candidate> all, out;
    const Feet feet = feet_of(series, terms, n, residual);
    Spectra spectra;
    scan(re, im, false, threshold, feet, spectra, all);
    scan(re, im, true, threshold, feet, spectra, all);
    std::stable_sort(all.begin(), all.end(), [](const Candidate& a, const Candidate& b) { return a.score > b.score; });
    const auto resolution = static_cast<double>(kTwoPi) / static_cast<double>(n);
    for (const Candidate& c : all) {
        if (c.score < kPartOfLargest * all.front().score || out.size() >= most)
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
