// Checks a build of the library through its two exports alone: conformance PATH
//
// Prints a line for each group: the number of cases, the worst figure, the bound that it must not exceed. A figure is
// an error, scaled as its name says, or a number of breaches. The exit status is 0 if all groups pass.
#include "tests/support/arnoldi.h"
#include "tests/support/hostile.h"
#include "tests/support/lapack.h"
#include "tests/support/library.h"
#include "tests/support/random.h"
#include "tests/support/room.h"
#include "tests/support/signals.h"

#include <tessel/leastsq_prony_svd.h>

#include <cfenv>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace tessel;
using namespace tessel::testing;

constexpr Real kEps = std::numeric_limits<Real>::epsilon();

/// One line of the table.
struct Group
{
    const char* name;
    const char* figure;
    Real bound;
    int cases = 0;
    Real worst = 0.0;

    void add(Real value)
    {
        ++cases;
        if (!(value <= worst)) // a NaN stays the worst
            worst = std::isnan(worst) ? worst : value;
    }
    bool passes() const { return cases > 0 && worst <= bound; }
};

/// What the checks reach: the fit through the export, all else through the object.
struct Subject
{
    decltype(&LEASTSQ_PRONY_SVD) fit;
    FDTDCalcAPI& api;
};

std::size_t size_of(Integer count)
{
    return static_cast<std::size_t>(count);
}

// ---- the Prony fit

struct Fit
{
    Integer flag = 77;
    char message[80];
    std::vector<Complex> poles, residues;
    Real measures[5] = {};
    bool operator==(const Fit& other) const
    {
        const auto same = [](const auto& a, const auto& b) {
            return std::memcmp(a.data(), b.data(), a.size() * sizeof a[0]) == 0;
        };
        return flag == other.flag && same(poles, other.poles) && same(residues, other.residues) &&
               std::memcmp(measures, other.measures, sizeof measures) == 0;
    }
};

Fit run_fit(const Subject& subject, const std::vector<Complex>& y, Real dt, Integer m, bool by_slot = false)
{
    Fit fit;
    const auto n = static_cast<Integer>(y.size());
    fit.poles.resize(size_of(m));
    fit.residues.resize(size_of(m));
    Real* const e = fit.measures;
    if (by_slot)
        subject.api.leastsqPronySvd(&n, &n, y.data(), &dt, &m, &m, fit.residues.data(), fit.poles.data(), &e[0], &e[1],
                                    &e[2], &e[3], &e[4], &fit.flag, fit.message, 80);
    else
        subject.fit(&n, &n, y.data(), &dt, &m, &m, fit.residues.data(), fit.poles.data(), &e[0], &e[1], &e[2], &e[3],
                    &e[4], &fit.flag, fit.message, 80);
    return fit;
}

/// A few exponentials that lie well apart, with residues of size 1.
Signal separate_exponentials(Random& random)
{
    const int terms = 1 + random.below(5);
    std::vector<Complex> poles, residues;
    for (int j = 0; j < terms; ++j) {
        const Real decay = random.uniform(0.0, 0.05), phase = random.uniform(-3.0, 3.0);
        poles.emplace_back(-decay, -2.5 + 5.0 * (j + random.uniform(0.2, 0.8)) / terms);
        residues.push_back(std::polar(1.0, phase));
    }
    return make_signal(poles, residues, 1.0, 12 * terms);
}

Group recovers_known_signals(const Subject& subject)
{
    Group group{"fit: published signals", "pole error / bound", 1.0};
    const struct
    {
        Signal signal;
        Integer m;
        Real bound;
    } cases[] = {{lanczos1(), 3, 1e-7},       {lanczos2(), 3, 5e-3},       {fifteen_modes(), 15, 1e-6},
                 {fifteen_modes(), 30, 1e-9}, {four_cosines(), 8, 1e-8},   {four_cosines(), 20, 1e-11},
                 {yee_cavity(0.9), 20, 1e-9}, {yee_cavity(0.9), 24, 1e-11}};
    for (const auto& [signal, m, bound] : cases)
        group.add(worst_pole_error(signal.poles, run_fit(subject, signal.y, signal.dt, m).poles) / bound);
    return group;
}

