// The solvers behind the interface, on problems whose answers are known. Arrays of LAPACK end at an inaccessible page:
// reading one element too far ends the program.
#include "tests/conformance/group.h"
#include "tests/support/arnoldi.h"
#include "tests/support/signals.h"
#include "tests/support/slots.h"

#include <numbers>
#include <utility>

namespace tessel::testing {
namespace {

/// One decomposition, judged by |A - U S VT| (if both are asked for) and by the difference of |S| and |A|, over
/// |A| max(m, n) eps. `jobs` are JOBU and JOBVT.
template <class T>
Real decomposition_error(FDTDCalcAPI& api, Integer m, Integer n, const char* jobs, bool least, Real size = 1.0)
{
    const Integer p = std::min(m, n), columns = jobs[0] == 'A' ? m : p, ldvt = jobs[1] == 'A' ? n : p;
    const Integer lwork = least ? least_work(T(), m, n) : best_work<T>(api, jobs[0], jobs[1], m, n);
    const Guarded<T> a(size_of(m * n)), u(size_of(m * columns)), vt(size_of(ldvt * n)), work(size_of(lwork));
    const Guarded<Real> s(size_of(p)), rwork(size_of(5 * p));
    T* const factors = a.last(size_of(m * n));
    Real* const value = s.last(size_of(p));
    Random random(size_of(m + n));
    std::vector<T> original;
    Real norm = 0.0;
    for (Integer i = 0; i < m * n; ++i) {
        const Complex element = random.complex();
        if constexpr (std::is_same_v<T, Real>)
            original.push_back(element.real());
        else
            original.push_back(element);
        factors[i] = original.back() * size;
        norm += std::norm(original.back());
    }
    norm = std::sqrt(norm);
    Integer info = 77;
    gesvd(api, jobs[0], jobs[1], m, n, factors, m, value, u.last(size_of(m * columns)), m, vt.last(size_of(ldvt * n)),
          ldvt, work.last(size_of(lwork)), lwork, rwork.last(size_of(5 * p)), info);
    if (info != 0 || !std::is_sorted(value, value + p, std::greater<>()) || size == 0.0)
        return info == 0 && value[0] == 0.0 ? 0.0 : INFINITY;

    Real length = 0.0, worst = 0.0;
    for (Integer k = 0; k < p; ++k)
        length = std::hypot(length, value[k] / size);
    const T* const left = jobs[0] == 'O' ? factors : u.last(size_of(m * columns));
    const T* const right = jobs[1] == 'O' ? factors : vt.last(size_of(ldvt * n));
    const Integer ldright = jobs[1] == 'O' ? m : ldvt;
    for (Integer j = 0; j < n && jobs[0] != 'N' && jobs[1] != 'N'; ++j)
        for (Integer i = 0; i < m; ++i) {
            T sum = -original[size_of(i + j * m)];
            for (Integer k = 0; k < p; ++k)
                sum += left[i + k * m] * (value[k] / size) * right[k + j * ldright];
            worst = std::max(worst, std::abs(sum));
        }
    return std::max(worst, std::fabs(length - norm)) / (norm * std::max(m, n) * kEps);
}

} // namespace

Group decomposes(const Subject& subject)
{
    Group group{"zgesvd, dgesvd", "|A - U S VT| / |A| n eps", 50.0};
    const auto check = [&](Integer m, Integer n, const char* jobs, bool least, Real size = 1.0) {
        group.add(decomposition_error<Complex>(subject.api, m, n, jobs, least, size));
        group.add(decomposition_error<Real>(subject.api, m, n, jobs, least, size));
    };
    for (const Integer k : {1, 2, 3, 4, 5, 7, 9, 16, 31, 33, 50, 65, 99, 130, 250, 251, 300})
        for (const auto& [m, n] : {std::pair{k, k}, {k, k / 3 + 1}, {k / 3 + 1, k}, {k, 1}, {1, k}}) {
            check(m, n, "SS", false);
            if (k > 130)
                continue;
            for (const char* const jobs : {"AA", "OS", "SO", "NN"})
                check(m, n, jobs, jobs[0] == jobs[1]);
        }
    for (const auto& [m, n] : {std::pair{8, 8}, {30, 6}, {6, 30}}) {
        for (const char* const jobs : {"AS", "AO", "AN", "SA", "SN", "OA", "ON", "NA", "NS", "NO"})
            check(m, n, jobs, true);
        for (const Real size : {1e-305, 1e305, 0.0})
            check(m, n, "SS", false, size);
    }
    return group;
}

Group solves_systems(const Subject& subject)
{
    Group group{"zgesv", "|A X - B| / |A| |X| n eps", 50.0};
    for (Integer n = 1; n <= 300; n += n < 70 ? 1 : 23)
        for (const Integer sides : {0, 1, 5, 20}) {
            Random random(size_of(n));
            const auto a = random.complexes(size_of(n * n)), b = random.complexes(size_of(n * sides));
            const Guarded<Complex> matrix(a.size()), right(b.size());
            const Guarded<Integer> pivots(size_of(n));
            Complex* const lu = std::copy(a.begin(), a.end(), matrix.last(a.size())) - a.size();
            Complex* const x = std::copy(b.begin(), b.end(), right.last(b.size())) - b.size();
            Integer info = 77;
            subject.api.zgesv(&n, &sides, lu, &n, pivots.last(size_of(n)), x, &n, &info);
            const bool factored = n == 1 || !std::equal(a.begin(), a.end(), lu); // without sides too
            Real worst = info == 0 && factored ? 0.0 : INFINITY, largest = 1.0;
            for (Integer j = 0; j < sides; ++j)
                for (Integer i = 0; i < n; ++i) {
                    Complex sum = -b[size_of(i + j * n)];
                    for (Integer k = 0; k < n; ++k)
                        sum += a[size_of(i + k * n)] * x[k + j * n];
                    worst = std::max(worst, std::abs(sum));
                    largest = std::max(largest, std::abs(x[i + j * n]));
                }
            group.add(worst / (largest * n * kEps));
        }
    return group;
}

namespace {

/// A pencil of tridiagonal matrices: its eigenvalues are `value(cos(k pi / (n + 1)))`, k = 1..n.
struct Pencil
{
    SquareMatrix a, b;
    const char* which;
    Integer mode;
    Complex sigma;
    Complex (*value)(Real c);

