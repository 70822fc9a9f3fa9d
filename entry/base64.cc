// entry/base64.cc - base64 encoder, decoder, cleaner and scanner.
//
// Everything works on caller-supplied buffers through one byte-class table,
// so the hot loops are a table lookup per character and nothing allocates.

#include "entry/base64.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "entry/base64_internal.h"

namespace {

using gslu::b64::groupBits;
using gslu::b64::kAlphabet;
using gslu::b64::kBitsPerDigit;
using gslu::b64::kBytesPerGroup;
using gslu::b64::kDigitMask;
using gslu::b64::kDigitsPerGroup;
using gslu::b64::kPad;
using gslu::b64::writeDigits;
using gslu::b64::writePartialGroup;

constexpr char kNewline = '\n';

// Class of every byte: its digit value (0-63), or one of these two marks.
constexpr uint8_t kPadClass = 0x40;
constexpr uint8_t kJunkClass = 0x80;

constexpr std::array<uint8_t, 256> makeByteClasses() {
  std::array<uint8_t, 256> classes{};
  for (auto &c : classes) c = kJunkClass;
  for (uint8_t value = 0; value < 64; ++value) {
    classes[static_cast<unsigned char>(kAlphabet[value])] = value;
  }
  classes[static_cast<unsigned char>(kPad)] = kPadClass;
  return classes;
}

constexpr std::array<uint8_t, 256> kByteClass = makeByteClasses();

static_assert(kByteClass['A'] == 0 && kByteClass['a'] == 26 && kByteClass['0'] == 52 &&
              kByteClass['+'] == 62 && kByteClass['/'] == 63 && kByteClass['='] == kPadClass &&
              kByteClass['\n'] == kJunkClass);

constexpr uint8_t byteClass(char c) { return kByteClass[static_cast<unsigned char>(c)]; }
constexpr bool isDigit(uint8_t cls) { return cls < kPadClass; }
constexpr bool isJunk(uint8_t cls) { return cls == kJunkClass; }

// ---------------------------------------------------------------- encoder

// Exact number of characters gsluztvb64ecr writes for length bytes, in 64
// bits, so callers can refuse output whose count would not fit in 32.
uint64_t encodedLength(uint32_t length, uint32_t line_groups) {
  const uint64_t groups = length / kBytesPerGroup;
  const uint64_t digits = (groups + (length % kBytesPerGroup != 0)) * kDigitsPerGroup;
  const uint64_t wrap_groups = line_groups == 0 ? 256 / kDigitsPerGroup : line_groups;
  const uint64_t newlines = line_groups < GSLUZTV_B64_LINE_NEVER ? groups / wrap_groups : 0;
  return digits + newlines;
}

}  // namespace

extern "C" uint32_t gsluztvb64ecr(const void *in, uint32_t length, char *out,
                                  uint32_t line_groups) {
  if (length == 0 || in == nullptr || out == nullptr) return 0;
  // Detect and prevent overflow of the 32-bit character count.
  if (encodedLength(length, line_groups) > UINT32_MAX) return 0;
  const auto *bytes = static_cast<const uint8_t *>(in);
  // Deliberate: the digits of a line are counted in 8 bits and compared
  // with the unwrapped line_groups * 4. So line_groups 0 matches only when
  // the count wraps (a newline every 256 digits) and 64 or more never
  // matches. Existing encoded data and its readers rely on these shapes.
  const uint64_t line_digits = uint64_t{line_groups} * kDigitsPerGroup;
  uint8_t line_count = 0;
  uint32_t written = 0;
  uint32_t pos = 0;
  for (; length - pos >= kBytesPerGroup; pos += kBytesPerGroup) {
    writeDigits(groupBits(bytes + pos), out + written);
    written += kDigitsPerGroup;
    line_count = static_cast<uint8_t>(line_count + kDigitsPerGroup);
    if (line_count == line_digits) {
      out[written++] = kNewline;
      line_count = 0;
    }
  }
  if (pos < length) {
    writePartialGroup(bytes + pos, length - pos, out + written);
    written += kDigitsPerGroup;
  }
  return written;
}

