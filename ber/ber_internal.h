// ber/ber_internal.h - what the codec's files share. Internal (C++ only).
#ifndef QUILLOMAT_BER_BER_INTERNAL_H
#define QUILLOMAT_BER_BER_INTERNAL_H

#include <cstdint>

#include "ber/io.h"
#include "core/memory.h"
#include "core/output.h"

namespace gsle {

inline constexpr uint32_t kDefaultTag = LBER_DEFAULT;
inline constexpr uint32_t kErrorTag = LBER_ERROR;
inline constexpr int32_t kFailed = GSLE_FAILED;

inline constexpr char kNoMemoryTrace[] = "Error in allocating memory \n";

// The trace every failed allocation of the codec leaves.
inline void traceNoMemory(gsluctx *ctx) {
  (void)gslu::trace(ctx, GSLE_TRACE_MEMORY, kNoMemoryTrace);
}

// Bytes left between ptr and end.
[[nodiscard]] inline uint64_t remaining(const gsleBerElement *ber) {
  return static_cast<uint64_t>(ber->end - ber->ptr);
}

// Allocates a T-sized block from the context's allocator; null on failure,
// with the memory trace.
template <class T>
[[nodiscard]] T *allocateZeroed(gsluctx *ctx, uint32_t count = 1) {
  auto *block = static_cast<T *>(gslumcCalloc(ctx, count, sizeof(T)));
  if (block == nullptr) traceNoMemory(ctx);
  return block;
}

}  // namespace gsle

#endif  // QUILLOMAT_BER_BER_INTERNAL_H
