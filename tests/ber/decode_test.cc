// Decoding: the rules for malformed and unusual input (through the driver,
// so through the exported API), and in process the clean-up of a failing
// ber_scanf, the allocation-failure sweep and the element walk.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ber/decode.h"
#include "ber/encode.h"
#include "ber/io.h"
#include "ber/lber.h"
#include "core/memory.h"
#include "tests/ber/ber_test_support.h"
#include "tests/ber/driver_process.h"
#include "tests/support/test_allocator.h"

namespace {

using qtest::Trace;

struct Rule {
  const char *name;
  const char *format;
  const char *hex;     // the bytes to read ("-": none)
  const char *answer;  // the driver's: "OK <values>" or "ERR"
};
void PrintTo(const Rule &r, std::ostream *os) { *os << r.name; }

class BerDecodingRule : public ::testing::TestWithParam<Rule> {
 public:
  static void SetUpTestSuite() { driver_ = new qtest::DriverProcess(QUILLOMAT_BER_DRIVER); }
  static void TearDownTestSuite() {
    EXPECT_EQ(driver_->finish(), 0);  // under the sanitizers: nothing leaked
    delete driver_;
  }
  static inline qtest::DriverProcess *driver_ = nullptr;
};

TEST_P(BerDecodingRule, Reads) {
  const Rule &r = GetParam();
  EXPECT_EQ(driver_->request(std::string("D ") + r.format + " " + qtest::withoutSpaces(r.hex)),
            r.answer);
}

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
        Rule{"IntegersAreSignExtended", "iiiii", "0201ff 020180 02020080 020480000000 0203800000",
             "OK -1 -128 128 -2147483648 -8388608"},
        Rule{"EmptyIntegerIsZero", "i", "02 00", "OK 0"},
        Rule{"IntegerOfFiveBytesFails", "i", "02 05 0000000001", "ERR"},
        Rule{"BooleanFFReadsAsMinusOne", "b", "01 01 ff", "OK -1"},
        Rule{"NullWithContentFails", "n", "05 01 00", "ERR"},
        Rule{"BitStringWithoutBits", "B", "03 01 00", "OK -/0"},
        Rule{"BitStringWithZeroBytes", "B", "03 09 03 0000000000000000", "OK 0000000000000000/61"},
        Rule{"BitStringUnusedCountOverSevenFails", "B", "03 02 08 80", "ERR"},
        Rule{"BitStringWithoutUnusedCountFails", "B", "03 00", "ERR"},
        Rule{"BitStringUnusedBitsWithoutBytesFail", "B", "03 01 07", "ERR"},
        Rule{"EmptySequenceGivesNoArray", "vV", "30 00 30 00", "OK 0 0"},
        Rule{"ArrayElementOverrunningItsSequenceFails", "v", "30 03 04 02 61 62", "ERR"},
        Rule{"ArrayElementCutInItsHeaderFails", "V", "30 01 04 00", "ERR"},
        Rule{"SkipPassesTheWholeElement", "{xi}", "30 06 04 01 61 02 01 05", "OK 5"},
        Rule{"LengthIsPeekedNotConsumed", "{lo}", "30 04 04 02 61 62", "OK 2 6162"},
        Rule{"TagIsPeekedNotConsumed", "ti", "80 01 05", "OK 0x80 5"},
        Rule{"TagWithLengthIsConsumed", "Ti", "a0 03 02 01 05", "OK 0xa0 5"},
        Rule{"ClosingLettersReadNothing", "}]i", "02 01 05", "OK 5"},
        Rule{"UnknownLetterFails", "i?", "02 01 05", "ERR"},
        Rule{"NothingToReadFails", "ii", "02 01 05", "ERR"}),
    [](const auto &info) { return std::string(info.param.name); });

