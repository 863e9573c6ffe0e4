/// @file
/// Several records with one set of poles: the model, its projection on the poles and its refinement.
///
/// The poles are shared, the residues are each record's own. At given poles the residues of a record depend on that
/// record alone, and are eliminated there: what a record adds to the problem of the poles costs no more than reading
/// it.
#ifndef TESSEL_MODES_JOINT_H
#define TESSEL_MODES_JOINT_H

#include "modes/model.h"

namespace tessel::modes {

/// Records of one spacing, all real or all complex, on grids of their own.
struct RecordSet
{
    explicit RecordSet(std::vector<Series> all);

    std::vector<Series> records;
    /// Of each record: records of one profile have the same weights over time, up to a factor.
    std::vector<std::size_t> profile;
    std::vector<double> weight; ///< of each record: that factor

    std::size_t size() const { return records.size(); }
    bool complex() const { return records.front().complex(); }
    /// Samples of a record that are among the first n.
    std::size_t samples(std::size_t record, std::size_t n) const { return std::min(n, records[record].size()); }
    std::size_t longest() const;
    /// Samples of all records that are among the first n of each.
    std::size_t total(std::size_t n) const;
};

/// Residues of one record, of each term, at the term's origin on that record's grid.
using Residues = std::vector<Complex>;

/// Shared poles and each record's residues.
struct JointModel
{
    Terms terms;                    ///< their residues and origins mean nothing
    std::vector<Residues> residues; ///< of each record
    double chiSquare = 0;
    std::vector<double> chiSquares; ///< of each record
    int steps = 0;

    /// The terms as record `p` of the set has them within its first n samples.
    Terms of(const RecordSet& set, std::size_t p, std::size_t n) const;
    /// Adds a term without residues.
    void add(const Term& term);
    /// The model of some of its terms; chi^2 stays that of all.
    JointModel with(const std::vector<char>& kept) const;
};

/// What the records of one grid have in common, at unit weight and with L = d model / d c and B = d model / d pole at c
/// = 1.
struct Grid
{
    ExtendedMatrix inverse; ///< (L'L)^-1
    ExtendedMatrix carried; ///< (L'L)^-1 L'B: how residues answer to poles
    ExtendedMatrix schur;   ///< B'B - B'L (L'L)^-1 L'B
    ExtendedVector norms;   ///< diagonal of B'B
};

/// A model whose residues are solved, and the normal equations of its poles with the residues eliminated.
struct Projection
{
    JointModel model;
    std::vector<Grid> grids;
    std::vector<std::size_t> gridOf; ///< of each record
    ExtendedMatrix normal;           ///< of the poles' parameters
    ExtendedVector gradient;
    ExtendedVector norms; ///< the normal matrix's diagonal before elimination
};

/// d (parameters of B) / d (poles' parameters) for a record's residues: Layout's order, block-diagonal.
/// Two columns (decay, angle) an oscillation, one a real term.
ExtendedMatrix turned(const Terms& terms, const Residues& residues, const ExtendedMatrix& rows);

/// Solves the residues at the model's poles over the first n samples.
Projection project(const RecordSet& set, JointModel model, std::size_t n);

/// Moves the poles to a minimum of chi^2, as refine() does for one record.
JointModel refine(const RecordSet& set, JointModel model, std::size_t n, int mostSteps = 30, double target = -1);

/// Solves the residues alone.
JointModel solve_residues(const RecordSet& set, JointModel model, std::size_t n);

/// Degrees of freedom of chi^2 of all records; with `record`, its share of the one.
double freedom(const RecordSet& set, const Terms& terms, std::size_t n);
double freedom(const RecordSet& set, const Terms& terms, std::size_t n, std::size_t record);

} // namespace tessel::modes

#endif
