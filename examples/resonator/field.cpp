#include "examples/resonator/field.h"

#include "examples/resonator/files.h"

#include <hdf5.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numbers>
#include <stdexcept>

namespace resonator {

namespace {

constexpr long double kTurn = 2.0L * std::numbers::pi_v<long double>;

/// Two poles are the same mode if they differ by less than this part, and their amplitudes by less than this factor.
constexpr long double kSamePole = 1e-3L;
constexpr double kSameAmplitude = 2.0;

constexpr double kPoleTolerance = 1e-10;
constexpr double kProfileTolerance = 1e-6;

/// An object of HDF5.
class Object
{
public:
    Object(hid_t id, herr_t (*close)(hid_t), const std::string& fault) : id_(id), close_(close)
    {
        if (id < 0)
            throw std::runtime_error(fault);
    }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    ~Object() { close_(id_); }
    operator hid_t() const { return id_; }

private:
    hid_t id_;
    herr_t (*close_)(hid_t);
};

std::vector<double> read_dataset(hid_t file, const char* name, const std::string& path)
{
    const std::string fault = path + ": cannot be read: " + name;
    const Object dataset(H5Dopen2(file, name, H5P_DEFAULT), H5Dclose, fault);
    const Object space(H5Dget_space(dataset), H5Sclose, fault);
    std::vector<double> values(static_cast<std::size_t>(H5Sget_simple_extent_npoints(space)));
    if (H5Dread(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()) < 0)
        throw std::runtime_error(fault);
    return values;
}

double read_attribute(hid_t file, const char* name, const std::string& path)
{
    const std::string fault = path + ": cannot be read: " + name;
    const Object attribute(H5Aopen(file, name, H5P_DEFAULT), H5Aclose, fault);
    double value = 0.0;
    if (H5Aread(attribute, H5T_NATIVE_DOUBLE, &value) < 0)
        throw std::runtime_error(fault);
    return value;
}

long double distance(const CavityMode& exact, const FoundMode& found)
{
    const ExtendedComplex pole(-static_cast<long double>(found.decay), kTurn * found.frequency);
    return std::abs(pole - exact.pole) / std::abs(exact.pole);
}

/// At the first instant used, counted in extended precision [s].
long double reference_time(const Cavity& cavity, const FoundModes& found)
{
    return static_cast<long double>(found.first_step * kFieldSteps) * cavity.time_step();
}

/// Largest amplitude of an exact mode, a cosine's.
double peak_of(const Cavity& cavity, const CavityMode& mode, long double time)
{
    const auto [x, y] = shape_of(cavity, mode);
    const auto largest = [](const std::vector<long double>& of) {
        long double most = 0.0L;
        for (const long double value : of)
            most = std::max(most, std::abs(value));
        return most;
    };
    return static_cast<double>(2.0L * std::abs(mode.strength * std::exp(mode.pole * time)) * largest(x) * largest(y));
}

/// Largest error at a node, over the peak.
double profile_error(const Cavity& cavity, const FieldPair& pair, long double time)
{
    const auto [x, y] = shape_of(cavity, *pair.exact);
    const ExtendedComplex strength = 2.0L * pair.exact->strength * std::exp(pair.exact->pole * time);
    if (pair.found->profile.size() != x.size() * y.size())
        return std::numeric_limits<double>::infinity();
    long double worst = 0.0L;
    auto value = pair.found->profile.begin();
    for (const long double along_x : x)
        for (const long double along_y : y) {
            const long double error = std::abs(ExtendedComplex(*value++) - strength * along_x * along_y);
            if (!std::isfinite(error))
                return std::numeric_limits<double>::infinity();
            worst = std::max(worst, error);
        }
    return static_cast<double>(worst / pair.peak);
}

/// Prints the end of a line.
bool judge(bool met)
{
    std::printf(": %s\n", met ? "as expected" : "MISSED");
    return met;
}

} // namespace

Cavity nearly_square_cavity()
{
    Cavity cavity;
    cavity.cells_x = 90;
    cavity.cells_y = 89;
    return cavity;
}

std::size_t write_field(const Cavity& cavity, const std::string& path)
{
    const auto nodes = static_cast<std::size_t>((cavity.cells_x + 1) * (cavity.cells_y + 1));
    std::vector<double> field(nodes, 0.0); // before the first step
    simulate(cavity, [&](Index step, const std::vector<double>& ez) {
        if (step % kFieldSteps == 0)
            field.insert(field.end(), ez.begin(), ez.end());
        if (step % 100 == 0)
            progress("simulating: " + std::to_string(100 * step / cavity.steps) + " %");
    });
    progress("");

    const hsize_t extents[] = {field.size() / nodes, static_cast<hsize_t>(cavity.cells_x + 1),
                               static_cast<hsize_t>(cavity.cells_y + 1)};
    const double spacing = static_cast<double>(kFieldSteps) * cavity.time_step(); // a power of two: exact
    const std::string fault = path + ": cannot be written";
    const Object file(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT), H5Fclose, fault);
    const Object space(H5Screate_simple(3, extents, nullptr), H5Sclose, fault);
    const Object dataset(H5Dcreate2(file, "Ez", H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT),
                         H5Dclose, fault);
    const Object one(H5Screate(H5S_SCALAR), H5Sclose, fault);
    const Object dt(H5Acreate2(dataset, "dt", H5T_NATIVE_DOUBLE, one, H5P_DEFAULT, H5P_DEFAULT), H5Aclose, fault);
    if (H5Dwrite(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, field.data()) < 0 ||
        H5Awrite(dt, H5T_NATIVE_DOUBLE, &spacing) < 0 || H5Fflush(file, H5F_SCOPE_LOCAL) < 0)
        throw std::runtime_error(fault);
    return field.size() * sizeof(double);
}

