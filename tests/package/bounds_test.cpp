// Every array ends at an inaccessible page, over shapes up to order 300: reading one element too far ends the test.
#include "tests/support/guarded.h"
#include "tests/support/lapack.h"
#include "tests/support/library.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <utility>

namespace tessel::testing {
namespace {

constexpr std::size_t kMost = 300;

template <class T>
void fill(T* values, std::size_t count)
{
    Random random(count);
    for (std::size_t i = 0; i < count; ++i)
        values[i] = T(random.uniform(-1.0, 1.0));
}

template <class T>
void decompose(FDTDCalcAPI& api)
{
    const Guarded<T> a(kMost * kMost), u(kMost * kMost), vt(kMost * kMost), work(100 * kMost);
    const Guarded<Real> s(kMost), rwork(5 * kMost);
    const auto check = [&](Integer m, Integer n, char jobu, char jobvt, bool least) {
        const auto rows = static_cast<std::size_t>(m), columns = static_cast<std::size_t>(n);
        const std::size_t p = std::min(rows, columns);
        const Integer ldvt = jobvt == 'S' ? std::min(m, n) : n;
        const std::size_t u_columns = jobu == 'A' ? rows : p;
        const Integer lwork = least ? least_work(T(), m, n) : best_work<T>(api, jobu, jobvt, m, n);
        T* const matrix = a.last(rows * columns);
        fill(matrix, rows * columns);
        Integer info = 77;
        gesvd(api, jobu, jobvt, m, n, matrix, m, s.last(p), u.last(rows * u_columns), m,
              vt.last(static_cast<std::size_t>(ldvt) * columns), ldvt, work.last(static_cast<std::size_t>(lwork)),
              lwork, rwork.last(5 * p), info);
        EXPECT_EQ(info, 0) << m << " x " << n << ' ' << jobu << jobvt;
    };
    for (const Integer k : {1, 2, 3, 4, 5, 7, 9, 16, 31, 33, 50, 65, 99, 130, 250, 251, 300}) {
        for (const auto& [m, n] : {std::pair{k, k}, {k, k / 3 + 1}, {k / 3 + 1, k}, {k, 1}, {1, k}}) {
            check(m, n, 'S', 'S', false);
            if (k <= 130) {
                check(m, n, 'A', 'A', true);
                check(m, n, 'O', 'S', false);
                check(m, n, 'N', 'N', true);
            }
        }
    }
}

TEST(Bounds, SingularValueDecompositions)
{
    const Library library;
    decompose<Complex>(*library.create());
    decompose<Real>(*library.create());
}

TEST(Bounds, LinearSystems)
{
    const Library library;
    const std::unique_ptr<FDTDCalcAPI> api = library.create();
    const Guarded<Complex> a(kMost * kMost), b(kMost * 20);
    const Guarded<Integer> pivots(kMost);
    for (Integer n = 1; n <= static_cast<Integer>(kMost); n += n < 70 ? 1 : 23)
        for (const Integer nrhs : {1, 2, 5, 20}) {
            const auto order = static_cast<std::size_t>(n);
            Complex* const matrix = a.last(order * order);
            Complex* const sides = b.last(order * static_cast<std::size_t>(nrhs));
            fill(matrix, order * order);
            fill(sides, order * static_cast<std::size_t>(nrhs));
            Integer info = 77;
            api->zgesv(&n, &nrhs, matrix, &n, pivots.last(order), sides, &n, &info);
            EXPECT_EQ(info, 0) << n;
        }
}

} // namespace
} // namespace tessel::testing
