// core/utf8.h - the two UTF-8 facts the core's output path needs: how long
// the well-formed character at a position is, and where a text may be cut
// without splitting one. Internal (C++ only); the full character-aware
// string functions are in util/strings.h, a layer above the core.
#ifndef QUILLOMAT_CORE_UTF8_H
#define QUILLOMAT_CORE_UTF8_H

#include <cstddef>

namespace gslu::utf8 {

[[nodiscard]] constexpr bool isTrail(unsigned char b) { return (b & 0xC0) == 0x80; }

// Length of the well-formed UTF-8 character at p, of which avail bytes may
// be read (avail >= 1); 0 when none starts there (a stray byte, an overlong
// form, a surrogate, a value beyond U+10FFFF or a truncated sequence).
[[nodiscard]] constexpr std::size_t sequenceLength(const char *p, std::size_t avail) {
  const auto b0 = static_cast<unsigned char>(p[0]);
  if (b0 < 0x80) return 1;
  std::size_t n = 0;
  unsigned char low = 0x80;  // range of the second byte
  unsigned char high = 0xBF;
  if (b0 >= 0xC2 && b0 <= 0xDF) {
    n = 2;
  } else if (b0 >= 0xE0 && b0 <= 0xEF) {
    n = 3;
    if (b0 == 0xE0) low = 0xA0;   // no overlong forms
    if (b0 == 0xED) high = 0x9F;  // no surrogates
  } else if (b0 >= 0xF0 && b0 <= 0xF4) {
    n = 4;
    if (b0 == 0xF0) low = 0x90;
    if (b0 == 0xF4) high = 0x8F;  // nothing beyond U+10FFFF
  } else {
    return 0;
  }
  if (avail < n) return 0;
  const auto b1 = static_cast<unsigned char>(p[1]);
  if (b1 < low || b1 > high) return 0;
  for (std::size_t i = 2; i < n; ++i) {
    if (!isTrail(static_cast<unsigned char>(p[i]))) return 0;
  }
  return n;
}

// The longest prefix of s (len bytes) of at most limit bytes that does not
// end inside a well-formed character. Bytes that belong to no well-formed
// character may be cut anywhere.
[[nodiscard]] constexpr std::size_t cutPoint(const char *s, std::size_t len, std::size_t limit) {
  if (len <= limit) return len;
  // Only the character that starts within the last three bytes before the
  // limit can straddle it.
  for (std::size_t k = 1; k <= 3 && k <= limit; ++k) {
    const std::size_t start = limit - k;
    if (isTrail(static_cast<unsigned char>(s[start]))) continue;
    return sequenceLength(s + start, len - start) > k ? start : limit;
  }
  return limit;
}

}  // namespace gslu::utf8

#endif  // QUILLOMAT_CORE_UTF8_H
