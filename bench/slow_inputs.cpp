// How long the fit and the zero finder take for values of any kind: slow_inputs [COUNT], 100000 of each by default.
// Prints, for each size, the longest time as a multiple of the median time of ordinary values, and the seed of the
// call. No call may run without end.
#include "prony/czero.h"
#include "prony/leastsq_prony_svd.h"
#include "tests/support/extreme_values.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <time.h>

namespace {

using namespace tessel;
using namespace tessel::testing;

double thread_seconds()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

using Values = std::vector<Complex>;

/// A call of the given size on values; `count(size)` of them are drawn.
struct Subject
{
    const char* name;
    Integer size;
    Integer count;
    Integer (*call)(Integer size, const Values& values);

    double time(const Values& values, Integer& flag) const
    {
        const double start = thread_seconds();
        flag = call(size, values);
        return thread_seconds() - start;
    }
};

Integer fit(Integer m, const Values& y)
{
    const auto n = static_cast<Integer>(y.size());
    const Real dt = 1.0;
    Values residue(static_cast<std::size_t>(m)), pole(residue);
    Real measure[5];
    Integer flag = 77;
    LEASTSQ_PRONY_SVD(&n, &n, y.data(), &dt, &m, &m, residue.data(), pole.data(), &measure[0], &measure[1], &measure[2],
                      &measure[3], &measure[4], &flag, nullptr, 0);
    return flag;
}

Integer find_zeros(Integer n, const Values& p)
{
    Values z(p.size());
    Complex w;
    Integer flag = 77;
    NAPACK_CZERO(z.data(), p.data(), n, &w, flag, nullptr, 0);
    return flag;
}

const Subject kSubjects[] = {{"fit", 4, 16, fit},
                             {"fit", 12, 36, fit},
                             {"fit", 32, 80, fit},
                             {"polynomial", 8, 8, find_zeros},
                             {"polynomial", 24, 24, find_zeros},
                             {"polynomial", 60, 60, find_zeros}};
constexpr int kSizes = 3; // of each kind

void report(const Subject& subject, int calls)
{
    Integer flag = 0;
    const auto count = static_cast<std::size_t>(subject.count);
    std::vector<double> ordinary;
    for (std::uint64_t seed = 0; seed < 301; ++seed) {
        Random random(seed);
        ordinary.push_back(subject.time(random.complexes(count), flag));
    }
    std::nth_element(ordinary.begin(), ordinary.begin() + 150, ordinary.end());
    const double median = ordinary[150];

    double worst = 0.0;
    std::uint64_t worst_seed = 0;
    int failures = 0;
    for (int i = 0; i < calls; ++i) {
        const auto seed = static_cast<std::uint64_t>(i);
        Random random(seed);
        const std::vector<Complex> values = extreme_complexes(random, count);
        double seconds = subject.time(values, flag);
        failures += flag != 0;
        for (int again = 0; again < 3 && seconds > worst; ++again) // a call is as slow as its fastest run
            seconds = std::min(seconds, subject.time(values, flag));
        if (seconds > worst) {
            worst = seconds;
            worst_seed = seed;
        }
    }
    std::printf("%-11s %5d %9d %8d %12.2f %10.1f %8llu\n", subject.name, subject.size, calls, failures, 1e6 * median,
                worst / median, static_cast<unsigned long long>(worst_seed));
}

} // namespace

int main(int argc, char** argv)
{
    const int calls = argc > 1 ? std::atoi(argv[1]) : 100000;
    std::printf("%-11s %5s %9s %8s %12s %10s %8s\n", "", "size", "calls", "failed", "median / us", "worst", "seed");
    for (const Subject& subject : kSubjects)
        report(subject, calls / kSizes);
    return 0;
}
