/// Implicit-shift QR iteration on a real bidiagonal matrix: the second half of a singular value decomposition.
#pragma once

#include "common/types.h"
#include "common/views.h"

namespace tessel {

/// The columns of a matrix of vectors, and how they are stored: `parts` doubles for an element.
struct VectorColumns
{
    Matrix<Real> a; ///< leading dimension in doubles
    Index rows;
    Index parts; ///< 1 for real, 2 for complex elements
    bool wanted;
};

/// B = U' diag(s) V'^H for the bidiagonal matrix B with the diagonal s and the super-diagonal e. The columns of u
/// become those of U U', the columns of v those of V V', where they are wanted.
///
/// @param[in]     p      order
/// @param[in,out] s      the diagonal, p; becomes the singular values, non-negative and not increasing
/// @param[in,out] e      the super-diagonal, p, the last element zero; becomes zero
/// @param[in,out] u, v   columns, at least p each
/// @param[out]    order  scratch, p
/// @return  0, or the order m of the part that did not converge: then s(m+1..p) and their vectors are right
/// @par Source  G. H. Golub, C. Reinsch, Numer. Math. 14 (1970) 403.
Index iterate_bidiagonal(Index p, const Vector<Real>& s, const Vector<Real>& e, const VectorColumns& u,
                         const VectorColumns& v, const Vector<Real>& order);

} // namespace tessel
