// core/sanitizers.h - QUILLOMAT_LEAK_CHECKER is defined when this
// translation unit is built for AddressSanitizer or LeakSanitizer (g++ and
// clang say so differently), so code can talk to the leak checker about
// blocks that are meant to stay.
#ifndef QUILLOMAT_CORE_SANITIZERS_H
#define QUILLOMAT_CORE_SANITIZERS_H

#if defined(__SANITIZE_ADDRESS__)
#define QUILLOMAT_LEAK_CHECKER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(leak_sanitizer)
#define QUILLOMAT_LEAK_CHECKER 1
#endif
#endif

#if defined(QUILLOMAT_LEAK_CHECKER)
#include <sanitizer/lsan_interface.h>
#endif

#endif  // QUILLOMAT_CORE_SANITIZERS_H
