/*
 * dsml/reader.h - reads DSML documents, v1 and v2, into directory entries.
 *
 * Conventions (those of core/context.h, plus):
 *   1. A parser context (GslxdvParserCtx) is created once, parses any number
 *      of documents one at a time, and is cleaned up once. Each document's
 *      entries are handed, one at a time and as soon as the entry element
 *      closes, to the caller's callback; the reader destroys each entry when
 *      the callback returns 0.
 *   2. Only the content of directory-entries becomes entries. The schema
 *      (directory-schema) is walked and produces nothing, and any element
 *      that is not expected where it stands is skipped with its content.
 *      Element names are compared ignoring case and without any namespace
 *      prefix (dsml/xml.h hands over local names), so <dsml:entry> and
 *      <ENTRY> both open an entry. Values are kept exactly as written,
 *      surrounding white space included.
 *   3. Every attribute of an entry is built with counted values
 *      (GSLCLE_VALUES_BINARY), named as in the document; object classes
 *      become an attribute named "objectclass". Attributes keep document
 *      order.
 *   4. A value element with an "encoding" attribute (whatever its value)
 *      holds base64 text, which is decoded; without one the text is taken as
 *      it stands.
 *   5. Statuses are GSLXDV_*. A document that fails for any reason makes
 *      gslxdv1pParse return GSLXDV_FAILED (2), after releasing everything it
 *      held, so the same context can parse the next document. Entries
 *      delivered before the failure stay delivered.
 *   6. gslxdvpParse reads either version. The payload is the document
 *      element, or, when that is a SOAP Envelope, the first element inside
 *      its Body (anything beside the Body, and after the payload, is
 *      ignored). A payload dsml is read as gslxdv1pParse reads a document;
 *      batchRequest and batchResponse are DSML v2, read as below; any other
 *      payload gives no entry and the warning GSLXDV_CAUSE_NOT_DSML.
 *   7. DSML v2. Names match as in v1 (local names, any letter case), and so
 *      do DSML's own XML attributes. Each entry goes to the callback as soon
 *      as its element closes:
 *        addRequest          change type add, set explicitly; its attr
 *                            elements as attributes;
 *        modifyRequest       change type modify; each modification an
 *                            attribute whose change type is its operation
 *                            (add, delete, replace, or increment);
 *        delRequest          change type delete;
 *        modDNRequest        change type modrdn with newrdn, deleteoldrdn
 *                            (default true) and newSuperior when present;
 *        searchResultEntry   a plain content entry (change type add, never
 *                            set), in a batchResponse or a searchResponse.
 *      control elements of a request become the entry's controls (type a
 *      numeric OID, criticality default false, controlValue its value).
 *      Other requests and responses give no entry and are counted for the
 *      warnings (gslxdvgwGetWarnings); elements inside an operation other
 *      than control, attr and modification are skipped. A value is all the
 *      text directly inside its element, kept exactly; an xsi:type of
 *      base64Binary decodes it, anyURI fails the document. Booleans are
 *      true, false, 1 or 0 around XML white space. A failure records its
 *      cause (GSLXDV_CAUSE_*) as in v1.
 */
#ifndef QUILLOMAT_DSML_READER_H
#define QUILLOMAT_DSML_READER_H

#include <stdint.h>

#include "core/context.h"
#include "entry/entry.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Status codes of this module. A non-zero status returned by the entry
 * callback is passed on unchanged by sax_endElement. */
enum {
  GSLXDV_OK = 0,
  GSLXDV_XML_INIT_FAILED = 1,   /* the XML parser could not be created */
  GSLXDV_FAILED = 2,            /* a step failed: entry model, the
                                   element-state stack's bounds, or the XML
                                   parse itself */
  GSLXDV_MISSING_ATTRIBUTE = 3, /* entry without dn, attr without name */
  GSLXDV_UNKNOWN_KIND = 4,      /* gslxdv1pParse: unknown source kind */
  GSLXDV_NO_MEMORY = 5,         /* an allocation failed */
  GSLXDV_NULL_ARG = 9,          /* a required argument is null */
  GSLXDV_NO_CONTEXT = 10,       /* no core context */
  GSLXDV_BAD_BASE64 = 11,       /* a value's base64 text cannot be decoded */
  GSLXDV_REFUSED_NAME = 12      /* an attr name that the name rule refuses
                                   (gslxdvsnSetNameRule) */
};

/* Source kinds of gslxdv1pParse. Only GSLXDV_SOURCE_URI reads a document;
 * the other three are accepted and read nothing. */
enum {
  GSLXDV_SOURCE_NOT_READ_512 = 512,
  GSLXDV_SOURCE_URI = 1024, /* a file name or URI, read by the XML parser */
  GSLXDV_SOURCE_NOT_READ_2048 = 2048,
  GSLXDV_SOURCE_NOT_READ_4096 = 4096
};

/* The entry callback: given a finished entry and the callback argument of
 * gslxdv1pParse. 0 lets the reader destroy the entry and go on; any other
 * status stops the document (the entry is then released with the rest). */
typedef int32_t (*GslxdvEntryCallback)(LDAPEntry *entry, void *callback_arg);

