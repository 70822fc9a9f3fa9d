// Tests of util/strings.h: the null rules, the block sizes of the lower-case
// duplicate, case-insensitive comparison beyond ASCII, the character classes
// and the walkers over multibyte text.
#include "util/strings.h"
#include "util/unicode.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <tuple>

#include "core/memory.h"
#include "tests/support/test_allocator.h"
#include "tests/support/test_support.h"

namespace {

using Alloc = qtest::TestAllocator;

class StringsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ctx_ = gsluizgcGetContext();
    ASSERT_NE(ctx_, nullptr);
    Alloc::install(nullptr);
  }
  void TearDown() override { Alloc::uninstall(nullptr); }
  gsluctx *ctx_ = nullptr;
};

std::string take(char *s) {
  std::string copy = s == nullptr ? "<null>" : s;
  (void)gslumfFree(nullptr, s);
  return copy;
}

TEST_F(StringsTest, NullArgumentsWriteAndAllocateNothing) {
  char dst[8] = "keep";
  const std::pair<const char *, std::function<int()>> cases[] = {
      {"strcpy dst", [&] { return gslusspStrcpy(nullptr, nullptr, "x") - GSLUS_NULL_ARG; }},
      {"strcpy src", [&] { return gslusspStrcpy(nullptr, dst, nullptr) - GSLUS_NULL_ARG; }},
      {"strncpy", [&] { return gslussnStrncpy(nullptr, dst, nullptr, 3) - GSLUS_NULL_ARG; }},
      {"strcat", [&] { return gslusscStrcat(nullptr, dst, nullptr) - GSLUS_NULL_ARG; }},
      {"strcmp both", [] { return gsluscmStrcmp(nullptr, nullptr, nullptr) - GSLUS_CMP_EQUAL; }},
      {"strcmp 1st", [] { return gsluscmStrcmp(nullptr, nullptr, "a") - GSLUS_CMP_ONE_NULL; }},
      {"strcmp 2nd", [] { return gsluscmStrcmp(nullptr, "a", nullptr) - GSLUS_CMP_ONE_NULL; }},
      {"casecmp", [] { return gslusicStrcasecmp(nullptr, nullptr, "a") - GSLUS_CMP_ONE_NULL; }},
      {"strlen", [] { return static_cast<int>(gslusslStrlen(nullptr, nullptr)); }},
      {"strdup", [] { return gslussdStrdup(nullptr, nullptr) != nullptr; }},
      {"strcasedup", [] { return gslussiStrcasedup(nullptr, nullptr) != nullptr; }},
  };
  for (const auto &[what, call] : cases) EXPECT_EQ(call(), 0) << what;
  EXPECT_STREQ(dst, "keep");
  EXPECT_TRUE(Alloc::sizes.empty());
}

// Stray bytes stay as they are; U+0130 and the Kelvin sign shrink to one
// byte; U+023A would grow to the three-byte U+2C65, and the block has no
// room for growth, so it keeps its upper-case form.
TEST_F(StringsTest, StrcasedupBlockSizesAndLowerCase) {
  const std::tuple<const char *, const char *, uint32_t> cases[] = {
      {"ABCDEFGH", "abcdefgh", 16},
      {"ABCDEFG", "abcdefg", 8},
      {"", "", 8},
      {"ÄÖÜ;Binary", "äöü;binary", 16},
      {"\304\377AB", "\304\377ab", 8},
      {"\xC4\xB0STANBUL", "istanbul", 16},
      {"\xE2\x84\xAA", "k", 8},
      {"\310\272\310\272\310\272\310\272ABCDEFG", "\310\272\310\272\310\272\310\272abcdefg", 16}};
  for (const auto &[in, lower, block] : cases) {
    Alloc::sizes.clear();
    EXPECT_EQ(take(gslussiStrcasedup(nullptr, in)), lower) << in;
    EXPECT_EQ(Alloc::sizes, std::vector<uint32_t>{block}) << in;
  }
}

TEST_F(StringsTest, BoundedCopyWritesNoMoreThanAsked) {
  char dst[8] = "#######";
  EXPECT_EQ(gslussnStrncpy(nullptr, dst, "abc", 2), GSLUS_OK);
  EXPECT_EQ(std::string(dst, 7), "ab#####");
  EXPECT_EQ(gslussnStrncpy(nullptr, dst, "a", 4), GSLUS_OK);
  EXPECT_EQ(std::string(dst, 7), std::string("a\0\0\0###", 7));
}

