/// Whether this program runs under a sanitizer.
#pragma once

namespace tessel::testing {

/// Shadow memory and larger frames: counts of memory and of stack mean nothing.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

} // namespace tessel::testing
