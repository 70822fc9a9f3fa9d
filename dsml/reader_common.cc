// dsml/reader_common.cc - names, value text, base64 values and failures for
// both DSML readers. Contracts in dsml/reader_common.h.
#include "dsml/reader_common.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "core/memory.h"
#include "entry/base64.h"
#include "entry/ldif_record.h"
#include "entry/names.h"

namespace gslxdv {
namespace {

[[nodiscard]] constexpr bool isXmlSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

constexpr uint32_t kInitialTextBytes = 256;

// Room for size bytes in the buffer; the first `keep` bytes of its content
// are kept. False (the buffer unchanged) when it cannot grow.
[[nodiscard]] bool reserveText(gsluctx *core, GslxdvText *text, uint32_t size, uint32_t keep) {
  if (size <= text->capacity) return true;
  const uint32_t grown = std::max(
      {size, kInitialTextBytes, text->capacity <= UINT32_MAX / 2 ? 2 * text->capacity : size});
  char *block = static_cast<char *>(gslummMalloc(core, grown));
  if (block == nullptr) return false;
  if (keep != 0) std::memcpy(block, text->bytes, keep);
  (void)gslumfFree(core, text->bytes);
  text->bytes = block;
  text->capacity = grown;
  return true;
}

}  // namespace

bool hasNonAscii(const char *name) {
  for (; *name != '\0'; ++name) {
    if ((static_cast<unsigned char>(*name) & 0x80) != 0) return true;
  }
  return false;
}

std::string_view stripXmlSpace(std::string_view text) {
  while (!text.empty() && isXmlSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isXmlSpace(text.back())) text.remove_suffix(1);
  return text;
}

// ---- Value text ------------------------------------------------------------------------

void releaseText(gsluctx *core, GslxdvText *text) {
  dropText(text);
  (void)gslumfFree(core, text->bytes);
  text->bytes = nullptr;
  text->capacity = 0;
}

int replaceText(gsluctx *core, GslxdvText *text, const char *bytes, uint32_t length) {
  dropText(text);
  // Detect and prevent integer overflow: room for the NUL must fit 32 bits.
  if (length == UINT32_MAX || !reserveText(core, text, length + 1, 0)) return GSLXDV_NO_MEMORY;
  (void)gslussnStrncpy(core, text->bytes, bytes, length);
  text->bytes[length] = '\0';  // the base64 cleaner reads up to it
  text->length = length;
  return GSLXDV_OK;
}

int appendText(gsluctx *core, GslxdvText *text, const char *bytes, uint32_t length) {
  const uint32_t kept = text->length;
  // Detect and prevent integer overflow: the joined text and its NUL must
  // fit 32 bits.
  if (length >= UINT32_MAX - kept || !reserveText(core, text, kept + length + 1, kept)) {
    dropText(text);
    return GSLXDV_NO_MEMORY;
  }
  std::memcpy(text->bytes + kept, bytes, length);
  text->length = kept + length;
  text->bytes[text->length] = '\0';
  return GSLXDV_OK;
}

int decodeText(GslxdvText *text) {
  if (text->length == 0) return GSLXDV_BAD_BASE64;  // cleans to nothing
  const uint32_t decoded = gsluztvb64dcln(text->bytes, text->length, text->bytes);
  if (decoded == GSLUZTV_B64_MALFORMED) {
    dropText(text);
    return GSLXDV_BAD_BASE64;
  }
  text->bytes[decoded] = '\0';
  text->length = decoded;
  return GSLXDV_OK;
}

// ---- Attributes ------------------------------------------------------------------------

int createNamedAttribute(const char *name, int rule, LDAPAttribute **attribute) {
  if (gslclenaAttrNameLength(name, rule) < 0) return GSLCLEGAL_REFUSED;
  return gslcleclaCreateLDAPAttribute(nullptr, name, GSLCLE_VALUES_BINARY, attribute);
}

// ---- Entries ---------------------------------------------------------------------------

int deliverEntry(LDAPEntry **entry, GslxdvEntryCallback callback, void *arg, GslxdvDiagnostic *d,
                 const xmlctx *xml) {
  if (callback != nullptr && *entry != nullptr) {
    if (const int32_t st = callback(*entry, arg); st != 0) {
      char status[16];
      std::snprintf(status, sizeof status, "%d", st);
      recordFailure(d, xml,
                    st == GSLXDV_NO_MEMORY ? GSLXDV_CAUSE_NO_MEMORY : GSLXDV_CAUSE_CALLBACK, status);
      return st;
    }
  }
  (void)gslcledeDestroyLDAPEntry(nullptr, *entry);
  *entry = nullptr;
  return GSLXDV_OK;
}

// ---- Failures --------------------------------------------------------------------------

int32_t causeOfModelStatus(int model_status) {
  return model_status == GSLCLE_NO_MEMORY ? GSLXDV_CAUSE_NO_MEMORY : GSLXDV_CAUSE_OTHER;
}

bool hasFailure(const GslxdvDiagnostic &d) {
  return d.cause != GSLXDV_CAUSE_NONE && d.cause != GSLXDV_CAUSE_NOT_DSML;
}

void setDetail(GslxdvDiagnostic *d, const char *detail) {
  std::snprintf(d->detail, sizeof d->detail, "%s", detail != nullptr ? detail : "");
}

void recordFailure(GslxdvDiagnostic *d, const xmlctx *xml, int32_t cause, const char *detail) {
  if (hasFailure(*d)) return;
  d->cause = cause;
  xmlPosition(xml, &d->line, &d->column);
  setDetail(d, detail);
}

}  // namespace gslxdv