// One code point folds to one ("ß" is not "SS"); the Kelvin sign, three
// bytes, equals "k"; a stray byte is not the character of that value; a
// bound may cut a character, leaving its lead bytes to compare.
TEST_F(StringsTest, ComparisonsIgnoringCase) {
  constexpr size_t kWhole = SIZE_MAX;
  const std::tuple<const char *, const char *, size_t, int> cases[] = {
      {"MD5", "md5", kWhole, 0},        {"ÄÖÜ", "äöü", kWhole, 0},
      {"Straße", "STRAẞE", kWhole, 0},  {"Straße", "STRASSE", kWhole, 1},
      {"K", "\xE2\x84\xAA", kWhole, 0}, {"abc", "ABD", kWhole, -1},
      {"ab", "AB\xC3\xA4", kWhole, -1}, {"\xE4", "ä", kWhole, 1},
      {"\377a", "\377A", kWhole, 0},    {"ÄBCx", "äbcy", 4, 0},
      {"ÄBCx", "äbcy", 5, -1},          {"\xC3\x84", "\xC3\xA4", 1, 0}};
  for (const auto &[a, b, n, expected] : cases) {
    const int got =
        n == kWhole ? gslusicStrcasecmp(nullptr, a, b) : gslusicStrncasecmp(nullptr, a, b, n);
    EXPECT_EQ(got, expected) << a << " / " << b << " n=" << n;
  }
  EXPECT_EQ(gsluscmStrcmp(nullptr, "Ä", "ä"), -1);
  EXPECT_EQ(gsluscmStrncmp(nullptr, "abX", "abY", 2), 0);
}

using ClassFn = uint32_t (*)(gsluctx *, const char *);

TEST_F(StringsTest, CharacterClasses) {
  const struct {
    const char *c;
    ClassFn fn;
    uint32_t expected;
  } cases[] = {
      {"7", gslusibIsDigit, GSLUS_CLASS_DIGIT},
      {"q", gslusAIsLetter, GSLUS_CLASS_LETTER},
      {"7", gslusAIsLetter, 0},
      {"F", gslusibIsXdigit, GSLUS_CLASS_XDIGIT},
      {" ", gslusibIsGraph, 0},
      {" ", gslusibIsPrint, GSLUS_CLASS_BLANK},
      {"\t", gslusibIsPrint, 0},
      {"\t", gslusibIsSpace, GSLUS_CLASS_SPACE},
      {"$", gslusibIsPunct, GSLUS_CLASS_PUNCT},
      {"_", gslusBIsAlphaNum, 0},
      {"Z", gslusCIsUpper, GSLUS_CLASS_UPPER},
      {"z", gslusCIsUpper, 0},
      {"", gslusibIsPrint, 0},
      {"\x7f", gslusibIsPrint, 0},
      {"Ä", gslusCIsUpper, GSLUS_CLASS_UPPER},
      {"ß", gslusDIsLower, GSLUS_CLASS_LOWER},
      {"\xD9\xA3", gslusibIsDigit, GSLUS_CLASS_DIGIT},
      {"€", gslusibIsPunct, GSLUS_CLASS_PUNCT},
      {"\xC2\xA0", gslusibIsSpace, GSLUS_CLASS_SPACE},
      {"é", gslusibIsPunct, 0},
      {"\xFF", gslusibIsPrint, 0},
      {"\xC3", gslusAIsLetter, 0},
  };
  for (const auto &c : cases) EXPECT_EQ(c.fn(nullptr, c.c), c.expected) << "'" << c.c << "'";
  // Deliberate: "alpha" takes digits too; the letter test does not.
  EXPECT_NE(gslusibIsAlpha(nullptr, "7"), 0u);
  EXPECT_NE(gslusibIsAlpha(nullptr, "\xD9\xA3"), 0u);
}

