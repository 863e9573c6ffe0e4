/// The fast decomposition against the plain one, and its kernels against plain loops, bit for bit, for every vector
/// width of this machine.

#include "prony/csvdc.h"
#include "prony/level1.h"
#include "prony/rotations.h"
#include "reference/level1.h"
#include "reference/plain_svd.h"
#include "tests/support/matrices.h"
#include "tests/support/same_bits.h"

#include <cfenv>
#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <xmmintrin.h>

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
    const Integer separate = in_place ? 0 : n;
    TestMatrix x0(a), u0(n, separate, pad), v0(p, p, pad), s0(p, 1), e0(p, 1), work(n, 1);
    TestMatrix& left0 = in_place ? x0 : u0;
    const Integer info0 = reference::plain_svd(job, n, p, x0.data(), x0.ld(), left0.data(), left0.ld(), s0.data(),
                                               v0.data(), v0.ld(), work.data(), e0.data());
    for_each_width([&](int width) {
        TestMatrix x(a), u(n, separate, pad), v(p, p, pad), s(p, 1), e(p, 1);
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

/// Real matrices that real arithmetic has to give up: squares of divisors underflow, in the columns from `first` on, or
/// at the end of the diagonal or of the super-diagonal alone, which shows only when all vectors are made. The matrix is
/// then to be found as it was.
TEST(SvdBits, RealMatricesThatUnderflow)
{
    Random random(17);
    for (const Integer job : {0, 1, 10, 11, 20, 21})
        for (const Real size : {1e-161, 1e-163, 1e-200, 5e-324})
            for (const Index first : {0, 1, 20, 37, 39})
                for (const bool corner : {false, true}) {
                    TestMatrix a(corner ? 40 : 47, 40, 3);
                    a.fill([&](Index i, Index j) {
                        const bool apart = corner ? i == 39 || j == 39 : i >= 40 || j >= first;
                        const bool tiny = corner ? j == (first % 2 == 0 ? i : i + 1) : i >= first && j >= first;
                        const Real value = random.uniform(-1.0, 1.0);
                        return apart ? (tiny ? size * value : 0.0) : value;
                    });
                    expect_same_bits("underflow", a, job, 3);
                }
}

/// Shapes as large as fits meet, and leading dimensions that are powers of two.
TEST(SvdBits, LargeMatrices)
{
    Random random(6);
    const auto complex = [&](Index, Index) { return random.complex(); };
    const auto real = [&](Index, Index) { return Complex(random.uniform(-1.0, 1.0)); };
    const struct
    {
        Index n, p, ld;
    } shapes[] = {{100, 90, 128}, {256, 61, 256}, {500, 67, 512}, {1000, 40, 1024}};
    for (const auto& [n, p, ld] : shapes)
        for (const Integer job : {1, 21}) {
            expect_same_bits("complex", TestMatrix(n, p, ld - n).fill(complex), job, ld - n);
            expect_same_bits("real", TestMatrix(n, p, ld - n).fill(real), job, ld - n);
        }
    expect_same_bits("complex", TestMatrix(510, 500, 2).fill(complex), 21, 2);
    expect_same_bits("real", TestMatrix(500, 499, 12).fill(real), 11, 12);
}

TEST(SvdBits, SpecialMatrices)
{
    TestMatrix tie(3, 3); // b = 0 and c != 0 in the shift, exactly: its sign is then that of +0
    const Real entries[3][3] = {{8, 1, 0}, {0, 3, 4}, {0, 0, 5}};
    tie.fill([&](Index i, Index j) { return entries[i][j]; });
    for (const Integer job : {21, 109, -1}) // of JOB, the last two digits count
        expect_same_bits("tie", tie, job, 0);

    TestMatrix ties(3, 3); // of the sides of rotations, too: entries are -1, 0 and 1
    for (int code = 0; code < 19683; code += 5) {
        int rest = code;
        ties.fill([&](Index, Index) { return Real(std::exchange(rest, rest / 3) % 3 - 1); });
        expect_same_bits("ties", ties, 21, 0);
    }

    TestMatrix not_finite(70, 60);
    Random random(5);
    not_finite.fill_random(random);
    not_finite(69, 0) = std::numeric_limits<Real>::infinity();
    not_finite(35, 16) = std::numeric_limits<Real>::quiet_NaN();
    expect_same_bits("not finite", not_finite, 21, 0);
    not_finite.fill([&](Index i, Index j) { return not_finite(i, j).real(); });
    expect_same_bits("not finite, real", not_finite, 21, 0);
    TestMatrix huge(12, 9); // squares of singular values overflow, those of elements do not
    huge.fill([&](Index, Index) { return random.uniform(0.9e154, 1e154); });
    expect_same_bits("huge, real", huge, 21, 0);
}

/// Two matrices that left real arithmetic too late, each in one environment, and some ordinary ones.
TEST(SvdBits, InTheEnvironmentsOfHosts)
{
    constexpr unsigned kFlushToZero = 0x8000;
    Random random(12);
    TestMatrix vanishing(2, 2), subnormal(2, 1);
    vanishing.fill([](Index i, Index j) { return i == 1 && j == 0 ? 3e-165 : 0.0; });
    subnormal.fill([](Index i, Index) { return i == 0 ? -3e-315 : -1e47; });
    TestMatrix real(40, 30), complex(40, 30);
    real.fill([&](Index, Index) { return random.uniform(-1.0, 1.0); });
    complex.fill_random(random);
    const unsigned modes = _mm_getcsr();
    for (const int rounding : {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO})
        for (const unsigned flush : {0u, kFlushToZero})
            for (const TestMatrix* a : {&vanishing, &subnormal, &real, &complex}) {
                std::fesetround(rounding);
                _mm_setcsr(_mm_getcsr() | flush);
                expect_same_bits("rounding " + std::to_string(rounding), *a, 21, 0);
                std::fesetround(FE_TONEAREST);
                _mm_setcsr(modes);
            }
}

/// Kernels against plain loops, over blocks of columns of any size and distance. Zeros of either sign, coefficients of
/// zero and of one, and infinities show which operations are left out.
template <class T>
void expect_plain_kernels(Random& random, int width)
{
    const auto draw = [&](Index count, int one_in) {
        static constexpr Real special[] = {0.0, -0.0, 1.0, -1.0, std::numeric_limits<Real>::infinity()};
        std::vector<T> values(static_cast<std::size_t>(count));
        for (Index i = 0; i < count * level1::kParts<T>; ++i)
            level1::parts(values.data())[i] = random.uniform(-1.0, 1.0);
        for (T& value : values)
            if (random.below(one_in) == 0)
                value = special[random.below(random.below(5) == 0 ? 5 : 4)];
        return values;
    };
    for (int turn = 0; turn < 1000; ++turn) {
        const Index rows = turn % 20 == 0 ? 1 + random.below(400) : random.below(40), columns = random.below(21);
        const Index ld = turn % 7 == 0 ? 512 : rows + random.below(4), offset = random.below(8);
        const int task = random.below(6), rare = turn % 2 == 0 ? 1000 : 6;
        const std::vector<T> h = draw(rows, 200), a = draw(21, rare), e = draw(21, rare);
        std::vector<T> y = draw(ld * columns + offset + 1, 30), w = draw(rows, 1000), d(21), y0 = y, w0 = w, d0 = d;
        T* const first = y.data() + offset;

        for (Index j = 0; j < columns; ++j) {
            const T aj = a[static_cast<std::size_t>(j)], ej = e[static_cast<std::size_t>(j)];
            for (Index i = 0; i < rows; ++i) {
                T &value = y0[static_cast<std::size_t>(offset + j * ld + i)], &wi = w0[static_cast<std::size_t>(i)];
                const T hi = h[static_cast<std::size_t>(i)];
                if (task <= 2 && !level1::is_zero(aj))
                    value += multiply(aj, task == 0 ? wi : hi);
                if (task == 0 || task == 3)
                    d0[static_cast<std::size_t>(j)] += multiply(conjugate(hi), value);
                if ((task == 1 || task == 4) && !level1::is_zero(ej))
                    wi += multiply(ej, value);
                if (task == 5 && aj != T(1.0))
                    value = multiply(aj, value);
            }
        }
        switch (task) {
        case 0:
            level1::update_dot(rows, columns, first, ld, w.data(), a.data(), h.data(), d.data());
            break;
        case 1:
            level1::update_sum(rows, columns, first, ld, h.data(), a.data(), w.data(), e.data());
            break;
        case 2:
            level1::update(rows, columns, first, ld, h.data(), a.data());
            break;
        case 3:
            level1::dot(rows, columns, first, ld, h.data(), d.data());
            break;
        case 4:
            level1::sum(rows, columns, first, ld, w.data(), e.data());
            break;
        default:
            for (Index j = 0; j < columns; ++j)
                level1::scale(rows, a[static_cast<std::size_t>(j)], first + j * ld);
        }
        ASSERT_TRUE(same_bits(y.data(), y0.data(), y.size()) && same_bits(w.data(), w0.data(), w.size()) &&
                    same_bits(d.data(), d0.data(), d.size()))
            << "task " << task << ", turn " << turn << ", vectors " << width;
    }
}

TEST(SvdBits, KernelsEqualPlainLoops)
{
    Random random(23);
    for_each_width([&](int width) {
        expect_plain_kernels<Real>(random, width);
        expect_plain_kernels<Complex>(random, width);
    });
}

/// Sweeps with ragged starts and ends, over all row counts, against single rotations: with so few columns that none is
/// deferred, with space for two batches, for one, and for none.
TEST(SvdBits, SweepsEqualSingleRotations)
{
    Random random(8);
    for_each_width([&](int width) {
        for (int turn = 0; turn < 200; ++turn) {
            const Index rows = 1 + random.below(60);
            const Index columns = turn % 50 == 0 ? 4200 : 2 + random.below(turn % 3 == 0 ? 1500 : 150);
            TestMatrix a(rows, columns, random.below(5));
            TestMatrix b = a.fill_random(random);
            RotationQueue queue({{reinterpret_cast<Real*>(a.data()), Index{2} * a.ld()}, 2 * rows}, columns);
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
