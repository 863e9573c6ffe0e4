/// Makes Debian's serial OpenBLAS safe inside a host process. The linker substitutes these functions for OpenBLAS's own
/// (`--wrap`); the build file `cmake/dependencies.cmake` lists the remedies that need no code.
///
/// Work buffers. The serial build scans its table of buffers outside its lock, so two threads can be given one buffer
/// and compute wrong results without any error flag; it loops for ever when a buffer cannot be mapped, and prints on
/// the standard output when the table is full. This pool replaces it:
///
///   - A buffer is taken by one atomic exchange. There is no lock that could stay locked in the child of a fork.
///   - The first buffer is zero-initialised static storage of the library: if it cannot be allocated, loading fails,
///     not a later call. A call that cannot map a further one waits until one is returned. The wait ends: no routine of
///     OpenBLAS that takes a buffer calls another one that does, or any code of the host. The cost is 128 MiB of
///     address space, which a host that locks all its memory pays in full.
///   - A buffer that was mapped is kept for the next call, and unmapped with the library. Only pages that a call writes
///     to take memory.
///   - The child of a fork has no other threads, so every buffer is free again; after a bare `_Fork` or `clone`, which
///     run no handlers, those of the other threads stay taken.
///
/// Environment. OpenBLAS reads it when it is loaded: OPENBLAS_CORETYPE changes the kernels and so the bits of every
/// result, OPENBLAS_VERBOSE makes it print. Both are ignored: for OpenBLAS the environment is empty.
///
/// Products of a matrix and a vector. The kernels of ZGEMV for AVX, AVX2 and AVX-512, all made from one source, read
/// x(n + 1), at the stride of x, when A x is formed and m mod 4 = 2; the value is not used. Where x is the last row or
/// column of an array of the host, as in ZGESVD, nothing may be there to read. Here they get a copy of x that is one
/// element longer: n loads and stores beside m n products, and the same bits. Of what else reaches these
/// kernels, inside OpenBLAS, ZGETRF takes x from a column of A that goes on behind it, and ZTRMV has a triangle of
/// LAPACK's own; ZTRSV is not called.
///
/// Reports. XERBLA writes a line on the standard output. For the routines of the interface that is documented, beside
/// INFO = -k. For the routines that they call it is suppressed: DLASCL reports a NaN that an operator gave to ARPACK as
/// an illegal value, but no eigen-solve may print. Their INFO is returned without the line.

#include "common/openblas_guard.h"

#include "common/fortran.h"
#include "common/types.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include <pthread.h>
#include <sys/mman.h>

extern "C" { // NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
void* __wrap_blas_memory_alloc(int position);
void __wrap_blas_memory_free(void* buffer);
char* __wrap_getenv(const char* name);
void __real_xerbla_(const char* name, const tessel::Integer* position, std::size_t length);
void __wrap_xerbla_(const char* name, const tessel::Integer* position, std::size_t length);
decltype(tessel::fortran::zgemv_) __real_zgemv_, __wrap_zgemv_;
} // NOLINTEND(bugprone-reserved-identifier)

namespace tessel {
namespace {

/// An entry of the pool, on its own cache line.
struct alignas(64) Place
{
    std::atomic<void*> buffer = nullptr; ///< set by the first taker, kept from then on
    std::atomic<bool> taken = false;