extern "C" uint32_t gsluztvb64e(const void *in, uint32_t length, char *out) {
  return gsluztvb64ecr(in, length, out, GSLUZTV_B64_LINE_PLAIN);
}

extern "C" uint32_t gsluztvb64en(const void *in, uint32_t length, char *out) {
  // Detect and prevent overflow of the count with the two closing newlines.
  if (encodedLength(length, GSLUZTV_B64_LINE_FOLDED) + 2 > UINT32_MAX) return 0;
  uint32_t written = gsluztvb64ecr(in, length, out, GSLUZTV_B64_LINE_FOLDED);
  // Deliberate: only text ending in a partial group gets the two closing
  // newlines; text of whole groups ends with at most the line's newline.
  // The digest writers that use this encoder expect exactly this layout.
  if (written > 0 && length % kBytesPerGroup != 0) {
    out[written++] = kNewline;
    out[written++] = kNewline;
  }
  return written;
}

extern "C" uint64_t gsluztvb64gol(uint32_t length, int mode) {
  // Computed in 64 bits: for lengths near 4 GiB the encoding size does not
  // fit in 32.
  const uint64_t n = length;
  // Deliberate: the encoding formula stays as it is although it bounds
  // only the plain encoder (see the header): existing callers size their
  // buffers with it and must keep getting the same sizes.
  switch (mode) {
    case GSLUZTV_B64_SIZE_ENCODE: return n / 3 + n + n / 64 + 4;
    case GSLUZTV_B64_SIZE_DECODE: return n * 3 / 4;
    default: return 0;
  }
}

// ---------------------------------------------------------------- decoder

namespace {

// Reads base64 text group by group, skipping junk characters. The read
// position never passes the end handed in, so no input can make it read
// outside the text.
class GroupReader {
 public:
  GroupReader(const char *text, uint32_t length) : text_(text), end_(length) {}

  bool atEnd() const { return pos_ == end_; }

  // The common case, four digits in a row with no junk or "=" among them:
  // their 24 bits, read at once. False (nothing read) otherwise.
  [[nodiscard]] bool nextPlain(uint32_t &bits) {
    if (end_ - pos_ < kDigitsPerGroup) return false;
    const uint8_t c0 = byteClass(text_[pos_]);
    const uint8_t c1 = byteClass(text_[pos_ + 1]);
    const uint8_t c2 = byteClass(text_[pos_ + 2]);
    const uint8_t c3 = byteClass(text_[pos_ + 3]);
    if ((c0 | c1 | c2 | c3) >= kPadClass) return false;
    bits = (uint32_t{c0} << 18) | (uint32_t{c1} << 12) | (uint32_t{c2} << 6) | c3;
    pos_ += kDigitsPerGroup;
    return true;
  }

  // Fills group with the next four digits or "=" characters; false when
  // the text ends first.
  [[nodiscard]] bool next(char (&group)[kDigitsPerGroup]) {
    for (char &slot : group) {
      while (pos_ < end_ && isJunk(byteClass(text_[pos_]))) ++pos_;
      if (pos_ == end_) return false;
      slot = text_[pos_++];
    }
    return true;
  }

