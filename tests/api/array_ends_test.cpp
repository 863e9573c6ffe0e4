// The solvers stay inside their arrays with every set of BLAS kernels that this processor can run: arrays begin behind
// an inaccessible page or end before one, and reading one element too far ends the program.
#include "common/fortran.h"
#include "tests/support/guarded.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <strings.h>

extern "C" char* openblas_get_corename();

namespace tessel::testing {
namespace {

/// The arrays of one call, all at the same side.
struct Arrays
{
    static constexpr std::size_t most = 1 << 16; ///< real elements

    bool at_begin;
    Guarded<Real> block[6]{Guarded<Real>(most), Guarded<Real>(most), Guarded<Real>(most),
                           Guarded<Real>(most), Guarded<Real>(most), Guarded<Real>(most)};

    template <class T>
    T* take(int which, Index count) const
    {
        const auto size = static_cast<std::size_t>(count) * sizeof(T) / sizeof(Real);
        return reinterpret_cast<T*>(at_begin ? block[which].first() : block[which].last(size));
    }
    template <class T>
    T* draw(int which, Index count, Random& random) const
    {
        T* const array = take<T>(which, count);
        std::generate_n(reinterpret_cast<Real*>(array), static_cast<std::size_t>(count) * sizeof(T) / sizeof(Real),
                        [&random] { return random.uniform(-1.0, 1.0); });
        return array;
    }
};

/// The element of a BLAS vector.
Complex& at(Complex* x, Integer length, Integer stride, Integer k)
{
    return x[stride > 0 ? Index{k} * stride : Index{k + 1 - length} * stride];
}

/// Whether the set is in use that the environment asks for, if it asks for one.
bool runs_as_asked()
{
    const char* const asked = std::getenv("OPENBLAS_CORETYPE");
    return asked == nullptr || strcasecmp(asked, openblas_get_corename()) == 0;
}

void multiply_and_compare(const Arrays& arrays, char trans, Integer m, Integer n, Integer incx, Integer incy,
                          Complex beta)
{
    Random random(static_cast<std::uint64_t>(m * 1000 + n));
    const Integer lda = m + n % 3, inputs = trans == 'N' ? n : m, outputs = trans == 'N' ? m : n;
    const Complex alpha(1.5, -0.5);
    Complex* const a = arrays.draw<Complex>(0, Index{lda} * (n - 1) + m, random);
    Complex* const x = arrays.draw<Complex>(1, Index{inputs - 1} * std::abs(incx) + 1, random);
    Complex* const y = arrays.draw<Complex>(2, Index{outputs - 1} * std::abs(incy) + 1, random);
    std::vector<Complex> expected;
    for (Integer i = 0; i < outputs; ++i) {
        Complex sum = beta == 0.0 ? 0.0 : beta * at(y, outputs, incy, i);
        for (Integer j = 0; j < inputs; ++j) {
            const Complex element = trans == 'N' ? a[i + Index{j} * lda] : a[j + Index{i} * lda];
            sum += alpha * (trans == 'C' ? std::conj(element) : element) * at(x, inputs, incx, j);
        }
        expected.push_back(sum);
        if (beta == 0.0) // y is not read
            at(y, outputs, incy, i) = NAN;
    }
    fortran::zgemv_(&trans, &m, &n, &alpha, a, &lda, x, &incx, &beta, y, &incy, 1);
    Real worst = 0.0;
    for (Integer i = 0; i < outputs; ++i) {
        const Real error = std::abs(at(y, outputs, incy, i) - expected[static_cast<std::size_t>(i)]);
        worst = error <= worst ? worst : error; // a NaN is kept
    }
    EXPECT_LE(worst, 20.0 * (inputs + 1) * std::numeric_limits<Real>::epsilon())
        << trans << ' ' << m << 'x' << n << ", strides " << incx << ' ' << incy;
}

/// One decomposition; returns INFO.
template <class T>
Integer decompose(const Arrays& arrays, const char* jobs, Integer m, Integer n)
{
    Random random(1);
    const Integer p = std::min(m, n), columns = jobs[0] == 'A' ? m : p, ldvt = jobs[1] == 'A' ? n : p,
                  lwork = 200 * std::max(m, n);
    T *const a = arrays.draw<T>(0, Index{m} * n, random), *const u = arrays.take<T>(1, Index{m} * columns),
             *const vt = arrays.take<T>(2, Index{ldvt} * n), *const work = arrays.take<T>(3, lwork);
    Real *const s = arrays.take<Real>(4, p), *const rwork = arrays.take<Real>(5, Index{5} * p);
    Integer info = 77;
    if constexpr (std::is_same_v<T, Complex>)
        fortran::zgesvd_(jobs, jobs + 1, &m, &n, a, &m, s, u, &m, vt, &ldvt, work, &lwork, rwork, &info, 1, 1);
    else
        fortran::dgesvd_(jobs, jobs + 1, &m, &n, a, &m, s, u, &m, vt, &ldvt, work, &lwork, &info, 1, 1);
    return info;
}

class ArrayEnds : public ::testing::TestWithParam<bool>
{
protected:
    Arrays arrays{GetParam()};
};

// The lengths cover every remainder of the kernels' blocks; 256 and more elements of x need more than one call.
TEST_P(ArrayEnds, AreKeptByProductsOfAMatrixAndAVector)
{
    ASSERT_TRUE(runs_as_asked());
    for (const char trans : {'N', 'T', 'C'})
        for (const Integer m : {1, 2, 3, 4, 5, 6, 7, 8, 10, 18, 66})
            for (const Integer n : {1, 2, 3, 4, 5, 7, 8, 13, 255, 256, 257, 301})
                for (const Integer incx : {1, 3, -1, -2})
                    for (const Integer incy : {1, -2})
                        multiply_and_compare(arrays, trans, m, n, incx, incy,
                                             (m + n) % 2 == 0 ? 0.0 : Complex(0.5, 1.0));
}

TEST_P(ArrayEnds, AreKeptByTheSolversOfTheInterface)
{
    ASSERT_TRUE(runs_as_asked());
    for (const Integer k : {1, 2, 3, 6, 7, 18, 31, 33, 66})
        for (const auto& [m, n] : {std::pair{k, k}, {k, k / 3 + 1}, {k / 3 + 1, k}})
            for (const char* const jobs : {"AA", "SS", "OS", "SO", "NN"}) {
                EXPECT_EQ(decompose<Complex>(arrays, jobs, m, n), 0);
                EXPECT_EQ(decompose<Real>(arrays, jobs, m, n), 0);
            }
    for (Integer n = 1; n <= 150; ++n)
        for (const Integer sides : {1, 2, 3}) {
            Random random(static_cast<std::uint64_t>(n));
            Integer pivots[150], info = 77;
            fortran::zgesv_(&n, &sides, arrays.draw<Complex>(0, Index{n} * n, random), &n, pivots,
                            arrays.draw<Complex>(1, Index{n} * sides, random), &n, &info);
            EXPECT_EQ(info, 0);
        }
}

INSTANTIATE_TEST_SUITE_P(Side, ArrayEnds, ::testing::Bool(),
                         [](const auto& side) { return side.param ? "Begin" : "End"; });

/// A set of kernels, and whether this processor can run it: one of each generation in the archive, and all from AVX on.
struct KernelSet
{
    const char* name;
    bool runs;

