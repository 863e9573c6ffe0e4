/// The fast decomposition against the plain one, bit for bit, for every vector width of this machine.

#include "prony/csvdc.h"
#include "prony/rotations.h"
#include "tests/support/matrices.h"
#include "tests/support/message.h"
#include "tests/support/plain_svd.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <string>

namespace tessel::testing {
namespace {

/// Equal to the bit, padding included. Which NaN an operation on two of them returns is left to the machine.
bool same_bits(TestMatrix& a, TestMatrix& b)
{
    const auto doubles = 2 * static_cast<std::size_t>(a.ld()) * static_cast<std::size_t>(a.columns());
    const auto* const x = reinterpret_cast<const Real*>(a.data());
    const auto* const y = reinterpret_cast<const Real*>(b.data());
    for (std::size_t i = 0; i < doubles; ++i)
        if (std::memcmp(&x[i], &y[i], sizeof(Real)) != 0 && !(std::isnan(x[i]) && std::isnan(y[i])))
            return false;
    return a.ld() == b.ld();
}

/// Restores the vectors in use when a test ends.
struct WidthGuard
{
    ~WidthGuard() { use_vectors(widest_vectors()); }
};

void expect_same_bits(const std::string& what, const TestMatrix& a, Integer job, Index pad)
{
    const WidthGuard guard;
    const auto n = static_cast<Integer>(a.rows()), p = static_cast<Integer>(a.columns());
    const bool in_place = job / 10 % 10 >= 2;
    TestMatrix x0(a), u0(n, n, pad), v0(p, p, pad), s0(p, 1), e0(p, 1), work(n, 1);
    TestMatrix& left0 = in_place ? x0 : u0;
    const Integer info0 = plain_svd(job, n, p, x0.data(), x0.ld(), left0.data(), left0.ld(), s0.data(), v0.data(),
                                    v0.ld(), work.data(), e0.data());
    for (const VectorWidth width : {VectorWidth::baseline, VectorWidth::avx2, VectorWidth::avx512}) {
        if (width > widest_vectors())
            continue;
        use_vectors(width);
        TestMatrix x(a), u(n, n, pad), v(p, p, pad), s(p, 1), e(p, 1);
        TestMatrix& left = in_place ? x : u;
        Message message;
        Integer info = 77, flag = 77;
        SLATEC_CSVDC(job, n, p, x.data(), x.ld(), left.data(), left.ld(), s.data(), v.data(), v.ld(), work.data(),
                     e.data(), info, flag, message.data(), message.length());
        EXPECT_EQ(info, info0) << what;
        EXPECT_TRUE(same_bits(s, s0) && same_bits(e, e0) && same_bits(v, v0) && same_bits(left, left0))
            << what << ", job " << job << ", vectors " << static_cast<int>(width);
    }
}

TEST(SvdBits, AreThoseOfThePlainRoutine)
{
    const struct
    {
        Index n, p, pad;
    } shapes[] = {{1, 1, 0},   {3, 2, 1},    {20, 20, 0},  {47, 47, 3},  {48, 48, 0},
                  {70, 50, 1}, {64, 64, 64}, {151, 63, 2}, {130, 97, 0}, {200, 120, 8}};
    Random random(99);
    for (const MatrixKind& kind : kMatrixKinds)
        for (const auto& shape : shapes)
            for (const Integer job : {0, 11, 21, 20, 1}) {
                TestMatrix a(shape.n, shape.p, shape.pad);
                kind.make(a, random);
                expect_same_bits(std::string(kind.name) + ' ' + std::to_string(shape.n) + 'x' + std::to_string(shape.p),
                                 a, job, shape.pad);
            }
}

/// b = 0 and c != 0 in the shift, exactly: its sign is then that of +0.
TEST(SvdBits, TheShiftHasATie)
{
    TestMatrix a(3, 3);
    const Real entries[3][3] = {{8, 1, 0}, {0, 3, 4}, {0, 0, 5}};
    a.fill([&](Index i, Index j) { return entries[i][j]; });
    for (const Integer job : {21, 109, -1}) // of JOB, the last two digits count
        expect_same_bits("tie", a, job, 0);
}

TEST(SvdBits, KeepValuesThatAreNotFinite)
{
    Random random(5);
    TestMatrix a(70, 50);
    kMatrixKinds[0].make(a, random);
    a(69, 0) = std::numeric_limits<Real>::infinity();
    a(35, 16) = std::numeric_limits<Real>::quiet_NaN();
    expect_same_bits("not finite", a, 21, 0);
}

/// So many columns that the queue has no room for one batch that is made and another that is applied.
TEST(SvdBits, SurviveManyColumns)
{
    Random random(4);
    TestMatrix a(600, 600);
    kMatrixKinds[0].make(a, random);
    expect_same_bits("large", a, 1, 0);
}

/// Sweeps with ragged starts and ends, over all row counts, against single rotations.
TEST(SvdBits, SweepsEqualSingleRotations)
{
    const WidthGuard guard;
    Random random(8);
    for (const VectorWidth width : {VectorWidth::baseline, VectorWidth::avx2, VectorWidth::avx512}) {
        use_vectors(width);
        for (int turn = 0; turn < 200; ++turn) {
            const Index rows = 1 + random.below(60);
            const Index columns = turn % 50 == 0 ? 4200 : 2 + random.below(turn % 3 == 0 ? 1500 : 150);
            TestMatrix a(rows, columns, random.below(5));
            kMatrixKinds[0].make(a, random);
            TestMatrix b(a);
            RotationQueue queue(Matrix<Complex>(a.data(), a.ld()), rows, columns);
            for (int sweep = random.below(20); sweep >= 0; --sweep) {
                const Index first = 1 + random.below(static_cast<int>(columns - 1));
                const Index end = first + 1 + random.below(static_cast<int>(columns - first));
                queue.begin_sweep(first);
                for (Index k = first; k < end; ++k) {
                    const Real angle = random.uniform(0.0, 6.0), c = std::cos(angle), s = std::sin(angle);
                    queue.push(k, c, s);
                    fortran::zdrot(rows, &b(0, k - 1), &b(0, k), c, s);
                }
                if (random.below(9) == 0)
                    queue.flush();
            }
            queue.flush();
            ASSERT_TRUE(same_bits(a, b)) << "turn " << turn << ", vectors " << static_cast<int>(width);
        }
    }
}

} // namespace
} // namespace tessel::testing
