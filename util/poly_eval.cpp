#include "util/poly_eval.h"

#include "common/polynomial.h"

namespace tessel {

namespace {

/// z - a b / (b - a), a = p/h, b = h/g; z itself where the step does not exist.
Complex corrected(const Complex& z, const Complex& p, const Complex& h, const Complex& g)
{
    if (abs1(p) == 0.0 || abs1(h) == 0.0)
        return z;
    const Complex a = divide_extended(p, h);
    if (abs1(g) == 0.0)
        return z - a;
    const Complex b = divide_extended(h, g), d = b - a;
    if (abs1(d) == 0.0)
        return z;
    return z - multiply(divide_extended(b, d), a);
}

} // namespace

extern "C" void CPOLY_EVAL_STEP(const Complex* A, const Complex* H, const Complex* G, const Complex* W,
                                const Integer& N, Complex& Z, Complex& PZ, Real& PSIZE, Real& BOUND)
{
    const Index n = N;
    const Real r = modulus(Z);
    const bool outside = r > 1.0;
    const Complex x = outside ? reciprocal(Z) : Z;
    const Real start = outside ? 0.0 : 1.0;

    TermSum p{Vector(A), x, start}, h{Vector(H), x, 0.0}, g{Vector(G), x, 0.0};
    WeightSum bound{Vector(W), outside ? 1.0 / r : r, start};
    if (outside) {
        take_upwards(n, p, h, g, bound);
        p.add(1.0);
        h.add(0.0);
        g.add(0.0);
        bound.add(1.0);
    } else {
        take_downwards(n, p, h, g, bound);
    }

    PZ = p.value;
    PSIZE = abs1(p.value);
    BOUND = bound.value;
    Z = corrected(Z, p.value, h.value, g.value);
}

} // namespace tessel