// ICU is loaded when a character beyond ASCII first needs it; without it
// such characters have no case and no class, and ASCII is untouched.
TEST_F(StringsTest, WithoutTheUnicodeLibraryOnlyAsciiHasCaseAndClass) {
  gslu::unicodeLibraryReplaceForTesting(nullptr);
  EXPECT_EQ(gslusicStrcasecmp(nullptr, "MD5", "md5"), 0);
  EXPECT_NE(gslusicStrcasecmp(nullptr, "ÄÖÜ", "äöü"), 0);
  EXPECT_EQ(gslusicStrcasecmp(nullptr, "äöü", "äöü"), 0);
  EXPECT_EQ(gslusCIsUpper(nullptr, "Ä"), 0u);
  EXPECT_EQ(gslusCIsUpper(nullptr, "A"), static_cast<uint32_t>(GSLUS_CLASS_UPPER));
  EXPECT_EQ(take(gslussiStrcasedup(nullptr, "ÄB")), "Äb");
  gslu::unicodeLibraryRestoreForTesting();
  EXPECT_EQ(gslusicStrcasecmp(nullptr, "ÄÖÜ", "äöü"), 0);
  EXPECT_NE(std::string(gslusvUnicodeVersion()).find("ICU "), std::string::npos);
}

std::vector<std::string> tokenize(const char *s, const char *delimiters, int *status) {
  char **tokens = nullptr;
  uint32_t count = 99;
  *status = gslusistokenize(nullptr, s, delimiters, &tokens, &count);
  std::vector<std::string> out;
  for (uint32_t i = 0; i < count; ++i) out.push_back(take(tokens[i]));
  if (tokens != nullptr) {
    EXPECT_EQ(tokens[count], nullptr);
  }
  (void)gslumfFree(nullptr, tokens);
  return out;
}

TEST_F(StringsTest, Tokenize) {
  using V = std::vector<std::string>;
  const std::tuple<const char *, const char *, V> cases[] = {
      {"a,b,,c", ",", {"a", "b", "c"}},
      {",, a  b,", ", ", {"a", "b"}},
      {",,,", ",", {}},
      {"x·yé·z", "·", {"x", "yé", "z"}},
      {"äb", "\xC3", {"äb"}}};  // stray bytes never split
  for (const auto &[s, delimiters, expected] : cases) {
    int status;
    EXPECT_EQ(tokenize(s, delimiters, &status), expected) << s;
    EXPECT_EQ(status, GSLUS_OK);
  }
  int status;
  EXPECT_TRUE(tokenize(nullptr, ",", &status).empty());
  EXPECT_EQ(status, GSLUS_NULL_ARG);
}

// Fails the Nth allocation for N = 0, 1, 2 ... until tokenizing succeeds;
// every failure must hand back nothing (and leak nothing).
TEST_F(StringsTest, TokenizeAllocationFailureSweep) {
  for (int n = 0;; ++n) {
    Alloc::budget = n;
    int status;
    std::vector<std::string> tokens = tokenize("one two three", " ", &status);
    if (status == GSLUS_OK) {
      EXPECT_EQ(tokens.size(), 3u);
      EXPECT_EQ(n, 4);
      break;
    }
    EXPECT_EQ(status, GSLUS_NO_MEMORY);
    EXPECT_TRUE(tokens.empty());
  }
}

TEST_F(StringsTest, Trimming) {
  const char *cases[][3] = {
      {"  a b \t\n", "a b", "a"}, {"\xC2\xA0x\xE3\x80\x80", "x", "x\xE3\x80\x80"}, {"   ", "", ""}};
  for (const auto &[in, trim, str_trim] : cases) {
    std::string a = in, b = in;
    EXPECT_EQ(gslusTrim(nullptr, a.data()), GSLUS_OK);
    EXPECT_STREQ(a.c_str(), trim);
    EXPECT_STREQ(gslusstStrTrim(nullptr, b.data()), str_trim);
  }
}

