/// Arrays with overrun detection: an inaccessible page on one side, a checked margin on the other.
#pragma once

#include "tests/support/guarded.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace tessel::testing {

/// A call broke its contract.
struct Breach : std::logic_error
{
    using std::logic_error::logic_error;
};

inline void require(bool holds, const char* what)
{
    if (!holds)
        throw Breach(what);
}

/// The arrays of one call at a time, alternately placed directly behind the inaccessible page and directly before it.
class CallArrays
{
public:
    /// Starts a call: releases the arrays of the last one and begins with the other side.
    void begin()
    {
        taken_.clear();
        turn_ = !turn_;
    }

    /// `count` elements filled with a byte pattern that no result has.
    template <class T>
    T* take(std::size_t count)
    {
        const std::size_t place = taken_.size(), bytes = count * sizeof(T);
        if (place == blocks_.size())
            blocks_.push_back(std::make_unique<Guarded<std::byte>>(kBytes));
        require(bytes + kMargin <= kBytes, "an array is too large");
        const bool at_end = (place % 2 == 0) == turn_;
        std::byte* const first = at_end ? blocks_[place]->last(bytes) : blocks_[place]->first();
        std::byte* const margin = at_end ? first - kMargin : first + bytes;
        std::fill_n(first, bytes, kSentinel);
        std::fill_n(margin, kMargin, kSentinel);
        taken_.push_back({first, margin, bytes});
        return reinterpret_cast<T*>(first);
    }

    template <class T>
    T* take(const std::vector<T>& values)
    {
        T* const first = take<T>(values.size());
        std::copy(values.begin(), values.end(), first);
        return first;
    }

    /// Whether nothing was written to these arrays of this call.
    bool untouched(std::initializer_list<const void*> wanted) const
    {
        return std::all_of(wanted.begin(), wanted.end(), [this](const void* array) {
            const auto taken = std::find_if(taken_.begin(), taken_.end(),
                                            [array](const Taken& other) { return other.first == array; });
            return untouched(taken->first, 0, taken->bytes);
        });
    }
    /// Whether nothing was written to an array of `count` elements from element `from` on.
    template <class T>
    static bool untouched(const T* array, std::size_t from, std::size_t count)
    {
        const auto* const bytes = reinterpret_cast<const std::byte*>(array);
        return std::all_of(bytes + from * sizeof(T), bytes + count * sizeof(T),
                           [](std::byte byte) { return byte == kSentinel; });
    }

    /// Ends a call and checks the margins. Returns a hash (FNV-1a) of all arrays.
    std::uint64_t end() const
    {
        std::uint64_t hash = 0xcbf29ce484222325u;
        for (const Taken& array : taken_) {
            require(untouched(array.margin, 0, kMargin), "something was written beside an array");
            for (std::size_t i = 0; i < array.bytes; ++i)
                hash = (hash ^ static_cast<std::uint64_t>(array.first[i])) * 0x100000001b3u;
        }
        return hash;
    }

private:
    struct Taken
    {
        std::byte *first, *margin;
        std::size_t bytes;
    };

    static constexpr std::size_t kBytes = std::size_t{1} << 21, kMargin = 64;
    static constexpr std::byte kSentinel{0xf5}; // as a double about -1e258, as an integer -168430091

    std::vector<std::unique_ptr<Guarded<std::byte>>> blocks_;
    std::vector<Taken> taken_;
    bool turn_ = false;
};

} // namespace tessel::testing
