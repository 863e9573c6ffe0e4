// No eigen-solve writes a byte, also beside the packaged shared ARPACK with every one of its trace levels raised.
#include "common/fortran.h"
#include "tests/support/arnoldi.h"
#include "tests/support/child.h"
#include "tests/support/library.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <limits>

namespace tessel::testing {
namespace {

void raise_levels_of_the_shared_arpack()
{
    fortran::debug_[0] = 6; // output unit
    fortran::debug_[1] = -3;
    std::fill(fortran::debug_ + 2, fortran::debug_ + 24, 9);
}

/// A solve by the packaged ARPACK that this program links: the operator is diag(1, 2, ...).
int solve_with_the_shared_arpack()
{
    const Integer n = 50, nev = 3, ncv = 20, lworkl = 3 * 20 * 20 + 6 * 20;
    Integer ido = 0, iparam[11] = {1, 0, 300, 1, 0, 0, 1}, ipntr[14] = {}, info = 0;
    std::vector<Real> resid(50), v(1000), workd(150), workl(lworkl);
    for (Real tol = 1e-8; ido != 99;) {
        fortran::dnaupd_(&ido, "I", &n, "LM", &nev, &tol, resid.data(), &ncv, v.data(), &n, iparam, ipntr, workd.data(),
                         workl.data(), &lworkl, &info, 1, 2);
        const Real* const x = workd.data() + ipntr[0] - 1;
        Real* const y = workd.data() + ipntr[1] - 1;
        for (Integer i = 0; i < n && ido != 99; ++i)
            y[i] = (i + 1) * x[i];
    }
    return info;
}

TEST(Silence, TheSharedArpackOfTheHostDoesPrint)
{
    const Outcome control = run_in_child([] {
        raise_levels_of_the_shared_arpack();
        return solve_with_the_shared_arpack();
    });
    EXPECT_TRUE(control.well);
    EXPECT_NE(control.output.find("_naupd: Number of update iterations taken"), std::string::npos);
}

/// An operator whose products hold a NaN from the given one on, and the columns of Z that this takes.
void spoil_products(Arnoldi& problem, int first)
{
    problem.op = [op = problem.op, first, count = 0](const Real* x, Real* y) mutable {
        op(x, y);
        if (++count >= first)
            y[3] = std::numeric_limits<Real>::quiet_NaN();
    };
    problem.z_columns = static_cast<std::size_t>(problem.ncv);
    problem.restarts = 20;
}

TEST(Silence, NoEigenSolveOfTheLibraryPrints)
{
    namespace fs = std::filesystem;
    const fs::path empty = fs::temp_directory_path() / ("tessel_silence_" + std::to_string(getpid()));
    fs::create_directory(empty);
    const Outcome outcome = run_in_child([&] {
        fs::current_path(empty);
        raise_levels_of_the_shared_arpack();
        const Library library;
        const std::unique_ptr<FDTDCalcAPI> api = library.create();
        int failures = 0;
        const auto expect = [&](Integer info, auto change) {
            Arnoldi problem = sample_problem();
            change(problem);
            problem.solve(*api);
            failures += problem.info != info;
        };
        expect(0, [](Arnoldi&) {});
        expect(0, [](Arnoldi& p) { p.howmny = 'P'; });
        expect(0, [](Arnoldi& p) { p.howmny = 'S'; });
        expect(1, [](Arnoldi& p) { p.which = "LI"; }); // a real spectrum
        expect(-3, [](Arnoldi& p) { p.ncv = 200; });
        expect(-5, [](Arnoldi& p) { p.which = "??"; });
        expect(-9, [](Arnoldi& p) { p.resid.assign(100, 0.0); });
        expect(0, [](Arnoldi& p) { p.op = [](const Real* x, Real* y) { std::copy_n(x, 100, y); }; });
        // LAPACK calls the norm of such a matrix an illegal value.
        expect(-9999, [](Arnoldi& p) { spoil_products(p, 1); });
        expect(1, [](Arnoldi& p) { spoil_products(p, 2); });
        expect(-8, [](Arnoldi& p) { spoil_products(p, 6); });
        return failures;
    });
    EXPECT_TRUE(outcome.well) << "problems without the expected INFO";
    EXPECT_EQ(outcome.output, "");
    EXPECT_TRUE(fs::is_empty(empty)) << "no file of a Fortran unit";
    fs::remove_all(empty);
}

} // namespace
} // namespace tessel::testing
