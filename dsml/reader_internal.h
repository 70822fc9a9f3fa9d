/*
 * dsml/reader_internal.h - the reader's machinery: the element state
 * machine, its records and the five event handlers it installs in the XML
 * parser, declared so that tests and the fuzzer can drive and inspect the
 * machine event by event. A caller of the reader needs only dsml/reader.h.
 *
 * Implementation decisions the contracts below rely on:
 *   - The element-state stack is an array inside the machine: a state is
 *     pushed only for an element the transitions lead into and for the one
 *     that starts a skip (the elements inside a skipped one are counted,
 *     not pushed), so the depth never passes the longest path of the
 *     transition table plus one, and pushing and popping never allocate.
 *   - A closing tag with nothing left to pop (reachable after a skip that
 *     ended early, see sax_endElement) fails the document with
 *     GSLXDV_FAILED instead of reading a record that is not there.
 *   - The name of a skipped element is copied before anything is pushed; a
 *     copy that fails is GSLXDV_NO_MEMORY. The 16-bit count of elements open
 *     inside a skipped one fails the document with GSLXDV_FAILED rather
 *     than wrap.
 *   - When a value's text cannot be kept (allocation or base64 failure) the
 *     pending text is already released and left null, never referenced.
 *   - gslxdv1pParse, gslxdvpParse and gslxdv1cCleanup refuse
 *     (GSLXDV_FAILED, nothing touched) while a document of the same context
 *     is being read, that is when called from that context's entry
 *     callback.
 */
#ifndef QUILLOMAT_DSML_READER_INTERNAL_H
#define QUILLOMAT_DSML_READER_INTERNAL_H

#include <stdint.h>

#include "dsml/reader.h"
#include "dsml/xml.h"

#ifdef __cplusplus
extern "C" {
#endif

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

/* Most states the element-state stack holds: the transitions go at most
 * five elements deep (dsml, directory-entries, entry, attr, value), and one
 * more starts a skip. */
enum { GSLXDV_MAX_DEPTH = 8 };

/* The text of the value being read, in a buffer kept from one value to the
 * next within a document (dsml/reader_common.h). */
typedef struct GslxdvText {
  char *bytes;       /* null when no buffer is held. Owned */
  uint32_t length;   /* bytes of the pending text, NUL-terminated in the
                        buffer, the NUL not counted; 0 when none is pending
                        (the parser never hands over empty text) */
  uint32_t capacity; /* bytes the buffer holds */
} GslxdvText;

/* The state machine; the user context of every handler. */
typedef struct GslxdvStateMachine {
  LDAPEntry *entry;                  /* being built; null outside entry. Owned */
  LDAPAttribute *attribute;          /* being built; null outside objectclass and
                                        attr. Owned until added to the entry */
  uint16_t states[GSLXDV_MAX_DEPTH]; /* element-state stack: for each open
                                        element not entered while skipping,
                                        the state to return to when it
                                        closes */
  uint32_t depth;                    /* states on the stack */
  gsluctx *core_context;             /* every allocation and release */
  GslxdvText text;                   /* the pending value's text */
  uint16_t base64;                   /* 1: the current value is base64 text */
  char *skip_name;                   /* copy of the skipped element's name: not
                                        null exactly while state is SKIPPING.
                                        Owned */
  GslxdvEntryCallback callback;
  void *callback_arg;
  uint16_t skip_depth;         /* elements open while skipping; stays above
                                  zero after a skip that ended early (see
                                  sax_endElement), when start tags are only
                                  counted */
  uint16_t state;              /* GSLXDV_STATE_* */
  xmlctx *xml;                 /* the parser reading for this machine, told
                                  whether text is wanted; null when the
                                  handlers are driven without one */
  GslxdvDiagnostic diagnostic; /* of the latest document; a handler's
                                  failure records its cause and place */
  int32_t name_rule;           /* GSLCLE_NAMES_* for attr names; kept
                                  from one document to the next */
} GslxdvStateMachine;

typedef struct GslxdvV2Machine GslxdvV2Machine; /* dsml/reader_v2_internal.h */

/* Where the search for a document's payload stands (dsml/reader.h,
 * convention 6). */
enum {
  GSLXDV_PAYLOAD_NONE = 0,     /* before the document element */
  GSLXDV_PAYLOAD_ENVELOPE = 1, /* inside a SOAP Envelope, before its Body */
  GSLXDV_PAYLOAD_BODY = 2,     /* inside the Body, before its first element */
  GSLXDV_PAYLOAD_READING = 3,  /* inside the payload, read by a machine */
  GSLXDV_PAYLOAD_DONE = 4,     /* after the payload: nothing more is read */
  GSLXDV_PAYLOAD_ABSENT = 5    /* the first Body held no element: nothing is
                                  read, and no machine ever started */
};

/* The handle the caller holds. */
struct GslxdvParserCtx {
  xmlctx *xml;                  /* owned parser instance */
  GslxdvStateMachine *machine;  /* the DSML v1 machine. Owned */
  GslxdvV2Machine *machine2;    /* the DSML v2 machine. Owned */
  int32_t version;              /* GSLXDV_VERSION_* of the document */
  uint16_t busy;                /* 1 while a document is being read */
  /* Finding the payload, while the document is not handed to one
     machine's handlers outright: */
  uint16_t payload;             /* GSLXDV_PAYLOAD_* */
  uint32_t depth;               /* elements open around and in the payload */
  uint32_t payload_depth;       /* depth at which the payload stands */
};

/* ---- Event handlers: slots 1 to 5 of the XML parser's table ------------------- */

/* machine is the GslxdvStateMachine. Each returns 0 to go on, 9 for a null
 * machine, or a status that stops the document. */

/* Starts a document: resetMachine to state DOCUMENT; the callback is
 * kept. */
int sax_startDocument(void *machine);

/* Ends a document: resetMachine to state ENDED, the callback forgotten. */
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
 * collect text anywhere else), replacing any text pending there; decoded first when the value is
 * marked base64, and the mark is then cleared. 5 when memory runs out, 11 for text that does not
 * decode, 9 for null bytes. */
int sax_characters(void *machine, const char *bytes, uint32_t length);

/* ---- Helpers of the handlers -------------------------------------------------- */

/* Clears every field, sets state SKIPPING and the core context to the
 * process-wide one (created if absent). Null: nothing. */
void gslxdv1iInitSMachine(GslxdvStateMachine *machine);

/* Releases the pending entry, attribute, text and skipped name, nulls them
 * and empties the element-state stack. State, skip count, base64 mark and
 * callback stay. 9 for a null machine, else 0. */
int gslxdv1fsmFreeStateMacMemb(GslxdvStateMachine *machine);

/* The one reset of a machine between documents: releases the members
 * (gslxdv1fsmFreeStateMacMemb), clears the skip count and the base64 mark,
 * forgets the callback when forget_callback is set, and moves to state.
 * The parser, the diagnostic and the name rule stay: the parser outlives
 * its documents, and what a document has to say is read after it ended. */
void resetMachine(GslxdvStateMachine *machine, uint16_t state, bool forget_callback);

/* The value of the first attribute whose local name equals name (lower-case
 * ASCII) ignoring case; null when there is none. */
const char *gslxGetAttrValue(const xmlattrs *attributes, const char *name);

#ifdef __cplusplus
}
#endif

#endif /* QUILLOMAT_DSML_READER_INTERNAL_H */
