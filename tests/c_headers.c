/* Every public header, compiled together as C; tests/CMakeLists.txt also
 * compiles each one on its own as C11 with -pedantic. */
#include "ber/decode.h"
#include "ber/encode.h"
#include "ber/io.h"
#include "ber/lber.h"
#include "ber/ldap_export.h"
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
