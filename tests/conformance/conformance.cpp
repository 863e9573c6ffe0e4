// Checks any build of the library through its two exports alone: conformance PATH
//
// Prints a line for each group: the number of cases, the worst figure, the bound that it must not exceed. A figure is
// an error, scaled as its name says, or a number of breaches. The exit status is 0 if all groups pass.
#include "tests/conformance/group.h"
#include "tests/support/child.h"
#include "tests/support/signals.h"
#include "tests/support/slots.h"

#include <cfenv>
#include <exception>
#include <string_view>

namespace tessel::testing {
namespace {

struct Fit
{
    std::vector<Complex> poles, residues;
    std::vector<Real> measures = std::vector<Real>(5);
    Integer flag = 77;
};

/// The arrays are longer than what is used of them, so that a length in the place of a count is seen.
Fit run_fit(const Subject& subject, std::vector<Complex> y, Real dt, Integer m, bool by_slot = false)
{
    const auto n = static_cast<Integer>(y.size());
    const Integer ndim = n + 3, mmax = m + 2;
    y.resize(size_of(ndim), NAN);
    Fit fit{std::vector<Complex>(size_of(mmax)), std::vector<Complex>(size_of(mmax))};
    const auto call = [&](auto routine) {
        Real* const e = fit.measures.data();
        routine(&n, &ndim, y.data(), &dt, &m, &mmax, fit.residues.data(), fit.poles.data(), &e[0], &e[1], &e[2], &e[3],
                &e[4], &fit.flag, nullptr, 0);
    };
    if (by_slot)
        call([&](auto... arguments) { subject.api.leastsqPronySvd(arguments...); });
    else
        call([&](auto... arguments) { subject.library.fit(arguments...); });
    fit.poles.resize(size_of(m));
    fit.residues.resize(size_of(m));
    return fit;
}

Group recovers_known_signals(const Subject& subject)
{
    Group group{"fit: published signals", "pole error / usual bound", 100.0};
    for (const KnownSignal& known : known_signals())
        group.add(
            worst_pole_error(known.signal.poles, run_fit(subject, known.signal.y, known.signal.dt, known.m).poles) /
            known.pole_error);
    return group;
}

/// A few exponentials that lie well apart, with residues of size 1; every other fit is one of the slot.
Group recovers_exponentials(const Subject& subject)
{
    Group group{"fit: separate exponentials", "error", 1e-9};
    for (std::uint64_t seed = 0; seed < 300; ++seed) {
        Random random(seed);
        const int terms = 1 + random.below(5);
        std::vector<Complex> poles, residues;
        for (int j = 0; j < terms; ++j) {
            const Real decay = random.uniform(0.0, 0.05), phase = random.uniform(-3.0, 3.0);
            poles.emplace_back(-decay, -2.5 + 5.0 * (j + random.uniform(0.2, 0.8)) / terms);
            residues.push_back(std::polar(1.0, phase));
        }
        const Signal signal = make_signal(poles, residues, 1.0, 12 * terms);
        const Fit fit = run_fit(subject, signal.y, signal.dt, terms, seed % 2 == 1);
        group.add(worst_pole_error(poles, fit.poles));
        group.add(worst_pole_error(residues, fit.residues));
        group.add(*std::max_element(fit.measures.begin(), fit.measures.end()));
    }
    return group;
}

Group leaves_rounding_alone(const Subject& subject)
{
    Group group{"rounding mode of the host", "modes not kept", 0.0};
    for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO, FE_TONEAREST}) {
        std::fesetround(mode);
        run_fit(subject, Random(1).complexes(40), 1.0, 8);
        call_zgesv(subject.api, 20, 1);
        group.count(std::fegetround() == mode);
    }
    return group;
}

std::vector<Group> check_all(const char* path)
{
    const Library library(path);
    const Api api = library.create();
    std::vector<Group> groups;
    for (const auto check : {recovers_known_signals, recovers_exponentials, decomposes, solves_systems,
                             finds_eigenvalues, solves_nonlinear_systems, knows_the_machine, leaves_rounding_alone})
        groups.push_back(check({library, *api}));
    return groups;
}

bool report(const Group& group)
{
    std::printf("%-36s %6d  %-26s %10.3g %10.3g  %s\n", group.name, group.cases, group.figure, group.worst, group.bound,
                group.passes() ? "pass" : "FAIL");
    return group.passes();
}

bool run(const char* path)
{
    std::vector<Group> groups = check_all(path);
    Group unloading{"unloading", "libraries left", 0.0};
    unloading.count(!is_loaded(path));
    groups.push_back(unloading);
    const Outcome again = run_in_child([path] { return check_all(path).empty(); }, 560);
    Group silence{"standard output and error stream", "bytes written", 0.0};
    silence.add(again.well ? static_cast<Real>(again.output.size()) : INFINITY);
    groups.push_back(silence);

    std::printf("%-36s %6s  %-26s %10s %10s\n", "group", "cases", "figure", "worst", "bound");
    return std::count_if(groups.begin(), groups.end(), report) == static_cast<std::ptrdiff_t>(groups.size());
}

} // namespace
} // namespace tessel::testing

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: conformance PATH/libtessel.so\n");
        return 2;
    }
    try {
        return tessel::testing::run(argv[1]) ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 2;
    }
}
