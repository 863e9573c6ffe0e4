#include "app/progress.h"

#include <unistd.h>

#include <cstdio>

namespace tessel::app {

namespace {

constexpr std::chrono::milliseconds kQuiet{500}, kPause{100};

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
    std::fprintf(stderr, "\r\033[K%s", text.substr(0, 79).c_str());
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