TEST_F(StringsTest, NumbersAndHex) {
  const std::tuple<const char *, int, int32_t> nums[] = {
      {"-2147483648", GSLUS_OK, INT32_MIN},  {"+7", GSLUS_OK, 7},
      {"2147483648", GSLUS_NOT_A_NUMBER, 0}, {"12a", GSLUS_NOT_A_NUMBER, 0},
      {"-", GSLUS_NOT_A_NUMBER, 0},          {"\xD9\xA1\xD9\xA2\xD9\xA3", GSLUS_OK, 123}};
  for (const auto &[s, status, expected] : nums) {
    int32_t value = -1;
    EXPECT_EQ(gslussiIsStrNum(nullptr, s, &value), status) << s;
    EXPECT_EQ(value, expected) << s;
  }
  EXPECT_EQ(gslusicIsatoi(nullptr, " \t42xyz"), 42);
  EXPECT_EQ(gslusicIsatoi(nullptr, "-99999999999"), INT32_MIN);
  const std::tuple<const char *, size_t, int, uint32_t> hexes[] = {
      {"FFFFFFFF", 8, GSLUS_OK, 0xffffffff},   {"0000000001", 10, GSLUS_OK, 1},
      {"100000000", 9, GSLUS_NOT_A_NUMBER, 0}, {"1g", 2, GSLUS_NOT_A_NUMBER, 0},
      {"41,cn=x", 2, GSLUS_OK, 0x41},          {"ab", 5, GSLUS_OK, 0xab}};
  for (const auto &[hex, length, status, expected] : hexes) {
    uint32_t value = 7;
    EXPECT_EQ(gsluscnvhx2u4(nullptr, hex, length, &value), status) << hex;
    EXPECT_EQ(value, expected) << hex;
  }
}

TEST_F(StringsTest, StepsOverMultibyteCharacters) {
  const char *s = "a\303\204\342\202\254\360\235\204\236b";  // sizes 1, 2, 3, 4, 1
  const size_t forward[] = {0, 1, 3, 6, 10, 11, 11};         // stops at the NUL
  const size_t backward[] = {0, 1, 5, 8, 10, 11, 11};        // stops at the start
  for (size_t n = 0; n < std::size(forward); ++n) {
    EXPECT_EQ(gslusicIsIncPtr(nullptr, s, n), forward[n]) << n;
    EXPECT_EQ(gslusicIsDecPtr(nullptr, s, s + 11, n), backward[n]) << n;
  }
  const char *stray = "\303\204\200\200a";  // one character, then two stray bytes
  EXPECT_EQ(gslusicIsIncPtr(nullptr, stray, 2), 3u);
  EXPECT_EQ(gslusicIsDecPtr(nullptr, stray, stray + 4, 2), 2u);
  EXPECT_EQ(gslusicIsDecPtr(nullptr, stray, stray + 4, 3), 4u);
  EXPECT_EQ(gslusicIsDecPtr(nullptr, stray + 1, stray + 2, 1), 1u);  // start bounds the look-back
}

TEST_F(StringsTest, SearchesAndSmallPredicates) {
  const char *s = "a€b€c";
  EXPECT_EQ(gslusstStrChr(nullptr, s, 0x20AC), s + 1);
  EXPECT_EQ(gslusstStrrChr(nullptr, s, 0x20AC), s + 5);
  EXPECT_EQ(gslusstStrChr(nullptr, s, 0xE4), nullptr);
  EXPECT_EQ(gslusstStrpBrk(nullptr, s, "\342\202\254b"), s + 1);
  EXPECT_EQ(gslusstStrpBrk(nullptr, s, "\xE2"), nullptr);
  EXPECT_EQ(gslusstStrStr(nullptr, s, "b€"), s + 4);
  EXPECT_EQ(gslusicIsEqual(nullptr, s + 1, 0x20AC), GSLUS_YES);
  EXPECT_EQ(gslusmIsMultibyte(nullptr, "plain"), GSLUS_NO);
  char out[GSLUS_QUOTED_BUFFER_SIZE];
  EXPECT_EQ(gslusnIsSingleQuoted(nullptr, "'it''s'", out), GSLUS_YES);
  EXPECT_STREQ(out, "it''s");
  std::string long_quoted = "'";
  for (int i = 0; i < 600; ++i) long_quoted += "é";
  EXPECT_EQ(gslusnIsSingleQuoted(nullptr, (long_quoted + "'").c_str(), out), GSLUS_YES);
  EXPECT_EQ(std::strlen(out), 1022u);  // 1023 would cut a character in two
}

// The copies are the C library's (strcpy and strcat are the hash table's
// and are shown there); the status of a format that does not fit is ours.
TEST_F(StringsTest, FormattingThatDoesNotFitFails) {
  char dst[8];
  EXPECT_EQ(gsluspSprintf(nullptr, dst, sizeof dst, "%s=%d", "n", 42), GSLUS_OK);
  EXPECT_STREQ(dst, "n=42");
  EXPECT_EQ(gsluspSprintf(nullptr, dst, 4, "%d", 12345), GSLUS_FORMAT_FAILED);
}

}  // namespace