double FoundMode::peak() const
{
    double most = 0.0;
    for (const Complex& value : profile)
        most = std::max(most, std::abs(value));
    return most;
}

FoundModes read_modes(const std::string& path)
{
    const Object file(H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT), H5Fclose, path + ": cannot be read");
    FoundModes found;
    found.first_step = static_cast<Index>(read_attribute(file, "first_step", path));
    found.noise = read_attribute(file, "noise", path);
    const std::vector<double> frequencies = read_dataset(file, "modes/frequency", path),
                              decays = read_dataset(file, "modes/decay", path),
                              real = read_dataset(file, "profiles/real", path),
                              imag = read_dataset(file, "profiles/imag", path);
    const std::size_t nodes = frequencies.empty() ? 0 : real.size() / frequencies.size();
    if (decays.size() != frequencies.size() || imag.size() != real.size())
        throw std::runtime_error(path + ": has modes without profiles");
    for (std::size_t k = 0; k < frequencies.size(); ++k) {
        FoundMode& mode = found.modes.emplace_back(FoundMode{frequencies[k], decays[k], {}});
        for (std::size_t p = k * nodes; p < (k + 1) * nodes; ++p)
            mode.profile.emplace_back(real[p], imag[p]);
    }
    return found;
}

std::vector<FieldPair> compare_field(const Cavity& cavity, const std::vector<CavityMode>& exact,
                                     const FoundModes& found)
{
    const long double time = reference_time(cavity, found);
    std::vector<FieldPair> all, pairs;
    double strongest = 0.0;
    for (const CavityMode& mode : exact) {
        all.push_back({&mode, nullptr, peak_of(cavity, mode, time)});
        strongest = std::max(strongest, all.back().peak);
    }
    std::sort(all.begin(), all.end(),
              [](const FieldPair& a, const FieldPair& b) { return a.exact->pole.imag() < b.exact->pole.imag(); });

    std::vector<const FoundMode*> rest;
    for (const FoundMode& mode : found.modes)
        rest.push_back(&mode);
    for (FieldPair& pair : all) {
        pair.strong = pair.peak >= kWeakestOfField * strongest;
        const auto nearest = std::min_element(rest.begin(), rest.end(), [&](const auto* a, const auto* b) {
            return distance(*pair.exact, *a) < distance(*pair.exact, *b);
        });
        if (nearest != rest.end() && distance(*pair.exact, **nearest) < kSamePole &&
            (*nearest)->peak() < kSameAmplitude * pair.peak && pair.peak < kSameAmplitude * (*nearest)->peak()) {
            pair.found = *nearest;
            pair.pole = static_cast<double>(distance(*pair.exact, *pair.found));
            pair.profile = profile_error(cavity, pair, time);
            rest.erase(nearest);
        }
        if (pair.found || pair.strong)
            pairs.push_back(pair);
    }
    for (const FoundMode* mode : rest)
        pairs.push_back({nullptr, mode, mode->peak(), mode->peak() >= kWeakestOfField * strongest});
    return pairs;
}

