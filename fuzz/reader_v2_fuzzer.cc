// Fuzz target for gslxdvpParse, the reader of either DSML version, and the
// record writer behind it: reads arbitrary bytes as a document (a DSML v2
// batchRequest or batchResponse, bare or in a SOAP envelope, a DSML v1
// document, or anything else) into entries, and renders each entry as the
// driver does: in the RFC 2849 form when it comes from a v2 document, in the
// library's form when it comes from a v1 one. The first byte is read as the
// DSML v1 target reads it: the chunk size the parser reads with (bits 0-1),
// and either which entry the callback refuses (bit 7 set: bits 2-6) or
// after how many allocations every allocation fails (bit 7 clear: bits 2-6,
// 0 for never); the rest is the document, handed over from memory.
//
// Checked, for every document:
//   - the reader ends with 0 or 2, its diagnostic says why when it is 2 (the
//     callback's refusal, or memory, when that is what stopped it) and is
//     a warning only for a document that is not DSML when it is 0; nothing
//     is left pending in either machine or in the parser context;
//   - every entry holds only what its kind may hold (attribute names an
//     LDIF record may bear, forged ones failing the document; modification
//     kinds only in modify entries; numeric control OIDs, and controls only
//     on change entries), with values walked within their bounds;
//   - every record is byte for byte the plain rendering of ldif_model.h in
//     its form, with the shape of any LDIF text (lines over 78 bytes only
//     where a long name or control type makes a first line or a header
//     longer);
//   - the warnings are sane: lists of distinct, NUL-terminated, stripped
//     texts, whole characters, at most GSLXDV_LIST_MAX of them, consistent
//     with their counts, and nothing at all after a document that is not v2;
//   - every block taken through the allocator is given back by the end;
//   - when the callback refused an entry or memory ran out, the records
//     written are the first records of the same document read again without
//     either, and a document read whole all the same gives all of them and
//     the same warnings: running out of memory never changes a record;
//   - every thousandth run, every run after memory ran out, and every run
//     when replaying a corpus, the context still reads a valid v2 document
//     whole, with the records it must give.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "core/memory.h"
#include "dsml/reader_internal.h"
#include "dsml/reader_v2_internal.h"
#include "dsml/xml_internal.h"
#include "entry/ldif_record.h"
#include "fuzz_support.h"
#include "ldif_model.h"

namespace {


// A document every context must read whole, and the records it gives.
constexpr char kValid[] =
    "<batchRequest xmlns=\"urn:oasis:names:tc:DSML:2:0:core\"><addRequest dn=\"cn=a\">"
    "<control type=\"1.2.3\" criticality=\"true\"><controlValue>v</controlValue></control>"
    "<attr name=\"d\"><value>v</value></attr></addRequest><modifyRequest dn=\"cn=a\">"
    "<modification name=\"n\" operation=\"increment\"><value>1</value></modification>"
    "</modifyRequest></batchRequest>";
constexpr std::string_view kValidRecords[] = {
    "dn: cn=a\ncontrol: 1.2.3 true: v\nchangetype: add\nd: v\n",
    "dn: cn=a\nchangetype: modify\nincrement: n\nn: 1\n-\n",
};

// Parsing the valid document after every input would slow the campaign; a
// context that a document left unusable stays so, and is caught a few
// hundred runs later all the same.
#if defined(QUILLOMAT_FUZZ_REPLAY)
constexpr uint64_t kReuseCheckInterval = 1;
#else
constexpr uint64_t kReuseCheckInterval = 1000;
#endif

// The callback's status for the entry it refuses.
constexpr int32_t kRefusal = 1;

struct Run {
  explicit Run(const GslxdvParserCtx *c) : ctx(c) {}