// A fresh element reading the bytes given in hex.
gsleBerElement *reading(const std::string &hex) {
  const std::string bytes = qtest::bytesOf(hex);
  const struct berval bv = {static_cast<ber_len_t>(bytes.size()), const_cast<char *>(bytes.data())};
  return gsleioQBerInitBerval(nullptr, &bv);
}

constexpr ber_len_t kLen(size_t n) { return static_cast<ber_len_t>(n); }

// Everything a scanf of kAllLetters hands out.
struct Results {
  char *text = nullptr;
  struct berval *value = nullptr;
  struct berval in_place = {0, nullptr};
  char *bits = nullptr;
  ber_len_t bit_count = 0;
  char **strings = nullptr;
  struct berval **values = nullptr;
  ber_int_t number = 0;

  uint32_t scan(gsleBerElement *ber, const char *format) {
    return gsledeNBerScanf(nullptr, ber, format, &text, &value, &in_place, &bits, &bit_count,
                           &strings, &values, &number);
  }
  // Through the library's allocator (what the caller's free() amounts to
  // when the embedding program installed none), so the test allocator
  // sees every release.
  void release() {
    gslumfFree(nullptr, text);
    gsledeOBerBvfree(nullptr, value);
    gslumfFree(nullptr, in_place.bv_val);
    gslumfFree(nullptr, bits);
    for (char **s = strings; s != nullptr && *s != nullptr; ++s) gslumfFree(nullptr, *s);
    gslumfFree(nullptr, strings);
    gsledePBerBvecfree(nullptr, values);
  }
};

constexpr char kAllLetters[] = "{aOoBvVi}";
const std::string kAllButInteger =
    "30 17  04 01 61  04 02 62 63  04 00  03 02 07 80  30 03 04 01 64  30 03 04 01 65";

// When the last letter fails, everything the call had handed out is taken
// back and its out-parameters are null again; the failure is traced with
// the format, followed by a dump of what remained (nothing).
TEST(BerScanf, FailureReleasesEverythingAndNullsTheOutParameters) {
  gsleBerElement *ber = reading(kAllButInteger);
  Results r;
  r.in_place = {99, nullptr};
  r.bit_count = 99;
  {
    qtest::TestAllocator::Scope allocator;
    qtest::TraceCapture capture;
    EXPECT_EQ(r.scan(ber, kAllLetters), LBER_ERROR);
    EXPECT_EQ(qtest::TestAllocator::live, 0);
    ASSERT_GE(capture.lines().size(), 3u);
    EXPECT_EQ(capture.lines()[0], (Trace{64, "gsledeNBerScanf fmt (%s) ber:\n", {kAllLetters}}));
    EXPECT_EQ(capture.lines()[1].format, "gsleioNBerDump: buf 0x%lx, ptr 0x%lx, end 0x%lx\n");
    EXPECT_EQ(capture.lines()[2], (Trace{64, "       current len %ld, contents:\n", {"0"}}));
  }
  EXPECT_EQ(r.text, nullptr);
  EXPECT_EQ(r.value, nullptr);
  EXPECT_EQ(r.in_place.bv_val, nullptr);
  EXPECT_EQ(r.in_place.bv_len, 0u);
  EXPECT_EQ(r.bits, nullptr);
  EXPECT_EQ(r.bit_count, 0u);
  EXPECT_EQ(r.strings, nullptr);
  EXPECT_EQ(r.values, nullptr);
  gsleioGBerFree(nullptr, ber);
}

TEST(BerScanf, UnknownLetterIsTracedBeforeTheFailure) {
  gsleBerElement *ber = reading("02 01 05");
  qtest::TraceCapture capture;
  ber_int_t n = 0;
  EXPECT_EQ(gsledeNBerScanf(nullptr, ber, "i#", &n), LBER_ERROR);
  ASSERT_GE(capture.lines().size(), 2u);
  EXPECT_EQ(capture.lines()[0], (Trace{64, "unknown fmt %c\n", {"#"}}));
  EXPECT_EQ(capture.lines()[1], (Trace{64, "gsledeNBerScanf fmt (%s) ber:\n", {"i#"}}));
  gsleioGBerFree(nullptr, ber);
}

