/// Arrays that end at an inaccessible page: whoever reads or writes one element too far is stopped at once.
#pragma once

#include <cstddef>
#include <new>

#include <sys/mman.h>
#include <unistd.h>

namespace tessel::testing {

/// Room for up to `most` elements, of which each use takes the last ones.
template <class T>
class Guarded
{
public:
    explicit Guarded(std::size_t most)
    {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        room_ = (most * sizeof(T) + page - 1) / page * page;
        void* const start = mmap(nullptr, room_ + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (start == MAP_FAILED || mprotect(static_cast<std::byte*>(start) + room_, page, PROT_NONE) != 0)
            throw std::bad_alloc();
        start_ = static_cast<std::byte*>(start);
        mapped_ = room_ + page;
    }
    ~Guarded() { munmap(start_, mapped_); }
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;

    /// An array of `count` elements; behind its last one lies the inaccessible page.
    T* last(std::size_t count) const { return reinterpret_cast<T*>(start_ + room_ - count * sizeof(T)); }

private:
    std::byte* start_;
    std::size_t room_, mapped_;
};

} // namespace tessel::testing
