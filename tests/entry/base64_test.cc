#include "entry/base64.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Bytes = std::string;
using Encoder = uint32_t (*)(const void *, uint32_t, char *);

// Buffers of exactly the advertised size on the heap, so ASan flags any
// access beyond them.
std::string encodeWith(const Bytes &in, Encoder encoder, size_t capacity) {
  std::vector<char> out(capacity);
  const uint32_t n = encoder(in.data(), static_cast<uint32_t>(in.size()), out.data());
  EXPECT_LE(n, capacity);
  return std::string(out.data(), n);
}

std::string encode(const Bytes &in) {
  return encodeWith(in, gsluztvb64e, gsluztvb64gol(static_cast<uint32_t>(in.size()), 1));
}

// Bound of gsluztvb64en stated in the header.
std::string encodeFolded(const Bytes &in) {
  return encodeWith(in, gsluztvb64en, 4 * ((in.size() + 2) / 3) + in.size() / 48 + 2);
}

// Decoded bytes, or kFail for a 0 result.
const Bytes kFail = "<fail>";
Bytes decode(const std::string &text) {
  const std::vector<char> in(text.begin(), text.end());
  std::vector<char> out(gsluztvb64gol(static_cast<uint32_t>(text.size()), 2));
  const uint32_t n = gsluztvb64d(in.data(), static_cast<uint32_t>(in.size()), out.data());
  return n == GSLUZTV_B64_MALFORMED ? kFail : Bytes(out.data(), n);
}

// Known answers encode both ways; the decoder's own rows only decode.
struct Vector {
  const char *name;
  Bytes plain;
  std::string text;
  bool encodes = false;
};
void PrintTo(const Vector &v, std::ostream *os) { *os << v.name; }
class Base64Vector : public ::testing::TestWithParam<Vector> {};

TEST_P(Base64Vector, DecodesAndEncodes) {
  const Vector &v = GetParam();
  EXPECT_EQ(decode(v.text), v.plain);
  if (v.encodes) {
    EXPECT_EQ(encode(v.plain == kFail ? "" : v.plain), v.text);
  }
}

INSTANTIATE_TEST_SUITE_P(All, Base64Vector,
                         ::testing::Values(
                             // RFC 4648's test vectors, and every byte value's top bits.
                             Vector{"Empty", kFail, "", true}, Vector{"f", "f", "Zg==", true},
                             Vector{"fo", "fo", "Zm8=", true}, Vector{"foo", "foo", "Zm9v", true},
                             Vector{"foob", "foob", "Zm9vYg==", true},
                             Vector{"fooba", "fooba", "Zm9vYmE=", true},
                             Vector{"foobar", "foobar", "Zm9vYmFy", true},
                             Vector{"HighBytes", Bytes("\xff\xfe\x00", 3), "//4A", true},
                             Vector{"JunkInsideGroupsIsSkipped", "ManM", "T W\nFu\tT\r\nQ=\n="},
                             Vector{"TrailingJunkIsDropped", "Man", "TWFu\n \x01"},
                             Vector{"PaddedGroupEndsTheData", "M", "TQ==TWFu"},
                             Vector{"EqualsInUnpaddedGroupReadsAsZero", Bytes("M\0\0", 3), "TQ=A"},
                             Vector{"InvalidDigitInFinalGroupFails", kFail, "T==="},
                             Vector{"LeadingEqualsInFinalGroupFails", kFail, "=Q=="},
                             Vector{"UnpaddedTailFails", kFail, "TWFuTWE"},
                             Vector{"SingleCharacterFails", kFail, "T"},
                             Vector{"AllJunkFails", kFail, " \n\x80\xff"},
                             Vector{"NonAsciiIsJunk", "Man", "TW\303\251Fu"}),
                         [](const auto &info) { return std::string(info.param.name); });