// Encodes a document that grows past the inline buffer and nests twelve
// deep, flattens it, and reads it back with every allocating letter; the
// first failure stops it. Every block is released whatever happens.
bool encodeAndDecode() {
  const std::string big(2000, 'z');
  char one[] = "one";
  char *strings[] = {one, nullptr};
  struct berval value = {3, one};
  struct berval *values[] = {&value, nullptr};
  gsleBerElement *out = gsleioJDerAlloc(nullptr);
  bool ok =
      out != nullptr && gsleenSBerPrintf(nullptr, out, "{{{{{{{{{{{{o}}}}}}}}}}}}{sooB{v}{V}i}",
                                         big.data(), kLen(2000), "a", "bc", kLen(2), "", kLen(0),
                                         "\x80", kLen(1), strings, values, 5) > 0;
  struct berval *flat = nullptr;
  ok = ok && gsleioPBerFlatten(nullptr, out, &flat) == GSLE_OK;
  gsleioGBerFree(nullptr, out);
  gsleBerElement *in = ok ? gsleioQBerInitBerval(nullptr, flat) : nullptr;
  gsledeOBerBvfree(nullptr, flat);
  Results r;
  ok = in != nullptr && r.scan(in, "{{{{{{{{{{{{x}}}}}}}}}}}}{aOoBvVi}") == 0x02u;
  gsleioGBerFree(nullptr, in);
  r.release();
  return ok;
}

TEST(BerAllocation, EveryFailureIsReportedAndLeavesNothingBehind) {
  qtest::TestAllocator::Scope allocator;
  size_t n = 0;
  for (bool ok = false; !ok; ++n) {
    ASSERT_LT(n, 200u);
    qtest::TestAllocator::budget = n;
    ok = encodeAndDecode();
    EXPECT_EQ(qtest::TestAllocator::live, 0) << "allocation " << n;
  }
  EXPECT_GT(n, 15u);
}

TEST(BerGet, StringIntoBufferMustFitWithItsNul) {
  for (const uint32_t size : {3u, 4u}) {
    gsleBerElement *ber = reading("04 03 61 62 63");
    char buffer[4] = {};
    uint32_t length = size;
    const bool fits = size == 4;
    EXPECT_EQ(gsledeFBerGetStringb(nullptr, ber, buffer, &length), fits ? 0x04u : LBER_ERROR);
    EXPECT_EQ(length, fits ? 3u : size);
    if (fits) {
      EXPECT_STREQ(buffer, "abc");
    }
    gsleioGBerFree(nullptr, ber);
  }
}

TEST(BerGet, ElementWalkStopsAtTheSequenceEnd) {
  gsleBerElement *ber = reading("30 06 02 01 01 04 01 61 02 01 09");
  uint32_t length = 99;
  unsigned char *last = nullptr;
  std::vector<uint32_t> tags;
  for (uint32_t tag = gsledeLBerFirstElement(nullptr, ber, &length, &last); tag != LBER_DEFAULT;
       tag = gsledeMBerNextElement(nullptr, ber, &length, last)) {
    tags.push_back(tag);
    EXPECT_EQ(length, 1u);
    ber->ptr += 2 + length;  // the caller reads or skips each element
  }
  EXPECT_EQ(tags, (std::vector<uint32_t>{0x02, 0x04}));
  EXPECT_EQ(last, ber->ptr);
  gsleioGBerFree(nullptr, ber);
  // A sequence whose header cannot be read: no end to walk to.
  ber = reading("30 07 02 01 01");
  EXPECT_EQ(gsledeLBerFirstElement(nullptr, ber, &length, &last), LBER_ERROR);
  EXPECT_EQ(last, nullptr);
  gsleioGBerFree(nullptr, ber);
}

}  // namespace
