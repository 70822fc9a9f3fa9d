// dsml/reader_v2.cc - the DSML v2 reader: five event handlers driving the
// element state machine below. Contracts in dsml/reader_v2_internal.h and
// dsml/reader.h.
#include "dsml/reader_v2_internal.h"

#include <cstdio>
#include <cstring>
#include <iterator>
#include <new>

#include "core/memory.h"
#include "core/owned.h"
#include "dsml/reader_common.h"
#include "entry/ldif_record.h"
#include "util/strings.h"

namespace gslxdv2 {
namespace {

using gslxdv::recordFailure;

// XML attributes the transitions read.
constexpr char kDn[] = "dn";
constexpr char kName[] = "name";
constexpr char kNewRdn[] = "newrdn";
constexpr char kDeleteOldRdn[] = "deleteoldrdn";
constexpr char kNewSuperior[] = "newsuperior";
constexpr char kOperation[] = "operation";
constexpr char kType[] = "type";
constexpr char kCriticality[] = "criticality";
constexpr char kCode[] = "code";

// The names failures give the elements at fault, as the schema spells them.
constexpr char kAttrElement[] = "attr";
constexpr char kModificationElement[] = "modification";

// The two kinds of a value's text that are not plain text, by the part of
// its xsi:type after the last ':'.
constexpr std::string_view kBase64Type = "base64binary";
constexpr std::string_view kUriType = "anyuri";

// The rows of one state stand together; a state without rows skips every
// element (silently, or counted where requests and responses stand).
#define RESPONSES(state)                                                                 \
  {state, "searchresultentry", Action::kCreateSearchEntry, kSearchResultEntry},          \
      {state, "searchresultdone", Action::kNone, kSearchResultDone},                     \
      {state, "errorresponse", Action::kNoteErrorResponse, kInert},                      \
      {state, "searchresultreference", Action::kCountSkipped, kSkipping,                 \
       GSLXDV_SKIPPED_SEARCH_RESULT_REFERENCE},                                          \
      {state, "addresponse", Action::kCountSkipped, kSkipping, GSLXDV_SKIPPED_ADD_RESPONSE}, \
      {state, "modifyresponse", Action::kCountSkipped, kSkipping,                        \
       GSLXDV_SKIPPED_MODIFY_RESPONSE},                                                  \
      {state, "delresponse", Action::kCountSkipped, kSkipping, GSLXDV_SKIPPED_DEL_RESPONSE}, \
      {state, "moddnresponse", Action::kCountSkipped, kSkipping,                         \
       GSLXDV_SKIPPED_MODDN_RESPONSE},                                                   \
      {state, "compareresponse", Action::kCountSkipped, kSkipping,                       \
       GSLXDV_SKIPPED_COMPARE_RESPONSE},                                                 \
      {state, "extendedresponse", Action::kCountSkipped, kSkipping,                      \
       GSLXDV_SKIPPED_EXTENDED_RESPONSE},                                                \
  {                                                                                      \
    state, "authresponse", Action::kCountSkipped, kSkipping, GSLXDV_SKIPPED_AUTH_RESPONSE \
  }

constexpr Transition kTransitions[] = {
    {kDocument, "batchrequest", Action::kNone, kBatchRequest},
    {kDocument, "batchresponse", Action::kNone, kBatchResponse},
    {kBatchRequest, "addrequest", Action::kCreateAdd, kAddRequest},
    {kBatchRequest, "modifyrequest", Action::kCreateModify, kModifyRequest},
    {kBatchRequest, "delrequest", Action::kCreateDelete, kDelRequest},
    {kBatchRequest, "moddnrequest", Action::kCreateModDn, kModDnRequest},
    {kBatchRequest, "searchrequest", Action::kCountSkipped, kSkipping,
     GSLXDV_SKIPPED_SEARCH_REQUEST},
    {kBatchRequest, "comparerequest", Action::kCountSkipped, kSkipping,
     GSLXDV_SKIPPED_COMPARE_REQUEST},
    {kBatchRequest, "extendedrequest", Action::kCountSkipped, kSkipping,
     GSLXDV_SKIPPED_EXTENDED_REQUEST},
    {kBatchRequest, "abandonrequest", Action::kCountSkipped, kSkipping,
     GSLXDV_SKIPPED_ABANDON_REQUEST},
    {kBatchRequest, "authrequest", Action::kCountSkipped, kSkipping, GSLXDV_SKIPPED_AUTH_REQUEST},
    {kBatchResponse, "searchresponse", Action::kNone, kSearchResponse},
    RESPONSES(kBatchResponse),
    RESPONSES(kSearchResponse),
    {kAddRequest, "attr", Action::kCreateAttribute, kAttr},
    {kAddRequest, "control", Action::kStartControl, kControl},
    {kModifyRequest, "modification", Action::kCreateModification, kModification},
    {kModifyRequest, "control", Action::kStartControl, kControl},
    {kDelRequest, "control", Action::kStartControl, kControl},
    {kModDnRequest, "control", Action::kStartControl, kControl},
    {kSearchResultEntry, "attr", Action::kCreateAttribute, kAttr},
    {kSearchResultEntry, "control", Action::kDropControl, kSkipping},
    {kAttr, "value", Action::kStartValue, kValue},
    {kModification, "value", Action::kStartValue, kValue},
    {kControl, "controlvalue", Action::kStartValue, kControlValue},
    {kSearchResultDone, "resultcode", Action::kNoteResultCode, kInert},
};
#undef RESPONSES

// Where each state's rows start, built and checked at compile time.
constexpr uint16_t kTableStates = kInert + 1;
constexpr gslxdv::RowIndex<kTableStates> kStateRows = gslxdv::indexRows<kTableStates>(kTransitions);

// Where requests or responses stand, an element with no row is counted as
// skipped; anywhere else it is skipped silently.
[[nodiscard]] bool countsUnknownElements(uint16_t state) {
  return state == kBatchRequest || state == kBatchResponse || state == kSearchResponse;
}

[[nodiscard]] GslxdvV2Machine *machineOf(void *user) {
  return static_cast<GslxdvV2Machine *>(user);
}

[[nodiscard]] const Transition *findTransition(gsluctx *core, uint16_t state, const char *name) {
  return gslxdv::findRow(core, kTransitions, kStateRows, state, name);
}

// Text is collected by the parser only where it is kept.
void moveTo(GslxdvV2Machine *m, uint16_t state) {
  m->state = state;
  xmlWantText(m->xml, state == kValue || state == kControlValue);
}

// ---- Failures ---------------------------------------------------------------------

// Records why the document fails, at the event being handled, and returns
// the status that stops it.
[[nodiscard]] int fail(GslxdvV2Machine *m, int32_t cause, const char *detail = nullptr,
                       int status = GSLXDV_FAILED) {
  recordFailure(&m->diagnostic, m->xml, cause, detail);
  return status;
}

// An entry-model status other than success: out of memory, or a step that
// failed for a reason the reader does not expect.
[[nodiscard]] int failModel(GslxdvV2Machine *m, int model_status) {
  const int32_t cause = gslxdv::causeOfModelStatus(model_status);
  return fail(m, cause, nullptr,
              cause == GSLXDV_CAUSE_NO_MEMORY ? GSLXDV_NO_MEMORY : GSLXDV_FAILED);
}

// ---- Warnings -----------------------------------------------------------------------

// A list's text as its slot holds it: the text, or, when it does not fit,
// as much of it as fits with "..." after it, cut at a character boundary,
// so that a cut text is never taken for a whole one ("000...0" for a long
// result code that is not 0).
struct SlotText {
  char text[GSLXDV_LIST_TEXT_SIZE];
};

[[nodiscard]] SlotText slotText(std::string_view text) {
  constexpr std::string_view kCut = "...";
  constexpr std::size_t kMax = GSLXDV_LIST_TEXT_SIZE - 1;
  SlotText slot{};
  std::size_t n = text.size();
  if (n > kMax) {
    n = kMax - kCut.size();
    // Back over UTF-8 continuation bytes, so no character is cut in two.
    while (n > 0 && (static_cast<unsigned char>(text[n]) & 0xc0) == 0x80) --n;
  }
  std::memcpy(slot.text, text.data(), n);
  if (n < text.size()) std::memcpy(slot.text + n, kCut.data(), kCut.size());
  return slot;
}

// Adds text to the list unless it holds it already; an empty text (a code
// or type of white space alone) is counted but has nothing to show.
void noteDistinct(GslxdvTextList *list, std::string_view text) {
  if (text.empty()) return;
  const SlotText slot = slotText(text);
  for (uint32_t i = 0; i < list->count; ++i) {
    if (std::strcmp(slot.text, list->texts[i]) == 0) return;
  }
  if (list->count == GSLXDV_LIST_MAX) {
    list->more = 1;
    return;
  }
  std::memcpy(list->texts[list->count++], slot.text, sizeof slot.text);
}

// A result code that says the search succeeded: 0, written with any number
// of zeros.
[[nodiscard]] bool isSuccessCode(std::string_view code) {
  return !code.empty() && code.find_first_not_of('0') == std::string_view::npos;
}

void noteResultCode(GslxdvV2Machine *m, const xmlattrs *attributes) {
  const char *code = gslxGetAttrValue(attributes, kCode);
  if (code == nullptr) return;
  const std::string_view stripped = gslxdv::stripXmlSpace(code);
  // A code of white space alone says nothing, as an absent one.
  if (stripped.empty() || isSuccessCode(stripped)) return;
  ++m->warnings.failed_searches;
  noteDistinct(&m->warnings.result_codes, stripped);
}

void noteErrorResponse(GslxdvV2Machine *m, const xmlattrs *attributes) {
  ++m->warnings.error_responses;
  if (const char *type = gslxGetAttrValue(attributes, kType)) {
    noteDistinct(&m->warnings.error_types, gslxdv::stripXmlSpace(type));
  }
}

// ---- Opening an element ---------------------------------------------------------------

// A boolean of the schema: true or 1, false or 0, around XML white space;
// absent, the default. Anything else fails the document.
[[nodiscard]] int readBoolean(GslxdvV2Machine *m, const xmlattrs *attributes, const char *name,
                              bool absent, bool *value) {
  const char *text = gslxGetAttrValue(attributes, name);
  if (text == nullptr) {
    *value = absent;
    return GSLXDV_OK;
  }
  const std::string_view t = gslxdv::stripXmlSpace(text);
  if (t == "true" || t == "1") {
    *value = true;
  } else if (t == "false" || t == "0") {
    *value = false;
  } else {
    return fail(m, GSLXDV_CAUSE_BAD_BOOLEAN, text);
  }
  return GSLXDV_OK;
}

[[nodiscard]] int createEntry(GslxdvV2Machine *m, const xmlattrs *attributes,
                              const char *element) {
  const char *dn = gslxGetAttrValue(attributes, kDn);
  if (dn == nullptr) return fail(m, GSLXDV_CAUSE_NO_DN, element);
  if (const int st = gslcleceCreateLDAPEntry(nullptr, dn, &m->entry); st != GSLCLE_OK) {
    return failModel(m, st);
  }
  m->entry_had_controls = 0;
  return GSLXDV_OK;
}

// A change entry: created, then given its change type (which marks it a
// change record).
[[nodiscard]] int createChange(GslxdvV2Machine *m, const xmlattrs *attributes, const char *element,
                               int change_type) {
  if (const int st = createEntry(m, attributes, element); st != GSLXDV_OK) return st;
  const int st = gslclesctSetChangeType(nullptr, m->entry, change_type);
  return st == GSLCLE_OK ? GSLXDV_OK : failModel(m, st);
}

// A modDNRequest's entry. Its checks come first, so that a failure leaves
// no entry behind: dn, newrdn, deleteoldrdn.
[[nodiscard]] int createModDn(GslxdvV2Machine *m, const xmlattrs *attributes) {
  constexpr char kElement[] = "modDNRequest";
  if (gslxGetAttrValue(attributes, kDn) == nullptr) return fail(m, GSLXDV_CAUSE_NO_DN, kElement);
  const char *new_rdn = gslxGetAttrValue(attributes, kNewRdn);
  if (new_rdn == nullptr) return fail(m, GSLXDV_CAUSE_NO_NEWRDN);
  bool delete_old_rdn = true;
  if (const int st = readBoolean(m, attributes, kDeleteOldRdn, true, &delete_old_rdn);
      st != GSLXDV_OK) {
    return st;
  }
  if (const int st = createChange(m, attributes, kElement, GSLCLE_CHANGE_MODRDN); st != GSLXDV_OK) {
    return st;
  }
  // Present even when empty: "newsuperior: " then moves the entry to the
  // root.
  const char *superior = gslxGetAttrValue(attributes, kNewSuperior);
  int st = gslclesnSetNewRDN(nullptr, m->entry, new_rdn);
  if (st == GSLCLE_OK) st = gslclesdoSetDeleteOldRdn(nullptr, m->entry, delete_old_rdn ? 1 : 0);
  if (st == GSLCLE_OK && superior != nullptr) {
    st = gslclesnsSetNewSuperior(nullptr, m->entry, superior);
  }
  if (st != GSLCLE_OK) return failModel(m, st);
  // A copy that failed leaves its field null with a status of 0; the record
  // would then be written without it.
  if (m->entry->new_rdn == nullptr || (superior != nullptr && m->entry->new_superior == nullptr)) {
    return failModel(m, GSLCLE_NO_MEMORY);
  }
  return GSLXDV_OK;
}

// The attribute of an attr or a modification, its name checked by the rule
// that keeps a document from forging LDIF.
[[nodiscard]] int createAttribute(GslxdvV2Machine *m, const xmlattrs *attributes,
                                  const char *element) {
  const char *name = gslxGetAttrValue(attributes, kName);
  if (name == nullptr) return fail(m, GSLXDV_CAUSE_NO_NAME, element);
  switch (const int st = gslxdv::createNamedAttribute(name, m->name_rule, &m->attribute)) {
    case GSLCLE_OK: return GSLXDV_OK;
    case GSLCLEGAL_REFUSED: return fail(m, GSLXDV_CAUSE_REFUSED_NAME, name);
    default: return failModel(m, st);
  }
}

// The operations of a modification, by the attribute change type they give.
struct Operation {
  std::string_view name;  // lower case, compared ignoring ASCII case
  int change_type;
};
constexpr Operation kOperations[] = {
    {"add", GSLCLE_ATTR_ADD},
    {"delete", GSLCLE_ATTR_DELETE},
    {"replace", GSLCLE_ATTR_REPLACE},
    {"increment", GSLCLE_ATTR_INCREMENT},
};

[[nodiscard]] bool equalsIgnoringAsciiCase(std::string_view text, std::string_view lower) {
  if (text.size() != lower.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i] >= 'A' && text[i] <= 'Z' ? static_cast<char>(text[i] + 32) : text[i];
    if (c != lower[i]) return false;
  }
  return true;
}

[[nodiscard]] int createModification(GslxdvV2Machine *m, const xmlattrs *attributes) {
  if (const int st = createAttribute(m, attributes, kModificationElement); st != GSLXDV_OK) {
    return st;
  }
  const char *operation = gslxGetAttrValue(attributes, kOperation);
  const std::string_view op = gslxdv::stripXmlSpace(operation != nullptr ? operation : "");
  for (const Operation &o : kOperations) {
    if (!equalsIgnoringAsciiCase(op, o.name)) continue;
    const int st = o.change_type == GSLCLE_ATTR_INCREMENT
                       ? gslclesiSetAttrIncrement(nullptr, m->attribute)
                       : gslclegastSetAttrChangeType(nullptr, m->attribute, o.change_type);
    return st == GSLCLE_OK ? GSLXDV_OK : failModel(m, st);
  }
  return fail(m, GSLXDV_CAUSE_BAD_OPERATION, operation);
}

// A value's kind comes from its xsi:type: the part after the last ':'.
[[nodiscard]] int startValue(GslxdvV2Machine *m, const xmlattrs *attributes) {
  gslxdv::dropText(&m->text);
  m->base64 = 0;
  const char *type = gslxGetAttrValue(attributes, kType);
  if (type == nullptr) return GSLXDV_OK;
  std::string_view t = type;
  if (const std::size_t colon = t.rfind(':'); colon != std::string_view::npos) {
    t.remove_prefix(colon + 1);
  }
  t = gslxdv::stripXmlSpace(t);
  // Deliberate: LDIF can give a value by URI only as "name:< URI", which
  // ldapadd and ldapmodify read from the machine they run on; a document
  // must never choose what they read there.
  if (equalsIgnoringAsciiCase(t, kUriType)) return fail(m, GSLXDV_CAUSE_URI_VALUE);
  m->base64 = equalsIgnoringAsciiCase(t, kBase64Type) ? 1 : 0;
  return GSLXDV_OK;
}

[[nodiscard]] int startControl(GslxdvV2Machine *m, const xmlattrs *attributes) {
  const char *type = gslxGetAttrValue(attributes, kType);
  if (gslclecoCheckControlOid(type) != GSLCLE_OK) {
    return fail(m, GSLXDV_CAUSE_BAD_CONTROL_TYPE, type);
  }
  bool critical = false;
  if (const int st = readBoolean(m, attributes, kCriticality, false, &critical); st != GSLXDV_OK) {
    return st;
  }
  char *oid = gslussdStrdup(m->core, type);
  if (oid == nullptr) return fail(m, GSLXDV_CAUSE_NO_MEMORY, nullptr, GSLXDV_NO_MEMORY);
  (void)gslumfFree(m->core, m->control_oid);
  m->control_oid = oid;
  m->control_critical = critical ? 1 : 0;
  m->control_has_value = 0;
  gslxdv::dropText(&m->text);
  return GSLXDV_OK;
}

[[nodiscard]] int performAction(GslxdvV2Machine *m, const Transition &row,
                                const xmlattrs *attributes) {
  switch (row.action) {
    case Action::kNone: return GSLXDV_OK;
    case Action::kCreateAdd:
      return createChange(m, attributes, "addRequest", GSLCLE_CHANGE_ADD);
    case Action::kCreateModify:
      return createChange(m, attributes, "modifyRequest", GSLCLE_CHANGE_MODIFY);
    case Action::kCreateDelete:
      return createChange(m, attributes, "delRequest", GSLCLE_CHANGE_DELETE);
    case Action::kCreateModDn: return createModDn(m, attributes);
    case Action::kCreateSearchEntry: return createEntry(m, attributes, "searchResultEntry");
    case Action::kCreateAttribute: return createAttribute(m, attributes, kAttrElement);
    case Action::kCreateModification: return createModification(m, attributes);
    case Action::kStartValue: return startValue(m, attributes);
    case Action::kStartControl: return startControl(m, attributes);
    case Action::kDropControl: m->entry_had_controls = 1; return GSLXDV_OK;
    case Action::kNoteResultCode: noteResultCode(m, attributes); return GSLXDV_OK;
    case Action::kNoteErrorResponse: noteErrorResponse(m, attributes); return GSLXDV_OK;
    case Action::kCountSkipped: ++m->warnings.skipped[row.skipped]; return GSLXDV_OK;
  }
  return GSLXDV_OK;
}

// Remembers the current state for the element's close and moves on, or
// starts skipping the element.
[[nodiscard]] int enterElement(GslxdvV2Machine *m, uint16_t next) {
  // Elements are pushed only along the transitions and for the element that
  // starts a skip, so the depth stays within the table's longest path; the
  // check only guards that reasoning.
  if (m->depth == kMaxDepth) return fail(m, GSLXDV_CAUSE_OTHER);
  m->states[m->depth++] = m->state;
  if (next == kSkipping) m->skip_depth = 1;
  moveTo(m, next);
  return GSLXDV_OK;
}

int startElement(GslxdvV2Machine *m, const char *name, const xmlattrs *attributes) {
  if (m->skip_depth != 0) {
    // Detect and prevent integer overflow: a wrap to 0 would end the skip in
    // the middle of the skipped content.
    if (m->skip_depth == UINT32_MAX) return fail(m, GSLXDV_CAUSE_TOO_DEEP);
    ++m->skip_depth;
    return GSLXDV_OK;
  }
  const Transition *row = findTransition(m->core, m->state, name);
  if (row == nullptr) {
    if (countsUnknownElements(m->state)) ++m->warnings.skipped[GSLXDV_SKIPPED_OTHER];
    return enterElement(m, kSkipping);
  }
  if (const int st = performAction(m, *row, attributes); st != GSLXDV_OK) return st;
  return enterElement(m, row->next);
}

// ---- Closing an element -------------------------------------------------------------

[[nodiscard]] int deliverEntry(GslxdvV2Machine *m) {
  if (m->entry_had_controls != 0) ++m->warnings.dropped_controls;
  return gslxdv::deliverEntry(&m->entry, m->callback, m->callback_arg, &m->diagnostic, m->xml);
}

[[nodiscard]] int addAttribute(GslxdvV2Machine *m) {
  if (const int st = gslcleaaAddLDAPAttribute(nullptr, m->entry, m->attribute); st != GSLCLE_OK) {
    return failModel(m, st);
  }
  m->attribute = nullptr;  // the entry owns it
  return GSLXDV_OK;
}

// The open value's text as its bytes: base64Binary decoded (white space
// alone is the empty value, as the schema reads it), anything else as it
// stands.
[[nodiscard]] int finishValueText(GslxdvV2Machine *m) {
  if (m->base64 == 0) return GSLXDV_OK;
  m->base64 = 0;
  const std::string_view text(m->text.bytes != nullptr ? m->text.bytes : "", m->text.length);
  if (gslxdv::stripXmlSpace(text).empty()) {
    gslxdv::dropText(&m->text);
    return GSLXDV_OK;
  }
  if (gslxdv::decodeText(&m->text) != GSLXDV_OK) return fail(m, GSLXDV_CAUSE_BAD_BASE64);
  return GSLXDV_OK;
}

[[nodiscard]] int addValue(GslxdvV2Machine *m) {
  if (const int st = finishValueText(m); st != GSLXDV_OK) return st;
  const BERVal value = gslxdv::pendingValue(m->text);
  if (const int st = gslcleabvAddAttrBValue(nullptr, m->attribute, &value); st != GSLCLE_OK) {
    return failModel(m, st);
  }
  gslxdv::keepOrReleaseText(m->core, &m->text);
  return GSLXDV_OK;
}

// The control value stays in the text buffer until the control closes.
[[nodiscard]] int keepControlValue(GslxdvV2Machine *m) {
  if (const int st = finishValueText(m); st != GSLXDV_OK) return st;
  m->control_has_value = 1;
  return GSLXDV_OK;
}

[[nodiscard]] int addControl(GslxdvV2Machine *m) {
  const BERVal value = gslxdv::pendingValue(m->text);
  const int st = gslcleacAddControl(nullptr, m->entry, m->control_oid, m->control_critical,
                                    m->control_has_value != 0 ? &value : nullptr);
  if (st != GSLCLE_OK) return failModel(m, st);
  (void)gslumfFree(m->core, m->control_oid);
  m->control_oid = nullptr;
  m->control_has_value = 0;
  gslxdv::keepOrReleaseText(m->core, &m->text);
  return GSLXDV_OK;
}

// The closing action of the element that the current state stands for.
[[nodiscard]] int closeElement(GslxdvV2Machine *m) {
  switch (m->state) {
    case kAddRequest:
    case kModifyRequest:
    case kDelRequest:
    case kModDnRequest:
    case kSearchResultEntry: return deliverEntry(m);
    case kAttr:
    case kModification: return addAttribute(m);
    case kValue: return addValue(m);
    case kControlValue: return keepControlValue(m);
    case kControl: return addControl(m);
    default: return GSLXDV_OK;
  }
}

int endElement(GslxdvV2Machine *m) {
  if (m->skip_depth > 1) {
    --m->skip_depth;  // still inside the skipped element
    return GSLXDV_OK;
  }
  m->skip_depth = 0;
  if (m->state != kSkipping) {
    if (const int st = closeElement(m); st != GSLXDV_OK) return st;
  }
  // The parser checks that tags match, so a closing tag always has its
  // state; the check only guards that reasoning.
  if (m->depth == 0) return fail(m, GSLXDV_CAUSE_UNMATCHED);
  moveTo(m, m->states[--m->depth]);
  return GSLXDV_OK;
}

// ---- Handlers -------------------------------------------------------------------------

int onStartDocument(void *user) {
  GslxdvV2Machine *m = machineOf(user);
  if (m == nullptr) return GSLXDV_NULL_ARG;
  releaseMembers(m);
  moveTo(m, kDocument);
  return GSLXDV_OK;
}

int onEndDocument(void *user) {
  GslxdvV2Machine *m = machineOf(user);
  if (m == nullptr) return GSLXDV_NULL_ARG;
  releaseMembers(m);
  m->callback = nullptr;
  m->callback_arg = nullptr;
  moveTo(m, kEnded);
  return GSLXDV_OK;
}

int onStartElement(void *user, const char *name, const xmlattrs *attributes) {
  GslxdvV2Machine *m = machineOf(user);
  if (m == nullptr || name == nullptr) return GSLXDV_NULL_ARG;
  return startElement(m, name, attributes);
}

int onEndElement(void *user, const char *name) {
  GslxdvV2Machine *m = machineOf(user);
  if (m == nullptr || name == nullptr) return GSLXDV_NULL_ARG;
  return endElement(m);
}

// Text is wanted only inside value and controlValue; the pieces of one
// value (around comments or child elements) are joined.
int onCharacters(void *user, const char *bytes, uint32_t length) {
  GslxdvV2Machine *m = machineOf(user);
  if (m == nullptr) return GSLXDV_NULL_ARG;
  if (m->state != kValue && m->state != kControlValue) return GSLXDV_OK;
  if (bytes == nullptr) return GSLXDV_NULL_ARG;
  if (gslxdv::appendText(m->core, &m->text, bytes, length) != GSLXDV_OK) {
    return fail(m, GSLXDV_CAUSE_NO_MEMORY, nullptr, GSLXDV_NO_MEMORY);
  }
  return GSLXDV_OK;
}

}  // namespace