 private:
  const char *text_;
  uint32_t end_;
  uint32_t pos_ = 0;
};

// Length of the text without its trailing junk characters.
uint32_t withoutTrailingJunk(const char *text, uint32_t length) {
  while (length > 0 && isJunk(byteClass(text[length - 1]))) --length;
  return length;
}

// The 24 bits of a group, most significant digit first. "=" has class
// kPadClass; masking turns it into the value 0.
uint32_t groupValue(const char (&group)[kDigitsPerGroup]) {
  uint32_t bits = 0;
  for (char c : group) bits = (bits << kBitsPerDigit) | (byteClass(c) & kDigitMask);
  return bits;
}

void writeBytes(uint32_t bits, uint32_t count, uint8_t *out) {
  for (uint32_t i = 0; i < count; ++i) out[i] = static_cast<uint8_t>(bits >> (16 - 8 * i));
}

// Decodes a group whose fourth character is "=": the number of bytes it
// yields (1 or 2), or 0 when one of its digits is invalid.
[[nodiscard]] uint32_t decodeFinalGroup(const char (&group)[kDigitsPerGroup], uint8_t *out) {
  const uint32_t count = group[2] == kPad ? 1 : 2;
  for (uint32_t i = 0; i <= count; ++i) {
    if (!isDigit(byteClass(group[i]))) return GSLUZTV_B64_MALFORMED;
  }
  writeBytes(groupValue(group), count, out);
  return count;
}

}  // namespace

extern "C" uint32_t gsluztvb64d(const char *text, uint32_t length, void *out) {
  if (text == nullptr || out == nullptr) return GSLUZTV_B64_MALFORMED;
  auto *bytes = static_cast<uint8_t *>(out);
  GroupReader reader(text, withoutTrailingJunk(text, length));
  uint32_t decoded = 0;
  char group[kDigitsPerGroup];
  while (!reader.atEnd()) {
    uint32_t bits = 0;
    if (reader.nextPlain(bits)) {
      writeBytes(bits, kBytesPerGroup, bytes + decoded);
      decoded += kBytesPerGroup;
      continue;
    }
    // Unpadded or truncated text ends inside a group: refuse it rather
    // than guess the missing digits.
    if (!reader.next(group)) return GSLUZTV_B64_MALFORMED;
    if (group[3] == kPad) {
      // Deliberate: a padded group ends the data and anything after it
      // is left unread, as the writers of such text expect.
      const uint32_t last = decodeFinalGroup(group, bytes + decoded);
      if (last == GSLUZTV_B64_MALFORMED) return GSLUZTV_B64_MALFORMED;
      return decoded + last;
    }
    // Deliberate: "=" inside a group that is not padded reads as the
    // digit 0 instead of failing; existing data decodes this way.
    writeBytes(groupValue(group), kBytesPerGroup, bytes + decoded);
    decoded += kBytesPerGroup;
  }
  return decoded;
}

// ------------------------------------------------ cleaning decoder

namespace {

// Digit values already shifted to their place in a group's 24 bits, one
// table per place. Every other byte has bits above the 24 set, so the OR of
// a group's four lookups is its bits when all four are digits and larger
// than any group's bits otherwise.
constexpr uint32_t kGroupBitsMax = 0x00ffffff;
constexpr uint32_t kNotPlaced = 0xff000000;

constexpr std::array<uint32_t, 256> makePlacedDigits(int place) {
  std::array<uint32_t, 256> placed{};
  for (int c = 0; c < 256; ++c) {
    const uint8_t cls = kByteClass[c];
    const int shift = kBitsPerDigit * (kDigitsPerGroup - 1 - place);
    placed[c] = isDigit(cls) ? uint32_t{cls} << shift : kNotPlaced;
  }
  return placed;
}

constexpr std::array<std::array<uint32_t, 256>, kDigitsPerGroup> kPlacedDigits = {
    makePlacedDigits(0), makePlacedDigits(1), makePlacedDigits(2), makePlacedDigits(3)};

static_assert(kPlacedDigits[0]['B'] == 1u << 18 && kPlacedDigits[3]['/'] == 63 &&
              kPlacedDigits[1]['='] > kGroupBitsMax && kPlacedDigits[2]['\0'] > kGroupBitsMax);

// Reads text as the cleaner would leave it: its digits and "=" up to the
// first NUL or the end, group by group. Writes go to out, which may be the
// text itself: a group is read whole before its bytes are written, and
// three bytes out never pass the four characters in.
class CleaningDecoder {
 public:
  CleaningDecoder(const char *text, uint32_t length, uint8_t *out)
      : pos_(reinterpret_cast<const unsigned char *>(text)),
        end_(pos_ + length),
        out_(out),
        first_(out) {}

