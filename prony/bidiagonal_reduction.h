/// Reduction of a matrix to real bidiagonal form, and generation of the unitary transformations: the first half of a
/// singular value decomposition.
#pragma once

#include "common/types.h"
#include "common/views.h"

namespace tessel {

/// The vectors that a decomposition is asked for.
struct WantedVectors
{
    Index left; ///< number of left vectors, 0 for none
    bool right; ///< whether all right vectors
    bool in_x;  ///< whether the left vectors take the place of the matrix
};

/// X = U B V^H of an n x p matrix, n >= p >= 1, with B real and upper bidiagonal, by Householder reflections from both
/// sides. T is Complex, or Real for a matrix of real elements; both take the same steps.
///
/// @param[in,out] x     the matrix; destroyed
/// @param[out]    u     left vectors; not referenced if none are asked for
/// @param[out]    v     right vectors, p x p; not referenced if none are asked for
/// @param[out]    s     diagonal of B, p
/// @param[out]    e     super-diagonal of B, p; the last element is zero
/// @param[out]    work  scratch, n
/// @return  true. False if T is Real and the square of a divisor underflows to zero or is not finite: complex quotients
///          then have NaN parts, real ones have not. The matrix is to be reduced as a complex one.
/// @par Source  G. H. Golub, W. Kahan, SIAM J. Numer. Anal. B 2 (1965) 205.
template <class T>
bool reduce_to_bidiagonal(Index n, Index p, WantedVectors wanted, const Matrix<T>& x, const Matrix<T>& u,
                          const Matrix<T>& v, const Vector<T>& s, const Vector<T>& e, const Vector<T>& work);

} // namespace tessel
