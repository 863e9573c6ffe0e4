// The tables of docs/guide-process.md: a host that loads the library and looks at what that does to its process.
// Usage: process LIBRARY. Each table is headed by a line "## name".
#include <tessel/Loader.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

using Complex = std::complex<double>;

/// MiB of the process, as the kernel counts them.
struct Memory
{
    double space = 0.0, resident = 0.0, peak = 0.0;

    static Memory now()
    {
        Memory memory;
        std::ifstream file("/proc/self/status");
        for (std::string line; std::getline(file, line);) {
            std::sscanf(line.c_str(), "VmSize: %lf", &memory.space);
            std::sscanf(line.c_str(), "VmRSS: %lf", &memory.resident);
            std::sscanf(line.c_str(), "VmHWM: %lf", &memory.peak);
        }
        for (double* value : {&memory.space, &memory.resident, &memory.peak})
            *value /= 1024;
        return memory;
    }
};

/// Damped cosines, as a host's record; scaled.
std::vector<Complex> record(int n, double scale)
{
    std::vector<Complex> y;
    for (int k = 0; k < n; ++k)
        y.push_back(scale * (std::exp(-0.01 * k) * std::cos(0.7 * k) + 0.5 * std::exp(-0.02 * k) * std::cos(1.9 * k)));
    return y;
}

struct Outcome
{
    std::string message;
    double l2 = 0.0;
    std::vector<Complex> poles;
};

Outcome fit(const tessel::Library& library, const std::vector<Complex>& y, int m, int ndim, int mmax, double dt = 1.0)
{
    const int n = static_cast<int>(y.size());
    std::vector<Complex> residues(static_cast<std::size_t>(m));
    Outcome outcome;
    outcome.poles.resize(static_cast<std::size_t>(m));
    double other[4];
    int flag = 0;
    char message[80];
    library.fit(&n, &ndim, y.data(), &dt, &m, &mmax, residues.data(), outcome.poles.data(), &outcome.l2, &other[0],
                &other[1], &other[2], &other[3], &flag, message, sizeof message);
    if (flag != 0)
        outcome.message.assign(message, sizeof message).erase(outcome.message.find_last_not_of(' ') + 1);
    return outcome;
}

/// One eigen-solve of the second difference of order 100, one call at a time, for its four largest eigenvalues.
class EigenSolve
{
public:
    EigenSolve(FDTDCalcAPI& api, bool own_start) : api_(api), info_(own_start ? 1 : 0)
    {
        for (std::size_t i = 0; i < resid_.size(); ++i)
            resid_[i] = 1.0 + static_cast<double>(i * 7 % 11); // no symmetry that would hide a mode
    }

    /// Makes one call of DNAUPD and does what it asks for; false when it is done.
    bool step()
    {
        api_.dnaupd(&ido_, "I", 1, &n_, "LM", 2, &nev_, &tol_, resid_.data(), &ncv_, v_.data(), &n_, iparam_, ipntr_,
                    workd_.data(), workl_.data(), &lworkl_, &info_);
        if (ido_ == 99)
            return false;
        const double* x = workd_.data() + ipntr_[0] - 1;
        double* y = workd_.data() + ipntr_[1] - 1;
        for (int i = 0; i < n_; ++i)
            y[i] = 2.0 * x[i] - (i > 0 ? x[i - 1] : 0.0) - (i + 1 < n_ ? x[i + 1] : 0.0);
        return true;
    }

    /// The eigenvalue of largest modulus.
    double finish()
    {
        const int vectors = 0;
        const double zero = 0.0;
        std::vector<int> select(20);
        std::vector<double> real(5), imaginary(5), work(60);
        api_.dneupd(&vectors, "A", 1, select.data(), real.data(), imaginary.data(), v_.data(), &n_, &zero, &zero,
                    work.data(), "I", 1, &n_, "LM", 2, &nev_, &tol_, resid_.data(), &ncv_, v_.data(), &n_, iparam_,
                    ipntr_, workd_.data(), workl_.data(), &lworkl_, &info_);
        double largest = 0.0;
        for (int j = 0; j < nev_; ++j)
            largest = std::max(largest,
                               std::hypot(real[static_cast<std::size_t>(j)], imaginary[static_cast<std::size_t>(j)]));
        return largest;
    }
    double solve()
    {
        while (step())
            ;
        return finish();
    }
    int info() const { return info_; }
    /// Whether anything was written behind the NCV columns of V. Twice the room is there, so that the program survives.
    bool wrote_beyond() const
    {
        return std::any_of(v_.begin() + kColumns * 100, v_.end(), [](double x) { return x != 0.0; });
    }

private:
    static constexpr int kColumns = 20;
    FDTDCalcAPI& api_;
    int info_, ido_ = 0;
    const int n_ = 100, nev_ = 4, ncv_ = kColumns, lworkl_ = 3 * kColumns * kColumns + 6 * kColumns;
    double tol_ = 0.0;
    int iparam_[11] = {1, 0, 300, 1, 0, 0, 1}, ipntr_[14] = {};
    std::vector<double> resid_ = std::vector<double>(100), v_ = std::vector<double>(2 * kColumns * 100),
                        workd_ = std::vector<double>(300), workl_ = std::vector<double>(1320);
};

