// core/memory.cc - the library's allocator, with its two override levels.
#include "core/memory.h"

#include <cstdlib>

#include "core/context_internal.h"

namespace gslu {

// The caller-supplied table counts only when all four memory callbacks are
// set; a partial table is ignored entirely, even for the ones that are set.
bool callbackTableServes(const gsluctx *ctx) {
  const gsluMemCallbacks *t = ctx->mem_table;
  return t != nullptr && t->allocate != nullptr && t->allocate_zeroed != nullptr &&
         t->reallocate != nullptr && t->release != nullptr;
}

}  // namespace gslu

namespace {

// Requests to the C library are rounded up to a multiple of 8 bytes.
// Detect and prevent integer overflow: sizes are 32-bit, the sum is not.
[[nodiscard]] std::size_t roundedSize(uint32_t size) {
  return (static_cast<std::size_t>(size) + 7) & ~static_cast<std::size_t>(7);
}

[[nodiscard]] const gsluMemCallbacks *completeTable(const gsluctx *ctx) {
  return gslu::callbackTableServes(ctx) ? ctx->mem_table : nullptr;
}

}  // namespace

extern "C" {

int gslumsSetHooks(gsluctx *ctx, gsluMallocHook m, gsluCallocHook c, gsluReallocHook r,
                   gsluFreeHook f) {
  gsluctx *g = gslu::resolveContext(ctx);
  if (g == nullptr) return GSLUM_NO_CONTEXT;
  g->hook_malloc = m;
  g->hook_calloc = c;
  g->hook_realloc = r;
  g->hook_free = f;
  return GSLUM_OK;
}

void *gslummMalloc(gsluctx *ctx, uint32_t size) {
  if (size == 0) return nullptr;
  gsluctx *g = gslu::resolveContext(ctx);
  if (g != nullptr) {
    if (const gsluMemCallbacks *t = completeTable(g)) return t->allocate(g, g->mem_user, size);
    if (g->hook_malloc != nullptr) return g->hook_malloc(g, size);
  }
  return std::malloc(roundedSize(size));
}

void *gslumcCalloc(gsluctx *ctx, uint32_t count, uint32_t size) {
  if (count == 0 || size == 0) return nullptr;
  gsluctx *g = gslu::resolveContext(ctx);
  if (g != nullptr) {
    if (const gsluMemCallbacks *t = completeTable(g)) {
      return t->allocate_zeroed(g, g->mem_user, count, size, t);
    }
    // Deliberate: the zeroing hook gets the context as the caller gave it,
    // null included; embedders rely on telling the two apart.
    if (g->hook_calloc != nullptr) return g->hook_calloc(ctx, count, size);
  }
  return std::calloc(count, roundedSize(size));
}

void *gslumrRealloc(gsluctx *ctx, uint32_t size, void *old, uint32_t oldsize) {
  gsluctx *g = gslu::resolveContext(ctx);
  if (g != nullptr) {
    if (const gsluMemCallbacks *t = completeTable(g)) {
      return t->reallocate(g, g->mem_user, size, old, oldsize, t);
    }
    // Deliberate: like the zeroing hook, the caller's context as given.
    if (g->hook_realloc != nullptr) return g->hook_realloc(ctx, size, old, oldsize);
  }
  // A size of 0 would make the C library free the block behind the caller's
  // back while reporting failure; refuse it and leave the block alone.
  if (size == 0) return nullptr;
  return std::realloc(old, roundedSize(size));
}

int gslumfFree(gsluctx *ctx, void *block) {
  if (block == nullptr) return GSLUM_NULL_BLOCK;
  gsluctx *g = gslu::resolveContext(ctx);
  if (g != nullptr) {
    if (const gsluMemCallbacks *t = completeTable(g)) {
      t->release(g, g->mem_user, block);
      return GSLUM_OK;
    }
    if (g->hook_free != nullptr) {
      g->hook_free(g, block);
      return GSLUM_OK;
    }
  }
  std::free(block);
  return GSLUM_OK;
}

void *gslucmMalloc(gsluctx *ctx, uint32_t size, int *status) {
  void *p = gslummMalloc(ctx, size);
  if (status != nullptr) *status = p != nullptr ? GSLUM_OK : GSLUM_NO_MEMORY;
  return p;
}

void *gslucrRealloc(gsluctx *ctx, void *old, uint32_t size, int *status) {
  void *p = gslumrRealloc(ctx, size, old, 0);
  if (status != nullptr) *status = p != nullptr ? GSLUM_OK : GSLUM_NO_MEMORY;
  return p;
}

int gslucfFree(gsluctx *ctx, void **block) {
  if (block == nullptr) return GSLUM_NULL_BLOCK;
  int rc = gslumfFree(ctx, *block);
  *block = nullptr;
  return rc;
}

void *gslumdDummyCalloc(gsluctx *ctx, uint32_t count, uint32_t size) {
  gsluctx *g = gslu::resolveContext(ctx);
  if (g == nullptr || g->mem_manager == nullptr || g->mem_heap == nullptr) return nullptr;
  auto *mm = static_cast<gslu::MemoryManager *>(g->mem_manager);
  return mm->calloc(g->mem_heap, count, size, "gslum", 144);
}

}  // extern "C"
