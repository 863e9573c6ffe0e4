// The solvers behind the interface, on problems whose answers are known. Their arrays lie beside inaccessible pages:
// reading one element too far ends the program.
#include "tests/conformance/group.h"
#include "tests/support/arnoldi.h"
#include "tests/support/call_arrays.h"
#include "tests/support/signals.h"
#include "tests/support/slots.h"

#include <numbers>
#include <utility>

namespace tessel::testing {
namespace {

/// A matrix of random elements, each of its columns `repeated` times, the elements of size `size` in the first corner
/// and of 10^-grading times that in the last.
struct Matrix
{
    Integer m, n, repeated = 1;
    Real grading = 0.0, size = 1.0;

    Integer rank() const { return std::min(m, (n + repeated - 1) / repeated); }
    /// An element over the size.
    template <class T>
    T element(Integer i, Integer j) const
    {
        const Integer first = j - j % repeated; // column of the same elements
        Random random(size_of(m * 1000000 + i * 1000 + first));
        const Complex value = random.complex() * std::pow(10.0, -grading * (i + first) / (m + n));
        if constexpr (std::is_same_v<T, Real>)
            return value.real();
        else
            return value;
    }
};

/// One decomposition, judged by |A - U S VT| (if both are asked for), by the difference of |S| and |A| and by the
/// singular values that are zero, over |A| max(m, n) eps, and by |U^H U - 1| and |VT VT^H - 1| over max(m, n) eps.
template <class T>
Real decomposition_error(FDTDCalcAPI& api, const Matrix& matrix, const char* jobs, bool least)
{
    const Integer m = matrix.m, n = matrix.n, p = std::min(m, n), q = std::max(m, n), columns = jobs[0] == 'A' ? m : p,
                  ldvt = jobs[1] == 'A' ? n : p;
    std::vector<T> original, scaled;
    Real norm = 0.0;
    for (Integer j = 0; j < n; ++j)
        for (Integer i = 0; i < m; ++i) {
            original.push_back(matrix.element<T>(i, j));
            scaled.push_back(original.back() * matrix.size);
            norm = std::hypot(norm, std::abs(original.back()));
        }
    static CallArrays arrays;
    arrays.begin();
    T *const a = arrays.take(scaled), *const u = arrays.take<T>(size_of(m * columns)),
             *const vt = arrays.take<T>(size_of(ldvt * n));
    Real *const s = arrays.take<Real>(size_of(p)), *const rwork = arrays.take<Real>(size_of(5 * p));
    T best = 0.0;
    Integer info = 77;
    gesvd(api, jobs[0], jobs[1], m, n, a, m, s, u, m, vt, ldvt, &best, -1, rwork, info);
    const Integer fewest = std::is_same_v<T, Real> ? std::max(3 * p + q, 5 * p) : 2 * p + q,
                  lwork = least ? fewest : static_cast<Integer>(std::real(best));
    gesvd(api, jobs[0], jobs[1], m, n, a, m, s, u, m, vt, ldvt, arrays.take<T>(size_of(lwork)), lwork, rwork, info);
    arrays.end(); // throws if anything was written beside an array
    if (info != 0 || !std::is_sorted(s, s + p, std::greater<>()))
        return INFINITY;
    if (matrix.size == 0.0)
        return s[0] == 0.0 ? 0.0 : INFINITY;

    Real length = 0.0;
    for (Integer k = 0; k < p; ++k)
        length = std::hypot(length, s[k] /= matrix.size);
    Real worst = worse(std::fabs(length - norm), matrix.rank() < p ? s[matrix.rank()] : 0.0) / norm;
    const T *const left = jobs[0] == 'O' ? a : u, *const right = jobs[1] == 'O' ? a : vt;
    const Integer ldright = jobs[1] == 'O' ? m : ldvt;
    if (jobs[0] != 'N')
        worst = worse(worst, departure_from_orthonormal(left, m, 1, columns, m));
    if (jobs[1] != 'N')
        worst = worse(worst, departure_from_orthonormal(right, n, ldright, ldvt, 1));
    for (Integer j = 0; j < n && jobs[0] != 'N' && jobs[1] != 'N'; ++j)
        for (Integer i = 0; i < m; ++i) {
            T sum = -original[size_of(i + j * m)];
            for (Integer k = 0; k < p; ++k)
                sum += left[i + k * m] * s[k] * right[k + j * ldright];
            worst = worse(worst, std::abs(sum) / norm);
        }
    return worst / (q * kEps);
}

} // namespace

Group decomposes(const Subject& subject)
{
    Group group{"zgesvd, dgesvd", "|A - U S VT| / |A| n eps", 50.0};
    const auto check = [&](const Matrix& matrix, const char* jobs, bool least) {
        group.add(decomposition_error<Complex>(subject.api, matrix, jobs, least));
        group.add(decomposition_error<Real>(subject.api, matrix, jobs, least));
    };
    for (const Integer k : {1, 2, 3, 4, 5, 7, 9, 16, 31, 33, 50, 65, 99, 130, 250, 251, 300})
        for (const auto& [m, n] : {std::pair{k, k}, {k, k / 3 + 1}, {k / 3 + 1, k}, {k, 1}, {1, k}}) {
            check({m, n}, "SS", false);
            if (k > 130)
                continue;
            for (const char* const jobs : {"AA", "OS", "SO", "NN"})
                check({m, n}, jobs, jobs[0] == jobs[1]);
        }
    for (const auto& [m, n] : {std::pair{8, 8}, {30, 6}, {6, 30}, {60, 60}}) {
        for (const char* const jobs : {"AS", "AO", "AN", "SA", "SN", "OA", "ON", "NA", "NS", "NO"})
            check({m, n}, jobs, true);
        for (const Real size : {1e-305, 1e305, 0.0})
            check({.m = m, .n = n, .size = size}, "SS", false);
        for (const Integer repeated : {1, 2, 30})
            for (const Real grading : {0.0, 10.0, 300.0})
                check({m, n, repeated, grading}, "AA", false);
    }
    return group;
}

Group solves_systems(const Subject& subject)
{
    Group group{"zgesv", "|A X - B| / |A| |X| n eps", 50.0};
    CallArrays arrays;
    for (Integer n = 1; n <= 300; n += n < 70 ? 1 : 23)
        for (const Integer sides : {0, 1, 5, 20}) {
            Random random(size_of(n));
            const auto a = random.complexes(size_of(n * n)), b = random.complexes(size_of(n * sides));
            arrays.begin();
            Complex *const lu = arrays.take(a), *const x = arrays.take(b);
            Integer info = 77;
            subject.api.zgesv(&n, &sides, lu, &n, arrays.take<Integer>(size_of(n)), x, &n, &info);
            arrays.end(); // throws if anything was written beside an array
            const bool factored = n == 1 || !std::equal(a.begin(), a.end(), lu); // without sides too
            Real worst = info == 0 && factored ? 0.0 : INFINITY, largest = 1.0;
            for (Integer j = 0; j < sides; ++j)
                for (Integer i = 0; i < n; ++i) {
                    Complex sum = -b[size_of(i + j * n)];
                    for (Integer k = 0; k < n; ++k)
                        sum += a[size_of(i + k * n)] * x[k + j * n];
                    worst = worse(worst, std::abs(sum));
                    largest = std::max(largest, std::abs(x[i + j * n]));
                }
            group.add(worst / (largest * n * kEps));
        }
    return group;
}

namespace {

/// A pencil of tridiagonal matrices, whose eigenvalues are `value(cos(k pi / (n + 1)))`, k = 1..n, and which of them
/// are asked for.
struct Pencil
{
    Tridiagonal a, b;
    Integer mode;
    const char* which;
    Complex sigma;
    Complex (*value)(Real c);

