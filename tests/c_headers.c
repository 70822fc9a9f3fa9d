/* Every public header, compiled as C. */
#include "core/context.h"
#include "core/memory.h"
#include "core/messages.h"

int quillomat_c_header_check(void) { return 0; }
