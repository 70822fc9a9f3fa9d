/*
 * util/stack.h - last-in, first-out stack of caller-owned elements.
 *
 * A stack is a list (util/list.h) used from its last position: the top is
 * the element at position count. Stack and list handles are the same thing,
 * so the list's conventions hold here: elements carry their own link field,
 * the stack never owns them, and the statuses are the list's (GSLULS_*)
 * except for GSLULST_EMPTY. Every operation takes the core context first
 * (null: the process-wide one).
 */
#ifndef QUILLOMAT_UTIL_STACK_H
#define QUILLOMAT_UTIL_STACK_H

#include <stdint.h>

#include "core/context.h"
#include "util/list.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Statuses of the stack beyond the list's. */
enum {
  GSLULST_OK = 0,
  GSLULST_EMPTY = 5 /* pop or top of an empty stack; the list says 4 */
};

/* Creates an empty stack: gslulscsCreateSList with the same arguments, so a
 * failed allocation gives 0 and a null *stack. */
int gslulstcCreateStack(gsluctx *ctx, uint64_t link_offset, GslulsList **stack);

/* Destroys the stack: gslulsdDestroySList. Remaining elements go to
 * free_element(ctx as given, element) bottom first. */
int gsluldstDestroyStack(gsluctx *ctx, GslulsList *stack, GslulsElementFn free_element);

/* *count = the number of elements: gslulssSize. */
int gslulstsSize(gsluctx *ctx, const GslulsList *stack, uint32_t *count);

/* Puts element on top. Always returns 0: a null stack, a null element and
 * an element that is still linked are silently not pushed. Callers that
 * must know compare the size before and after. */
int gslulstpuPush(gsluctx *ctx, GslulsList *stack, void *element);

/* Takes the top element off into *element; it is unlinked and belongs to
 * the caller again. 5 for an empty stack (*element untouched), 9 for a null
 * stack or element pointer. */
int gslulstpoPop(gsluctx *ctx, GslulsList *stack, void **element);

/* *element = the top element, which stays on the stack. 5 for an empty
 * stack (*element untouched), 9 for a null stack or element pointer. */
int gslulsttTop(gsluctx *ctx, GslulsList *stack, void **element);

/* Empties the stack without releasing elements: gslulsrRemoveAll. */
int gslulstclClear(gsluctx *ctx, GslulsList *stack);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_UTIL_STACK_H */
