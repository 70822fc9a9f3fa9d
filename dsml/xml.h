/*
 * dsml/xml.h - the event-driven XML parser the DSML reader stands on.
 *
 * A parser instance reads one document at a time from a file name or a
 * file: URI and reports its events to a table of handlers, in document order,
 * on the calling thread, before xmlparse returns. The parser underneath is
 * expat; this layer is the only code that knows it.
 *
 * What every handler can rely on:
 *   1. Names and texts are UTF-8.
 *   2. Element and attribute names come without any namespace prefix: the
 *      part after the last ':' of the name as written. <dsml:entry> and
 *      <entry> are reported alike. Namespace declarations (xmlns and
 *      xmlns:*) are not reported as attributes.
 *   3. The character data between two element events arrives in ONE call,
 *      however the document splits it (read boundaries, entity and
 *      character references, CDATA sections, comments). It is delivered
 *      just before the next start tag, end tag or the end of the document,
 *      so the order of events is kept. Empty text is never reported.
 *   4. Names, attribute lists and texts stay valid only during the handler
 *      call that receives them.
 *   5. A handler returns 0 to go on. Any other status stops the parse at
 *      once: no further handler is called and xmlparse returns
 *      XMLIF_HANDLER_FAILED.
 *
 * Safety: no external entity and no external DTD is ever loaded, nothing is
 * fetched from the network, and expat's protection against entity-expansion
 * attacks stays on. A reference to an entity whose text is not available
 * (an external entity, or one declared only in an unread external DTD) fails
 * the document rather than silently dropping part of its text.
 *
 * Memory: documents are read in chunks, so memory is bounded by the largest
 * single wanted text, start tag or attribute value, never by the document
 * size. The buffer of a long text is given back once it was delivered, and
 * at the end of each document.
 * Every block, expat's included, comes from the process-wide core context's
 * allocator (core/memory.h).
 */
#ifndef QUILLOMAT_DSML_XML_H
#define QUILLOMAT_DSML_XML_H