Group recovers_exponentials(const Subject& subject)
{
    Group group{"fit: separate exponentials", "pole error", 1e-9};
    for (std::uint64_t seed = 0; seed < 300; ++seed) {
        Random random(seed);
        const Signal signal = separate_exponentials(random);
        const auto m = static_cast<Integer>(signal.poles.size());
        group.add(worst_pole_error(signal.poles, run_fit(subject, signal.y, signal.dt, m).poles));
    }
    return group;
}

/// What a change of the samples does to the poles, on signals with a little noise.
Group keeps_relations(const Subject& subject)
{
    Group group{"fit: scaling, shift, conjugation", "pole error", 1e-7};
    for (std::uint64_t seed = 0; seed < 100; ++seed) {
        Random random(seed);
        const Signal signal = separate_exponentials(random);
        const auto m = static_cast<Integer>(signal.poles.size());
        std::vector<Complex> y = signal.y, scaled, turned, conjugate;
        const Complex factor = std::polar(3.7, 1.0);
        const Real theta = 0.1;
        for (std::size_t k = 0; k < y.size(); ++k) {
            y[k] += 1e-4 * random.complex();
            scaled.push_back(factor * y[k]);
            turned.push_back(y[k] * std::polar(1.0, theta * static_cast<Real>(k)));
            conjugate.push_back(std::conj(y[k]));
        }
        const auto poles = run_fit(subject, y, 1.0, m).poles;
        const auto expect = [&](const std::vector<Complex>& samples, Real dt, auto change) {
            std::vector<Complex> expected;
            for (const Complex& pole : poles)
                expected.push_back(change(pole));
            group.add(worst_pole_error(expected, run_fit(subject, samples, dt, m).poles));
        };
        expect(scaled, 1.0, [](const Complex& pole) { return pole; });
        expect(y, 0.2, [](const Complex& pole) { return 5.0 * pole; });
        expect(turned, 1.0, [&](const Complex& pole) { return pole + Complex(0.0, theta); });
        expect(conjugate, 1.0, [](const Complex& pole) { return std::conj(pole); });
    }
    return group;
}

/// V^H (V c - y) = 0 at the poles that are returned, and the measures by their definitions.
Group solves_the_residues(const Subject& subject)
{
    Group group{"fit: residues and measures", "scaled error", 1e-9};
    for (std::uint64_t seed = 0; seed < 100; ++seed) {
        Random random(seed);
        Signal signal = separate_exponentials(random);
        const auto m = static_cast<Integer>(signal.poles.size());
        for (Complex& sample : signal.y)
            sample += 1e-2 * random.complex();
        const Fit fit = run_fit(subject, signal.y, 1.0, m);
        const auto z = [&](std::size_t j, std::size_t k) { return std::exp(fit.poles[j] * static_cast<Real>(k)); };
        std::vector<Complex> error;
        Real sse = 0.0, square = 0.0, sum = 0.0, peak = 0.0, top = 0.0;
        for (std::size_t k = 0; k < signal.y.size(); ++k) {
            error.push_back(-signal.y[k]);
            for (std::size_t j = 0; j < size_of(m); ++j)
                error[k] += fit.residues[j] * z(j, k);
            sse += std::norm(error[k]);
            peak = std::max(peak, std::abs(error[k]));
            square += std::norm(signal.y[k]);
            sum += std::abs(signal.y[k]);
            top = std::max(top, std::abs(signal.y[k]));
        }
        for (std::size_t j = 0; j < size_of(m); ++j) {
            Complex product = 0.0;
            Real column = 0.0;
            for (std::size_t k = 0; k < error.size(); ++k) {
                product += std::conj(z(j, k)) * error[k];
                column += std::norm(z(j, k));
            }
            group.add(std::abs(product) / std::sqrt(column * square));
        }
        const auto n = static_cast<Real>(signal.y.size());
        const Real expected[] = {std::sqrt(sse / square), std::sqrt(sse / n) / top, peak / top,
                                 std::sqrt(sse * n) / sum, n * peak / sum};
        for (int i = 0; i < 5; ++i)
            group.add(std::fabs(fit.measures[i] / expected[i] - 1.0));
    }
    return group;
}

/// Whether a message argument holds `text`, cut or padded to its length.
bool holds(const char* message, std::size_t length, std::string_view text)
{
    for (std::size_t i = 0; i < length; ++i)
        if (message[i] != (i < text.size() ? text[i] : ' '))
            return false;
    return true;
}