void memory_table(const std::string& path)
{
    struct stat file = {};
    stat(path.c_str(), &file);
    const Memory before = Memory::now();
    const auto line = [before](const char* what) {
        const Memory now = Memory::now();
        std::printf("| %s | %.0f | %.0f | %.0f |\n", what, now.space - before.space, now.resident - before.resident,
                    now.peak - before.peak);
    };
    std::printf("## memory\n| after | address space | resident | most so far |\n|---|---|---|---|\n");
    {
        const tessel::Library library(path);
        line("loading");
        {
            const tessel::Api api = library.create();
            const int n = 300, one = 1;
            std::mt19937_64 random;
            std::normal_distribution<double> normal;
            std::vector<Complex> a(90000), b(300);
            for (Complex& value : a)
                value = normal(random);
            std::vector<int> pivots(300);
            int info = 0;
            api->zgesv(&n, &one, a.data(), &n, pivots.data(), b.data(), &n, &info);
        }
        line("a ZGESV of order 300");
        fit(library, record(800, 1.0), 200, 800, 200);
        line("a fit, N = 800, M = 200");
        fit(library, record(800, 1.0), 200, 80000, 20000);
        line("the same with NDIM = 80000, MMAX = 20000");
    }
    line("unloading");
    std::printf("\n## file\nThe file has %.0f MiB.\n", static_cast<double>(file.st_size) / (1 << 20));
}

void eigenvalue_table(FDTDCalcAPI& api)
{
    const double exact = 2.0 + 2.0 * std::cos(std::acos(-1.0) / 101);
    std::printf("\n## eigenvalues\n| | INFO | largest eigenvalue | error | writes behind V |\n|---|---|---|---|---|\n");
    const auto line = [exact](const char* what, EigenSolve& solve, double value) {
        std::printf("| %s | %d | %.17g | %.0e | %s |\n", what, solve.info(), value, std::abs(value - exact),
                    solve.wrote_beyond() ? "yes" : "no");
    };
    for (const char* what : {"random start vector, first solve", "random start vector, second solve"}) {
        EigenSolve solve(api, false);
        line(what, solve, solve.solve());
    }
    for (const char* what : {"start vector of the host, first solve", "start vector of the host, second solve"}) {
        EigenSolve solve(api, true);
        line(what, solve, solve.solve());
    }
    EigenSolve first(api, true), second(api, true);
    bool first_runs = true, second_runs = true;
    for (int k = 0; k < 100000 && (first_runs || second_runs); ++k) {
        first_runs = first_runs && first.step();
        second_runs = second_runs && second.step();
    }
    line("two solves, call by call in turn: the first", first, first.finish());
    line("two solves, call by call in turn: the second", second, second.finish());
}

void limits_table(const tessel::Library& library)
{
    const auto text = [](const Outcome& outcome) {
        char value[32];
        std::snprintf(value, sizeof value, "ERR_L2 = %.0e", outcome.l2);
        return outcome.message.empty() ? std::string(value) : outcome.message;
    };
    std::printf("\n## magnitudes\n| samples of magnitude | outcome |\n|---|---|\n");
    for (const double scale : {1e-200, 1e-150, 1e-140, 1e-130, 1.0, 1e140, 1e150, 1e155, 1e200})
        std::printf("| %.0e | %s |\n", scale, text(fit(library, record(60, scale), 8, 60, 8)).c_str());
    std::printf("\n## storage\n| NDIM, MMAX | outcome |\n|---|---|\n");
    for (const int size : {60, 6000, 60000000})
        std::printf("| %d, %d | %s |\n", size, size, text(fit(library, record(60, 1.0), 8, size, size)).c_str());
}

} // namespace

int main(int, char** argv)
{
    memory_table(argv[1]);
    const tessel::Library library(argv[1]);
    eigenvalue_table(*library.create());
    limits_table(library);

    std::printf("\n## report\n    ");
    std::fflush(stdout);
    const int minus = -1, one = 1;
    Complex a, u, v, work[4];
    double s, rwork[5];
    int info = 0;
    library.create()->zgesvd("S", "S", &minus, &one, &a, &one, &s, &u, &one, &v, &one, work, &one, rwork, &info, 1, 1);
}
