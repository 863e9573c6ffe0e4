/// @file
/// Discrete Fourier transforms made of +, -, * and roots of unity whose bits do not depend on the processor.
#ifndef TESSEL_MODES_FOURIER_H
#define TESSEL_MODES_FOURIER_H

#include "modes/model.h"

#include <cstddef>
#include <memory>

namespace tessel::modes {

/// Smallest even 2^a 3^b 5^c that is at least n.
std::size_t fast_length(std::size_t n);

/// Transforms of one length, of the numbers that it holds. One thread at a time.
/// @par Source  C. Van Loan, Computational Frameworks for the Fast Fourier Transform, SIAM 1992, sec. 1.7 (Stockham's
///   framework); C. Temperton, J. Comput. Phys. 52 (1983) 1 (radices 2, 3, 4 and 5).
class Fourier
{
public:
    /// @param n  the length, 2^a 3^b 5^c. The numbers are undefined.
    explicit Fourier(std::size_t n);

    std::size_t size() const { return size_; }
    /// Real parts of the numbers. A transform moves them.
    double* re() { return re_.get(); }
    /// Imaginary parts.
    double* im() { return im_.get(); }
    /// x_j := sum_k x_k exp(-2 pi i j k / n)
    void forward();
    /// x_j := sum_k x_k exp(2 pi i j k / n)
    void backward();
    /// exp(-2 pi i k / n), k < n
    Complex root(std::size_t k) const { return {cosine_[k], sine_[k]}; }

private:
    using Row = std::unique_ptr<double[]>; // not initialised
    std::size_t size_;
    Row cosine_, sine_;         // of the roots
    Row re_, im_, toRe_, toIm_; // both sides of a stage
};

} // namespace tessel::modes

#endif