/// Any values and any arguments, arrays between guards: the status tells what happened, nothing else is touched.
Group keeps_its_contract(const Subject& subject)
{
    Group group{"fit: any values, any arguments", "breaches", 0.0};
    constexpr std::string_view kOutOfBounds = "Sub LEASTSQ_PRONY_SVD: input parameters out of bounds !";
    Room room;
    for (std::uint64_t seed = 0; seed < 3000; ++seed) {
        Random random(seed);
        room.begin();
        Integer n = 2 + random.below(40), m = 1 + random.below(n / 2), ndim = n + random.below(3),
                mmax = m + random.below(3);
        Real dt = random.below(2) == 0 ? 1.0 : std::fabs(hostile_value(random, Values::mixed));
        const std::vector<Complex> samples = hostile_complexes(random, size_of(ndim));
        const Complex* const y = room.take(samples);
        const std::size_t outputs = size_of(mmax);
        Complex *const residue = room.take<Complex>(outputs), *const pole = room.take<Complex>(outputs);
        Real* const e = room.take<Real>(5);
        Integer* const flag = room.take<Integer>(1);
        const Integer length = random.below(100) - 10;
        const std::size_t visible = size_of(std::max(length, 0));
        char* const message = room.take<char>(visible);
        switch (random.below(20)) { // now and then an argument out of bounds
        case 0:
            n = random.below(2);
            break;
        case 1:
            ndim = n - 1;
            break;
        case 2:
            m = -random.below(3);
            break;
        case 3:
            mmax = m - 1;
            break;
        case 4:
            m = mmax = n / 2 + 1;
            break;
        case 5:
            dt = random.below(2) == 0 ? 0.0 : std::nextafter(1e-102, 0.0);
            break;
        default:
            break;
        }
        const bool valid = !(n < 2 || n > ndim || dt < 1e-102 || m < 1 || m > mmax || 2 * m > n);
        subject.fit(&n, &ndim, y, &dt, &m, &mmax, residue, pole, &e[0], &e[1], &e[2], &e[3], &e[4], flag, message,
                    length);
        try {
            room.end();
            require(std::memcmp(y, samples.data(), samples.size() * sizeof(Complex)) == 0, "samples");
            require(*flag == 0 || *flag == -1, "flag");
            require(valid || *flag == -1, "accepted");
            require(*flag == -1 || holds(message, visible, ""), "message");
            require(valid || holds(message, visible, kOutOfBounds), "message");
            require(visible < 4 || *flag == 0 || holds(message, 4, "Sub "), "message");
            const std::size_t written = valid ? size_of(m) : 0;
            require(Room::untouched(pole, written, outputs) &&
                        Room::untouched(residue, *flag == 0 ? written : 0, outputs) &&
                        Room::untouched(e, *flag == 0 ? 5 : 0, 5),
                    "written");
            group.add(0.0);
        } catch (const Breach&) {
            group.add(group.worst + 1.0);
        }
    }
    return group;
}

Group repeats_itself(const Subject& subject)
{
    Group group{"fit: repeated, and through its slot", "calls that differ", 0.0};
    std::vector<Fit> first;
    const auto each = [](auto check) {
        for (std::uint64_t seed = 0; seed < 300; ++seed) {
            Random random(seed);
            const auto n = size_of(4 + random.below(60));
            check(seed, hostile_complexes(random, n), static_cast<Integer>(1 + random.below(static_cast<int>(n) / 2)));
        }
    };
    each([&](std::uint64_t, const auto& y, Integer m) { first.push_back(run_fit(subject, y, 1.0, m)); });
    each([&](std::uint64_t i, const auto& y, Integer m) {
        const bool same = run_fit(subject, y, 1.0, m) == first[i] && run_fit(subject, y, 1.0, m, true) == first[i];
        group.add(group.worst + (same ? 0.0 : 1.0));
    });
    return group;
}

// ---- the solvers behind the interface