  uint32_t run() {
    for (;;) {
      const unsigned char *before = pos_;
      decodePlainGroups();
      skipJunk();
      if (pos_ != before) continue;  // the plain groups may go on
      char group[kDigitsPerGroup];
      const uint32_t got = nextGroup(group);
      if (got == 0) return decoded();  // 0, malformed, when nothing was
      // Unpadded or truncated text ends inside a group.
      if (got < kDigitsPerGroup) return GSLUZTV_B64_MALFORMED;
      if (group[3] == kPad) return finalGroup(group);
      // "=" inside a group that is not padded reads as the digit 0, as
      // in gsluztvb64d.
      uint32_t bits = 0;
      for (char c : group) bits = (bits << kBitsPerDigit) | (byteClass(c) & kDigitMask);
      put(bits);
    }
  }

 private:
  [[nodiscard]] uint32_t decoded() const { return static_cast<uint32_t>(out_ - first_); }

  void put(uint32_t bits) {
    out_[0] = static_cast<uint8_t>(bits >> 16);
    out_[1] = static_cast<uint8_t>(bits >> 8);
    out_[2] = static_cast<uint8_t>(bits);
    out_ += kBytesPerGroup;
  }

  // The 24 bits of the four digits at p, or more than kGroupBitsMax when
  // they are not four digits.
  [[nodiscard]] static uint32_t plainGroupBits(const unsigned char *p) {
    return kPlacedDigits[0][p[0]] | kPlacedDigits[1][p[1]] | kPlacedDigits[2][p[2]] |
           kPlacedDigits[3][p[3]];
  }

  // The common case: groups of four digits in a row, one lookup each.
  // While another group's worth of text follows, a group's three bytes
  // are stored as one four-byte word: its fourth byte, overwritten by the
  // next group, stays within out (three bytes for every four characters)
  // and, decoding in place, falls on a character already read. Works on
  // locals: a store through the byte pointer could otherwise alias the
  // members and force them to be read again after every group.
  void decodePlainGroups() {
    const unsigned char *p = pos_;
    const unsigned char *const end = end_;
    uint8_t *o = out_;
    // Every group but the last whole one, counted once.
    for (ptrdiff_t n = (end - p) / kDigitsPerGroup - 1; n > 0;
         --n, p += kDigitsPerGroup, o += kBytesPerGroup) {
      const uint32_t bits = plainGroupBits(p);
      if (bits > kGroupBitsMax) break;
      uint32_t word = bits << 8;  // the three bytes first, big-endian
      if constexpr (std::endian::native == std::endian::little) word = __builtin_bswap32(word);
      std::memcpy(o, &word, sizeof word);
    }
    for (; end - p >= kDigitsPerGroup; p += kDigitsPerGroup, o += kBytesPerGroup) {
      const uint32_t bits = plainGroupBits(p);
      if (bits > kGroupBitsMax) break;
      o[0] = static_cast<uint8_t>(bits >> 16);
      o[1] = static_cast<uint8_t>(bits >> 8);
      o[2] = static_cast<uint8_t>(bits);
    }
    pos_ = p;
    out_ = o;
  }

  // The text ends at its first NUL, where the cleaner's copy ends.
  [[nodiscard]] bool atNul() {
    if (*pos_ != '\0') return false;
    end_ = pos_;
    return true;
  }

  // Characters between groups that are neither digits nor "=".
  void skipJunk() {
    while (pos_ != end_ && isJunk(byteClass(static_cast<char>(*pos_))) && !atNul()) ++pos_;
  }

