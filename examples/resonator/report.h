#pragma once

#include "examples/resonator/analysis.h"

#include <optional>
#include <string>
#include <vector>

namespace resonator {

void print_cavity(const Cavity& cavity);
/// Which samples are fitted; of a cavity, also how near the record is to the sum of the exact modes.
void print_window(const Subject& subject, const Window& window);
void print_measures(const std::vector<Fit>& fits, Index best_order);
void print_kinds(const std::vector<Mode>& modes);
void print_singular_values(const Hankel& record, const std::optional<Hankel>& analytic);

/// The kept modes of a record of which nothing else is known, and whether each stands out of its spectrum.
void print_modes(const std::vector<Mode>& modes, const Response& spectrum);

void print_eigensolve(const Eigensolve& solve);

/// The exact modes with the errors of each road, then amplitude and phase by the fit.
void print_comparison(const std::vector<Pair>& pairs);

/// Prints the verdict on a comparison and returns whether it is good: the eight lowest modes found by each road, by the
/// fit with frequencies within 1e-8 and Q within 1e-4, by the others within 1e-11 and 1e-8, and nothing found that is
/// not there.
bool print_verdict(const std::vector<Pair>& pairs);

/// The same for the singular values: those of the record that stand above the noise number at least two for each mode
/// and at most the order of the fit; those of the analytic signal, one for each mode and fewer than of the record.
bool print_order_verdict(const Hankel& record, const std::optional<Hankel>& analytic, Index order,
                         const std::vector<Pair>& pairs);

/// The same for the driven response: within 1e-6 of the exact one, and a peak at each of the eight lowest modes.
bool print_response_verdict(const Response& response, const std::vector<Pair>& pairs);

/// All three.
bool print_verdicts(const Findings& findings);

/// Where the files are; `hindrance` is what kept the pictures from being drawn, if anything did.
void print_files(const std::string& prefix, const std::string& hindrance);

} // namespace resonator
