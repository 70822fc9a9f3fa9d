// ber/encode.cc - writing tags, lengths, primitive elements, sequences and
// sets, and the format front end. Contracts in ber/encode.h.
#include "ber/encode.h"

#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <optional>

#include "ber/ber_internal.h"
#include "core/memory.h"
#include "core/output.h"
#include "util/strings.h"

namespace {

using gsle::kDefaultTag;
using gsle::kFailed;

// The universal tags an element takes when its tag is LBER_DEFAULT.
enum Universal {
  kInteger,
  kEnumerated,
  kOctetString,
  kNull,
  kBoolean,
  kBitString,
  kSequence,
  kSet
};
constexpr uint32_t kUniversalTag[] = {
    /* INTEGER      */ LBER_INTEGER,
    /* ENUMERATED   */ LBER_ENUMERATED,
    /* OCTET STRING */ LBER_OCTETSTRING,
    /* NULL         */ LBER_NULL,
    /* BOOLEAN      */ LBER_BOOLEAN,
    /* BIT STRING   */ LBER_BITSTRING,
    /* SEQUENCE     */ LBER_SEQUENCE,
    /* SET          */ LBER_SET,
};
static_assert(sizeof kUniversalTag / sizeof kUniversalTag[0] == kSet + 1);

uint32_t tagOr(uint32_t tag, Universal type) {
  return tag == kDefaultTag ? kUniversalTag[type] : tag;
}

constexpr uint32_t kMaxShortLength = 127;  // one length byte
constexpr uint8_t kLongFormBit = 0x80;     // 0x80 + n: n length bytes follow
constexpr uint32_t kMaxLengthBytes = 4;
constexpr uint8_t kBooleanTrue = 0xff;
constexpr uint8_t kBooleanFalse = 0x00;
constexpr uint32_t kMaxIntBytes = 4;
constexpr uint32_t kBitsPerByte = 8;

// Element results are int: an element must stay below 2 GiB, header and all.
constexpr uint32_t kMaxResult = INT32_MAX;
constexpr uint32_t kMaxHeader = 4 + GSLE_LONG_LENGTH_SIZE;

// The length field of `length` in `size` bytes (1, or 2 to 5 with the long
// form's first byte): the shortest form when size is gsleenCBerCalcLenlen's,
// the five-byte form when size is 5.
void encodeLength(uint32_t length, uint32_t size, uint8_t (&out)[GSLE_LONG_LENGTH_SIZE]) {
  if (size == 1) {
    out[0] = static_cast<uint8_t>(length);
    return;
  }
  const uint32_t count = size - 1;
  out[0] = static_cast<uint8_t>(kLongFormBit | count);
  for (uint32_t i = 0; i < count; ++i)
    out[1 + i] = static_cast<uint8_t>(length >> (8 * (count - 1 - i)));
}

void encodeTag(uint32_t tag, uint32_t size, uint8_t (&out)[4]) {
  for (uint32_t i = 0; i < size; ++i) out[i] = static_cast<uint8_t>(tag >> (8 * (size - 1 - i)));
}

// Tag and length of an element with `length` content bytes: the bytes
// written, or -1.
[[nodiscard]] int32_t putHeader(gsluctx *ctx, gsleBerElement *ber, uint32_t tag, uint32_t length) {
  const int32_t tag_bytes = gsleenBBerPutTag(ctx, ber, tag, 0);
  if (tag_bytes == kFailed) return kFailed;
  const int32_t length_bytes = gsleenDBerPutLen(ctx, ber, length, 0);
  if (length_bytes == kFailed) return kFailed;
  return tag_bytes + length_bytes;
}

// A whole primitive element: header, then content. The total, or -1.
[[nodiscard]] int32_t putPrimitive(gsluctx *ctx, gsleBerElement *ber, uint32_t tag,
                                   const void *content, uint32_t length) {
  if (ber == nullptr) return kFailed;
  // Detect and prevent overflow of the int result.
  if (length > kMaxResult - kMaxHeader) return kFailed;
  const int32_t header = putHeader(ctx, ber, tag, length);
  if (header == kFailed) return kFailed;
  if (gsleioDBerWrite(ctx, ber, content, length, 0) == kFailed) return kFailed;
  return header + static_cast<int32_t>(length);
}

// Fewest two's-complement bytes of value that keep its sign: a leading 0x00
// (0xff) byte is dropped while the next byte's top bit is 0 (1).
uint32_t integerLength(uint32_t value) {
  uint32_t n = kMaxIntBytes;
  for (; n > 1; --n) {
    const uint32_t top = (value >> (8 * (n - 1))) & 0xff;
    const uint32_t next_sign = (value >> (8 * (n - 1) - 1)) & 1;
    const bool redundant = (top == 0x00 && next_sign == 0) || (top == 0xff && next_sign == 1);
    if (!redundant) break;
  }
  return n;
}

// The record for the next level: inline for the first eight levels.
[[nodiscard]] gsleSeqorset *nextRecord(gsluctx *ctx, gsleBerElement *ber) {
  if (ber->depth < GSLE_INLINE_RECORDS) {
    gsleSeqorset *record = &ber->records[ber->depth];
    *record = gsleSeqorset{};
    return record;
  }
  return gsle::allocateZeroed<gsleSeqorset>(ctx);
}

}  // namespace

