// Everything that calls MPI.
#define OMPI_SKIP_MPICXX
#define MPICH_SKIP_MPICXX
#include "fields/processes.h"

#include "fields/fields.h"

#include <hdf5.h>
#include <mpi.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace tessel::fields {

namespace {

constexpr std::size_t kMost = std::size_t(1) << 30; // bytes of one message: counts are ints

void add_quadruple(void* in, void* inout, int* count, MPI_Datatype*)
{
    const auto* const from = static_cast<const __float128*>(in);
    auto* const to = static_cast<__float128*>(inout);
    for (int k = 0; k < *count; ++k)
        to[k] += from[k];
}

/// Calls `pass(data, count)` on parts that fit a message.
template <class Pass>
void in_parts(char* data, std::size_t bytes, const Pass& pass)
{
    for (std::size_t at = 0; at < bytes; at += kMost)
        pass(data + at, static_cast<int>(std::min(kMost, bytes - at)));
}

class MpiTeam : public Team
{
public:
    MpiTeam()
    {
        MPI_Comm_rank(MPI_COMM_WORLD, &rank_);
        MPI_Comm_size(MPI_COMM_WORLD, &size_);
        MPI_Type_contiguous(sizeof(__float128), MPI_BYTE, &quadruple_);
        MPI_Type_commit(&quadruple_);
        MPI_Op_create(add_quadruple, 0, &sum_); // in the order of the ranks
    }
    ~MpiTeam() override
    {
        MPI_Op_free(&sum_);
        MPI_Type_free(&quadruple_);
    }

    int rank() const override { return rank_; }
    int size() const override { return size_; }

    void broadcast(void* data, std::size_t bytes) override
    {
        in_parts(static_cast<char*>(data), bytes,
                 [](char* part, int count) { MPI_Bcast(part, count, MPI_BYTE, 0, MPI_COMM_WORLD); });
    }

    void sum(__float128* data, std::size_t count) override
    {
        constexpr std::size_t most = kMost / sizeof *data;
        for (std::size_t at = 0; at < count; at += most)
            MPI_Allreduce(MPI_IN_PLACE, data + at, static_cast<int>(std::min(most, count - at)), quadruple_, sum_,
                          MPI_COMM_WORLD);
    }

    void gather(const void* data, std::size_t bytes, void* all, const std::size_t* sizes) override
    {
        if (rank_ != 0) {
            in_parts(const_cast<char*>(static_cast<const char*>(data)), bytes,
                     [](const char* part, int count) { MPI_Send(part, count, MPI_BYTE, 0, 0, MPI_COMM_WORLD); });
            return;
        }
        char* to = static_cast<char*>(all);
        std::copy_n(static_cast<const char*>(data), bytes, to);
        to += bytes;
        for (int from = 1; from < size_; ++from) {
            in_parts(to, sizes[from], [from](char* part, int count) {
                MPI_Recv(part, count, MPI_BYTE, from, 0, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
            });
            to += sizes[from];
        }
    }

    bool any(bool mine) override
    {
        int one = mine;
        MPI_Allreduce(MPI_IN_PLACE, &one, 1, MPI_INT, MPI_MAX, MPI_COMM_WORLD);
        return one != 0;
    }

    void agree(const std::string& fault) override
    {
        int lowest = fault.empty() ? size_ : rank_;
        MPI_Allreduce(MPI_IN_PLACE, &lowest, 1, MPI_INT, MPI_MIN, MPI_COMM_WORLD);
        if (lowest == size_)
            return;
        int length = static_cast<int>(std::min(fault.size(), std::size_t(4096)));
        MPI_Bcast(&length, 1, MPI_INT, lowest, MPI_COMM_WORLD);
        std::string text = fault;
        text.resize(static_cast<std::size_t>(length));
        MPI_Bcast(text.data(), length, MPI_BYTE, lowest, MPI_COMM_WORLD);
        throw Error(text);
    }

private:
    int rank_ = 0, size_ = 1;
    MPI_Datatype quadruple_ = MPI_DATATYPE_NULL;
    MPI_Op sum_ = MPI_OP_NULL;
};

} // namespace

Processes::Processes(int& argc, char**& argv)
{
    int given = 0;
    MPI_Init_thread(&argc, &argv, MPI_THREAD_FUNNELED, &given);
    team_ = std::make_unique<MpiTeam>();
}

Processes::~Processes()
{
    team_.reset();
    MPI_Finalize();
}

void end_all(int status)
{
    MPI_Abort(MPI_COMM_WORLD, status);
    std::abort();
}

std::int64_t access_list()
{
    const hid_t list = H5Pcreate(H5P_FILE_ACCESS);
    H5Pset_fapl_mpio(list, MPI_COMM_WORLD, MPI_INFO_NULL);
    return list;
}

std::int64_t transfer_list()
{
    const hid_t list = H5Pcreate(H5P_DATASET_XFER);
    H5Pset_dxpl_mpio(list, H5FD_MPIO_COLLECTIVE);
    return list;
}

} // namespace tessel::fields
