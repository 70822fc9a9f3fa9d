/*
 * util/list.h - intrusive singly linked list of caller-owned elements, with
 * a cursor.
 *
 * Conventions (those of core/context.h, plus):
 *   1. Every element record carries its own link field: a pointer to the next
 *      element, null in the last one. The list is told at creation how many
 *      bytes into the element that field lies (offsetof(T, field)). The list
 *      never allocates per element.
 *   2. An element whose link field is not null counts as already linked and
 *      cannot be added; every removal sets the link field back to null.
 *      A list's last element has a null link too, so the check cannot tell
 *      it from a free element: never add an element that is still the last
 *      one of some list.
 *   3. The list never owns its elements: removal hands them back, and only
 *      gslulsdDestroySList can release them, through the caller's callback.
 *   4. Positions count from 1. The cursor (current, cursor) names one
 *      element of a non-empty list and is 0 / null when the list is empty;
 *      every insertion moves it to the new element.
 *   5. Only creation and destruction use the core context (null: the
 *      process-wide one); the other operations ignore it.
 *   6. Out-parameters are written only where the contract says so; on a
 *      failing status they are left untouched unless stated.
 *
 * Access by position starts from the head or from the cursor, whichever is
 * nearer behind the target; positions 1, count and cursor are answered at
 * once, so a walk through 1, 2, 3 ... with move_cursor set costs one step per
 * access.
 */
#ifndef QUILLOMAT_UTIL_LIST_H
#define QUILLOMAT_UTIL_LIST_H

#include <stdint.h>

#include "core/context.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Status codes of the list (and, except for GSLULST_EMPTY, of the stack). */
enum {
  GSLULS_OK = 0,
  GSLULS_OUT_OF_RANGE = 1,   /* position 0 or beyond the allowed end */
  GSLULS_ALREADY_LINKED = 2, /* the element to add has a non-null link */
  GSLULS_NO_CALLBACK = 3,    /* gslulsiIterate: null function */
  GSLULS_EMPTY = 4,          /* the list holds no element */
  GSLULS_NULL_ARG = 9,       /* a required argument is null */
  GSLULS_NO_CONTEXT = 10     /* no core context could be had */
};

/* The list record. Read-only for callers; the invariants are: count equals
 * the number of elements reachable from head; tail is the element whose link
 * is null; when count > 0, 1 <= cursor <= count and current is the element
 * at position cursor. */
typedef struct GslulsList {
  void *head;           /* first element, null when empty */
  void *tail;           /* last element, null when empty */
  void *current;        /* the cursor element */
  uint64_t link_offset; /* byte offset of the link field in every element */
  uint32_t count;       /* number of elements */
  uint32_t cursor;      /* position of current, 0 when empty */
} GslulsList;

/* Called with an element: the release callback of gslulsdDestroySList (its
 * result is ignored) and the function of gslulsiIterate. */
typedef int (*GslulsElementFn)(gsluctx *ctx, void *element);

/* Creates an empty list whose elements keep their link field link_offset
 * bytes in. *list is cleared first. 9 for a null list pointer, 10 without a
 * core context. When the allocation fails the result is still 0 with *list
 * null: callers that care test the pointer. */
int gslulscsCreateSList(gsluctx *ctx, uint64_t link_offset, GslulsList **list);

/* Destroys the list. With free_element: removes the element at position 1,
 * calls free_element(ctx, element) with ctx exactly as given here (possibly
 * null), and repeats until the list is empty; elements are thus released
 * first to last. Without: unlinks all elements (gslulsrRemoveAll) and leaves
 * them to their owners. Then releases the record and returns 0. 9 for a null
 * list, 10 without a core context (nothing is done then). */
int gslulsdDestroySList(gsluctx *ctx, GslulsList *list, GslulsElementFn free_element);

/* *count = the number of elements. 9 for a null list or count. */
int gslulssSize(gsluctx *ctx, const GslulsList *list, uint32_t *count);

/* Adds element right after the cursor, at position cursor + 1, and moves the
 * cursor to it, so successive calls append in call order. Statuses of
 * gslulsatAddElementAt (a null list gives 9 there). */
int gslulsaAddElement(gsluctx *ctx, GslulsList *list, void *element);

/* Inserts element at position (1 .. count + 1) and moves the cursor to it.
 * 9 for a null list or element, 2 when the element is linked, 1 for a
 * position out of range; the list is unchanged on failure. */
int gslulsatAddElementAt(gsluctx *ctx, GslulsList *list, void *element, uint32_t position);

/* *element = the element at position (1 .. count); when move_cursor is not
 * 0 the cursor moves to it. 9 for a null list or element pointer, 4 for an
 * empty list, 1 for a position out of range. */
int gslulsgeGetElementAt(gsluctx *ctx, GslulsList *list, uint32_t position, uint32_t move_cursor,
                         void **element);

/* Unlinks the element at position (1 .. count), sets its link to null and
 * hands it back through *element when element is not null. The cursor keeps
 * its position number, now naming the element that moved up into it, unless
 * it was the last position, which it then stays. 9 for a null list, 4 for an
 * empty list, 1 for a position out of range. */
int gslulsreRemoveElementAt(gsluctx *ctx, GslulsList *list, uint32_t position, void **element);

/* Empties the list, setting every former element's link to null; releases
 * nothing. 9 for a null list, else 0. */
int gslulsrRemoveAll(gsluctx *ctx, GslulsList *list);

/* The checks of every adding operation: 9 for a null list or element, 2 for
 * an element whose link is not null, else 0. */
int gslulsCheckAddParameters(gsluctx *ctx, const GslulsList *list, const void *element);

/* Inserts element at position 1. The cursor stays on the same element (its
 * number grows by 1); in an empty list the element becomes the cursor.
 * Statuses of gslulsCheckAddParameters. */
int gslulspPrepend(gsluctx *ctx, GslulsList *list, void *element);

/* Links element after the tail. The cursor stays where it is; in an empty
 * list the element becomes the cursor. Statuses of gslulsCheckAddParameters. */
int gslulsapAppend(gsluctx *ctx, GslulsList *list, void *element);

/* *element = the cursor element. 9 for a null list or element pointer; an
 * empty list gives *element null and 4. */
int gslulsceCurrentElement(gsluctx *ctx, const GslulsList *list, void **element);

/* *element = the element after the cursor, and the cursor moves to it. At
 * the end *element is null, the status 0 and the cursor stays. 9 for a null
 * list or element pointer; an empty list gives *element null and 4. */
int gslulsneNextElement(gsluctx *ctx, GslulsList *list, void **element);

/* *element = the last element, and the cursor moves to it. 9 for a null list
 * or element pointer, 4 for an empty list. */
int gslulsglGetLastElement(gsluctx *ctx, GslulsList *list, void **element);

/* Puts element in the place of the one at position (1 .. count); the old one
 * is unlinked (link set to null) but not handed back, so the caller must
 * still hold it. The cursor moves to the new element. Statuses of
 * gslulsCheckAddParameters, then 4 for an empty list, 1 for a position out
 * of range. */
int gslulsrepReplaceElementAt(gsluctx *ctx, GslulsList *list, uint32_t position, void *element);

/* Calls function(ctx, element) for every element from head to tail. When
 * keep_going is 0 the first non-zero result stops the walk. Returns the last
 * result; 0 for an empty list, 9 for a null list, 3 for a null function.
 * The function must not add to or remove from the list. */
int gslulsiIterate(gsluctx *ctx, const GslulsList *list, GslulsElementFn function, int keep_going);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_UTIL_LIST_H */
