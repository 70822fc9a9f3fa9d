// core/pool.h - a small-block pool for single-threaded programs, installed
// as the core context's allocator hooks (core/memory.h).
//
// A conversion takes and returns several small blocks for every value it
// reads (the value's text, its counted copy, element records, names) and
// returns them all when the entry has been written. The C library's
// allocator spends more time on that pattern than the conversion itself;
// the pool serves it from free lists:
//   1. Requests up to kPoolMaxSmall bytes are rounded up to a multiple of 16
//      and served from slabs of kPoolSlabSize bytes, one size class per
//      slab; a freed block goes back to its class's free list.
//   2. Larger requests go to the C library.
//   3. Blocks the pool did not make (taken before it was installed, or from
//      the C library for large requests) are recognised by their address
//      and handed back to the C library, so installing the pool while blocks
//      are alive is safe.
// Slabs are never given back: memory stays at the peak of live small
// blocks, which for a conversion is one entry's worth. Not thread-safe: only
// a program that allocates from one thread may install it.
#ifndef QUILLOMAT_CORE_POOL_H
#define QUILLOMAT_CORE_POOL_H

#include <cstddef>
#include <cstdint>

#include "core/context.h"

namespace gslu {

inline constexpr std::size_t kPoolSlabSize = 64 * 1024;
inline constexpr uint32_t kPoolGranule = 16;
inline constexpr uint32_t kPoolMaxSmall = 512;

// Makes the pool the allocator hooks of ctx (null: the process-wide
// context). 0, or 10 without a context.
[[nodiscard]] int poolInstall(gsluctx *ctx);

// The four hooks, for tests.
void *poolMalloc(gsluctx *ctx, uint32_t size);
void *poolCalloc(gsluctx *ctx, uint32_t count, uint32_t size);
void *poolRealloc(gsluctx *ctx, uint32_t size, void *old, uint32_t oldsize);
void poolFree(gsluctx *ctx, void *block);

// Whether block lies in one of the pool's slabs.
[[nodiscard]] bool poolOwns(const void *block);

}  // namespace gslu

#endif  // QUILLOMAT_CORE_POOL_H