// Where the encoders put newlines, for inputs of `length` bytes.
struct Shape {
  const char *name;
  Encoder encoder;
  uint32_t length;
  std::vector<size_t> newlines;
  size_t total;
};
void PrintTo(const Shape &s, std::ostream *os) { *os << s.name; }
class LineShape : public ::testing::TestWithParam<Shape> {};

TEST_P(LineShape, PutsNewlinesWhereTheyAreKept) {
  const Shape &s = GetParam();
  const std::string out =
      encodeWith(Bytes(s.length, 'x'), s.encoder, gsluztvb64gol(s.length, 1) + s.length);
  std::vector<size_t> newlines;
  for (size_t i = 0; i < out.size(); ++i)
    if (out[i] == '\n') newlines.push_back(i);
  EXPECT_EQ(newlines, s.newlines);
  EXPECT_EQ(out.size(), s.total);
}

template <uint32_t kGroups>
uint32_t encodeLines(const void *in, uint32_t length, char *out) {
  return gsluztvb64ecr(in, length, out, kGroups);
}

// The 8-bit line counter of gsluztvb64ecr, and gsluztvb64en's closing newlines.
INSTANTIATE_TEST_SUITE_P(
    Encoder, LineShape,
    ::testing::Values(
        Shape{"LineCounterWrapsAt256Digits", gsluztvb64e, 192, {256}, 257},
        Shape{"LineCounterWrapsAgainAfterReset", encodeLines<0>, 387, {256, 513}, 518},
        Shape{"NoNewlineAfterPartialGroup", encodeLines<0>, 191, {}, 256},
        Shape{"SixteenGroupsPerLine", encodeLines<16>, 96, {64, 129}, 130},
        Shape{"OneGroupPerLine", encodeLines<1>, 7, {4, 9}, 14},
        Shape{"SixtyFourGroupsNeverWrap", encodeLines<64>, 3000, {}, 4000},
        Shape{"HugeLineLengthNeverWraps", encodeLines<0x40000000u>, 3000, {}, 4000},
        Shape{"FoldedWholeGroupsEndWithTheLineOnly", gsluztvb64en, 48, {64}, 65},
        Shape{"FoldedPartialGroupAddsTwoNewlines", gsluztvb64en, 49, {64, 69, 70}, 71}),
    [](const auto &info) { return std::string(info.param.name); });

// Kept: mode 1 still gives 5 for one byte, where gsluztvb64en writes 6.
TEST(Base64, SizeFormulaIsKeptThoughFoldedEncoderExceedsIt) {
  EXPECT_EQ(gsluztvb64gol(1, GSLUZTV_B64_SIZE_ENCODE), 5u);
  EXPECT_EQ(encodeFolded("a"), "YQ==\n\n");
  EXPECT_EQ(gsluztvb64gol(UINT32_MAX, GSLUZTV_B64_SIZE_ENCODE), 5793731927u);  // no 32-bit wrap
  EXPECT_EQ(gsluztvb64gol(64, GSLUZTV_B64_SIZE_DECODE), 48u);
  EXPECT_EQ(gsluztvb64gol(64, 3), 0u);
}

TEST(Base64, RandomRoundTripsAndEveryTruncatedPrefix) {
  std::mt19937 rng(4648);
  for (size_t len = 0; len <= 300; ++len) {
    Bytes in(len, '\0');
    for (char &c : in) c = static_cast<char>(rng());
    const std::string plain = encode(in), folded = encodeFolded(in);
    EXPECT_EQ(decode(plain), len == 0 ? kFail : in);
    EXPECT_EQ(decode(folded), len == 0 ? kFail : in);
    EXPECT_EQ(gsluztvb64scn(folded.data(), static_cast<uint32_t>(folded.size())), folded.size());
    size_t digits = 0;  // the prefix without the encoder's newlines
    for (size_t cut = 1; cut < plain.size(); ++cut) {
      digits += plain[cut - 1] != '\n';
      const Bytes expected = digits % 4 != 0 ? kFail : in.substr(0, digits / 4 * 3);
      ASSERT_EQ(decode(plain.substr(0, cut)), expected) << len << " cut at " << cut;
    }
  }
}

