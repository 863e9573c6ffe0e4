// Simulates a cavity, writes its whole field as a solver does, has tessel-fields find the modes in it, and compares
// them and their profiles with the exact ones.

#include "examples/resonator/field.h"
#include "examples/resonator/files.h"

#include <hdf5.h>

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>

using namespace resonator;

namespace {

constexpr char kHelp[] = R"(Usage: resonator-field PREFIX

Simulates a nearly square microwave cavity (two-dimensional FDTD, a pulse at one
node), writes the field of every 16th step at all nodes to PREFIX-field.h5 (33 MB),
and runs the command tessel-fields on it with nothing chosen. A table sets the modes
above 1e-4 of the strongest beside those that the simulation really has, which are
known in closed form with their profiles.

Exit status 0 if all of them are found and no others so strong, poles within 1e-10,
profiles within 1e-6 of their peak at every node, and two modes are kept apart that
are closer than the inverse of the time that they are seen. 1 if not; 2 if something
hinders.

Written besides: PREFIX-field-modes.h5 and PREFIX-field-modes.xdmf by tessel-fields
and PREFIX-field.txt, its table; PREFIX-profiles.dat and, if gnuplot is there,
PREFIX-profiles.png, for the picture.
)";

/// Returns whether all is well.
bool run(const std::string& prefix)
{
    make_folder(prefix);
    const std::string path = prefix + "-field.h5", results = prefix + "-field-modes.h5", table = prefix + "-field.txt";
    const Cavity cavity = nearly_square_cavity();
    const std::size_t bytes = write_field(cavity, path);
    std::printf("Field: %td x %td nodes, every %td of %td steps, %s (%.0f MB)\n", cavity.cells_x + 1,
                cavity.cells_y + 1, kFieldSteps, cavity.steps, path.c_str(), static_cast<double>(bytes) / 1e6);
    std::fflush(stdout);
    if (const std::string hindrance = run_program({"tessel-fields", "--output", results, path + ":/Ez"}, table);
        !hindrance.empty())
        throw std::runtime_error(hindrance);

    const FoundModes found = read_modes(results);
    const Index first = found.first_step * kFieldSteps;
    std::printf("       %zu modes from step %td on, %td behind the end of the pulse; noise %.0e V/m\n",
                found.modes.size(), first, first - cavity.pulse_steps(), found.noise);
    const std::vector<CavityMode> exact = exact_modes(cavity);
    const std::vector<FieldPair> pairs = compare_field(cavity, exact, found);
    const bool met = print_field(cavity, found, pairs);

    write_profiles(prefix + "-profiles.dat", cavity, pairs);
    const std::string hindrance = draw("plot_field.gp", prefix);
    std::printf("\nWritten: %s\n         -field.h5, -field.txt, -field-modes.h5, -field-modes.xdmf, -profiles.dat%s\n",
                prefix.c_str(), hindrance.empty() ? ", -profiles.png" : "");
    if (!hindrance.empty())
        std::printf("%s\n", hindrance.c_str());
    finish_output();
    return met;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string_view word = argc > 1 ? argv[1] : "";
    if (word == "--help" || word == "-h") {
        std::fputs(kHelp, stdout);
        return 0;
    }
    if (argc != 2 || word.empty() || word[0] == '-') {
        std::fprintf(stderr, "resonator-field: a prefix of files is needed, and nothing else; --help explains\n");
        return 2;
    }
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr); // one line of our own instead
    try {
        return run(argv[1]) ? 0 : 1;
    } catch (const std::exception& error) {
        progress("");
        std::fflush(stdout);
        std::fprintf(stderr, "resonator-field: %s\n", error.what());
        return 2;
    }
}
