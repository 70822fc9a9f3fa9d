/*
 * dsml/reader.h - reads DSML v1 documents into directory entries.
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
 *
 * The event handlers (sax_*) and the helpers below them are the reader's
 * machinery, declared here so that the machine can be driven and inspected
 * event by event; a caller of the reader needs only the three public
 * operations.
 *
 * Implementation decisions the contracts below rely on:
 *   - An element-state record that cannot be allocated fails the start tag
 *     with GSLXDV_NO_MEMORY (5) before anything is pushed; a push that did
 *     not add the record (the stack's push reports success either way; the
 *     stack's size is compared before and after) releases the record and
 *     fails with GSLXDV_FAILED (2). So the element-state stack never loses
 *     step with the open elements.
 *   - A closing tag with nothing left to pop (reachable after a skip that
 *     ended early, see sax_endElement) fails the document with
 *     GSLXDV_FAILED instead of reading a record that is not there.
 *   - The name of a skipped element is copied before anything is pushed; a
 *     copy that fails is GSLXDV_NO_MEMORY. The 16-bit count of elements open
 *     inside a skipped one fails the document with GSLXDV_FAILED rather
 *     than wrap.
 *   - When a value's text cannot be kept (allocation or base64 failure) the
 *     pending text is already released and left null, never referenced.
 *   - gslxdv1pParse and gslxdv1cCleanup refuse (GSLXDV_FAILED, nothing
 *     touched) while a document of the same context is being read, that is
 *     when called from that context's entry callback.
 */
#ifndef QUILLOMAT_DSML_READER_H
#define QUILLOMAT_DSML_READER_H

#include <stdint.h>

#include "core/context.h"
#include "dsml/xml.h"
#include "entry/entry.h"
#include "util/list.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Status codes of this module. A non-zero status returned by the entry
 * callback is passed on unchanged by sax_endElement. */
enum {
    GSLXDV_OK = 0,
    GSLXDV_XML_INIT_FAILED = 1,   /* the XML parser could not be created */
    GSLXDV_FAILED = 2,            /* a step failed: entry model, stack, or the
                                     XML parse itself */
    GSLXDV_MISSING_ATTRIBUTE = 3, /* entry without dn, attr without name */
    GSLXDV_UNKNOWN_KIND = 4,      /* gslxdv1pParse: unknown source kind */
    GSLXDV_NO_MEMORY = 5,         /* an allocation failed */
    GSLXDV_NULL_ARG = 9,          /* a required argument is null */
    GSLXDV_NO_CONTEXT = 10,       /* no core context */
    GSLXDV_BAD_BASE64 = 11,       /* a value's base64 text cannot be decoded */
    GSLXDV_REFUSED_NAME = 12      /* an attr name that would forge LDIF
                                     structure (gslclecnCheckAttrName) */
};

/* Source kinds of gslxdv1pParse. Only GSLXDV_SOURCE_URI reads a document;
 * the other three are accepted and read nothing. */
enum {
    GSLXDV_SOURCE_NOT_READ_512 = 512,
    GSLXDV_SOURCE_URI = 1024, /* a file name or URI, read by the XML parser */
    GSLXDV_SOURCE_NOT_READ_2048 = 2048,
    GSLXDV_SOURCE_NOT_READ_4096 = 4096
};

/* States of the machine: where in the document the reader stands. */
enum {
    GSLXDV_STATE_DOCUMENT = 0,           /* inside the document, before dsml */
    GSLXDV_STATE_DSML = 1,               /* inside dsml */
    GSLXDV_STATE_SCHEMA = 2,             /* inside directory-schema */
    GSLXDV_STATE_ENTRIES = 3,            /* inside directory-entries */
    GSLXDV_STATE_ENTRY = 4,              /* inside entry */
    GSLXDV_STATE_OBJECTCLASS = 5,        /* inside objectclass */
    GSLXDV_STATE_OC_VALUE = 6,           /* inside oc-value */
    GSLXDV_STATE_ATTR = 7,               /* inside attr */
    GSLXDV_STATE_VALUE = 8,              /* inside value */
    GSLXDV_STATE_CLASS = 9,              /* inside class */
    GSLXDV_STATE_ATTRIBUTE_TYPE = 10,    /* inside attribute-type */
    GSLXDV_STATE_NAME = 11,              /* inside name (of a class or type) */
    GSLXDV_STATE_DESCRIPTION = 12,       /* inside description */
    GSLXDV_STATE_OBJECT_IDENTIFIER = 13, /* inside object-identifier */
    GSLXDV_STATE_CLASS_ATTRIBUTE = 14,   /* inside attribute (of a class) */
    GSLXDV_STATE_SYNTAX = 15,            /* inside syntax */
    GSLXDV_STATE_EQUALITY = 16,          /* inside equality */
    GSLXDV_STATE_ORDERING = 17,          /* inside ordering */
    GSLXDV_STATE_SUBSTRING = 18,         /* inside substring */
    GSLXDV_STATE_SKIPPING = 999,         /* skipping an unexpected element;
                                            also a fresh machine's state */
    GSLXDV_STATE_ENDED = 1000            /* the document has ended */
};

/* The entry callback: given a finished entry and the callback argument of
 * gslxdv1pParse. 0 lets the reader destroy the entry and go on; any other
 * status stops the document (the entry is then released with the rest). */
