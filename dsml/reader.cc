// dsml/reader.cc - the DSML v1 reader: five event handlers driving the
// element state machine of dsml/reader_table.h. Contracts in dsml/reader.h.
#include "dsml/reader_internal.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <utility>

#include "core/memory.h"
#include "core/owned.h"
#include "dsml/reader_table.h"
#include "entry/base64.h"
#include "entry/ldif_record.h"
#include "util/strings.h"

namespace {

using gslu::ContextFree;
using gslu::Owned;
using gslxdv::Action;
using gslxdv::Transition;

// XML attributes the transitions read.
constexpr const char kDnAttribute[] = "dn";
constexpr const char kNameAttribute[] = "name";
constexpr const char kEncodingAttribute[] = "encoding";
constexpr const char kObjectclassName[] = "objectclass";

// An XML parser instance ended with xmlterm unless handed on.
struct XmlTerm {
  void operator()(xmlctx *xml) const noexcept { xmlterm(xml); }
};
using OwnedParser = std::unique_ptr<xmlctx, XmlTerm>;

const xmlsaxcb kReaderHandlers = {sax_startDocument, sax_endDocument, sax_startElement,
                                  sax_endElement,    sax_characters,  {}};

[[nodiscard]] GslxdvStateMachine *machineOf(void *user) {
  return static_cast<GslxdvStateMachine *>(user);
}

[[nodiscard]] bool isSourceKind(uint32_t kind) {
  return kind == GSLXDV_SOURCE_NOT_READ_512 || kind == GSLXDV_SOURCE_URI ||
         kind == GSLXDV_SOURCE_NOT_READ_2048 || kind == GSLXDV_SOURCE_NOT_READ_4096;
}

[[nodiscard]] bool isReading(const GslxdvStateMachine *machine) { return machine->reading != 0; }

// Each byte as an ASCII name compares ignoring case: letters in lower case,
// other ASCII as it stands, and bytes beyond ASCII as 0xff, which no name
// holds.
constexpr auto kAsciiFolded = [] {
  struct Table {
    char of[256];
  } t{};
  for (int b = 0; b < 256; ++b) {
    t.of[b] = b >= 'A' && b <= 'Z' ? static_cast<char>(b + ('a' - 'A'))
              : b < 0x80           ? static_cast<char>(b)
                                   : static_cast<char>(0xff);
  }
  return t;
}();

// Whether name (NUL-terminated) equals lower (an ASCII name in lower case)
// ignoring the case of ASCII letters. The walk stops at the first
// difference, a NUL in name included, so it never reads past name's end.
[[nodiscard]] bool equalsAscii(const char *name, std::string_view lower) {
  for (std::size_t i = 0; i < lower.size(); ++i) {
    if (kAsciiFolded.of[static_cast<unsigned char>(name[i])] != lower[i]) return false;
  }
  return name[lower.size()] == '\0';
}

[[nodiscard]] bool hasNonAscii(const char *name) {
  for (; *name != '\0'; ++name) {
    if ((static_cast<unsigned char>(*name) & 0x80) != 0) return true;
  }
  return false;
}

// The first of count names (lower-case ASCII, given by nameAt) that name
// equals ignoring case, or count. ASCII decides on its own, since ASCII
// letters fold only to ASCII; a name with bytes beyond ASCII that matched
// none is compared again through full Unicode case folding, under which a
// name of another length may match.
template <class NameAt>
[[nodiscard]] std::size_t matchName(gsluctx *core, const char *name, std::size_t count,
                                    NameAt nameAt) {
  for (std::size_t i = 0; i < count; ++i) {
    if (equalsAscii(name, nameAt(i))) return i;
  }
  if (!hasNonAscii(name)) return count;
  for (std::size_t i = 0; i < count; ++i) {
    if (gslusicStrcasecmp(core, nameAt(i).data(), name) == GSLUS_CMP_EQUAL) return i;
  }
  return count;
}

// The transition for (state, name), or null: the element is then skipped.
[[nodiscard]] const Transition *findTransition(gsluctx *core, uint16_t state, const char *name) {
  if (state >= gslxdv::kTableStates) return nullptr;
  const gslxdv::StateRows rows = gslxdv::kStateRows.of[state];
  const Transition *first = &gslxdv::kTransitions[rows.first];
  const std::size_t i =
      matchName(core, name, rows.count, [first](std::size_t k) { return first[k].element; });
  return i < rows.count ? &first[i] : nullptr;
}

// Sets the machine's state; text is collected by the parser only in the
// states that keep it, so skipped content, however long, costs nothing.
void moveTo(GslxdvStateMachine *m, uint16_t state) {
  m->state = state;
  xmlWantText(m->xml, state == GSLXDV_STATE_OC_VALUE || state == GSLXDV_STATE_VALUE);
}

// The pending text lives in a buffer the machine keeps from one value to the
// next, so a value costs no allocation of its own; a buffer grown past this
// size by a long value is given back once the value was taken.
constexpr uint32_t kRetainedTextBytes = 64 * 1024;
constexpr uint32_t kInitialTextBytes = 256;

// Forgets the pending text; the buffer stays for the next.
void dropText(GslxdvStateMachine *m) {
  m->text_pending = 0;
  m->text_length = 0;
}

// Gives the buffer back.
void releaseText(GslxdvStateMachine *m) {
  dropText(m);
  (void)gslumfFree(m->core_context, m->text);
  m->text = nullptr;
  m->text_capacity = 0;
}

// Room for size bytes in the text buffer; its content is not kept.
[[nodiscard]] bool reserveText(GslxdvStateMachine *m, uint32_t size) {
  if (size <= m->text_capacity) return true;
  const uint32_t grown = std::max(
      {size, kInitialTextBytes, m->text_capacity <= UINT32_MAX / 2 ? 2 * m->text_capacity : size});
  char *block = static_cast<char *>(gslummMalloc(m->core_context, grown));
  if (block == nullptr) return false;
  (void)gslumfFree(m->core_context, m->text);
  m->text = block;
  m->text_capacity = grown;
  return true;
}

// ---- Diagnostics ------------------------------------------------------------------

[[nodiscard]] bool hasFailure(const GslxdvDiagnostic &d) {
  return d.cause != GSLXDV_CAUSE_NONE && d.cause != GSLXDV_CAUSE_NOT_DSML;
}

void setDetail(GslxdvDiagnostic *d, const char *detail) {
  std::snprintf(d->detail, sizeof d->detail, "%s", detail != nullptr ? detail : "");
}

// Records why the document fails, where the parser stands: the tag being
// reported (for text, the tag that follows it, the end of its value). The
// position is worked out only here, as expat does it from the bytes read
// since it last did, which is costly when asked often. The first cause
// recorded is the one that counts.
void recordFailure(GslxdvStateMachine *m, int32_t cause, const char *detail) {
  GslxdvDiagnostic &d = m->diagnostic;
  if (hasFailure(d)) return;
  d.cause = cause;
  xmlPosition(m->xml, &d.line, &d.column);
  setDetail(&d, detail);
}

// The cause a handler's status stands for, unless the handler recorded one.
// A failure changes no state, so the state tells which element it was.
[[nodiscard]] int noted(GslxdvStateMachine *m, int status, const xmlattrs *attributes) {
  if (status == GSLXDV_OK || hasFailure(m->diagnostic)) return status;
  switch (status) {
    case GSLXDV_MISSING_ATTRIBUTE:
      recordFailure(m, m->state == GSLXDV_STATE_ENTRIES ? GSLXDV_CAUSE_NO_DN : GSLXDV_CAUSE_NO_NAME,
                    nullptr);
      break;
    case GSLXDV_REFUSED_NAME:
      recordFailure(m, GSLXDV_CAUSE_REFUSED_NAME, gslxGetAttrValue(attributes, kNameAttribute));
      break;
    case GSLXDV_NO_MEMORY: recordFailure(m, GSLXDV_CAUSE_NO_MEMORY, nullptr); break;
    case GSLXDV_BAD_BASE64: recordFailure(m, GSLXDV_CAUSE_BAD_BASE64, nullptr); break;
    default: recordFailure(m, GSLXDV_CAUSE_OTHER, nullptr); break;
  }
  return status;
}

// The first element of a document: anything but dsml gives no entry at all,
// which deserves a word (a DSML v2 batchRequest, say).
void noteRoot(GslxdvStateMachine *m, const char *name) {
  if (m->root_seen != 0) return;
  m->root_seen = 1;
  if (m->state != GSLXDV_STATE_DOCUMENT ||
      findTransition(m->core_context, m->state, name) != nullptr) {
    return;
  }
  GslxdvDiagnostic &d = m->diagnostic;
  d.cause = GSLXDV_CAUSE_NOT_DSML;
  xmlPosition(m->xml, &d.line, &d.column);
  setDetail(&d, name);
}

// Why xmlparse failed, when no handler said.
void recordParseFailure(GslxdvStateMachine *m, xmlctx *xml, int xml_status) {
  if (hasFailure(m->diagnostic)) return;
  int32_t cause = GSLXDV_CAUSE_OTHER;
  switch (xml_status) {
    case XMLIF_SOURCE_UNREADABLE: cause = GSLXDV_CAUSE_UNREADABLE; break;
    case XMLIF_UNSUPPORTED_SOURCE: cause = GSLXDV_CAUSE_UNSUPPORTED; break;
    case XMLIF_BAD_URI: cause = GSLXDV_CAUSE_BAD_URI; break;
    case XMLIF_NOT_WELL_FORMED: cause = GSLXDV_CAUSE_NOT_WELL_FORMED; break;
    case XMLIF_ENTITY_REFUSED: cause = GSLXDV_CAUSE_ENTITY_REFUSED; break;
    case XMLIF_NO_MEMORY: cause = GSLXDV_CAUSE_NO_MEMORY; break;
    default: break;
  }
  GslxdvDiagnostic &d = m->diagnostic;
  d.cause = cause;
  xmlPosition(xml, &d.line, &d.column);
  setDetail(&d, xmlErrorText(xml));
}

// ---- Opening an element ---------------------------------------------------------

[[nodiscard]] int createEntry(GslxdvStateMachine *m, const xmlattrs *attributes) {
  const char *dn = gslxGetAttrValue(attributes, kDnAttribute);
  if (dn == nullptr) return GSLXDV_MISSING_ATTRIBUTE;
  return gslcleceCreateLDAPEntry(nullptr, dn, &m->entry) == GSLCLE_OK ? GSLXDV_OK : GSLXDV_FAILED;
}

[[nodiscard]] int createAttribute(GslxdvStateMachine *m, const char *name) {
  return gslcleclaCreateLDAPAttribute(nullptr, name, GSLCLE_VALUES_BINARY, &m->attribute) ==
                 GSLCLE_OK
             ? GSLXDV_OK
             : GSLXDV_FAILED;
}

// Creates the attribute of an attr element; a refused name is its own
// failure. The name is checked by the same call that creates the
// attribute, which keeps the verdict, so it is looked at once.
[[nodiscard]] int createNamedAttribute(GslxdvStateMachine *m, const char *name) {
  switch (gslcleccaCreateCheckedAttribute(nullptr, name, GSLCLE_VALUES_BINARY, &m->attribute)) {
    case GSLCLE_OK: return GSLXDV_OK;
    case GSLCLEGAL_REFUSED: return GSLXDV_REFUSED_NAME;
    default: return GSLXDV_FAILED;
  }
}

[[nodiscard]] int performAction(GslxdvStateMachine *m, Action action, const xmlattrs *attributes) {
  switch (action) {
    case Action::kNone: return GSLXDV_OK;
    case Action::kCreateEntry: return createEntry(m, attributes);
    case Action::kCreateObjectclass: return createAttribute(m, kObjectclassName);
    case Action::kCreateAttribute: {
      const char *name = gslxGetAttrValue(attributes, kNameAttribute);
      if (name == nullptr) return GSLXDV_MISSING_ATTRIBUTE;
      // Deliberate: a name that would change the structure of the LDIF
      // written for the entry (a line break, a leading space or '#', or
      // "dn", "changetype", "control") fails the whole document. Writing
      // the record without it, or with the name altered, would hand a
      // directory server an entry the document did not describe.
      return createNamedAttribute(m, name);
    }
    case Action::kMarkBase64:
      // Deliberate: only ever set here and cleared by the value's first text.
      // An encoded value with no text leaves the mark for the next text kept
      // in this document, which is then decoded too.
      if (gslxGetAttrValue(attributes, kEncodingAttribute) != nullptr) m->base64 = 1;
      return GSLXDV_OK;
  }
  return GSLXDV_OK;
}

// Remembers the current state for the element's close and moves to next,
// or, without a transition, starts skipping the element. Whatever can fail
// happens before the machine changes.
[[nodiscard]] int enterElement(GslxdvStateMachine *m, const Transition *row, const char *name) {
  gsluctx *core = m->core_context;
  // Elements are pushed only along the transitions and for the element that
  // starts a skip, so the depth stays within the table's longest path; the
  // check only guards that reasoning.
  if (m->depth == GSLXDV_MAX_DEPTH) return GSLXDV_FAILED;
  Owned<char> skip_name(nullptr, ContextFree{core});
  if (row == nullptr) {
    skip_name.reset(gslussdStrdup(core, name));
    if (skip_name == nullptr) return GSLXDV_NO_MEMORY;
  }
  m->states[m->depth++] = m->state;
  if (row != nullptr) {
    moveTo(m, row->next);
    return GSLXDV_OK;
  }
  moveTo(m, GSLXDV_STATE_SKIPPING);
  m->skip_name = skip_name.release();
  m->skip_depth = 1;
  return GSLXDV_OK;
}

// ---- Closing an element -----------------------------------------------------------

[[nodiscard]] int deliverEntry(GslxdvStateMachine *m) {
  if (m->callback != nullptr && m->entry != nullptr) {
    // A refusal stops the document with the entry still held; it is
    // released with the other members when the parse fails.
    if (const int32_t st = m->callback(m->entry, m->callback_arg); st != 0) {
      char status[16];
      std::snprintf(status, sizeof status, "%d", st);
      recordFailure(m, st == GSLXDV_NO_MEMORY ? GSLXDV_CAUSE_NO_MEMORY : GSLXDV_CAUSE_CALLBACK,
                    status);
      return st;
    }
  }
  (void)gslcledeDestroyLDAPEntry(nullptr, m->entry);
  m->entry = nullptr;
  return GSLXDV_OK;
}

[[nodiscard]] int addAttribute(GslxdvStateMachine *m) {
  if (gslcleaaAddLDAPAttribute(nullptr, m->entry, m->attribute) != GSLCLE_OK) return GSLXDV_FAILED;
  m->attribute = nullptr;  // the entry owns it
  return GSLXDV_OK;
}

// Adds the pending text as a value; without text, a value of length 0.
[[nodiscard]] int addValue(GslxdvStateMachine *m) {
  const BERVal value{m->text_length, m->text_pending != 0 ? m->text : nullptr};
  if (gslcleabvAddAttrBValue(nullptr, m->attribute, &value) != GSLCLE_OK) return GSLXDV_FAILED;
  dropText(m);
  if (m->text_capacity > kRetainedTextBytes) releaseText(m);
  return GSLXDV_OK;
}

// The closing action of the element that the current state stands for.
[[nodiscard]] int closeElement(GslxdvStateMachine *m) {
  switch (m->state) {
    case GSLXDV_STATE_ENTRY: return deliverEntry(m);
    case GSLXDV_STATE_OBJECTCLASS:
    case GSLXDV_STATE_ATTR: return addAttribute(m);
    case GSLXDV_STATE_OC_VALUE:
    case GSLXDV_STATE_VALUE: return addValue(m);
    default: return GSLXDV_OK;
  }
}

// Returns to the state the closing element was opened in.
[[nodiscard]] int popState(GslxdvStateMachine *m) {
  if (m->depth == 0) {
    recordFailure(m, GSLXDV_CAUSE_UNMATCHED, nullptr);
    return GSLXDV_FAILED;
  }
  moveTo(m, m->states[--m->depth]);
  return GSLXDV_OK;
}

// ---- Text ---------------------------------------------------------------------------

// Copies length bytes of text and a NUL. The copy stops at a NUL byte (and
// pads with NULs), while the recorded length stays the full length.
void copyText(gsluctx *core, char *to, const char *bytes, uint32_t length) {
  (void)gslussnStrncpy(core, to, bytes, length);
  to[length] = '\0';  // the base64 cleaner reads up to it
}

// Replaces the length bytes of base64 text at text by the bytes they encode,
// NUL-terminated, and stores their number in *length. Decoded in place: the
// bytes never outgrow the text they come from.
[[nodiscard]] int decodeBase64(char *text, uint32_t *length) {
  const uint32_t decoded = gsluztvb64dcln(text, *length, text);
  if (decoded == GSLUZTV_B64_MALFORMED) return GSLXDV_BAD_BASE64;
  text[decoded] = '\0';
  *length = decoded;
  return GSLXDV_OK;
}

int startElement(GslxdvStateMachine *m, const char *name, const xmlattrs *attributes) {
  if (m->skip_depth != 0) {
    // Detect and prevent integer overflow: the count is 16 bits wide, and a
    // wrap to 0 would end the skip in the middle of the skipped content.
    if (m->skip_depth == UINT16_MAX) {
      recordFailure(m, GSLXDV_CAUSE_TOO_DEEP, nullptr);
      return GSLXDV_FAILED;
    }
    ++m->skip_depth;
    return GSLXDV_OK;
  }
  const Transition *row = findTransition(m->core_context, m->state, name);
  if (row != nullptr) {
    if (const int st = performAction(m, row->action, attributes); st != GSLXDV_OK) return st;
  }
  return enterElement(m, row, name);
}

int endElement(GslxdvStateMachine *m, const char *name) {
  if (m->state == GSLXDV_STATE_SKIPPING) {
    if (m->skip_depth > 0) --m->skip_depth;
    if (gslusicStrcasecmp(m->core_context, name, m->skip_name) != GSLUS_CMP_EQUAL) {
      return GSLXDV_OK;  // still inside the skipped element
    }
    // Deliberate: the skip ends at the first closing tag of the skipped
    // element's name, whatever the depth, and the count is not reset. A
    // skipped element holding one of its own name thus ends the skip early
    // and leaves the count above zero: from then on start tags are only
    // counted and closing tags pop states, until the document ends or runs
    // out of states to pop.
    (void)gslumfFree(m->core_context, m->skip_name);
    m->skip_name = nullptr;
  } else if (const int st = closeElement(m); st != GSLXDV_OK) {
    return st;
  }
  return popState(m);
}

int characters(GslxdvStateMachine *m, const char *bytes, uint32_t length) {
  if (m->state != GSLXDV_STATE_OC_VALUE && m->state != GSLXDV_STATE_VALUE) return GSLXDV_OK;
  if (bytes == nullptr) return GSLXDV_NULL_ARG;
  // Each piece replaces the pending one: of a value given in several pieces
  // only the last is kept.
  dropText(m);
  // Detect and prevent integer overflow: room for the NUL must fit 32 bits.
  if (length == UINT32_MAX) return GSLXDV_NO_MEMORY;
  if (!reserveText(m, length + 1)) return GSLXDV_NO_MEMORY;
  copyText(m->core_context, m->text, bytes, length);
  uint32_t text_length = length;
  if (m->base64 != 0) {
    if (const int st = decodeBase64(m->text, &text_length); st != GSLXDV_OK) return st;
  }
  m->text_length = text_length;
  m->text_pending = 1;
  // Deliberate: the mark is cleared after the first piece, so a later piece
  // of the same value is kept as it stands, undecoded.
  m->base64 = 0;
  return GSLXDV_OK;
}

}  // namespace

