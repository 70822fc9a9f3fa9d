// util/strings.cc - the string functions and, below them, the language
// service's string operations for the internal language (UTF-8). Contracts
// in util/strings.h.
//
// ASCII is handled byte by byte from constant tables; ICU is asked only about
// characters outside ASCII (case folding, lower case, classes, digit values),
// and is loaded only when first asked (util/unicode.h).
// The language service needs no per-thread scratch state for UTF-8, so the
// calling thread's slot is never consulted.
#include "util/strings.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>
#include <unicode/uversion.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>

#include "core/context_access.h"
#include "core/lang.h"
#include "core/memory.h"
#include "core/owned.h"
#include "util/unicode.h"

namespace {

static_assert(GSLUS_MASK_DIGIT == GSLUS_CLASS_DIGIT);
static_assert(GSLUS_MASK_ALNUM == (GSLUS_CLASS_LETTER | GSLUS_CLASS_DIGIT));
static_assert(GSLUS_MASK_GRAPH == (GSLUS_MASK_ALNUM | GSLUS_CLASS_PUNCT));
static_assert(GSLUS_MASK_PRINT == (GSLUS_MASK_GRAPH | GSLUS_CLASS_BLANK));

// ---- The language service for UTF-8 ---------------------------------------
namespace service {

// The class word of an ASCII character, as the C locale defines the classes.
constexpr uint16_t asciiClassOf(unsigned b) {
  const bool upper = b >= 'A' && b <= 'Z';
  const bool lower = b >= 'a' && b <= 'z';
  const bool digit = b >= '0' && b <= '9';
  uint16_t bits = 0;
  if (upper) bits |= GSLUS_CLASS_UPPER | GSLUS_CLASS_LETTER;
  if (lower) bits |= GSLUS_CLASS_LOWER | GSLUS_CLASS_LETTER;
  if (digit) bits |= GSLUS_CLASS_DIGIT | GSLUS_CLASS_XDIGIT;
  if ((b >= 'A' && b <= 'F') || (b >= 'a' && b <= 'f')) bits |= GSLUS_CLASS_XDIGIT;
  if (b == ' ' || (b >= '\t' && b <= '\r')) bits |= GSLUS_CLASS_SPACE;
  if (b == ' ') bits |= GSLUS_CLASS_BLANK;
  if (b > ' ' && b < 0x7f && !upper && !lower && !digit) bits |= GSLUS_CLASS_PUNCT;
  return bits;
}

// One class word per byte value. Bytes above ASCII have no class: this is
// also the table of a single-byte internal character set, whose thread slot
// carries no table of its own.
constexpr std::array<uint16_t, 256> kByteClass = [] {
  std::array<uint16_t, 256> table{};
  for (unsigned b = 0; b < 0x80; ++b) table[b] = asciiClassOf(b);
  return table;
}();

constexpr unsigned char kAsciiLimit = 0x80;
// ICU's UChar32 is signed 32-bit; every key below is a non-negative one.
constexpr int32_t kStrayKeyBase = 0x110000;  // above every code point
constexpr std::size_t kMaxCharBytes = U8_MAX_LENGTH;

[[nodiscard]] constexpr bool isAscii(unsigned char b) { return b < kAsciiLimit; }

[[nodiscard]] constexpr unsigned char asciiLower(unsigned char b) {
  return (b >= 'A' && b <= 'Z') ? static_cast<unsigned char>(b + ('a' - 'A')) : b;
}

[[nodiscard]] unsigned char byteAt(const char *p) { return static_cast<unsigned char>(*p); }

// One character: its code point, or a negative one for a stray byte (a byte
// that does not start a well-formed sequence; it is one byte long).
struct Char {
  UChar32 cp;
  std::size_t size;
};

// The character at p, of which at most avail bytes may be read (avail >= 1).
// For a NUL-terminated string avail may simply be kMaxCharBytes: decoding
// stops at the first byte that is not a trail byte, and the NUL is not one.
[[nodiscard]] Char decodeAt(const char *p, std::size_t avail) {
  const unsigned char b = byteAt(p);
  if (isAscii(b)) return {b, 1};
  const auto *bytes = reinterpret_cast<const uint8_t *>(p);
  int32_t i = 0;
  const auto length = static_cast<int32_t>(std::min(avail, kMaxCharBytes));
  UChar32 c;
  U8_NEXT(bytes, i, length, c);
  if (c < 0) return {-1, 1};
  return {c, static_cast<std::size_t>(i)};
}

[[nodiscard]] std::size_t charSizeAt(const char *p) { return decodeAt(p, kMaxCharBytes).size; }

// Size of the character that ends at end, not looking before start. Every
// byte that is not a trail byte starts a character when walking forward, so
// the nearest such byte behind end decides: a well-formed sequence from it
// to end is one character, anything else leaves the last byte on its own.
[[nodiscard]] std::size_t charSizeBefore(const char *start, const char *end) {
  const std::size_t reach = std::min(static_cast<std::size_t>(end - start), kMaxCharBytes);
  if (!U8_IS_TRAIL(byteAt(end - 1))) return 1;
  for (std::size_t k = 2; k <= reach; ++k) {
    if (U8_IS_TRAIL(byteAt(end - k))) continue;
    const Char c = decodeAt(end - k, k);
    return (c.cp >= 0 && c.size == k) ? k : 1;
  }
  return 1;
}

// Punctuation in the C locale's sense: for characters beyond ASCII, ICU's
// punctuation and symbol categories ($, +, <, ^, | are symbols to Unicode).
[[nodiscard]] bool isPunctuationOrSymbol(const gslu::UnicodeLibrary &u, UChar32 c) {
  return u.ispunct(c) || (U_MASK(u.charType(c)) & U_GC_S_MASK) != 0;
}

// The bits of mask that the (non-ASCII) code point c has; ICU is asked only
// about the classes in the mask. Without ICU it has none.
[[nodiscard]] uint32_t classBits(UChar32 c, uint32_t mask) {
  const gslu::UnicodeLibrary *u = gslu::unicodeLibrary();
  if (u == nullptr) return 0;
  uint32_t bits = 0;
  if ((mask & GSLUS_CLASS_UPPER) && u->isupper(c)) bits |= GSLUS_CLASS_UPPER;
  if ((mask & GSLUS_CLASS_LOWER) && u->islower(c)) bits |= GSLUS_CLASS_LOWER;
  if ((mask & GSLUS_CLASS_DIGIT) && u->isdigit(c)) bits |= GSLUS_CLASS_DIGIT;
  if ((mask & GSLUS_CLASS_SPACE) && u->isspace(c)) bits |= GSLUS_CLASS_SPACE;
  if ((mask & GSLUS_CLASS_PUNCT) && isPunctuationOrSymbol(*u, c)) bits |= GSLUS_CLASS_PUNCT;
  if ((mask & GSLUS_CLASS_XDIGIT) && u->isxdigit(c)) bits |= GSLUS_CLASS_XDIGIT;
  if ((mask & GSLUS_CLASS_BLANK) && u->isblank(c)) bits |= GSLUS_CLASS_BLANK;
  if ((mask & GSLUS_CLASS_LETTER) && u->isalpha(c)) bits |= GSLUS_CLASS_LETTER;
  return bits;
}

// The bits of mask that the character at p has, and its size.
[[nodiscard]] uint32_t classAt(const char *p, uint32_t mask, std::size_t *size) {
  const unsigned char b = byteAt(p);
  if (isAscii(b)) {
    *size = 1;
    return kByteClass[b] & mask;
  }
  const Char c = decodeAt(p, kMaxCharBytes);
  *size = c.size;
  return c.cp < 0 ? 0 : classBits(c.cp, mask);
}

// Size of the white-space character at p, or 0 when it is something else.
[[nodiscard]] std::size_t spaceAt(const char *p) {
  std::size_t size;
  return classAt(p, GSLUS_CLASS_SPACE, &size) != 0 ? size : 0;
}

[[nodiscard]] int orderOf(int32_t a, int32_t b) { return a < b ? -1 : (a > b ? 1 : 0); }
[[nodiscard]] int signOf(int r) { return r < 0 ? -1 : (r > 0 ? 1 : 0); }

// The key the character at p is compared by when case is ignored, and its
// size; at most avail bytes are read.
[[nodiscard]] int32_t foldedKeyAt(const char *p, std::size_t avail, std::size_t *size) {
  const unsigned char b = byteAt(p);
  if (isAscii(b)) {
    *size = 1;
    return asciiLower(b);
  }
  const Char c = decodeAt(p, avail);
  *size = c.size;
  if (c.cp < 0) return kStrayKeyBase + b;  // stray bytes compare as themselves
  const gslu::UnicodeLibrary *u = gslu::unicodeLibrary();
  return u != nullptr ? u->foldCase(c.cp, U_FOLD_CASE_DEFAULT) : c.cp;
}

// Case-insensitive comparison of a and b, each up to its NUL or n bytes.
// The two sides advance separately: a character and its folded partner may
// differ in length (the Kelvin sign is three bytes, "k" one).
[[nodiscard]] int compareFolded(const char *a, const char *b, std::size_t n) {
  // Fast path over the common ASCII prefix: equal bytes need no folding and
  // nothing needs decoding. Element and attribute names end here.
  std::size_t ia = 0;
  for (; ia < n; ++ia) {
    const unsigned char ca = byteAt(a + ia);
    const unsigned char cb = byteAt(b + ia);
    if (!isAscii(ca) || !isAscii(cb)) break;
    if (ca != cb) {
      const int order = orderOf(asciiLower(ca), asciiLower(cb));
      if (order != 0) return order;
    } else if (ca == '\0') {
      return 0;
    }
  }
  std::size_t ib = ia;
  for (;;) {
    const bool end_a = ia >= n || a[ia] == '\0';
    const bool end_b = ib >= n || b[ib] == '\0';
    if (end_a || end_b) return end_a == end_b ? 0 : (end_a ? -1 : 1);
    const unsigned char ca = byteAt(a + ia);
    const unsigned char cb = byteAt(b + ib);
    if (isAscii(ca) && isAscii(cb)) {
      const int order = orderOf(asciiLower(ca), asciiLower(cb));
      if (order != 0) return order;
      ++ia;
      ++ib;
      continue;
    }
    std::size_t size_a;
    std::size_t size_b;
    const int order =
        orderOf(foldedKeyAt(a + ia, n - ia, &size_a), foldedKeyAt(b + ib, n - ib, &size_b));
    if (order != 0) return order;
    ia += size_a;
    ib += size_b;
  }
}

// Writes the lower-case form of src (len bytes) to out, which has room for
// len + 1 bytes. A character whose lower-case form is longer than itself
// (U+023A becomes the three-byte U+2C65) stays as it is, so the output never
// outgrows the input. Returns the output length; out is NUL-terminated.
std::size_t writeLowerCase(const char *src, std::size_t len, char *out) {
  auto *dst = reinterpret_cast<uint8_t *>(out);
  std::size_t o = 0;
  for (std::size_t i = 0; i < len;) {
    const unsigned char b = byteAt(src + i);
    if (isAscii(b)) {
      dst[o++] = asciiLower(b);
      ++i;
      continue;
    }
    const Char c = decodeAt(src + i, len - i);
    if (c.cp >= 0) {
      const gslu::UnicodeLibrary *u = gslu::unicodeLibrary();
      const UChar32 lower = u != nullptr ? u->tolower(c.cp) : c.cp;
      if (static_cast<std::size_t>(U8_LENGTH(lower)) <= c.size) {
        U8_APPEND_UNSAFE(dst, o, lower);
        i += c.size;
        continue;
      }
    }
    std::memcpy(dst + o, src + i, c.size);
    o += c.size;
    i += c.size;
  }
  dst[o] = '\0';
  return o;
}

// The value of the decimal digit character at p (any script), or -1; its
// size goes to *size.
[[nodiscard]] int decimalDigitAt(const char *p, std::size_t avail, std::size_t *size) {
  const unsigned char b = byteAt(p);
  if (isAscii(b)) {
    *size = 1;
    return (b >= '0' && b <= '9') ? b - '0' : -1;
  }
  const Char c = decodeAt(p, avail);
  *size = c.size;
  const gslu::UnicodeLibrary *u = gslu::unicodeLibrary();
  return c.cp < 0 || u == nullptr ? -1 : u->charDigitValue(c.cp);
}

// The value of the hexadecimal digit character at p, or -1 (Latin and
// full-width letters, and decimal digits of any script).
[[nodiscard]] int hexDigitAt(const char *p, std::size_t avail, std::size_t *size) {
  const unsigned char b = byteAt(p);
  if (isAscii(b)) {
    *size = 1;
    if (b >= '0' && b <= '9') return b - '0';
    const unsigned char l = asciiLower(b);
    return (l >= 'a' && l <= 'f') ? l - 'a' + 10 : -1;
  }
  const Char c = decodeAt(p, avail);
  *size = c.size;
  const gslu::UnicodeLibrary *u = gslu::unicodeLibrary();
  return c.cp < 0 || u == nullptr ? -1 : u->digit(c.cp, 16);
}

// A set of characters, for the searches and the tokenizer: ASCII members in
// a bitmap, others matched by their bytes.
class CharSet {
 public:
  explicit CharSet(const char *members) : members_(members) {
    for (const char *p = members; *p != '\0'; ++p) {
      const unsigned char b = byteAt(p);
      if (isAscii(b)) {
        ascii_[b] = true;
      } else {
        beyond_ascii_ = true;
      }
    }
  }
  [[nodiscard]] bool asciiOnly() const { return !beyond_ascii_; }

