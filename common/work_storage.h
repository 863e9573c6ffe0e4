/// Work storage of one call: uninitialised, released on every path, and allocated without an exception.
#pragma once

#include "common/types.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace tessel {

/// One block that the arrays of a call are taken from, one after the other. Pages that nobody touches cost nothing, so
/// it may be far larger than what a call uses.
class WorkArena
{
public:
    /// Elements in a cache line.
    static constexpr std::size_t kLine = 64 / sizeof(Complex);

    /// Elements that an array of `count` takes: whole cache lines.
    static constexpr std::size_t padded(std::size_t count) noexcept { return (count + kLine - 1) / kLine * kLine; }

    /// An arena for arrays that take `count` elements together. If these cannot be allocated, or their size in bytes
    /// cannot be represented, there is no storage.
    explicit WorkArena(std::size_t count) noexcept : block_(allocate(count + kLine)), next_(line_at(block_)) {}
    ~WorkArena() { std::free(block_); }
    WorkArena(const WorkArena&) = delete;
    WorkArena& operator=(const WorkArena&) = delete;

    /// Whether there is storage.
    explicit operator bool() const noexcept { return block_ != nullptr; }

    /// The next array. It starts on a cache line, which speeds up column operations. Null if there is no storage.
    Complex* take(Index count) noexcept
    {
        Complex* const first = next_;
        if (next_ != nullptr)
            next_ += padded(static_cast<std::size_t>(count));
        return first;
    }

private:
    static void* allocate(std::size_t count) noexcept
    {
        std::size_t bytes = 0;
        return __builtin_mul_overflow(count, sizeof(Complex), &bytes) ? nullptr : std::malloc(bytes);
    }

    /// The first line that begins in the block: malloc aligns to an element.
    static Complex* line_at(void* block) noexcept
    {
        const auto before = reinterpret_cast<std::uintptr_t>(block) / sizeof(Complex);
        return block == nullptr ? nullptr : static_cast<Complex*>(block) + (padded(before) - before);
    }

    void* block_;
    Complex* next_;
};

} // namespace tessel
