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
#include "dsml/reader_common.h"
#include "dsml/reader_table.h"
#include "dsml/reader_v2_internal.h"
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

// The names failures give the elements at fault.
constexpr char kEntryElement[] = "entry";
constexpr char kAttrElement[] = "attr";

// An XML parser instance ended with xmlterm unless handed on.
struct XmlTerm {
  void operator()(xmlctx *xml) const noexcept { xmlterm(xml); }
};
using OwnedParser = std::unique_ptr<xmlctx, XmlTerm>;

[[nodiscard]] GslxdvStateMachine *machineOf(void *user) {
  return static_cast<GslxdvStateMachine *>(user);
}

[[nodiscard]] bool isSourceKind(uint32_t kind) {
  return kind == GSLXDV_SOURCE_NOT_READ_512 || kind == GSLXDV_SOURCE_URI ||
         kind == GSLXDV_SOURCE_NOT_READ_2048 || kind == GSLXDV_SOURCE_NOT_READ_4096;
}

// The transition for (state, name), or null: the element is then skipped.
[[nodiscard]] const Transition *findTransition(gsluctx *core, uint16_t state, const char *name) {
  return gslxdv::findRow(core, gslxdv::kTransitions, gslxdv::kStateRows, state, name);
}

// Sets the machine's state; text is collected by the parser only in the
// states that keep it, so skipped content, however long, costs nothing.
void moveTo(GslxdvStateMachine *m, uint16_t state) {
  m->state = state;
  xmlWantText(m->xml, state == GSLXDV_STATE_OC_VALUE || state == GSLXDV_STATE_VALUE);
}

// ---- Diagnostics ------------------------------------------------------------------

using gslxdv::hasFailure;
using gslxdv::setDetail;

// Records why the document fails, where the parser stands (for text, the
// tag that follows it, the end of its value), and returns the status that
// stops it: the cause is told where the failure happens.
[[nodiscard]] int fail(GslxdvStateMachine *m, int status, int32_t cause,
                       const char *detail = nullptr) {
  gslxdv::recordFailure(&m->diagnostic, m->xml, cause, detail);
  return status;
}

// An entry-model step that failed: the reader's status for it is 2.
[[nodiscard]] int failModel(GslxdvStateMachine *m, int model_status) {
  return fail(m, GSLXDV_FAILED, gslxdv::causeOfModelStatus(model_status));
}

// The first element of a document (the machine still at the document's
// start, nothing open): anything but dsml gives no entry at all, which
// deserves a word.
void noteRoot(GslxdvStateMachine *m, const char *name) {
  if (m->state != GSLXDV_STATE_DOCUMENT || m->depth != 0 ||
      findTransition(m->core_context, m->state, name) != nullptr) {
    return;
  }
  GslxdvDiagnostic &d = m->diagnostic;
  d.cause = GSLXDV_CAUSE_NOT_DSML;
  xmlPosition(m->xml, &d.line, &d.column);
  setDetail(&d, name);
}

// Why xmlparse failed, when no handler said.
void recordParseFailure(GslxdvDiagnostic *d, xmlctx *xml, int xml_status) {
  if (hasFailure(*d)) return;
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
  d->cause = cause;
  xmlPosition(xml, &d->line, &d->column);
  setDetail(d, xmlErrorText(xml));
}

// ---- Opening an element ---------------------------------------------------------

[[nodiscard]] int createEntry(GslxdvStateMachine *m, const xmlattrs *attributes) {
  const char *dn = gslxGetAttrValue(attributes, kDnAttribute);
  if (dn == nullptr) return fail(m, GSLXDV_MISSING_ATTRIBUTE, GSLXDV_CAUSE_NO_DN, kEntryElement);
  const int st = gslcleceCreateLDAPEntry(nullptr, dn, &m->entry);
  return st == GSLCLE_OK ? GSLXDV_OK : failModel(m, st);
}