/* The handle the caller holds: one parser context, reused for every
 * document. */
typedef struct GslxdvParserCtx GslxdvParserCtx;

/* Why the latest document failed, or what it warns of. */
enum {
  GSLXDV_CAUSE_NONE = 0,            /* read whole, nothing to say */
  GSLXDV_CAUSE_UNREADABLE = 1,      /* cannot be opened or read (detail:
                                       the system's reason) */
  GSLXDV_CAUSE_UNSUPPORTED = 2,     /* a URI this reader does not fetch */
  GSLXDV_CAUSE_BAD_URI = 3,         /* a file: URI that is not well formed */
  GSLXDV_CAUSE_NOT_WELL_FORMED = 4, /* detail: the XML parser's description */
  GSLXDV_CAUSE_ENTITY_REFUSED = 5,  /* an external entity, or entity
                                       expansion past the parser's limit
                                       (detail: the parser's description) */
  GSLXDV_CAUSE_NO_DN = 6,           /* an entry without dn */
  GSLXDV_CAUSE_NO_NAME = 7,         /* an attr without name */
  GSLXDV_CAUSE_REFUSED_NAME = 8,    /* an attr name refused (detail: it) */
  GSLXDV_CAUSE_BAD_BASE64 = 9,      /* a value's base64 text */
  GSLXDV_CAUSE_NO_MEMORY = 10,
  GSLXDV_CAUSE_CALLBACK = 11,  /* the entry callback refused the entry
                                  (detail: its status) */
  GSLXDV_CAUSE_OTHER = 12,     /* any other step that failed */
  GSLXDV_CAUSE_NOT_DSML = 13,  /* a warning, for a document read whole:
                                  its root element is not dsml, so it
                                  gave no entry (detail: the root's
                                  local name) */
  GSLXDV_CAUSE_UNMATCHED = 14, /* a closing tag with no element left to
                                  return to (a skipped element holding
                                  one of its own name ends its skip
                                  early) */
  GSLXDV_CAUSE_TOO_DEEP = 15,  /* more than 65535 elements open inside a
                                  skipped one */
  GSLXDV_CAUSE_NO_NEWRDN = 16,       /* a modDNRequest without newrdn */
  GSLXDV_CAUSE_BAD_BOOLEAN = 17,     /* detail: the text that is not one */
  GSLXDV_CAUSE_BAD_CONTROL_TYPE = 18, /* detail: the type ("" when absent) */
  GSLXDV_CAUSE_URI_VALUE = 19,       /* a value given by URI (anyURI) */
  GSLXDV_CAUSE_BAD_OPERATION = 20    /* a modification's operation
                                        (detail: it, "" when absent) */
};
/* For GSLXDV_CAUSE_NO_DN and GSLXDV_CAUSE_NO_NAME the detail is the name of
 * the element at fault ("entry", "addRequest", "attr", "modification"). */

/* The DSML version of the document being read or last read. */
enum { GSLXDV_VERSION_NONE = 0, GSLXDV_VERSION_1 = 1, GSLXDV_VERSION_2 = 2 };

/* What the latest DSML v2 document read leaves unsaid in its LDIF, for the
 * warnings written after it. Counts of elements that have no LDIF form and
 * were skipped, by kind, in this order: */
enum {
  GSLXDV_SKIPPED_SEARCH_REQUEST = 0,
  GSLXDV_SKIPPED_COMPARE_REQUEST,
  GSLXDV_SKIPPED_EXTENDED_REQUEST,
  GSLXDV_SKIPPED_ABANDON_REQUEST,
  GSLXDV_SKIPPED_AUTH_REQUEST,
  GSLXDV_SKIPPED_SEARCH_RESULT_REFERENCE,
  GSLXDV_SKIPPED_ADD_RESPONSE,
  GSLXDV_SKIPPED_MODIFY_RESPONSE,
  GSLXDV_SKIPPED_DEL_RESPONSE,
  GSLXDV_SKIPPED_MODDN_RESPONSE,
  GSLXDV_SKIPPED_COMPARE_RESPONSE,
  GSLXDV_SKIPPED_EXTENDED_RESPONSE,
  GSLXDV_SKIPPED_AUTH_RESPONSE,
  GSLXDV_SKIPPED_OTHER, /* any other element where requests or responses
                           stand */
  GSLXDV_SKIPPED_KINDS
};

/* Distinct texts in the order they first came, each cut to fit (at a
 * character boundary), at most GSLXDV_LIST_MAX of them. */
enum { GSLXDV_LIST_MAX = 8, GSLXDV_LIST_TEXT_SIZE = 33 };
typedef struct GslxdvTextList {
  uint32_t count; /* texts kept */
  uint32_t more;  /* 1 when further distinct texts were not kept */
  char texts[GSLXDV_LIST_MAX][GSLXDV_LIST_TEXT_SIZE]; /* NUL-terminated */
} GslxdvTextList;