  const GslxdvParserCtx *ctx;
  uint32_t refuse = UINT32_MAX;  // which entry the callback refuses
  uint32_t calls = 0;            // entries handed to the callback
  int32_t stopped_with = 0;      // the callback's status that stopped the document
  unsigned walked = 0;           // the sum of every value byte read
  std::vector<std::string> records;
  uint64_t refused_before = qfuzz::CountingAllocator::refused();
  // Whether an allocation was refused since the run began.
  [[nodiscard]] bool ranOut() const {
    return qfuzz::CountingAllocator::refused() != refused_before;
  }
};

// Reads every byte, so the sanitizer sees any overrun; the sum goes where
// the compiler cannot drop the reads (the run, which the library holds).
void walk(const char *bytes, size_t length, unsigned *sum) {
  for (size_t k = 0; k < length; ++k) *sum += static_cast<unsigned char>(bytes[k]);
}

[[nodiscard]] size_t headerLength(uint8_t change_type) {
  switch (change_type) {
    case GSLCLE_ATTR_ADD: return std::strlen("add: ");
    case GSLCLE_ATTR_DELETE: return std::strlen("delete: ");
    case GSLCLE_ATTR_REPLACE: return std::strlen("replace: ");
    default: return std::strlen("increment: ");
  }
}

// Checks what the entry holds against what an entry of its kind and
// version may hold, walks every value, and returns the longest line its
// record may have.
size_t checkEntry(const LDAPEntry *entry, int32_t version, unsigned *sum) {
  FUZZ_CHECK(entry->dn != nullptr);
  const uint8_t change = entry->change_type;
  const bool content = change == GSLCLE_CHANGE_ADD && entry->explicit_change_type == 0;
  // A v1 document gives content entries only; v2 change entries carry
  // their change type explicitly.
  if (version == GSLXDV_VERSION_1) FUZZ_CHECK(content);
  FUZZ_CHECK(change >= GSLCLE_CHANGE_ADD && change <= GSLCLE_CHANGE_MODRDN);
  FUZZ_CHECK((entry->new_rdn != nullptr) == (change == GSLCLE_CHANGE_MODRDN));
  FUZZ_CHECK(entry->new_superior == nullptr || change == GSLCLE_CHANGE_MODRDN);
  FUZZ_CHECK(entry->delete_old_rdn <= 1);
  size_t longest = qfuzz::kLineLimit;
  qfuzz::forEachAttribute(entry, [&](const LDAPAttribute *a) {
    FUZZ_CHECK(change == GSLCLE_CHANGE_ADD || change == GSLCLE_CHANGE_MODIFY);
    FUZZ_CHECK(a->name != nullptr && a->name[0] != '\0');
    FUZZ_CHECK(a->value_kind == GSLCLE_VALUES_BINARY);
    FUZZ_CHECK(gslclecnCheckAttrName(a->name) == GSLCLEGAL_OK && qfuzz::nameAllowed(a->name));
    FUZZ_CHECK(a->change_type >= GSLCLE_ATTR_ADD && a->change_type <= GSLCLE_ATTR_INCREMENT);
    FUZZ_CHECK(change == GSLCLE_CHANGE_MODIFY || a->change_type == GSLCLE_ATTR_ADD);
    const size_t name = std::strlen(a->name);
    // A long name's first line is the name and ": " or ":: " before its
    // fold; a modification's header is never folded.
    longest = std::max(longest, name + 3);
    if (change == GSLCLE_CHANGE_MODIFY) {
      longest = std::max(longest, headerLength(a->change_type) + name);
    }
    for (uint32_t i = 0; i < a->count; ++i) {
      const auto *v = static_cast<const BERVal *>(a->values[i]);
      FUZZ_CHECK(v != nullptr && (v->length == 0) == (v->bytes == nullptr));
      walk(v->bytes, v->length, sum);
    }
  });
  // Search results drop their controls: only change entries carry them.
  FUZZ_CHECK(!content || entry->controls == nullptr || entry->controls->count == 0);
  qfuzz::forEachControl(entry, [&](const LDAPEntryControl *c) {
    FUZZ_CHECK(c->oid != nullptr);
    FUZZ_CHECK(gslclecoCheckControlOid(c->oid) == GSLCLE_OK && qfuzz::numericOid(c->oid));
    FUZZ_CHECK(c->critical <= 1 && c->has_value <= 1);
    FUZZ_CHECK(c->has_value != 0 || c->value.length == 0);
    FUZZ_CHECK((c->value.length == 0) == (c->value.bytes == nullptr));
    walk(c->value.bytes, c->value.length, sum);
    // Like a long name, a long control type makes a long first line.
    longest = std::max(longest, qfuzz::controlType(c).size() + 3);
  });
  return longest;
}

int32_t onEntry(LDAPEntry *entry, void *arg) {
  auto *run = static_cast<Run *>(arg);
  ++run->calls;
  const int32_t version = gslxdvgvGetVersion(run->ctx);
  FUZZ_CHECK(version == GSLXDV_VERSION_1 || version == GSLXDV_VERSION_2);
  const size_t longest = checkEntry(entry, version, &run->walked);
  // As the driver does: a v2 record in the form ldapmodify reads.
  const bool v2 = version == GSLXDV_VERSION_2;
  char *text = nullptr;
  size_t length = 1;
  const int st = gslclegalfGetAsLDIFForm(
      nullptr, entry,
      v2 ? GSLCLE_LDIF_FORM_RFC2849 | GSLCLE_LDIF_SAFE_VALUES : GSLCLE_LDIF_FORM_LIBRARY, &text,
      &length, nullptr);
  if (st == GSLCLEGAL_NO_MEMORY && run->ranOut()) {
    FUZZ_CHECK(text == nullptr && length == 0);
    run->stopped_with = st;
    return st;  // as the driver does: the document stops
  }
  FUZZ_CHECK(st == GSLCLEGAL_OK && text != nullptr);
  const std::string_view record(text, length);
  FUZZ_CHECK(std::strlen(text) == length);
  FUZZ_CHECK(record == (v2 ? qfuzz::rfcRecord(entry) : qfuzz::record(entry)));
  qfuzz::checkShape(record, longest);
  run->records.emplace_back(record);
  gslumfFree(nullptr, text);
  if (run->calls - 1 != run->refuse) return 0;
  run->stopped_with = kRefusal;
  return kRefusal;
}

void checkNothingPending(const GslxdvParserCtx *ctx) {
  FUZZ_CHECK(ctx->busy == 0);
  const GslxdvStateMachine *m = ctx->machine;
  FUZZ_CHECK(m->depth == 0 && m->entry == nullptr && m->attribute == nullptr &&
             m->text.bytes == nullptr && m->text.length == 0 && m->skip_name == nullptr);
  const GslxdvV2Machine *m2 = ctx->machine2;
  FUZZ_CHECK(m2->depth == 0 && m2->skip_depth == 0 && m2->entry == nullptr &&
             m2->attribute == nullptr && m2->control_oid == nullptr && m2->control_has_value == 0 &&
             m2->base64 == 0 && m2->text.bytes == nullptr && m2->text.length == 0);
}

[[nodiscard]] bool isXmlSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// Whether text is whole UTF-8 characters: a list cuts its texts at a
// character boundary, and the parser hands over valid UTF-8 only.
[[nodiscard]] bool wholeUtf8(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const size_t n = lead < 0x80           ? 1
                     : (lead >> 5) == 0x6  ? 2
                     : (lead >> 4) == 0xe  ? 3
                     : (lead >> 3) == 0x1e ? 4
                                           : 0;
    if (n == 0 || i + n > text.size()) return false;
    for (size_t k = 1; k < n; ++k) {
      if ((static_cast<unsigned char>(text[i + k]) & 0xc0) != 0x80) return false;
    }
    i += n;
  }
  return true;
}

