#include "examples/resonator/hankel.h"

#include "examples/resonator/error.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <string>

namespace resonator {

namespace {

/// Of a square matrix of noise hardly a singular value is larger than this times the median one (M. Gavish,
/// D. L. Donoho, IEEE Trans. Inf. Theory 60 (2014) 5040, eq. 5). It takes a signal that fills less than half of them.
constexpr double kAboveNoise = 2.858;

/// Stop-band attenuation of the filter that makes a signal analytic, in dB: below the rounding of the record.
constexpr double kAttenuation = 300.0;

template <class Matrix>
struct Factors
{
    Eigen::VectorXd values;
    Matrix left, right;
};

std::int32_t length(Index n)
{
    return static_cast<std::int32_t>(n);
}

void check(const char* routine, std::int32_t info)
{
    if (info != 0)
        throw Error(std::string("no singular values: ") + routine + ": INFO = " + std::to_string(info));
}

Factors<Eigen::MatrixXd> factor(FDTDCalcAPI& api, Eigen::MatrixXd h)
{
    const std::int32_t m = length(h.rows()), n = length(h.cols()), p = std::min(m, n), ask = -1;
    Factors<Eigen::MatrixXd> f{Eigen::VectorXd(p), Eigen::MatrixXd(m, p), Eigen::MatrixXd(p, n)};
    std::int32_t info = 0;
    const auto call = [&](double* work, const std::int32_t& size) {
        api.dgesvd("S", "S", &m, &n, h.data(), &m, f.values.data(), f.left.data(), &m, f.right.data(), &p, work, &size,
                   &info, 1, 1);
        check("DGESVD", info);
    };
    double best = 0.0;
    call(&best, ask);
    Eigen::VectorXd work(static_cast<Index>(best));
    call(work.data(), length(work.size()));
    return f;
}

Factors<Eigen::MatrixXcd> factor(FDTDCalcAPI& api, Eigen::MatrixXcd h)
{
    const std::int32_t m = length(h.rows()), n = length(h.cols()), p = std::min(m, n), ask = -1;
    Factors<Eigen::MatrixXcd> f{Eigen::VectorXd(p), Eigen::MatrixXcd(m, p), Eigen::MatrixXcd(p, n)};
    Eigen::VectorXd real_work(5 * p);
    std::int32_t info = 0;
    const auto call = [&](Complex* work, const std::int32_t& size) {
        api.zgesvd("S", "S", &m, &n, h.data(), &m, f.values.data(), f.left.data(), &m, f.right.data(), &p, work, &size,
                   real_work.data(), &info, 1, 1);
        check("ZGESVD", info);
    };
    Complex best = 0.0;
    call(&best, ask);
    Eigen::VectorXcd work(static_cast<Index>(best.real()));
    call(work.data(), length(work.size()));
    return f;
}

Index count_above_noise(const Eigen::VectorXd& values)
{
    const double median = values[values.size() / 2];
    const double rounding = std::numeric_limits<double>::epsilon() * static_cast<double>(values.size()) * values[0];
    return (values.array() > std::max(kAboveNoise * median, rounding)).count();
}

} // namespace

Hankel decompose(FDTDCalcAPI& api, const std::vector<Complex>& samples)
{
    const auto n = static_cast<Index>(samples.size());
    Eigen::MatrixXcd h(n / 2, n - n / 2);
    for (Index j = 0; j < h.cols(); ++j)
        for (Index i = 0; i < h.rows(); ++i)
            h(i, j) = samples[static_cast<std::size_t>(i + j)];

    Hankel result{(h.imag().array() == 0.0).all(), 0, {}, {}, {}};
    if (result.real) {
        const auto f = factor(api, Eigen::MatrixXd(h.real()));
        result.values = f.values;
        result.left = f.left.cast<Complex>();
        result.right = f.right.cast<Complex>();
    } else {
        auto f = factor(api, std::move(h));
        result.values = std::move(f.values);
        result.left = std::move(f.left);
        result.right = std::move(f.right);
    }
    result.rank = count_above_noise(result.values);
    return result;
}

/// The imaginary part is the Hilbert transform, by the ideal transformer 2 / (pi l), l odd, under a Kaiser window
/// (A. V. Oppenheim, R. W. Schafer, Discrete-Time Signal Processing, 3rd ed., secs. 7.5.3 and 12.4).
std::vector<Complex> analytic_samples(const Record& record, const Window& window)
{
    const Index reach = (window.last() - window.first) / 6;
    const double beta = 0.1102 * (kAttenuation - 8.7);
    std::vector<double> filter; // at l = 1, 3, 5, ...
    for (Index l = 1; l <= reach; l += 2) {
        const double u = static_cast<double>(l) / static_cast<double>(reach);
        const double kaiser = std::cyl_bessel_i(0.0, beta * std::sqrt(1.0 - u * u)) / std::cyl_bessel_i(0.0, beta);
        filter.push_back(2.0 / (std::numbers::pi * static_cast<double>(l)) * kaiser);
    }
    // At every sample of the record the noise, too, would fill but half of the band and half of the singular values.
    const Index stride = std::max<Index>(window.stride, 2);
    std::vector<Complex> samples;
    for (Index k = window.first + reach; k + reach <= window.last(); k += stride) {
        double transform = 0.0;
        Index l = 1;
        for (const double weight : filter) {
            transform += weight * (record.at(k - l).real() - record.at(k + l).real());
            l += 2;
        }
        samples.emplace_back(record.at(k).real(), transform);
    }
    return samples;
}

} // namespace resonator
