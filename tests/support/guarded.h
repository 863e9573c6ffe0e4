/// Arrays next to inaccessible pages: a read or write one element too far ends the program.
#pragma once

#include <cstddef>
#include <new>

#include <sys/mman.h>
#include <unistd.h>

namespace tessel::testing {

/// Memory for up to `most` elements between two inaccessible pages, of which each use takes the first or the last ones.
template <class T>
class Guarded
{
public:
    explicit Guarded(std::size_t most)
    {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        size_ = (most * sizeof(T) + page - 1) / page * page;
        mapped_ = size_ + 2 * page;
        void* const start = mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        start_ = static_cast<std::byte*>(start) + page;
        if (start == MAP_FAILED || mprotect(start_, size_, PROT_READ | PROT_WRITE) != 0)
            throw std::bad_alloc();
    }
    ~Guarded() { munmap(start_ - (mapped_ - size_) / 2, mapped_); }
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;

    /// An array whose first element lies behind the inaccessible page.
    T* first() const { return reinterpret_cast<T*>(start_); }
    /// An array of `count` elements; behind its last one lies the inaccessible page.
    T* last(std::size_t count) const { return reinterpret_cast<T*>(start_ + size_ - count * sizeof(T)); }

private:
    std::byte* start_;
    std::size_t size_, mapped_;
};

} // namespace tessel::testing
