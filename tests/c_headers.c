/* Every public header, compiled as C. */
#include "core/context.h"
#include "core/memory.h"
#include "core/messages.h"
#include "dsml/xml.h"
#include "entry/base64.h"
#include "entry/entry.h"
#include "util/list.h"
#include "util/stack.h"
#include "util/strings.h"

int quillomat_c_header_check(void) { return 0; }
