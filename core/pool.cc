// core/pool.cc - the small-block pool: per-class free lists over slabs of one
// size class each, found again from a block's address.
#include "core/pool.h"

#include <cstdlib>
#include <cstring>

#include "core/memory.h"

namespace gslu {
namespace {

constexpr uint32_t kClasses = kPoolMaxSmall / kPoolGranule;
constexpr uintptr_t kSlabMask = ~static_cast<uintptr_t>(kPoolSlabSize - 1);
constexpr int kNoContext = 10;

static_assert((kPoolSlabSize & (kPoolSlabSize - 1)) == 0, "slabs are found by masking");
static_assert(kPoolMaxSmall % kPoolGranule == 0);

struct FreeBlock {
  FreeBlock *next;
};

// The first granule of a slab names its class; blocks follow.
struct alignas(kPoolGranule) SlabHeader {
  uint32_t size_class;
};

// The slabs' addresses, in an open-addressing set keyed by the slab number
// (address / slab size), so a block's owner is found in a probe or two.
struct SlabSet {
  uintptr_t *slots;      // 0: empty
  std::size_t capacity;  // a power of 2
  std::size_t count;
};

struct Pool {
  FreeBlock *free[kClasses];
  char *next[kClasses];  // where the class's newest slab is carved next
  char *end[kClasses];
  SlabSet slabs;
};

Pool g_pool;

[[nodiscard]] uint32_t classOf(uint32_t size) { return size == 0 ? 0 : (size - 1) / kPoolGranule; }
[[nodiscard]] uint32_t blockSize(uint32_t size_class) { return (size_class + 1) * kPoolGranule; }

[[nodiscard]] uintptr_t slabAddressOf(const void *block) {
  return reinterpret_cast<uintptr_t>(block) & kSlabMask;
}

[[nodiscard]] std::size_t firstProbe(uintptr_t slab, std::size_t capacity) {
  return (slab / kPoolSlabSize) & (capacity - 1);
}

[[nodiscard]] bool setContains(const SlabSet &set, uintptr_t slab) {
  if (set.count == 0) return false;
  for (std::size_t i = firstProbe(slab, set.capacity);; i = (i + 1) & (set.capacity - 1)) {
    if (set.slots[i] == slab) return true;
    if (set.slots[i] == 0) return false;
  }
}

void setInsert(SlabSet &set, uintptr_t slab) {
  std::size_t i = firstProbe(slab, set.capacity);
  while (set.slots[i] != 0) i = (i + 1) & (set.capacity - 1);
  set.slots[i] = slab;
  ++set.count;
}

// Records a new slab, keeping the set at most half full.
[[nodiscard]] bool registerSlab(uintptr_t slab) {
  SlabSet &set = g_pool.slabs;
  if (2 * (set.count + 1) > set.capacity) {
    SlabSet grown{nullptr, set.capacity == 0 ? 64 : 2 * set.capacity, 0};
    grown.slots = static_cast<uintptr_t *>(std::calloc(grown.capacity, sizeof(uintptr_t)));
    if (grown.slots == nullptr) return false;
    for (std::size_t i = 0; i < set.capacity; ++i) {
      if (set.slots[i] != 0) setInsert(grown, set.slots[i]);
    }
    std::free(set.slots);
    set = grown;
  }
  setInsert(set, slab);
  return true;
}

// Starts a new slab for size_class; false when memory is exhausted.
[[nodiscard]] bool addSlab(uint32_t size_class) {
  void *memory = std::aligned_alloc(kPoolSlabSize, kPoolSlabSize);
  if (memory == nullptr) return false;
  if (!registerSlab(reinterpret_cast<uintptr_t>(memory))) {
    std::free(memory);
    return false;
  }
  static_cast<SlabHeader *>(memory)->size_class = size_class;
  g_pool.next[size_class] = static_cast<char *>(memory) + sizeof(SlabHeader);
  g_pool.end[size_class] = static_cast<char *>(memory) + kPoolSlabSize;
  return true;
}

[[nodiscard]] uint32_t classOfBlock(const void *block) {
  return reinterpret_cast<const SlabHeader *>(slabAddressOf(block))->size_class;
}

}  // namespace

bool poolOwns(const void *block) { return setContains(g_pool.slabs, slabAddressOf(block)); }

void *poolMalloc(gsluctx *, uint32_t size) {
  if (size > kPoolMaxSmall) return std::malloc(size);
  const uint32_t c = classOf(size);
  if (FreeBlock *block = g_pool.free[c]) {
    g_pool.free[c] = block->next;
    return block;
  }
  const uint32_t bytes = blockSize(c);
  if (static_cast<std::size_t>(g_pool.end[c] - g_pool.next[c]) < bytes && !addSlab(c)) {
    return nullptr;
  }
  void *block = g_pool.next[c];
  g_pool.next[c] += bytes;
  return block;
}

void *poolCalloc(gsluctx *ctx, uint32_t count, uint32_t size) {
  // Detect and prevent integer overflow of count * size.
  const uint64_t total = static_cast<uint64_t>(count) * size;
  if (total > UINT32_MAX) return nullptr;
  void *block = poolMalloc(ctx, static_cast<uint32_t>(total));
  if (block != nullptr) std::memset(block, 0, total);
  return block;
}

void poolFree(gsluctx *, void *block) {
  if (block == nullptr) return;
  if (!poolOwns(block)) {
    std::free(block);
    return;
  }
  auto *freed = static_cast<FreeBlock *>(block);
  const uint32_t c = classOfBlock(block);
  freed->next = g_pool.free[c];
  g_pool.free[c] = freed;
}

void *poolRealloc(gsluctx *ctx, uint32_t size, void *old, uint32_t /*oldsize*/) {
  if (old == nullptr) return poolMalloc(ctx, size);
  // A resize to nothing fails and leaves the block with its owner, as the
  // C library path of the allocator does.
  if (size == 0) return nullptr;
  if (!poolOwns(old)) return std::realloc(old, size);
  const uint32_t room = blockSize(classOfBlock(old));
  if (size <= room) return old;
  void *moved = poolMalloc(ctx, size);
  if (moved == nullptr) return nullptr;
  std::memcpy(moved, old, room);
  poolFree(ctx, old);
  return moved;
}

int poolInstall(gsluctx *ctx) {
  return gslumsSetHooks(ctx, poolMalloc, poolCalloc, poolRealloc, poolFree) == GSLUM_OK
             ? GSLUM_OK
             : kNoContext;
}

}  // namespace gslu
