// ber/decode.cc - reading tags, lengths, primitive elements and sequences,
// and the format front end. Contracts in ber/decode.h.
//
// Every byte is read through gsleioCBerRead, which stops at the element's
// end; a length is checked against what remains before anything is
// allocated for it or read.
#include "ber/decode.h"

#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <optional>
#include <utility>

#include "ber/ber_internal.h"
#include "core/memory.h"
#include "core/output.h"
#include "core/owned.h"

namespace {

using gsle::kErrorTag;
using gsle::kFailed;
using gsle::traceNoMemory;
using gslu::ContextFree;
using gslu::Owned;

constexpr uint8_t kTagNumberMask = 0x1f;  // all 1: high tag number form
constexpr uint8_t kMoreBit = 0x80;        // another tag byte follows
constexpr uint32_t kMaxTagBytes = 4;
constexpr uint8_t kLongFormBit = 0x80;  // length bytes follow
constexpr uint8_t kLengthCountMask = 0x7f;
constexpr uint32_t kMaxLengthBytes = 4;
constexpr uint32_t kMaxIntBytes = 4;
constexpr uint32_t kMaxUnusedBits = 7;
constexpr uint32_t kBitsPerByte = 8;
constexpr uint64_t kMaxBlock = UINT32_MAX;  // the allocator takes 32-bit sizes

// Appends byte to a big-endian number held in 32 bits; the bound is checked
// before the shift, so no byte is ever shifted out. False when the number
// already has four bytes.
[[nodiscard]] bool appendByte(uint32_t &value, uint32_t &count, uint8_t byte) {
  if (count == sizeof value) return false;
  value = (value << kBitsPerByte) | byte;
  ++count;
  return true;
}

[[nodiscard]] bool readByte(gsluctx *ctx, gsleBerElement *ber, uint8_t &byte) {
  return gsleioCBerRead(ctx, ber, &byte, 1) == 1;
}

// Reads exactly count bytes; false (having read what there was) otherwise.
[[nodiscard]] bool readExactly(gsluctx *ctx, gsleBerElement *ber, void *bytes, uint32_t count) {
  return count <= INT32_MAX &&
         gsleioCBerRead(ctx, ber, bytes, count) == static_cast<int32_t>(count);
}

// The length that follows a tag; false when it is malformed or longer than
// what remains.
[[nodiscard]] bool readLength(gsluctx *ctx, gsleBerElement *ber, uint32_t &length) {
  uint8_t first = 0;
  if (!readByte(ctx, ber, first)) return false;
  uint32_t value = first;
  if ((first & kLongFormBit) != 0) {
    // Deliberate: 0x80, the indefinite form, counts zero length bytes and so
    // reads as length 0 instead of failing. This codec never writes it and
    // LDAP peers never send it; readers of the library rely on an element
    // with it decoding as an empty one.
    const uint32_t count = first & kLengthCountMask;
    if (count > kMaxLengthBytes) return false;
    value = 0;
    uint32_t have = 0;
    for (uint32_t i = 0; i < count; ++i) {
      uint8_t byte = 0;
      if (!readByte(ctx, ber, byte) || !appendByte(value, have, byte)) return false;
    }
  }
  if (value > gsle::remaining(ber)) return false;
  length = value;
  return true;
}

// A block for count bytes and a NUL, with the memory trace on failure.
[[nodiscard]] Owned<char> allocateText(gsluctx *ctx, uint32_t count) {
  // Detect and prevent integer overflow: count and the NUL in 32 bits.
  if (uint64_t{count} + 1 > kMaxBlock) return Owned<char>(nullptr, ContextFree{ctx});
  Owned<char> text(static_cast<char *>(gslummMalloc(ctx, count + 1)), ContextFree{ctx});
  if (text == nullptr) traceNoMemory(ctx);
  return text;
}

// Reads the next OCTET STRING's content into a new NUL-terminated block.
[[nodiscard]] uint32_t readString(gsluctx *ctx, gsleBerElement *ber, Owned<char> &text,
                                  uint32_t &length) {
  const uint32_t tag = gsledeBBerSkipTag(ctx, ber, &length);
  if (tag == kErrorTag) return kErrorTag;
  text = allocateText(ctx, length);
  if (text == nullptr || !readExactly(ctx, ber, text.get(), length)) return kErrorTag;
  text.get()[length] = '\0';
  return tag;
}

void freeStrings(gsluctx *ctx, char **strings) {
  if (strings == nullptr) return;
  for (char **s = strings; *s != nullptr; ++s) (void)gslumfFree(ctx, *s);
  (void)gslumfFree(ctx, strings);
}

}  // namespace

