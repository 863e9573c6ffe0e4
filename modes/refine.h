/// @file
/// Refinement of all terms at once, by variable projection.
#ifndef TESSEL_MODES_REFINE_H
#define TESSEL_MODES_REFINE_H

#include "modes/model.h"

namespace tessel::modes {

/// Least pivot's root, of a matrix with unit diagonal, for which a factor in double precision serves.
constexpr double kWellConditioned = 1e-6;

/// What a refinement leaves.
struct Refined
{
    Terms terms;
    double chiSquare = 0;
    int steps = 0;
};

/// Moves poles and residues of all terms to a minimum of chi^2 over the samples [0, n).
///
/// Levenberg's damped Gauss-Newton step on the poles, the residues solved anew at each pole (Kaufman's form of variable
/// projection). The normal matrix is exact (Products), in extended precision, so that its condition is no worse than
/// that of a QR decomposition in double precision. It ends when a step gains next to nothing in chi^2,
/// or, with a target, when chi^2 is below the target or stays far above it.
Refined refine(const Series& series, Terms terms, std::size_t n, int mostSteps = 30, double target = -1);

/// Solves the residues alone.
Refined solve_residues(const Series& series, Terms terms, std::size_t n);

/// Moves the poles by the part of `step` that Layout gives them; a pole stays where the grid of n samples can represent it.
void add_poles(Terms& terms, const ExtendedVector& step, std::size_t n, bool complex);

/// Solves a symmetric positive semidefinite system after scaling its diagonal to one; directions that the precision
/// does not resolve are held.
ExtendedVector solve_scaled(const ExtendedMatrix& a, const ExtendedVector& b, const ExtendedVector& damping);

} // namespace tessel::modes

#endif