extern "C" {

// ---- The reader ---------------------------------------------------------------------

int32_t gslxdv1cpCreateParserCtx(void *c1, void *c2, void *c3, void *c4, void *c5, void *c6,
                                 GslxdvParserCtx **handle) {
  if (handle == nullptr) return GSLXDV_NULL_ARG;
  gsluctx *core = gslu::resolveContext(nullptr);
  if (core == nullptr) return GSLXDV_NO_CONTEXT;
  *handle = nullptr;
  Owned<GslxdvStateMachine> machine(
      static_cast<GslxdvStateMachine *>(gslummMalloc(core, sizeof(GslxdvStateMachine))),
      ContextFree{core});
  if (machine == nullptr) return GSLXDV_NO_MEMORY;
  gslxdv1iInitSMachine(machine.get());
  int xml_status = XMLIF_OK;  // the parser's reason is not reported further
  OwnedParser xml(xmlinit(&xml_status, c1, c2, c3, &kReaderHandlers, machine.get(), c4, c5, c6));
  if (xml == nullptr) return GSLXDV_XML_INIT_FAILED;
  auto *context = static_cast<GslxdvParserCtx *>(gslummMalloc(core, sizeof(GslxdvParserCtx)));
  if (context == nullptr) return GSLXDV_NO_MEMORY;
  machine->xml = xml.get();
  context->xml = xml.release();
  context->machine = machine.release();
  *handle = context;
  return GSLXDV_OK;
}

int32_t gslxdv1pParse(const char *source, uint32_t kind, GslxdvParserCtx *handle,
                      GslxdvEntryCallback callback, void *callback_arg) {
  if (source == nullptr || handle == nullptr) return GSLXDV_NULL_ARG;
  const uint32_t source_kind = kind & 0xffffu;  // the code is 16 bits wide
  if (!isSourceKind(source_kind)) return GSLXDV_UNKNOWN_KIND;
  GslxdvStateMachine *m = handle->machine;
  // From an entry callback: releasing the members here would pull the
  // entry from under the document being read.
  if (isReading(m)) return GSLXDV_FAILED;
  m->callback = callback;
  m->callback_arg = callback_arg;
  m->diagnostic = GslxdvDiagnostic{};
  m->root_seen = 0;
  // Deliberate: the other accepted kinds read nothing and succeed.
  if (source_kind != GSLXDV_SOURCE_URI) return GSLXDV_OK;
  const int xml_status = xmlparse(handle->xml, source, nullptr, XMLIF_READER_FLAGS);
  if (xml_status == XMLIF_OK) return GSLXDV_OK;
  recordParseFailure(m, handle->xml, xml_status);
  (void)gslxdv1fsmFreeStateMacMemb(m);
  return GSLXDV_FAILED;
}

int32_t gslxdv1gdGetDiagnostic(const GslxdvParserCtx *handle, GslxdvDiagnostic *out) {
  if (handle == nullptr || out == nullptr) return GSLXDV_NULL_ARG;
  *out = handle->machine->diagnostic;
  return GSLXDV_OK;
}

int32_t gslxdv1cCleanup(GslxdvParserCtx **handle) {
  if (handle == nullptr || *handle == nullptr) return GSLXDV_NULL_ARG;
  gsluctx *core = gslu::resolveContext(nullptr);
  if (core == nullptr) return GSLXDV_NO_CONTEXT;
  GslxdvParserCtx *context = *handle;
  if (context->machine != nullptr && isReading(context->machine)) return GSLXDV_FAILED;
  xmlterm(context->xml);
  (void)gslxdv1fsmFreeStateMacMemb(context->machine);
  (void)gslumfFree(core, context->machine);
  (void)gslumfFree(core, context);
  *handle = nullptr;
  return GSLXDV_OK;
}

// ---- Event handlers ---------------------------------------------------------------

int sax_startDocument(void *machine) {
  GslxdvStateMachine *m = machineOf(machine);
  if (m == nullptr) return GSLXDV_NULL_ARG;
  moveTo(m, GSLXDV_STATE_DOCUMENT);
  m->skip_depth = 0;
  m->entry = nullptr;
  m->attribute = nullptr;
  m->skip_name = nullptr;
  dropText(m);
  m->base64 = 0;
  m->depth = 0;
  m->reading = 1;
  return GSLXDV_OK;
}

int sax_endDocument(void *machine) {
  GslxdvStateMachine *m = machineOf(machine);
  if (m == nullptr) return GSLXDV_NULL_ARG;
  (void)gslxdv1fsmFreeStateMacMemb(m);
  // The parser outlives its documents, and what the document has to say
  // is read after it ended.
  xmlctx *xml = m->xml;
  const GslxdvDiagnostic diagnostic = m->diagnostic;
  gslxdv1iInitSMachine(m);
  m->xml = xml;
  m->diagnostic = diagnostic;
  moveTo(m, GSLXDV_STATE_ENDED);
  return GSLXDV_OK;
}

int sax_startElement(void *machine, const char *name, const xmlattrs *attributes) {
  GslxdvStateMachine *m = machineOf(machine);
  if (m == nullptr || name == nullptr) return GSLXDV_NULL_ARG;
  noteRoot(m, name);
  return noted(m, startElement(m, name, attributes), attributes);
}

int sax_endElement(void *machine, const char *name) {
  GslxdvStateMachine *m = machineOf(machine);
  if (m == nullptr || name == nullptr) return GSLXDV_NULL_ARG;
  return noted(m, endElement(m, name), nullptr);
}

int sax_characters(void *machine, const char *bytes, uint32_t length) {
  GslxdvStateMachine *m = machineOf(machine);
  if (m == nullptr) return GSLXDV_NULL_ARG;
  return noted(m, characters(m, bytes, length), nullptr);
}

// ---- Helpers --------------------------------------------------------------------------

void gslxdv1iInitSMachine(GslxdvStateMachine *machine) {
  if (machine == nullptr) return;
  *machine = GslxdvStateMachine{};
  machine->state = GSLXDV_STATE_SKIPPING;
  machine->core_context = gslu::resolveContext(nullptr);
}

int gslxdv1fsmFreeStateMacMemb(GslxdvStateMachine *machine) {
  if (machine == nullptr) return GSLXDV_NULL_ARG;
  gsluctx *core = machine->core_context;
  if (machine->entry != nullptr) (void)gslcledeDestroyLDAPEntry(nullptr, machine->entry);
  if (machine->attribute != nullptr) gslcledaDestroyLDAPAttribute(nullptr, machine->attribute);
  releaseText(machine);
  (void)gslumfFree(core, machine->skip_name);
  machine->entry = nullptr;
  machine->attribute = nullptr;
  machine->depth = 0;
  machine->reading = 0;
  machine->skip_name = nullptr;
  return GSLXDV_OK;
}

const char *gslxGetAttrValue(const xmlattrs *attributes, const char *name) {
  const uint32_t count = numAttributes(attributes);
  // The names asked for are the reader's own, in lower-case ASCII.
  const std::string_view wanted = count != 0 ? name : "";
  for (uint32_t i = 0; i < count; ++i) {
    const xmlattr *attribute = getAttributeIndex(attributes, i);
    if (matchName(nullptr, getAttrLocal(attribute), 1, [wanted](std::size_t) { return wanted; }) ==
        0) {
      return getAttrValue(attribute);
    }
  }
  return nullptr;
}

}  // extern "C"
