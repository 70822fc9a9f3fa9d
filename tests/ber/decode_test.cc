// Decoding: the rules for malformed and unusual input (through our driver,
// so through the exported API), the clean-up of a failing ber_scanf, the
// allocation-failure sweep, and the get functions that no format reaches.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ber/decode.h"
#include "ber/encode.h"
#include "ber/io.h"
#include "core/memory.h"
#include "tests/ber/ber_test_support.h"
#include "tests/support/test_allocator.h"

namespace {

struct Rule {
  const char *name, *format, *hex, *answer;  // hex: the bytes to read; answer: the driver's
};

class BerDecodingRule : public ::testing::TestWithParam<Rule> {};

TEST_P(BerDecodingRule, Reads) {
  const std::string bytes = qtest::hexOf(qtest::bytesOf(GetParam().hex));
  const std::string request =
      std::string("D ") + GetParam().format + " " + (bytes.empty() ? "-" : bytes);
  EXPECT_EQ(qtest::ask(QUILLOMAT_BER_DRIVER, {request})[0], GetParam().answer);
}

void PrintTo(const Rule &c, std::ostream *os) { *os << c.name; }

INSTANTIATE_TEST_SUITE_P(
    Rules, BerDecodingRule,
    ::testing::Values(
        Rule{"IndefiniteLengthIsKeptAsEmpty", "a", "04 80", "OK -"},
        Rule{"LengthOfFourBytes", "a", "04 84 00000001 61", "OK 61"},
        Rule{"LengthOfFiveBytesFails", "a", "04 85 0000000001 61", "ERR"},
        Rule{"LengthLongerThanWhatRemainsFails", "a", "04 02 61", "ERR"},
        Rule{"HugeLengthFails", "o", "04 84 ffffffff 61", "ERR"},
        Rule{"TagsOfTwoToFourBytes", "tatata", "5f20 01 61 5f8120 01 61 5f818120 01 61",
             "OK 0x5f20 61 0x5f8120 61 0x5f818120 61"},
        Rule{"TagOfFiveBytesFails", "t", "5f81818181 01 00", "ERR"},
        Rule{"TagEndingEarlyFails", "t", "5f81", "ERR"},
        Rule{"IntegersAreSignExtended", "iiiiii",
             "0201ff 020180 02020080 020480000000 0203800000 0200",
             "OK -1 -128 128 -2147483648 -8388608 0"},
        Rule{"IntegerOfFiveBytesFails", "i", "02 05 0000000001", "ERR"},
        Rule{"BooleanFFReadsAsMinusOne", "b", "01 01 ff", "OK -1"},
        Rule{"NullWithContentFails", "n", "05 01 00", "ERR"},
        Rule{"BitStringsWithoutBitsOrWithZeroBytes", "BB", "03 01 00 03 09 03 0000000000000000",
             "OK -/0 0000000000000000/61"},
        Rule{"BitStringUnusedCountOverSevenFails", "B", "03 02 08 80", "ERR"},
        Rule{"BitStringWithoutUnusedCountFails", "B", "03 00", "ERR"},
        Rule{"BitStringUnusedBitsWithoutBytesFail", "B", "03 01 07", "ERR"},
        Rule{"EmptySequenceGivesNoArray", "vV", "30 00 30 00", "OK 0 0"},
        Rule{"ArrayElementOverrunningItsSequenceFails", "v", "30 03 04 02 61 62", "ERR"},
        Rule{"ArrayElementCutInItsHeaderFails", "V", "30 01 04 00", "ERR"},
        Rule{"SkipPassesTheWholeElementClosingReadsNothing", "{x}]i", "30 03 04 01 61 02 01 05",
             "OK 5"},
        Rule{"LengthAndTagArePeekedTagWithLengthConsumed", "{ltTo", "30 06 a0 04 04 02 61 62",
             "OK 4 0xa0 0xa0 6162"},
        Rule{"AnArrayAfterBracesIsTheSequenceTheyEntered", "({v})i", "30 06 04 01 61 04 01 62 02 01 05",
             "OK 2 61 62 5"},
        Rule{"ArrayInBracketsTakesAnyConstructedTag", "([V])", "a0 03 04 01 61", "OK 1 61"},
        Rule{"BracesInAnEarlierCallEnterTheSequence", "{v", "30 05 04 03 61 62 63", "ERR"},
        Rule{"UnknownLetterFails", "i?", "02 01 05", "ERR"},
        Rule{"NothingToReadFails", "ii", "02 01 05", "ERR"}),
    [](const auto &info) { return std::string(info.param.name); });

gsleBerElement *reading(const std::string &hex) {
  const std::string bytes = qtest::bytesOf(hex);
  const struct berval bv = {static_cast<ber_len_t>(bytes.size()), const_cast<char *>(bytes.data())};
  return gsleioQBerInitBerval(nullptr, &bv);
}

// Everything a scanf of "{aOoBvVi}" hands out.
struct Results {
  char *text = nullptr, *bits = nullptr, **strings = nullptr;
  struct berval *value = nullptr, in_place = {99, nullptr}, **values = nullptr;
  ber_len_t bit_count = 99;
  ber_int_t number = 0;

