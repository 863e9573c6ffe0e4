#include "modes/joint_start.h"
#include "modes/band.h"
#include "modes/chance.h"
#include "modes/spectrum.h"

#include <Eigen/Cholesky>
#include <Eigen/SVD>

#include <algorithm>
#include <cmath>
#include <map>

namespace tessel::modes {

namespace {

// The band, as that of one record.
constexpr double kBeta = 20;
constexpr double kFalseAlarm = 1e-3;
constexpr double kMargin = 1.5;       // on what chance explains, as the noise is known roughly
constexpr double kLeast = 3e-8;       // of a record's highest line, in amplitude
constexpr double kLeastSingle = 1e-5; // the same in single precision
constexpr double kSingle = 1e-10;
constexpr double kEdge = 0.49; // cycles a sample: the last bin has one degree of freedom

// Start values.
constexpr double kNodesPerPeriod = 2.6;
constexpr std::size_t kMostNodes = 400;
constexpr std::size_t kLeastNodes = 64; // as long as there are samples
constexpr Extended kRounding = 1e-17L;  // of the covariance's largest element
constexpr double kLeastValue = 1e-9;    // of the largest singular value

double highest_in(const std::vector<Series>& records, const std::vector<std::size_t>& first, std::size_t part)
{
    std::size_t longest = 0;
    for (std::size_t p = 0; p < records.size(); ++p)
        longest = std::max(longest, (records[p].size() - first[p]) / part);
    const std::size_t padded = band_length(longest);
    const std::size_t size = padded / 2 + 1;
    std::vector<double> sum(size, 0), one(size, 0); // over the noise
    std::map<std::size_t, std::vector<double>> windows;
    Spectra spectra;
    for (std::size_t p = 0; p < records.size(); ++p) {
        const Series& series = records[p];
        const std::size_t length = (series.size() - first[p]) / part;
        std::vector<double>& window = windows[length];
        if (window.empty())
            window = kaiser(length, kBeta);
        double mean = 0;
        for (std::size_t k = 0; k < length && !series.complex(); ++k)
            mean += series.re[first[p] + k] / static_cast<double>(length);
        std::vector<double> re(length), im(series.complex() ? length : 0);
        for (std::size_t k = 0; k < length; ++k)
            re[k] = (series.re[first[p] + k] - mean) * window[k];
        for (std::size_t k = 0; k < im.size(); ++k)
            im[k] = series.im[first[p] + k] * window[k];
        std::vector<double>& power = spectra.power(re, im, padded);
        if (series.complex()) { // the two signs share a place
            for (std::size_t k = 1; k < padded / 2; ++k)
                power[k] = std::max(power[k], power[padded - k]);
            power.resize(size);
        }
        const std::vector<double> noise = floor_of(power);
        const double least = series.rounding > kSingle ? kLeastSingle : kLeast;
        const double lowest = least * least * *std::max_element(power.begin(), power.end());
        for (std::size_t k = 0; k < size; ++k) {
            const double level = noise[k * noise.size() / size];
            double ratio = level > 0 ? power[k] / level : 0;
            if (power[k] < lowest) // not to be told from a side lobe
                ratio = std::min(ratio, 1.0);
            sum[k] += ratio;
            one[k] = std::max(one[k], ratio);
        }
    }
    const auto count = static_cast<double>(records.size());
    const double alarm = kFalseAlarm / static_cast<double>(size);
    const double single = kMargin * half_quantile(alarm / count, 1);
    const double all = count + kMargin * (half_quantile(alarm, records.size()) - count);
    const auto peak = [](const std::vector<double>& v, std::size_t k) { return v[k] >= v[k - 1] && v[k] >= v[k + 1]; };
    for (auto k = static_cast<std::size_t>(kEdge * static_cast<double>(padded)); k > 1; --k)
        if ((one[k] > single && peak(one, k)) || (sum[k] > all && peak(sum, k)))
            return static_cast<double>(k) / static_cast<double>(padded);
    return 0;
}

/// Adds G_ij = sum_t x(t + i) conj(x(t + j)) of all windows of h nodes, over the noise: each diagonal from its first
/// element on, by what leaves and what comes in. A fixed cost of h^2 a record.
template <class Scalar>
void add_covariance(const std::vector<Scalar>& x, Extended weight, Eigen::Index h,
                    Eigen::Matrix<Scalar, Eigen::Dynamic, Eigen::Dynamic>& g)
{
    const auto windows = static_cast<Eigen::Index>(x.size()) - h + 1;
    const auto at = [&](Eigen::Index k) { return x[static_cast<std::size_t>(k)]; };
    const auto times = [](Scalar a, Scalar b) { // a conj(b), without the rescue of infinities
        if constexpr (Eigen::NumTraits<Scalar>::IsComplex)
            return Scalar(a.real() * b.real() + a.imag() * b.imag(), a.imag() * b.real() - a.real() * b.imag());
        else
            return a * b;
    };
    for (Eigen::Index d = 0; d < h; ++d) {
        Scalar sum = 0;
        for (Eigen::Index t = 0; t < windows; ++t)
            sum += times(at(t + d), at(t));
        for (Eigen::Index j = 0;; ++j) {
            g(j + d, j) += weight * sum;
            if (j + 1 + d == h)
                break;
            sum += times(at(windows + j + d), at(windows + j)) - times(at(j + d), at(j));
        }
    }
}

template <class Scalar>
Start start_of(const RecordSet& set, std::size_t stride, std::size_t nodes)
{
    using Real = Extended;
    using Matrix = Eigen::Matrix<Scalar, Eigen::Dynamic, Eigen::Dynamic>;
    constexpr bool complex = Eigen::NumTraits<Scalar>::IsComplex;
    Start out;
    out.samplesUsed = nodes;
    const auto h = static_cast<Eigen::Index>(nodes / 2);
    if (h < 3)
        return out;
    out.samples = std::min(set.longest(), nodes * stride);
    Matrix g = Matrix::Zero(h, h);
    double windows = 0, count = 0;
    for (const Series& series : set.records) {
        std::vector<Scalar> x;
        for (std::size_t k = 0; k < nodes && k * stride < series.size(); ++k) {
            if constexpr (complex)
                x.emplace_back(series.re[k * stride], series.im[k * stride]);
            else
                x.emplace_back(series.re[k * stride]);
        }
        if (static_cast<Eigen::Index>(x.size()) < h)
            continue;
        double least = INFINITY;
        for (std::size_t b = 0; b < series.weight.size() && b * series.segment < out.samples; ++b)
            least = std::min(least, series.weight[b]);
        add_covariance(x, static_cast<Real>(least), h, g);
        windows = std::max(windows, static_cast<double>(x.size()) - static_cast<double>(h) + 1);
        ++count;
    }
    if (count == 0)
        return out;
    g.template triangularView<Eigen::StrictlyUpper>() = g.adjoint();
    // A factor F with F F^H = G has the data's singular values, of which G would have lost half the digits.
    const Eigen::LDLT<Matrix> factor(g);
    const auto pivots = factor.vectorD().real().eval();
    const Real least = kRounding * pivots.cwiseAbs().maxCoeff() * static_cast<Real>(h);
    Matrix f = factor.matrixL();
    for (Eigen::Index k = 0; k < h; ++k)
        f.col(k) *= pivots[k] > least ? std::sqrt(pivots[k]) : Real(0);
    f = factor.transpositionsP().transpose() * f;
    using Plain = std::conditional_t<complex, Complex, double>;
    using PlainMatrix = Eigen::Matrix<Plain, Eigen::Dynamic, Eigen::Dynamic>;
    const Eigen::BDCSVD<PlainMatrix> svd(f.template cast<Plain>(), Eigen::ComputeThinU);
    const double pairs = complex ? 2 * count : count;
    const auto records = static_cast<std::size_t>(pairs);
    const double noise =
        std::sqrt((static_cast<double>(h) + windows) * half_quantile(1 / static_cast<double>(h), records));
    const double threshold = std::max(noise, kLeastValue * svd.singularValues()[0]);
    const Eigen::Index rank = (svd.singularValues().array() > threshold).count();
    out.saturated = h >= 100 && rank > 4 * h / 5;
    const Eigen::Index p = std::min(rank, 2 * h / 3);
    if (out.saturated || p == 0)
        return out;
    out.terms = poles_of(PlainMatrix(svd.matrixU().leftCols(p)), stride);
    return out;
}

} // namespace

double highest_line(const std::vector<Series>& records, const std::vector<std::size_t>& first)
{
    double highest = 0;
    std::size_t shortest = records.front().size();
    for (std::size_t p = 0; p < records.size(); ++p)
        shortest = std::min(shortest, records[p].size() - first[p]);
    for (const std::size_t part : {1U, 4U, 16U, 64U})
        if (part == 1 || shortest / part >= 400)
            highest = std::max(highest, highest_in(records, first, part));
    return highest;
}

Start start_values(const RecordSet& set, double highest)
{
    const auto stride =
        std::clamp<std::size_t>(static_cast<std::size_t>(1 / (kNodesPerPeriod * std::max(highest, 1e-3))), 1,
                                std::max<std::size_t>(1, set.longest() / kLeastNodes));
    const std::size_t nodes = std::min(kMostNodes, (set.longest() + stride - 1) / stride);
    if (set.complex())
        return start_of<ExtendedComplex>(set, stride, nodes);
    return start_of<Extended>(set, stride, nodes);
}

} // namespace tessel::modes
