// Fuzz target for the DSML reader and the LDIF record writer: reads
// arbitrary bytes as a document through expat into entries and renders each
// entry as an LDIF record. The first byte picks the chunk size the parser
// reads with (bits 0-1) and either which entry the callback refuses (bit 7
// set: bits 2-6) or after how many allocations every allocation fails (bit 7
// clear: bits 2-6, 0 for never), so that split input, a stopping callback
// and exhausted memory are explored; the rest is the document.
//
// The document is handed to the reader from memory: it is written into a
// memory file (memfd) created once, which the reader opens by its
// /proc/self/fd path like any other file.
//
// Checked: the reader ends with 0 or 2 and leaves nothing pending in its
// machine; every entry it hands out has only names an LDIF record may hold
// (forged ones fail the document) and values it can walk within their
// bounds; every record is byte for byte the plain rendering of
// ldif_model.h, with the shape of any LDIF text (no empty line inside, no
// line over 78 bytes unless a long name makes its first line longer, a line
// starting with a space only where the writer folded), or, once memory ran
// out, no record at all (status 5). Every thousandth run, every run after
// memory ran out, and every run when replaying a corpus, the context must
// still read a valid document whole.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "core/memory.h"
#include "dsml/reader_internal.h"
#include "dsml/xml_internal.h"
#include "entry/ldif_record.h"
#include "fuzz_support.h"
#include "ldif_model.h"

namespace {

constexpr char kValid[] =
    "<dsml><directory-entries><entry dn=\"cn=a\"><attr name=\"d\"><value>v</value></attr>"
    "</entry></directory-entries></dsml>";

// Parsing the valid document after every input would halve the speed; a
// context that a document left unusable stays so, and is caught a few
// hundred runs later all the same.
#if defined(QUILLOMAT_FUZZ_REPLAY)
constexpr uint64_t kReuseCheckInterval = 1;
#else
constexpr uint64_t kReuseCheckInterval = 1000;
#endif

struct Run {
  uint32_t entries = 0;
  uint32_t refuse = UINT32_MAX;
  uint64_t refused_before = qfuzz::CountingAllocator::refused();
  // Whether an allocation was refused since the run began.
  [[nodiscard]] bool ranOut() const {
    return qfuzz::CountingAllocator::refused() != refused_before;
  }
};

// Walks every value byte by byte, so the sanitizer sees any overrun, and
// returns the longest attribute name.
size_t checkEntry(const LDAPEntry *entry) {
  FUZZ_CHECK(entry->dn != nullptr);
  size_t longest = 2;  // "dn"
  unsigned sum = 0;
  qfuzz::forEachAttribute(entry, [&](const LDAPAttribute *a) {
    FUZZ_CHECK(a->name != nullptr && a->name[0] != '\0');
    FUZZ_CHECK(a->value_kind == GSLCLE_VALUES_BINARY);
    FUZZ_CHECK(gslclecnCheckAttrName(a->name) == GSLCLEGAL_OK && qfuzz::nameAllowed(a->name));
    longest = std::max(longest, std::strlen(a->name));
    for (uint32_t i = 0; i < a->count; ++i) {
      const auto *v = static_cast<const BERVal *>(a->values[i]);
      FUZZ_CHECK(v != nullptr && (v->length == 0) == (v->bytes == nullptr));
      for (size_t k = 0; k < v->length; ++k) sum += static_cast<unsigned char>(v->bytes[k]);
    }
  });
  (void)sum;
  return longest;
}

int32_t onEntry(LDAPEntry *entry, void *arg) {
  auto *run = static_cast<Run *>(arg);
  const size_t longest = checkEntry(entry);
  char *text = nullptr;
  const int st = gslclegalGetAsLDIF(nullptr, entry, &text);
  if (st == GSLCLEGAL_NO_MEMORY && run->ranOut()) {
    FUZZ_CHECK(text == nullptr);
    return st;  // as the driver does: the document stops
  }
  FUZZ_CHECK(st == GSLCLEGAL_OK && text != nullptr);
  const std::string_view record(text);
  FUZZ_CHECK(record == qfuzz::record(entry));
  // A long name's first line is the name and ": " or ":: " before its fold.
  qfuzz::checkShape(record, std::max(qfuzz::kLineLimit, longest + 3));
  gslumfFree(nullptr, text);
  return run->entries++ == run->refuse ? 1 : 0;
}

struct Harness {
  Harness() : input("quillomat-reader-fuzz"), valid("quillomat-reader-fuzz-valid") {
    qfuzz::setUpProcess();
    // Every block of the reader's goes through the counting hooks.
    static qfuzz::CountingAllocator allocator(qfuzz::CountingAllocator::kUnlimited);
    FUZZ_CHECK(gslxdv1cpCreateParserCtx(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                        &ctx) == GSLXDV_OK);
    valid.assign(kValid, sizeof kValid - 1);
  }
  ~Harness() { (void)gslxdv1cCleanup(&ctx); }

  GslxdvParserCtx *ctx = nullptr;
  qfuzz::MemoryFile input;
  qfuzz::MemoryFile valid;
  uint64_t runs = 0;
};

void checkNothingPending(const GslxdvParserCtx *ctx) {
  const GslxdvStateMachine *m = ctx->machine;
  FUZZ_CHECK(ctx->busy == 0 && m->depth == 0 && m->entry == nullptr && m->attribute == nullptr &&
             m->text.bytes == nullptr && m->text.length == 0 && m->skip_name == nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static Harness h;
  if (size == 0) return 0;
  h.input.assign(data + 1, size - 1);
  const qfuzz::ControlByte control = qfuzz::controlByte(data[0]);
  xmlSetChunkSizeForTesting(control.chunk_size);
  Run run;
  run.refuse = control.refuse;
  qfuzz::CountingAllocator::setBudget(control.budget);
  const int32_t st = gslxdv1pParse(h.input.path(), GSLXDV_SOURCE_URI, h.ctx, onEntry, &run);
  qfuzz::CountingAllocator::setBudget(qfuzz::CountingAllocator::kUnlimited);
  FUZZ_CHECK(st == GSLXDV_OK || st == GSLXDV_FAILED);
  checkNothingPending(h.ctx);
  if (h.runs++ % kReuseCheckInterval == 0 || run.ranOut()) {
    // Whatever happened, the context still reads a valid document whole.
    Run again;
    FUZZ_CHECK(gslxdv1pParse(h.valid.path(), GSLXDV_SOURCE_URI, h.ctx, onEntry, &again) ==
               GSLXDV_OK);
    FUZZ_CHECK(again.entries == 1);
  }
  return 0;
}
