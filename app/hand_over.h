// Programs that were started as one of several.
#ifndef TESSEL_APP_HAND_OVER_H
#define TESSEL_APP_HAND_OVER_H

#include <string>

namespace tessel::app {

/// The number of this process and of all, as far as the environment tells before they join: a program under mpirun is
/// told so whether or not it calls MPI.
struct Started
{
    int rank = 0, size = 1, here = 1; ///< here: on this machine
};
Started started();

/// Runs the program of this name for several processes in place of this one, if mpirun started this one as one of
/// several.
/// @returns if that is not needed, or what hinders
std::string hand_over(const std::string& name, char** argv);

} // namespace tessel::app

#endif
