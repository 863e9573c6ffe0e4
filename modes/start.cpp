#include "modes/start.h"
#include "modes/fourier.h"

#include "common/elementary.h"

#include <Eigen/Eigenvalues>
#include <Eigen/QR>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace tessel::modes {

namespace {

constexpr double kNodesPerPeriod = 2.6;
constexpr std::size_t kMostNodes = 400;
constexpr std::size_t kLeastNodes = 64; // as long as there are samples
constexpr std::size_t kMostNodesLarge = 8192;
constexpr Eigen::Index kMostVectors = 160;
constexpr Eigen::Index kSpare = 8; // vectors beyond those that count
constexpr int kSubspaceRounds = 4;
constexpr double kTransform = 300;  // operations of a product by transforms, for each row
constexpr double kRounding = 3e-15; // of the largest singular value

/// Products of a real Hankel matrix, rows and columns h, by the Fourier transform of its elements.
class HankelProduct
{
public:
    HankelProduct(const std::vector<double>& elements, Eigen::Index h)
        : h_(h), fourier_(fast_length(elements.size())), re_(fourier_.size()), im_(fourier_.size())
    {
        const std::size_t n = fourier_.size();
        std::fill(std::copy(elements.begin(), elements.end(), fourier_.re()), fourier_.re() + n, 0.0);
        std::fill_n(fourier_.im(), n, 0.0);
        fourier_.forward();
        const double scale = 1 / static_cast<double>(n);
        for (std::size_t k = 0; k < n; ++k) {
            re_[k] = fourier_.re()[k] * scale;
            im_[k] = fourier_.im()[k] * scale;
        }
    }
    Eigen::MatrixXd operator()(const Eigen::MatrixXd& x)
    {
        Eigen::MatrixXd out(h_, x.cols());
        // two columns in one transform: the elements are real
        for (Eigen::Index c = 0; c < x.cols(); c += 2) {
            const Eigen::Index second = std::min(c + 1, x.cols() - 1);
            load(x, c, fourier_.re());
            load(x, second, fourier_.im());
            fourier_.forward();
            double *re = fourier_.re(), *im = fourier_.im();
            for (std::size_t k = 0; k < fourier_.size(); ++k) {
                const double a = re[k], b = im[k];
                re[k] = a * re_[k] - b * im_[k];
                im[k] = a * im_[k] + b * re_[k];
            }
            fourier_.backward();
            out.col(c) = Eigen::VectorXd::Map(fourier_.re() + h_ - 1, h_);
            out.col(second) = Eigen::VectorXd::Map(fourier_.im() + h_ - 1, h_);
        }
        return out;
    }

private:
    void load(const Eigen::MatrixXd& x, Eigen::Index column, double* to) const
    {
        Eigen::VectorXd::Map(to, h_) = x.col(column).reverse();
        std::fill(to + h_, to + fourier_.size(), 0.0);
    }
    Eigen::Index h_;
    Fourier fourier_;
    std::vector<double> re_, im_; // the elements' transform over its length
};

/// Singular vectors of a large real Hankel matrix whose singular values are above max(noise, kRounding of the largest),
/// by subspace iteration; as many columns as there are. Empty if there are more than kMostVectors.
/// @par Source  N. Halko, P. G. Martinsson, J. A. Tropp, SIAM Rev. 53 (2011) 217, algorithm 4.4.
bool large_signal_space(const std::vector<double>& elements, Eigen::Index h, double noise, Eigen::MatrixXd& u,
                        double& work)
{
    HankelProduct hankel(elements, h);
    for (Eigen::Index p = std::min<Eigen::Index>(48, h / 2);; p = std::min(2 * p, kMostVectors)) {
        // products by transforms, and orthogonal factors
        work += kSubspaceRounds * static_cast<double>(p) * static_cast<double>(h) *
                (kTransform + 4 * static_cast<double>(p));
        // any start that no structure of the matrix meets: the same each time
        Eigen::MatrixXd q(h, p);
        std::uint64_t state = 1;
        for (Eigen::Index c = 0; c < p; ++c)
            for (Eigen::Index r = 0; r < h; ++r) {
                state = state * 6364136223846793005U + 1442695040888963407U;
                q(r, c) = static_cast<double>(state >> 11U) * 0x1p-52 - 1;
            }
        for (int round = 0; round < kSubspaceRounds; ++round) {
            const Eigen::MatrixXd y = hankel(q);
            q = Eigen::HouseholderQR<Eigen::MatrixXd>(y).householderQ() * Eigen::MatrixXd::Identity(h, p);
        }
        const Eigen::MatrixXd small = q.transpose() * hankel(q);
        const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> solver((small + small.transpose()) / 2);
        const Eigen::VectorXd values = solver.eigenvalues().cwiseAbs();
        const double threshold = std::max(noise, kRounding * values.maxCoeff());
        std::vector<Eigen::Index> kept;
        for (Eigen::Index k = 0; k < p; ++k)
            if (values[k] > threshold)
                kept.push_back(k);
        const auto rank = static_cast<Eigen::Index>(kept.size());
        if (rank > p - kSpare && p < kMostVectors && 2 * p <= h)
            continue;
        if (rank > p - kSpare)
            return false;
        u.resize(h, rank);
        for (Eigen::Index k = 0; k < rank; ++k)
            u.col(k) = q * solver.eigenvectors().col(kept[static_cast<std::size_t>(k)]);
        return true;
    }
}

/// Poles of a basis U of the signal space: eigenvalues of (U1^H U1)^-1 U1^H U2, U1 without its last row, U2 without its
/// first.
template <class Matrix>
std::vector<Complex> rotation(const Matrix& u)
{
    const auto h = u.rows(), p = u.cols();
    Matrix phi = u.topRows(h - 1).adjoint() * u.bottomRows(h - 1);
    // U1^H U1 = I - v v^H by the orthonormal columns of U, v^H its last row.
    const auto last = u.row(h - 1);
    const double rest = 1 - last.squaredNorm();
    if (rest > 1e-14) {
        const auto row = (last * phi).eval();
        phi += last.adjoint() * row / rest;
    }
    std::vector<Complex> out;
    if constexpr (Eigen::NumTraits<typename Matrix::Scalar>::IsComplex) {
        const Eigen::ComplexEigenSolver<Matrix> solver(phi, false);
        for (Eigen::Index k = 0; k < p; ++k)
            out.push_back(solver.eigenvalues()[k]);
    } else {
        const Eigen::EigenSolver<Matrix> solver(phi, false);
        for (Eigen::Index k = 0; k < p; ++k)
            out.push_back(solver.eigenvalues()[k]);
    }
    return out;
}

/// Terms of one sample's step from poles of `stride` samples' step; of a real record those of positive frequency.
Terms terms_of(const std::vector<Complex>& z, std::size_t stride, bool complex)
{
    Terms out;
    const auto s = static_cast<Extended>(stride);
    for (const Complex& value : z) {
        const double magnitude = std::abs(value);
        if (!(magnitude > 1e-3) || !(magnitude < 10))
            continue;
        Term term;
        const Complex log = logarithm(value);
        term.decay = -static_cast<Extended>(log.real()) / s;
        term.angle = static_cast<Extended>(log.imag()) / s;
        // growth that would leave the model's range over the record starts as none
        if (!complex) {
            if (value.imag() < 0)
                continue;
            if (value.imag() == 0) {
                if (value.real() < 0)
                    continue;
                term.kind = Term::Kind::real;
                term.angle = 0;
            }
        }
        out.push_back(term);
    }
    return out;
}

} // namespace

