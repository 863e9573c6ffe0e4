/// @file
/// A sum of damped exponentials on a grid: its residual against a record, its gradient, and the inner products of its
/// columns, which have a closed form.
#ifndef TESSEL_MODES_MODEL_H
#define TESSEL_MODES_MODEL_H

#include <Eigen/Core>

#include <complex>
#include <cstddef>
#include <vector>

namespace tessel::modes {

using Complex = std::complex<double>;
using Extended = long double;
using ExtendedComplex = std::complex<long double>;
using ExtendedMatrix = Eigen::Matrix<Extended, Eigen::Dynamic, Eigen::Dynamic>;
using ExtendedVector = Eigen::Matrix<Extended, Eigen::Dynamic, 1>;

/// A record on the grid k = 0, 1, ...; the noise of a sample is constant over each segment.
struct Series
{
    std::vector<double> re;
    std::vector<double> im;     ///< empty for a real record
    std::size_t segment = 1;    ///< samples in a segment; the last may be shorter
    std::vector<double> weight; ///< 1 / sigma^2 of each segment
    double rounding = 0;        ///< largest step of a random walk, of an amplitude, that rounding may cause each sample

    std::size_t size() const { return re.size(); }
    bool complex() const { return !im.empty(); }
    double weightAt(std::size_t k) const { return weight[std::min(k / segment, weight.size() - 1)]; }
};

/// One term c exp((-decay + i angle) (k - origin)), of which a real record sees the real part. Poles are held in
/// extended precision: over N samples a rounding of the angle grows N times.
struct Term
{
    enum class Kind
    {
        oscillating,
        real
    };
    Extended decay = 0;     ///< per sample
    Extended angle = 0;     ///< per sample
    Complex c = 0;          ///< at the origin
    std::size_t origin = 0; ///< 0 for a term that decays, else the last sample
    Kind kind = Kind::oscillating;
};
using Terms = std::vector<Term>;

/// Number of linear parameters of a term: 2 of an oscillation, 1 of a real one.
int linearCount(const Term& term);

/// Residual sums of a model at given parameters, over the samples [0, n).
struct Evaluation
{
    double chiSquare = 0;
    std::vector<Complex> x; ///< sum of w conj(E) r, each term
    std::vector<Complex> y; ///< sum of w (k - origin) conj(E) r
};

/// Evaluates the residual r = record - model. With `residual` not null it receives r, in the record's unit (imaginary
/// part behind the real one for a complex record), and Evaluation::x and y stay zero.
Evaluation evaluate(const Series& series, const Terms& terms, std::size_t n, std::vector<double>* residual = nullptr);

/// The inner products of the columns, L = d model / d c and B = d model / d pole at c = 1.
class Products
{
public:
    Products(const Series& series, const Terms& terms, std::size_t n);
    /// Normal matrix of all parameters: those linear first, then the pole's (decay, angle) of every term. The pole's
    /// columns carry the factor c of `terms`.
    ExtendedMatrix normal(const Terms& terms) const;
    /// Normal matrix of the linear parameters alone.
    ExtendedMatrix linear(const Terms& terms) const;

    struct Sums
    {
        ExtendedComplex s[2][2];
    };

private:
    /// sum of w (k - o_i)^a (k - o_j)^b conj(E_i) E_j, and the same of E_i E_j.
    std::vector<Sums> conjugate_, plain_;
    std::size_t count_;
    bool complex_;
    Extended entry(std::size_t i, int a, ExtendedComplex fi, std::size_t j, int b, ExtendedComplex fj) const;
};

/// Right-hand side that belongs to Products::normal.
ExtendedVector gradient(const Evaluation& evaluation, const Terms& terms);

/// Offsets of the terms' parameters in the normal matrix.
struct Layout
{
    explicit Layout(const Terms& terms);
    std::vector<int> linear; ///< first linear parameter of each term
    std::vector<int> pole;   ///< first pole parameter of each term
    int linearTotal = 0;
    int total = 0;
};

/// Number of pole parameters of a term: 2 of an oscillation, 1 of a real one.
int poleCount(const Term& term);

/// exp((-decay + i angle) steps), with the phase reduced in extended precision.
ExtendedComplex power(const Term& term, Extended steps);

} // namespace tessel::modes

#endif
