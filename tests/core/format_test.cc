// The formatting service: conversions, flags, typed-argument errors and the
// report that the buffer is too small.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "core/format.h"

namespace {

using gslu::FormatStatus;
using gslu::typedArg;

const int32_t kMinus42 = -42;
const int32_t k42 = 42;
const int32_t k7 = 7;
const int32_t k0 = 0;
const int32_t k255 = 255;
const int32_t kMinus1 = -1;
const int32_t k65537 = 65537;
const int32_t kInt32Min = INT32_MIN;
const int64_t k2To40 = int64_t{1} << 40;
const int64_t kInt64Min = INT64_MIN;

struct FormatCase {
  const char *format;
  std::vector<gsluArg> args;
  std::string expected;
  FormatStatus status = FormatStatus::kOk;
};

void PrintTo(const FormatCase &c, std::ostream *os) { *os << '"' << c.format << '"'; }

gsluArg nullInt() {
  gsluArg a{};
  a.type = GSLUF_ARG_INT32_PTR;
  return a;
}
gsluArg unknownType() {
  gsluArg a{};
  a.type = 99;
  return a;
}

class FormatTest : public ::testing::TestWithParam<FormatCase> {};

TEST_P(FormatTest, Expands) {
  const FormatCase &c = GetParam();
  char buffer[256];
  const gslu::Formatted f = gslu::formatTyped(buffer, sizeof buffer, c.format, c.args.data(),
                                              static_cast<uint32_t>(c.args.size()));
  EXPECT_EQ(f.status, c.status);
  if (c.status == FormatStatus::kOk) {
    EXPECT_EQ(std::string(buffer, f.length), c.expected);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Conversions, FormatTest,
    ::testing::Values(
        FormatCase{"%s\n", {typedArg("abc")}, "abc\n"},
        FormatCase{"%5s|%-5s|", {typedArg("abc"), typedArg("abc")}, "  abc|abc  |"},
        FormatCase{"%.2s", {typedArg("abc")}, "ab"},
        FormatCase{"%.2s|", {typedArg("a\xC3\xA9")}, "a|"},  // no half character
        FormatCase{"%s", {typedArg(static_cast<const char *>(nullptr))}, "<null arg>"},
        FormatCase{"%d", {typedArg(&kMinus42)}, "-42"},
        FormatCase{"%i", {typedArg(&k42)}, "42"},
        FormatCase{"%5d|%-5d|", {typedArg(&k42), typedArg(&k42)}, "   42|42   |"},
        FormatCase{"%05d", {typedArg(&kMinus42)}, "-0042"},
        FormatCase{"%+d % d", {typedArg(&k42), typedArg(&k42)}, "+42  42"},
        FormatCase{"%.3d|%5.3d", {typedArg(&k7), typedArg(&k7)}, "007|  007"},
        FormatCase{"[%.0d]", {typedArg(&k0)}, "[]"},
        FormatCase{"%u", {typedArg(&kMinus1)}, "4294967295"},
        FormatCase{"%x %X %#x %#X %#x", {typedArg(&k255), typedArg(&k255), typedArg(&k255),
                                         typedArg(&k255), typedArg(&k0)}, "ff FF 0xff 0XFF 0"},
        FormatCase{"%lu", {typedArg(&kMinus1)}, "18446744073709551615"},
        FormatCase{"%d", {typedArg(&k2To40)}, "1099511627776"},
        FormatCase{"%d %lld", {typedArg(&kInt32Min), typedArg(&kInt64Min)},
                   "-2147483648 -9223372036854775808"},
        FormatCase{"%hd %hu", {typedArg(&k65537), typedArg(&kMinus1)}, "1 65535"},
        FormatCase{"%c%3c%-2c|", {typedArg('x'), typedArg('y'), typedArg('z')}, "x  yz |"},
        FormatCase{"100%%", {}, "100%"},
        FormatCase{"%d", {typedArg("text")}, "", FormatStatus::kBadArgument},
        FormatCase{"%s", {typedArg(&k42)}, "", FormatStatus::kBadArgument},
        FormatCase{"%c", {typedArg(&k42)}, "", FormatStatus::kBadArgument},
        FormatCase{"%d %d", {typedArg(&k42)}, "", FormatStatus::kBadArgument},
        FormatCase{"%d", {nullInt()}, "", FormatStatus::kBadArgument},
        FormatCase{"%d", {unknownType()}, "", FormatStatus::kBadArgument},
        FormatCase{"%f", {typedArg(&k42)}, "", FormatStatus::kBadConversion},
        FormatCase{"trailing %", {}, "", FormatStatus::kBadConversion},
        FormatCase{"%2000000d", {typedArg(&k42)}, "", FormatStatus::kBadConversion},
        FormatCase{"%300d", {typedArg(&k42)}, "", FormatStatus::kTooSmall}));

struct TooSmallCase {
  std::size_t limit;
  const char *text;
  std::string kept;
};

class TooSmallTest : public ::testing::TestWithParam<TooSmallCase> {};

TEST_P(TooSmallTest, KeepsWhatFitsWithoutSplittingCharacters) {
  const TooSmallCase &c = GetParam();
  std::vector<char> buffer(c.limit + 8, 'X');
  const gsluArg arg = typedArg(c.text);
  const gslu::Formatted f = gslu::formatTyped(buffer.data(), c.limit, "%s", &arg, 1);
  EXPECT_EQ(f.status, FormatStatus::kTooSmall);
  EXPECT_EQ(std::string(buffer.data(), f.length), c.kept);
  EXPECT_EQ(buffer[f.length], '\0');
  EXPECT_EQ(buffer[c.limit], 'X');  // nothing beyond the limit
}

INSTANTIATE_TEST_SUITE_P(Limits, TooSmallTest,
                         ::testing::Values(TooSmallCase{4, "abcdef", "abc"},
                                           TooSmallCase{3, "a\xC3\xA9", "a"},
                                           TooSmallCase{4, "a\xE2\x82\xAC", "a"},
                                           TooSmallCase{4, "ab\xFF\xFF", "ab\xFF"}));

}  // namespace
