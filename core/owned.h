// core/owned.h - blocks of the context's allocator held by RAII, and the
// context a function works on. For every layer of the library (C++ only);
// nothing here shows the context's layout.
#ifndef QUILLOMAT_CORE_OWNED_H
#define QUILLOMAT_CORE_OWNED_H

#include <memory>

#include "core/context.h"
#include "core/memory.h"

namespace gslu {

// The context a function works on: ctx itself, else the published
// process-wide pointer, else the context created now (null when start-up
// fails).
[[nodiscard]] inline gsluctx *resolveContext(gsluctx *ctx) {
  if (ctx != nullptr) return ctx;
  if (sgsluzGlobalContext != nullptr) return sgsluzGlobalContext;
  return gsluizgcGetContext();
}

// Frees a block through the context's allocator; for std::unique_ptr.
struct ContextFree {
  gsluctx *ctx;
  void operator()(void *p) const noexcept { (void)gslumfFree(ctx, p); }
};

// A block owned until it is handed on with release().
template <class T>
using Owned = std::unique_ptr<T, ContextFree>;

}  // namespace gslu

#endif  // QUILLOMAT_CORE_OWNED_H
