/// Whether this program runs under a sanitizer or under valgrind.
#pragma once

namespace tessel::testing {

/// Shadow memory and larger frames: counts of memory and of stack mean nothing.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(TESSEL_UNDER_VALGRIND)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

/// By how much less is run under valgrind, which takes its time.
#if defined(TESSEL_UNDER_VALGRIND)
constexpr int kSlowness = 100;
#else
constexpr int kSlowness = 1;
#endif

} // namespace tessel::testing
