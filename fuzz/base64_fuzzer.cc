// libFuzzer target for the base64 codec: decodes arbitrary text, then checks
// that every encoder's output of the decoded bytes decodes back to them.
// Buffers are heap blocks of exactly the documented size, so the sanitizer
// reports any access outside them.

#include "entry/base64.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

// Largest output of gsluztvb64en, which gsluztvb64gol does not cover.
size_t foldedCapacity(size_t n) { return 4 * ((n + 2) / 3) + n / 48 + 2; }

void check(bool condition) {
  if (!condition) std::abort();
}

// Encodes, optionally checks the text scans as valid folded base64, and
// decodes it back to the same bytes.
void checkRoundTrip(const uint8_t *bytes, uint32_t length,
                    uint32_t (*encoder)(const void *, uint32_t, char *), size_t capacity,
                    bool foldedWithinScanLimit) {
  std::vector<char> text(capacity);
  const uint32_t written = encoder(bytes, length, text.data());
  check(written <= capacity);
  if (foldedWithinScanLimit) check(gsluztvb64scn(text.data(), written) == written);
  std::vector<uint8_t> back(gsluztvb64gol(written, GSLUZTV_B64_SIZE_DECODE));
  const uint32_t decoded = gsluztvb64d(text.data(), written, back.data());
  check(decoded == length && std::memcmp(back.data(), bytes, length) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  // The codec counts in 32 bits; libFuzzer inputs stay far below that.
  if (size > (1u << 20)) return 0;
  const auto length = static_cast<uint32_t>(size);
  const std::vector<char> text(data, data + size);  // exact-size copy
  std::vector<uint8_t> bytes(gsluztvb64gol(length, GSLUZTV_B64_SIZE_DECODE));
  const uint32_t decoded = gsluztvb64d(text.data(), length, bytes.data());
  check(decoded <= bytes.size());
  check(gsluztvb64scn(text.data(), length) <= length);
  if (decoded == GSLUZTV_B64_MALFORMED) return 0;

  checkRoundTrip(bytes.data(), decoded, gsluztvb64e,
                 gsluztvb64gol(decoded, GSLUZTV_B64_SIZE_ENCODE), false);
  checkRoundTrip(bytes.data(), decoded, gsluztvb64en, foldedCapacity(decoded), true);

  // The cleaner keeps digits and "=" of the NUL-terminated copy in order.
  std::vector<char> cleaned(text);
  cleaned.push_back('\0');
  uint32_t kept = 0;
  check(gsluztvb64cln(cleaned.data(), length, &kept) == GSLUZTV_B64_CLEANED);
  check(kept <= length && cleaned[kept] == '\0');
  return 0;
}
