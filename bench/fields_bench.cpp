// Stages of tessel-fields with their times, as JSON: fields_bench FILE DATASET OUTPUT THREADS MEMORY, the last in MB.
// Reading, work file and output are the command's; the same source with MPI is fields_bench_mpi, under mpirun.
#include "fields/fields.h"
#include "fields/io/field_file.h"
#include "fields/io/output.h"
#include "fields/io/work_file.h"
#include "fields/processes.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

using namespace tessel;

namespace {

double now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// The most memory that this program has had so far [MB]. That of getrusage() may be its parent's.
double most_resident()
{
    std::ifstream status("/proc/self/status");
    double kilobytes = 0;
    for (std::string word; status >> word;)
        if (word == "VmHWM:")
            status >> kilobytes;
    return kilobytes * 1024 / 1e6;
}

/// A work file that notes when each pass begins and puts its last block.
class TimedStore : public fields::Store
{
public:
    TimedStore(fields::WorkFile& file, fields::Team& team) : file_(file), team_(team) {}

    std::optional<std::string> text(const std::string& name) override { return file_.text(name); }
    void keep(const std::string& name, const std::string& text) override { file_.keep(name, text); }
    void begin(const std::string& pass, std::size_t doubles) override
    {
        file_.begin(pass, doubles);
        team_.any(false); // all begin together
        const double time = now();
        passes.emplace_back(time, time);
    }
    bool has(std::size_t block) override { return file_.has(block); }
    void put(std::size_t block, const double* values, std::size_t count) override
    {
        file_.put(block, values, count);
        passes.back().second = now();
    }
    void get(std::size_t block, double* values, std::size_t count) override { file_.get(block, values, count); }

    std::vector<std::pair<double, double>> passes;

private:
    fields::WorkFile& file_;
    fields::Team& team_;
};

void run(char** words, fields::Team& team)
{
    const std::string path = words[1], output = words[3];
    fields::FieldFile file({path, words[2], {}, {}, {}});
    fields::Options how;
    how.threads = static_cast<unsigned>(std::atoi(words[4]));
    const auto memory = static_cast<std::size_t>(std::atol(words[5])) << 20; // shared out as the command does
    how.memory = memory - memory / 4;

    double poles = 0, begun = 0;
    how.progress = [&](const fields::Progress& progress) {
        if (poles == 0 && progress.stage == std::string("poles"))
            poles = now();
        return true;
    };
    fields::WorkFile work(output + ".work", "fields_bench", file.shape().points(), false, team);
    TimedStore store(work, team);
    fields::Output out(output, file.shape(), {}, team, memory / 8, [] { return false; });
    const double start = now();
    const fields::Outcome outcome = fields::analyse(
        file, team, store, how,
        [&](const fields::Outcome& result) {
            begun = now();
            out.begin(result, {});
        },
        [&](const fields::Profiles& profiles) { out.add(profiles); });
    const double made = now();
    out.finish();
    const double end = now();
    work.remove();

    if (store.passes.empty())
        throw fields::Error("nothing rings in this field");
    // A pass ends with the last rank's.
    std::vector<double> passes;
    for (const auto& [from, to] : store.passes) {
        std::vector<__float128> each(static_cast<std::size_t>(team.size()), 0);
        each[static_cast<std::size_t>(team.rank())] = to - from;
        team.sum(each.data(), each.size());
        passes.push_back(0);
        for (const __float128 time : each)
            passes.back() = std::max(passes.back(), static_cast<double>(time));
    }
    if (team.rank() != 0)
        return;
    std::printf("{\"modes\": %zu, \"decimation\": %zu, \"samples\": %.4f, \"poles\": %.4f, \"passes\": [",
                outcome.modes.size(), outcome.decimation, poles - start, store.passes.front().first - poles);
    for (std::size_t k = 0; k < passes.size(); ++k)
        std::printf("%s%.4f", k > 0 ? ", " : "", passes[k]);
    std::printf("], \"peaks\": %.4f, \"profiles\": %.4f, \"finish\": %.4f, \"total\": %.4f, \"resident\": %.1f}\n",
                begun - store.passes.back().second, made - begun, end - made, end - start, most_resident());
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 6) {
        std::fprintf(stderr, "fields_bench FILE DATASET OUTPUT THREADS MEMORY\n");
        return 2;
    }
    fields::Processes processes(argc, argv);
    try {
        run(argv, processes.team());
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "fields_bench: %s\n", error.what());
        fields::end_all(1);
    }
}
