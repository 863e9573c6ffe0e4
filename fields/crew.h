/// Threads that share work of equal parts.
#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace tessel::fields {

/// Calls work(i) for all i < count, from `threads` threads of which the caller is one; before it joins them the caller
/// does `first`. What is thrown first comes out, when all have ended.
template <class First, class Work>
void share(unsigned threads, std::size_t count, const First& first, const Work& work)
{
    std::atomic<std::size_t> next = 0;
    std::exception_ptr fault;
    std::mutex guard;
    const auto guarded = [&](const auto& call) {
        try {
            call();
        } catch (...) {
            const std::lock_guard lock(guard);
            if (!fault)
                fault = std::current_exception();
            next = count;
        }
    };
    const auto loop = [&] {
        for (std::size_t i = next++; i < count; i = next++)
            work(i);
    };
    {
        std::vector<std::jthread> others;
        for (unsigned t = 1; t < threads && t <= count; ++t)
            others.emplace_back([&] { guarded(loop); });
        guarded(first);
        guarded(loop);
    }
    if (fault)
        std::rethrow_exception(fault);
}

template <class Work>
void share(unsigned threads, std::size_t count, const Work& work)
{
    share(
        threads, count, [] {}, work);
}

} // namespace tessel::fields