void checkList(const GslxdvTextList &list) {
  FUZZ_CHECK(list.count <= GSLXDV_LIST_MAX && list.more <= 1);
  FUZZ_CHECK(list.more == 0 || list.count == GSLXDV_LIST_MAX);
  for (uint32_t i = 0; i < list.count; ++i) {
    const char *text = list.texts[i];
    FUZZ_CHECK(std::memchr(text, '\0', GSLXDV_LIST_TEXT_SIZE) != nullptr);
    FUZZ_CHECK(text[0] != '\0' && !isXmlSpace(text[0]));  // stripped, never empty
    FUZZ_CHECK(wholeUtf8(text));
    for (uint32_t k = 0; k < i; ++k) FUZZ_CHECK(std::strcmp(text, list.texts[k]) != 0);
  }
}

[[nodiscard]] bool sameList(const GslxdvTextList &a, const GslxdvTextList &b) {
  if (a.count != b.count || a.more != b.more) return false;
  for (uint32_t i = 0; i < a.count; ++i) {
    if (std::strcmp(a.texts[i], b.texts[i]) != 0) return false;
  }
  return true;
}

[[nodiscard]] bool sameWarnings(const GslxdvWarnings &a, const GslxdvWarnings &b) {
  return std::equal(std::begin(a.skipped), std::end(a.skipped), std::begin(b.skipped)) &&
         a.failed_searches == b.failed_searches && sameList(a.result_codes, b.result_codes) &&
         a.error_responses == b.error_responses && sameList(a.error_types, b.error_types) &&
         a.dropped_controls == b.dropped_controls;
}