  // The next up to four digits or "=", other characters skipped; how many.
  [[nodiscard]] uint32_t nextGroup(char (&group)[kDigitsPerGroup]) {
    uint32_t got = 0;
    while (got < kDigitsPerGroup && pos_ != end_ && !atNul()) {
      const char c = static_cast<char>(*pos_++);
      if (!isJunk(byteClass(c))) group[got++] = c;
    }
    return got;
  }

  // A group ending in "=" ends the data: "xx==" gives one byte, "xxx="
  // two, and an invalid digit among the others fails the whole text.
  [[nodiscard]] uint32_t finalGroup(const char (&group)[kDigitsPerGroup]) {
    const uint32_t count = group[2] == kPad ? 1 : 2;
    uint32_t bits = 0;
    for (uint32_t i = 0; i < kDigitsPerGroup; ++i) {
      const uint8_t cls = byteClass(group[i]);
      if (i <= count && !isDigit(cls)) return GSLUZTV_B64_MALFORMED;
      bits = (bits << kBitsPerDigit) | (cls & kDigitMask);
    }
    for (uint32_t i = 0; i < count; ++i) out_[i] = static_cast<uint8_t>(bits >> (16 - 8 * i));
    return decoded() + count;
  }

  const unsigned char *pos_;
  const unsigned char *end_;
  uint8_t *out_;
  uint8_t *const first_;
};

}  // namespace

extern "C" uint32_t gsluztvb64dcln(const char *text, uint32_t length, void *out) {
  if (text == nullptr || out == nullptr) return GSLUZTV_B64_MALFORMED;
  return CleaningDecoder(text, length, static_cast<uint8_t *>(out)).run();
}

// ---------------------------------------------------------- helpers

extern "C" int gsluztvb64_getval(char c, int *value) {
  if (value == nullptr) return GSLUZTV_B64_NOT_DIGIT;
  const uint8_t cls = byteClass(c);
  *value = isDigit(cls) ? cls : 0;
  return isDigit(cls) ? GSLUZTV_B64_DIGIT : GSLUZTV_B64_NOT_DIGIT;
}

extern "C" int gsluztvb64cln(char *text, uint32_t /*length*/, uint32_t *count) {
  uint32_t kept = 0;
  if (text != nullptr) {
    // The text deliberately ends at its first NUL, not at the length
    // handed in: the reader's copy of a value stops at a NUL byte while
    // its recorded length does not.
    for (const char *p = text; *p != '\0'; ++p) {
      if (!isJunk(byteClass(*p))) text[kept++] = *p;
    }
    text[kept] = '\0';
  }
  if (count != nullptr) *count = kept;
  return GSLUZTV_B64_CLEANED;
}

namespace {

// Whether the four characters at text form a valid group: digits, with "="
// allowed only as "xx==" or "xxx=". Sets padded for a padded group.
bool isValidGroup(const char *text, bool &padded) {
  const bool pad2 = text[2] == kPad;
  const bool pad3 = text[3] == kPad;
  padded = pad3;
  if (!isDigit(byteClass(text[0])) || !isDigit(byteClass(text[1]))) return false;
  if (pad2) return pad3;
  return isDigit(byteClass(text[2])) && (pad3 || isDigit(byteClass(text[3])));
}

}  // namespace

extern "C" uint32_t gsluztvb64scn(const char *text, uint32_t length) {
  if (text == nullptr) return 0;
  uint32_t pos = 0;
  uint32_t line = 0;
  bool ended = false;  // a padded group was seen: only newlines may follow
  while (pos < length) {
    if (text[pos] == kNewline) {
      ++pos;
      line = 0;
      continue;
    }
    bool padded = false;
    if (ended || length - pos < kDigitsPerGroup ||
        line + kDigitsPerGroup > GSLUZTV_B64_SCAN_LINE_MAX || !isValidGroup(text + pos, padded)) {
      break;
    }
    pos += kDigitsPerGroup;
    line += kDigitsPerGroup;
    ended = padded;
  }
  return pos;
}
