// Encoding: known answers, buffer growth, nesting records, traces, dumps.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ber/encode.h"
#include "ber/io.h"
#include "ber/lber.h"
#include "tests/ber/ber_test_support.h"
#include "tests/support/test_allocator.h"

namespace {

using qtest::Trace;
using Write = std::function<int32_t(gsleBerElement *)>;

// Writes with gsleenSBerPrintf and the given arguments.
template <class... A>
Write printf(const char *format, A... args) {
  return [=](gsleBerElement *b) { return gsleenSBerPrintf(nullptr, b, format, args...); };
}

struct Encoding {
  const char *name;
  int32_t options;
  Write write;
  std::string hex;  // what is written (spaces ignored)
  int32_t result;
};
void PrintTo(const Encoding &e, std::ostream *os) { *os << e.name; }

class BerEncoding : public ::testing::TestWithParam<Encoding> {};

TEST_P(BerEncoding, WritesTheKnownBytes) {
  const Encoding &e = GetParam();
  gsleBerElement *ber = gsleioHBerAllocT(nullptr, e.options);
  ASSERT_NE(ber, nullptr);
  EXPECT_EQ(e.write(ber), e.result);
  EXPECT_EQ(qtest::writtenHex(ber), qtest::withoutSpaces(e.hex));
  gsleioGBerFree(nullptr, ber);
}

constexpr int32_t kBer = 0;
constexpr int32_t kDer = GSLE_OPT_SHORT_LENGTHS;
constexpr ber_len_t kLen(size_t n) { return static_cast<ber_len_t>(n); }
constexpr ber_tag_t kTag(uint32_t t) { return t; }

Write putLength(uint32_t length) {
  return [=](gsleBerElement *b) { return gsleenDBerPutLen(nullptr, b, length, 0); };
}

const std::string k200(200, 'a');
const std::string kHex200 = qtest::hexOf(k200.data(), k200.size());
char kA[] = "a";
char kBc[] = "bc";
char *kStrings[] = {kA, kBc, nullptr};
char kNulBytes[] = {'\0', 'a'};
struct berval kNulValue = {2, kNulBytes};
struct berval *kValues[] = {&kNulValue, nullptr};

INSTANTIATE_TEST_SUITE_P(Known, BerEncoding, ::testing::Values(
    Encoding{"Length127", kBer, putLength(127), "7f", 1},
    Encoding{"Length128", kBer, putLength(128), "81 80", 2},
    Encoding{"Length256", kBer, putLength(256), "82 0100", 3},
    Encoding{"Length0xffffff", kBer, putLength(0xffffff), "83 ffffff", 4},
    Encoding{"Length0x1000000", kBer, putLength(0x1000000), "84 01000000", 5},
    Encoding{"Int127", kBer, printf("i", 127), "02 01 7f", 3},
    Encoding{"Int128", kBer, printf("i", 128), "02 02 0080", 4},
    Encoding{"IntMinus1", kBer, printf("i", -1), "02 01 ff", 3},
    Encoding{"IntMinus128", kBer, printf("i", -128), "02 01 80", 3},
    Encoding{"IntMinus129", kBer, printf("i", -129), "02 02 ff7f", 4},
    Encoding{"IntMin", kBer, printf("i", INT32_MIN), "02 04 80000000", 6},
    Encoding{"IntMax", kBer, printf("i", INT32_MAX), "02 04 7fffffff", 6},
    Encoding{"Enumerated", kBer, printf("e", 10), "0a 01 0a", 3},
    Encoding{"BooleanNonZeroIsFF", kBer, printf("b", 5), "01 01 ff", 3},
    Encoding{"BooleanZero", kBer, printf("b", 0), "01 01 00", 3},
    Encoding{"Null", kBer, printf("n"), "05 00", 2},
    Encoding{"BitStringOfNoBits", kBer, printf("B", "", kLen(0)), "03 01 00", 3},
    Encoding{"BitStringOfOneBit", kBer, printf("B", "\x80", kLen(1)), "03 02 07 80", 4},
    Encoding{"BitStringOfNineBits", kBer, printf("B", "\xff\x80", kLen(9)), "03 03 07 ff80", 5},
    Encoding{"BitStringOfWholeBytes", kBer, printf("B", "\xab\xcd", kLen(16)), "03 03 00 abcd", 5},
    Encoding{"TagOfOneByte", kBer, printf("to", kTag(0x80), "a", kLen(1)), "80 01 61", 3},
    Encoding{"TagFrom256TakesTwoBytes", kBer, printf("to", kTag(0x100), "a", kLen(1)), "0100 01 61", 4},
    Encoding{"TagOfTwoBytes", kBer, printf("to", kTag(0x5f20), "a", kLen(1)), "5f20 01 61", 4},
    Encoding{"TagOfThreeBytes", kBer, printf("to", kTag(0x5f8120), "a", kLen(1)), "5f8120 01 61", 5},
    Encoding{"TagOfFourBytes", kBer, printf("to", kTag(0x5f818120), "a", kLen(1)), "5f818120 01 61", 6},
    Encoding{"SequenceTakesFiveByteLength", kBer, printf("{i}", 5), "30 84 00000003 020105", 9},
    Encoding{"SequenceShortestLength", kDer, printf("{i}", 5), "30 03 020105", 5},
    Encoding{"EmptySequence", kBer, printf("{}"), "30 84 00000000", 6},
    Encoding{"NestedFiveByteLengths", kBer, printf("{{i}}", 5), "30 84 00000009 30 84 00000003 020105", 15},
    Encoding{"NestedShortest", kDer, printf("{{i}}", 5), "30 05 30 03 020105", 7},
    Encoding{"SetOfString", kBer, printf("[s]", "ab"), "31 84 00000004 04 02 6162", 10},
    Encoding{"LongContentMovedDown", kDer, printf("{o}", k200.data(), kLen(200)),
             "30 81 cb 04 81 c8" + kHex200, 206},
    Encoding{"NestedLongContentMovedDown", kDer, printf("{{o}}", k200.data(), kLen(200)),
             "30 81 ce 30 81 cb 04 81 c8" + kHex200, 209},
    Encoding{"TagOnSequence", kDer, printf("t{i}", kTag(0xa3), 5), "a3 03 020105", 5},
    Encoding{"TagLastsOneElement", kBer, printf("tii", kTag(0x80), 1, 2), "80 01 01 02 01 02", 3},
    Encoding{"TagAppliesToEveryStringOfV", kBer, printf("tv", kTag(0x80), kStrings), "80 01 61 80 02 6263", 4},
    Encoding{"NullArraysWriteNothing", kDer, printf("{vV}", static_cast<char **>(nullptr),
                                                      static_cast<struct berval **>(nullptr)),
             "30 00", 2},
    Encoding{"BervalsMayHoldNul", kBer, printf("V", kValues), "04 02 0061", 4},
    Encoding{"EmptyFormatWritesNothing", kBer, printf(""), "", 0},
    Encoding{"UnknownLetterFailsKeepingWhatWasWritten", kBer, printf("i?i", 1, 2), "02 01 01", -1},
    Encoding{"ClosingWithNothingOpenFails", kBer, printf("}"), "", -1},
    Encoding{"ExportedCalls", kDer,
             [](gsleBerElement *b) {
               ber_start_seq(b, LBER_DEFAULT);
               ber_put_ostring(b, "ab", 2, LBER_DEFAULT);
               ber_put_int(b, 5, 0x80);
               vsx_ldap_ber_put_boolean(b, 1, LBER_DEFAULT);
               return vsx_ldap_ber_end_seq(b);
             },
             "30 0a 04026162 800105 0101ff", 12}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(BerGrowth, InlineBufferBecomesAllocatedAndOpenRecordsMoveWithIt) {
  qtest::TestAllocator::Scope allocator;
  gsleBerElement *ber = gsleioHBerAllocT(nullptr, kDer);
  const std::string block(1025, 'x');
  ASSERT_EQ(gsleioDBerWrite(nullptr, ber, block.data(), 1025, 0), 1025);
  // Two blocks for the 1025 bytes plus the one the buffer had.
  EXPECT_EQ(ber->end - ber->buf, 3072);
  EXPECT_EQ(ber->flags & GSLE_FLAG_INLINE_BUFFER, 0u);
  EXPECT_TRUE(qtest::TestAllocator::reallocations.empty());
  // Now inside an open sequence: the allocated buffer is reallocated, by
  // three blocks for the 3000 bytes on top of its three.
  const std::string big(3000, 'y');
  ASSERT_EQ(gsleenSBerPrintf(nullptr, ber, "{o", big.data(), kLen(3000)), 3004);
  EXPECT_EQ(qtest::TestAllocator::reallocations,
            (std::vector<std::pair<uint32_t, uint32_t>>{{6144, 3072}}));
  ASSERT_EQ(gsleenSBerPrintf(nullptr, ber, "}"), 3008);
  EXPECT_EQ(qtest::writtenHex(ber), qtest::hexOf(block.data(), 1025) + "30820bbc" + "04820bb8" +
                                        qtest::hexOf(big.data(), 3000));
  gsleioGBerFree(nullptr, ber);
  EXPECT_EQ(qtest::TestAllocator::live, 0);
}

// Twelve nested empty sequences: the first eight use the element's records,
// the four deeper ones are allocated and freed again as they close.
class BerNesting : public ::testing::TestWithParam<int32_t> {};

TEST_P(BerNesting, LevelsBeyondEightAllocateRecordsThatCloseFrees) {
  qtest::TestAllocator::Scope allocator;
  gsleBerElement *ber = gsleioHBerAllocT(nullptr, GetParam());
  for (int level = 1; level <= 12; ++level) {
    ASSERT_EQ(gsleenNBerStartSeq(nullptr, ber, LBER_DEFAULT), GSLE_OK);
    EXPECT_EQ(qtest::TestAllocator::live, 1 + (level > 8 ? level - 8 : 0)) << level;
  }
  EXPECT_EQ(ber->depth, 12u);
  EXPECT_EQ(ber->sos->outer->outer->outer->outer, &ber->records[7]);
  for (int level = 12; level >= 1; --level) {
    ASSERT_GT(gsleenPBerPutSeqorset(nullptr, ber), 0);
    EXPECT_EQ(qtest::TestAllocator::live, 1 + (level > 9 ? level - 9 : 0)) << level;
  }
  EXPECT_EQ(ber->sos, nullptr);
  // The nested empty sequences, innermost last.
  std::string expected;
  const bool shortest = GetParam() == kDer;
  for (int level = 0; level < 12; ++level) {
    const int inner = 11 - level;  // levels inside this one
    char length[16];
    std::snprintf(length, sizeof length, shortest ? "%02x" : "84%08x", inner * (shortest ? 2 : 6));
    expected += std::string("30") + length;
  }
  EXPECT_EQ(qtest::writtenHex(ber), expected);
  gsleioGBerFree(nullptr, ber);
  EXPECT_EQ(qtest::TestAllocator::live, 0);
}

INSTANTIATE_TEST_SUITE_P(Options, BerNesting, ::testing::Values(kBer, kDer));

// Freeing an element with sequences still open releases their records.
TEST(BerNesting, FreeReleasesRecordsStillOpen) {
  qtest::TestAllocator::Scope allocator;
  gsleBerElement *ber = gsleioIBerAlloc(nullptr);
  ASSERT_EQ(gsleenSBerPrintf(nullptr, ber, "{{{{{{{{{{{i", 1), 3);
  EXPECT_EQ(qtest::TestAllocator::live, 4);
  gsleioGBerFree(nullptr, ber);
  EXPECT_EQ(qtest::TestAllocator::live, 0);
}

TEST(BerTrace, UnknownLetterAndFailedAllocationsAreTraced) {
  qtest::TraceCapture capture;
  gsleBerElement *ber = gsleioIBerAlloc(nullptr);
  EXPECT_EQ(gsleenSBerPrintf(nullptr, ber, "i%", 1), -1);
  EXPECT_EQ(capture.lines(), (std::vector<Trace>{{64, "unknown fmt %c\n", {"%"}}}));
  capture.lines().clear();
  {
    qtest::TestAllocator::Scope allocator;
    qtest::TestAllocator::budget = 0;
    EXPECT_EQ(gsleioHBerAllocT(nullptr, 0), nullptr);
    // A write that cannot grow the buffer fails and leaves the element as
    // it was, still using its inline buffer.
    unsigned char *const before = ber->ptr;
    const std::string block(1024, 'x');
    EXPECT_EQ(gsleioDBerWrite(nullptr, ber, block.data(), 1024, 0), -1);
    EXPECT_EQ(ber->ptr, before);
    EXPECT_EQ(ber->buf, ber->inline_buf);
  }
  const Trace no_memory{0x1000000, "Error in allocating memory \n", {}};
  EXPECT_EQ(capture.lines(), (std::vector<Trace>{no_memory, no_memory}));
  gsleioGBerFree(nullptr, ber);
}

// "\t%s\n" lines: sixteen hex pairs (padded), a space, the characters.
std::string dumpLine(const std::string &hex_pairs, int count, const std::string &chars) {
  return hex_pairs + std::string(static_cast<size_t>(16 - count) * 3, ' ') + " " + chars;
}

TEST(BerTrace, DumpShowsWrittenOrRemainingBytes) {
  gsleBerElement *ber = gsleioJDerAlloc(nullptr);
  ASSERT_EQ(gsleenSBerPrintf(nullptr, ber, "{s}", "0123456789abcdef"), 20);
  qtest::TraceCapture capture;
  gsleioNBerDump(nullptr, ber, GSLE_DUMP_WRITTEN);
  const auto header = [&] {
    return Trace{
        64,
        "gsleioNBerDump: buf 0x%lx, ptr 0x%lx, end 0x%lx\n",
        {qtest::addressOf(ber->buf), qtest::addressOf(ber->ptr), qtest::addressOf(ber->end)}};
  };
  EXPECT_EQ(
      capture.lines(),
      (std::vector<Trace>{
          header(),
          {64, "       current len %ld, contents:\n", {"20"}},
          {64, "\t%s\n", {"30 12 04 10 30 31 32 33 34 35 36 37 38 39 61 62  0...0123456789ab"}},
          {64, "\t%s\n", {dumpLine("63 64 65 66 ", 4, "cdef")}}}));
  capture.lines().clear();
  gsleioMBerReset(nullptr, ber, GSLE_WAS_WRITING);
  ber->ptr += 18;
  gsleioNBerDump(nullptr, ber, GSLE_DUMP_REMAINING);
  EXPECT_EQ(capture.lines(), (std::vector<Trace>{header(),
                                                 {64, "       current len %ld, contents:\n", {"2"}},
                                                 {64, "\t%s\n", {dumpLine("65 66 ", 2, "ef")}}}));
  gsleioGBerFree(nullptr, ber);
}

TEST(BerTrace, SosDumpWalksOpenRecordsFromTheInnermost) {
  gsleBerElement *ber = gsleioJDerAlloc(nullptr);
  ASSERT_EQ(gsleenSBerPrintf(nullptr, ber, "{i[s", 5, "ab"), 4);
  qtest::TraceCapture capture;
  gsleioOBerSosDump(nullptr, ber);
  const gsleSeqorset *inner = ber->sos;
  const gsleSeqorset *outer = inner->outer;
  EXPECT_EQ(
      capture.lines(),
      (std::vector<Trace>{{64, "*** sos dump ***\n", {}},
                          {64,
                           "gsleioOBerSosDump: clen %ld first 0x%lx ptr 0x%lx\n",
                           {"4", qtest::addressOf(inner->start), qtest::addressOf(inner->pos)}},
                          {64, "      current len %ld contents:\n", {"4"}},
                          {64, "\t%s\n", {dumpLine("04 02 61 62 ", 4, "..ab")}},
                          {64,
                           "gsleioOBerSosDump: clen %ld first 0x%lx ptr 0x%lx\n",
                           {"3", qtest::addressOf(outer->start), qtest::addressOf(outer->pos)}},
                          {64, "      current len %ld contents:\n", {"3"}},
                          {64, "\t%s\n", {dumpLine("02 01 05 ", 3, "...")}},
                          {64, "*** end dump ***\n", {}}}));
  gsleioGBerFree(nullptr, ber);
}

// An element set up with gsleioLBerInit has no buffer: its first write
// allocates one block. Reset turns written bytes into bytes to read; a
// duplicate reads the same; the connection fill is not available.
TEST(BerElement, InitResetDupAndFill) {
  qtest::TestAllocator::Scope allocator;
  gsleBerElement *ber = gsleioHBerAllocT(nullptr, kDer);
  ASSERT_EQ(gsleioLBerInit(nullptr, ber, kDer), GSLE_OK);
  EXPECT_EQ(ber->buf, nullptr);
  EXPECT_EQ(ber->tag, LBER_DEFAULT);
  ASSERT_EQ(gsleenSBerPrintf(nullptr, ber, "{i}", 5), 5);
  EXPECT_EQ(ber->end - ber->buf, 1024);
  EXPECT_EQ(ber->flags & GSLE_FLAG_INLINE_BUFFER, 0u);
  gsleioMBerReset(nullptr, ber, GSLE_WAS_WRITING);
  gsleBerElement *dup = gsleioKBerDup(nullptr, ber);
  ASSERT_NE(dup, nullptr);
  for (gsleBerElement *e : {ber, dup}) {
    EXPECT_EQ(qtest::hexOf(e->ptr, static_cast<size_t>(e->end - e->ptr)), "3003020105");
  }
  gsleioMBerReset(nullptr, dup, GSLE_WAS_READING);
  EXPECT_EQ(dup->ptr, dup->end);
  EXPECT_EQ(gsleioABerFilbuf(nullptr, ber, 10), -1);
  char byte = 0;
  EXPECT_EQ(gsleioBBerRead(nullptr, ber, &byte, 1), -1);
  gsleioGBerFree(nullptr, dup);
  gsleioGBerFree(nullptr, ber);
  EXPECT_EQ(qtest::TestAllocator::live, 0);
}

}  // namespace
