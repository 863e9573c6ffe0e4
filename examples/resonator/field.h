#pragma once

#include "examples/resonator/cavity.h"

#include <string>
#include <vector>

namespace resonator {

/// A cavity that is nearly square: modes with m, n and with n, m half waves lie closer together than the length of the
/// record tells apart.
Cavity nearly_square_cavity();

/// How the field is written: of every so-many-th step.
constexpr Index kFieldSteps = 16;

/// Simulates the cavity and writes Ez at all nodes, before the first step and after every kFieldSteps-th: the dataset
/// /Ez [step, i, j] of doubles, with the spacing in seconds as its attribute dt. Returns the number of bytes.
std::size_t write_field(const Cavity& cavity, const std::string& path);

/// A mode of the whole field, as the command tessel-fields writes it.
struct FoundMode
{
    double frequency, decay;      ///< [1/s]
    std::vector<Complex> profile; ///< [V/m] at each node: amplitude and phase of a cosine
    double peak() const;
};

/// All modes, and what they refer to.
struct FoundModes
{
    std::vector<FoundMode> modes;
    Index first_step = 0; ///< first instant used, at which time is counted from
    double noise = 0.0;   ///< of a sample [V/m]
};

/// Reads a file of tessel-fields. Throws an error that names it.
FoundModes read_modes(const std::string& path);

/// An exact mode beside what was found of it; or a mode found that is not there.
struct FieldPair
{
    const CavityMode* exact = nullptr;
    const FoundMode* found = nullptr;
    double peak = 0.0;    ///< largest amplitude, of the exact mode if there is one, at the first instant used [V/m]
    bool strong = false;  ///< above kWeakestOfField of the strongest
    double pole = 0.0;    ///< error of the pole over the pole
    double profile = 0.0; ///< largest error of the profile over its peak
};

constexpr double kWeakestOfField = 1e-4;

/// The modes found, each beside the exact one that it is, and strong exact ones that were not found, by rising
/// frequency; then what is not there.
std::vector<FieldPair> compare_field(const Cavity& cavity, const std::vector<CavityMode>& exact,
                                     const FoundModes& found);

/// Prints the strong modes with their errors and the verdicts; returns whether all are good: all strong modes found and
/// no other, poles within 1e-10, profiles within 1e-6 of their peak, and among them two modes that are closer than the
/// inverse of the time they were seen.
bool print_field(const Cavity& cavity, const FoundModes& found, const std::vector<FieldPair>& pairs);

/// Writes the strong modes with their errors and their profiles, for a picture.
void write_profiles(const std::string& path, const Cavity& cavity, std::vector<FieldPair> pairs);

} // namespace resonator
