/// The pool of work buffers for OpenBLAS; see openblas_guard.cpp.
#pragma once

#include <cstddef>

namespace tessel {

/// Bytes in a work buffer: what OpenBLAS's x86-64 build maps for each, and its blocking relies on (BUFFER_SIZE).
inline constexpr std::size_t kWorkBufferSize = std::size_t{32} << 22;

/// Buffers that can be in use at one time, as many as in OpenBLAS's own table.
inline constexpr int kWorkBuffers = 128;

} // namespace tessel