    /// Size by which an eigenvalue is asked for: that of the operator's, of which only the real or the imaginary part
    /// is applied, at a shift.
    Real size(Complex z) const
    {
        const Complex near = 1.0 / (z - sigma), far = 1.0 / (z - std::conj(sigma));
        const Complex applied = mode == 1 ? z : mode == 3 ? near + far : near - far;
        return which[1] == 'I' ? std::fabs(applied.imag()) : std::abs(applied);
    }
};

/// (A - sigma B)^-1, real or imaginary part, as a host forms it: with the zgesv slot.
SquareMatrix inverse(FDTDCalcAPI& api, const SquareMatrix& a, const SquareMatrix& b, Complex sigma, bool imaginary)
{
    const Integer n = a.n;
    std::vector<Complex> shifted(a.a.size()), x(shifted.size());
    for (std::size_t i = 0; i < shifted.size(); ++i)
        shifted[i] = a.a[i] - sigma * b.a[i];
    for (Integer i = 0; i < n; ++i)
        x[size_of(i + i * n)] = 1.0;
    std::vector<Integer> pivots(size_of(n));
    Integer info = 77;
    api.zgesv(&n, &n, shifted.data(), &n, pivots.data(), x.data(), &n, &info);
    SquareMatrix part(n);
    for (std::size_t i = 0; i < x.size(); ++i)
        part.a[i] = info != 0 ? NAN : imaginary ? x[i].imag() : x[i].real();
    return part;
}

/// The worst error of the eigenvalues that were asked for, and of |A x - lambda B x| of all that were found.
Real eigenvalue_error(FDTDCalcAPI& api, const Pencil& pencil)
{
    const SquareMatrix &a = pencil.a, &b = pencil.b;
    const Integer n = a.n;
    Arnoldi problem(n);
    problem.which = pencil.which;
    problem.mode = pencil.mode;
    problem.bmat = pencil.mode > 1 ? 'G' : 'I';
    problem.sigma = pencil.sigma;
    problem.ncv = 40;
    problem.restarts = 3000;
    problem.b = [&b](const Real* x, Real* y) { b.multiply(x, y); };
    if (pencil.mode == 1)
        problem.op = [&a](const Real* x, Real* y) { a.multiply(x, y); };
    else
        problem.op = [solve = inverse(api, a, b, pencil.sigma, pencil.mode == 4)](const Real* x, Real* y) {
            solve.multiply(x, y);
        };
    problem.solve(api);
    if (problem.post_info != 0 || problem.found() < size_of(problem.nev))
        return INFINITY;

    std::vector<Complex> found, spectrum;
    Real worst = 0.0;
    for (std::size_t k = 0; k < problem.found(); ++k) {
        const std::vector<Complex> x = problem.vector(k);
        std::vector<Complex> ax(x.size()), bx(x.size());
        a.multiply(x.data(), ax.data());
        b.multiply(x.data(), bx.data());
        Complex above = 0.0, below = 0.0;
        for (std::size_t i = 0; i < x.size(); ++i) {
            above += std::conj(x[i]) * ax[i];
            below += std::conj(x[i]) * bx[i];
        }
        found.push_back(pencil.sigma.imag() != 0.0 ? above / below : problem.value(k)); // as the interface tells
        for (std::size_t i = 0; i < x.size(); ++i)
            worst = std::max(worst, std::abs(ax[i] - found.back() * bx[i]));
    }
    for (int k = 1; k <= n; ++k)
        spectrum.push_back(pencil.value(std::cos(k * std::numbers::pi / (n + 1))));
    std::sort(spectrum.begin(), spectrum.end(), [&](Complex x, Complex y) { return pencil.size(x) > pencil.size(y); });
    spectrum.resize(size_of(problem.nev));
    return std::max(worst, worst_pole_error(spectrum, found));
}

} // namespace

Group finds_eigenvalues(const Subject& subject)
{
    Group group{"dnaupd, dneupd", "eigenvalue and vector error", 1e-10};
    const auto t = [](Real lower, Real diagonal, Real upper) {
        return SquareMatrix::tridiagonal(100, lower, diagonal, upper);
    };
    const SquareMatrix one = t(0.0, 1.0, 0.0), second = t(-1.0, 2.0, -1.0), mass = t(1.0, 4.0, 1.0);
    const auto symmetric = [](Real c) { return Complex((2.0 - 2.0 * c) / (4.0 + 2.0 * c)); };
    const Pencil pencils[] = {
        {t(-1.05, 2.0, -0.95), one, "LM", 1, 0.0, [](Real c) { return Complex(2.0 + 2.0 * std::sqrt(0.9975) * c); }},
        {t(-51.0, 2.0, 49.0), one, "LI", 1, 0.0, [](Real c) { return Complex(2.0, 2.0 * std::sqrt(2499.0) * c); }},
        {second, mass, "LM", 3, -0.01, symmetric},
        {second, mass, "LM", 4, Complex(0.3, 0.2), symmetric},
        {t(-2.0, 2.0, 3.0), mass, "LM", 3, Complex(0.4, 0.6),
         [](Real c) { return Complex(0.5, 2.5 * c / std::sqrt(4.0 - c * c)); }},
    };
    for (const Pencil& pencil : pencils)
        group.add(eigenvalue_error(subject.api, pencil));
    return group;
}

Group solves_nonlinear_systems(const Subject& subject)
{
    Group group{"hybrj1", "largest component of F(x)", 1e-8};
    for (const Integer n : {1, 2, 10, 60}) {
        const Integer ldfjac = n + 2, lwa = n * (n + 13) / 2;
        const Real tol = 1e-10;
        std::vector<Real> x(size_of(n), -1.0), f(x), at_x(x), jacobian(size_of(ldfjac * n));
        const Guarded<Real> work(size_of(lwa));
        Integer info = 77, task = 1;
        subject.api.hybrj1(broyden, &n, x.data(), f.data(), jacobian.data(), &ldfjac, &tol, &info,
                           work.last(size_of(lwa)), &lwa);
        broyden(&n, x.data(), at_x.data(), nullptr, &ldfjac, &task);
        const auto worst =
            std::max_element(f.begin(), f.end(), [](Real a, Real b) { return std::fabs(a) < std::fabs(b); });
        group.add(info == 1 && f == at_x ? std::fabs(*worst) : INFINITY);
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
