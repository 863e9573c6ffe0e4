#pragma once

#include "examples/resonator/analysis.h"

#include <string>
#include <vector>

namespace resonator {

/// The cavity, its pulse, and the difference of the record from the sum of the exact modes.
void print_subject(const Subject& subject);

/// The library's result for the record.
void print_result(const Subject& subject, const tessel::modes::Result& result);

void print_eigensolve(const Eigensolve& solve);

/// The excited modes with the errors of each method.
void print_methods(const std::vector<Pair>& pairs);

/// All modes of the record: what was found, the error and its standard error.
void print_estimates(const std::vector<Pair>& pairs);

/// Prints the verdicts and returns whether all are good. Of the excited modes, above 1e-6 of the strongest, all are
/// found and none that is not there; from the record, frequency within 1e-8 and Q within 1e-4, and their standard
/// errors too, and all four quantities within 4 standard errors; by the other methods, frequency within 1e-11 and Q
/// within 1e-8. The singular values above the noise number at least two for each; the driven response lies within 1e-6
/// of the exact one and has a peak at each of the eight lowest.
bool print_verdicts(const Findings& findings);

/// Where the files are; `hindrance` is the reason why no pictures were drawn, if so.
void print_files(const std::string& prefix, const std::string& hindrance);

} // namespace resonator
