/// The status pair of the library's own routines: `ErrorFlag` and `ErrorMessage`.
#pragma once

#include "common/types.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace tessel {

/// Copies a text into a fixed-length character argument: left-justified, cut or blank-padded, no terminator.
/// A length of zero or less writes nothing.
inline void copy_padded(std::string_view text, char* target, CharLen length) noexcept
{
    if (length <= 0)
        return;
    const auto room = static_cast<std::size_t>(length);
    const std::size_t kept = std::min(text.size(), room);
    std::memcpy(target, text.data(), kept);
    std::memset(target + kept, ' ', room - kept);
}

/// Whether a routine that was called has failed: only the lowest bit of its flag counts.
inline bool has_failed(Integer flag) noexcept
{
    return (flag & 1) != 0;
}

/// The status pair of one call. Nothing is written until the outcome is known.
class Status
{
public:
    Status(Integer& flag, char* message, CharLen length) noexcept : flag_(flag), message_(message), length_(length) {}

    void fail(std::string_view text) const noexcept
    {
        flag_ = -1;
        copy_padded(text, message_, length_);
    }

    /// Flag 0 and a message of blanks.
    void succeed() const noexcept
    {
        flag_ = 0;
        copy_padded(" ", message_, length_);
    }

private:
    Integer& flag_;
    char* message_;
    CharLen length_;
};

} // namespace tessel