extern "C" {

uint32_t gsleenABerCalcTaglen(uint32_t tag) {
  if (tag > 0xffffff) return 4;
  if (tag > 0xffff) return 3;
  if (tag >= 0x100) return 2;
  return 1;
}

uint32_t gsleenCBerCalcLenlen(uint32_t length) {
  if (length < 128) return 1;
  if (length < 256) return 2;
  if (length < 65536) return 3;
  if (length <= 0xffffff) return 4;
  return 5;
}

int32_t gsleenBBerPutTag(gsluctx *ctx, gsleBerElement *ber, uint32_t tag, int32_t top_level) {
  const uint32_t size = gsleenABerCalcTaglen(tag);
  uint8_t bytes[4];
  encodeTag(tag, size, bytes);
  return gsleioDBerWrite(ctx, ber, bytes, size, top_level);
}

int32_t gsleenDBerPutLen(gsluctx *ctx, gsleBerElement *ber, uint32_t length, int32_t top_level) {
  static_assert(kMaxShortLength == 127 && kMaxLengthBytes + 1 == GSLE_LONG_LENGTH_SIZE);
  const uint32_t size = gsleenCBerCalcLenlen(length);
  uint8_t bytes[GSLE_LONG_LENGTH_SIZE];
  encodeLength(length, size, bytes);
  return gsleioDBerWrite(ctx, ber, bytes, size, top_level);
}

int32_t gsleenEBerPutIntOrEnum(gsluctx *ctx, gsleBerElement *ber, int32_t value, uint32_t tag) {
  const auto bits = static_cast<uint32_t>(value);
  const uint32_t length = integerLength(bits);
  uint8_t content[kMaxIntBytes];
  for (uint32_t i = 0; i < length; ++i)
    content[i] = static_cast<uint8_t>(bits >> (8 * (length - 1 - i)));
  return putPrimitive(ctx, ber, tag, content, length);
}

int32_t gsleenFBerPutEnum(gsluctx *ctx, gsleBerElement *ber, int32_t value, uint32_t tag) {
  return gsleenEBerPutIntOrEnum(ctx, ber, value, tagOr(tag, kEnumerated));
}

int32_t gsleenGBerPutInt(gsluctx *ctx, gsleBerElement *ber, int32_t value, uint32_t tag) {
  return gsleenEBerPutIntOrEnum(ctx, ber, value, tagOr(tag, kInteger));
}

int32_t gsleenHBerPutOstring(gsluctx *ctx, gsleBerElement *ber, const void *bytes, uint32_t length,
                             uint32_t tag) {
  if (bytes == nullptr && length != 0) return kFailed;
  return putPrimitive(ctx, ber, tagOr(tag, kOctetString), bytes, length);
}

int32_t gsleenIBerPutString(gsluctx *ctx, gsleBerElement *ber, const char *text, uint32_t tag) {
  if (text == nullptr) return kFailed;
  const size_t length = gslusslStrlen(ctx, text);
  if (length > kMaxResult) return kFailed;
  return gsleenHBerPutOstring(ctx, ber, text, static_cast<uint32_t>(length), tag);
}

int32_t gsleenJBerPutBitstring(gsluctx *ctx, gsleBerElement *ber, const void *bytes, uint32_t bits,
                               uint32_t tag) {
  if (ber == nullptr || (bytes == nullptr && bits != 0)) return kFailed;
  // Detect and prevent integer overflow: bytes rounded up, plus the byte
  // counting the unused bits, in 64 bits.
  const uint64_t byte_count = (uint64_t{bits} + kBitsPerByte - 1) / kBitsPerByte;
  if (byte_count + 1 > kMaxResult - kMaxHeader) return kFailed;
  const auto unused = static_cast<uint8_t>(byte_count * kBitsPerByte - bits);
  const int32_t header =
      putHeader(ctx, ber, tagOr(tag, kBitString), static_cast<uint32_t>(byte_count + 1));
  if (header == kFailed) return kFailed;
  if (gsleioDBerWrite(ctx, ber, &unused, 1, 0) == kFailed) return kFailed;
  if (gsleioDBerWrite(ctx, ber, bytes, static_cast<uint32_t>(byte_count), 0) == kFailed)
    return kFailed;
  return header + 1 + static_cast<int32_t>(byte_count);
}

int32_t gsleenKBerPutNull(gsluctx *ctx, gsleBerElement *ber, uint32_t tag) {
  return putPrimitive(ctx, ber, tagOr(tag, kNull), nullptr, 0);
}

int32_t gsleenLBerPutBoolean(gsluctx *ctx, gsleBerElement *ber, int32_t value, uint32_t tag) {
  const uint8_t content = value != 0 ? kBooleanTrue : kBooleanFalse;
  return putPrimitive(ctx, ber, tagOr(tag, kBoolean), &content, 1);
}

int32_t gsleenNBerStartSeq(gsluctx *ctx, gsleBerElement *ber, uint32_t tag) {
  return gsleenMBerStartSeqorset(ctx, ber, tagOr(tag, kSequence));
}

int32_t gsleenOBerStartSet(gsluctx *ctx, gsleBerElement *ber, uint32_t tag) {
  return gsleenMBerStartSeqorset(ctx, ber, tagOr(tag, kSet));
}

int32_t gsleenMBerStartSeqorset(gsluctx *ctx, gsleBerElement *ber, uint32_t tag) {
  if (ber == nullptr) return kFailed;
  const uint32_t header = gsleenABerCalcTaglen(tag) + GSLE_LONG_LENGTH_SIZE;
  // The tag and the longest length field must fit where they will be
  // written when the record is closed, even if no content follows: make
  // room for them now, while nothing points past the buffer's end.
  unsigned char *base = ber->sos != nullptr ? ber->sos->pos : ber->ptr;
  if (ber->buf == nullptr || header > static_cast<uint64_t>(ber->end - base)) {
    if (gsleioEBerRealloc(ctx, ber, header) != GSLE_OK) return kFailed;
  }
  gsleSeqorset *record = nextRecord(ctx, ber);
  if (record == nullptr) return kFailed;
  record->start = ber->sos != nullptr ? ber->sos->pos : ber->ptr;
  record->pos = record->start + header;
  record->length = 0;
  record->tag = tag;
  record->outer = ber->sos;
  ber->sos = record;
  ++ber->depth;
  return GSLE_OK;
}

int32_t gsleenPBerPutSeqorset(gsluctx *ctx, gsleBerElement *ber) {
  if (ber == nullptr || ber->sos == nullptr) return kFailed;
  gsleSeqorset *record = ber->sos;
  const uint32_t length = record->length;
  const uint32_t tag_size = gsleenABerCalcTaglen(record->tag);
  const uint32_t length_size = (ber->options & GSLE_OPT_SHORT_LENGTHS) != 0
                                   ? gsleenCBerCalcLenlen(length)
                                   : static_cast<uint32_t>(GSLE_LONG_LENGTH_SIZE);
  // Detect and prevent overflow of the int result.
  const uint64_t total = uint64_t{tag_size} + length_size + length;
  if (total > kMaxResult) return kFailed;
  unsigned char *content = record->start + tag_size + GSLE_LONG_LENGTH_SIZE;
  uint8_t tag_bytes[4];
  uint8_t length_bytes[GSLE_LONG_LENGTH_SIZE];
  encodeTag(record->tag, tag_size, tag_bytes);
  encodeLength(length, length_size, length_bytes);
  if (record->outer == nullptr) {
    // Top level: the header goes to ptr (which is the record's start) and
    // the content follows it.
    if (gsleioDBerWrite(ctx, ber, tag_bytes, tag_size, 1) == kFailed ||
        gsleioDBerWrite(ctx, ber, length_bytes, length_size, 1) == kFailed) {
      return kFailed;
    }
    if (ber->ptr != content) std::memmove(ber->ptr, content, length);
    ber->ptr += length;
  } else {
    unsigned char *at = record->start;
    std::memcpy(at, tag_bytes, tag_size);
    std::memcpy(at + tag_size, length_bytes, length_size);
    if (length_size != GSLE_LONG_LENGTH_SIZE)
      std::memmove(at + tag_size + length_size, content, length);
    record->outer->length += static_cast<uint32_t>(total);
    record->outer->pos += total;
  }
  ber->sos = record->outer;
  if (ber->depth > GSLE_INLINE_RECORDS) (void)gslumfFree(ctx, record);
  --ber->depth;
  return static_cast<int32_t>(total);
}

}  // extern "C"