Group decomposes(const Subject& subject)
{
    Group group{"zgesvd, dgesvd", "|A - U S VT| / |A| n eps", 50.0};
    const auto check = [&](auto zero, Integer m, Integer n, std::uint64_t seed) {
        using T = decltype(zero);
        Random random(seed);
        const Integer k = std::min(m, n), lda = m + 2, lwork = best_work<T>(subject.api, 'S', 'S', m, n);
        std::vector<T> a(size_of(lda * n)), u(size_of(m * k)), vt(size_of(k * n)), work(size_of(lwork));
        std::vector<Real> s(size_of(k)), rwork(size_of(5 * k));
        for (T& element : a)
            element = T(random.uniform(-1.0, 1.0));
        const std::vector<T> original = a;
        Integer info = 77;
        gesvd(subject.api, 'S', 'S', m, n, a.data(), lda, s.data(), u.data(), m, vt.data(), k, work.data(), lwork,
              rwork.data(), info);
        Real worst = info == 0 ? 0.0 : INFINITY;
        for (Integer j = 0; j < n; ++j)
            for (Integer i = 0; i < m; ++i) {
                T sum = -original[size_of(i + j * lda)];
                for (Integer l = 0; l < k; ++l)
                    sum += u[size_of(i + l * m)] * s[size_of(l)] * vt[size_of(l + j * k)];
                worst = std::max(worst, std::abs(sum));
            }
        group.add(worst / (s[0] * std::max(m, n) * kEps));
    };
    for (const auto& [m, n] : {std::pair{1, 1}, {5, 5}, {20, 7}, {7, 20}, {60, 60}, {130, 40}}) {
        check(Complex(), m, n, 1);
        check(Real(), m, n, 2);
    }
    return group;
}

Group solves_systems(const Subject& subject)
{
    Group group{"zgesv", "|A X - B| / |A| |X| n eps", 50.0};
    for (const Integer n : {1, 2, 10, 50, 150})
        for (const Integer sides : {0, 1, 5}) {
            Random random(static_cast<std::uint64_t>(n));
            const auto a = random.complexes(size_of(n * n)), b = random.complexes(size_of(n * sides));
            auto lu = a, x = b;
            std::vector<Integer> pivots(size_of(n));
            Integer info = 77;
            subject.api.zgesv(&n, &sides, lu.data(), &n, pivots.data(), x.data(), &n, &info);
            Real worst = info == 0 && (lu != a || n == 1) ? 0.0 : INFINITY; // factored, without sides too
            Real largest = 1.0;
            for (const Complex& value : x)
                largest = std::max(largest, std::abs(value));
            for (Integer j = 0; j < sides; ++j)
                for (Integer i = 0; i < n; ++i) {
                    Complex sum = -b[size_of(i + j * n)];
                    for (Integer k = 0; k < n; ++k)
                        sum += a[size_of(i + k * n)] * x[size_of(k + j * n)];
                    worst = std::max(worst, std::abs(sum));
                }
            group.add(worst / (largest * n * kEps));
        }
    return group;
}

Group finds_eigenvalues(const Subject& subject)
{
    Group group{"dnaupd, dneupd", "eigenvalue error", 1e-9};
    const Real pi = std::numbers::pi;
    for (const auto& [lower, upper] : {std::pair{-1.0, -1.0}, {-1.05, -0.95}, {-1.0, 1.0}, {-1.2, 1.1}}) {
        const Integer n = 100;
        Arnoldi problem(n);
        problem.ncv = 40;
        problem.restarts = 3000;
        problem.op = [t = SquareMatrix::tridiagonal(n, lower, 2.0, upper)](const Real* x, Real* y) {
            t.multiply(x, y);
        };
        problem.solve(subject.api);
        std::vector<Complex> spectrum;
        for (int k = 1; k <= n; ++k)
            spectrum.push_back(2.0 + 2.0 * std::sqrt(Complex(lower * upper)) * std::cos(k * pi / (n + 1)));
        std::sort(spectrum.begin(), spectrum.end(),
                  [](const Complex& a, const Complex& b) { return std::abs(a) > std::abs(b); });
        if (problem.post_info != 0 || problem.found() < 4)
            group.add(INFINITY);
        std::vector<Complex> found;
        for (std::size_t k = 0; k < problem.found(); ++k)
            found.push_back(problem.value(k));
        spectrum.resize(4);
        group.add(worst_pole_error(spectrum, found));
    }
    return group;
}

