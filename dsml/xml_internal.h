// dsml/xml_internal.h - the XML parser's test hook. Internal (C++ only).
#ifndef QUILLOMAT_DSML_XML_INTERNAL_H
#define QUILLOMAT_DSML_XML_INTERNAL_H

#include <cstddef>

#include "dsml/xml.h"

// Reads documents in chunks of size bytes (0 restores
// XMLIF_DEFAULT_CHUNK_SIZE), so tests can show that the events do not depend
// on where the input is split. Process-wide; not for production.
void xmlSetChunkSizeForTesting(std::size_t size);

#endif  // QUILLOMAT_DSML_XML_INTERNAL_H