Terms poles_of(const Eigen::MatrixXd& basis, std::size_t stride)
{
    return terms_of(rotation(basis), stride, false);
}

Terms poles_of(const Eigen::MatrixXcd& basis, std::size_t stride)
{
    return terms_of(rotation(basis), stride, true);
}

Start start_values(const Series& series, double highest)
{
    Start out;
    const std::size_t m = series.size();
    const auto stride =
        std::clamp<std::size_t>(static_cast<std::size_t>(1 / (kNodesPerPeriod * std::max(highest, 1e-3))), 1,
                                std::max<std::size_t>(1, m / kLeastNodes));
    const bool large = !series.complex() && (m + stride - 1) / stride > kMostNodes;
    const std::size_t nodes = std::min(large ? kMostNodesLarge : kMostNodes, (m + stride - 1) / stride);
    const auto h = static_cast<Eigen::Index>(nodes / 2);
    out.samplesUsed = nodes;
    if (h < 3)
        return out;
    out.samples = std::min(m, nodes * stride);
    double least = INFINITY;
    for (std::size_t b = 0; b < series.weight.size() && b * series.segment < out.samples; ++b)
        least = std::min(least, series.weight[b]);
    const double sigma = 1 / std::sqrt(least);
    const auto node = [&](Eigen::Index k) { return static_cast<std::size_t>(k) * stride; };
    const auto order = [&](const Eigen::VectorXd& values, double noise) {
        const double top = values.cwiseAbs().maxCoeff();
        const auto hd = static_cast<double>(h);
        const double threshold = std::max(noise * std::sqrt(2 * hd * logarithm(hd)), kRounding * top);
        return (values.array().abs() > threshold).count();
    };
    std::vector<Complex> z;
    if (large) {
        std::vector<double> elements;
        for (Eigen::Index k = 0; k < 2 * h - 1; ++k)
            elements.push_back(series.re[node(k)]);
        Eigen::MatrixXd u;
        const auto hd = static_cast<double>(h);
        out.saturated = !large_signal_space(elements, h, sigma * std::sqrt(2 * hd * logarithm(hd)), u, out.work);
        if (out.saturated || u.cols() == 0)
            return out;
        z = rotation(u);
    } else if (!series.complex()) {
        Eigen::MatrixXd hankel(h, h);
        for (Eigen::Index i = 0; i < h; ++i)
            for (Eigen::Index j = 0; j < h; ++j)
                hankel(i, j) = series.re[node(i + j)];
        // A real Hankel matrix is symmetric: its singular vectors are its eigenvectors.
        const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> solver(hankel);
        const Eigen::Index rank = order(solver.eigenvalues(), sigma);
        out.saturated = h >= 100 && rank > 4 * h / 5;
        if (out.saturated)
            return out;
        const Eigen::Index p = std::min(rank, 2 * h / 3);
        std::vector<Eigen::Index> index(static_cast<std::size_t>(h));
        for (Eigen::Index k = 0; k < h; ++k)
            index[static_cast<std::size_t>(k)] = k;
        std::stable_sort(index.begin(), index.end(), [&](Eigen::Index a, Eigen::Index b) {
            return std::abs(solver.eigenvalues()[a]) > std::abs(solver.eigenvalues()[b]);
        });
        if (p == 0)
            return out;
        Eigen::MatrixXd u(h, p);
        for (Eigen::Index k = 0; k < p; ++k)
            u.col(k) = solver.eigenvectors().col(index[static_cast<std::size_t>(k)]);
        z = rotation(u);
    } else {
        const Eigen::Index half = std::min<Eigen::Index>(h, 150);
        out.samples = std::min(out.samples, 2 * static_cast<std::size_t>(half) * stride);
        Eigen::MatrixXcd hankel(half, half);
        for (Eigen::Index i = 0; i < half; ++i)
            for (Eigen::Index j = 0; j < half; ++j)
                hankel(i, j) = Complex(series.re[node(i + j)], series.im[node(i + j)]);
        const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXcd> solver(hankel * hankel.adjoint());
        const Eigen::VectorXd values = solver.eigenvalues().cwiseMax(0).cwiseSqrt();
        const double floor = 1e-7 * values.maxCoeff();
        const Eigen::Index p =
            std::min(std::min(order(values, std::sqrt(2.0) * sigma), (values.array() > floor).count()), 2 * half / 3);
        if (p == 0)
            return out;
        z = rotation(Eigen::MatrixXcd(solver.eigenvectors().rightCols(p)));
    }
    out.terms = terms_of(z, stride, series.complex());
    return out;
}

} // namespace tessel::modes
