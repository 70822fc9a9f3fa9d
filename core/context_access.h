// core/context_access.h - what the layers above the core may know of a core
// context, asked through functions so that the context's layout stays
// private to the core (C++ only).
#ifndef QUILLOMAT_CORE_CONTEXT_ACCESS_H
#define QUILLOMAT_CORE_CONTEXT_ACCESS_H

#include "core/context.h"

namespace gslu {

// Whether the context's internal character set has one byte per character.
// A null context is resolved first; one that cannot be had, or that has no
// internal language yet, means UTF-8 (false).
[[nodiscard]] bool internalSetIsSingleByte(gsluctx *ctx);

// Whether text is converted to another character set on output (the
// context's output-conversion flag). False for a null context.
[[nodiscard]] bool convertsOutput(const gsluctx *ctx);

}  // namespace gslu

#endif  // QUILLOMAT_CORE_CONTEXT_ACCESS_H
