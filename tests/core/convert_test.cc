// Character-set conversion: the capacity rule, replacement and the narrow
// refusal, the direction table and the cached converters.
#include <gtest/gtest.h>

#include "core/context_internal.h"
#include "core/convert.h"
#include "tests/support/test_allocator.h"
#include "tests/support/test_support.h"

namespace {

using ConvertTest = qtest::FreshContextTest;

TEST_F(ConvertTest, BlockFollowsCapacityRuleGuardedAgainstOverflow) {
  qtest::TestAllocator::install(ctx_);
  for (const std::string text : {"", "abcdefg"}) {
    char *out = nullptr;
    uint64_t length = 99;
    EXPECT_EQ(gsluucoConvertOutput(ctx_, text.data(), text.size(), &out, &length), GSLUUC_OK);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(std::string(out, length + 1), text + '\0');
    (void)gslumfFree(ctx_, out);
  }
  // (2^32 - 1 - 10) / 5 is the longest text whose block size fits 32 bits.
  char *out = reinterpret_cast<char *>(1);
  uint64_t length = 99;
  EXPECT_EQ(gsluucoConvertOutput(ctx_, "a", 858993458, &out, &length), GSLUUC_NO_MEMORY);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(qtest::TestAllocator::sizes, (std::vector<uint32_t>{10, 45}));
  qtest::TestAllocator::uninstall(ctx_);
}

struct ReplaceCase {
  const char *name;
  const char *output_locale;  // the code set comes from the name if not installed
  std::string input;
  std::string expected;  // empty when refused
  int status;
  uint32_t error_state;
};

void PrintTo(const ReplaceCase &c, std::ostream *os) { *os << c.name; }

class ReplaceTest : public ConvertTest, public ::testing::WithParamInterface<ReplaceCase> {};

TEST_P(ReplaceTest, IntoNewBlockAndInPlace) {
  const ReplaceCase &c = GetParam();
  ASSERT_EQ(gsluucbSetOutputLanguage(ctx_, c.output_locale), GSLUUC_OK);
  char *out = nullptr;
  uint64_t length = 99;
  EXPECT_EQ(gsluucoConvertOutput(ctx_, c.input.data(), c.input.size(), &out, &length), c.status);
  EXPECT_EQ(gslu::threadSlot(ctx_).error, c.error_state);
  EXPECT_EQ(out != nullptr ? std::string(out, length) : "", c.expected);
  (void)gslumfFree(ctx_, out);
  std::string buffer = c.input + std::string(8, '\0');  // room to grow
  const std::string before = buffer;
  EXPECT_EQ(gsluucoConvertOutput(ctx_, buffer.data(), c.input.size(), nullptr, &length), c.status);
  if (c.status == GSLUUC_OK) {
    EXPECT_EQ(buffer.substr(0, length + 1), c.expected + '\0');
  } else {
    EXPECT_EQ(buffer, before);
  }
}

constexpr char kLatin1[] = "en_US.ISO-8859-1";

INSTANTIATE_TEST_SUITE_P(
    Cases, ReplaceTest,
    ::testing::Values(
        ReplaceCase{"Accents", kLatin1, "h\xC3\xA9llo w\xC3\xB6rld", "h\xE9llo w\xF6rld", 0, 0},
        ReplaceCase{"EuroReplaced", kLatin1,
                    "a\xE2\x82\xAC"
                    "b",
                    "a?b", 0, 1},
        ReplaceCase{"SixBytesWithoutReplacementKept", kLatin1, "abcdef", "abcdef", 0, 0},
        ReplaceCase{"SixBytesWithReplacementRefused", kLatin1,
                    "ab\xE2\x82\xAC"
                    "cde",
                    "", 3, 1},
        ReplaceCase{"SevenBytesWithReplacementKept", kLatin1,
                    "ab\xE2\x82\xAC"
                    "cdef",
                    "ab?cdef", 0, 1},
        ReplaceCase{"EightBytesWithReplacementRefused", kLatin1,
                    "\xE2\x82\xAC"
                    "bcdefgh",
                    "", 3, 1},
        ReplaceCase{"StrayByte", kLatin1,
                    "a\xFF"
                    "b",
                    "a?b", 0, 1},
        ReplaceCase{"TruncatedAtEnd", kLatin1, "ab\xE2\x82", "ab??", 0, 1},
        ReplaceCase{"Utf8TargetUsesReplacementCharacter", "en_US.UTF-8",
                    "a\xFF"
                    "b",
                    "a\xEF\xBF\xBD"
                    "b",
                    0, 1}),
    [](const auto &info) { return std::string(info.param.name); });

// Environment in Latin-1, output in UTF-8: each code picks its pair.
TEST_F(ConvertTest, DirectionCodeSelectsLanguages) {
  ASSERT_EQ(gsluucaSetInputLanguage(ctx_, kLatin1), GSLUUC_OK);
  ASSERT_EQ(gsluucbSetOutputLanguage(ctx_, "en_US.UTF-8"), GSLUUC_OK);
  const std::string utf8 = "\xC3\xA9", latin1 = "\xE9";
  // Each code, and whether it converts to Latin-1.
  const std::pair<int32_t, bool> cases[] = {{GSLUUC_INTERNAL_TO_ENVIRONMENT, true},
                                            {GSLUUC_INTERNAL_TO_OUTPUT, false},
                                            {GSLUUC_ENVIRONMENT_TO_INTERNAL, false},
                                            {GSLUUC_OUTPUT_TO_INTERNAL, false},
                                            {GSLUUC_ENVIRONMENT_TO_OUTPUT, false},
                                            {GSLUUC_OUTPUT_TO_ENVIRONMENT, true},
                                            {99, true}};
  for (const auto &[code, to_latin1] : cases) {
    const bool from_latin1 =
        code == GSLUUC_ENVIRONMENT_TO_INTERNAL || code == GSLUUC_ENVIRONMENT_TO_OUTPUT;
    const std::string &in = from_latin1 ? latin1 : utf8;
    char out[32] = {};
    gsluucRequest req{ctx_, in.data(), out, in.size(), sizeof out, code, -1};
    EXPECT_EQ(gsluucvConvert(&req, nullptr), GSLUUC_OK) << code;
    EXPECT_EQ(req.status, GSLUUC_OK) << code;
    EXPECT_EQ(std::string(out, req.length), to_latin1 ? latin1 : utf8) << code;
  }
}

TEST_F(ConvertTest, ScratchIsCopiedBackAndInputGrows) {
  ASSERT_EQ(gsluucbSetOutputLanguage(ctx_, kLatin1), GSLUUC_OK);
  ASSERT_EQ(gsluucaSetInputLanguage(ctx_, kLatin1), GSLUUC_OK);
  char text[16] = "d\xC3\xA9j\xC3\xA0";
  char scratch[64];
  gsluucRequest req{ctx_, text, text, 6, sizeof scratch, GSLUUC_INTERNAL_TO_OUTPUT, -1};
  EXPECT_EQ(gsluucvConvert(&req, scratch), GSLUUC_OK);
  EXPECT_STREQ(text, "d\xE9j\xE0");
  uint64_t length = 0;
  EXPECT_EQ(gsluuciConvertInput(ctx_, text, 4, nullptr, &length), GSLUUC_OK);
  EXPECT_STREQ(text, "d\xC3\xA9j\xC3\xA0");
}

// A new output language replaces the converter the slot keeps.
TEST_F(ConvertTest, CachedConverterFollowsLanguageChange) {
  ASSERT_EQ(gsluucbSetOutputLanguage(ctx_, kLatin1), GSLUUC_OK);
  EXPECT_EQ(ctx_->output_conversion, 1u);
  for (const char *locale : {kLatin1, "C"}) {
    ASSERT_EQ(gsluucbSetOutputLanguage(ctx_, locale), GSLUUC_OK);
    char text[8] = "\xC3\xA9";
    uint64_t length = 0;
    ASSERT_EQ(gsluucoConvertOutput(ctx_, text, 2, nullptr, &length), GSLUUC_OK);
    EXPECT_EQ(std::string(text, length), locale == kLatin1 ? "\xE9" : "\xC3\xA9");
  }
  EXPECT_EQ(ctx_->output_conversion, 0u);
}

TEST_F(ConvertTest, InPlaceWithKnownRoomRefusesWhatDoesNotFit) {
  ASSERT_EQ(gsluucbSetOutputLanguage(ctx_, "en_US.UTF-16LE"), GSLUUC_OK);
  char text[4] = "ab";
  uint64_t converted = 7;
  EXPECT_EQ(gslu::convertOutputInPlace(ctx_, text, 2, sizeof text, &converted), GSLUUC_REFUSED);
  EXPECT_EQ(converted, 0u);
  EXPECT_STREQ(text, "ab");
}

TEST_F(ConvertTest, ReadAndReplaceLanguages) {
  char name[64];
  EXPECT_EQ(gsluuczGetCurrentLanguage(ctx_, GSLUUC_LANG_INTERNAL, name, sizeof name), GSLUUC_OK);
  EXPECT_STREQ(name, "C.UTF-8");
  ASSERT_EQ(gsluucbSetOutputLanguage(ctx_, kLatin1), GSLUUC_OK);
  EXPECT_EQ(gsluuczGetCurrentLanguage(ctx_, GSLUUC_LANG_OUTPUT, name, sizeof name), GSLUUC_OK);
  EXPECT_STREQ(name, kLatin1);
  EXPECT_EQ(gsluuczGetCurrentLanguage(ctx_, GSLUUC_LANG_OUTPUT, name, 16), GSLUUC_UNKNOWN);
  EXPECT_EQ(gsluucbSetOutputLanguage(ctx_, "xx_XX.NO-SUCH-SET"), GSLUUC_UNKNOWN);
  EXPECT_EQ(ctx_->output_conversion, 1u);  // the failed call changed nothing
}

}  // namespace
