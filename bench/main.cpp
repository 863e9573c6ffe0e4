/// tessel_bench [--vectors=avx512|avx2|baseline] [--seconds=S] [--rounds=R] and the options of Google Benchmark.
///
/// --vectors  width of the own kernels, no wider than the machine's; the variable OPENBLAS_CORETYPE chooses those of
///            the BLAS (Haswell, SkylakeX, ...)
/// --seconds  processor time for each benchmark; --rounds  fewest rounds, which wins

#include "bench/interleave.h"
#include "bench/suites.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <string_view>

extern "C" char* openblas_get_corename();

using namespace tessel;

namespace {

constexpr const char* kWidthNames[] = {"baseline", "avx2", "avx512"}; // in the order of VectorWidth

VectorWidth width_named(std::string_view name)
{
    const auto* const found = std::find(std::begin(kWidthNames), std::end(kWidthNames), name);
    if (found == std::end(kWidthNames)) {
        std::fprintf(stderr, "--vectors is one of baseline, avx2, avx512\n");
        std::exit(EXIT_FAILURE);
    }
    return std::min(static_cast<VectorWidth>(found - std::begin(kWidthNames)), widest_vectors());
}

/// The text behind `option` if the argument starts with it, nullptr otherwise.
const char* value_of(std::string_view option, const char* argument)
{
    return std::string_view(argument).substr(0, option.size()) == option ? argument + option.size() : nullptr;
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    VectorWidth width = widest_vectors();
    for (int i = 1; i < argc; ++i) {
        if (const char* vectors = value_of("--vectors=", argv[i]))
            width = width_named(vectors);
        else if (const char* seconds = value_of("--seconds=", argv[i]))
            bench::effort().seconds = std::atof(seconds);
        else if (const char* rounds = value_of("--rounds=", argv[i]))
            bench::effort().fewest_rounds = std::max(1, std::atoi(rounds));
        else {
            std::fprintf(stderr, "unknown option: %s\n", argv[i]);
            return EXIT_FAILURE;
        }
    }
    use_vectors(width);
    benchmark::AddCustomContext("vectors", kWidthNames[static_cast<int>(width)]);
    benchmark::AddCustomContext("widest_vectors", kWidthNames[static_cast<int>(widest_vectors())]);
    benchmark::AddCustomContext("blas_kernels", openblas_get_corename());

    bench::add_svd_benchmarks(width);
    bench::add_zeros_benchmarks();
    bench::add_fit_benchmarks();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