    /// The buffer, mapped first if necessary and if `may_map`; null if the entry is taken or the mapping fails, which
    /// clears `may_map`.
    void* take(bool& may_map) noexcept
    {
        if ((buffer == nullptr && !may_map) || taken.exchange(true, std::memory_order_acquire))
            return nullptr;
        if (buffer == nullptr) {
            void* const mapped =
                mmap(nullptr, kWorkBufferSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            if (mapped == MAP_FAILED) {
                may_map = false;
                give_back();
                return nullptr;
            }
            buffer = mapped;
        }
        return buffer;
    }
    void give_back() noexcept { taken.store(false, std::memory_order_release); }
};

alignas(4096) std::byte first_buffer[kWorkBufferSize];
constinit Place places[kWorkBuffers] = {{first_buffer}};

/// Number of buffers returned so far, modulo 2^32; a caller that finds no free one waits for it to change.
constinit std::atomic<int> returns = 0;

[[gnu::constructor]] void prepare_for_fork()
{
    pthread_atfork(nullptr, nullptr, [] {
        for (Place& place : places)
            place.give_back();
    });
}

/// A buffer that another thread still uses while the process ends is left mapped.
[[gnu::destructor]] void unmap_idle_buffers()
{
    for (Place& place : places) {
        if (place.buffer == first_buffer || place.taken.exchange(true))
            continue;
        if (void* const idle = place.buffer.exchange(nullptr))
            munmap(idle, kWorkBufferSize);
        place.give_back();
    }
}

} // namespace
} // namespace tessel

void* __wrap_blas_memory_alloc(int)
{
    using namespace tessel;
    for (;;) {
        const int seen = returns; // before the search: a buffer returned during it ends the wait
        bool may_map = true;      // one refusal is enough for a search
        for (Place& place : places)
            if (void* const buffer = place.take(may_map))
                return buffer;
        returns.wait(seen);
    }
}

void __wrap_blas_memory_free(void* buffer)
{
    using namespace tessel;
    for (Place& place : places) {
        if (place.buffer != buffer)
            continue;
        place.give_back();
        ++returns;
        returns.notify_one();
        return;
    }
}

char* __wrap_getenv(const char*)
{
    return nullptr;
}

// A name has six characters or more, the short ones padded with blanks. OpenBLAS's own callers leave the upper half of
// the length undefined, so nothing here depends on it.
void __wrap_xerbla_(const char* name, const tessel::Integer* position, std::size_t length)
{
    for (const char* const slot : {"ZGESVD", "ZGESV ", "DGESVD"})
        if (std::memcmp(name, slot, 6) == 0)
            return __real_xerbla_(name, position, length);
}

// Only the last elements of x are copied: for the others, the element read too far is one of x. Calls that return at
// once, or do not read x, go to ZGEMV unchanged.
void __wrap_zgemv_(const char* trans, const tessel::Integer* m, const tessel::Integer* n, const tessel::Complex* alpha,
                   const tessel::Complex* a, const tessel::Integer* lda, const tessel::Complex* x,
                   const tessel::Integer* incx, const tessel::Complex* beta, tessel::Complex* y,
                   const tessel::Integer* incy, std::size_t length)
{
    using namespace tessel;
    if ((*trans != 'N' && *trans != 'n') || *m % 4 != 2 || *n <= 0 || *lda < *m || *incx == 0 || *incy == 0 ||
        *alpha == Complex())
        return __real_zgemv_(trans, m, n, alpha, a, lda, x, incx, beta, y, incy, length);

    constexpr Integer most = 256; // 4 KiB of stack
    const Integer copied = std::min(*n, most), direct = *n - copied, unit = 1;
    const Index stride = *incx;
    const Complex one = 1.0;
    if (direct > 0) { // with a negative stride x points to its last element
        const Complex* const leading = stride > 0 ? x : x - copied * stride;
        __real_zgemv_(trans, m, &direct, alpha, a, lda, leading, incx, beta, y, incy, length);
    }
    alignas(Complex) Real copy[2 * (most + 1)];
    auto* const spared = reinterpret_cast<Complex*>(copy);
    const Complex* next = stride > 0 ? x + direct * stride : x - (copied - 1) * stride;
    for (Integer j = 0; j < copied; ++j, next += stride)
        spared[j] = *next;
    spared[copied] = 0.0;
    __real_zgemv_(trans, m, &copied, alpha, a + static_cast<Index>(direct) * *lda, lda, spared, &unit,
                  direct > 0 ? &one : beta, y, incy, length);
}
