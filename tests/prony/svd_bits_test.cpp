/// The fast decomposition against the plain one, bit for bit, for every vector width of this machine.

#include "prony/csvdc.h"
#include "prony/rotations.h"
#include "reference/level1.h"
#include "reference/plain_svd.h"
#include "tests/support/matrices.h"
#include "tests/support/same_bits.h"

#include <cmath>
#include <functional>
#include <limits>
#include <string>

namespace tessel::testing {
namespace {

/// Equal to the bit, padding included.
bool same_matrix(const TestMatrix& a, const TestMatrix& b)
{
    return same_bits(&a(0, 0), &b(0, 0), static_cast<std::size_t>(a.ld() * a.columns()));
}

/// Calls `body(width)` for the vectors that this machine has.
void for_each_width(const std::function<void(int)>& body)
{
    for (const VectorWidth width : {VectorWidth::baseline, VectorWidth::avx2, VectorWidth::avx512})
        if (width <= widest_vectors()) {
            use_vectors(width);
            body(static_cast<int>(width));
        }
    use_vectors(widest_vectors());
}

void expect_same_bits(const std::string& what, const TestMatrix& a, Integer job, Index pad)
{
    const auto n = static_cast<Integer>(a.rows()), p = static_cast<Integer>(a.columns());
    const bool in_place = job / 10 % 10 >= 2;
    TestMatrix x0(a), u0(n, n, pad), v0(p, p, pad), s0(p, 1), e0(p, 1), work(n, 1);
    TestMatrix& left0 = in_place ? x0 : u0;
    const Integer info0 = reference::plain_svd(job, n, p, x0.data(), x0.ld(), left0.data(), left0.ld(), s0.data(),
                                               v0.data(), v0.ld(), work.data(), e0.data());
    for_each_width([&](int width) {
        TestMatrix x(a), u(n, n, pad), v(p, p, pad), s(p, 1), e(p, 1);
        TestMatrix& left = in_place ? x : u;
        Integer info = 77, flag = 77;
        SLATEC_CSVDC(job, n, p, x.data(), x.ld(), left.data(), left.ld(), s.data(), v.data(), v.ld(), work.data(),
                     e.data(), info, flag, nullptr, 0);
        EXPECT_TRUE(info == info0 && same_matrix(s, s0) && same_matrix(e, e0) && same_matrix(v, v0) &&
                    same_matrix(left, left0))
            << what << ' ' << n << 'x' << p << ", job " << job << ", vectors " << width;
    });
}

TEST(SvdBits, AreThoseOfThePlainRoutine)
{
    const struct
    {
        Index n, p, pad;
    } shapes[] = {{1, 1, 0},   {3, 2, 1},    {20, 20, 0},  {55, 55, 3},  {56, 56, 0},
                  {70, 60, 1}, {64, 64, 64}, {151, 63, 2}, {130, 97, 0}, {200, 120, 8}};
    Random random(99);
    for (const MatrixKind& kind : kMatrixKinds)
        for (const auto& [n, p, pad] : shapes)
            for (const Integer job : {0, 11, 21, 20, 1})
                expect_same_bits(kind.name, kind.make(random, n, p, pad), job, pad);
}

TEST(SvdBits, SpecialMatrices)
{
    TestMatrix tie(3, 3); // b = 0 and c != 0 in the shift, exactly: its sign is then that of +0
    const Real entries[3][3] = {{8, 1, 0}, {0, 3, 4}, {0, 0, 5}};
    tie.fill([&](Index i, Index j) { return entries[i][j]; });
    for (const Integer job : {21, 109, -1}) // of JOB, the last two digits count
        expect_same_bits("tie", tie, job, 0);

    TestMatrix not_finite(70, 60);
    Random random(5);
    not_finite.fill_random(random);
    not_finite(69, 0) = std::numeric_limits<Real>::infinity();
    not_finite(35, 16) = std::numeric_limits<Real>::quiet_NaN();
    expect_same_bits("not finite", not_finite, 21, 0);
}

/// Sweeps with ragged starts and ends, over all row counts, against single rotations: with columns so few that none is
/// kept, with room for one batch beside another, for one alone, and for none.
TEST(SvdBits, SweepsEqualSingleRotations)
{
    Random random(8);
    for_each_width([&](int width) {
        for (int turn = 0; turn < 200; ++turn) {
            const Index rows = 1 + random.below(60);
            const Index columns = turn % 50 == 0 ? 4200 : 2 + random.below(turn % 3 == 0 ? 1500 : 150);
            TestMatrix a(rows, columns, random.below(5));
            TestMatrix b = a.fill_random(random);
            RotationQueue queue({{reinterpret_cast<Real*>(a.data()), 2 * a.ld()}, 2 * rows}, columns);
            for (int sweep = random.below(20); sweep >= 0; --sweep) {
                const Index first = 1 + random.below(static_cast<int>(columns - 1));
                const Index end = first + 1 + random.below(static_cast<int>(columns - first));
                queue.begin_sweep(first);
                for (Index k = first; k < end; ++k) {
                    const Real angle = random.uniform(0.0, 6.0), c = std::cos(angle), s = std::sin(angle);
                    queue.push(k, {c, s});
                    reference::zdrot(rows, &b(0, k - 1), &b(0, k), c, s);
                }
                if (random.below(9) == 0)
                    queue.flush();
            }
            queue.flush();
            ASSERT_TRUE(same_matrix(a, b)) << "turn " << turn << ", vectors " << width;
        }
    });
}

} // namespace
} // namespace tessel::testing
