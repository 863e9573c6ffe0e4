/// The work buffers that the library lends to OpenBLAS; see openblas_guard.cpp.
#pragma once

#include <cstddef>

namespace tessel {

/// Bytes in a work buffer: what OpenBLAS's x86-64 build maps for each, and its blocking relies on (BUFFER_SIZE).
inline constexpr std::size_t kWorkBufferSize = std::size_t{32} << 22;

/// Buffers that can be lent at one time, as many as OpenBLAS's own table has.
inline constexpr int kWorkBuffers = 128;

} // namespace tessel
