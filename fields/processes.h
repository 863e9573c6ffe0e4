/// @file
/// The processes that were started together. A program links one of two files: processes_alone.cpp, or team_mpi.cpp,
/// the only one that calls MPI.
#ifndef TESSEL_FIELDS_PROCESSES_H
#define TESSEL_FIELDS_PROCESSES_H

#include "fields/team.h"

#include <cstdint>
#include <memory>

namespace tessel::fields {

/// Joins the processes; all leave together when it is destroyed.
class Processes
{
public:
    Processes(int& argc, char**& argv);
    Processes(const Processes&) = delete;
    Processes& operator=(const Processes&) = delete;
    ~Processes();

    Team& team() { return *team_; }

private:
    std::unique_ptr<Team> team_;
};

/// Ends all processes, after a fault that the others do not know of.
[[noreturn]] void end_all(int status);

/// Property lists of HDF5 for a file that all processes write: to open it, and for a transfer in which all take part.
/// The caller closes them.
std::int64_t access_list();
std::int64_t transfer_list();

} // namespace tessel::fields

#endif
