// The slots without state, on several threads at once: the results are those of a serial run, bit for bit.
#include "tests/support/lapack.h"
#include "tests/support/library.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>

namespace tessel::testing {
namespace {

void broyden(const Integer* n, const Real* x, Real* fvec, Real* fjac, const Integer* ldfjac, Integer* iflag)
{
    for (Integer k = 0; k < *n; ++k) {
        const Real before = k > 0 ? x[k - 1] : 0.0, behind = k + 1 < *n ? x[k + 1] : 0.0;
        if (*iflag == 1) {
            fvec[k] = (3.0 - 2.0 * x[k]) * x[k] - before - 2.0 * behind + 1.0;
            continue;
        }
        for (Integer j = 0; j < *n; ++j)
            fjac[k + j * *ldfjac] = j == k ? 3.0 - 4.0 * x[k] : j == k - 1 ? -1.0 : j == k + 1 ? -2.0 : 0.0;
    }
}

/// The calls that one thread makes again and again, on data of its own. `run` gives all that came out.
class Calls
{
public:
    Calls(Integer order, std::uint64_t seed) : n(order), size(static_cast<std::size_t>(n))
    {
        Random random(seed);
        matrix = random.complexes(size * size);
        for (const Complex& value : matrix)
            real_matrix.push_back(value.real());
        start.assign(size, -1.0 - random.uniform(0.0, 0.1));
        u.resize(size * size);
        vt = u;
        work.resize(70 * size);
        real_u.resize(size * size);
        real_vt = real_u;
        real_work.resize(70 * size);
        rwork.resize(5 * size);
        pivots.resize(size);
        wa.resize(size * (size + 13) / 2);
    }

    /// All five slots, or ZGESV alone: the call that spends the largest part of its time on its work buffer.
    std::vector<Real> run(FDTDCalcAPI& api, bool all)
    {
        std::vector<Real> results;
        const auto keep = [&results](const auto& values) {
            const auto* const first = reinterpret_cast<const Real*>(values.data());
            results.insert(results.end(), first, first + values.size() * sizeof(values[0]) / sizeof(Real));
        };
        const auto expect = [&results](Integer found, Integer wanted) {
            EXPECT_EQ(found, wanted);
            results.push_back(found);
        };
        const Integer one = 1;
        Integer info = 77;
        std::vector<Complex> a = matrix, b(matrix.begin(), matrix.begin() + n);
        api.zgesv(&n, &one, a.data(), &n, pivots.data(), b.data(), &n, &info);
        expect(info, 0);
        keep(a);
        keep(b);
        if (!all)
            return results;
        a = matrix;
        std::vector<Real> s(size);
        gesvd(api, 'S', 'S', n, n, a.data(), n, s.data(), u.data(), n, vt.data(), n, work.data(), 70 * n, rwork.data(),
              info);
        expect(info, 0);
        keep(s);
        keep(u);
        std::vector<Real> real = real_matrix;
        gesvd(api, 'S', 'S', n, n, real.data(), n, s.data(), real_u.data(), n, real_vt.data(), n, real_work.data(),
              70 * n, rwork.data(), info);
        expect(info, 0);
        keep(s);
        keep(real_vt);
        std::vector<Real> x = start, f(size), jacobian(size * size);
        const Integer lwa = static_cast<Integer>(wa.size());
        const Real tol = 1e-10;
        api.hybrj1(broyden, &n, x.data(), f.data(), jacobian.data(), &n, &tol, &info, wa.data(), &lwa);
        expect(info, 1);
        keep(x);
        keep(jacobian);
        const Integer order = 3;
        std::vector<Complex> residues(3), poles(3);
        std::vector<Real> errors(5);
        api.leastsqPronySvd(&n, &n, matrix.data(), &tol, &order, &order, residues.data(), poles.data(), &errors[0],
                            &errors[1], &errors[2], &errors[3], &errors[4], &info, nullptr, 0);
        expect(info, 0);
        keep(residues);
        keep(poles);
        keep(errors);
        return results;
    }

private:
    Integer n;
    std::size_t size;
    std::vector<Complex> matrix, u, vt, work;
    std::vector<Real> real_matrix, start, real_u, real_vt, real_work, rwork, wa;
    std::vector<Integer> pivots;
};

/// Makes `rounds` rounds of calls on each thread, and counts those whose results differ from the serial ones.
int wrong_rounds(bool all, Integer order, int threads, int rounds)
{
    const Library library;
    const std::unique_ptr<FDTDCalcAPI> api = library.create();
    std::atomic<int> wrong = 0, ready = 0;
    std::vector<std::thread> workers;
    workers.reserve(static_cast<std::size_t>(threads));
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&, t] {
            Calls calls(order, static_cast<std::uint64_t>(t) + 1);
            static std::atomic_flag serial;
            while (serial.test_and_set())
                std::this_thread::yield();
            const std::vector<Real> expected = calls.run(*api, all);
            serial.clear();
            for (++ready; ready < threads;)
                std::this_thread::yield();
            for (int round = 0; round < rounds; ++round) {
                const std::vector<Real> results = calls.run(*api, all);
                wrong += results.size() != expected.size() ||
                         std::memcmp(results.data(), expected.data(), results.size() * sizeof(Real)) != 0;
            }
        });
    for (std::thread& worker : workers)
        worker.join();
    return wrong;
}

// 4 (20000 + 5 (1200 + 300 + 60)) calls: more than 100,000 in all.
TEST(Concurrency, ResultsAreThoseOfASerialRunBitForBit)
{
    EXPECT_EQ(wrong_rounds(false, 10, 4, 20000), 0);
    EXPECT_EQ(wrong_rounds(true, 8, 4, 1200), 0);
    EXPECT_EQ(wrong_rounds(true, 20, 4, 300), 0);
    EXPECT_EQ(wrong_rounds(true, 60, 4, 60), 0);
}

} // namespace
} // namespace tessel::testing
