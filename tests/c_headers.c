/* Every public header, compiled together as C; tests/CMakeLists.txt also
 * compiles each one on its own as C11 with -pedantic. */
#include "core/context.h"
#include "core/convert.h"
#include "core/memory.h"
#include "core/messages.h"
#include "core/output.h"
#include "dsml/reader.h"
#include "dsml/xml.h"
#include "entry/base64.h"
#include "entry/entry.h"
#include "entry/ldif_line.h"
#include "entry/ldif_record.h"
#include "util/hash.h"
#include "util/list.h"
#include "util/stack.h"
#include "util/strings.h"

int quillomat_c_header_check(void) { return 0; }