[[nodiscard]] int createAttribute(GslxdvStateMachine *m, const char *name) {
  const int st = gslcleclaCreateLDAPAttribute(nullptr, name, GSLCLE_VALUES_BINARY, &m->attribute);
  return st == GSLCLE_OK ? GSLXDV_OK : failModel(m, st);
}

// Creates the attribute of an attr element; a refused name is its own
// failure.
[[nodiscard]] int createNamedAttribute(GslxdvStateMachine *m, const char *name) {
  switch (const int st = gslxdv::createNamedAttribute(name, m->name_rule, &m->attribute)) {
    case GSLCLE_OK: return GSLXDV_OK;
    case GSLCLEGAL_REFUSED: return fail(m, GSLXDV_REFUSED_NAME, GSLXDV_CAUSE_REFUSED_NAME, name);
    default: return failModel(m, st);
  }
}

[[nodiscard]] int performAction(GslxdvStateMachine *m, Action action, const xmlattrs *attributes) {
  switch (action) {
    case Action::kNone: return GSLXDV_OK;
    case Action::kCreateEntry: return createEntry(m, attributes);
    case Action::kCreateObjectclass: return createAttribute(m, kObjectclassName);
    case Action::kCreateAttribute: {
      const char *name = gslxGetAttrValue(attributes, kNameAttribute);
      if (name == nullptr) {
        return fail(m, GSLXDV_MISSING_ATTRIBUTE, GSLXDV_CAUSE_NO_NAME, kAttrElement);
      }
      // Deliberate: a name that would change the structure of the LDIF
      // written for the entry (a line break, a leading space or '#', a
      // colon, or "dn", "changetype", "control") fails the whole document,
      // and so does, when the caller asks for RFC 4512 names, any other
      // name that is not an attribute description. Writing
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
  if (m->depth == GSLXDV_MAX_DEPTH) return fail(m, GSLXDV_FAILED, GSLXDV_CAUSE_OTHER);
  Owned<char> skip_name(nullptr, ContextFree{core});
  if (row == nullptr) {
    skip_name.reset(gslussdStrdup(core, name));
    if (skip_name == nullptr) return fail(m, GSLXDV_NO_MEMORY, GSLXDV_CAUSE_NO_MEMORY);
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
  return gslxdv::deliverEntry(&m->entry, m->callback, m->callback_arg, &m->diagnostic, m->xml);
}

[[nodiscard]] int addAttribute(GslxdvStateMachine *m) {
  if (const int st = gslcleaaAddLDAPAttribute(nullptr, m->entry, m->attribute); st != GSLCLE_OK) {
    return failModel(m, st);
  }
  m->attribute = nullptr;  // the entry owns it
  return GSLXDV_OK;
}

// Adds the pending text as a value; without text, a value of length 0.
[[nodiscard]] int addValue(GslxdvStateMachine *m) {
  const BERVal value = gslxdv::pendingValue(m->text);
  if (const int st = gslcleabvAddAttrBValue(nullptr, m->attribute, &value); st != GSLCLE_OK) {
    return failModel(m, st);
  }
  gslxdv::keepOrReleaseText(m->core_context, &m->text);
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
  if (m->depth == 0) return fail(m, GSLXDV_FAILED, GSLXDV_CAUSE_UNMATCHED);
  moveTo(m, m->states[--m->depth]);
  return GSLXDV_OK;
}

int startElement(GslxdvStateMachine *m, const char *name, const xmlattrs *attributes) {
  if (m->skip_depth != 0) {
    // Detect and prevent integer overflow: the count is 16 bits wide, and a
    // wrap to 0 would end the skip in the middle of the skipped content.
    if (m->skip_depth == UINT16_MAX) return fail(m, GSLXDV_FAILED, GSLXDV_CAUSE_TOO_DEEP);
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
  if (bytes == nullptr) return fail(m, GSLXDV_NULL_ARG, GSLXDV_CAUSE_OTHER);
  // Each piece replaces the pending one: of a value given in several pieces
  // only the last is kept.
  if (gslxdv::replaceText(m->core_context, &m->text, bytes, length) != GSLXDV_OK) {
    return fail(m, GSLXDV_NO_MEMORY, GSLXDV_CAUSE_NO_MEMORY);
  }
  if (m->base64 != 0 && gslxdv::decodeText(&m->text) != GSLXDV_OK) {
    return fail(m, GSLXDV_BAD_BASE64, GSLXDV_CAUSE_BAD_BASE64);
  }
  // Deliberate: the mark is cleared after the first piece, so a later piece
  // of the same value is kept as it stands, undecoded.
  m->base64 = 0;
  return GSLXDV_OK;
}

// ---- Finding the payload ------------------------------------------------------------
// While a document read by gslxdvpParse has not shown its payload, and while
// a payload inside a SOAP Envelope is read, the events come to these
// handlers, whose user context is the parser context; they pass the
// payload's events on to the machine that reads it. A payload that is the
// document element is handed to its machine's handlers outright, so that a
// plain document costs nothing more than with that machine alone.

// SOAP names, compared as DSML names are.
constexpr std::string_view kEnvelope = "envelope";
constexpr std::string_view kBody = "body";
// The payloads of DSML v2.
constexpr std::string_view kBatchRequest = "batchrequest";
constexpr std::string_view kBatchResponse = "batchresponse";
constexpr std::string_view kDsml = "dsml";
// Depth of the Body inside the Envelope.
constexpr uint32_t kBodyDepth = 2;

const xmlsaxcb kV1Handlers = {sax_startDocument, sax_endDocument, sax_startElement,
                              sax_endElement,    sax_characters,  {}};

[[nodiscard]] GslxdvParserCtx *contextOf(void *user) { return static_cast<GslxdvParserCtx *>(user); }

// The machine reading the payload, with its handlers.
struct Reader {
  const xmlsaxcb *handlers;
  void *machine;
};

[[nodiscard]] Reader readerOf(const GslxdvParserCtx *c) {
  if (c->version == GSLXDV_VERSION_2) return {&gslxdv2::kHandlers, c->machine2};
  return {&kV1Handlers, c->machine};
}

// Starts reading the payload (the element name opens) with the machine for
// its version: v2 for a batch, v1 for anything else, which v1 reads or
// warns about.
[[nodiscard]] int startPayload(GslxdvParserCtx *c, const char *name, const xmlattrs *attributes,
                               bool outright) {
  gsluctx *core = c->machine->core_context;
  const bool v2 = gslxdv::isName(core, name, kBatchRequest) ||
                  gslxdv::isName(core, name, kBatchResponse);
  c->version = v2                                  ? GSLXDV_VERSION_2
               : gslxdv::isName(core, name, kDsml) ? GSLXDV_VERSION_1
                                                   : GSLXDV_VERSION_NONE;
  c->machine->diagnostic = GslxdvDiagnostic{};  // the Envelope's warning, if any
  c->payload = GSLXDV_PAYLOAD_READING;
  c->payload_depth = c->depth;
  const Reader r = readerOf(c);
  if (outright) xmlSetHandlers(c->xml, r.handlers, r.machine);
  if (const int st = r.handlers->startDocument(r.machine); st != GSLXDV_OK) return st;
  return r.handlers->startElement(r.machine, name, attributes);
}

// An Envelope gives the warning of a document that is not DSML until its
// payload shows up.
void noteEnvelope(GslxdvParserCtx *c, const char *name) {
  GslxdvDiagnostic &d = c->machine->diagnostic;
  d.cause = GSLXDV_CAUSE_NOT_DSML;
  xmlPosition(c->xml, &d.line, &d.column);
  setDetail(&d, name);
}

int findStartDocument(void *user) {
  GslxdvParserCtx *c = contextOf(user);
  c->payload = GSLXDV_PAYLOAD_NONE;
  c->depth = 0;
  xmlWantText(c->xml, 0);  // nothing outside the payload is read
  return GSLXDV_OK;
}

int findStartElement(void *user, const char *name, const xmlattrs *attributes) {
  GslxdvParserCtx *c = contextOf(user);
  ++c->depth;
  switch (c->payload) {
    case GSLXDV_PAYLOAD_NONE:
      if (!gslxdv::isName(c->machine->core_context, name, kEnvelope)) {
        return startPayload(c, name, attributes, true);
      }
      c->payload = GSLXDV_PAYLOAD_ENVELOPE;
      noteEnvelope(c, name);
      return GSLXDV_OK;
    case GSLXDV_PAYLOAD_ENVELOPE:
      if (c->depth == kBodyDepth && gslxdv::isName(c->machine->core_context, name, kBody)) {
        c->payload = GSLXDV_PAYLOAD_BODY;
      }
      return GSLXDV_OK;
    case GSLXDV_PAYLOAD_BODY: return startPayload(c, name, attributes, false);
    case GSLXDV_PAYLOAD_READING: {
      const Reader r = readerOf(c);
      return r.handlers->startElement(r.machine, name, attributes);
    }
    default: return GSLXDV_OK;
  }
}

int findEndElement(void *user, const char *name) {
  GslxdvParserCtx *c = contextOf(user);
  const uint32_t depth = c->depth--;
  switch (c->payload) {
    case GSLXDV_PAYLOAD_BODY:
      // A Body that held no element: the Envelope's warning stands, and no
      // later Body is looked into.
      if (depth == kBodyDepth) c->payload = GSLXDV_PAYLOAD_ABSENT;
      return GSLXDV_OK;
    case GSLXDV_PAYLOAD_READING: {
      if (depth == c->payload_depth) c->payload = GSLXDV_PAYLOAD_DONE;
      const Reader r = readerOf(c);
      return r.handlers->endElement(r.machine, name);
    }
    default: return GSLXDV_OK;
  }
}

int findCharacters(void *user, const char *bytes, uint32_t length) {
  GslxdvParserCtx *c = contextOf(user);
  if (c->payload != GSLXDV_PAYLOAD_READING) return GSLXDV_OK;
  const Reader r = readerOf(c);
  return r.handlers->characters(r.machine, bytes, length);
}

// The payload's machine ends its document, whether or not its element was
// the last one read.
int findEndDocument(void *user) {
  GslxdvParserCtx *c = contextOf(user);
  if (c->payload != GSLXDV_PAYLOAD_READING && c->payload != GSLXDV_PAYLOAD_DONE) {
    return GSLXDV_OK;
  }
  const Reader r = readerOf(c);
  return r.handlers->endDocument(r.machine);
}

const xmlsaxcb kFindHandlers = {findStartDocument, findEndDocument, findStartElement,
                                findEndElement,    findCharacters,  {}};

// What a parse function does before any document is read: GSLXDV_OK to go
// on and read the source, anything else to return at once.
[[nodiscard]] int32_t checkParse(const char *source, uint32_t kind, const GslxdvParserCtx *handle,
                                 bool *read) {
  if (source == nullptr || handle == nullptr) return GSLXDV_NULL_ARG;
  const uint32_t source_kind = kind & 0xffffu;  // the code is 16 bits wide
  if (!isSourceKind(source_kind)) return GSLXDV_UNKNOWN_KIND;
  // From an entry callback: releasing the members here would pull the
  // entry from under the document being read.
  if (handle->busy != 0) return GSLXDV_FAILED;
  // Deliberate: the other accepted kinds read nothing and succeed.
  *read = source_kind == GSLXDV_SOURCE_URI;
  return GSLXDV_OK;
}

// Reads the source with the handlers installed, and after a failure
// records why (when no handler said) and releases what the machines held.
[[nodiscard]] int32_t readDocument(GslxdvParserCtx *c, const char *source) {
  c->busy = 1;
  const int xml_status = xmlparse(c->xml, source, nullptr, XMLIF_READER_FLAGS);
  c->busy = 0;
  if (xml_status == XMLIF_OK) return GSLXDV_OK;
  GslxdvDiagnostic *d = c->version == GSLXDV_VERSION_2 ? &c->machine2->diagnostic
                                                       : &c->machine->diagnostic;
  recordParseFailure(d, c->xml, xml_status);
  (void)gslxdv1fsmFreeStateMacMemb(c->machine);
  gslxdv2::releaseMembers(c->machine2);
  return GSLXDV_FAILED;
}

// The machines' callback, and nothing left of the document before.
void prepare(GslxdvParserCtx *c, GslxdvEntryCallback callback, void *callback_arg) {
  GslxdvStateMachine *m = c->machine;
  m->callback = callback;
  m->callback_arg = callback_arg;
  m->diagnostic = GslxdvDiagnostic{};
  gslxdv2::prepareDocument(c->machine2, callback, callback_arg);
  c->version = GSLXDV_VERSION_NONE;
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
  OwnedParser xml(xmlinit(&xml_status, c1, c2, c3, &kV1Handlers, machine.get(), c4, c5, c6));
  if (xml == nullptr) return GSLXDV_XML_INIT_FAILED;
  std::unique_ptr<GslxdvV2Machine, void (*)(GslxdvV2Machine *)> machine2(
      gslxdv2::createMachine(core, xml.get()), gslxdv2::destroyMachine);
  if (machine2 == nullptr) return GSLXDV_NO_MEMORY;
  auto *context = static_cast<GslxdvParserCtx *>(gslummMalloc(core, sizeof(GslxdvParserCtx)));
  if (context == nullptr) return GSLXDV_NO_MEMORY;
  *context = GslxdvParserCtx{};
  machine->xml = xml.get();
  context->xml = xml.release();
  context->machine = machine.release();
  context->machine2 = machine2.release();
  *handle = context;
  return GSLXDV_OK;
}

int32_t gslxdv1pParse(const char *source, uint32_t kind, GslxdvParserCtx *handle,
                      GslxdvEntryCallback callback, void *callback_arg) {
  bool read = false;
  if (const int32_t st = checkParse(source, kind, handle, &read); st != GSLXDV_OK) return st;
  prepare(handle, callback, callback_arg);
  if (!read) return GSLXDV_OK;
  handle->version = GSLXDV_VERSION_1;
  xmlSetHandlers(handle->xml, &kV1Handlers, handle->machine);
  return readDocument(handle, source);
}

int32_t gslxdvpParse(const char *source, uint32_t kind, GslxdvParserCtx *handle,
                     GslxdvEntryCallback callback, void *callback_arg) {
  bool read = false;
  if (const int32_t st = checkParse(source, kind, handle, &read); st != GSLXDV_OK) return st;
  prepare(handle, callback, callback_arg);
  if (!read) return GSLXDV_OK;
  xmlSetHandlers(handle->xml, &kFindHandlers, handle);
  return readDocument(handle, source);
}

int32_t gslxdvsnSetNameRule(GslxdvParserCtx *handle, int32_t rule) {
  if (handle == nullptr) return GSLXDV_NULL_ARG;
  handle->machine->name_rule = rule;
  handle->machine2->name_rule = rule;
  return GSLXDV_OK;
}

int32_t gslxdvspSetProgress(GslxdvParserCtx *handle, void (*fn)(void *, uint64_t, uint64_t),
                            void *arg) {
  if (handle == nullptr) return GSLXDV_NULL_ARG;
  xmlSetProgress(handle->xml, fn, arg);
  return GSLXDV_OK;
}

int32_t gslxdvgvGetVersion(const GslxdvParserCtx *handle) {
  return handle != nullptr ? handle->version : GSLXDV_VERSION_NONE;
}

int32_t gslxdvgwGetWarnings(const GslxdvParserCtx *handle, GslxdvWarnings *out) {
  if (handle == nullptr || out == nullptr) return GSLXDV_NULL_ARG;
  *out = handle->version == GSLXDV_VERSION_2 ? handle->machine2->warnings : GslxdvWarnings{};
  return GSLXDV_OK;
}

const char *gslxdvskSkippedKindName(int32_t kind) {
  static constexpr const char *kNames[GSLXDV_SKIPPED_KINDS] = {
      "searchRequest",   "compareRequest",        "extendedRequest",  "abandonRequest",
      "authRequest",     "searchResultReference", "addResponse",      "modifyResponse",
      "delResponse",     "modDNResponse",         "compareResponse",  "extendedResponse",
      "authResponse",    "other"};
  return kind >= 0 && kind < GSLXDV_SKIPPED_KINDS ? kNames[kind] : nullptr;
}

int32_t gslxdv1gdGetDiagnostic(const GslxdvParserCtx *handle, GslxdvDiagnostic *out) {
  if (handle == nullptr || out == nullptr) return GSLXDV_NULL_ARG;
  *out = handle->version == GSLXDV_VERSION_2 ? handle->machine2->diagnostic
                                             : handle->machine->diagnostic;
  return GSLXDV_OK;
}

int32_t gslxdv1cCleanup(GslxdvParserCtx **handle) {
  if (handle == nullptr || *handle == nullptr) return GSLXDV_NULL_ARG;
  gsluctx *core = gslu::resolveContext(nullptr);
  if (core == nullptr) return GSLXDV_NO_CONTEXT;
  GslxdvParserCtx *context = *handle;
  if (context->busy != 0) return GSLXDV_FAILED;
  xmlterm(context->xml);
  (void)gslxdv1fsmFreeStateMacMemb(context->machine);
  (void)gslumfFree(core, context->machine);
  gslxdv2::destroyMachine(context->machine2);
  (void)gslumfFree(core, context);
  *handle = nullptr;
  return GSLXDV_OK;
}

// ---- Event handlers ---------------------------------------------------------------

int sax_startDocument(void *machine) {
  GslxdvStateMachine *m = machineOf(machine);
  if (m == nullptr) return GSLXDV_NULL_ARG;
  resetMachine(m, GSLXDV_STATE_DOCUMENT, false);
  return GSLXDV_OK;
}

int sax_endDocument(void *machine) {
  GslxdvStateMachine *m = machineOf(machine);
  if (m == nullptr) return GSLXDV_NULL_ARG;
  resetMachine(m, GSLXDV_STATE_ENDED, true);
  return GSLXDV_OK;
}

int sax_startElement(void *machine, const char *name, const xmlattrs *attributes) {
  GslxdvStateMachine *m = machineOf(machine);
  if (m == nullptr || name == nullptr) return GSLXDV_NULL_ARG;
  noteRoot(m, name);
  return startElement(m, name, attributes);
}

int sax_endElement(void *machine, const char *name) {
  GslxdvStateMachine *m = machineOf(machine);
  if (m == nullptr || name == nullptr) return GSLXDV_NULL_ARG;
  return endElement(m, name);
}

int sax_characters(void *machine, const char *bytes, uint32_t length) {
  GslxdvStateMachine *m = machineOf(machine);
  if (m == nullptr) return GSLXDV_NULL_ARG;
  return characters(m, bytes, length);
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
  gslxdv::releaseText(core, &machine->text);
  (void)gslumfFree(core, machine->skip_name);
  machine->entry = nullptr;
  machine->attribute = nullptr;
  machine->depth = 0;
  machine->skip_name = nullptr;
  return GSLXDV_OK;
}

void resetMachine(GslxdvStateMachine *machine, uint16_t state, bool forget_callback) {
  (void)gslxdv1fsmFreeStateMacMemb(machine);
  machine->skip_depth = 0;
  machine->base64 = 0;
  if (forget_callback) {
    machine->callback = nullptr;
    machine->callback_arg = nullptr;
  }
  moveTo(machine, state);
}

const char *gslxGetAttrValue(const xmlattrs *attributes, const char *name) {
  const uint32_t count = numAttributes(attributes);
  // The names asked for are the reader's own, in lower-case ASCII.
  const std::string_view wanted = count != 0 ? name : "";
  for (uint32_t i = 0; i < count; ++i) {
    const xmlattr *attribute = getAttributeIndex(attributes, i);
    if (gslxdv::isName(nullptr, getAttrLocal(attribute), wanted)) return getAttrValue(attribute);
  }
  return nullptr;
}

}  // extern "C"