extern "C" {

uint32_t gsledeABerGetTag(gsluctx *ctx, gsleBerElement *ber) {
  uint8_t byte = 0;
  if (ber == nullptr || !readByte(ctx, ber, byte)) return kErrorTag;
  if ((byte & kTagNumberMask) != kTagNumberMask) return byte;
  uint32_t tag = byte;
  uint32_t count = 1;
  do {
    // A fourth byte that asks for a fifth is refused before reading on.
    if (count == kMaxTagBytes || !readByte(ctx, ber, byte) || !appendByte(tag, count, byte)) {
      return kErrorTag;
    }
  } while ((byte & kMoreBit) != 0);
  return tag;
}

uint32_t gsledeBBerSkipTag(gsluctx *ctx, gsleBerElement *ber, uint32_t *length) {
  if (length == nullptr) return kErrorTag;
  *length = 0;
  const uint32_t tag = gsledeABerGetTag(ctx, ber);
  if (tag == kErrorTag) return kErrorTag;
  uint32_t value = 0;
  if (!readLength(ctx, ber, value)) return kErrorTag;
  *length = value;
  return tag;
}

uint32_t gsledeCBerPeekTag(gsluctx *ctx, gsleBerElement *ber, uint32_t *length) {
  if (ber == nullptr) {
    if (length != nullptr) *length = 0;
    return kErrorTag;
  }
  unsigned char *const saved = ber->ptr;
  const uint32_t tag = gsledeBBerSkipTag(ctx, ber, length);
  ber->ptr = saved;
  return tag;
}

int32_t gsledeDBerGetnint(gsluctx *ctx, gsleBerElement *ber, int32_t *value, uint32_t length) {
  if (value == nullptr) return kFailed;
  *value = 0;
  uint8_t bytes[kMaxIntBytes];
  if (length > kMaxIntBytes || !readExactly(ctx, ber, bytes, length)) return kFailed;
  uint32_t number = 0;
  uint32_t count = 0;
  for (uint32_t i = 0; i < length; ++i) (void)appendByte(number, count, bytes[i]);
  // Sign-extend from the top bit of the first byte.
  if (length > 0 && length < kMaxIntBytes && (bytes[0] & 0x80) != 0) {
    number |= ~uint32_t{0} << (kBitsPerByte * length);
  }
  *value = static_cast<int32_t>(number);
  return static_cast<int32_t>(length);
}

uint32_t gsledeEBerGetInt(gsluctx *ctx, gsleBerElement *ber, int32_t *value) {
  if (value == nullptr) return kErrorTag;
  *value = 0;
  uint32_t length = 0;
  const uint32_t tag = gsledeBBerSkipTag(ctx, ber, &length);
  if (tag == kErrorTag || gsledeDBerGetnint(ctx, ber, value, length) == kFailed) return kErrorTag;
  return tag;
}

uint32_t gsledeFBerGetStringb(gsluctx *ctx, gsleBerElement *ber, char *buffer, uint32_t *length) {
  if (buffer == nullptr || length == nullptr) return kErrorTag;
  uint32_t size = 0;
  const uint32_t tag = gsledeBBerSkipTag(ctx, ber, &size);
  // The string and its NUL must fit the caller's buffer.
  if (tag == kErrorTag || size >= *length || !readExactly(ctx, ber, buffer, size)) return kErrorTag;
  buffer[size] = '\0';
  *length = size;
  return tag;
}

uint32_t gsledeGBerGetStringa(gsluctx *ctx, gsleBerElement *ber, char **text) {
  if (text == nullptr) return kErrorTag;
  *text = nullptr;
  Owned<char> copy(nullptr, ContextFree{ctx});
  uint32_t length = 0;
  const uint32_t tag = readString(ctx, ber, copy, length);
  if (tag == kErrorTag) return kErrorTag;
  *text = copy.release();
  return tag;
}

uint32_t gsledeHBerGetStringal(gsluctx *ctx, gsleBerElement *ber, struct berval **value) {
  if (value == nullptr) return kErrorTag;
  *value = nullptr;
  Owned<char> bytes(nullptr, ContextFree{ctx});
  uint32_t length = 0;
  const uint32_t tag = readString(ctx, ber, bytes, length);
  if (tag == kErrorTag) return kErrorTag;
  auto *bv = gsle::allocateZeroed<struct berval>(ctx);
  if (bv == nullptr) return kErrorTag;
  bv->bv_len = length;
  bv->bv_val = bytes.release();
  *value = bv;
  return tag;
}

uint32_t gsledeIBerGetBitstringa(gsluctx *ctx, gsleBerElement *ber, char **bytes, uint32_t *bits) {
  if (bytes == nullptr || bits == nullptr) return kErrorTag;
  *bytes = nullptr;
  *bits = 0;
  uint32_t length = 0;
  const uint32_t tag = gsledeBBerSkipTag(ctx, ber, &length);
  uint8_t unused = 0;
  if (tag == kErrorTag || length == 0 || !readByte(ctx, ber, unused)) return kErrorTag;
  const uint32_t count = length - 1;
  if (unused > kMaxUnusedBits || (count == 0 && unused != 0)) return kErrorTag;
  // Detect and prevent integer overflow: the bit count in 32 bits.
  const uint64_t bit_count = uint64_t{count} * kBitsPerByte - unused;
  if (bit_count > UINT32_MAX) return kErrorTag;
  // One byte at least, so that an empty bit string is a block too.
  Owned<char> copy(static_cast<char *>(gslummMalloc(ctx, count == 0 ? 1 : count)),
                   ContextFree{ctx});
  if (copy == nullptr) {
    traceNoMemory(ctx);
    return kErrorTag;
  }
  if (count == 0) copy.get()[0] = '\0';
  if (!readExactly(ctx, ber, copy.get(), count)) return kErrorTag;
  *bytes = copy.release();
  *bits = static_cast<uint32_t>(bit_count);
  return tag;
}

uint32_t gsledeJBerGetNull(gsluctx *ctx, gsleBerElement *ber) {
  uint32_t length = 0;
  const uint32_t tag = gsledeBBerSkipTag(ctx, ber, &length);
  return length == 0 ? tag : kErrorTag;
}

uint32_t gsledeKBerGetBoolean(gsluctx *ctx, gsleBerElement *ber, int32_t *value) {
  return gsledeEBerGetInt(ctx, ber, value);
}

uint32_t gsledeLBerFirstElement(gsluctx *ctx, gsleBerElement *ber, uint32_t *length,
                                unsigned char **last) {
  if (length == nullptr || last == nullptr) return kErrorTag;
  *length = 0;
  *last = nullptr;
  uint32_t content = 0;
  if (gsledeBBerSkipTag(ctx, ber, &content) == kErrorTag) return kErrorTag;
  *last = ber->ptr + content;
  if (ber->ptr == *last) return LBER_DEFAULT;
  return gsledeCBerPeekTag(ctx, ber, length);
}

uint32_t gsledeMBerNextElement(gsluctx *ctx, gsleBerElement *ber, uint32_t *length,
                               const unsigned char *last) {
  if (length == nullptr) return kErrorTag;
  *length = 0;
  if (ber == nullptr || last == nullptr || ber->ptr >= last) return LBER_DEFAULT;
  return gsledeCBerPeekTag(ctx, ber, length);
}

void gsledeOBerBvfree(gsluctx *ctx, struct berval *value) {
  if (value == nullptr) return;
  (void)gslumfFree(ctx, value->bv_val);
  (void)gslumfFree(ctx, value);
}

void gsledePBerBvecfree(gsluctx *ctx, struct berval **values) {
  if (values == nullptr) return;
  for (struct berval **v = values; *v != nullptr; ++v) gsledeOBerBvfree(ctx, *v);
  (void)gslumfFree(ctx, values);
}

struct berval *gsledeQBerBvdup(gsluctx *ctx, const struct berval *value) {
  if (value == nullptr || (value->bv_val == nullptr && value->bv_len != 0)) return nullptr;
  Owned<char> bytes = allocateText(ctx, value->bv_len);
  if (bytes == nullptr) return nullptr;
  if (value->bv_len != 0) std::memcpy(bytes.get(), value->bv_val, value->bv_len);
  bytes.get()[value->bv_len] = '\0';
  auto *copy = gsle::allocateZeroed<struct berval>(ctx);
  if (copy == nullptr) return nullptr;
  copy->bv_len = value->bv_len;
  copy->bv_val = bytes.release();
  return copy;
}

}  // extern "C"

