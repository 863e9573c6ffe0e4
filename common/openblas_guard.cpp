/// What makes the packaged serial OpenBLAS fit for a host's process. The linker puts these functions in the place of
/// OpenBLAS's own (`--wrap`); the build file `cmake/dependencies.cmake` lists the remedies that need no code.
///
/// 1. The serial build scans its table of work buffers outside its lock, so two threads can be given one buffer and
///    compute wrong results without any error flag. Here the table is entered by one thread at a time.
/// 2. The table has a fixed number of places; one call too many ends in a printed complaint and a null buffer. Here
///    callers beyond a safe number wait for a buffer instead.
/// 3. It reads environment variables when it is loaded, and one of them makes it print. The host's environment is
///    not ours to act on.

#include <condition_variable>
#include <mutex>

extern "C" {
void* __real_blas_memory_alloc(int position);
void __real_blas_memory_free(void* buffer);
void* __wrap_blas_memory_alloc(int position);
void __wrap_blas_memory_free(void* buffer);
void __wrap_openblas_read_env();
}

namespace {

/// Well below the number of places in OpenBLAS's table, and far above the number of cores it is worth to keep busy.
constexpr int kMaxBuffersInUse = 32;

std::mutex gate;
std::condition_variable buffer_returned;
int buffers_in_use = 0;

} // namespace

void* __wrap_blas_memory_alloc(int position)
{
    std::unique_lock lock(gate);
    buffer_returned.wait(lock, [] { return buffers_in_use < kMaxBuffersInUse; });
    ++buffers_in_use;
    return __real_blas_memory_alloc(position);
}

void __wrap_blas_memory_free(void* buffer)
{
    {
        const std::lock_guard lock(gate);
        __real_blas_memory_free(buffer);
        --buffers_in_use;
    }
    buffer_returned.notify_one();
}

void __wrap_openblas_read_env() {}
