// util/list.cc - the intrusive list. Contracts in util/list.h.
#include "util/list.h"

#include <cstring>

#include "core/memory.h"
#include "core/owned.h"

namespace {

// The link field lives at an offset chosen by the caller and may have any
// alignment the caller's record gives it, so it is copied, never
// dereferenced as a void*.
[[nodiscard]] void *nextOf(const GslulsList &list, const void *element) {
  void *next;
  std::memcpy(&next, static_cast<const char *>(element) + list.link_offset, sizeof next);
  return next;
}

void setNext(const GslulsList &list, void *element, void *next) {
  std::memcpy(static_cast<char *>(element) + list.link_offset, &next, sizeof next);
}

[[nodiscard]] bool isElementPosition(const GslulsList &list, uint32_t position) {
  return position >= 1 && position <= list.count;
}

void moveCursor(GslulsList &list, void *element, uint32_t position) {
  list.current = element;
  list.cursor = position;
}

// The element at position (1 .. count), leaving the cursor alone. The ends
// and the cursor are answered at once; otherwise the walk starts at the
// cursor when the position lies beyond it, else at the head.
[[nodiscard]] void *elementAt(const GslulsList &list, uint32_t position) {
  if (position == 1) return list.head;
  if (position == list.count) return list.tail;
  if (position == list.cursor) return list.current;
  void *element = list.head;
  uint32_t at = 1;
  if (position > list.cursor) {
    element = list.current;
    at = list.cursor;
  }
  for (; at < position; ++at) element = nextOf(list, element);
  return element;
}

void clearFields(GslulsList &list) {
  list.head = nullptr;
  list.tail = nullptr;
  list.current = nullptr;
  list.count = 0;
  list.cursor = 0;
}

}  // namespace

