// ber/dump.cc - diagnostic dumps of an element and its open sequences, as
// trace lines. Contracts in ber/io.h.
#include <cstddef>
#include <cstdint>

#include "ber/ber_internal.h"
#include "ber/io.h"
#include "core/output.h"

namespace {

constexpr uint32_t kBytesPerLine = 16;
constexpr char kHexDigits[] = "0123456789abcdef";
constexpr char kNotPrintable = '.';
// "xx " per byte, a space, the characters, the NUL.
constexpr std::size_t kLineSize = kBytesPerLine * 3 + 1 + kBytesPerLine + 1;

constexpr char kDumpHeader[] = "gsleioNBerDump: buf 0x%lx, ptr 0x%lx, end 0x%lx\n";
constexpr char kDumpLength[] = "       current len %ld, contents:\n";
constexpr char kSosBegin[] = "*** sos dump ***\n";
constexpr char kSosRecord[] = "gsleioOBerSosDump: clen %ld first 0x%lx ptr 0x%lx\n";
constexpr char kSosLength[] = "      current len %ld contents:\n";
constexpr char kSosEnd[] = "*** end dump ***\n";
constexpr char kBytesLine[] = "\t%s\n";

bool isPrintable(uint8_t byte) { return byte >= 0x20 && byte < 0x7f; }

// One line of up to kBytesPerLine bytes: their hexadecimal pairs, padded to
// the full width, then the bytes as characters.
void formatLine(const uint8_t *bytes, uint32_t count, char (&line)[kLineSize]) {
  char *out = line;
  for (uint32_t i = 0; i < kBytesPerLine; ++i) {
    *out++ = i < count ? kHexDigits[bytes[i] >> 4] : ' ';
    *out++ = i < count ? kHexDigits[bytes[i] & 0xf] : ' ';
    *out++ = ' ';
  }
  *out++ = ' ';
  for (uint32_t i = 0; i < count; ++i)
    *out++ = isPrintable(bytes[i]) ? static_cast<char>(bytes[i]) : kNotPrintable;
  *out = '\0';
}

uint64_t address(const void *p) { return reinterpret_cast<uintptr_t>(p); }

}  // namespace

extern "C" {

void gslebpALberBPrint(gsluctx *ctx, const void *bytes, uint32_t length) {
  if (bytes == nullptr) return;
  const auto *p = static_cast<const uint8_t *>(bytes);
  char line[kLineSize];
  for (uint32_t done = 0; done < length; done += kBytesPerLine) {
    const uint32_t count = length - done < kBytesPerLine ? length - done : kBytesPerLine;
    formatLine(p + done, count, line);
    (void)gslu::trace(ctx, GSLE_TRACE_BER, kBytesLine, static_cast<const char *>(line));
  }
}

void gsleioNBerDump(gsluctx *ctx, const gsleBerElement *ber, int32_t mode) {
  if (ber == nullptr) return;
  const uint64_t buf = address(ber->buf);
  const uint64_t ptr = address(ber->ptr);
  const uint64_t end = address(ber->end);
  (void)gslu::trace(ctx, GSLE_TRACE_BER, kDumpHeader, &buf, &ptr, &end);
  const bool remaining = mode == GSLE_DUMP_REMAINING;
  const unsigned char *from = remaining ? ber->ptr : ber->buf;
  const int64_t length = remaining ? ber->end - ber->ptr : ber->ptr - ber->buf;
  (void)gslu::trace(ctx, GSLE_TRACE_BER, kDumpLength, &length);
  gslebpALberBPrint(ctx, from, static_cast<uint32_t>(length));
}

void gsleioOBerSosDump(gsluctx *ctx, const gsleBerElement *ber) {
  (void)gslu::trace(ctx, GSLE_TRACE_BER, kSosBegin);
  for (const gsleSeqorset *r = ber != nullptr ? ber->sos : nullptr; r != nullptr; r = r->outer) {
    const int64_t length = r->length;
    const uint64_t first = address(r->start);
    const uint64_t pos = address(r->pos);
    (void)gslu::trace(ctx, GSLE_TRACE_BER, kSosRecord, &length, &first, &pos);
    (void)gslu::trace(ctx, GSLE_TRACE_BER, kSosLength, &length);
    gslebpALberBPrint(ctx, r->pos - r->length, r->length);
  }
  (void)gslu::trace(ctx, GSLE_TRACE_BER, kSosEnd);
}

}  // extern "C"