GslxdvWarnings checkWarnings(const GslxdvParserCtx *ctx, const Run &run) {
  GslxdvWarnings w;
  std::memset(&w, 0xa5, sizeof w);  // every field must be written
  FUZZ_CHECK(gslxdvgwGetWarnings(ctx, &w) == GSLXDV_OK);
  checkList(w.result_codes);
  checkList(w.error_types);
  // Every failed search lists its code (one of white space alone is no
  // code); an errorResponse without a type, or with white space alone,
  // lists nothing.
  FUZZ_CHECK((w.result_codes.count == 0) == (w.failed_searches == 0));
  FUZZ_CHECK(w.result_codes.count <= w.failed_searches);
  FUZZ_CHECK(w.error_types.count <= w.error_responses);
  // A code listed is not 0: a longer code cut to fit its slot ends in "...".
  for (uint32_t i = 0; i < w.result_codes.count; ++i) {
    const std::string_view code = w.result_codes.texts[i];
    FUZZ_CHECK(!code.empty() && code.find_first_not_of('0') != std::string_view::npos);
  }
  // Counted as each search result entry is handed over.
  FUZZ_CHECK(w.dropped_controls <= run.calls);
  if (gslxdvgvGetVersion(ctx) != GSLXDV_VERSION_2) {
    GslxdvWarnings none;
    std::memset(&none, 0, sizeof none);
    FUZZ_CHECK(sameWarnings(w, none));
  }
  return w;
}

void checkDiagnostic(const GslxdvParserCtx *ctx, int32_t st, const Run &run) {
  GslxdvDiagnostic d;
  std::memset(&d, 0xa5, sizeof d);
  FUZZ_CHECK(gslxdv1gdGetDiagnostic(ctx, &d) == GSLXDV_OK);
  FUZZ_CHECK(std::memchr(d.detail, '\0', sizeof d.detail) != nullptr);
  const int32_t version = gslxdvgvGetVersion(ctx);
  FUZZ_CHECK(version >= GSLXDV_VERSION_NONE && version <= GSLXDV_VERSION_2);
  if (st == GSLXDV_OK) {
    // Read whole: the only thing to say is that it was not DSML at all.
    FUZZ_CHECK(run.stopped_with == 0);
    FUZZ_CHECK(d.cause == GSLXDV_CAUSE_NONE || d.cause == GSLXDV_CAUSE_NOT_DSML);
    FUZZ_CHECK((d.cause == GSLXDV_CAUSE_NOT_DSML) == (version == GSLXDV_VERSION_NONE));
    if (version == GSLXDV_VERSION_NONE) FUZZ_CHECK(run.calls == 0 && d.line >= 1);
    return;
  }
  FUZZ_CHECK(d.cause > GSLXDV_CAUSE_NONE && d.cause <= GSLXDV_CAUSE_BAD_OPERATION &&
             d.cause != GSLXDV_CAUSE_NOT_DSML);
  // Every failure has its place, but memory that ran out before the XML
  // parser could be made.
  FUZZ_CHECK(d.line >= 1 || d.cause == GSLXDV_CAUSE_NO_MEMORY);
  if (run.stopped_with == kRefusal) {
    FUZZ_CHECK(d.cause == GSLXDV_CAUSE_CALLBACK && std::strcmp(d.detail, "1") == 0);
  } else if (run.stopped_with == GSLCLEGAL_NO_MEMORY) {
    FUZZ_CHECK(d.cause == GSLXDV_CAUSE_NO_MEMORY);
  }
}

