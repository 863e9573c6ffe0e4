#include "app/hand_over.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace tessel::app {

namespace {

/// Whether mpirun or its helper on this machine started this process itself: what one of several processes starts in
/// its turn inherits their environment, but is none of them.
bool is_started_by_mpirun()
{
    std::ifstream stream("/proc/" + std::to_string(getppid()) + "/comm");
    std::string name;
    std::getline(stream, name);
    for (const char* const starter : {"mpirun", "mpiexec", "orterun", "orted", "prterun", "prted", "prte"})
        if (name == starter)
            return true;
    return name.starts_with("mpirun.") || name.starts_with("mpiexec.");
}

} // namespace

Started started()
{
    const auto number = [](const char* name, int otherwise) {
        const char* const text = std::getenv(name);
        return text ? std::atoi(text) : otherwise;
    };
    return {std::max(number("OMPI_COMM_WORLD_RANK", 0), 0), std::max(number("OMPI_COMM_WORLD_SIZE", 1), 1),
            std::max(number("OMPI_COMM_WORLD_LOCAL_SIZE", 1), 1)};
}

std::string hand_over(const std::string& name, char** argv)
{
    if (started().size == 1 || !is_started_by_mpirun())
        return "";
    std::array<char, 4096> link{};
    const ssize_t length = readlink("/proc/self/exe", link.data(), link.size() - 1);
    std::string folder(link.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    folder.erase(folder.rfind('/') + 1);
    // Of an installation, and of a build.
    for (const char* const from : {TESSEL_MPI_FROM_COMMAND "/", "mpi/"}) {
        const std::string other = (folder + from).append(name);
        if (access(other.c_str(), X_OK) == 0) {
            execv(other.c_str(), argv);
            return other + ": cannot be run: " + std::strerror(errno);
        }
    }
    return "to run on several processes it needs the package tessel-mpi, which is not installed";
}

} // namespace tessel::app