// ---- Format front end ---------------------------------------------------------------

namespace {

// The arguments one format letter consumes.
struct PrintArgs {
  int32_t number = 0;                // b e i
  const char *bytes = nullptr;       // o s B
  uint32_t length = 0;               // o (bytes), B (bits)
  uint32_t tag = 0;                  // t
  char **strings = nullptr;          // v
  struct berval **values = nullptr;  // V
};

// Reads the arguments of letter from ap; false for a letter that is not in
// the format table (nothing is read then).
[[nodiscard]] bool readPrintArgs(char letter, va_list &ap, PrintArgs &args) {
  switch (letter) {
    case 'b':
    case 'e':
    case 'i': args.number = va_arg(ap, int); return true;
    case 'o':
    case 'B':
      args.bytes = va_arg(ap, const char *);
      args.length = va_arg(ap, ber_len_t);
      return true;
    case 's': args.bytes = va_arg(ap, const char *); return true;
    case 't': args.tag = va_arg(ap, ber_tag_t); return true;
    case 'v': args.strings = va_arg(ap, char **); return true;
    case 'V': args.values = va_arg(ap, struct berval **); return true;
    case 'n':
    case '{':
    case '[':
    case '}':
    case ']': return true;
    default: return false;
  }
}

// One OCTET STRING per entry of a null-terminated array: the last result,
// nothing for an empty or null array, -1 at the first failure.
template <class T, class Put>
[[nodiscard]] std::optional<int32_t> putEach(T *const *array, Put put) {
  std::optional<int32_t> result;
  for (T *const *p = array; p != nullptr && *p != nullptr; ++p) {
    result = put(*p);
    if (*result == kFailed) break;
  }
  return result;
}

// Writes what letter stands for with the pending tag: its result, or
// nothing when the letter wrote no element.
[[nodiscard]] std::optional<int32_t> putLetter(gsluctx *ctx, gsleBerElement *ber, char letter,
                                               const PrintArgs &a) {
  const uint32_t tag = ber->tag;
  switch (letter) {
    case 'b': return gsleenLBerPutBoolean(ctx, ber, a.number, tag);
    case 'e': return gsleenFBerPutEnum(ctx, ber, a.number, tag);
    case 'i': return gsleenGBerPutInt(ctx, ber, a.number, tag);
    case 'n': return gsleenKBerPutNull(ctx, ber, tag);
    case 'o': return gsleenHBerPutOstring(ctx, ber, a.bytes, a.length, tag);
    case 's': return gsleenIBerPutString(ctx, ber, a.bytes, tag);
    case 'B': return gsleenJBerPutBitstring(ctx, ber, a.bytes, a.length, tag);
    case 't':
      ber->tag = a.tag;
      ber->hold_tag = 1;
      return std::nullopt;
    case 'v':
      return putEach(a.strings,
                     [&](const char *s) { return gsleenIBerPutString(ctx, ber, s, tag); });
    case 'V':
      return putEach(a.values, [&](const struct berval *v) {
        return gsleenHBerPutOstring(ctx, ber, v->bv_val, v->bv_len, tag);
      });
    case '{': return gsleenNBerStartSeq(ctx, ber, tag);
    case '[': return gsleenOBerStartSet(ctx, ber, tag);
    default: return gsleenPBerPutSeqorset(ctx, ber);  // '}' and ']'
  }
}

// The pending tag lives for one element: after each letter it returns to
// the default, unless the letter was "t" itself.
void endLetter(gsleBerElement *ber) {
  if (ber->hold_tag != 0) {
    ber->hold_tag = 0;
  } else {
    ber->tag = kDefaultTag;
  }
}

void dropPendingTag(gsleBerElement *ber) {
  ber->hold_tag = 0;
  ber->tag = kDefaultTag;
}

constexpr char kUnknownLetterTrace[] = "unknown fmt %c\n";

}  // namespace

extern "C" {

int32_t gsleenSBerPrintf(gsluctx *ctx, gsleBerElement *ber, const char *format, ...) {
  va_list ap;
  va_start(ap, format);
  const int32_t result = gsleenSBerPrintfV(ctx, ber, format, ap);
  va_end(ap);
  return result;
}

int32_t gsleenSBerPrintfV(gsluctx *ctx, gsleBerElement *ber, const char *format, va_list ap) {
  if (ber == nullptr || format == nullptr) return kFailed;
  va_list args;
  va_copy(args, ap);
  int32_t result = 0;
  for (const char *f = format; *f != '\0'; ++f) {
    PrintArgs letter_args;
    if (!readPrintArgs(*f, args, letter_args)) {
      (void)gslu::trace(ctx, GSLE_TRACE_BER, kUnknownLetterTrace, *f);
      result = kFailed;
      break;
    }
    if (const std::optional<int32_t> put = putLetter(ctx, ber, *f, letter_args)) result = *put;
    if (result == kFailed) break;
    endLetter(ber);
  }
  va_end(args);
  if (result == kFailed) dropPendingTag(ber);
  return result;
}

}  // extern "C"