extern "C" {

int gslulscsCreateSList(gsluctx *ctx, uint64_t link_offset, GslulsList **list) {
  if (list == nullptr) return GSLULS_NULL_ARG;
  *list = nullptr;
  gsluctx *core = gslu::resolveContext(ctx);
  if (core == nullptr) return GSLULS_NO_CONTEXT;
  // Deliberate: a failed allocation still reports 0 and leaves *list null;
  // callers that care test the pointer.
  auto *created = static_cast<GslulsList *>(gslummMalloc(core, sizeof(GslulsList)));
  if (created == nullptr) return GSLULS_OK;
  clearFields(*created);
  created->link_offset = link_offset;
  *list = created;
  return GSLULS_OK;
}

int gslulsdDestroySList(gsluctx *ctx, GslulsList *list, GslulsElementFn free_element) {
  if (list == nullptr) return GSLULS_NULL_ARG;
  gsluctx *core = gslu::resolveContext(ctx);
  if (core == nullptr) return GSLULS_NO_CONTEXT;
  if (free_element != nullptr) {
    // Deliberate: the callback gets ctx as the caller gave it, not the
    // resolved context, and sees the elements first to last.
    void *element = nullptr;
    while (gslulsreRemoveElementAt(ctx, list, 1, &element) == GSLULS_OK) {
      (void)free_element(ctx, element);
    }
  } else if (int status = gslulsrRemoveAll(ctx, list); status != GSLULS_OK) {
    return status;
  }
  (void)gslumfFree(core, list);
  return GSLULS_OK;
}

int gslulssSize(gsluctx *, const GslulsList *list, uint32_t *count) {
  if (list == nullptr || count == nullptr) return GSLULS_NULL_ARG;
  *count = list->count;
  return GSLULS_OK;
}

int gslulsaAddElement(gsluctx *ctx, GslulsList *list, void *element) {
  // A null list is refused by the add itself.
  const uint32_t position = list != nullptr ? list->cursor + 1 : 1;
  return gslulsatAddElementAt(ctx, list, element, position);
}

int gslulsatAddElementAt(gsluctx *ctx, GslulsList *list, void *element, uint32_t position) {
  if (int status = gslulsCheckAddParameters(ctx, list, element); status != GSLULS_OK) {
    return status;
  }
  if (position < 1 || position > list->count + 1) return GSLULS_OUT_OF_RANGE;
  if (list->count == 0) {
    list->head = element;
    list->tail = element;
  } else if (position == 1) {
    setNext(*list, element, list->head);
    list->head = element;
  } else if (position == list->count + 1) {
    setNext(*list, list->tail, element);
    list->tail = element;
  } else {
    void *before = elementAt(*list, position - 1);
    setNext(*list, element, nextOf(*list, before));
    setNext(*list, before, element);
  }
  ++list->count;
  moveCursor(*list, element, position);
  return GSLULS_OK;
}

int gslulsgeGetElementAt(gsluctx *, GslulsList *list, uint32_t position, uint32_t move_cursor,
                         void **element) {
  if (list == nullptr || element == nullptr) return GSLULS_NULL_ARG;
  if (list->count == 0) return GSLULS_EMPTY;
  if (!isElementPosition(*list, position)) return GSLULS_OUT_OF_RANGE;
  void *found = elementAt(*list, position);
  if (move_cursor != 0) moveCursor(*list, found, position);
  *element = found;
  return GSLULS_OK;
}

int gslulsreRemoveElementAt(gsluctx *, GslulsList *list, uint32_t position, void **element) {
  if (list == nullptr) return GSLULS_NULL_ARG;
  if (list->count == 0) return GSLULS_EMPTY;
  if (!isElementPosition(*list, position)) return GSLULS_OUT_OF_RANGE;
  // Found before anything changes, so the walk can trust the cursor.
  void *before = position == 1 ? nullptr : elementAt(*list, position - 1);
  // The elements behind the removed one move up by one place; the cursor
  // keeps its number and so names the successor of its old element.
  if (position <= list->cursor) list->current = nextOf(*list, list->current);
  void *removed;
  if (before == nullptr) {
    removed = list->head;
    list->head = nextOf(*list, removed);
    if (list->head == nullptr) {
      list->tail = nullptr;
      list->cursor = 0;
    }
  } else {
    removed = nextOf(*list, before);
    setNext(*list, before, nextOf(*list, removed));
    if (nextOf(*list, before) == nullptr) list->tail = before;
  }
  --list->count;
  // The cursor stood on the last position: it stays on the last one.
  if (list->count < list->cursor) moveCursor(*list, list->tail, list->count);
  setNext(*list, removed, nullptr);
  if (element != nullptr) *element = removed;
  return GSLULS_OK;
}

int gslulsrRemoveAll(gsluctx *, GslulsList *list) {
  if (list == nullptr) return GSLULS_NULL_ARG;
  for (void *element = list->head; element != nullptr;) {
    void *next = nextOf(*list, element);
    setNext(*list, element, nullptr);
    element = next;
  }
  clearFields(*list);
  return GSLULS_OK;
}

int gslulsCheckAddParameters(gsluctx *, const GslulsList *list, const void *element) {
  if (list == nullptr || element == nullptr) return GSLULS_NULL_ARG;
  if (nextOf(*list, element) != nullptr) return GSLULS_ALREADY_LINKED;
  return GSLULS_OK;
}

int gslulspPrepend(gsluctx *ctx, GslulsList *list, void *element) {
  if (int status = gslulsCheckAddParameters(ctx, list, element); status != GSLULS_OK) {
    return status;
  }
  setNext(*list, element, list->head);
  list->head = element;
  if (list->count == 0) {
    list->tail = element;
    list->current = element;
  }
  ++list->count;
  ++list->cursor;
  return GSLULS_OK;
}

int gslulsapAppend(gsluctx *ctx, GslulsList *list, void *element) {
  if (int status = gslulsCheckAddParameters(ctx, list, element); status != GSLULS_OK) {
    return status;
  }
  if (list->count == 0) {
    list->head = element;
    moveCursor(*list, element, 1);
  } else {
    setNext(*list, list->tail, element);
  }
  list->tail = element;
  ++list->count;
  return GSLULS_OK;
}

int gslulsceCurrentElement(gsluctx *, const GslulsList *list, void **element) {
  if (list == nullptr || element == nullptr) return GSLULS_NULL_ARG;
  if (list->count == 0) {
    *element = nullptr;
    return GSLULS_EMPTY;
  }
  *element = list->current;
  return GSLULS_OK;
}

int gslulsneNextElement(gsluctx *, GslulsList *list, void **element) {
  if (list == nullptr || element == nullptr) return GSLULS_NULL_ARG;
  if (list->count == 0) {
    *element = nullptr;
    return GSLULS_EMPTY;
  }
  void *next = nextOf(*list, list->current);
  if (next != nullptr) moveCursor(*list, next, list->cursor + 1);
  *element = next;
  return GSLULS_OK;
}

int gslulsglGetLastElement(gsluctx *, GslulsList *list, void **element) {
  if (list == nullptr || element == nullptr) return GSLULS_NULL_ARG;
  if (list->count == 0) return GSLULS_EMPTY;
  moveCursor(*list, list->tail, list->count);
  *element = list->tail;
  return GSLULS_OK;
}

int gslulsrepReplaceElementAt(gsluctx *ctx, GslulsList *list, uint32_t position, void *element) {
  if (int status = gslulsCheckAddParameters(ctx, list, element); status != GSLULS_OK) {
    return status;
  }
  if (list->count == 0) return GSLULS_EMPTY;
  if (!isElementPosition(*list, position)) return GSLULS_OUT_OF_RANGE;
  void *before = position == 1 ? nullptr : elementAt(*list, position - 1);
  void *old = before == nullptr ? list->head : nextOf(*list, before);
  setNext(*list, element, nextOf(*list, old));
  if (before == nullptr) {
    list->head = element;
  } else {
    setNext(*list, before, element);
  }
  setNext(*list, old, nullptr);
  if (nextOf(*list, element) == nullptr) list->tail = element;
  moveCursor(*list, element, position);
  return GSLULS_OK;
}

int gslulsiIterate(gsluctx *ctx, const GslulsList *list, GslulsElementFn function, int keep_going) {
  if (list == nullptr) return GSLULS_NULL_ARG;
  if (function == nullptr) return GSLULS_NO_CALLBACK;
  int result = GSLULS_OK;
  for (void *element = list->head; element != nullptr;) {
    void *next = nextOf(*list, element);
    result = function(ctx, element);
    if (result != 0 && keep_going == 0) break;
    element = next;
  }
  return result;
}

}  // extern "C"
