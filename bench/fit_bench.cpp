/// Whole fits, n = 4 m, of complex and of real records: beside the plain routine, and with arrays that are declared
/// larger than needed, eight times or up to a power of two.
/// Other methods' fits are timed by fit_peers.py.

#include "bench/interleave.h"
#include "bench/problems.h"
#include "bench/stock.h"
#include "bench/suites.h"
#include "prony/csvdc.h"
#include "prony/czero.h"
#include "prony/leastsq_prony_svd.h"
#include "tests/support/signals.h"

#include <bit>
#include <utility>

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

/// One signal, with arrays declared for `samples` samples and `exponentials` exponentials.
class Fit
{
public:
    Fit(const Ringdown& signal, Index order, Index samples, Index exponentials)
        : y(signal.y),
          n(static_cast<Integer>(y.size())),
          ndim(static_cast<Integer>(samples)),
          m(static_cast<Integer>(order)),
          mmax(static_cast<Integer>(exponentials)),
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

void compare_fits(benchmark::State& state, Record record, Index m)
{
    const Ringdown signal = make_ringdown(4 * m, modes_of_order(m), record);
    Fit fit(signal, m, 4 * m, m);
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
    const Ringdown signal = make_ringdown(4 * m, modes_of_order(m), Record::complex);
    Fit tight(signal, m, 4 * m, m), roomy(signal, m, 32 * m, 8 * m);
    interleave(state, {{"eightfold", [&] { roomy.own(); }}, {"tight", [&] { tight.own(); }}});
}

/// Arrays declared for a number of samples that is a power of two, beside one that is a little smaller and is not.
void compare_dimensions(benchmark::State& state, Record record, Index m)
{
    const Ringdown signal = make_ringdown(4 * m, modes_of_order(m), record);
    const auto power = static_cast<Index>(std::bit_ceil(static_cast<std::size_t>(4 * m)));
    Fit at_power(signal, m, power, m), below(signal, m, power - power / 32, m);
    interleave(state, {{"power", [&] { at_power.own(); }}, {"other", [&] { below.own(); }}});
}

} // namespace

void add_fit_benchmarks()
{
    for (const auto& [record, name] : {std::pair{Record::complex, "complex/"}, {Record::real, "real/"}}) {
        const auto kind = record;
        for (const Index m : {5, 10, 20, 50, 100, 200, 350, 500})
            add("fit/" + (name + std::to_string(m)), [=](benchmark::State& state) { compare_fits(state, kind, m); });
        for (const Index m : {50, 100, 200, 350}) // the power is 256, 512, 1024, 2048
            add("fit_dimension/" + (name + std::to_string(m)),
                [=](benchmark::State& state) { compare_dimensions(state, kind, m); });
    }
    for (const Index m : {5, 10, 20, 50, 100, 200, 350, 500})
        add("fit_storage/" + std::to_string(m), [=](benchmark::State& state) { compare_storage(state, m); });
}

} // namespace tessel::bench