Group solves_nonlinear_systems(const Subject& subject)
{
    Group group{"hybrj1", "distance from the solution", 1e-7};
    Real x[2] = {-1.2, 1.0}, f[2], jacobian[4], work[15];
    const Integer n = 2, lwa = 15;
    const Real tol = std::sqrt(kEps);
    Integer info = 77;
    subject.api.hybrj1(
        [](const Integer*, const Real* at, Real* value, Real* slope, const Integer*, Integer* task) {
            if (*task == 1) {
                value[0] = 1.0 - at[0];
                value[1] = 10.0 * (at[1] - at[0] * at[0]);
            } else {
                slope[0] = -1.0;
                slope[1] = -20.0 * at[0];
                slope[2] = 0.0;
                slope[3] = 10.0;
            }
        },
        &n, x, f, jacobian, &n, &tol, &info, work, &lwa);
    group.add(info == 1 ? std::hypot(x[0] - 1.0, x[1] - 1.0) : INFINITY);
    return group;
}

Group knows_the_machine(const Subject& subject)
{
    Group group{"dpmpar", "constants that differ", 0.0};
    const Real table[] = {2.22044604926e-16, 2.22507385852e-308, 1.79769313485e+308};
    for (Integer i = 1; i <= 3; ++i)
        group.add(group.worst + (subject.api.dpmpar(&i) == table[i - 1] ? 0.0 : 1.0));
    return group;
}

Group leaves_rounding_alone(const Subject& subject)
{
    Group group{"rounding mode of the host", "modes not kept", 0.0};
    const Signal signal = four_cosines();
    for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO, FE_TONEAREST}) {
        std::fesetround(mode);
        run_fit(subject, signal.y, signal.dt, 8);
        decomposes(subject);
        group.add(group.worst + (std::fegetround() == mode ? 0.0 : 1.0));
    }
    return group;
}

bool report(const Group& group)
{
    std::printf("%-36s %6d  %-26s %10.3g %10.3g  %s\n", group.name, group.cases, group.figure, group.worst, group.bound,
                group.passes() ? "pass" : "FAIL");
    return group.passes();
}

/// What is written to the standard output and the error stream goes to a file while this lives.
class CaughtOutput
{
public:
    CaughtOutput()
    {
        std::fflush(stdout);
        for (int i = 0; i < 2; ++i) {
            kept_[i] = dup(i + 1);
            dup2(fileno(file_), i + 1);
        }
    }
    ~CaughtOutput()
    {
        for (int i = 0; i < 2; ++i) {
            dup2(kept_[i], i + 1);
            close(kept_[i]);
        }
        std::fclose(file_);
    }
    CaughtOutput(const CaughtOutput&) = delete;
    CaughtOutput& operator=(const CaughtOutput&) = delete;

    Real bytes() const
    {
        struct stat status = {};
        std::fflush(stdout);
        fstat(fileno(file_), &status);
        return static_cast<Real>(status.st_size);
    }

private:
    std::FILE* file_ = std::tmpfile();
    int kept_[2];
};

bool run(const char* path)
{
    static constexpr Group (*checks[])(const Subject&) = {
        recovers_known_signals, recovers_exponentials,    keeps_relations,   solves_the_residues,
        keeps_its_contract,     repeats_itself,           decomposes,        solves_systems,
        finds_eigenvalues,      solves_nonlinear_systems, knows_the_machine, leaves_rounding_alone};
    std::vector<Group> groups;
    Group silence{"standard output and error stream", "bytes written", 0.0};
    {
        const CaughtOutput output;
        const Library library(path);
        const std::unique_ptr<FDTDCalcAPI> api = library.create();
        decltype(&LEASTSQ_PRONY_SVD) const prototype = nullptr;
        const Subject subject{library.symbol("LEASTSQ_PRONY_SVD", prototype), *api};
        for (const auto check : checks)
            groups.push_back(check(subject));
        silence.add(output.bytes());
    }
    groups.push_back(silence);
    groups.push_back({"unloading", "libraries left", 0.0, 1, Library::is_loaded(path) ? 1.0 : 0.0});

    std::printf("%-36s %6s  %-26s %10s %10s\n", "group", "cases", "figure", "worst", "bound");
    return std::count_if(groups.begin(), groups.end(), report) == static_cast<std::ptrdiff_t>(groups.size());
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: conformance PATH/libtessel.so\n");
        return 2;
    }
    try {
        return run(argv[1]) ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 2;
    }
}
