#include "fields/processes.h"

#include <hdf5.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace tessel::fields {

Processes::Processes(int&, char**&) : team_(std::make_unique<Team>()) {}

Processes::~Processes() = default;

std::string hand_over(const std::string& name, char** argv)
{
    if (started().size == 1)
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

void end_all(int status)
{
    _exit(status);
}

std::int64_t access_list()
{
    return H5Pcreate(H5P_FILE_ACCESS);
}

std::int64_t transfer_list()
{
    return H5Pcreate(H5P_DATASET_XFER);
}

} // namespace tessel::fields
