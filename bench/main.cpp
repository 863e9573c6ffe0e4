/// tessel_bench [--vectors=avx512|avx2|baseline] [--peers=NAME,...] [--library=PATH] [--seconds=S] [--rounds=R] and the
/// options of Google Benchmark.
///
/// --vectors  width of the own kernels, no wider than the machine's; the variable OPENBLAS_CORETYPE chooses those of
///            the BLAS (Haswell, SkylakeX, ...), of the library and of the peers
/// --peers    more sets of BLAS kernels that the peers may use: they take the fastest, found in a short trial
/// --library  the built library, or libtessel_avx2.so, whose slots are compared; without it they are left out
/// --seconds  processor time for each benchmark; --rounds  fewest rounds, which wins

#include "bench/interleave.h"
#include "bench/stock.h"
#include "bench/suites.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

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

/// Of the sets of kernels named, the one with which a stock ZGESVD is fastest; they take turns.
std::string fastest_peers(const std::vector<std::string>& kernels)
{
    constexpr int kRounds = 15;
    std::vector<std::vector<double>> seconds(kernels.size());
    for (int round = 0; round < kRounds; ++round)
        for (std::size_t i = 0; i < kernels.size(); ++i) {
            bench::stock().use_kernels(kernels[i].c_str());
            seconds[i].push_back(bench::time_of_stock_zgesvd());
        }
    std::size_t best = 0;
    for (std::size_t i = 1; i < kernels.size(); ++i)
        if (bench::median(seconds[i]) < bench::median(seconds[best]))
            best = i;
    bench::stock().use_kernels(kernels[best].c_str());
    return kernels[best];
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
    const std::string chosen = bench::stock().kernels();
    std::vector<std::string> peers{chosen};
    std::string library;
    for (int i = 1; i < argc; ++i) {
        if (const char* vectors = value_of("--vectors=", argv[i]))
            width = width_named(vectors);
        else if (const char* names = value_of("--peers=", argv[i])) {
            std::istringstream list(names);
            for (std::string name; std::getline(list, name, ',');)
                peers.push_back(name);
        } else if (const char* path = value_of("--library=", argv[i]))
            library = path;
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
    benchmark::AddCustomContext("peers_kernels", fastest_peers(peers));

    bench::add_svd_benchmarks(width);
    bench::add_zeros_benchmarks();
    bench::add_fit_benchmarks();
    if (!library.empty())
        bench::add_slots_benchmarks(library, chosen);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
