#include "app/progress.h"

#include <unistd.h>

#include <cstdio>

namespace tessel::app {

namespace {

constexpr std::chrono::milliseconds kQuiet{500}, kPause{100};
constexpr std::size_t kWidth = 79; // of a terminal

} // namespace

ProgressLine::ProgressLine(bool wanted)
    : watched_(wanted && isatty(STDERR_FILENO) != 0), next_(std::chrono::steady_clock::now() + kQuiet)
{}

void ProgressLine::say(const std::string& text)
{
    if (!watched_)
        return;
    const std::lock_guard lock(mutex_);
    const auto now = std::chrono::steady_clock::now();
    if (now < next_)
        return;
    next_ = now + kPause;
    written_ = true;
    // What changes stands at the end; a path in front may be long.
    std::size_t from = 0;
    if (text.size() > kWidth)
        for (from = text.size() - kWidth + 3; from < text.size() && (text[from] & 0xc0) == 0x80;)
            ++from;
    std::fprintf(stderr, "\r\033[K%s%s", from > 0 ? "..." : "", text.c_str() + from);
    std::fflush(stderr);
}

void ProgressLine::clear()
{
    const std::lock_guard lock(mutex_);
    if (written_)
        std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    written_ = false;
}

} // namespace tessel::app
