// Character-set conversion: the capacity rule, replacement and the narrow
// refusal, the direction table and the cached converters.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "core/context_internal.h"
#include "core/convert.h"
#include "tests/support/test_support.h"

namespace {

std::vector<uint32_t> g_malloc_sizes;

void *recordingMalloc(gsluctx *, uint32_t size) {
  g_malloc_sizes.push_back(size);
  return std::malloc(size);
}
void releasingFree(gsluctx *, void *block) { std::free(block); }

// A fresh context in a plain environment: no locale, so no conversion until
// a test chooses languages.
class ConvertTest : public ::testing::Test {
 protected:
  void SetUp() override {
    qtest::dropContext();
    env_.set("VSX_LDAP_MESGDIR", QUILLOMAT_MESGDIR);
    env_.set("LC_ALL", std::nullopt);
    env_.set("LC_CTYPE", std::nullopt);
    env_.set("LANG", std::nullopt);
    ctx_ = gsluizgcGetContext();
    ASSERT_NE(ctx_, nullptr);
    g_malloc_sizes.clear();
  }
  void TearDown() override { qtest::dropContext(); }

  // Output in Latin-1; the locale need not be installed, its name says it.
  void outputLatin1() { ASSERT_EQ(gsluucbSetOutputLanguage(ctx_, "en_US.ISO-8859-1"), GSLUUC_OK); }

