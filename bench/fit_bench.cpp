/// Whole fits, n = 4 m: beside the plain routine, and with arrays that are declared eight times as large as needed.
/// Other methods' fits are timed by fit_peers.py.

#include "bench/interleave.h"
#include "bench/problems.h"
#include "bench/stock.h"
#include "bench/suites.h"
#include "prony/csvdc.h"
#include "prony/czero.h"
#include "prony/leastsq_prony_svd.h"
#include "tests/support/signals.h"

namespace tessel::bench {

namespace {

/// Processor time that decompositions and zero finder have taken so far.
double svd_seconds = 0.0, zeros_seconds = 0.0;

} // namespace

// The linker sends every call of the two routines through these.
extern "C" {
decltype(SLATEC_CSVDC) __real_SLATEC_CSVDC, __wrap_SLATEC_CSVDC;
decltype(NAPACK_CZERO) __real_NAPACK_CZERO, __wrap_NAPACK_CZERO;

void __wrap_SLATEC_CSVDC(const Integer& job, const Integer& n, const Integer& p, Complex* x, const Integer& ldx,
                         Complex* u, const Integer& ldu, Complex* s, Complex* v, const Integer& ldv, Complex* work,
                         Complex* e, Integer& info, Integer& flag, char* message, CharLen length)
{
    const double start = processor_time();
    __real_SLATEC_CSVDC(job, n, p, x, ldx, u, ldu, s, v, ldv, work, e, info, flag, message, length);
    svd_seconds += processor_time() - start;
}

void __wrap_NAPACK_CZERO(Complex* z, const Complex* coef, const Integer& n, Complex* w, Integer& flag, char* message,
                         CharLen length)
{
    const double start = processor_time();
    __real_NAPACK_CZERO(z, coef, n, w, flag, message, length);
    zeros_seconds += processor_time() - start;
}
}

namespace {

/// One signal, with arrays declared for ndim samples and mmax exponentials.
class Fit
{
public:
    Fit(const Ringdown& signal, Index order, Index factor)
        : y(signal.y),
          n(static_cast<Integer>(y.size())),
          ndim(n * static_cast<Integer>(factor)),
          m(static_cast<Integer>(order)),
          mmax(m * static_cast<Integer>(factor)),
          residues(static_cast<std::size_t>(mmax)),
          poles(static_cast<std::size_t>(mmax))
    {
        y.resize(static_cast<std::size_t>(ndim));
    }

    void own()
    {
        Integer flag = 0;
        LEASTSQ_PRONY_SVD(&n, &ndim, y.data(), &dt, &m, &mmax, residues.data(), poles.data(), &measures[0],
                          &measures[1], &measures[2], &measures[3], &measures[4], &flag, nullptr, 0);
    }
    void plain() { stock().plain_fit(n, y.data(), dt, m, residues.data(), poles.data(), measures); }

    Real pole_error(const std::vector<Complex>& known) const { return testing::worst_pole_error(known, poles); }

private:
    std::vector<Complex> y;
    Integer n, ndim, m, mmax;
    std::vector<Complex> residues, poles;
    Real dt = 1.0, measures[5] = {};
};

void compare_fits(benchmark::State& state, Index m)
{
    const Ringdown signal = make_ringdown(4 * m, modes_of_order(m));
    Fit fit(signal, m, 1);
    std::vector<double> svd_shares, zeros_shares, rest_shares;
    const auto own = [&] {
        svd_seconds = zeros_seconds = 0.0;
        const double start = processor_time();
        fit.own();
        const double whole = processor_time() - start;
        svd_shares.push_back(svd_seconds / whole);
        zeros_shares.push_back(zeros_seconds / whole);
        rest_shares.push_back(1.0 - (svd_seconds + zeros_seconds) / whole);
    };
    interleave(state, {{"own", own}, {"plain", [&] { fit.plain(); }}});
    state.counters["svd_share"] = median(svd_shares);
    state.counters["zeros_share"] = median(zeros_shares);
    state.counters["rest_share"] = median(rest_shares);
    state.counters["samples_per_second"] = static_cast<Real>(4 * m) / state.counters["own"];
    fit.own();
    state.counters["error_own"] = fit.pole_error(signal.poles);
}

void compare_storage(benchmark::State& state, Index m)
{
    const Ringdown signal = make_ringdown(4 * m, modes_of_order(m));
    Fit tight(signal, m, 1), roomy(signal, m, 8);
    interleave(state, {{"eightfold", [&] { roomy.own(); }}, {"tight", [&] { tight.own(); }}});
}

} // namespace

void add_fit_benchmarks()
{
    for (const Index m : {5, 10, 20, 50, 100, 200, 350, 500}) {
        const std::string order = std::to_string(m);
        add("fit/" + order, [=](benchmark::State& state) { compare_fits(state, m); });
        add("fit_storage/" + order, [=](benchmark::State& state) { compare_storage(state, m); });
    }
}

} // namespace tessel::bench