const xmlsaxcb kHandlers = {onStartDocument, onEndDocument, onStartElement,
                            onEndElement,    onCharacters,  {}};

const Transition *transitions(std::size_t *count) {
  *count = std::size(kTransitions);
  return kTransitions;
}

GslxdvV2Machine *createMachine(gsluctx *core, xmlctx *xml) {
  void *block = gslummMalloc(core, sizeof(GslxdvV2Machine));
  if (block == nullptr) return nullptr;
  auto *m = new (block) GslxdvV2Machine{};
  m->core = core;
  m->xml = xml;
  m->state = kEnded;
  return m;
}

void destroyMachine(GslxdvV2Machine *machine) {
  if (machine == nullptr) return;
  releaseMembers(machine);
  (void)gslumfFree(machine->core, machine);
}

void prepareDocument(GslxdvV2Machine *machine, GslxdvEntryCallback callback, void *callback_arg) {
  machine->callback = callback;
  machine->callback_arg = callback_arg;
  machine->diagnostic = GslxdvDiagnostic{};
  machine->warnings = GslxdvWarnings{};
}

void releaseMembers(GslxdvV2Machine *machine) {
  gsluctx *core = machine->core;
  if (machine->entry != nullptr) (void)gslcledeDestroyLDAPEntry(nullptr, machine->entry);
  if (machine->attribute != nullptr) gslcledaDestroyLDAPAttribute(nullptr, machine->attribute);
  (void)gslumfFree(core, machine->control_oid);
  machine->entry = nullptr;
  machine->attribute = nullptr;
  machine->control_oid = nullptr;
  machine->control_has_value = 0;
  machine->entry_had_controls = 0;
  machine->base64 = 0;
  machine->depth = 0;
  machine->skip_depth = 0;
  gslxdv::releaseText(core, &machine->text);
}

}  // namespace gslxdv2