  qtest::ScopedEnv env_;
  gsluctx *ctx_ = nullptr;
};

TEST_F(ConvertTest, BlockFollowsCapacityRule) {
  ASSERT_EQ(gslumsSetHooks(ctx_, recordingMalloc, nullptr, nullptr, releasingFree), 0);
  for (const std::string text : {"", "abcdefg"}) {
    char *out = nullptr;
    uint64_t length = 99;
    EXPECT_EQ(gsluucoConvertOutput(ctx_, text.data(), text.size(), &out, &length), GSLUUC_OK);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(std::string(out, length), text);
    EXPECT_EQ(out[length], '\0');
    EXPECT_EQ(gslumfFree(ctx_, out), 0);
  }
  EXPECT_EQ(g_malloc_sizes, (std::vector<uint32_t>{10, 45}));
  (void)gslumsSetHooks(ctx_, nullptr, nullptr, nullptr, nullptr);
}

TEST_F(ConvertTest, CapacityBeyond32BitsIsOutOfMemoryWithoutAllocating) {
  ASSERT_EQ(gslumsSetHooks(ctx_, recordingMalloc, nullptr, nullptr, releasingFree), 0);
  constexpr uint64_t kLargestLength = (0xFFFFFFFFull - 10) / 5;
  char text[1] = {'a'};  // never read: the size check comes first
  char *out = reinterpret_cast<char *>(1);
  uint64_t length = 99;
  EXPECT_EQ(gsluucoConvertOutput(ctx_, text, kLargestLength + 1, &out, &length), GSLUUC_NO_MEMORY);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(gsluucoConvertOutput(ctx_, text, kLargestLength + 1, nullptr, &length), GSLUUC_NO_MEMORY);
  EXPECT_TRUE(g_malloc_sizes.empty());
  (void)gslumsSetHooks(ctx_, nullptr, nullptr, nullptr, nullptr);
}

TEST_F(ConvertTest, NullArguments) {
  char *out = nullptr;
  EXPECT_EQ(gsluucoConvertOutput(ctx_, "a", 1, &out, nullptr), GSLUUC_NULL_ARG);
  uint64_t length = 5;
  EXPECT_EQ(gsluucoConvertOutput(ctx_, nullptr, 1, &out, &length), GSLUUC_NULL_ARG);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(gsluucvConvert(nullptr, nullptr), GSLUUC_NULL_ARG);
}

struct Latin1Case {
  const char *name;
  std::string input;
  std::string expected;  // empty when refused
  int status;
  uint32_t error_state;
};

void PrintTo(const Latin1Case &c, std::ostream *os) { *os << c.name; }

class Latin1Test : public ConvertTest, public ::testing::WithParamInterface<Latin1Case> {};

TEST_P(Latin1Test, IntoNewBlock) {
  outputLatin1();
  const Latin1Case &c = GetParam();
  char *out = nullptr;
  uint64_t length = 99;
  EXPECT_EQ(gsluucoConvertOutput(ctx_, c.input.data(), c.input.size(), &out, &length), c.status);
  EXPECT_EQ(gslu::threadSlot(ctx_).error, c.error_state);
  if (c.status != GSLUUC_OK) {
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(length, 0u);
    return;
  }
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(std::string(out, length), c.expected);
  (void)gslumfFree(ctx_, out);
}

TEST_P(Latin1Test, InPlace) {
  outputLatin1();
  const Latin1Case &c = GetParam();
  std::string buffer = c.input + '\0';
  uint64_t length = 99;
  EXPECT_EQ(gsluucoConvertOutput(ctx_, buffer.data(), c.input.size(), nullptr, &length), c.status);
  if (c.status != GSLUUC_OK) {
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(buffer, c.input + '\0');  // untouched
    return;
  }
  EXPECT_EQ(buffer.substr(0, length), c.expected);
  EXPECT_EQ(buffer[length], '\0');
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Latin1Test,
    ::testing::Values(
        Latin1Case{"Ascii", "abc", "abc", GSLUUC_OK, 0},
        Latin1Case{"Empty", "", "", GSLUUC_OK, 0},
        Latin1Case{"Accents", "h\xC3\xA9llo w\xC3\xB6rld", "h\xE9llo w\xF6rld", GSLUUC_OK, 0},
        Latin1Case{"EuroReplaced", "a\xE2\x82\xAC" "b", "a?b", GSLUUC_OK, 1},
        Latin1Case{"SixBytesWithoutReplacementKept", "abcdef", "abcdef", GSLUUC_OK, 0},
        Latin1Case{"SixBytesWithReplacementRefused", "ab\xE2\x82\xAC" "cde", "", GSLUUC_REFUSED, 1},
        Latin1Case{"SevenBytesWithReplacementKept", "ab\xE2\x82\xAC" "cdef", "ab?cdef", GSLUUC_OK, 1},
        Latin1Case{"EightBytesWithReplacementRefused", "\xE2\x82\xAC" "bcdefgh", "", GSLUUC_REFUSED, 1},
        Latin1Case{"NineBytesWithReplacementKept", "ab\xE2\x82\xAC" "cdefgh", "ab?cdefgh", GSLUUC_OK, 1},
        Latin1Case{"StrayByte", "a\xFF" "b", "a?b", GSLUUC_OK, 1},
        Latin1Case{"TruncatedAtEnd", "ab\xE2\x82", "ab??", GSLUUC_OK, 1},
        Latin1Case{"Overlong", "\xC0\xAF" "x", "??x", GSLUUC_OK, 1},
        Latin1Case{"Surrogate", "\xED\xA0\x80", "???", GSLUUC_OK, 1}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(ConvertTest, Utf8TargetReplacesInvalidBytesWithReplacementCharacter) {
  ASSERT_EQ(gsluucbSetOutputLanguage(ctx_, "en_US.UTF-8"), GSLUUC_OK);
  char *out = nullptr;
  uint64_t length = 0;
  ASSERT_EQ(gsluucoConvertOutput(ctx_, "a\xFF" "b", 3, &out, &length), GSLUUC_OK);
  EXPECT_EQ(std::string(out, length), "a\xEF\xBF\xBD" "b");
  EXPECT_EQ(gslu::threadSlot(ctx_).error, 1u);
  (void)gslumfFree(ctx_, out);
}

// Every one- and two-byte input: no crash, no endless loop, and never more
// output than the capacity rule allows.
TEST_F(ConvertTest, AnyTwoBytesConvertWithinCapacity) {
  outputLatin1();
  char out[2 * 5 + 10];
  for (int a = 0; a < 256; ++a) {
    for (int b = 0; b < 256; ++b) {
      const char in[2] = {static_cast<char>(a), static_cast<char>(b)};
      gsluucRequest req{ctx_, in, out, 2, sizeof out, GSLUUC_INTERNAL_TO_OUTPUT, -1};
      const int status = gsluucvConvert(&req, nullptr);
      ASSERT_EQ(status, GSLUUC_OK) << a << " " << b;
      ASSERT_GE(req.length, 1u);
      ASSERT_LE(req.length, 2u);
    }
  }
}

struct DirectionCase {
  int32_t direction;
  std::string input;
  std::string expected;
};

class DirectionTest : public ConvertTest, public ::testing::WithParamInterface<DirectionCase> {};

// Environment in Latin-1, output in UTF-8: each code picks its pair.
TEST_P(DirectionTest, CodeSelectsLanguages) {
  ASSERT_EQ(gsluucaSetInputLanguage(ctx_, "en_US.ISO-8859-1"), GSLUUC_OK);
  ASSERT_EQ(gsluucbSetOutputLanguage(ctx_, "en_US.UTF-8"), GSLUUC_OK);
  const DirectionCase &c = GetParam();
  char out[32] = {};
  gsluucRequest req{ctx_, c.input.data(), out, c.input.size(), sizeof out, c.direction, -1};
  EXPECT_EQ(gsluucvConvert(&req, nullptr), GSLUUC_OK);
  EXPECT_EQ(req.status, GSLUUC_OK);
  EXPECT_EQ(std::string(out, req.length), c.expected);
}

const std::string kUtf8E = "\xC3\xA9";
const std::string kLatin1E = "\xE9";

INSTANTIATE_TEST_SUITE_P(Codes, DirectionTest,
                         ::testing::Values(DirectionCase{GSLUUC_INTERNAL_TO_ENVIRONMENT, kUtf8E, kLatin1E},
                                           DirectionCase{GSLUUC_INTERNAL_TO_OUTPUT, kUtf8E, kUtf8E},
                                           DirectionCase{GSLUUC_ENVIRONMENT_TO_INTERNAL, kLatin1E, kUtf8E},
                                           DirectionCase{GSLUUC_OUTPUT_TO_INTERNAL, kUtf8E, kUtf8E},
                                           DirectionCase{GSLUUC_ENVIRONMENT_TO_OUTPUT, kLatin1E, kUtf8E},
                                           DirectionCase{GSLUUC_OUTPUT_TO_ENVIRONMENT, kUtf8E, kLatin1E},
                                           DirectionCase{99, kUtf8E, kLatin1E}));

TEST_F(ConvertTest, ScratchIsCopiedBackOverDestination) {
  outputLatin1();
  char text[16] = "d\xC3\xA9j\xC3\xA0";
  char scratch[64];
  gsluucRequest req{ctx_, text, text, 6, sizeof scratch, GSLUUC_INTERNAL_TO_OUTPUT, -1};
  EXPECT_EQ(gsluucvConvert(&req, scratch), GSLUUC_OK);
  EXPECT_EQ(req.length, 4u);
  EXPECT_STREQ(text, "d\xE9j\xE0");
}

TEST_F(ConvertTest, InputConversionGrowsIntoNewBlock) {
  ASSERT_EQ(gsluucaSetInputLanguage(ctx_, "en_US.ISO-8859-1"), GSLUUC_OK);
  EXPECT_EQ(ctx_->input_conversion, 1u);
  char *out = nullptr;
  uint64_t length = 0;
  ASSERT_EQ(gsluuciConvertInput(ctx_, "\xE9t\xE9", 3, &out, &length), GSLUUC_OK);
  EXPECT_EQ(std::string(out, length), "\xC3\xA9t\xC3\xA9");
  (void)gslumfFree(ctx_, out);
}

// The slot keeps its converter, and a new output language replaces it.
TEST_F(ConvertTest, CachedConverterFollowsLanguageChange) {
  outputLatin1();
  EXPECT_EQ(ctx_->output_conversion, 1u);
  char text[8] = "\xC3\xA9";
  uint64_t length = 0;
  ASSERT_EQ(gsluucoConvertOutput(ctx_, text, 2, nullptr, &length), GSLUUC_OK);
  EXPECT_EQ(std::string(text, length), kLatin1E);
  const gslu::LangSlot &slot = gslu::threadSlot(ctx_);
  EXPECT_NE(slot.converters, nullptr);
  EXPECT_EQ(slot.owner, gslu::currentThreadId());
  ASSERT_EQ(gsluucbSetOutputLanguage(ctx_, "C"), GSLUUC_OK);
  EXPECT_EQ(ctx_->output_conversion, 0u);
  char again[8] = "\xC3\xA9";
  ASSERT_EQ(gsluucoConvertOutput(ctx_, again, 2, nullptr, &length), GSLUUC_OK);
  EXPECT_EQ(std::string(again, length), kUtf8E);
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
  outputLatin1();
  EXPECT_EQ(gsluuczGetCurrentLanguage(ctx_, GSLUUC_LANG_OUTPUT, name, sizeof name), GSLUUC_OK);
  EXPECT_STREQ(name, "en_US.ISO-8859-1");
  EXPECT_EQ(gsluuczGetCurrentLanguage(ctx_, GSLUUC_LANG_OUTPUT, name, 16), GSLUUC_UNKNOWN);
  EXPECT_STREQ(name, "");
  EXPECT_EQ(gsluuczGetCurrentLanguage(ctx_, 3, name, sizeof name), GSLUUC_NULL_ARG);
  EXPECT_EQ(gsluucbSetOutputLanguage(ctx_, "xx_XX.NO-SUCH-SET"), GSLUUC_UNKNOWN);
  EXPECT_EQ(gsluucbSetOutputLanguage(ctx_, nullptr), GSLUUC_NULL_ARG);
  EXPECT_EQ(ctx_->output_conversion, 1u);  // the failed calls changed nothing
}

}  // namespace
