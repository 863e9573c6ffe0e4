/// Work storage of one call: uninitialised, released on every path, and had without an exception or not at all.
#pragma once

#include <cstddef>
#include <cstdlib>

namespace tessel {

/// Uninitialised array of `count` elements. Pages that nobody touches cost nothing, so an extent may be far larger
/// than what a call uses.
template <class T>
class WorkArray
{
public:
    /// A count of zero, and one whose size in bytes cannot be represented, gives no storage.
    explicit WorkArray(std::size_t count) noexcept : data_(static_cast<T*>(allocate(count))) {}
    ~WorkArray() { std::free(data_); }
    WorkArray(const WorkArray&) = delete;
    WorkArray& operator=(const WorkArray&) = delete;

    explicit operator bool() const noexcept { return data_ != nullptr; }
    T* data() const noexcept { return data_; }

private:
    static void* allocate(std::size_t count) noexcept
    {
        std::size_t bytes = 0;
        if (count == 0 || __builtin_mul_overflow(count, sizeof(T), &bytes))
            return nullptr;
        return std::malloc(bytes);
    }

    T* data_;
};

} // namespace tessel