typedef int32_t (*GslxdvEntryCallback)(LDAPEntry *entry, void *callback_arg);

/* The state machine; the user context of every handler. */
typedef struct GslxdvStateMachine {
    LDAPEntry *entry;         /* being built; null outside entry. Owned */
    LDAPAttribute *attribute; /* being built; null outside objectclass and
                                 attr. Owned until added to the entry */
    GslulsList *stack;        /* element-state stack; exists only while a
                                 document is being read */
    gsluctx *core_context;    /* every allocation and release */
    char *text;               /* the pending value's bytes, NUL-terminated;
                                 null when none. Owned */
    uint32_t text_length;     /* bytes in text, the NUL not counted */
    uint16_t base64;          /* 1: the current value is base64 text */
    char *skip_name;          /* copy of the skipped element's name; null
                                 when not skipping. Owned */
    GslxdvEntryCallback callback;
    void *callback_arg;
    uint16_t skip_depth;      /* elements open while skipping */
    uint16_t state;           /* GSLXDV_STATE_* */
    xmlctx *xml;              /* the parser reading for this machine, told
                                 whether text is wanted; null when the
                                 handlers are driven without one */
} GslxdvStateMachine;

/* One per open element not entered while skipping: the state to return to
 * when the element closes. */
typedef struct GslxdvStElem {
    uint16_t state;
    void *next; /* the stack's link field; null while not on the stack */
} GslxdvStElem;

/* The handle the caller holds. */
typedef struct GslxdvParserCtx {
    xmlctx *xml;                 /* owned parser instance */
    GslxdvStateMachine *machine; /* owned */
} GslxdvParserCtx;

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
 * entry, attribute, stack, text and skipped name. 2 also, with nothing
 * done, when called from an entry callback of the same context. A null
 * callback reads the document and discards every entry. */
int32_t gslxdv1pParse(const char *source, uint32_t kind, GslxdvParserCtx *handle,
                      GslxdvEntryCallback callback, void *callback_arg);

/* Ends the XML parser instance, releases the machine and the context and
 * sets *handle to null. 9 for a null handle address or handle, 10 without a
 * core context, 2 (nothing done) when called from an entry callback of the
 * same context. */
int32_t gslxdv1cCleanup(GslxdvParserCtx **handle);

/* ---- Event handlers: slots 1 to 5 of the XML parser's table ------------------- */

/* machine is the GslxdvStateMachine. Each returns 0 to go on, 9 for a null
 * machine, or a status that stops the document. */

/* Starts a document: state DOCUMENT, nothing pending, a new element-state
 * stack (2 when it cannot be created). The callback fields are kept. */
int sax_startDocument(void *machine);

/* Ends a document: releases the members (gslxdv1fsmFreeStateMacMemb),
 * re-initialises the machine (gslxdv1iInitSMachine, which also clears the
 * callback; the parser it reads with is kept) and sets state ENDED. */
int sax_endDocument(void *machine);

/* Opens an element. While skipping, only counts it. Otherwise looks up the
 * transition for (state, name); entry (needs XML attribute "dn", else 3)
 * creates the entry, objectclass and attr (needs "name", else 3; 12 for a
 * name that gslclecnCheckAttrName refuses) create the attribute
 * (entry-model failures: 2), value with an "encoding"
 * attribute marks base64. Then pushes the current state (5 / 2 as
 * described above) and moves to the transition's state, or, without one,
 * starts skipping the element. A failure changes no state. */
int sax_startElement(void *machine, const char *name, const xmlattrs *attributes);

/* Closes an element. While skipping, ends the skip at the first closing tag
 * of the skipped element's name. Otherwise: entry hands the entry to the
 * callback (its non-zero status is returned at once, nothing popped) and
 * destroys it; objectclass and attr add the attribute to the entry;
 * oc-value and value add the pending text as a value (no text: an empty
 * value). Entry-model failures: 2. Then pops the state (2 when the stack is
 * empty). */
int sax_endElement(void *machine, const char *name);

/* Text. Kept only inside oc-value and value (the parser is told not to
 * collect text anywhere else), replacing any text pending there; decoded first when the value is marked base64, and the mark is
 * then cleared. 5 when memory runs out, 11 for text that does not decode,
 * 9 for null bytes. */
int sax_characters(void *machine, const char *bytes, uint32_t length);

/* ---- Helpers of the handlers -------------------------------------------------- */

/* Clears every field, sets state SKIPPING and the core context to the
 * process-wide one (created if absent). Null: nothing. */
void gslxdv1iInitSMachine(GslxdvStateMachine *machine);

/* Releases the pending entry, attribute, stack (with its records), text and
 * skipped name and nulls them. State, depth, base64 mark and callback stay.
 * 9 for a null machine, else 0. */
int gslxdv1fsmFreeStateMacMemb(GslxdvStateMachine *machine);

/* A new element-state record holding state, not on any stack; null when
 * out of memory. */
GslxdvStElem *gslxdv1seStElem(uint16_t state);

/* Releases an element-state record; the stack's release callback. 9 for a
 * null record, else 0. */
int gslxdv1fseFreeStElem(gsluctx *core_context, void *record);

/* The value of the first attribute whose local name equals name ignoring
 * case; null when there is none. */
const char *gslxGetAttrValue(const xmlattrs *attributes, const char *name);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_DSML_READER_H */