// ---- Format front end ---------------------------------------------------------------

namespace {

// The arguments one format letter consumes, by the types the letter takes.
struct ScanArgs {
  char **text = nullptr;              // a, B (bytes)
  struct berval **value = nullptr;    // O
  struct berval *in_place = nullptr;  // o
  char *buffer = nullptr;             // s
  uint32_t *length = nullptr;         // s (in/out), l, B (bits)
  int32_t *number = nullptr;          // b e i
  uint32_t *tag = nullptr;            // t T
  char ***strings = nullptr;          // v
  struct berval ***values = nullptr;  // V
};

// Reads the arguments of letter from ap; false for a letter that is not in
// the format table (nothing is read then).
[[nodiscard]] bool readScanArgs(char letter, va_list &ap, ScanArgs &a) {
  switch (letter) {
    case 'a': a.text = va_arg(ap, char **); return true;
    case 'O': a.value = va_arg(ap, struct berval **); return true;
    case 'o': a.in_place = va_arg(ap, struct berval *); return true;
    case 's':
      a.buffer = va_arg(ap, char *);
      a.length = va_arg(ap, ber_len_t *);
      return true;
    case 'b':
    case 'e':
    case 'i': a.number = va_arg(ap, ber_int_t *); return true;
    case 'B':
      a.text = va_arg(ap, char **);
      a.length = va_arg(ap, ber_len_t *);
      return true;
    case 'l': a.length = va_arg(ap, ber_len_t *); return true;
    case 't':
    case 'T': a.tag = va_arg(ap, ber_tag_t *); return true;
    case 'v': a.strings = va_arg(ap, char ***); return true;
    case 'V': a.values = va_arg(ap, struct berval ***); return true;
    case 'n':
    case 'x':
    case '{':
    case '[':
    case '}':
    case ']': return true;
    default: return false;
  }
}

// Number of elements in the sequence content before last; ptr is left
// where it was. Nullopt when an element cannot be read or overruns last.
[[nodiscard]] std::optional<uint32_t> countElements(gsluctx *ctx, gsleBerElement *ber,
                                                    const unsigned char *last) {
  unsigned char *const saved = ber->ptr;
  uint32_t count = 0;
  uint32_t length = 0;
  bool ok = true;
  while (ok && ber->ptr < last) {
    ok = gsledeBBerSkipTag(ctx, ber, &length) != kErrorTag && ber->ptr <= last &&
         length <= static_cast<uint64_t>(last - ber->ptr);
    if (ok) {
      ber->ptr += length;
      ++count;
    }
  }
  ber->ptr = saved;
  if (!ok || count == UINT32_MAX) return std::nullopt;
  return count;
}

// Reads a sequence whose elements become a new null-terminated array of T*,
// each made by get(ctx, ber, &slot); an empty sequence gives null. Every
// element must lie within the sequence. The array, cut at its first empty
// slot, is released with release on failure. The sequence's tag, or
// LBER_ERROR.
// A SEQUENCE or SET that "{" or "[" has just entered: its tag and what is
// left of its content.
struct Entered {
  uint32_t tag;
  uint32_t length;
};

template <class T, class Get, class Release>
[[nodiscard]] uint32_t readArray(gsluctx *ctx, gsleBerElement *ber, T ***out, Get get,
                                 Release release, const std::optional<Entered> &entered) {
  if (out == nullptr) return kErrorTag;
  *out = nullptr;
  uint32_t length = 0;
  // Right after "{" or "[" the array is the SEQUENCE they entered, whose
  // header is read already; otherwise it reads the header itself.
  const uint32_t tag = entered ? entered->tag : gsledeBBerSkipTag(ctx, ber, &length);
  if (tag == kErrorTag) return kErrorTag;
  if (entered) length = entered->length;
  const unsigned char *last = ber->ptr + length;
  const std::optional<uint32_t> count = countElements(ctx, ber, last);
  if (!count) return kErrorTag;
  if (*count == 0) return tag;
  T **array = gsle::allocateZeroed<T *>(ctx, *count + 1);
  if (array == nullptr) return kErrorTag;
  for (uint32_t i = 0; i < *count; ++i) {
    if (get(ctx, ber, &array[i]) == kErrorTag) {
      release(ctx, array);
      return kErrorTag;
    }
  }
  *out = array;
  return tag;
}

// Reads what letter stands for: the tag read, or nothing for a letter that
// reads nothing. entered is the SEQUENCE or SET that the letter before
// entered, if it was "{" or "["; an opening letter sets it anew.
[[nodiscard]] std::optional<uint32_t> scanLetter(gsluctx *ctx, gsleBerElement *ber, char letter,
                                                 const ScanArgs &a,
                                                 std::optional<Entered> &entered) {
  const std::optional<Entered> before = std::exchange(entered, std::nullopt);
  uint32_t length = 0;
  switch (letter) {
    case 'a': return gsledeGBerGetStringa(ctx, ber, a.text);
    case 'O': return gsledeHBerGetStringal(ctx, ber, a.value);
    case 'o': {
      if (a.in_place == nullptr) return kErrorTag;
      *a.in_place = berval{};
      if (gsledeCBerPeekTag(ctx, ber, &length) == kErrorTag) return kErrorTag;
      const uint32_t tag = gsledeGBerGetStringa(ctx, ber, &a.in_place->bv_val);
      if (tag != kErrorTag) a.in_place->bv_len = length;
      return tag;
    }
    case 's': return gsledeFBerGetStringb(ctx, ber, a.buffer, a.length);
    case 'b': return gsledeKBerGetBoolean(ctx, ber, a.number);
    case 'e':
    case 'i': return gsledeEBerGetInt(ctx, ber, a.number);
    case 'B': return gsledeIBerGetBitstringa(ctx, ber, a.text, a.length);
    case 'n': return gsledeJBerGetNull(ctx, ber);
    case 'l': {
      if (a.length == nullptr) return kErrorTag;
      return gsledeCBerPeekTag(ctx, ber, a.length);
    }
    case 't':
    case 'T': {
      if (a.tag == nullptr) return kErrorTag;
      const uint32_t tag = letter == 't' ? gsledeCBerPeekTag(ctx, ber, &length)
                                         : gsledeBBerSkipTag(ctx, ber, &length);
      *a.tag = tag;
      return tag;
    }
    case 'v': return readArray(ctx, ber, a.strings, gsledeGBerGetStringa, freeStrings, before);
    case 'V':
      return readArray(ctx, ber, a.values, gsledeHBerGetStringal, gsledePBerBvecfree, before);
    case 'x': {
      const uint32_t tag = gsledeBBerSkipTag(ctx, ber, &length);
      if (tag != kErrorTag) ber->ptr += length;  // within the element: checked by the skip
      return tag;
    }
    case '{':
    case '[': {
      const uint32_t tag = gsledeBBerSkipTag(ctx, ber, &length);
      if (tag != kErrorTag) entered = Entered{tag, length};
      return tag;
    }
    default: return std::nullopt;  // '}' and ']': the content was read in order
  }
}

// Gives back what a letter that succeeded had allocated for the caller.
void releaseLetter(gsluctx *ctx, char letter, const ScanArgs &a) {
  switch (letter) {
    case 'a':
      (void)gslumfFree(ctx, *a.text);
      *a.text = nullptr;
      break;
    case 'B':
      (void)gslumfFree(ctx, *a.text);
      *a.text = nullptr;
      *a.length = 0;
      break;
    case 'O':
      gsledeOBerBvfree(ctx, *a.value);
      *a.value = nullptr;
      break;
    case 'o':
      (void)gslumfFree(ctx, a.in_place->bv_val);
      *a.in_place = berval{};
      break;
    case 'v':
      freeStrings(ctx, *a.strings);
      *a.strings = nullptr;
      break;
    case 'V':
      gsledePBerBvecfree(ctx, *a.values);
      *a.values = nullptr;
      break;
    default: break;
  }
}

// Replays the arguments of the letters before failed and releases what they
// allocated.
void releaseBefore(gsluctx *ctx, const char *format, const char *failed, va_list &ap) {
  for (const char *f = format; f != failed; ++f) {
    ScanArgs a;
    if (readScanArgs(*f, ap, a)) releaseLetter(ctx, *f, a);
  }
}

constexpr char kUnknownLetterTrace[] = "unknown fmt %c\n";
constexpr char kScanFailedTrace[] = "gsledeNBerScanf fmt (%s) ber:\n";

}  // namespace

