#include "common/types.h"
#include "tests/support/library.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

namespace tessel::testing {
namespace {

/// The system that the callback evaluates. There is no pointer for the host's data: it goes through the thread.
struct System
{
    using Function = std::function<void(const std::vector<Complex>& x, std::vector<Complex>& f)>;

    Function function;
    Integer stop_at = 0; ///< evaluation at which the solve is ended, none if 0
    Integer stop_with = -1;
    Integer evaluations = 0;
    bool disturbed = false; ///< whether a call asked for something else than IFLAG = 1 or 2
};
thread_local System* current = nullptr;

/// FVEC for IFLAG = 1; for IFLAG = 2 the Jacobian by complex steps, exact to rounding: Im f(x + ih e_j) / h.
void evaluate(const Integer* n, const Real* x, Real* fvec, Real* fjac, const Integer* ldfjac, Integer* iflag)
{
    System& system = *current;
    const auto size = static_cast<std::size_t>(*n);
    if (++system.evaluations == system.stop_at) {
        *iflag = system.stop_with;
        return;
    }
    std::vector<Complex> point(x, x + size), value(size);
    if (*iflag == 1) {
        system.function(point, value);
        for (std::size_t i = 0; i < size; ++i)
            fvec[i] = value[i].real();
    } else if (*iflag == 2) {
        for (std::size_t j = 0; j < size; ++j) {
            point[j] += Complex(0.0, 1e-100);
            system.function(point, value);
            point[j] = x[j];
            for (std::size_t i = 0; i < size; ++i)
                fjac[i + j * static_cast<std::size_t>(*ldfjac)] = value[i].imag() / 1e-100;
        }
    } else {
        system.disturbed = true;
    }
}

/// One call of slot 3 with its usual arguments.
struct Call
{
    explicit Call(std::vector<Real> start)
        : x(std::move(start)), n(static_cast<Integer>(x.size())), ldfjac(n + 2), lwa(n * (n + 13) / 2)
    {
        fvec.assign(x.size(), kUntouched);
        fjac.assign(static_cast<std::size_t>(ldfjac) * x.size(), kUntouched);
        wa.assign(static_cast<std::size_t>(lwa) + 1, kUntouched);
    }

    void run(System& system)
    {
        static const Library library;
        static const std::unique_ptr<FDTDCalcAPI> api = library.create();
        current = &system;
        api->hybrj1(evaluate, &n, x.data(), fvec.data(), fjac.data(), &ldfjac, &tol, &info, wa.data(), &lwa);
    }

