/// @file
/// The processes that were started together. A program links one of two files: processes_alone.cpp, or team_mpi.cpp,
/// the only one that calls MPI.
#ifndef TESSEL_FIELDS_PROCESSES_H
#define TESSEL_FIELDS_PROCESSES_H

#include "fields/team.h"

#include <cstdint>
#include <memory>
#include <string>

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

/// The number of this process and of all, as far as the environment tells before they join: a program under mpirun is
/// told so whether or not it calls MPI.
struct Started
{
    int rank = 0, size = 1, here = 1; ///< here: on this machine
};
Started started();

/// Runs the parallel program of this name in place of this one, if this one works alone and was started as one of
/// several.
/// @returns if it is not needed, or what hinders
std::string hand_over(const std::string& name, char** argv);

/// Ends all processes, after a fault that the others do not know of.
[[noreturn]] void end_all(int status);

/// Property lists of HDF5 for a file that all processes write: to open it, and for a transfer in which all take part.
/// The caller closes them.
std::int64_t access_list();
std::int64_t transfer_list();

} // namespace tessel::fields

#endif