    friend void PrintTo(const KernelSet& set, std::ostream* out) { *out << set.name; }
};
const KernelSet kKernelSets[] = {
    {"Prescott", true},
    {"Nehalem", __builtin_cpu_supports("sse4.2") != 0},
    {"Barcelona", true},
    {"Bulldozer", __builtin_cpu_supports("fma4") != 0 && __builtin_cpu_supports("avx") != 0},
    {"Sandybridge", __builtin_cpu_supports("avx") != 0},
    {"Haswell", __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("fma") != 0},
    {"Zen", __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("fma") != 0},
    {"SkylakeX", __builtin_cpu_supports("avx512vl") != 0 && __builtin_cpu_supports("avx512dq") != 0},
    {"Cooperlake", __builtin_cpu_supports("avx512bf16") != 0},
};

class KernelSets : public ::testing::TestWithParam<KernelSet>
{};

// OpenBLAS chooses when it is loaded, so each set has a process of its own.
TEST_P(KernelSets, KeepInsideTheArrays)
{
    if (!GetParam().runs)
        GTEST_SKIP() << "not for this processor";
    const std::string program = std::filesystem::read_symlink("/proc/self/exe");
    EXPECT_EQ(std::system(("OPENBLAS_CORETYPE=" + std::string(GetParam().name) + " '" + program +
                           "' --gtest_brief=1 --gtest_filter='Side/*'")
                              .c_str()),
              0);
}

INSTANTIATE_TEST_SUITE_P(All, KernelSets, ::testing::ValuesIn(kKernelSets),
                         [](const auto& set) { return set.param.name; });

} // namespace
} // namespace tessel::testing
