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
    const auto size = static_cast<std::size_t>(length);
    const std::size_t kept = std::min(text.size(), size);
    std::memcpy(target, text.data(), kept);
    std::memset(target + kept, ' ', size - kept);
}

/// The status pair of one call. Nothing is written until the outcome is known. A routine that calls others gives them
/// the members.
struct Status
{
    Integer& flag;
    char* message;
    CharLen length; ///< of the message

    void fail(std::string_view text) const noexcept
    {
        flag = -1;
        copy_padded(text, message, length);
    }

    /// Flag 0 and a message of blanks.
    void succeed() const noexcept
    {
        flag = 0;
        copy_padded(" ", message, length);
    }

    /// Whether a routine that was given this status has failed: only the lowest bit of a flag counts.
    bool has_failed() const noexcept { return (flag & 1) != 0; }
};

} // namespace tessel
