// Simulates a cavity, passes the raw record of its probe to the library of modes, and finds the same modes without the
// record with the solvers of the other library; compares all with the exact modes, and draws.

#include "examples/resonator/analysis.h"
#include "examples/resonator/files.h"
#include "examples/resonator/output.h"
#include "examples/resonator/report.h"

#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <string_view>

using namespace resonator;

namespace {

constexpr char kHelp[] = R"(Usage: resonator [--output PREFIX]

Simulates a microwave cavity (two-dimensional FDTD, a pulse at one node, a probe at
another) and finds its modes by three methods:
  record      the whole record of the probe, pulse included, given to the library of
              modes (tessel::modes::analyse) with nothing chosen
  ARPACK      eigenvalues of the sparse operator that makes one time step, shifted
              into the band and inverted
  HYBRJ1      zeros of the dispersion relation of the lossy grid
Tables set them beside the modes that the simulation really has, which are known in
closed form; errors from the record are also given in units of their standard
errors. Amplitudes are those of a cosine, A exp(-g t) cos(2 pi f t + phase), with t
counted from the first sample used.

Two checks use the record in another way:
  singular values of its Hankel matrix (DGESVD): above the noise there are two for
              each mode
  response    to a steady drive at each frequency, of a linear system realised from
              the same matrix (ZGESV), beside the exact one

Exit status 0 if all modes above 1e-6 of the strongest are found and no others so
strong; from the record with frequency and its standard error within 1e-8, those of
Q within 1e-4, and frequency, Q, amplitude and phase within 4 standard errors; by
ARPACK and HYBRJ1 within 1e-11 and 1e-8; and if the two checks agree (response
within 1e-6). 1 if not; 2 if something hinders.

  --output PREFIX   write PREFIX-record.dat (record, model, error), PREFIX-modes.dat,
                    PREFIX-singular.dat, PREFIX-response.dat and, if gnuplot is
                    there, PREFIX.png and PREFIX-response.png
  --help            print this
)";

Subject simulate_cavity()
{
    Subject subject;
    subject.record = simulate(subject.cavity, [&](Index step, const std::vector<double>&) {
        if (step % 100 == 0)
            progress("simulating: " + std::to_string(100 * step / subject.cavity.steps) + " %");
    });
    progress("");
    subject.exact = exact_modes(subject.cavity);
    return subject;
}

/// Returns whether all is well.
bool run(const std::string& prefix)
{
    make_folder(prefix); // fails before the work if it cannot be made
    const std::unique_ptr<FDTDCalcAPI> api(createFDTDCalcApi());
    if (!api)
        throw std::bad_alloc();
    const Subject subject = simulate_cavity();
    print_subject(subject);
    const Findings findings = analyse(*api, subject, progress);
    print_result(subject, findings.result);
    print_eigensolve(findings.eigensolve);
    print_methods(findings.pairs);
    print_estimates(findings.pairs);
    const bool met = print_verdicts(findings);
    if (!prefix.empty()) {
        write_files(prefix, subject.record, findings);
        print_files(prefix, draw_pictures(prefix));
    }
    finish_output();
    return met;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string_view option = argc > 1 ? argv[1] : "";
    if (option == "--help" || option == "-h") {
        std::fputs(kHelp, stdout);
        return 0;
    }
    if (argc > 1 && !(argc == 3 && option == "--output")) {
        std::fprintf(stderr, "resonator: the one option is --output PREFIX; --help explains\n");
        return 2;
    }
    try {
        return run(argc == 3 ? argv[2] : "") ? 0 : 1;
    } catch (const std::exception& error) {
        progress("");
        std::fflush(stdout);
        std::fprintf(stderr, "resonator: %s\n", error.what());
        return 2;
    }
}