extern "C" {

uint32_t gsledeNBerScanf(gsluctx *ctx, gsleBerElement *ber, const char *format, ...) {
  va_list ap;
  va_start(ap, format);
  const uint32_t result = gsledeNBerScanfV(ctx, ber, format, ap);
  va_end(ap);
  return result;
}

uint32_t gsledeNBerScanfV(gsluctx *ctx, gsleBerElement *ber, const char *format, va_list ap) {
  if (ber == nullptr || format == nullptr) return kErrorTag;
  va_list args;
  va_copy(args, ap);
  uint32_t result = 0;
  const char *failed = nullptr;
  std::optional<Entered> entered;
  for (const char *f = format; *f != '\0' && failed == nullptr; ++f) {
    ScanArgs letter_args;
    if (!readScanArgs(*f, args, letter_args)) {
      (void)gslu::trace(ctx, GSLE_TRACE_BER, kUnknownLetterTrace, *f);
      failed = f;
    } else if (const std::optional<uint32_t> tag = scanLetter(ctx, ber, *f, letter_args, entered)) {
      if (*tag == kErrorTag) failed = f;
      result = *tag;
    }
  }
  va_end(args);
  if (failed == nullptr) return result;
  va_list replay;
  va_copy(replay, ap);
  releaseBefore(ctx, format, failed, replay);
  va_end(replay);
  (void)gslu::trace(ctx, GSLE_TRACE_BER, kScanFailedTrace, format);
  gsleioNBerDump(ctx, ber, GSLE_DUMP_REMAINING);
  return kErrorTag;
}

}  // extern "C"
