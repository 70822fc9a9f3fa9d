// Message lookup and the catalogue format.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "core/context_internal.h"
#include "core/messages.h"
#include "tests/support/test_support.h"

namespace {

using qtest::TempDir;

TEST(Messages, KnownAndUnknownNumbers) {
  const char *text = nullptr;
  int status = -1;
  ASSERT_EQ(gslusgmGetMessage(nullptr, GSLUSGM_DOCUMENT_NOT_CONVERTED, &text, &status), GSLUSGM_OK);
  EXPECT_EQ(status, 0);
  EXPECT_NE(std::strstr(text, "could not be converted"), nullptr);
  ASSERT_EQ(gslusgmGetMessage(nullptr, GSLUSGM_UNKNOWN_NUMBER, &text, nullptr), GSLUSGM_OK);
  const std::string unknown_text = text;
  status = -1;
  EXPECT_EQ(gslusgmGetMessage(nullptr, 12345, &text, &status), GSLUSGM_NOT_FOUND);
  EXPECT_EQ(unknown_text, text);
  EXPECT_EQ(status, -1) << "a failed lookup leaves the status alone";
  EXPECT_EQ(gslusngmNlsGetMessage(nullptr, 12345, &text, &status), GSLUSGM_NOT_FOUND);
  EXPECT_EQ(unknown_text, text);
}

// The copy never writes past size bytes, also when size is exactly the
// text's length, and always ends with a NUL.
TEST(Messages, BufferedFormIsBounded) {
  const char *text = nullptr;
  ASSERT_EQ(gslusgmGetMessage(nullptr, 2101, &text, nullptr), GSLUSGM_OK);
  const std::size_t length = std::strlen(text);
  for (std::size_t size : {std::size_t{1}, std::size_t{8}, length, length + 1}) {
    std::string buf(length + 8, 'x');
    EXPECT_EQ(gslusgmGetMessage_r(nullptr, 2101, buf.data(), size, nullptr), GSLUSGM_OK);
    EXPECT_EQ(std::strlen(buf.c_str()), std::min(size - 1, length)) << size;
    EXPECT_EQ(buf[size], 'x') << size;
  }
}

TEST(Messages, ContextWithoutHandlesGivesTheFixedTexts) {
  auto *bare = new gsluctx{};  // as a start-up that stopped half-way
  const char *text = nullptr;
  int status = 77;
  EXPECT_EQ(gslusgmGetMessage(bare, 2101, &text, &status), GSLUSGM_NOT_FOUND);
  EXPECT_STREQ(text, "Unable To create LDAP error message from mesg no.");
  EXPECT_EQ(status, 77);
  char buf[128];
  EXPECT_EQ(gslusgmGetMessage_r(bare, 2101, buf, sizeof buf, &status), GSLUSGM_NOT_FOUND);
  EXPECT_STREQ(buf, "Unable To create LDAP error Message for error:2101\n");
  delete bare;
}

// Catalogue files that must be refused, each naming its bad line (or the
// file, when there is none).
TEST(Catalogue, BadFilesAreRefusedWithTheirLineNumber) {
  const std::pair<const char *, const char *> cases[] = {
      // content, where
      {nullptr, "/ldap.msg"},
      {"text without number\n", "ldap.msg:1:"},
      {"# c\n\n 12 indented\n", "ldap.msg:3:"},
      {"12\n", "ldap.msg:1:"},
      {"12   \n", "ldap.msg:1:"},
      {"12x text\n", "ldap.msg:1:"},
      {"0 zero\n", "ldap.msg:1:"},
      {"4294967296 too big\n", "ldap.msg:1:"},
      {"1 a\n2 b\n1 again\n", "ldap.msg:3:"},
      {"1 bad \\q escape\n", "ldap.msg:1:"},
      {"1 trailing backslash\\\n", "ldap.msg:1:"}};
  gslu::Language utf8{};
  gslu::languageDefaultUtf8(&utf8);
  for (const auto &[content, where] : cases) {
    TempDir dir;
    if (content != nullptr) dir.write("ldap.msg", content);
    gslu::MessageHandle h{};
    gslu::MsgWhy why{};
    EXPECT_FALSE(gslu::msgOpen(&h, nullptr, dir.path().c_str(), "ldap", utf8, &why)) << where;
    EXPECT_NE(std::strstr(why.text, where), nullptr) << why.text;
    EXPECT_EQ(h.catalog, nullptr);
  }
}

TEST(Catalogue, EscapesCommentsAndOutputCharacterSet) {
  TempDir dir;
  dir.write("ldap.msg",
            "# comment\r\n\n7\tTab\\tand\\nnewline\\\\ end\r\n"
            "4294967295 largest\n8 Zürich €\n");
  gslu::Language utf8{};
  gslu::languageDefaultUtf8(&utf8);
  gslu::Language latin1 = utf8;
  ASSERT_TRUE(gslu::languageSetCodeset(&latin1, "ISO-8859-1"));

  char buf[2048];
  gslu::MessageHandle h{};
  gslu::MsgWhy why{};
  ASSERT_TRUE(gslu::msgOpen(&h, nullptr, dir.path().c_str(), "ldap", utf8, &why)) << why.text;
  ASSERT_TRUE(gslu::msgSetBuffer(&h, buf, sizeof buf) && gslu::msgBind(&h));
  for (const auto &[number, text] :
       {std::pair<uint32_t, const char *>{7, "Tab\tand\nnewline\\ end"},
        {4294967295u, "largest"},
        {8, "Z\xc3\xbcrich \xe2\x82\xac"}}) {
    EXPECT_STREQ(gslu::msgLookup(&h, number), text);
    EXPECT_EQ(h.error, 0u);
  }
  (void)gslu::msgLookup(&h, 9);
  EXPECT_NE(h.error, 0u);

  // The output-language handle, made from the open one without reading the
  // file again, delivers Latin-1, with '?' for what Latin-1 cannot hold; a
  // UTF-8 one shares the texts and outlives the handle it came from.
  char latin1_buf[2048];
  gslu::MessageHandle out{};
  ASSERT_TRUE(gslu::msgOpenFor(&out, h, latin1, &why)) << why.text;
  ASSERT_TRUE(gslu::msgSetBuffer(&out, latin1_buf, sizeof latin1_buf) && gslu::msgBind(&out));
  EXPECT_STREQ(gslu::msgLookup(&out, 8), "Z\xfcrich ?");
  gslu::msgClose(&out);
  ASSERT_TRUE(gslu::msgOpenFor(&out, h, utf8, &why));
  gslu::msgClose(&h);
  ASSERT_TRUE(gslu::msgSetBuffer(&out, latin1_buf, sizeof latin1_buf) && gslu::msgBind(&out));
  EXPECT_STREQ(gslu::msgLookup(&out, 4294967295u), "largest");
  gslu::msgClose(&out);
}

}  // namespace