  uint32_t scan(gsleBerElement *ber, const char *format) {
    return gsledeNBerScanf(nullptr, ber, format, &text, &value, &in_place, &bits, &bit_count,
                           &strings, &values, &number);
  }
  // Through the library's allocator, so that the test allocator sees it.
  void release() {
    for (char **s = strings; s != nullptr && *s != nullptr; ++s) gslumfFree(nullptr, *s);
    for (void *p : {static_cast<void *>(text), static_cast<void *>(in_place.bv_val),
                    static_cast<void *>(bits), static_cast<void *>(strings)})
      gslumfFree(nullptr, p);
    gsledeOBerBvfree(nullptr, value);
    gsledePBerBvecfree(nullptr, values);
  }
  std::string nulled() const {
    return std::to_string(text == nullptr) + std::to_string(value == nullptr) +
           std::to_string(in_place.bv_val == nullptr && in_place.bv_len == 0) +
           std::to_string(bits == nullptr && bit_count == 0) + std::to_string(strings == nullptr) +
           std::to_string(values == nullptr);
  }
};

// When the last letter fails, everything the call had handed out is taken
// back and its out-parameters are null again; the failure is traced with
// the format, and what remained (nothing) is dumped. An unknown letter is
// traced first.
TEST(BerScanf, FailureReleasesEverythingAndNullsTheOutParameters) {
  gsleBerElement *ber =
      reading("30 17  04 01 61  04 02 62 63  04 00  03 02 07 80  30 03 04 01 64  30 03 04 01 65");
  Results r;
  {
    qtest::TestAllocator::Scope allocator;
    qtest::TraceCapture capture;
    EXPECT_EQ(r.scan(ber, "{aOoBvVi}"), LBER_ERROR);
    EXPECT_EQ(qtest::TestAllocator::live, 0);
    EXPECT_EQ(r.nulled(), "111111");
    ASSERT_EQ(capture.lines().size(), 3u);
    EXPECT_EQ(capture.lines()[0], "64 gsledeNBerScanf fmt (%s) ber:\n[{aOoBvVi}]");
    EXPECT_EQ(capture.lines()[2], "64        current len %ld, contents:\n[0]");
    capture.lines().clear();
    EXPECT_EQ(r.scan(ber, "#"), LBER_ERROR);
    EXPECT_EQ(capture.lines()[0], "64 unknown fmt %c\n[#]");
  }
  gsleioGBerFree(nullptr, ber);
}

std::vector<std::string> stringsOf(char **strings) {
  std::vector<std::string> read;
  for (char **s = strings; s != nullptr && *s != nullptr; ++s) read.emplace_back(*s);
  return read;
}

// How clients of the conventional API read a SEQUENCE OF strings: braces
// around v in one call; v reads the elements of the sequence the braces
// entered.
TEST(BerScanf, SequenceOfStringsInBraces) {
  gsleBerElement *ber = reading("30 0c  04 01 61  04 02 62 63  04 03 64 65 66");
  char **strings = nullptr;
  {
    qtest::TestAllocator::Scope allocator;
    EXPECT_NE(gsledeNBerScanf(nullptr, ber, "{v}", &strings), LBER_ERROR);
    EXPECT_EQ(stringsOf(strings), (std::vector<std::string>{"a", "bc", "def"}));
    EXPECT_EQ(ber->ptr, ber->end);
    for (char **s = strings; s != nullptr && *s != nullptr; ++s) gslumfFree(nullptr, *s);
    gslumfFree(nullptr, strings);
    EXPECT_EQ(qtest::TestAllocator::live, 0);
  }
  gsleioGBerFree(nullptr, ber);
}

// An array that cannot be read after braces takes back the string read
// before it in the same call.
TEST(BerScanf, NestedArrayFailingReleasesTheStringBeforeIt) {
  gsleBerElement *ber = reading("30 09  04 01 78  30 04 04 01 61 04");
  char *text = nullptr, **strings = nullptr;
  {
    qtest::TestAllocator::Scope allocator;
    EXPECT_EQ(gsledeNBerScanf(nullptr, ber, "{a{v}}", &text, &strings), LBER_ERROR);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(strings, nullptr);
    EXPECT_EQ(qtest::TestAllocator::live, 0);
  }
  gsleioGBerFree(nullptr, ber);
}

// Encodes a document that grows past the inline buffer and nests twelve
// deep, and reads it back with every allocating letter; the first failure
// stops it. Every block is released whatever happens.
bool encodeAndDecode() {
  const std::string big(2000, 'z');
  char one[] = "one", *strings[] = {one, nullptr};
  struct berval value = {3, one}, *values[] = {&value, nullptr};
  gsleBerElement *out = gsleioJDerAlloc(nullptr);
  bool ok = out != nullptr &&
            gsleenSBerPrintf(nullptr, out, "{{{{{{{{{{{{o}}}}}}}}}}}}{sooB{v}{V}i}", big.data(),
                             ber_len_t{2000}, "a", "bc", ber_len_t{2}, "", ber_len_t{0}, "\x80",
                             ber_len_t{1}, strings, values, 5) > 0;
  struct berval *flat = nullptr;
  ok = ok && gsleioPBerFlatten(nullptr, out, &flat) == 0;
  gsleioGBerFree(nullptr, out);
  gsleBerElement *in = ok ? gsleioQBerInitBerval(nullptr, flat) : nullptr;
  gsledeOBerBvfree(nullptr, flat);
  Results r;
  ok = in != nullptr && r.scan(in, "{{{{{{{{{{{{x}}}}}}}}}}}}{aOoBvVi}") == LBER_INTEGER;
  gsleioGBerFree(nullptr, in);
  r.release();
  return ok;
}

TEST(BerAllocation, EveryFailureIsReportedAndLeavesNothingBehind) {
  qtest::TestAllocator::Scope allocator;
  size_t n = 0;
  for (bool ok = false; !ok && n < 200; ++n) {
    qtest::TestAllocator::budget = n;
    ok = encodeAndDecode();
    EXPECT_EQ(qtest::TestAllocator::live, 0) << "allocation " << n;
  }
  EXPECT_GT(n, 15u);
  EXPECT_LT(n, 200u);
}

// A string into the caller's buffer must fit with its NUL; the walk over a
// sequence's elements stops at its end, and needs its header whole.
TEST(BerGet, StringIntoBufferAndElementWalk) {
  gsleBerElement *ber = reading("04 03 61 62 63");
  char buffer[4] = {};
  uint32_t sizes[] = {3, 4};
  EXPECT_EQ(gsledeFBerGetStringb(nullptr, ber, buffer, &sizes[0]), LBER_ERROR);
  ber->ptr = ber->buf;
  EXPECT_EQ(gsledeFBerGetStringb(nullptr, ber, buffer, &sizes[1]), LBER_OCTETSTRING);
  EXPECT_EQ(std::string(buffer) + std::to_string(sizes[0]) + std::to_string(sizes[1]), "abc33");
  gsleioGBerFree(nullptr, ber);
  ber = reading("30 06 02 01 01 04 01 61 02 01 09");
  uint32_t length = 99;
  unsigned char *last = nullptr;
  std::vector<uint32_t> tags;
  for (uint32_t tag = gsledeLBerFirstElement(nullptr, ber, &length, &last); tag != LBER_DEFAULT;
       tag = gsledeMBerNextElement(nullptr, ber, &length, last)) {
    tags.push_back(tag + length);
    ber->ptr += 2 + length;  // the caller reads or skips each element
  }
  EXPECT_EQ(tags, (std::vector<uint32_t>{0x03, 0x05}));
  EXPECT_EQ(last, ber->ptr);
  gsleioGBerFree(nullptr, ber);
  ber = reading("30 07 02 01 01");
  EXPECT_EQ(gsledeLBerFirstElement(nullptr, ber, &length, &last), LBER_ERROR);
  EXPECT_EQ(last, nullptr);
  gsleioGBerFree(nullptr, ber);
}

}  // namespace
