/// What a set of modes can look like in a record, and to first order beside it: an orthonormal basis over time.
#pragma once

#include "fields/kernels.h"
#include "fields/matrix.h"

#include <cstddef>
#include <vector>

namespace tessel::fields {

/// A pole of the field. Extended precision: over N steps a rounding of it grows N times.
struct Term
{
    Extended decay = 0;  ///< nepers a step
    Extended cycles = 0; ///< a step
    bool real = false;   ///< decays without turning
};
using Terms = std::vector<Term>;

/// exp((-decay + 2 pi i cycles) steps), the same on every processor.
ExtendedComplex power(const Term& term, std::ptrdiff_t steps);

/// How records are laid out in rows: sums of `factor` steps each; of a complex field the real and the imaginary part
/// of a sum follow one another.
struct Grid
{
    bool complex = false;
    std::size_t factor = 1;
    std::size_t sums = 0;

    std::size_t parts() const { return complex ? 2 : 1; }
    std::size_t rows() const { return sums * parts(); }
    std::size_t slabs() const { return (rows() + kSlab - 1) / kSlab; }
    std::size_t rowsOf(std::size_t slab) const { return std::min(kSlab, rows() - slab * kSlab); }
};

/// Which columns belong to what: linear parameters of each term (a, b of c = a + i b), those of an offset and a drift,
/// then the derivatives with respect to poles, at c = 1 and c = i, of each term.
///
/// A column of a term is E(k) = z^(k - origin), and its derivative (k - origin) E(k) / sums: a pole's parameters are
/// its decay and angle over the whole record.
struct Columns
{
    Columns(const Grid& grid, const Terms& terms, std::size_t drift);

    std::vector<Index> linear, poles, parameters; ///< first of each term
    Index width(std::size_t term) const { return widths[term]; }
    std::vector<Index> widths; ///< 2, or 1 of a real term in a real field
    Index modes = 0;           ///< linear columns of the terms
    Index linears = 0;         ///< linear columns with offset and drift
    Index total = 0;
    Index parameterTotal = 0; ///< 2 a term, 1 of a real one
};

constexpr std::size_t kEmpty = 8; ///< most directions of a slab that are orthogonal to the basis

/// The columns of some poles, and an orthonormal basis of what they span.
class Span
{
public:
    /// @param drift    degree of the polynomial that every record may hold beside the modes
    /// @param weights  of each sum, by which records and columns are multiplied; none: 1
    /// @param unit     power of two by which records are multiplied too, so that no square leaves the range
    /// @param threads  that work on it, whose number reaches no bit
    Span(const Grid& grid, Terms terms, std::size_t drift, const std::vector<double>& weights, double unit,
         unsigned threads);

    const Grid& grid() const { return grid_; }
    const Terms& terms() const { return terms_; }
    const Columns& columns() const { return columns_; }
    std::size_t width() const { return static_cast<std::size_t>(columns_.total); }
    double unit() const { return unit_; }
    /// The weights of the rows times the unit.
    const double* weights(std::size_t slab) const { return weights_.data() + slab * kSlab; }
    const Matrix& matrix() const { return q_; }

    /// Origin of a term's columns, in sums: the last of one that grew when the basis was made.
    std::size_t origin(std::size_t term) const { return terms_[term].decay < 0 ? grid_.sums - 1 : 0; }

protected:
    ExtendedMatrix evaluate(const Terms& terms) const;
    /// Calls work(first, count) for columns of a matrix, always in the same parts.
    template <class Work>
    void inParts(Index columns, const Work& work) const;

    Grid grid_;
    Terms terms_;
    Columns columns_;
    std::size_t drift_;
    double unit_;
    unsigned threads_;
    std::vector<double> weights_;
    ExtendedMatrix v_; ///< the columns
    Matrix q_;
};

/// A basis as a pass and the search for poles need it.
class Basis : public Span
{
public:
    explicit Basis(Span span);

    /// The columns, of other poles too, times the transposed basis.
    ExtendedMatrix projected(const Terms& terms) const;
    /// Squares of what lies outside of the basis, of each column of these poles.
    Vector outside(const Terms& terms) const;

    /// Adds to a tile's components what its rows of a slab have: y(c, p) + sum of w(row) q(row, c) x(row, p).
    void addComponents(std::size_t slab, const double* x, double* y) const;
    /// A few directions of a slab, times the weights, that are orthogonal to all columns there: packed for
    /// Kernels::product.
    const double* empty(std::size_t slab) const { return slabs_[slab].empty.data(); }
    std::size_t emptyCount(std::size_t slab) const { return slabs_[slab].emptyCount; }
    std::size_t emptyTotal() const;

private:
    /// The rows of a slab times the weights, packed for Kernels::product: the columns or, where that is less work, the
    /// few directions that slow columns span there, and the columns in terms of them.
    struct Slab
    {
        std::size_t rank = 0; ///< number of directions; 0: the columns
        std::vector<double> rows, columns, empty;
        std::size_t emptyCount = 0;
    };

    Matrix moved(const Terms& terms) const;
    Slab slabOf(std::size_t slab);
    ExtendedMatrix inner(const ExtendedMatrix& v) const;

    Matrix packed_;    ///< the basis as its slabs have it, from which it differs by little
    ExtendedMatrix r_; ///< the columns times the transposed packed_
    std::vector<Slab> slabs_;
};

/// Columns of a matrix for Kernels::product: group by group, there row by row.
std::vector<double> packed(const Matrix& columns);

} // namespace tessel::fields
