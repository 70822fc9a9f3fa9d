// core/output_internal.h - what the output and log modules share, and the
// test hook of the standard-output buffer. Internal (C++ only).
#ifndef QUILLOMAT_CORE_OUTPUT_INTERNAL_H
#define QUILLOMAT_CORE_OUTPUT_INTERNAL_H

#include <cstdio>

namespace gslu {

// Opens name as gslufoOpen's mode (GSLUF_MODE_*) says, close-on-exec; null
// when it cannot be opened or the mode is unknown.
[[nodiscard]] FILE *openStreamFile(const char *name, int mode);

// Test hook: drops what is buffered for standard output and forgets a
// remembered write error and a close.
void stdoutResetForTesting();

}  // namespace gslu

#endif  // QUILLOMAT_CORE_OUTPUT_INTERNAL_H