    /// What an eigenvalue is chosen by, the largest first. At a complex shift only the real or the imaginary part of
    /// the operator is applied.
    Real key(Complex z) const
    {
        const Complex near = 1.0 / (z - sigma), far = 1.0 / (z - std::conj(sigma));
        const Complex applied = mode < 3 ? z : mode == 3 ? near + far : near - far;
        const Real part = which[1] == 'M'   ? std::abs(applied)
                          : which[1] == 'R' ? applied.real()
                                            : std::fabs(applied.imag());
        return which[0] == 'L' ? part : -part;
    }
};

/// (A - sigma B)^-1 x, as a host forms it: with the zgesv slot.
std::vector<Complex> solve(FDTDCalcAPI& api, const Tridiagonal& a, const Tridiagonal& b, Complex sigma,
                           std::vector<Complex> x)
{
    const auto n = static_cast<Integer>(x.size());
    const Integer one = 1;
    std::vector<Complex> shifted;
    for (Integer j = 0; j < n; ++j)
        for (Integer i = 0; i < n; ++i)
            shifted.push_back(a(i, j) - sigma * b(i, j));
    std::vector<Integer> pivots(x.size());
    Integer info = 77;
    api.zgesv(&n, &one, shifted.data(), &n, pivots.data(), x.data(), &n, &info);
    return info == 0 ? x : std::vector<Complex>(x.size(), NAN);
}

/// The worst error of the eigenvalues that were asked for, and of |A x - lambda B x| of all that were found.
Real eigenvalue_error(FDTDCalcAPI& api, const Pencil& pencil)
{
    const auto& [a, b, mode, which, sigma, value] = pencil;
    Arnoldi problem;
    const Integer n = problem.n;
    problem.which = which;
    problem.mode = mode;
    problem.bmat = mode > 1 ? 'G' : 'I';
    problem.sigma = sigma;
    problem.ncv = 40;
    problem.restarts = 3000;
    problem.b = [&](const Real* x, Real* y) { pencil.b.multiply(n, x, y); };
    problem.op = [&](const Real* x, Real* y) {
        if (pencil.mode < 3)
            pencil.a.multiply(n, x, y);
        else
            std::copy_n(x, n, y);
        if (pencil.mode == 1)
            return;
        const std::vector<Complex> right(y, y + n);
        const auto image = pencil.mode == 2 ? solve(api, pencil.b, pencil.b, 0.0, right)
                                            : solve(api, pencil.a, pencil.b, pencil.sigma, right);
        std::transform(image.begin(), image.end(), y,
                       [&](Complex z) { return pencil.mode == 4 ? z.imag() : z.real(); });
    };
    problem.solve(api);
    if (problem.post_info != 0 || problem.found() < size_of(problem.nev))
        return INFINITY;

    std::vector<Complex> found, spectrum;
    Real worst = 0.0;
    for (std::size_t k = 0; k < problem.found(); ++k) {
        const std::vector<Complex> x = problem.vector(k);
        std::vector<Complex> ax(x), bx(x);
        a.multiply(n, x.data(), ax.data());
        b.multiply(n, x.data(), bx.data());
        Complex above = 0.0, below = 0.0;
        for (std::size_t i = 0; i < x.size(); ++i) {
            above += std::conj(x[i]) * ax[i];
            below += std::conj(x[i]) * bx[i];
        }
        found.push_back(sigma.imag() != 0.0 ? above / below : problem.value(k)); // as the interface tells
        for (std::size_t i = 0; i < x.size(); ++i)
            worst = worse(worst, std::abs(ax[i] - found.back() * bx[i]));
    }
    for (int k = 1; k <= n; ++k)
        spectrum.push_back(value(std::cos(k * std::numbers::pi / (n + 1))));
    std::sort(spectrum.begin(), spectrum.end(), [&](Complex x, Complex y) { return pencil.key(x) > pencil.key(y); });
    spectrum.resize(size_of(problem.nev));
    return worse(worst, worst_pole_error(spectrum, found));
}

} // namespace

Group finds_eigenvalues(const Subject& subject)
{
    Group group{"dnaupd, dneupd", "eigenvalue and vector error", 1e-10};
    const Tridiagonal one{0.0, 1.0, 0.0}, second{-1.0, 2.0, -1.0}, mass{1.0, 4.0, 1.0}, turned{-1.02, 1.0, 0.98};
    const auto along_reals = [](Real c) { return Complex(-1.0 + 2.0 * std::sqrt(0.9975) * c); };
    const auto upright = [](Real c) { return Complex(1.0, 2.0 * std::sqrt(0.9996) * c); };
    const auto symmetric = [](Real c) { return Complex((2.0 - 2.0 * c) / (4.0 + 2.0 * c)); };
    const auto skew = [](Real c) { return Complex(0.5, 2.5 * c / std::sqrt(4.0 - c * c)); };
    const Pencil pencils[] = {{{-1.05, -1.0, -0.95}, one, 1, "LM", 0.0, along_reals},
                              {{-1.05, -1.0, -0.95}, one, 1, "LR", 0.0, along_reals},
                              {{-1.05, -1.0, -0.95}, one, 1, "SR", 0.0, along_reals},
                              {turned, one, 1, "LI", 0.0, upright},
                              {turned, one, 1, "SI", 0.0, upright},
                              {second, mass, 2, "LM", 0.0, symmetric},
                              {second, mass, 2, "SM", 0.0, symmetric},
                              {turned, one, 3, "SI", 0.0, upright},
                              {second, mass, 3, "LM", -0.01, symmetric},
                              {{-2.0, 2.0, 3.0}, mass, 3, "LM", {0.4, 0.6}, skew},
                              {second, mass, 4, "LM", {0.3, 0.2}, symmetric}};
    for (const Pencil& pencil : pencils)
        group.add(eigenvalue_error(subject.api, pencil));
    return group;
}

namespace {

/// Rosenbrock's valley. J. J. More, B. S. Garbow, K. E. Hillstrom, ACM TOMS 7 (1981) 17, problem 1.
void rosenbrock(const Integer*, const Real* x, Real* fvec, Real* fjac, const Integer* ldfjac, Integer* iflag)
{
    if (*iflag == 1) {
        fvec[0] = 1.0 - x[0];
        fvec[1] = 10.0 * (x[1] - x[0] * x[0]);
        return;
    }
    Real* const second = fjac + *ldfjac;
    fjac[0] = -1.0;
    fjac[1] = -20.0 * x[0];
    second[0] = 0.0;
    second[1] = 10.0;
}

/// Powell's singular function, problem 13: the Jacobian at its zero has rank 2.
void powell_singular(const Integer* n, const Real* x, Real* fvec, Real* fjac, const Integer* ldfjac, Integer* iflag)
{
    const Real a = x[1] - 2.0 * x[2], b = x[0] - x[3], root5 = std::sqrt(5.0), root10 = std::sqrt(10.0);
    if (*iflag == 1) {
        const Real f[] = {x[0] + 10.0 * x[1], root5 * (x[2] - x[3]), a * a, root10 * b * b};
        std::copy_n(f, 4, fvec);
        return;
    }
    const Real rows[4][4] = {{1.0, 10.0, 0.0, 0.0},
                             {0.0, 0.0, root5, -root5},
                             {0.0, 2.0 * a, -4.0 * a, 0.0},
                             {2.0 * root10 * b, 0.0, 0.0, -2.0 * root10 * b}};
    for (Integer j = 0; j < *n; ++j)
        for (Integer i = 0; i < *n; ++i)
            fjac[i + j * *ldfjac] = rows[i][j];
}

} // namespace

Group solves_nonlinear_systems(const Subject& subject)
{
    Group group{"hybrj1", "largest component of F(x)", 1e-8};
    const struct
    {
        FDTDCalcAPI::HybridFunction system;
        std::vector<Real> start;
        Integer info = 1;
    } cases[] = {{broyden, {-1.0}},
                 {broyden, std::vector<Real>(2, -1.0)},
                 {broyden, std::vector<Real>(10, -1.0)},
                 {broyden, std::vector<Real>(60, -1.0)},
                 {rosenbrock, {-1.2, 1.0}},
                 {powell_singular, {3.0, -1.0, 0.0, 1.0}, 4}}; // no good progress towards a singular zero
    CallArrays arrays;
    for (const auto& [system, start, expected] : cases) {
        const auto n = static_cast<Integer>(start.size());
        const Integer ldfjac = n + 2, lwa = n * (n + 13) / 2;
        const Real tol = 1e-10;
        arrays.begin();
        std::vector<Real> at_x(start);
        Real *const x = arrays.take(start), *const f = arrays.take<Real>(start.size());
        Integer info = 77, task = 1;
        subject.api.hybrj1(system, &n, x, f, arrays.take<Real>(size_of(ldfjac * n)), &ldfjac, &tol, &info,
                           arrays.take<Real>(size_of(lwa)), &lwa);
        arrays.end(); // throws if anything was written beside an array
        system(&n, x, at_x.data(), nullptr, &ldfjac, &task);
        Real worst = info == expected && std::equal(f, f + n, at_x.begin()) ? 0.0 : INFINITY;
        for (Integer k = 0; k < n; ++k)
            worst = worse(worst, std::fabs(f[k]));
        group.add(worst);
    }
    return group;
}

Group knows_the_machine(const Subject& subject)
{
    Group group{"dpmpar", "constants that differ", 0.0};
    const Real table[] = {2.22044604926e-16, 2.22507385852e-308, 1.79769313485e+308};
    for (Integer i = 1; i <= 3; ++i)
        group.count(subject.api.dpmpar(&i) == table[i - 1]);
    return group;
}

} // namespace tessel::testing