typedef struct GslxdvWarnings {
  uint32_t skipped[GSLXDV_SKIPPED_KINDS]; /* GSLXDV_SKIPPED_* */
  uint32_t failed_searches;    /* searchResultDone whose result code is not 0 */
  GslxdvTextList result_codes; /* those codes, as written */
  uint32_t error_responses;    /* errorResponse elements */
  GslxdvTextList error_types;  /* their type attributes */
  uint32_t dropped_controls;   /* searchResultEntry elements whose controls
                                  were dropped: a content record cannot
                                  carry them */
} GslxdvWarnings;

enum { GSLXDV_DETAIL_SIZE = 256 };

typedef struct GslxdvDiagnostic {
  int32_t cause;                   /* GSLXDV_CAUSE_* */
  uint32_t line;                   /* where in the document, counted from 1: the element */
  uint32_t column;                 /* or text at fault; 0 and 0 when it has no place */
  char detail[GSLXDV_DETAIL_SIZE]; /* NUL-terminated, cut to fit; "" when
                                      the cause needs none */
} GslxdvDiagnostic;

/* ---- The reader -------------------------------------------------------------- */

/* Creates a parser context into *handle (cleared first). c1 to c6 are
 * handed unchanged to xmlinit: c1-c3 before the handler table, c4-c6 after
 * the user context. 9 for a null handle, 10 without a core context, 5 when
 * a record cannot be allocated, 1 when the XML parser cannot be created;
 * nothing is left allocated on failure. */
int32_t gslxdv1cpCreateParserCtx(void *c1, void *c2, void *c3, void *c4, void *c5, void *c6,
                                 GslxdvParserCtx **handle);

/* Reads one document and hands each entry to callback(entry, callback_arg).
 * Only the low 16 bits of kind count: GSLXDV_SOURCE_URI reads source (a
 * file name or URI); the other GSLXDV_SOURCE_* kinds store the callback and
 * return 0 without reading anything; any other kind returns 4. 9 for a null
 * source or handle. 0 when the whole document was read; 2 when it was not
 * (not readable, not well formed, or a handler or the callback failed: the
 * handler's own status is not passed on), after releasing the pending
 * entry, attribute, text and skipped name and emptying the element-state
 * stack (an array in the machine: nothing to free). 2 also, with nothing
 * done, when called from an entry callback of the same context. A null
 * callback reads the document and discards every entry. */
int32_t gslxdv1pParse(const char *source, uint32_t kind, GslxdvParserCtx *handle,
                      GslxdvEntryCallback callback, void *callback_arg);

/* Reads one document of either DSML version (convention 6) and hands each
 * entry to callback(entry, callback_arg); kinds, statuses and the release
 * of what a failed document held as gslxdv1pParse. While the callback runs,
 * gslxdvgvGetVersion tells which version the entry comes from. */
int32_t gslxdvpParse(const char *source, uint32_t kind, GslxdvParserCtx *handle,
                     GslxdvEntryCallback callback, void *callback_arg);

/* The rule the attribute names of later documents read with handle must
 * keep (GSLCLE_NAMES_* of entry/names.h; GSLCLE_NAMES_LDIF until set; any
 * other value is taken as it): an attr or modification whose name it
 * refuses fails its document with GSLXDV_CAUSE_REFUSED_NAME, at the
 * element's place. 9 for a null handle, else 0. */
int32_t gslxdvsnSetNameRule(GslxdvParserCtx *handle, int32_t rule);

/* Calls fn(arg, read, size) after each chunk of every later document read
 * with handle (see xmlSetProgress in dsml/xml.h; null fn: none). 9 for a
 * null handle, else 0. */
int32_t gslxdvspSetProgress(GslxdvParserCtx *handle, void (*fn)(void *, uint64_t, uint64_t),
                            void *arg);

/* GSLXDV_VERSION_1 or _2 once the document being read (or last read) showed
 * its version, GSLXDV_VERSION_NONE before, for a document that is neither,
 * and for a null handle. */
int32_t gslxdvgvGetVersion(const GslxdvParserCtx *handle);

/* Copies into *out the counts of the latest DSML v2 document read by
 * gslxdvpParse (all 0 after any other document). 9 for a null handle or
 * out, else 0. */
int32_t gslxdvgwGetWarnings(const GslxdvParserCtx *handle, GslxdvWarnings *out);

/* The element name of a GSLXDV_SKIPPED_* kind ("searchRequest"), or "other"
 * for GSLXDV_SKIPPED_OTHER; null for any other number. */
const char *gslxdvskSkippedKindName(int32_t kind);

/* Copies into *out what the latest gslxdv1pParse or gslxdvpParse of handle
 * has to say: why the document failed, or, for a document read whole,
 * GSLXDV_CAUSE_NOT_DSML or GSLXDV_CAUSE_NONE. 9 for a null handle or out, else 0. */
int32_t gslxdv1gdGetDiagnostic(const GslxdvParserCtx *handle, GslxdvDiagnostic *out);

/* Ends the XML parser instance, releases the machine and the context and
 * sets *handle to null. 9 for a null handle address or handle, 10 without a
 * core context, 2 (nothing done) when called from an entry callback of the
 * same context. */
int32_t gslxdv1cCleanup(GslxdvParserCtx **handle);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_DSML_READER_H */