    static constexpr Real kUntouched = -7.25e111;
    std::vector<Real> x;
    Integer n, ldfjac, lwa, info = 77;
    Real tol = std::sqrt(std::numeric_limits<Real>::epsilon());
    std::vector<Real> fvec, fjac, wa;
};

using Point = std::vector<Complex>;

System::Function broyden_tridiagonal()
{
    return [](const Point& x, Point& f) {
        for (std::size_t k = 0; k < x.size(); ++k)
            f[k] =
                (3.0 - 2.0 * x[k]) * x[k] - (k > 0 ? x[k - 1] : 0.0) - 2.0 * (k + 1 < x.size() ? x[k + 1] : 0.0) + 1.0;
    };
}

// Systems of J. J. More, B. S. Garbow, K. E. Hillstrom, ACM TOMS 7 (1981) 17; numbers of the problems there.
TEST(Hybrj1, SolvesTheStandardSystems)
{
    struct Case
    {
        const char* name;
        std::vector<Real> start;
        Integer info;
        std::vector<Real> solution; ///< empty where only the residual is known
        System::Function function;
    };
    const std::vector<Real> tenth(10, 0.1), minus_one(10, -1.0), half(10, 0.5);
    std::vector<Real> boundary(10);
    for (std::size_t k = 0; k < boundary.size(); ++k) {
        const Real t = static_cast<Real>(k + 1) / 11.0;
        boundary[k] = t * (t - 1.0);
    }
    const Case cases[] = {
        {"Rosenbrock (1)",
         {-1.2, 1.0},
         1,
         {1.0, 1.0},
         [](const Point& x, Point& f) {
             f[0] = 1.0 - x[0];
             f[1] = 10.0 * (x[1] - x[0] * x[0]);
         }},
        {"Powell singular (13)",
         {3.0, -1.0, 0.0, 1.0},
         4,
         {0.0, 0.0, 0.0, 0.0},
         [](const Point& x, Point& f) {
             f[0] = x[0] + 10.0 * x[1];
             f[1] = std::sqrt(5.0) * (x[2] - x[3]);
             f[2] = (x[1] - 2.0 * x[2]) * (x[1] - 2.0 * x[2]);
             f[3] = std::sqrt(10.0) * (x[0] - x[3]) * (x[0] - x[3]);
         }},
        {"Powell badly scaled (3)",
         {0.0, 1.0},
         1,
         {1.098159327798296e-5, 9.106146739865656},
         [](const Point& x, Point& f) {
             f[0] = 1e4 * x[0] * x[1] - 1.0;
             f[1] = std::exp(-x[0]) + std::exp(-x[1]) - 1.0001;
         }},
        {"helical valley (7)",
         {-1.0, 0.0, 0.0},
         1,
         {1.0, 0.0, 0.0},
         [](const Point& x, Point& f) {
             const Complex turn = std::atan(x[1] / x[0]) / (2.0 * std::numbers::pi);
             f[0] = 10.0 * (x[2] - 10.0 * (x[0].real() < 0.0 ? turn + 0.5 : turn));
             f[1] = 10.0 * (std::sqrt(x[0] * x[0] + x[1] * x[1]) - 1.0);
             f[2] = x[2];
         }},
        {"Brown almost-linear (27)",
         half,
         1,
         {},
         [](const Point& x, Point& f) {
             Complex sum = 0.0, product = 1.0;
             for (const Complex& value : x) {
                 sum += value;
                 product *= value;
             }
             for (std::size_t k = 0; k < x.size(); ++k)
                 f[k] = x[k] + sum - static_cast<Real>(x.size() + 1);
             f.back() = product - 1.0;
         }},
        {"discrete boundary value (28)",
         boundary,
         1,
         {},
         [](const Point& x, Point& f) {
             const Real h = 1.0 / static_cast<Real>(x.size() + 1);
             for (std::size_t k = 0; k < x.size(); ++k) {
                 const Complex cube = std::pow(x[k] + static_cast<Real>(k + 1) * h + 1.0, 3);
                 f[k] =
                     2.0 * x[k] - (k > 0 ? x[k - 1] : 0.0) - (k + 1 < x.size() ? x[k + 1] : 0.0) + h * h * cube / 2.0;
             }
         }},
        {"trigonometric (26)",
         tenth,
         4,
         {},
         [](const Point& x, Point& f) {
             Complex sum = static_cast<Real>(x.size());
             for (const Complex& value : x)
                 sum -= std::cos(value);
             for (std::size_t k = 0; k < x.size(); ++k)
                 f[k] = sum + static_cast<Real>(k + 1) * (1.0 - std::cos(x[k])) - std::sin(x[k]);
         }},
        {"Broyden tridiagonal (30)", minus_one, 1, {}, broyden_tridiagonal()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        System system{c.function};
        Call call(c.start);
        call.run(system);
        EXPECT_EQ(call.info, c.info);
        EXPECT_FALSE(system.disturbed);
        EXPECT_EQ(call.wa.back(), Call::kUntouched);
        for (std::size_t k = 0; k < c.solution.size(); ++k)
            EXPECT_NEAR(call.x[k], c.solution[k], c.info == 1 ? 1e-8 * std::max(1.0, std::abs(c.solution[k])) : 1e-10);
        std::vector<Complex> value(call.x.size());
        system.function({call.x.begin(), call.x.end()}, value);
        for (std::size_t k = 0; k < value.size(); ++k) {
            EXPECT_EQ(call.fvec[k], value[k].real()) << "FVEC is the system at X";
            EXPECT_LE(std::abs(value[k]), c.info == 1 ? 1e-8 : 1.0);
        }
    }
}

TEST(Hybrj1, RefusesArgumentsOutOfBoundsAndTouchesNothing)
{
    const auto refused = [](auto spoil) {
        System system{broyden_tridiagonal()};
        Call call(std::vector<Real>(10, -1.0));
        spoil(call);
        const Call before = call;
        call.run(system);
        EXPECT_EQ(call.info, 0);
        EXPECT_EQ(system.evaluations, 0);
        EXPECT_EQ(call.x, before.x);
        EXPECT_EQ(call.fvec, before.fvec);
        EXPECT_EQ(call.fjac, before.fjac);
        EXPECT_EQ(call.wa, before.wa);
    };
    refused([](Call& c) { c.n = 0; });
    refused([](Call& c) { c.n = -3; });
    refused([](Call& c) { c.ldfjac = c.n - 1; });
    refused([](Call& c) { c.tol = -1.0; });
    refused([](Call& c) { c.lwa -= 1; });
    // N (N + 13) does not fit in 32 bits: 46335 is the first such N; for 65536 it is 851968 modulo 2^32.
    refused([](Call& c) {
        c.n = c.ldfjac = 46335;
        c.lwa = 1073767289;
    });
    refused([](Call& c) {
        c.n = c.ldfjac = 65536;
        c.lwa = 425984;
    });
    refused([](Call& c) { c.n = c.ldfjac = c.lwa = std::numeric_limits<Integer>::max(); });
}

TEST(Hybrj1, TakesATolThatIsNotANumber)
{
    System system{broyden_tridiagonal()};
    Call call(std::vector<Real>(10, -1.0));
    call.tol = std::numeric_limits<Real>::quiet_NaN();
    system.stop_at = 20;
    call.run(system);
    EXPECT_GT(system.evaluations, 1);
    EXPECT_NE(call.info, 0);
}

TEST(Hybrj1, ANegativeIflagEndsTheSolveAndIsReported)
{
    for (const auto& [at, with] : {std::pair{1, -1}, {2, -7}, {4, -1000000}}) {
        System system{broyden_tridiagonal()};
        system.stop_at = at;
        system.stop_with = with;
        Call call(std::vector<Real>(10, -1.0));
        call.run(system);
        EXPECT_EQ(call.info, with);
        EXPECT_EQ(system.evaluations, at);
    }
}

TEST(Hybrj1, LengthTestHoldsBeyondThirtyTwoBits)
{
    System system{broyden_tridiagonal()};
    system.stop_at = 1; // nothing beyond the diagonal is touched, so the arrays need not be there whole
    Call call({-1.0});
    call.n = call.ldfjac = 46335;
    call.lwa = 1073767290;
    call.x.resize(46335);
    call.wa.resize(46335);
    call.run(system);
    EXPECT_EQ(call.info, -1);
    EXPECT_EQ(system.evaluations, 1);
}

TEST(Dpmpar, ReturnsThePublishedTableToTheBit)
{
    const Library library;
    const std::unique_ptr<FDTDCalcAPI> api = library.create();
    const Real table[] = {2.22044604926e-16, 2.22507385852e-308, 1.79769313485e+308};
    for (Integer i = 1; i <= 3; ++i)
        EXPECT_EQ(api->dpmpar(&i), table[i - 1]);
}

} // namespace
} // namespace tessel::testing