bool print_field(const Cavity& cavity, const FoundModes& found, const std::vector<FieldPair>& pairs)
{
    std::vector<FieldPair> strong;
    std::copy_if(pairs.begin(), pairs.end(), std::back_inserter(strong),
                 [](const FieldPair& pair) { return pair.strong && pair.exact; });
    const auto count = static_cast<std::ptrdiff_t>(strong.size());
    const auto strange = std::count_if(pairs.begin(), pairs.end(), [](const FieldPair& pair) { return !pair.exact; });
    const auto strong_strange =
        std::count_if(pairs.begin(), pairs.end(), [](const FieldPair& pair) { return !pair.exact && pair.strong; });
    const auto weaker =
        std::count_if(pairs.begin(), pairs.end(), [](const FieldPair& pair) { return pair.exact && !pair.strong; });

    std::printf("\n   m  n  frequency [GHz]          Q  peak [V/m]  error of pole  of profile\n");
    std::ptrdiff_t seen = 0, poles = 0, profiles = 0;
    double worst_pole = 0.0, worst_profile = 0.0;
    for (const FieldPair& pair : strong) {
        std::printf("%4td %2td  %15.10Lf %10.5Lf  %10.3e", pair.exact->m, pair.exact->n, pair.exact->frequency() / 1e9L,
                    pair.exact->quality(), pair.peak);
        if (!pair.found) {
            std::printf("  %13s\n", "not found");
            continue;
        }
        std::printf("  %13.1e  %10.1e\n", pair.pole, pair.profile);
        ++seen;
        poles += pair.pole <= kPoleTolerance;
        profiles += pair.profile <= kProfileTolerance;
        worst_pole = std::max(worst_pole, pair.pole);
        worst_profile = std::max(worst_profile, pair.profile);
    }

    std::printf("\nWeaker modes: %td found, and %td not there. Of the others, above %.0e of the strongest:\n", weaker,
                strange - strong_strange, kWeakestOfField);
    std::printf("  modes      %td of %td found, and %td not there", seen, count, strong_strange);
    bool met = judge(count > 0 && seen == count && strong_strange == 0);
    std::printf("  poles      %td within %.0e (worst: %.1e)", poles, kPoleTolerance, worst_pole);
    met &= judge(poles == count);
    std::printf("  profiles   %td within %.0e of their peak at every node (worst: %.1e)", profiles, kProfileTolerance,
                worst_profile);
    met &= judge(profiles == count);

    // The closest pair, in units of the inverse of the time from the first instant used to the last.
    const double seconds = static_cast<double>(static_cast<long double>(cavity.steps) * cavity.time_step() -
                                               reference_time(cavity, found));
    const FieldPair* lower = nullptr;
    double closest = std::numeric_limits<double>::infinity();
    for (std::size_t k = 0; k + 1 < strong.size(); ++k) {
        const auto apart = static_cast<double>(strong[k + 1].exact->frequency() - strong[k].exact->frequency());
        if (apart < closest) {
            closest = apart;
            lower = &strong[k];
        }
    }
    if (lower) {
        std::printf("  pair       %td %td and %td %td, %.1f MHz or %.2f / duration apart, lines %.1f MHz wide",
                    lower->exact->m, lower->exact->n, lower[1].exact->m, lower[1].exact->n, closest / 1e6,
                    closest * seconds, static_cast<double>(lower->exact->frequency() / lower->exact->quality()) / 1e6);
        met &= judge(lower->found && lower[1].found && closest * seconds < 1.0);
    }
    return met;
}

void write_profiles(const std::string& path, const Cavity& cavity, std::vector<FieldPair> pairs)
{
    std::erase_if(pairs, [](const FieldPair& pair) { return !pair.exact || !pair.strong || !pair.found; });
    File file(path);
    file.print(
        "# m, n, frequency [Hz], largest amplitude [V/m], error of the pole over the pole, largest error of the\n"
        "# profile over its peak; then a block for each: a line for each j, a value for each i, the profile over\n"
        "# its peak and in phase with it.\n");
    for (const FieldPair& pair : pairs)
        file.print("%td %td %.17g %.6e %.3e %.3e\n", pair.exact->m, pair.exact->n, pair.found->frequency, pair.peak,
                   pair.pole, pair.profile);
    for (const FieldPair& pair : pairs) {
        const std::vector<Complex>& profile = pair.found->profile;
        const Complex peak = *std::max_element(profile.begin(), profile.end(), [](const Complex& a, const Complex& b) {
            return std::abs(a) < std::abs(b);
        });
        file.print("\n\n");
        for (Index j = 0; j <= cavity.cells_y; ++j)
            for (Index i = 0; i <= cavity.cells_x; ++i)
                file.print("%.5f%s", (profile[static_cast<std::size_t>(i * (cavity.cells_y + 1) + j)] / peak).real(),
                           i < cavity.cells_x ? " " : "\n");
    }
    file.finish();
}

} // namespace resonator
