#include "util/poly_eval.h"

#include "common/polynomial.h"

namespace tessel {

namespace {

/// z - a b / (b - a), a = p/h, b = h/g; z itself where the step does not exist.
Complex corrected(const Complex& z, const Complex& p, const Complex& h, const Complex& g)
{
    if (abs1(p) == 0.0 || abs1(h) == 0.0)
        return z;
    const Complex a = divide_plain(p, h);
    if (abs1(g) == 0.0)
        return z - a;
    const Complex b = divide_plain(h, g), d = b - a;
    if (abs1(d) == 0.0)
        return z;
    return z - multiply(divide_plain(b, d), a);
}

} // namespace

extern "C" void CPOLY_EVAL_STEP(const Complex* A, const Complex* H, const Complex* G, const Complex* W,
                                const Integer& N, Complex& Z, Complex& PZ, Real& PSIZE, Real& BOUND)
{
    const Index n = N;
    const Complex z = Z;
    const Real r = modulus(z);

    HornerSum p{Vector(A), z, 1.0}, h{Vector(H), z, 0.0}, g{Vector(G), z, 0.0};
    HornerWeightSum bound{Vector(W), r, 1.0};
    if (r > 1.0) {
        const Complex u(z.real() / (r * r), -z.imag() / (r * r)); // 1 / z
        p = {Vector(A), u, A[0]};
        h = {Vector(H), u, H[0]};
        g = {Vector(G), u, G[0]};
        bound = {Vector(W), 1.0 / r, W[0].real()};
        horner_upwards(2, n, p, h, g, bound);
        p.add(1.0);
        h.value = multiply(h.value, u);
        g.value = multiply(g.value, u);
        bound.add(1.0);
    } else {
        horner_downwards(n, p, h, g, bound);
    }

    PZ = p.value;
    PSIZE = abs1(p.value);
    BOUND = bound.value;
    Z = corrected(z, p.value, h.value, g.value);
}

} // namespace tessel
