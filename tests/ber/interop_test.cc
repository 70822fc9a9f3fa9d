// Interoperability with OpenLDAP's liblber, an implementation nobody here
// wrote, used as a black box in a process of its own: both sides encode
// the same format and values (the bytes must be equal), each decodes the
// other's bytes (the values must come back), and every proper prefix of an
// encoding fails to decode on our side. See tests/ber/ber_driver.c for the
// request language.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/ber/ber_test_support.h"

namespace {

// n bytes counting up from first, in hex ("-" for none).
std::string counting(size_t n, unsigned first = 0) {
  std::string bytes;
  for (size_t i = 0; i < n; ++i) bytes += static_cast<char>(first + i);
  return n == 0 ? "-" : qtest::hexOf(bytes.data(), n);
}
std::string text(const std::string &s) {
  return s.empty() ? "-" : qtest::hexOf(s.data(), s.size());
}

// Both sides encode (the bytes must be equal), each decodes the other's
// bytes (the values must come back), and every proper prefix of the
// encoding fails to decode on our side.
void checkCase(const std::string &mode, const std::string &encode, const std::string &tokens,
               const std::string &decode, const std::string &values) {
  const std::vector<std::string> request = {"E " + mode + " " + encode + " " + tokens};
  const std::string mine = qtest::ask(QUILLOMAT_BER_DRIVER, request)[0];
  ASSERT_EQ(mine.substr(0, 3), "OK ");
  EXPECT_EQ(qtest::ask(QUILLOMAT_LIBLBER_ORACLE, request)[0], mine);
  std::vector<std::string> reads = {"D " + decode + " " + mine.substr(3)},
                           expected = {values.empty() ? "OK" : "OK " + values};
  EXPECT_EQ(qtest::ask(QUILLOMAT_LIBLBER_ORACLE, reads), expected);
  for (size_t cut = 3; cut < mine.size(); cut += 2) {
    reads.push_back("D " + decode + " " + (cut == 3 ? "-" : mine.substr(3, cut - 3)));
    expected.push_back("ERR");
  }
  EXPECT_EQ(qtest::ask(QUILLOMAT_BER_DRIVER, reads), expected);
}

struct Case {
  const char *name, *mode;
  std::string encode, tokens, decode, values;  // values: empty for the tokens
};

class BerInterop : public ::testing::TestWithParam<Case> {};

TEST_P(BerInterop, SameBytesEachReadsTheOtherAndPrefixesFail) {
  const Case &c = GetParam();
  checkCase(c.mode, c.encode, c.tokens, c.decode, c.values.empty() ? c.tokens : c.values);
}

const std::string kDn = text("cn=admin,o=ex"), kSecret = text(
                                                   "s\xc3\xa9"
                                                   "cret");

void PrintTo(const Case &c, std::ostream *os) { *os << c.name; }

INSTANTIATE_TEST_SUITE_P(
    Table, BerInterop,
    ::testing::Values(
        Case{"Integers", "der", "iiiiiiiiei",
             "0 127 128 -1 -129 -128 256 -2147483648 2147483647 65535", "iiiiiiiiie", ""},
        Case{"BooleansAndNull", "der", "bbbn", "1 0 -5", "bbbn", "-1 0 -1"},
        Case{"OctetStringLengths", "der", "oooooos",
             counting(0) + " " + counting(127) + " " + counting(128) + " " + counting(255) + " " +
                 counting(256) + " " + counting(1025) + " " + kSecret,
             "oOsoOsa", ""},
        Case{"BitStrings", "der", "BBBB", "80/1 ff80/9 abcd/16 fe/7", "BBBB", ""},
        Case{"TagsOfOneToFourBytes", "der", "tttotntbti",
             "0x80 0x5f20 0x5f8120 - 0x5f818120 0x81 1 0x9f1f -5", "totntbti",
             "0x5f8120 - 0x5f818120 0x81 -1 0x9f1f -5"},
        Case{"SequencesAndSetsFiveByteLengths", "ber", "{i}[s]{}", "5 " + text("ab"), "{i}[a]{}",
             ""},
        Case{"TenNestedShortest", "der", "{{{{{{{{{{i}}}}}}}}}}", "9", "{{{{{{{{{{i}}}}}}}}}}", ""},
        Case{"BindRequest", "der", "{it{ists}}", "1 0x60 3 " + kDn + " 0x80 " + kSecret, "{iTiato}",
             ""},
        Case{"SearchRequest", "ber", "{it{seeiibt{ss}{v}}}",
             "2 0x63 " + kDn + " 2 0 0 0 0 0xa3 " + text("cn") + " " + text("a") + " 2 " +
                 text("cn") + " " + text("mail"),
             "{iTaeeiibTaa}v}}", ""},
        Case{"StringArrays", "der", "{v}{V}", "3 61 6263 " + kDn + " 2 00ff " + counting(300), "vV",
             ""},
        // One ber_scanf call each: an opening letter right before v or V
        // leaves the header to the array letter.
        Case{"SequenceOfStringsInBraces", "der", "{v}", "3 61 6263 646566", "({v})", ""},
        Case{"SetOfStringsInBrackets", "ber", "[v]", "2 " + kDn + " " + counting(200, 1), "([v])",
             ""},
        Case{"SequenceOfBervalsInBraces", "der", "{V}", "2 00ff " + counting(300), "({V})", ""},
        Case{"EmptySequenceInBraces", "der", "{v}", "0", "({v})", ""},
        Case{"ArrayAfterAStringAndNested", "der", "{s{v}[V]}",
             kDn + " 3 61 6263 646566 1 " + kSecret, "({a{v})([V]})", ""},
        Case{"ClosingLettersCheckNothing", "ber", "{{v}i}{V}", "2 61 6263 7 1 64", "({{v}}})i(V)",
             ""},
        Case{"GrowthPastTheInlineBuffer", "ber", "{o{o}}", counting(1025) + " " + counting(3000, 7),
             "{o{o}}", ""},
        Case{"SkipAndPeekLength", "der", "{iso}", "1 78 " + counting(300), "{xxlo}",
             "300 " + counting(300)}),
    [](const auto &info) { return std::string(info.param.name); });

}  // namespace
