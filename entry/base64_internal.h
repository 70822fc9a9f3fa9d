// entry/base64_internal.h - the digit tables and group writers of the base64
// codec, shared with the LDIF line writer, whose folding encoder writes
// digits straight into its lines. Internal to the entry layer (C++ only).
#ifndef QUILLOMAT_ENTRY_BASE64_INTERNAL_H
#define QUILLOMAT_ENTRY_BASE64_INTERNAL_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

namespace gslu::b64 {

inline constexpr char kAlphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
inline constexpr char kPad = '=';

inline constexpr int kDigitsPerGroup = 4;
inline constexpr int kBytesPerGroup = 3;
inline constexpr int kBitsPerDigit = 6;
inline constexpr uint32_t kDigitMask = 0x3f;

static_assert(sizeof kAlphabet == 65, "64 digits and the terminator");

// Every pair of digits for a 12-bit value, so a group of four digits takes
// two lookups.
inline constexpr int kPairBits = 2 * kBitsPerDigit;
inline constexpr uint32_t kPairMask = (1u << kPairBits) - 1;

constexpr std::array<std::array<char, 2>, 1 << kPairBits> makeDigitPairs() {
  std::array<std::array<char, 2>, 1 << kPairBits> pairs{};
  for (uint32_t v = 0; v < pairs.size(); ++v) {
    pairs[v] = {kAlphabet[v >> kBitsPerDigit], kAlphabet[v & kDigitMask]};
  }
  return pairs;
}
inline constexpr auto kDigitPairs = makeDigitPairs();

// The 24 bits of three bytes, the first most significant.
[[nodiscard]] inline uint32_t groupBits(const uint8_t *in) {
  return (uint32_t{in[0]} << 16) | (uint32_t{in[1]} << 8) | in[2];
}

// Writes the four digits of a 24-bit value, most significant six bits first.
inline void writeDigits(uint32_t bits, char *out) {
  std::memcpy(out, kDigitPairs[(bits >> kPairBits) & kPairMask].data(), 2);
  std::memcpy(out + 2, kDigitPairs[bits & kPairMask].data(), 2);
}

// Writes the two digits of the low 12 bits of v.
inline void writeDigitPair(uint64_t v, char *out) {
  std::memcpy(out, kDigitPairs[v & kPairMask].data(), 2);
}

// The eight bytes at p, the first most significant.
[[nodiscard]] inline uint64_t loadBigEndian64(const uint8_t *p) {
  uint64_t w;
  std::memcpy(&w, p, sizeof w);
  if constexpr (std::endian::native == std::endian::little) w = __builtin_bswap64(w);
  return w;
}

// Writes the digits of `groups` whole groups from *in, advancing *in past
// them, and returns the end of the digits. Two groups at a time come from
// one eight-byte load while eight bytes may be read before end.
inline char *encodeGroups(const uint8_t **in, uint64_t groups, const uint8_t *end, char *out) {
  const uint8_t *p = *in;
  constexpr uint64_t kPairBytes = 2 * kBytesPerGroup;
  constexpr uint64_t kLoadBytes = 8;
  const uint64_t readable = static_cast<uint64_t>(end - p);
  const uint64_t pairs =
      readable < kLoadBytes
          ? 0
          : std::min<uint64_t>(groups / 2, (readable - kLoadBytes) / kPairBytes + 1);
  for (uint64_t i = 0; i < pairs; ++i, p += kPairBytes, out += 2 * kDigitsPerGroup) {
    const uint64_t w = loadBigEndian64(p);  // the six bytes of both groups on top
    writeDigitPair(w >> 52, out);
    writeDigitPair(w >> 40, out + 2);
    writeDigitPair(w >> 28, out + 4);
    writeDigitPair(w >> 16, out + 6);
  }
  for (groups -= 2 * pairs; groups > 0; --groups, p += kBytesPerGroup, out += kDigitsPerGroup) {
    writeDigits(groupBits(p), out);
  }
  *in = p;
  return out;
}

// Writes the final group of one or two bytes: their digits, zero bits
// filling the rest, and "=" for each byte missing.
inline void writePartialGroup(const uint8_t *in, uint32_t remainder, char *out) {
  const uint8_t padded[kBytesPerGroup] = {in[0], remainder == 2 ? in[1] : uint8_t{0}, 0};
  writeDigits(groupBits(padded), out);
  out[3] = kPad;
  if (remainder == 1) out[2] = kPad;
}

}  // namespace gslu::b64

#endif  // QUILLOMAT_ENTRY_BASE64_INTERNAL_H
