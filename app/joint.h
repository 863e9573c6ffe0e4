// --joint: all records of the command line as one set with one set of modes.
#ifndef TESSEL_APP_JOINT_H
#define TESSEL_APP_JOINT_H

#include "app/options.h"
#include "app/outcome.h"

#include <tessel/modes.h>

#include <optional>
#include <string>
#include <vector>

namespace tessel::app {

/// A set of records and the modes that they have in common, or why there are none.
struct JointOutcome
{
    /// Those of the set, in the order of the command line and of the residues. The result of each is its part: the
    /// modes with the record's own residues, without remarks.
    std::vector<Outcome> records;
    std::vector<Outcome> failed; ///< could not be read or analysed
    std::optional<modes::JointResult> result;
    std::string error; ///< one line, if the set as a whole has no result; empty if no record is left to analyse
};

/// Brings the records to one unit and one spacing, that of the least rounded times.
/// @throws Error  one line that names two records that differ
void agree(std::vector<Outcome>& records);

/// "2 records of cavity.csv" or "5 records of 3 files".
std::string title_of(const JointOutcome& joint);

/// The record's name within the set: without the file if all are of one.
std::string label_of(const JointOutcome& joint, std::size_t record);

/// Whether a mode shows in a record: its amplitude is above four standard errors, which chance reaches three times in
/// ten thousand.
bool shows(const modes::Residue& residue);

/// The record with the mode's largest amplitude, of those where it shows if there are any.
std::size_t strongest(const modes::JointMode& mode);

/// What the reader has to say about the set, once for all records or with the file's name.
std::vector<std::string> notes_of(const JointOutcome& joint);

/// The same, and what the library has to say; records by their names.
std::vector<std::string> remarks_of(const JointOutcome& joint);

/// Reads all files, analyses their records together and prints what came of it.
///
/// A record that cannot be read or is too short is named on standard error and left out; records that do not fit
/// together end the work.
/// @returns the exit status: 0, or 1 if a record or the set could not be analysed
int run_jointly(const Options& options);

} // namespace tessel::app

#endif
