/// The slots of LAPACK, through the program's own link of the solvers, beside the same routines of the stock library.

#include "bench/interleave.h"
#include "bench/problems.h"
#include "bench/stock.h"
#include "bench/suites.h"
#include "tests/support/random.h"

#include <algorithm>

namespace tessel::bench {

namespace {

/// The arrays of a slot's call on a random matrix, restored before each run.
template <class T>
class Call
{
public:
    Call(Index rows, Index columns)
        : m(static_cast<Integer>(rows)),
          n(static_cast<Integer>(columns)),
          lwork(100 * m),
          original(extent(rows * columns)),
          a(original.size()),
          u(original.size()),
          vt(extent(columns * columns)),
          work(extent(100 * rows)),
          s(extent(columns)),
          rwork(extent(5 * columns)),
          pivots(extent(columns))
    {
        testing::Random random(original.size());
        std::generate_n(reinterpret_cast<Real*>(original.data()), original.size() * sizeof(T) / sizeof(Real),
                        [&random] { return random.uniform(-1.0, 1.0); });
    }

    void decompose(decltype(&fortran::zgesvd_) driver)
    {
        a = original;
        driver("S", "S", &m, &n, a.data(), &m, s.data(), u.data(), &m, vt.data(), &n, work.data(), &lwork, rwork.data(),
               &info, 1, 1);
    }
    void decompose(decltype(&fortran::dgesvd_) driver)
    {
        a = original;
        driver("S", "S", &m, &n, a.data(), &m, s.data(), u.data(), &m, vt.data(), &n, work.data(), &lwork, &info, 1, 1);
    }
    /// One right-hand side.
    void solve(decltype(&fortran::zgesv_) driver)
    {
        const Integer one = 1;
        a = original;
        std::copy_n(original.begin(), n, u.begin());
        driver(&n, &one, a.data(), &n, pivots.data(), u.data(), &n, &info);
    }

private:
    static std::size_t extent(Index count) { return static_cast<std::size_t>(count); }

    Integer m, n, lwork, info = 0;
    std::vector<T> original, a, u, vt, work;
    std::vector<Real> s, rwork;
    std::vector<Integer> pivots;
};

} // namespace

double time_of_stock_zgesvd()
{
    Call<Complex> call(200, 50);
    const double start = processor_time();
    call.decompose(stock().zgesvd);
    return processor_time() - start;
}

void add_slots_benchmarks(const std::string& kernels)
{
    const auto compare = [kernels](benchmark::State& state, auto call, auto run) {
        constexpr int kRounds = 15; // a goal of three per cent needs them, however long a call takes
        const std::string used = stock().kernels();
        const Effort ordinary = effort();
        effort().fewest_rounds = std::max(kRounds, ordinary.fewest_rounds);
        stock().use_kernels(kernels.c_str());
        interleave(state, {{"slot", [&] { run(call, false); }}, {"stock", [&] { run(call, true); }}});
        stock().use_kernels(used.c_str());
        effort() = ordinary;
    };
    constexpr Index kShapes[][3] = {{50, 20, 40},    {200, 50, 130},   {400, 100, 260},
                                    {900, 100, 340}, {1000, 200, 550}, {1000, 500, 1000}};
    for (const auto& [m, n, order] : kShapes) {
        const std::string shape = std::to_string(m) + 'x' + std::to_string(n);
        add("slots/zgesvd/" + shape, [=, rows = m, columns = n](benchmark::State& state) {
            compare(state, Call<Complex>(rows, columns),
                    [](auto& call, bool of_stock) { call.decompose(of_stock ? stock().zgesvd : fortran::zgesvd_); });
        });
        add("slots/dgesvd/" + shape, [=, rows = m, columns = n](benchmark::State& state) {
            compare(state, Call<Real>(rows, columns),
                    [](auto& call, bool of_stock) { call.decompose(of_stock ? stock().dgesvd : fortran::dgesvd_); });
        });
        add("slots/zgesv/" + std::to_string(order), [=, size = order](benchmark::State& state) {
            compare(state, Call<Complex>(size, size),
                    [](auto& call, bool of_stock) { call.solve(of_stock ? stock().zgesv : fortran::zgesv_); });
        });
    }
}

} // namespace tessel::bench