TEST(Base64, GetvalGivesDigitValuesOnly) {
  const std::pair<char, int> cases[] = {{'A', 0},  {'z', 51}, {'0', 52},
                                        {'/', 63}, {'=', -1}, {'\xff', -1}};
  for (const auto &[c, expected] : cases) {
    int value = 99;
    EXPECT_EQ(gsluztvb64_getval(c, &value) == GSLUZTV_B64_DIGIT, expected >= 0) << c;
    EXPECT_EQ(value, expected < 0 ? 0 : expected) << c;
  }
}

TEST(Base64, CleanKeepsDigitsAndPaddingAndStopsAtFirstNul) {
  struct {
    std::string text;
    std::string kept;
  } cases[] = {{"TW Fu\n\tTQ\r\n==\n", "TWFuTQ=="}, {" \n", ""}, {std::string("TW\0Fu", 5), "TW"}};
  for (auto &c : cases) {
    std::vector<char> buf(c.text.begin(), c.text.end());
    buf.push_back('\0');
    uint32_t count = 99;
    EXPECT_EQ(gsluztvb64cln(buf.data(), static_cast<uint32_t>(c.text.size()), &count),
              GSLUZTV_B64_CLEANED);
    EXPECT_EQ(std::string(buf.data()), c.kept);
    EXPECT_EQ(count, c.kept.size());
  }
}

// The scanner serves the directory client library only.
TEST(Base64, ScanStopsAtFirstInvalidGroupOrOverlongLine) {
  const std::pair<std::string, uint32_t> cases[] = {
      {"TWFu\nTQ==\n\n", 11},
      {"TWFu!WFu", 4},
      {"TQ==TWFu", 4},
      {"T===", 0},
      {std::string(80, 'A'), 76},
      {std::string(76, 'A') + "\n" + std::string(4, 'A'), 81}};
  for (const auto &[text, valid] : cases) {
    EXPECT_EQ(gsluztvb64scn(text.data(), static_cast<uint32_t>(text.size())), valid) << text;
  }
}

TEST(Base64, NullArgumentsAndOversizedOutputDoNothing) {
  char out[8];
  uint32_t count = 7;
  EXPECT_EQ(gsluztvb64e(nullptr, 3, out), 0u);
  EXPECT_EQ(gsluztvb64d(nullptr, 4, out), 0u);
  EXPECT_EQ(gsluztvb64d("TWFu", 4, nullptr), 0u);
  EXPECT_EQ(gsluztvb64_getval('A', nullptr), GSLUZTV_B64_NOT_DIGIT);
  EXPECT_EQ(gsluztvb64cln(nullptr, 0, &count), GSLUZTV_B64_CLEANED);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(gsluztvb64scn(nullptr, 4), 0u);
  // Output whose count would pass 32 bits is refused before any access.
  EXPECT_EQ(gsluztvb64e(out, UINT32_MAX, out), 0u);
  EXPECT_EQ(gsluztvb64ecr(out, 0xC0000000u, out, 1), 0u);
}

// ---- The cleaning decoder against the cleaner followed by the decoder.

// What gsluztvb64cln and gsluztvb64d give for text (a NUL-terminated copy).
Bytes cleanThenDecode(const std::string &text) {
  std::vector<char> copy(text.begin(), text.end());
  copy.push_back('\0');
  uint32_t kept = 0;
  (void)gsluztvb64cln(copy.data(), static_cast<uint32_t>(text.size()), &kept);
  std::vector<char> out(gsluztvb64gol(kept, 2));
  const uint32_t n = gsluztvb64d(copy.data(), kept, out.data());
  return n == GSLUZTV_B64_MALFORMED ? kFail : Bytes(out.data(), n);
}

