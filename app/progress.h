// One line on the terminal that says where long work stands.
#ifndef TESSEL_APP_PROGRESS_H
#define TESSEL_APP_PROGRESS_H

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>

namespace tessel::app {

/// Writes to standard error if a terminal watches, ten times a second at most, and not before half a second has gone.
/// Any number of threads may call.
class ProgressLine
{
public:
    explicit ProgressLine(bool wanted);
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ~ProgressLine() { clear(); }

    /// Says it in place of what was said before.
    void say(const std::string& text);
    /// Leaves the line empty for what is printed next.
    void clear();

private:
    std::mutex mutex_;
    bool watched_ = false;
    bool written_ = false;
    std::chrono::steady_clock::time_point next_;
};

} // namespace tessel::app

#endif