  // Size of the character at p when it belongs to the set; 0 when it does
  // not, and at the NUL.
  [[nodiscard]] std::size_t memberAt(const char *p) const {
    const unsigned char b = byteAt(p);
    if (isAscii(b)) return (b != '\0' && ascii_[b]) ? 1 : 0;
    if (!beyond_ascii_) return 0;
    const std::size_t size = charSizeAt(p);
    for (const char *m = members_; *m != '\0';) {
      const std::size_t member_size = charSizeAt(m);
      if (member_size == size && std::memcmp(m, p, size) == 0) return size;
      m += member_size;
    }
    return 0;
  }

 private:
  const char *members_;
  std::array<bool, kAsciiLimit> ascii_{};
  bool beyond_ascii_ = false;
};

// A run of bytes within a string.
struct Span {
  const char *start;
  std::size_t size;
};

// The next token at or after p: delimiters skipped, then everything up to
// the next delimiter or the NUL. An empty span at the NUL when none is left.
[[nodiscard]] Span nextToken(const char *p, const CharSet &delimiters) {
  while (std::size_t size = delimiters.memberAt(p)) p += size;
  const char *start = p;
  while (*p != '\0' && delimiters.memberAt(p) == 0) p += charSizeAt(p);
  return {start, static_cast<std::size_t>(p - start)};
}

// The longest prefix of s (len bytes) that ends on a character boundary and
// has at most limit bytes.
[[nodiscard]] std::size_t prefixWithin(const char *s, std::size_t len, std::size_t limit) {
  if (len <= limit) return len;
  std::size_t fit = 0;
  while (fit < len) {
    const std::size_t size = decodeAt(s + fit, len - fit).size;
    if (fit + size > limit) break;
    fit += size;
  }
  return fit;
}

// An integer read from decimal digit characters.
struct Number {
  int32_t value;       // saturated at the ends of int32_t
  std::size_t digits;  // number of digit characters read
  bool overflow;
  const char *end;  // first character after the number
};

// Reads an optional sign and the digit characters after it.
[[nodiscard]] Number readDecimal(const char *p) {
  constexpr int64_t kMaxMagnitude = int64_t{std::numeric_limits<int32_t>::max()} + 1;
  const bool negative = *p == '-';
  if (*p == '-' || *p == '+') ++p;
  Number n{0, 0, false, p};
  int64_t magnitude = 0;
  std::size_t size;
  for (int d; (d = decimalDigitAt(p, kMaxCharBytes, &size)) >= 0; p += size) {
    ++n.digits;
    magnitude = std::min(magnitude * 10 + d, kMaxMagnitude + 1);
  }
  n.end = p;
  const int64_t limit = negative ? kMaxMagnitude : kMaxMagnitude - 1;
  n.overflow = magnitude > limit;
  magnitude = std::min(magnitude, limit);
  n.value = static_cast<int32_t>(negative ? -magnitude : magnitude);
  return n;
}

}  // namespace service

// ---- Glue between the public functions and the service ---------------------

// Whether the internal character set has one byte per character.
[[nodiscard]] bool internalSetIsSingleByte(gsluctx *ctx) {
  return gslu::internalSetIsSingleByte(ctx);
}

// The class test behind the twelve public ones.
[[nodiscard]] uint32_t classTest(gsluctx *ctx, const char *c, uint32_t mask) {
  if (c == nullptr) return 0;
  const unsigned char b = service::byteAt(c);
  // ASCII never needs the context: its classes are the same in every
  // character set the service supports.
  if (service::isAscii(b) || internalSetIsSingleByte(ctx)) return service::kByteClass[b] & mask;
  std::size_t size;
  return service::classAt(c, mask, &size);
}

[[nodiscard]] int comparisonNullRule(const char *a, const char *b) {
  return (a == nullptr && b == nullptr) ? GSLUS_CMP_EQUAL : GSLUS_CMP_ONE_NULL;
}

// Length of s when every size derived from it (length + 8 at most) still
// fits the allocator's 32-bit sizes; false otherwise.
[[nodiscard]] bool allocatableLength(const char *s, uint32_t *length) {
  const std::size_t len = std::strlen(s);
  // Detect and prevent integer overflow: block sizes are 32-bit.
  if (len > std::numeric_limits<uint32_t>::max() - 8) return false;
  *length = static_cast<uint32_t>(len);
  return true;
}

// The UTF-8 form of the code point ch in out (room for 5 bytes); false for
// a value that is no code point or a surrogate.
[[nodiscard]] bool encodeCodePoint(uint32_t ch, char *out) {
  if (ch > 0x10ffff || U_IS_SURROGATE(ch)) return false;
  auto *dst = reinterpret_cast<uint8_t *>(out);
  std::size_t o = 0;
  U8_APPEND_UNSAFE(dst, o, ch);
  dst[o] = '\0';
  return true;
}

// The C library's search convention: a const string in, a pointer into it
// out; the caller knows whether the string may be written.
[[nodiscard]] char *intoString(const char *p) { return const_cast<char *>(p); }

[[gnu::format(printf, 3, 0)]] [[nodiscard]] int formatInto(char *buffer, std::size_t size,
                                                           const char *format, va_list args) {
  const int n = std::vsnprintf(buffer, size, format, args);
  if (n < 0 || static_cast<std::size_t>(n) >= size) return GSLUS_FORMAT_FAILED;
  return GSLUS_OK;
}

// The tokens of gslusistokenize while they are being made: released with
// the array unless handed over.
class TokenArray {
 public:
  explicit TokenArray(gsluctx *ctx) : ctx_(ctx) {}
  TokenArray(const TokenArray &) = delete;
  TokenArray &operator=(const TokenArray &) = delete;
  ~TokenArray() {
    if (array_ == nullptr) return;
    for (uint32_t i = 0; i < filled_; ++i) (void)gslumfFree(ctx_, array_[i]);
    (void)gslumfFree(ctx_, array_);
  }
  // Room for count tokens and the null entry after them, all null.
  [[nodiscard]] bool reserve(uint32_t count) {
    // Detect and prevent integer overflow: count + 1 entries in 32 bits.
    if (count >= std::numeric_limits<uint32_t>::max() / sizeof(char *)) return false;
    array_ = static_cast<char **>(gslumcCalloc(ctx_, count + 1, sizeof(char *)));
    return array_ != nullptr;
  }
  [[nodiscard]] bool append(service::Span token) {
    auto *copy = static_cast<char *>(gslummMalloc(ctx_, static_cast<uint32_t>(token.size + 1)));
    if (copy == nullptr) return false;
    std::memcpy(copy, token.start, token.size);
    copy[token.size] = '\0';
    array_[filled_++] = copy;
    return true;
  }
  [[nodiscard]] char **release() {
    char **array = array_;
    array_ = nullptr;
    return array;
  }

