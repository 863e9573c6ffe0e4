/// Singular value decompositions of the systems of fits, those of real records among them: first left and all right
/// vectors, in place where the routine can.

#include "bench/interleave.h"
#include "bench/problems.h"
#include "bench/stock.h"
#include "bench/suites.h"
#include "common/complex_ops.h"
#include "common/views.h"
#include "prony/csvdc.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <new>

namespace tessel::bench {

namespace {

/// Storage that starts at a line of the cache, as a fit's does.
template <class T>
struct LineAllocator
{
    using value_type = T;
    static constexpr std::align_val_t kLine{64};

    T* allocate(std::size_t count) { return static_cast<T*>(::operator new(count * sizeof(T), kLine)); }
    void deallocate(T* p, std::size_t) { ::operator delete(p, kLine); }
    bool operator==(const LineAllocator&) const = default;
};
using Storage = std::vector<Complex, LineAllocator<Complex>>;

/// One matrix with a leading dimension, and the storage of all who decompose it.
class Task
{
public:
    Task(const Dense& matrix, Index leading_dimension)
        : a(matrix),
          n(static_cast<Integer>(a.rows)),
          p(static_cast<Integer>(a.columns)),
          ld(static_cast<Integer>(leading_dimension)),
          x(extent(ld, p)),
          u(extent(n, p)),
          v(extent(p, p)),
          s(extent(p, 1)),
          e(extent(p, 1)),
          work(extent(n, 1)),
          sv(extent(p, 1)),
          rwork(extent(p, 2 * n + 5 * p + 7)),
          iwork(extent(p, 8)),
          lapack_work(1)
    {
        // Both drivers tell the best length of their work storage.
        length = -1;
        zgesdd();
        const Real divide = lapack_work[0].real();
        zgesvd();
        length = static_cast<Integer>(std::max(divide, lapack_work[0].real()));
        lapack_work.resize(extent(length, 1));
        for (const Complex& element : a.data)
            parts.push_back(element.real());
    }

    void own()
    {
        restore();
        Integer info = 0, flag = 0;
        SLATEC_CSVDC(21, n, p, x.data(), ld, x.data(), ld, s.data(), v.data(), p, work.data(), e.data(), info, flag,
                     nullptr, 0);
    }
    void plain()
    {
        restore();
        stock().plain_svd(21, n, p, x.data(), ld, x.data(), ld, s.data(), v.data(), p, work.data(), e.data());
    }
    void zgesvd()
    {
        restore();
        Integer info = 0;
        stock().zgesvd("S", "S", &n, &p, x.data(), &ld, sv.data(), u.data(), &n, v.data(), &p, lapack_work.data(),
                       &length, rwork.data(), &info, 1, 1);
    }
    void zgesdd()
    {
        restore();
        Integer info = 0;
        stock().zgesdd("S", &n, &p, x.data(), &ld, sv.data(), u.data(), &n, v.data(), &p, lapack_work.data(), &length,
                       rwork.data(), iwork.data(), &info, 1);
    }

    /// Of the real parts, in real storage.
    void dgesvd()
    {
        std::copy(parts.begin(), parts.end(), real(x));
        const Integer reals = 2 * length;
        Integer info = 0;
        stock().dgesvd("S", "S", &n, &p, real(x), &n, sv.data(), real(u), &n, real(v), &p, real(lapack_work), &reals,
                       &info, 1, 1);
    }

    /// max |A v - s u| / (s(1) n eps) over some triples of the last decomposition.
    Real residual_of_own() const
    {
        return residual([this](Index i, Index j) { return v[extent(i - 1 + (j - 1) * p, 1)]; },
                        [this](Index j) { return s[extent(j - 1, 1)].real(); }, x.data(), ld);
    }
    Real residual_of_lapack() const
    {
        return residual([this](Index i, Index j) { return std::conj(v[extent(j - 1 + (i - 1) * p, 1)]); },
                        [this](Index j) { return sv[extent(j - 1, 1)]; }, u.data(), n);
    }

private:
    static std::size_t extent(Index rows, Index columns) { return static_cast<std::size_t>(rows * columns); }

    template <class Values>
    static Real* real(Values& values)
    {
        return reinterpret_cast<Real*>(values.data());
    }

    void restore()
    {
        for (Index j = 1; j <= p; ++j)
            std::copy_n(a.column(j), n, x.data() + (j - 1) * ld);
    }

