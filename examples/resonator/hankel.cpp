#include "examples/resonator/hankel.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>

namespace resonator {

namespace {

/// Of a square matrix of noise hardly a singular value is larger than this times the median one (M. Gavish,
/// D. L. Donoho, IEEE Trans. Inf. Theory 60 (2014) 5040, eq. 5). It takes a signal that fills less than half of them.
constexpr double kAboveNoise = 2.858;

std::int32_t length(Index n)
{
    return static_cast<std::int32_t>(n);
}

Index count_above_noise(const Eigen::VectorXd& values)
{
    const double median = values[values.size() / 2];
    const double rounding = std::numeric_limits<double>::epsilon() * static_cast<double>(values.size()) * values[0];
    return (values.array() > std::max(kAboveNoise * median, rounding)).count();
}

} // namespace

std::vector<double> samples_of(const Record& record, const Window& window)
{
    std::vector<double> samples;
    for (Index k = 0; k < window.count; ++k)
        samples.push_back(record.at(window.first + k * window.stride));
    return samples;
}

Hankel decompose(FDTDCalcAPI& api, const std::vector<double>& samples)
{
    const auto size = static_cast<Index>(samples.size());
    Eigen::MatrixXd h(size / 2, size - size / 2);
    for (Index j = 0; j < h.cols(); ++j)
        for (Index i = 0; i < h.rows(); ++i)
            h(i, j) = samples[static_cast<std::size_t>(i + j)];

    const std::int32_t m = length(h.rows()), n = length(h.cols()), p = std::min(m, n), ask = -1;
    Hankel result{0, Eigen::VectorXd(p), Eigen::MatrixXd(m, p), Eigen::MatrixXd(p, n)};
    const auto call = [&](double* work, const std::int32_t& work_size) {
        std::int32_t info = 0;
        api.dgesvd("S", "S", &m, &n, h.data(), &m, result.values.data(), result.left.data(), &m, result.right.data(),
                   &p, work, &work_size, &info, 1, 1);
        if (info != 0)
            throw std::runtime_error("no singular values: DGESVD: INFO = " + std::to_string(info));
    };
    double best = 0.0;
    call(&best, ask);
    Eigen::VectorXd work(static_cast<Index>(best));
    call(work.data(), length(work.size()));
    result.rank = count_above_noise(result.values);
    return result;
}

} // namespace resonator
