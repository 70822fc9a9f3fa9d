// The formatting service: conversions, flags, typed-argument errors and the
// report that the buffer is too small.
#include <gtest/gtest.h>

#include <climits>
#include <deque>
#include <string>
#include <vector>

#include "core/format.h"

namespace {

using gslu::FormatStatus;
using gslu::typedArg;

// An integer argument: a pointer to a lasting copy of v.
template <class T>
gsluArg arg(T v) {
  static std::deque<T> kept;
  return typedArg(&kept.emplace_back(v));
}
gsluArg arg(const char *text) { return typedArg(text); }

struct FormatCase {
  const char *format;
  std::vector<gsluArg> args;
  std::string expected;
  FormatStatus status = FormatStatus::kOk;
};

void PrintTo(const FormatCase &c, std::ostream *os) { *os << '"' << c.format << '"'; }

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
        FormatCase{"%s\n", {arg("abc")}, "abc\n"},
        FormatCase{"%5s|%-5s|", {arg("abc"), arg("abc")}, "  abc|abc  |"},
        FormatCase{"%.2s", {arg("abc")}, "ab"},
        FormatCase{"%.2s|", {arg("a\xC3\xA9")}, "a|"},  // no half character
        FormatCase{"%s", {typedArg(static_cast<const char *>(nullptr))}, "<null arg>"},
        FormatCase{"%d", {arg(-42)}, "-42"}, FormatCase{"%i", {arg(42)}, "42"},
        FormatCase{"%5d|%-5d|", {arg(42), arg(42)}, "   42|42   |"},
        FormatCase{"%05d", {arg(-42)}, "-0042"},
        FormatCase{"%+d % d", {arg(42), arg(42)}, "+42  42"},
        FormatCase{"%.3d|%5.3d", {arg(7), arg(7)}, "007|  007"},
        FormatCase{"[%.0d]", {arg(0)}, "[]"}, FormatCase{"%u", {arg(-1)}, "4294967295"},
        FormatCase{"%x %X %#x %#X %#x",
                   {arg(255), arg(255), arg(255), arg(255), arg(0)},
                   "ff FF 0xff 0XFF 0"},
        FormatCase{"%lu", {arg(-1)}, "18446744073709551615"},
        FormatCase{"%d", {arg(int64_t{1} << 40)}, "1099511627776"},
        FormatCase{"%d %lld",
                   {arg(INT32_MIN), arg(int64_t{INT64_MIN})},
                   "-2147483648 -9223372036854775808"},
        FormatCase{"%hd %hu", {arg(65537), arg(-1)}, "1 65535"},
        FormatCase{"%c%3c%-2c|", {typedArg('x'), typedArg('y'), typedArg('z')}, "x  yz |"},
        FormatCase{"100%%", {}, "100%"},
        FormatCase{"%d", {arg("text")}, "", FormatStatus::kBadArgument},
        FormatCase{"%s", {arg(42)}, "", FormatStatus::kBadArgument},
        FormatCase{"%c", {arg(42)}, "", FormatStatus::kBadArgument},
        FormatCase{"%d %d", {arg(42)}, "", FormatStatus::kBadArgument},
        FormatCase{"%d", {gsluArg{GSLUF_ARG_INT32_PTR, {}}}, "", FormatStatus::kBadArgument},
        FormatCase{"%d", {gsluArg{99, {}}}, "", FormatStatus::kBadArgument},
        FormatCase{"%f", {arg(42)}, "", FormatStatus::kBadConversion},
        FormatCase{"trailing %", {}, "", FormatStatus::kBadConversion},
        FormatCase{"%2000000d", {arg(42)}, "", FormatStatus::kBadConversion},
        FormatCase{"%300d", {arg(42)}, "", FormatStatus::kTooSmall}));

// The report that the buffer is too small keeps what fits, without
// splitting a character, and writes nothing beyond the limit.
TEST(FormatTooSmall, KeepsWhatFitsWithoutSplittingCharacters) {
  const struct {
    std::size_t limit;
    const char *text;
    std::string kept;
  } cases[] = {{4, "abcdef", "abc"},
               {3, "a\xC3\xA9", "a"},
               {4, "a\xE2\x82\xAC", "a"},
               {4, "ab\xFF\xFF", "ab\xFF"}};
  for (const auto &c : cases) {
    std::vector<char> buffer(c.limit + 8, 'X');
    const gsluArg text = arg(c.text);
    const gslu::Formatted f = gslu::formatTyped(buffer.data(), c.limit, "%s", &text, 1);
    EXPECT_EQ(f.status, FormatStatus::kTooSmall);
    EXPECT_EQ(std::string(buffer.data(), f.length), c.kept);
    EXPECT_EQ(buffer[f.length], '\0');
    EXPECT_EQ(buffer[c.limit], 'X') << c.limit;  // nothing beyond the limit
  }
}

}  // namespace
