// dsml/reader_v2_internal.h - the DSML v2 reader: the element state machine
// that turns a batchRequest's operations and a batchResponse's search
// result entries into directory entries (dsml/reader.h, convention 7), its
// transitions and the five event handlers it installs in the XML parser.
// Internal (C++ only): the parser context (dsml/reader.cc) hands it the
// payload of a DSML v2 document; tests and the fuzzer may drive it too.
//
// Implementation decisions the contracts below rely on:
//   - The machine is shaped as the v1 machine is: a table of (state,
//     element) transitions with an action each, a fixed array of the states
//     to return to, text wanted from the parser only inside value and
//     controlValue. Unlike v1's, a skip ends exactly where the skipped
//     element does (the elements inside it are counted).
//   - Every failure records its cause and place where it happens, and
//     returns GSLXDV_FAILED (GSLXDV_NO_MEMORY when memory ran out, or the
//     callback's own status); the handler that failed changes no state.
//   - The value of a control is kept in the text buffer from the close of
//     its controlValue to the close of its control, where the control is
//     added to the entry; nothing else is read inside a control.
#ifndef QUILLOMAT_DSML_READER_V2_INTERNAL_H
#define QUILLOMAT_DSML_READER_V2_INTERNAL_H

#include <cstdint>
#include <string_view>

#include "dsml/reader_internal.h"

namespace gslxdv2 {

// States of the machine: where in the payload the reader stands.
enum State : uint16_t {
  kDocument = 0,           // before the payload element
  kBatchRequest = 1,       // inside batchRequest: the operations
  kBatchResponse = 2,      // inside batchResponse: the responses
  kSearchResponse = 3,     // inside searchResponse: its responses
  kAddRequest = 4,         // inside an operation or a search result entry,
  kModifyRequest = 5,      // whose entry is being built
  kDelRequest = 6,
  kModDnRequest = 7,
  kSearchResultEntry = 8,
  kAttr = 9,               // inside attr: an attribute being built
  kModification = 10,      // inside modification: likewise
  kValue = 11,             // inside value: text kept
  kControl = 12,           // inside control of a request
  kControlValue = 13,      // inside its controlValue: text kept
  kSearchResultDone = 14,  // inside searchResultDone: its resultCode read
  kInert = 15,             // inside an element read at its start only
                           // (resultCode, errorResponse): children skipped
  kSkipping = 999,         // inside an element skipped with its content
  kEnded = 1000            // the document has ended; also a fresh machine
};

// What opening the element does before the machine moves on.
enum class Action : uint8_t {
  kNone,
  kCreateAdd,            // an entry of change type add, set explicitly
  kCreateModify,         // an entry of change type modify
  kCreateDelete,         // an entry of change type delete
  kCreateModDn,          // an entry of change type modrdn with its fields
  kCreateSearchEntry,    // a content entry
  kCreateAttribute,      // an attr's attribute
  kCreateModification,   // a modification's attribute and change type
  kStartValue,           // a value or controlValue: its xsi:type
  kStartControl,         // a request's control: type and criticality
  kDropControl,          // a search result entry's control: noted, skipped
  kNoteResultCode,       // a searchResultDone's result code
  kNoteErrorResponse,    // an errorResponse and its type
  kCountSkipped,         // a request or response with no LDIF form
};

struct Transition {
  uint16_t state;            // current state
  std::string_view element;  // element name in lower case, compared ignoring case
  Action action;
  uint16_t next;             // state after the element opened; kSkipping
                             // skips it with its content
  int32_t skipped = GSLXDV_SKIPPED_OTHER;  // kCountSkipped: which kind
};

// Most states the element-state stack holds: the transitions go at most
// five elements deep (batchResponse, searchResponse, searchResultEntry,
// attr, value), and one more starts a skip.
inline constexpr uint32_t kMaxDepth = 8;

}  // namespace gslxdv2

// The DSML v2 machine; the user context of its handlers.
struct GslxdvV2Machine {
  gsluctx *core;                 // every allocation and release
  xmlctx *xml;                   // the parser reading for this machine: told
                                 // whether text is wanted, asked where it is
  GslxdvEntryCallback callback;  // of the document being read
  void *callback_arg;
  LDAPEntry *entry;              // being built; owned until delivered
  LDAPAttribute *attribute;      // being built; owned until added
  char *control_oid;             // the open control's type. Owned
  uint8_t control_critical;      // its criticality
  uint8_t control_has_value;     // 1 once its controlValue closed
  uint8_t entry_had_controls;    // the open search result entry had one
  uint8_t base64;                // the open value is base64Binary
  uint16_t state;                // gslxdv2::State
  uint16_t states[gslxdv2::kMaxDepth];  // the states to return to
  uint32_t depth;                // states on the stack
  uint32_t skip_depth;           // elements open in the skipped one, itself
                                 // included; 0 when not skipping
  GslxdvText text;               // the open value's text
  int32_t name_rule;             // GSLCLE_NAMES_* for attr and modification names
  GslxdvDiagnostic diagnostic;   // of the latest document
  GslxdvWarnings warnings;       // of the latest document
};

namespace gslxdv2 {

// The transitions (reader_v2.cc), for the tests that walk them.
[[nodiscard]] const Transition *transitions(std::size_t *count);

// A machine for documents read by xml, or null when memory runs out.
[[nodiscard]] GslxdvV2Machine *createMachine(gsluctx *core, xmlctx *xml);

// Releases the members and the machine. Null: nothing.
void destroyMachine(GslxdvV2Machine *machine);

// Prepares the machine for a document: its callback, and no diagnostic or
// warnings yet.
void prepareDocument(GslxdvV2Machine *machine, GslxdvEntryCallback callback, void *callback_arg);

// Releases the pending entry, attribute, control and the text buffer, and
// empties the stack; the diagnostic and the warnings stay.
void releaseMembers(GslxdvV2Machine *machine);

// The five handlers, in the order of the XML parser's table; the user
// context is the machine. Each returns 0 to go on, else the status that
// stops the document.
extern const xmlsaxcb kHandlers;

}  // namespace gslxdv2

#endif  // QUILLOMAT_DSML_READER_V2_INTERNAL_H
