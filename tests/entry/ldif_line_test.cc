// Tests of entry/ldif_line.h: the plain-or-base64 decision, folding, the
// padding across a fold, the binary list and the block size.
#include "entry/ldif_line.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "core/memory.h"
#include "entry/base64.h"

namespace {

std::string lineOf(const std::string &type, const std::string &value) {
  char *text =
      gsldlDLdifTypeAndValue(type.c_str(), value.data(), static_cast<uint32_t>(value.size()));
  EXPECT_NE(text, nullptr);
  std::string s = text != nullptr ? text : "";
  gslumfFree(nullptr, text);
  return s;
}

struct LineCase {
  const char *name;
  std::string type;
  std::string value;
  std::string expected;
};

void PrintTo(const LineCase &c, std::ostream *os) { *os << c.name; }

// The value forms of the golden document 004 are not repeated here.
const LineCase kLines[] = {
    {"LeadingNul", "cn", std::string("\0x", 2), "cn:: AHg=\n"},
    {"LeadingTab", "cn", "\tx", "cn:: CXg=\n"},
    {"NulAfterAnOffendingByteIsBase64", "cn", std::string("a\x01\0", 3), "cn:: YQEA\n"},
    {"HighByteFirst", "x", std::string("\x80", 1) + "oobar", "x:: gG9vYmFy\n"},
    {"ControlByteInsideAWordOfText", "cn", "abc\001defg", "cn:: YWJjAWRlZmc=\n"},
    // Exactly filling the first line does not start an empty continuation.
    {"FirstLineHolds78", "cn", std::string(74, 'x'), "cn: " + std::string(74, 'x') + "\n"},
    {"The79thCharacterContinues", "cn", std::string(75, 'x'),
     "cn: " + std::string(74, 'x') + "\n x\n"},
    {"ALongTypeFoldsBeforeTheFirstCharacter", std::string(76, 't'), "ab",
     std::string(76, 't') + ": \n ab\n"},
    {"ATypeOf75FoldsAfterIt", std::string(75, 't'), "ab", std::string(75, 't') + ": a\n b\n"},
};

class LineTest : public ::testing::TestWithParam<LineCase> {};

TEST_P(LineTest, WritesTheExpectedLine) {
  EXPECT_EQ(lineOf(GetParam().type, GetParam().value), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Values, LineTest, ::testing::ValuesIn(kLines),
                         [](const auto &info) { return std::string(info.param.name); });

// Deliberate: when a fold falls inside the last group, the padding reads
// right once unfolded: the "=" lands before the fold, the space stays.
TEST(LineFolding, PaddingAcrossAFoldKeepsTheContinuationSpace) {
  std::string value(52, 'y');
  value[0] = ' ';
  const std::string line = lineOf("abc", value);
  EXPECT_TRUE(line.ends_with("eQ=\n =\n")) << line;
  std::string unfolded;
  for (size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '\n' && i + 1 < line.size() && line[i + 1] == ' ') {
      ++i;
      continue;
    }
    unfolded += line[i];
  }
  EXPECT_TRUE(unfolded.ends_with("eQ==\n")) << unfolded;
}

TEST(LinePut, AdvancesPastTheNewlineAndWritesNoNul) {
  char buffer[64];
  std::memset(buffer, '#', sizeof buffer);
  char *p = buffer;
  gsldlCPutTypeAndValue(&p, "cn", "x", 1);
  EXPECT_EQ(std::string(buffer, static_cast<size_t>(p - buffer)), "cn: x\n");
  EXPECT_EQ(*p, '#');
  gsldlCPutTypeAndValue(nullptr, "cn", "x", 1);  // nothing to write to
}

// A type that would break the line structure gives no line at all; the
// names a record refuses besides (dn, changetype, control) are its business.
TEST(LineType, TypesThatBreakTheLineAreRefused) {
  for (const char *type : {"cn\ndn: cn=x", " cn", "#cn", "c\x7fn"}) {
    EXPECT_EQ(gsldlVTypeCheck(type), GSLDL_TYPE_REFUSED) << type;
    EXPECT_EQ(gsldlDLdifTypeAndValue(type, "x", 1), nullptr) << type;
    char buffer[16] = "#";
    char *p = buffer;
    gsldlCPutTypeAndValue(&p, type, "x", 1);
    EXPECT_EQ(p, buffer) << type;
  }
  EXPECT_EQ(gsldlVTypeCheck(nullptr), GSLDL_TYPE_REFUSED);
  EXPECT_EQ(gsldlVTypeCheck("dn"), GSLDL_TYPE_OK);
}

// Every binary type by its documented spelling, so that a name misspelt in
// the list is caught, and the forms around them.
TEST(LineType, BinaryTypes) {
  for (const char *type :
       {"photo", "personalSignature", "audio", "jpegPhoto", "javaSerializedObject",
        "thumbnailPhoto", "thumbnailLogo", "userCertificate", "cACertificate",
        "authorityRevocationList", "certificateRevocationList", "crossCertificatePair",
        "x500UniqueIdentifier", "JPEGPHOTO", "userCertificate;binary", "cn;BINARY"}) {
    EXPECT_EQ(gsldlEIsBinary(type), GSLDL_BINARY) << type;
  }
  // Only the first ";binary" counts, and it must end the type.
  for (const char *type : {"photography", "x;binary;lang-en", "x;binary;binary",
                           "jpegPhoto;lang-en", "", static_cast<const char *>(nullptr)}) {
    EXPECT_EQ(gsldlEIsBinary(type), GSLDL_NOT_BINARY) << (type ? type : "(null)");
  }
}

// ---- Folding against the line rules applied one character at a time.

// Appends s to line the way the rules fold it: before a character written
// while the column counter is past 76, "\n " and column 1.
void appendFolded(std::string &line, size_t *column, const std::string &s) {
  for (char c : s) {
    if (*column > 76) {
      line += "\n ";
      *column = 1;
    }
    line += c;
    ++*column;
  }
}

// The base64 line as the rules build it: the digits of the zero-padded
// final group written and folded like the others, then the last 3 - r
// characters overwritten with "=", an "=" meant for the space that opens a
// continuation line going to the character before that line's newline.
std::string ruleBase64Line(const std::string &type, const std::string &value) {
  std::vector<char> digits(
      gsluztvb64gol(static_cast<uint32_t>(value.size()), GSLUZTV_B64_SIZE_ENCODE));
  const uint32_t n = gsluztvb64ecr(value.data(), static_cast<uint32_t>(value.size()), digits.data(),
                                   GSLUZTV_B64_LINE_NEVER);
  std::string text(digits.data(), n);
  const size_t pads = text.size() - text.find_last_not_of('=') - 1;
  for (size_t i = text.size() - pads; i < text.size(); ++i) text[i] = 'A';  // the zero digit
  std::string line = type + ":: ";
  size_t column = type.size() + 3;
  appendFolded(line, &column, text);
  for (size_t k = 1; k <= pads; ++k) {
    const size_t pos = line.size() - k;
    const bool continuation_space = line[pos] == ' ' && line[pos - 1] == '\n';
    line[continuation_space ? pos - 2 : pos] = '=';
  }
  return line + "\n";
}

std::string rulePlainLine(const std::string &type, const std::string &value) {
  std::string line = type + ": ";
  size_t column = type.size() + 1;  // the space after the colon is not counted
  appendFolded(line, &column, value);
  return line + "\n";
}

// Type lengths move the first fold through every position inside a group of
// four digits; value lengths give every remainder and fold count.
struct FoldCase {
  const char *name;
  bool base64;
};

void PrintTo(const FoldCase &c, std::ostream *os) { *os << c.name; }

class FoldRules : public ::testing::TestWithParam<FoldCase> {};

TEST_P(FoldRules, EveryTypeAndValueLengthFoldsAsTheRulesSay) {
  for (size_t t = 0; t <= 82; ++t) {
    const std::string type(t, 't');
    for (size_t n = 0; n <= 240; ++n) {
      std::string value(n, 'v');
      for (size_t i = 0; i < n; ++i)
        value[i] = static_cast<char>(GetParam().base64 ? 0x80 + i * 7 : 'a' + i % 26);
      const std::string expected = n == 0              ? type + ": \n"
                                   : GetParam().base64 ? ruleBase64Line(type, value)
                                                       : rulePlainLine(type, value);
      ASSERT_EQ(lineOf(type, value), expected) << "type length " << t << ", value length " << n;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, FoldRules,
                         ::testing::Values(FoldCase{"Plain", false}, FoldCase{"Base64", true}),
                         [](const auto &info) { return std::string(info.param.name); });

}  // namespace
