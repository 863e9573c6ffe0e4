/// The slots of LAPACK, those of the built library, beside the same routines of the stock one.

#include "bench/interleave.h"
#include "bench/problems.h"
#include "bench/stock.h"
#include "bench/suites.h"
#include "tests/support/random.h"

#include <tessel/Loader.h>

#include <algorithm>
#include <type_traits>

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

    /// By ZGESVD or DGESVD.
    template <class Driver>
    void decompose(Driver driver)
    {
        a = original;
        if constexpr (std::is_same_v<T, Complex>)
            driver("S", "S", &m, &n, a.data(), &m, s.data(), u.data(), &m, vt.data(), &n, work.data(), &lwork,
                   rwork.data(), &info, 1, 1);
        else
            driver("S", "S", &m, &n, a.data(), &m, s.data(), u.data(), &m, vt.data(), &n, work.data(), &lwork, &info, 1,
                   1);
    }
    /// One right-hand side, by ZGESV.
    template <class Driver>
    void solve(Driver driver)
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

void add_slots_benchmarks(const std::string& library, const std::string& kernels)
{
    static const Library loaded(library);
    static const Api api = loaded.create();
    const auto compare = [kernels](benchmark::State& state, auto slot, auto peer) {
        constexpr int kRounds = 15; // a goal of three per cent needs them, however long a call takes
        const std::string used = stock().kernels();
        const Effort ordinary = effort();
        effort().fewest_rounds = std::max(kRounds, ordinary.fewest_rounds);
        stock().use_kernels(kernels.c_str());
        interleave(state, {{"slot", slot}, {"stock", peer}});
        stock().use_kernels(used.c_str());
        effort() = ordinary;
    };
    const auto zgesvd = [](auto... arguments) { api->zgesvd(arguments...); };
    const auto dgesvd = [](auto... arguments) { api->dgesvd(arguments...); };
    const auto zgesv = [](auto... arguments) { api->zgesv(arguments...); };
    constexpr Index kShapes[][2] = {{50, 20}, {200, 50}, {400, 100}, {900, 100}, {1000, 200}, {1000, 500}};
    for (const auto& [m, n] : kShapes) {
        const Index rows = m, columns = n;
        const std::string shape = std::to_string(m) + 'x' + std::to_string(n);
        add("slots/zgesvd/" + shape, [=](benchmark::State& state) {
            Call<Complex> call(rows, columns);
            compare(
                state, [&] { call.decompose(zgesvd); }, [&] { call.decompose(stock().zgesvd); });
        });
        add("slots/dgesvd/" + shape, [=](benchmark::State& state) {
            Call<Real> call(rows, columns);
            compare(
                state, [&] { call.decompose(dgesvd); }, [&] { call.decompose(stock().dgesvd); });
        });
    }
    for (const Index order : {40, 130, 260, 340, 550, 1000})
        add("slots/zgesv/" + std::to_string(order), [=](benchmark::State& state) {
            Call<Complex> call(order, order);
            compare(
                state, [&] { call.solve(zgesv); }, [&] { call.solve(stock().zgesv); });
        });
}

} // namespace tessel::bench
