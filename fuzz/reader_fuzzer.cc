// libFuzzer target for the DSML reader and the LDIF writer: reads arbitrary
// bytes as a document through expat into entries and renders each entry as
// an LDIF record. The first byte picks the chunk size
// the parser reads with and which entry the callback refuses, so that both
// split input and a stopping callback are explored; the rest is the
// document. The reader must end with 0 or 2, walk every value it hands out
// within its bounds, and leave its context able to read a valid document.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/memory.h"
#include "dsml/reader_internal.h"
#include "dsml/xml_internal.h"
#include "entry/ldif_record.h"

namespace {

constexpr size_t kChunkSizes[] = {1, 2, 7, 4096};
constexpr char kValid[] =
    "<dsml><directory-entries><entry dn=\"cn=a\"><attr name=\"d\"><value>v</value></attr>"
    "</entry></directory-entries></dsml>";

void check(bool condition) {
  if (!condition) std::abort();
}

struct Run {
  uint32_t entries = 0;
  uint32_t refuse = UINT32_MAX;
};

// Reads every byte of every value, so the sanitizer sees any overrun.
int32_t onEntry(LDAPEntry *entry, void *arg) {
  auto *run = static_cast<Run *>(arg);
  check(entry->dn != nullptr);
  unsigned sum = 0;
  for (auto *a = static_cast<LDAPAttribute *>(entry->attributes ? entry->attributes->head : nullptr);
       a != nullptr; a = static_cast<LDAPAttribute *>(a->next)) {
    check(a->name != nullptr && a->name[0] != '\0' && a->value_kind == GSLCLE_VALUES_BINARY);
    for (uint32_t i = 0; i < a->count; ++i) {
      const auto *v = static_cast<const BERVal *>(a->values[i]);
      check(v != nullptr && (v->length == 0) == (v->bytes == nullptr));
      for (size_t k = 0; k < v->length; ++k) sum += static_cast<unsigned char>(v->bytes[k]);
    }
  }
  (void)sum;
  // The record is one NUL-terminated text whose lines all end in a newline.
  char *text = nullptr;
  check(gslclegalGetAsLDIF(nullptr, entry, &text) == GSLCLEGAL_OK && text != nullptr);
  const size_t length = std::strlen(text);
  check(length > 0 && text[length - 1] == '\n');
  gslumfFree(nullptr, text);
  return run->entries++ == run->refuse ? 1 : 0;
}

struct Harness {
  Harness() {
    if (std::getenv("VSX_LDAP_MESGDIR") == nullptr) setenv("VSX_LDAP_MESGDIR", QUILLOMAT_MESGDIR, 0);
    check(gslxdv1cpCreateParserCtx(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &ctx) == 0);
    char name[] = "/tmp/quillomat-reader-fuzz-XXXXXX";
    const int fd = mkstemp(name);
    check(fd >= 0);
    close(fd);
    path = name;
    char valid_name[] = "/tmp/quillomat-reader-fuzz-XXXXXX";
    const int valid_fd = mkstemp(valid_name);
    check(valid_fd >= 0 && write(valid_fd, kValid, sizeof kValid - 1) == sizeof kValid - 1);
    close(valid_fd);
    valid_path = valid_name;
  }
  ~Harness() {
    unlink(path.c_str());
    unlink(valid_path.c_str());
    gslxdv1cCleanup(&ctx);
  }
  GslxdvParserCtx *ctx = nullptr;
  std::string path;
  std::string valid_path;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static Harness h;
  if (size == 0) return 0;
  FILE *f = std::fopen(h.path.c_str(), "wb");
  check(f != nullptr);
  check(std::fwrite(data + 1, 1, size - 1, f) == size - 1);
  std::fclose(f);
  xmlSetChunkSizeForTesting(kChunkSizes[data[0] & 3]);
  Run run;
  run.refuse = (data[0] & 0x80) != 0 ? (data[0] >> 2) & 0x1f : UINT32_MAX;
  const int32_t st = gslxdv1pParse(h.path.c_str(), GSLXDV_SOURCE_URI, h.ctx, onEntry, &run);
  check(st == GSLXDV_OK || st == GSLXDV_FAILED);
  check(h.ctx->machine->stack == nullptr && h.ctx->machine->entry == nullptr &&
        h.ctx->machine->attribute == nullptr &&
        h.ctx->machine->text == nullptr && h.ctx->machine->skip_name == nullptr);
  // Whatever happened, the context still reads a valid document whole.
  Run again;
  check(gslxdv1pParse(h.valid_path.c_str(), GSLXDV_SOURCE_URI, h.ctx, onEntry, &again) == GSLXDV_OK);
  check(again.entries == 1);
  return 0;
}