struct Harness {
  Harness() : input("quillomat-reader-v2-fuzz"), valid("quillomat-reader-v2-fuzz-valid") {
    qfuzz::setUpProcess();
    // Every block of the reader's goes through the counting hooks.
    static qfuzz::CountingAllocator allocator(qfuzz::CountingAllocator::kUnlimited);
    FUZZ_CHECK(gslxdv1cpCreateParserCtx(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                        &ctx) == GSLXDV_OK);
    created = qfuzz::CountingAllocator::live();
    valid.assign(kValid, sizeof kValid - 1);
  }
  ~Harness() { (void)gslxdv1cCleanup(&ctx); }

  GslxdvParserCtx *ctx = nullptr;
  int64_t created = 0;  // blocks alive once the context was created
  qfuzz::MemoryFile input;
  qfuzz::MemoryFile valid;
  uint64_t runs = 0;
};

// Between documents the XML layer keeps its text and attribute buffers
// (each while it is no larger than 64 KiB), so that the next document
// reuses them; nothing else outlives a document.
constexpr int64_t kRetainedParserBlocks = 2;

void checkNothingLeft(const Harness &h) {
  const int64_t live = qfuzz::CountingAllocator::live();
  FUZZ_CHECK(live >= h.created && live <= h.created + kRetainedParserBlocks);
}

// Reads the document of source once more with nothing refused, and checks
// that the stopped or starved run wrote its first records, all of them
// when it read the document whole.
void compareWithWholeRun(Harness &h, int32_t st, const Run &run, const GslxdvWarnings &warnings) {
  Run whole(h.ctx);
  const int32_t whole_st = gslxdvpParse(h.input.path(), GSLXDV_SOURCE_URI, h.ctx, onEntry, &whole);
  FUZZ_CHECK(whole_st == GSLXDV_OK || whole_st == GSLXDV_FAILED);
  checkNothingPending(h.ctx);
  FUZZ_CHECK(run.records.size() <= whole.records.size());
  FUZZ_CHECK(std::equal(run.records.begin(), run.records.end(), whole.records.begin()));
  if (st != GSLXDV_OK) return;
  FUZZ_CHECK(whole_st == GSLXDV_OK && run.records.size() == whole.records.size());
  const GslxdvWarnings whole_warnings = checkWarnings(h.ctx, whole);
  FUZZ_CHECK(sameWarnings(warnings, whole_warnings));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static Harness h;
  if (size == 0) return 0;
  h.input.assign(data + 1, size - 1);
  const qfuzz::ControlByte control = qfuzz::controlByte(data[0]);
  xmlSetChunkSizeForTesting(control.chunk_size);
  Run run(h.ctx);
  run.refuse = control.refuse;
  qfuzz::CountingAllocator::setBudget(control.budget);
  const int32_t st = gslxdvpParse(h.input.path(), GSLXDV_SOURCE_URI, h.ctx, onEntry, &run);
  qfuzz::CountingAllocator::setBudget(qfuzz::CountingAllocator::kUnlimited);
  FUZZ_CHECK(st == GSLXDV_OK || st == GSLXDV_FAILED);
  checkNothingPending(h.ctx);
  checkNothingLeft(h);
  checkDiagnostic(h.ctx, st, run);
  const GslxdvWarnings warnings = checkWarnings(h.ctx, run);
  const bool ran_out = run.ranOut();
  if (ran_out || run.stopped_with == kRefusal) {
    compareWithWholeRun(h, st, run, warnings);
    checkNothingLeft(h);
  }
  if (h.runs++ % kReuseCheckInterval == 0 || ran_out) {
    // Whatever happened, the context still reads a valid document whole.
    Run again(h.ctx);
    FUZZ_CHECK(gslxdvpParse(h.valid.path(), GSLXDV_SOURCE_URI, h.ctx, onEntry, &again) ==
               GSLXDV_OK);
    FUZZ_CHECK(gslxdvgvGetVersion(h.ctx) == GSLXDV_VERSION_2);
    FUZZ_CHECK(std::equal(again.records.begin(), again.records.end(), std::begin(kValidRecords),
                          std::end(kValidRecords)));
    checkNothingPending(h.ctx);
    checkNothingLeft(h);
  }
  return 0;
}
