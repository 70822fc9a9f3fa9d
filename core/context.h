/*
 * core/context.h - the process-wide core context.
 *
 * Conventions of every public header of this library:
 *   1. The core context comes first. A null context means the process-wide
 *      one, created on first use by gsluizgcGetContext().
 *   2. Functions return a status (0 = success); each module defines its own
 *      status names, because the same condition has different numbers in
 *      different modules.
 *   3. Out-parameters come last and are cleared on entry where the contract
 *      says so.
 *   4. Memory comes from the context's allocator (core/memory.h); text handed
 *      back is freed by the caller with gslumfFree().
 *   5. No C++ exception ever crosses this API.
 *
 * The context is created once per process, registered under the name
 * "GSLUCTX" in the component registry and published through a global
 * pointer. It is torn down by gslushut(), which start-up registers as the
 * registry's at-exit callback.
 */
#ifndef QUILLOMAT_CORE_CONTEXT_H
#define QUILLOMAT_CORE_CONTEXT_H

#ifdef __cplusplus
extern "C" {
#endif

#include <stddef.h>
#include <stdint.h>

typedef struct gsluctx gsluctx;

/* Status codes of start-up, shut-down and the callback-table helper. */
enum {
  GSLU_INIT_OK = 0,
  GSLU_INIT_NULL_ARG = 1,       /* null out-parameter or context */
  GSLU_INIT_SERVICE_FAILED = 2, /* a runtime service or later step failed */
  GSLU_INIT_NO_MEMORY = 5,      /* the registry's private memory is exhausted */
  GSLU_INIT_NULL_TABLE = 24     /* gsluicbInitCallback: null table */
};

/* Life states of a context. */
enum { GSLU_LIFE_ALIVE = 0, GSLU_LIFE_SHUT_DOWN = 2 };

/* Run-mode word of the runtime: this value selects the thread-local context
 * pointer; any other value selects the process-wide one. */
enum { GSLU_RUN_MODE_THREADED = 2 };
extern int sgslutRunMode;

/* The published context: process-wide and thread-local. Read them through
 * sgsluugGetContext(); the memory, message and output functions read the
 * process-wide one directly when handed a null context. */
extern gsluctx *sgsluzGlobalContext;
extern __thread gsluctx *sgsluzGlobalContext_t_;

/* Caller-supplied allocator callbacks (the first four) and log callback.
 * Memory uses the table only when all four memory callbacks are set. */
typedef struct gsluMemCallbacks {
  void *(*allocate)(gsluctx *ctx, void *user, uint32_t size);
  void *(*allocate_zeroed)(gsluctx *ctx, void *user, uint32_t count, uint32_t size,
                           const struct gsluMemCallbacks *table);
  void *(*reallocate)(gsluctx *ctx, void *user, uint32_t size, void *old, uint32_t oldsize,
                      const struct gsluMemCallbacks *table);
  void (*release)(gsluctx *ctx, void *user, void *block);
  int (*log)(gsluctx *ctx, void *user, uint32_t level, const char *text);
} gsluMemCallbacks;

/* Memory callbacks handed to the security service by gsluicbInitCallback:
 * the callback forms of core/memory.h and the context as their user data. */
typedef struct gsluSecMemCallbacks {
  void *(*allocate)(gsluctx *ctx, uint32_t size, int *status);
  void *(*reallocate)(gsluctx *ctx, void *old, uint32_t size, int *status);
  int (*release)(gsluctx *ctx, void **block);
  gsluctx *user;
} gsluSecMemCallbacks;

/* The part of a directory-client handle that the core looks at: the core
 * context it carries and an optional allocator pair. */
typedef struct gslcClientHandle {
  gsluctx *core;
  const gsluMemCallbacks *mem_table;
  void *mem_user;
} gslcClientHandle;

/* Returns the core context, creating it on first use; null when start-up
 * fails. Order: the published pointer, then the registry entry "GSLUCTX",
 * then gsluinit(). */
gsluctx *gsluizgcGetContext(void);

/* Why the latest start-up failed, as one line without a newline: the step
 * that failed and, for a message catalogue that could not be read, its file
 * (and line, when a line is malformed). "" when it did not fail. The text
 * stays valid until the next start-up. */
const char *gsluidStartupDiagnostic(void);

/* Creates the process-wide context into *out. Returns 0 (also when the
 * context already exists: *out is then that one), 1 for a null out, 2 when a
 * step fails, 5 when the registry's memory is exhausted. On failure *out is
 * null, except that a failure of the last step (the password-scheme table)
 * leaves the context published. */
int gsluinit(gsluctx **out);

/* Tears the context down (life state 2). 1 for a null context, else 0. */
int gslushut(gsluctx *ctx);

/* At-exit callback: nothing for a null or already shut-down context. */
void gslushutcb(gsluctx *ctx);

/* Fills table with the callback forms of core/memory.h and ctx as user data.
 * 24 for a null table, else 0. */
int gsluicbInitCallback(gsluctx *ctx, gsluSecMemCallbacks *table);

/* The core context a client handle stands for; see core/context.h notes:
 * copies the handle's allocator pair into its context first; a handle with an
 * allocator pair but no context yields null; a null handle, or one with
 * neither, yields the process-wide context. */
gsluctx *gslccx_Getgsluctx(const gslcClientHandle *handle);

/* The published context (selected by the run mode), and its setter. */
gsluctx *sgsluugGetContext(void);
void sgsluusSetContext(gsluctx *ctx);

/* Fills the unique-identifier seed and the process identifier; nothing for a
 * null context. */
void sgsluuiInit(gsluctx *ctx);

/* Does nothing; kept for symmetry with context creation. */
void sgsluucCloseContext(gsluctx *ctx);

/* Resource-manager message callback: copies text into the context's
 * resource-manager message buffer (cut to fit); ignores a null context. */
void gsluLRMMsgHandler(gsluctx *ctx, const char *text);

/* Date-service fatal-error handler: never returns; jumps back to the error
 * guard of the context that frame names, with value 1. */
__attribute__((noreturn)) void gsluderrf(void *frame, int code);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_CORE_CONTEXT_H */