    template <class Right, class Value>
    Real residual(Right right, Value value, const Complex* left_vectors, Index left_ld) const
    {
        const Matrix<const Complex> left(left_vectors, left_ld);
        Real worst = 0.0;
        for (Index j = 1; j <= p; j += std::max<Index>(1, p / 10)) {
            std::vector<Complex> difference(extent(n, 1));
            for (Index i = 1; i <= n; ++i)
                difference[extent(i - 1, 1)] = multiply(-value(j), left(i, j));
            for (Index k = 1; k <= p; ++k)
                for (Index i = 0; i < n; ++i)
                    difference[extent(i, 1)] += multiply(a.column(k)[i], right(k, j));
            for (const Complex& d : difference)
                worst = std::max(worst, std::abs(d));
        }
        return worst / (value(1) * n * std::numeric_limits<Real>::epsilon());
    }

    Dense a;
    Integer n, p, ld, length;
    Storage x, u, v, s, e, work;
    std::vector<Real> sv, rwork, parts;
    std::vector<Integer> iwork;
    std::vector<Complex> lapack_work;
};

enum class Kind
{
    toeplitz,    // stage 1 of a fit
    vandermonde, // stage 2
    real         // stage 1 of the fit of a real record: all imaginary parts are zero
};
constexpr const char* kKindNames[] = {"toeplitz/", "vandermonde/", "real/"};

Dense system_of_fit(Kind kind, Index n, Index p)
{
    if (kind != Kind::vandermonde)
        return prediction_matrix(
            make_ringdown(n + p, modes_of_order(p), kind == Kind::real ? Record::real : Record::complex).y, p);
    // Zeros of a fit to ample samples: from 2 p of them, zeros grow so large that their powers leave the routine's
    // range.
    const Ringdown signal = make_ringdown(4 * p, modes_of_order(p), Record::complex);
    return vandermonde_matrix(zeros_of(prediction_polynomial(signal.y, p)), n);
}

Peer with_vectors(const char* name, VectorWidth width, VectorWidth in_use, Task& task)
{
    return {name, [=, &task] {
                use_vectors(width);
                task.own();
                use_vectors(in_use);
            }};
}

void compare_with_peers(benchmark::State& state, Kind kind, Index n, Index p, VectorWidth in_use)
{
    Task task(system_of_fit(kind, n, p), n);
    std::vector<Peer> peers = {{"own", [&] { task.own(); }},
                               {"zgesvd", [&] { task.zgesvd(); }},
                               {"zgesdd", [&] { task.zgesdd(); }},
                               {"plain", [&] { task.plain(); }}};
    if (kind == Kind::real)
        peers.push_back({"dgesvd", [&] { task.dgesvd(); }});
    if (in_use > VectorWidth::avx2)
        peers.push_back(with_vectors("avx2", VectorWidth::avx2, in_use, task));
    if (in_use > VectorWidth::baseline)
        peers.push_back(with_vectors("baseline", VectorWidth::baseline, in_use, task));
    interleave(state, peers);

    task.own();
    state.counters["residual_own"] = task.residual_of_own();
    task.zgesvd();
    state.counters["residual_zgesvd"] = task.residual_of_lapack();
    const auto columns = static_cast<Real>(p);
    state.counters["columns_per_second"] = columns / state.counters["own"];
}

/// A leading dimension that is a power of two, which puts all columns into the same sets of the cache, beside one
/// that is not.
void compare_leading_dimensions(benchmark::State& state, Kind kind, Index n, Index p)
{
    const Dense matrix = system_of_fit(kind, n, p);
    Task power_of_two(matrix, 1024), other(matrix, 1000);
    interleave(state, {{"ld1024", [&] { power_of_two.own(); }}, {"ld1000", [&] { other.own(); }}});
}

} // namespace

void add_svd_benchmarks(VectorWidth in_use)
{
    constexpr Index kShapes[][2] = {{50, 20},    {200, 50},   {400, 100},  {900, 100},
                                    {1000, 200}, {1000, 500}, {1500, 500}, {2000, 1000}};
    for (const auto& [n, p] : kShapes)
        for (const Kind kind : {Kind::toeplitz, Kind::vandermonde, Kind::real}) {
            const Index rows = n, columns = p;
            const std::string shape = kKindNames[static_cast<int>(kind)] + std::to_string(n) + 'x' + std::to_string(p);
            add("svd/" + shape,
                [=](benchmark::State& state) { compare_with_peers(state, kind, rows, columns, in_use); });
            if (900 <= n && n <= 1000)
                add("svd_leading_dimension/" + shape,
                    [=](benchmark::State& state) { compare_leading_dimensions(state, kind, rows, columns); });
        }
}

} // namespace tessel::bench
