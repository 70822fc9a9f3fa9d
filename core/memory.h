/*
 * core/memory.h - the library's allocator. Every block handed to a caller,
 * and every block that holds document data (entries, values, records, the
 * parser's buffers, the message catalogue), is taken and returned here.
 * Only the runtime's own bookkeeping comes straight from the C library: the
 * registry's private memory (which holds the context itself), the service
 * records of the runtime, the per-thread converter caches with their scratch
 * buffer, and whatever iconv and ICU allocate inside their own calls.
 *
 * Each function accepts a null context and then uses the published
 * process-wide context (or creates it). Two override levels are tried in
 * order:
 *   1. the caller-supplied callback table of the context, used only when all
 *      four of its memory callbacks are set (otherwise ignored entirely);
 *   2. the context's own allocator hooks, each used by itself when set;
 *   3. otherwise the C library, with every size rounded up to a multiple of 8.
 * Sizes reach callbacks and hooks unrounded. Blocks are not zeroed except by
 * the zeroing allocation. Exhaustion is reported by a null result only.
 */
#ifndef QUILLOMAT_CORE_MEMORY_H
#define QUILLOMAT_CORE_MEMORY_H

#include "core/context.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Status codes of this module. */
enum {
  GSLUM_OK = 0,
  GSLUM_NULL_BLOCK = 3,  /* gslumfFree of a null block */
  GSLUM_NO_CONTEXT = 10, /* gslumsSetHooks: no core context */
  GSLUM_NO_MEMORY = 24   /* callback forms: the allocation failed */
};

/* The context's allocator hooks (level 2). */
typedef void *(*gsluMallocHook)(gsluctx *ctx, uint32_t size);
typedef void *(*gsluCallocHook)(gsluctx *ctx, uint32_t count, uint32_t size);
typedef void *(*gsluReallocHook)(gsluctx *ctx, uint32_t size, void *old, uint32_t oldsize);
typedef void (*gsluFreeHook)(gsluctx *ctx, void *block);

/* Installs the four allocator hooks of ctx (null ctx: the process-wide one);
 * any of them may be null. Returns 0, or 10 when there is no context. */
int gslumsSetHooks(gsluctx *ctx, gsluMallocHook m, gsluCallocHook c, gsluReallocHook r,
                   gsluFreeHook f);

/* A block of size bytes, or null. Size 0 returns null without allocating.
 * The allocate and free hooks receive the resolved context. */
void *gslummMalloc(gsluctx *ctx, uint32_t size);

/* A zeroed block of count * size bytes, or null; either argument 0 gives
 * null. The zeroing hook receives ctx exactly as given (null stays null). */
void *gslumcCalloc(gsluctx *ctx, uint32_t count, uint32_t size);

/* Resizes old (of oldsize bytes) to size bytes; note the new size comes
 * first. The reallocation hook receives ctx exactly as given. On failure old
 * is untouched and still the caller's; size 0 from the C library is such a
 * failure. */
void *gslumrRealloc(gsluctx *ctx, uint32_t size, void *old, uint32_t oldsize);

/* Frees block: 3 for a null block (nothing called), else 0. */
int gslumfFree(gsluctx *ctx, void *block);

/* Callback forms for the security service: *status is 0, or 24 when the
 * result is null. gslucrRealloc passes old size 0. gslucfFree frees *block,
 * nulls it and returns gslumfFree's result. */
void *gslucmMalloc(gsluctx *ctx, uint32_t size, int *status);
void *gslucrRealloc(gsluctx *ctx, void *old, uint32_t size, int *status);
int gslucfFree(gsluctx *ctx, void **block);

/* Zeroed memory from the context's runtime memory-manager handles, tagged
 * with the source name "gslum" and line 144; for the directory client
 * library. Null when the context has no memory manager (as after start-up). */
void *gslumdDummyCalloc(gsluctx *ctx, uint32_t count, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_CORE_MEMORY_H */