#ifdef __cplusplus
extern "C" {
#endif

#include <stddef.h>
#include <stdint.h>

/* Statuses of xmlinit (through its out-parameter) and xmlparse. */
enum {
  XMLIF_OK = 0,
  XMLIF_NULL_ARGUMENT = 1,      /* null instance or source */
  XMLIF_NO_MEMORY = 2,          /* an allocation failed (expat's included) */
  XMLIF_NO_CONTEXT = 3,         /* the core context could not be created */
  XMLIF_SOURCE_UNREADABLE = 4,  /* the file could not be opened or read */
  XMLIF_UNSUPPORTED_SOURCE = 5, /* a URI scheme other than file:, or a
                                   file: URI naming another host */
  XMLIF_BAD_URI = 6,            /* a file: URI that is not well formed */
  XMLIF_NOT_WELL_FORMED = 7,    /* the document is not well-formed XML, or
                                   is in an encoding expat does not know */
  XMLIF_ENTITY_REFUSED = 8,     /* an entity that is not loaded was used, or
                                   entity expansion went past expat's limit */
  XMLIF_TEXT_TOO_LONG = 9,      /* one text longer than 32-bit sizes allow */
  XMLIF_HANDLER_FAILED = 10,    /* a handler returned a non-zero status */
  XMLIF_BUSY = 11               /* xmlparse called again from a handler */
};

/* Slots of the handler table, numbered from 1. */
enum {
  XMLIF_SLOT_START_DOCUMENT = 1,
  XMLIF_SLOT_END_DOCUMENT = 2,
  XMLIF_SLOT_START_ELEMENT = 3,
  XMLIF_SLOT_END_ELEMENT = 4,
  XMLIF_SLOT_CHARACTERS = 5,
  XMLIF_SLOT_FIRST_UNREPORTED = 6, /* slots 6 to 20: events this parser
                                      never reports; leave them null */
  XMLIF_SLOT_COUNT = 20
};

/* Option bits of xmlparse's flags. They are the parser's own; this parser
 * accepts and records them, and always reads a plain, non-validated
 * document whatever they say. The DSML reader passes XMLIF_READER_FLAGS. */
enum {
  XMLIF_OPTION_BIT_1 = 0x2,
  XMLIF_OPTION_BIT_3 = 0x8,
  XMLIF_READER_FLAGS = XMLIF_OPTION_BIT_1 | XMLIF_OPTION_BIT_3
};

/* Documents are read in chunks of this many bytes. */
enum { XMLIF_DEFAULT_CHUNK_SIZE = 256 * 1024 };

typedef struct xmlctx xmlctx;     /* a parser instance */
typedef struct xmlattrs xmlattrs; /* the attributes of one start tag */
typedef struct xmlattr xmlattr;   /* one attribute of such a list */

/* Handlers. user is the user context given to xmlinit. */
typedef int (*xmlStartDocumentHandler)(void *user);
typedef int (*xmlEndDocumentHandler)(void *user);
/* name: local name, NUL-terminated. attrs: never null; its count is 0 when
 * the tag has no attributes. */
typedef int (*xmlStartElementHandler)(void *user, const char *name, const xmlattrs *attrs);
typedef int (*xmlEndElementHandler)(void *user, const char *name);
/* bytes: length bytes of text, length >= 1, NOT NUL-terminated. */
typedef int (*xmlCharactersHandler)(void *user, const char *bytes, uint32_t length);
typedef void (*xmlUnreportedHandler)(void);

/* The handler table: 20 slots, each a handler or null. A null slot means
 * the event is not reported. */
typedef struct xmlsaxcb {
  xmlStartDocumentHandler startDocument; /* slot 1 */
  xmlEndDocumentHandler endDocument;     /* slot 2 */
  xmlStartElementHandler startElement;   /* slot 3 */
  xmlEndElementHandler endElement;       /* slot 4 */
  xmlCharactersHandler characters;       /* slot 5 */
  xmlUnreportedHandler unreported[XMLIF_SLOT_COUNT - XMLIF_SLOT_FIRST_UNREPORTED + 1];
} xmlsaxcb;

/* Creates a parser instance that reports events to a copy of *handlers
 * (null: no handler at all), giving each handler user. The configuration
 * values c1 to c6 are kept with the instance; expat needs none of them.
 * *err (when err is not null) is set to XMLIF_OK, or to XMLIF_NO_CONTEXT or
 * XMLIF_NO_MEMORY when null is returned. Release with xmlterm. */
xmlctx *xmlinit(int *err, void *c1, void *c2, void *c3, const xmlsaxcb *handlers, void *user,
                void *c4, void *c5, void *c6);

/* Reads and parses the document named by source: a file name, or a URI.
 * Only file: URIs are read (file:/path, file:///path, file://localhost/path,
 * percent-encoded; a '?' or '#' ends the path); any other scheme is refused
 * without touching the network. A source that starts with a URI scheme
 * (letter, then letters, digits, '+', '-' or '.', then ':') is a URI; name
 * a local file with such a name as ./name. encoding (may be null) overrides
 * the document's declared encoding. flags: see XMLIF_OPTION_BIT_*.
 * Returns XMLIF_OK when the whole document was read and every handler
 * returned 0, else one of the statuses above; the handlers have then seen
 * the events up to the failure (text pending at a syntax error is dropped).
 * The instance can parse any number of documents, one at a time. */
int xmlparse(xmlctx *xml, const char *source, const char *encoding, uint32_t flags);

/* Ends the instance and releases everything it holds. Null: nothing. Must
 * not be called from a handler of the same instance. */
void xmlterm(xmlctx *xml);

/* Called after each chunk of a document is read: read is the bytes read
 * so far, size the document's size when it is a regular file, else 0. It
 * may write, but must not call into this parser instance. */
typedef void (*xmlProgressFn)(void *arg, uint64_t read, uint64_t size);

/* Installs fn (null: none) with its argument, for the documents parsed
 * from now on. Null xml: nothing. */
void xmlSetProgress(xmlctx *xml, xmlProgressFn fn, void *arg);

/* Replaces the handler table (a copy of *handlers; null: no handler at all)
 * and the user context given to the handlers, from the next event on. A
 * handler may call it, to hand the rest of the document to other handlers.
 * Null xml: nothing. */
void xmlSetHandlers(xmlctx *xml, const xmlsaxcb *handlers, void *user);

/* Whether text arriving from now on is wanted. Unwanted text is dropped as
 * it arrives, neither kept nor reported, so content nobody reads costs no
 * memory however long it is. Every document starts with text wanted. A
 * handler may call it; it applies to the text after the event being
 * handled. Null xml: nothing. */
void xmlWantText(xmlctx *xml, int wanted);

/* Where the parser stands, lines and columns counted from 1 (0 and 0 when
 * unknown or for a null xml): during a start or end tag's handler call,
 * where the tag begins (during the text handler, where the tag after the
 * text begins); after xmlparse failed, where it failed (for a document that
 * is not well-formed, where expat found the error). Worked out when asked,
 * so it costs nothing until then. */
void xmlPosition(const xmlctx *xml, uint32_t *line, uint32_t *column);

/* After xmlparse failed: why, in words: the system's reason a source could
 * not be opened or read ("No such file or directory", "Is a directory"),
 * or expat's description of the error ("mismatched tag"); "" when there is
 * none (a handler's failure, say) or for a null xml. Valid until the next
 * xmlparse of the instance. */
const char *xmlErrorText(const xmlctx *xml);

/* The XML parser underneath and its version as it runs, such as
 * "expat_2.5.0". */
const char *xmlParserVersion(void);

/* Number of attributes in attrs; 0 for null. */
uint32_t numAttributes(const xmlattrs *attrs);

/* The attribute at index (from 0) of attrs, or null when out of range. */
const xmlattr *getAttributeIndex(const xmlattrs *attrs, uint32_t index);

/* The attribute's local name (after the last ':'), NUL-terminated; null for
 * a null attribute. */
const char *getAttrLocal(const xmlattr *attr);

/* The attribute's value, NUL-terminated and with references replaced; null
 * for a null attribute. */
const char *getAttrValue(const xmlattr *attr);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_DSML_XML_H */