// The cleaning decoder over an exact-size copy with no NUL after it, so
// ASan sees any read past the length; in place when asked.
Bytes cleaningDecode(const std::string &text, bool in_place) {
  std::vector<char> in(text.begin(), text.end());
  std::vector<char> out(gsluztvb64gol(static_cast<uint32_t>(text.size()), 2));
  char *to = in_place ? in.data() : out.data();
  const uint32_t n = gsluztvb64dcln(in.data(), static_cast<uint32_t>(in.size()), to);
  return n == GSLUZTV_B64_MALFORMED ? kFail : Bytes(to, n);
}

// Ways the text of an encoded value reaches the reader: folded, indented,
// broken by other bytes, cut by a NUL, padded oddly. The encoded text gets
// `junk` before every `every`th character, then prefix and suffix.
struct Dirt {
  const char *name;
  size_t every;
  std::string_view junk, prefix, suffix;
  std::string apply(const std::string &s) const {
    std::string out(prefix);
    for (size_t i = 0; i < s.size(); ++i) {
      if (every != 0 && i > 0 && i % every == 0) out.append(junk);
      out.push_back(s[i]);
    }
    return out.append(suffix);
  }
};
void PrintTo(const Dirt &d, std::ostream *os) { *os << d.name; }

using namespace std::string_view_literals;

const Dirt kDirts[] = {
    {"Clean", 0, "", "", ""},
    {"FoldedAt76", 76, "\n", "\n", "\n"},
    {"CrLfAt64Indented", 64, "\r\n    ", "", ""},
    {"SpaceInsideGroups", 3, " ", "", ""},
    {"HighBytesAndControls", 5, "\xc3\xa9\x01\x7f", "", ""},
    {"TrailingJunk", 0, "", "", " \t\n\xff"},
    {"NulCutsTheText", 41, "\0"sv, "", ""},
    {"NulAfterTheText", 0, "", "", "\0TWFu"sv},
    {"PaddedGroupFirst", 0, "", "TQ==", ""},
    {"EqualsInsideAGroup", 0, "", "T=Fu", ""},
    {"LoneDigitAtTheEnd", 0, "", "", "\nA"},
    {"InvalidPadding", 0, "", "", "=A=="},
};

class CleaningDecoder : public ::testing::TestWithParam<Dirt> {};

TEST_P(CleaningDecoder, DecodesAsTheCleanerAndDecoderDo) {
  std::mt19937 rng(2045);
  for (size_t len = 0; len <= 160; ++len) {
    Bytes in(len, '\0');
    for (char &c : in) c = static_cast<char>(rng());
    const std::string text = GetParam().apply(encode(in));
    const Bytes expected = cleanThenDecode(text);
    ASSERT_EQ(cleaningDecode(text, false), expected) << "length " << len;
    ASSERT_EQ(cleaningDecode(text, true), expected) << "length " << len << ", in place";
  }
}

INSTANTIATE_TEST_SUITE_P(Texts, CleaningDecoder, ::testing::ValuesIn(kDirts),
                         [](const auto &info) { return std::string(info.param.name); });

// Short texts of every kind of character, mostly malformed ones.
TEST(CleaningDecoderRandom, AgreesOnTextsOfDigitsPaddingJunkAndNul) {
  const char kChars[] = {'A', 'Q', 'z', '0', '+', '/', '=', '=', ' ', '\n', '\0', '\x80'};
  std::mt19937 rng(1987);
  for (int round = 0; round < 20000; ++round) {
    std::string text(rng() % 24, ' ');
    for (char &c : text) c = kChars[rng() % sizeof kChars];
    ASSERT_EQ(cleaningDecode(text, false), cleanThenDecode(text)) << ::testing::PrintToString(text);
  }
  char out[4];
  EXPECT_EQ(gsluztvb64dcln(nullptr, 4, out), 0u);
  EXPECT_EQ(gsluztvb64dcln("TWFu", 4, nullptr), 0u);
}

}  // namespace