 private:
  gsluctx *ctx_;
  char **array_ = nullptr;
  uint32_t filled_ = 0;
};

}  // namespace

extern "C" {

// ---- Used by the conversion ------------------------------------------------

size_t gslusslStrlen(gsluctx * /*ctx*/, const char *s) {
  // Whether or not the character set is measured by the service, a UTF-8
  // string's length is its byte count.
  return s == nullptr ? 0 : std::strlen(s);
}

int gslusspStrcpy(gsluctx * /*ctx*/, char *dst, const char *src) {
  if (dst == nullptr || src == nullptr) return GSLUS_NULL_ARG;
  std::memcpy(dst, src, std::strlen(src) + 1);
  return GSLUS_OK;
}

int gslussnStrncpy(gsluctx * /*ctx*/, char *dst, const char *src, size_t n) {
  if (dst == nullptr || src == nullptr) return GSLUS_NULL_ARG;
  // The NUL padding keeps the bytes after an early NUL defined: the DSML
  // reader records the full length of a value cut short this way.
  std::strncpy(dst, src, n);
  return GSLUS_OK;
}

char *gslussdStrdup(gsluctx *ctx, const char *s) {
  if (s == nullptr) return nullptr;
  uint32_t len;
  if (!allocatableLength(s, &len)) return nullptr;
  const uint32_t size = len + 1;
  void *block = gslummMalloc(ctx, size);
  if (block == nullptr) return nullptr;
  std::memcpy(block, s, size);
  return static_cast<char *>(block);
}

char *gslussiStrcasedup(gsluctx *ctx, const char *s) {
  if (s == nullptr) return nullptr;
  uint32_t len;
  if (!allocatableLength(s, &len)) return nullptr;
  // Room for the string and its NUL, in whole 8-byte units.
  const uint32_t size = (len + 8) & ~uint32_t{7};
  auto *copy = static_cast<char *>(gslummMalloc(ctx, size));
  if (copy == nullptr) return nullptr;
  (void)service::writeLowerCase(s, len, copy);
  return copy;
}

int gslusscStrcat(gsluctx * /*ctx*/, char *dst, const char *src) {
  if (dst == nullptr || src == nullptr) return GSLUS_NULL_ARG;
  std::memcpy(dst + std::strlen(dst), src, std::strlen(src) + 1);
  return GSLUS_OK;
}

int gsluscmStrcmp(gsluctx * /*ctx*/, const char *a, const char *b) {
  if (a == nullptr || b == nullptr) return comparisonNullRule(a, b);
  return service::signOf(std::strcmp(a, b));
}

int gslusicStrcasecmp(gsluctx * /*ctx*/, const char *a, const char *b) {
  if (a == nullptr || b == nullptr) return comparisonNullRule(a, b);
  return service::compareFolded(a, b, std::numeric_limits<std::size_t>::max());
}

// ---- Library functions -------------------------------------------------------

int gslusscStrncat(gsluctx * /*ctx*/, char *dst, const char *src, size_t n) {
  if (dst == nullptr || src == nullptr) return GSLUS_NULL_ARG;
  std::strncat(dst, src, n);
  return GSLUS_OK;
}

int gsluscmStrncmp(gsluctx * /*ctx*/, const char *a, const char *b, size_t n) {
  if (a == nullptr || b == nullptr) return comparisonNullRule(a, b);
  return service::signOf(std::strncmp(a, b, n));
}

int gslusicStrncasecmp(gsluctx * /*ctx*/, const char *a, const char *b, size_t n) {
  if (a == nullptr || b == nullptr) return comparisonNullRule(a, b);
  return service::compareFolded(a, b, n);
}

int gsluspSprintf(gsluctx * /*ctx*/, char *buffer, size_t size, const char *format, ...) {
  if (buffer == nullptr || format == nullptr) return GSLUS_NULL_ARG;
  va_list args;
  va_start(args, format);
  const int status = formatInto(buffer, size, format, args);
  va_end(args);
  return status;
}

// A well-formed UTF-8 sequence begins with a lead byte, which is never inside
// another character, so a byte search for a character's encoding finds it
// only where a character starts.
char *gslusstStrChr(gsluctx * /*ctx*/, const char *s, uint32_t ch) {
  if (s == nullptr) return nullptr;
  if (ch < service::kAsciiLimit) return intoString(std::strchr(s, static_cast<int>(ch)));
  char encoded[service::kMaxCharBytes + 1];
  if (!encodeCodePoint(ch, encoded)) return nullptr;
  return intoString(std::strstr(s, encoded));
}

char *gslusstStrrChr(gsluctx * /*ctx*/, const char *s, uint32_t ch) {
  if (s == nullptr) return nullptr;
  if (ch < service::kAsciiLimit) return intoString(std::strrchr(s, static_cast<int>(ch)));
  char encoded[service::kMaxCharBytes + 1];
  if (!encodeCodePoint(ch, encoded)) return nullptr;
  const char *last = nullptr;
  for (const char *p = s; (p = std::strstr(p, encoded)) != nullptr; p += std::strlen(encoded)) {
    last = p;
  }
  return intoString(last);
}

char *gslusstStrStr(gsluctx * /*ctx*/, const char *s, const char *pattern) {
  if (s == nullptr || pattern == nullptr) return nullptr;
  return intoString(std::strstr(s, pattern));
}

char *gslusstStrpBrk(gsluctx * /*ctx*/, const char *s, const char *set) {
  if (s == nullptr || set == nullptr) return nullptr;
  const service::CharSet members(set);
  // ASCII bytes are whole characters in UTF-8: a byte search will do.
  if (members.asciiOnly()) return intoString(std::strpbrk(s, set));
  for (const char *p = s; *p != '\0'; p += service::charSizeAt(p)) {
    if (members.memberAt(p) != 0) return intoString(p);
  }
  return nullptr;
}

int gslusTrim(gsluctx * /*ctx*/, char *s) {
  if (s == nullptr) return GSLUS_NULL_ARG;
  const char *start = s;
  while (std::size_t size = service::spaceAt(start)) start += size;
  const char *end = start;  // just after the last character that is kept
  for (const char *p = start; *p != '\0';) {
    const std::size_t space = service::spaceAt(p);
    p += space != 0 ? space : service::charSizeAt(p);
    if (space == 0) end = p;
  }
  const auto kept = static_cast<std::size_t>(end - start);
  std::memmove(s, start, kept);
  s[kept] = '\0';
  return GSLUS_OK;
}

char *gslusstStrTrim(gsluctx * /*ctx*/, char *s) {
  if (s == nullptr) return nullptr;
  while (std::size_t size = service::spaceAt(s)) s += size;
  // Only the space character ends the word; a tab or newline after it stays.
  if (char *blank = std::strchr(s, ' ')) *blank = '\0';
  return s;
}

uint32_t gslusibIsDigit(gsluctx *ctx, const char *c) { return classTest(ctx, c, GSLUS_MASK_DIGIT); }
uint32_t gslusAIsLetter(gsluctx *ctx, const char *c) {
  return classTest(ctx, c, GSLUS_MASK_LETTER);
}
uint32_t gslusibIsAlnum(gsluctx *ctx, const char *c) { return classTest(ctx, c, GSLUS_MASK_ALNUM); }
// Deliberate: "alpha" accepts digits too, exactly like gslusibIsAlnum; the
// directory client library's callers were written against that behaviour.
// gslusAIsLetter is the letters-only test.
uint32_t gslusibIsAlpha(gsluctx *ctx, const char *c) { return classTest(ctx, c, GSLUS_MASK_ALPHA); }
uint32_t gslusibIsGraph(gsluctx *ctx, const char *c) { return classTest(ctx, c, GSLUS_MASK_GRAPH); }
uint32_t gslusibIsPrint(gsluctx *ctx, const char *c) { return classTest(ctx, c, GSLUS_MASK_PRINT); }
uint32_t gslusibIsPunct(gsluctx *ctx, const char *c) { return classTest(ctx, c, GSLUS_MASK_PUNCT); }
uint32_t gslusibIsSpace(gsluctx *ctx, const char *c) { return classTest(ctx, c, GSLUS_MASK_SPACE); }
uint32_t gslusCIsUpper(gsluctx *ctx, const char *c) { return classTest(ctx, c, GSLUS_MASK_UPPER); }
uint32_t gslusDIsLower(gsluctx *ctx, const char *c) { return classTest(ctx, c, GSLUS_MASK_LOWER); }
uint32_t gslusBIsAlphaNum(gsluctx *ctx, const char *c) {
  return classTest(ctx, c, GSLUS_MASK_ALPHANUM);
}
uint32_t gslusibIsXdigit(gsluctx *ctx, const char *c) {
  return classTest(ctx, c, GSLUS_MASK_XDIGIT);
}

int gslussiIsStrNum(gsluctx * /*ctx*/, const char *s, int32_t *value) {
  if (value != nullptr) *value = 0;
  if (s == nullptr) return GSLUS_NOT_A_NUMBER;
  const service::Number n = service::readDecimal(s);
  if (n.digits == 0 || n.overflow || *n.end != '\0') return GSLUS_NOT_A_NUMBER;
  if (value != nullptr) *value = n.value;
  return GSLUS_OK;
}

int32_t gslusicIsatoi(gsluctx * /*ctx*/, const char *s) {
  if (s == nullptr) return 0;
  while (std::size_t size = service::spaceAt(s)) s += size;
  return service::readDecimal(s).value;
}

int gsluscnvhx2u4(gsluctx * /*ctx*/, const char *hex, size_t length, uint32_t *value) {
  if (value != nullptr) *value = 0;
  if (hex == nullptr || value == nullptr) return GSLUS_NULL_ARG;
  uint32_t result = 0;
  std::size_t i = 0;
  while (i < length && hex[i] != '\0') {
    std::size_t size;
    const int digit = service::hexDigitAt(hex + i, length - i, &size);
    // Detect and prevent integer overflow: no room for four more bits.
    if (digit < 0 || result > (std::numeric_limits<uint32_t>::max() >> 4)) {
      return GSLUS_NOT_A_NUMBER;
    }
    result = (result << 4) | static_cast<uint32_t>(digit);
    i += size;
  }
  if (i == 0) return GSLUS_NOT_A_NUMBER;
  *value = result;
  return GSLUS_OK;
}

int gslusicIsEqual(gsluctx * /*ctx*/, const char *c, uint32_t ch) {
  if (c == nullptr) return GSLUS_NO;
  const service::Char here = service::decodeAt(c, service::kMaxCharBytes);
  return (here.cp >= 0 && static_cast<uint32_t>(here.cp) == ch) ? GSLUS_YES : GSLUS_NO;
}

size_t gslusicIsIncPtr(gsluctx * /*ctx*/, const char *s, size_t n) {
  if (s == nullptr) return 0;
  std::size_t offset = 0;
  for (std::size_t i = 0; i < n && s[offset] != '\0'; ++i)
    offset += service::charSizeAt(s + offset);
  return offset;
}

size_t gslusicIsDecPtr(gsluctx * /*ctx*/, const char *start, const char *p, size_t n) {
  if (start == nullptr || p == nullptr) return 0;
  const char *q = p;
  for (std::size_t i = 0; i < n && q > start; ++i) q -= service::charSizeBefore(start, q);
  return static_cast<std::size_t>(p - q);
}

int gslusmIsMultibyte(gsluctx * /*ctx*/, const char *s) {
  if (s == nullptr) return GSLUS_NO;
  for (; *s != '\0'; ++s) {
    if (!service::isAscii(service::byteAt(s))) return GSLUS_YES;
  }
  return GSLUS_NO;
}

int gslusnIsSingleQuoted(gsluctx * /*ctx*/, const char *s, char *out) {
  if (out != nullptr) out[0] = '\0';
  if (s == nullptr) return GSLUS_NO;
  const std::size_t len = std::strlen(s);
  if (len < 2 || s[0] != '\'' || s[len - 1] != '\'') return GSLUS_NO;
  if (out != nullptr) {
    const std::size_t kept = service::prefixWithin(s + 1, len - 2, GSLUS_QUOTED_BUFFER_SIZE - 1);
    std::memcpy(out, s + 1, kept);
    out[kept] = '\0';
  }
  return GSLUS_YES;
}

int gslusistokenize(gsluctx *ctx, const char *s, const char *delimiters, char ***tokens,
                    uint32_t *count) {
  if (tokens != nullptr) *tokens = nullptr;
  if (count != nullptr) *count = 0;
  if (s == nullptr || delimiters == nullptr || tokens == nullptr || count == nullptr) {
    return GSLUS_NULL_ARG;
  }
  const service::CharSet set(delimiters);
  uint32_t total = 0;
  for (service::Span t = service::nextToken(s, set); t.size != 0;
       t = service::nextToken(t.start + t.size, set)) {
    // Detect and prevent integer overflow: the count is 32-bit.
    if (total == std::numeric_limits<uint32_t>::max() ||
        t.size >= std::numeric_limits<uint32_t>::max()) {
      return GSLUS_NO_MEMORY;
    }
    ++total;
  }
  if (total == 0) return GSLUS_OK;
  TokenArray array(ctx);
  if (!array.reserve(total)) return GSLUS_NO_MEMORY;
  for (service::Span t = service::nextToken(s, set); t.size != 0;
       t = service::nextToken(t.start + t.size, set)) {
    if (!array.append(t)) return GSLUS_NO_MEMORY;
  }
  *tokens = array.release();
  *count = total;
  return GSLUS_OK;
}

const char *gslusvUnicodeVersion(void) {
  // Filled once; the version cannot change while the process runs.
  static const struct Text {
    Text() {
      const gslu::UnicodeLibrary *u = gslu::unicodeLibrary();
      if (u == nullptr) {
        std::snprintf(text, sizeof text, "ICU not loaded (%s)", gslu::unicodeLibraryError());
        return;
      }
      UVersionInfo version;
      u->getVersion(version);
      char number[U_MAX_VERSION_STRING_LENGTH];
      u->versionToString(version, number);
      std::snprintf(text, sizeof text, "ICU %s", number);
    }
    char text[300];
  } kText;
  return kText.text;
}

}  // extern "C"
