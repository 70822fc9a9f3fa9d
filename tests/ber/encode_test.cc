// Encoding: known answers, buffer growth, nesting records, the exported
// calls, traces and dumps.
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

using Write = std::function<int32_t(gsleBerElement *)>;
template <class... A>
Write printf(const char *format, A... args) {
  return [=](gsleBerElement *b) { return gsleenSBerPrintf(nullptr, b, format, args...); };
}
// Writes lengths alone; the last one's result.
Write lengths(std::vector<uint32_t> list) {
  return [=](gsleBerElement *b) {
    int32_t result = 0;
    for (uint32_t n : list) result = gsleenDBerPutLen(nullptr, b, n, 0);
    return result;
  };
}

std::string written(const gsleBerElement *ber) {
  return qtest::hexOf(ber->buf, static_cast<size_t>(ber->ptr - ber->buf));
}
std::string packed(const std::string &hex) { return qtest::hexOf(qtest::bytesOf(hex)); }

struct Encoding {
  const char *name;
  int32_t options;
  Write write;
  std::string hex;  // spaces ignored
  int32_t result;
};

class BerEncoding : public ::testing::TestWithParam<Encoding> {};

TEST_P(BerEncoding, WritesTheKnownBytes) {
  const Encoding &e = GetParam();
  gsleBerElement *ber = gsleioHBerAllocT(nullptr, e.options);
  EXPECT_EQ(e.write(ber), e.result);
  EXPECT_EQ(written(ber), packed(e.hex));
  gsleioGBerFree(nullptr, ber);
}

constexpr int32_t kBer = 0, kDer = LBER_USE_DER;
constexpr ber_len_t L(size_t n) { return static_cast<ber_len_t>(n); }
constexpr ber_tag_t T(uint32_t t) { return t; }
const std::string k200(200, 'a');
char kA[] = "a", kBc[] = "bc";
char *kStrings[] = {kA, kBc, nullptr};
struct berval kNulValue = {2, const_cast<char *>("\0a")};
struct berval *kValues[] = {&kNulValue, nullptr};

void PrintTo(const Encoding &c, std::ostream *os) { *os << c.name; }

INSTANTIATE_TEST_SUITE_P(
    Known, BerEncoding,
    ::testing::Values(
        Encoding{"Lengths", kBer, lengths({127, 128, 256, 0xffffff, 0x1000000}),
                 "7f 8180 820100 83ffffff 8401000000", 5},
        Encoding{"Integers", kBer,
                 printf("iiiiiii", 127, 128, -1, -128, -129, INT32_MIN, INT32_MAX),
                 "02017f 02020080 0201ff 020180 0202ff7f 020480000000 02047fffffff", 6},
        Encoding{"EnumBooleansNull", kBer, printf("ebbn", 10, 5, 0), "0a010a 0101ff 010100 0500",
                 2},
        Encoding{"BitStrings", kBer,
                 printf("BBBB", "", L(0), "\x80", L(1), "\xff\x80", L(9), "\xab\xcd", L(16)),
                 "030100 03020780 030307ff80 030300abcd", 5},
        Encoding{"TagsOfOneToFourBytes", kBer,
                 printf("tntntntntn", T(0x80), T(0x100), T(0x5f20), T(0x5f8120), T(0x5f818120)),
                 "8000 010000 5f2000 5f812000 5f81812000", 5},
        Encoding{"SequenceFiveByteLength", kBer, printf("{i}", 5), "30 84 00000003 020105", 9},
        Encoding{"SequenceShortestLength", kDer, printf("{i}", 5), "30 03 020105", 5},
        Encoding{"NestedFiveByteSet", kBer, printf("{[s]}", "ab"),
                 "30 84 0000000a 31 84 00000004 04026162", 16},
        Encoding{"NestedShortest", kDer, printf("{{i}}", 5), "30 05 30 03 020105", 7},
        Encoding{"LongContentMovedDown", kDer, printf("{{o}}", k200.data(), L(200)),
                 "30 81 ce 30 81 cb 04 81 c8" + qtest::hexOf(k200), 209},
        Encoding{"TagOnSequenceThenUniversal", kDer, printf("t{i}i", T(0xa3), 5, 6),
                 "a3 03 020105 020106", 3},
        Encoding{"TagAppliesToEveryStringOfV", kBer, printf("tvs", T(0x80), kStrings, "d"),
                 "800161 80026263 040164", 3},
        Encoding{
            "NullArraysWriteNothing", kDer,
            printf("{vV}", static_cast<char **>(nullptr), static_cast<struct berval **>(nullptr)),
            "30 00", 2},
        Encoding{"BervalsMayHoldNul", kBer, printf("V", kValues), "04 02 0061", 4},
        Encoding{"EmptyFormatWritesNothing", kBer, printf(""), "", 0},
        Encoding{"UnknownLetterFailsKeepingWhatWasWritten", kBer, printf("i?i", 1, 2), "02 01 01",
                 -1},
        Encoding{"ClosingWithNothingOpenFails", kBer, printf("}"), "", -1}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(BerGrowth, InlineBufferBecomesAllocatedAndOpenRecordsMoveWithIt) {
  qtest::TestAllocator::Scope allocator;
  gsleBerElement *ber = gsleioJDerAlloc(nullptr);
  const std::string x(1025, 'x'), y(3000, 'y');
  ASSERT_EQ(gsleioDBerWrite(nullptr, ber, x.data(), 1025, 0), 1025);
  // Two blocks for the 1025 bytes plus the one the buffer had.
  EXPECT_EQ(ber->end - ber->buf, 3072);
  EXPECT_EQ(ber->flags & GSLE_FLAG_INLINE_BUFFER, 0u);
  // Inside an open sequence the allocated buffer is reallocated, by three
  // blocks for the 3000 bytes on top of its three.
  ASSERT_EQ(gsleenSBerPrintf(nullptr, ber, "{o}", y.data(), L(3000)), 3008);
  EXPECT_EQ(qtest::TestAllocator::reallocations,
            (decltype(qtest::TestAllocator::reallocations){{6144, 3072}}));
  EXPECT_EQ(written(ber), qtest::hexOf(x) + "30820bbc04820bb8" + qtest::hexOf(y));
  gsleioGBerFree(nullptr, ber);
  EXPECT_EQ(qtest::TestAllocator::live, 0);
}

// Twelve nested empty sequences: the first eight use the element's records,
// the deeper ones are allocated and freed as they close, or with the
// element when they are still open.
class BerNesting : public ::testing::TestWithParam<int32_t> {};

TEST_P(BerNesting, LevelsBeyondEightAllocateRecordsThatCloseFrees) {
  qtest::TestAllocator::Scope allocator;
  const bool der = GetParam() == kDer;
  gsleBerElement *ber = gsleioHBerAllocT(nullptr, GetParam());
  for (int level = 1; level <= 12; ++level) {
    ASSERT_EQ(gsleenNBerStartSeq(nullptr, ber, LBER_DEFAULT), 0);
    EXPECT_EQ(qtest::TestAllocator::live, 1 + std::max(level - 8, 0)) << level;
  }
  std::string expected;
  for (int level = 12; level >= 1; --level) {
    ASSERT_EQ(gsleenPBerPutSeqorset(nullptr, ber), (13 - level) * (der ? 2 : 6)) << level;
    EXPECT_EQ(qtest::TestAllocator::live, 1 + std::max(level - 9, 0)) << level;
    char header[16];
    std::snprintf(header, sizeof header, der ? "30%02x" : "3084%08x", (level - 1) * (der ? 2 : 6));
    expected += header;
  }
  EXPECT_EQ(written(ber), expected);
  ASSERT_EQ(gsleenSBerPrintf(nullptr, ber, "{{{{{{{{{{{i", 1), 3);
  EXPECT_EQ(qtest::TestAllocator::live, 4);
  gsleioGBerFree(nullptr, ber);
  EXPECT_EQ(qtest::TestAllocator::live, 0);
}

INSTANTIATE_TEST_SUITE_P(Options, BerNesting, ::testing::Values(kBer, kDer));

TEST(BerTrace, UnknownLetterAndFailedAllocationsAreTraced) {
  qtest::TraceCapture capture;
  gsleBerElement *ber = gsleioIBerAlloc(nullptr);
  EXPECT_EQ(gsleenSBerPrintf(nullptr, ber, "i%", 1), -1);
  qtest::TestAllocator::Scope allocator;
  qtest::TestAllocator::budget = 0;
  EXPECT_EQ(gsleioHBerAllocT(nullptr, 0), nullptr);
  // A write that cannot grow the buffer leaves the element as it was.
  const std::string block(1024, 'x');
  EXPECT_EQ(gsleioDBerWrite(nullptr, ber, block.data(), 1024, 0), -1);
  EXPECT_EQ(written(ber), "020101");
  EXPECT_EQ(ber->buf, ber->inline_buf);
  const std::string no_memory = "16777216 Error in allocating memory \n";
  EXPECT_EQ(capture.lines(), (qtest::Traces{"64 unknown fmt %c\n[%]", no_memory, no_memory}));
  gsleioGBerFree(nullptr, ber);
}

// The written bytes and the open records of an element, then what remains
// of it to be read.
TEST(BerTrace, DumpsShowWrittenOrRemainingBytesAndOpenRecords) {
  gsleBerElement *ber = gsleioJDerAlloc(nullptr);
  ASSERT_EQ(gsleenSBerPrintf(nullptr, ber, "{s}{i[s", "0123456789abcdef", 5, "ab"), 4);
  const auto at = [](const void *p) {
    return std::string(1, '[') + std::to_string(reinterpret_cast<uintptr_t>(p)) + ']';
  };
  const auto bytes = [](const std::string &hex, const std::string &text) {
    return "64 \t%s\n[" + hex + std::string(48 - hex.size(), ' ') + " " + text + "]";
  };
  const std::string dump = "64 gsleioNBerDump: buf 0x%lx, ptr 0x%lx, end 0x%lx\n";
  const std::string sos = "64 gsleioOBerSosDump: clen %ld first 0x%lx ptr 0x%lx\n";
  const gsleSeqorset *in = ber->sos, *out = in->outer;
  qtest::Traces expected = {
      dump + at(ber->buf) + at(ber->ptr) + at(ber->end),
      "64        current len %ld, contents:\n[20]",
      bytes("30 12 04 10 30 31 32 33 34 35 36 37 38 39 61 62 ", "0...0123456789ab"),
      bytes("63 64 65 66 ", "cdef"),
      "64 *** sos dump ***\n",
      sos + "[4]" + at(in->start) + at(in->pos),
      "64       current len %ld contents:\n[4]",
      bytes("04 02 61 62 ", "..ab"),
      sos + "[3]" + at(out->start) + at(out->pos),
      "64       current len %ld contents:\n[3]",
      bytes("02 01 05 ", "..."),
      "64 *** end dump ***\n"};
  qtest::TraceCapture capture;
  gsleioNBerDump(nullptr, ber, GSLE_DUMP_WRITTEN);
  gsleioOBerSosDump(nullptr, ber);
  EXPECT_EQ(capture.lines(), expected);
  ASSERT_EQ(gsleenSBerPrintf(nullptr, ber, "]}"), 11);
  gsleioMBerReset(nullptr, ber, GSLE_WAS_WRITING);
  ber->ptr = ber->end - 2;
  capture.lines().clear();
  gsleioNBerDump(nullptr, ber, GSLE_DUMP_REMAINING);
  EXPECT_EQ(capture.lines(),
            (qtest::Traces{dump + at(ber->buf) + at(ber->ptr) + at(ber->end),
                           "64        current len %ld, contents:\n[2]", bytes("61 62 ", "ab")}));
  gsleioGBerFree(nullptr, ber);
}

// An element set up with gsleioLBerInit has no buffer until its first
// write; reset turns written bytes into bytes to read, and a duplicate reads
// the same. There is no connection to fill an element from.
TEST(BerElement, InitResetDupAndFill) {
  qtest::TestAllocator::Scope allocator;
  gsleBerElement *ber = gsleioIBerAlloc(nullptr);
  ASSERT_EQ(gsleioLBerInit(nullptr, ber, kDer), 0);
  EXPECT_EQ(ber->buf, nullptr);
  ASSERT_EQ(gsleenSBerPrintf(nullptr, ber, "{i}", 5), 5);
  EXPECT_EQ(ber->end - ber->buf, 1024);
  gsleioMBerReset(nullptr, ber, GSLE_WAS_WRITING);
  gsleBerElement *dup = gsleioKBerDup(nullptr, ber);
  EXPECT_EQ(qtest::hexOf(dup->ptr, static_cast<size_t>(dup->end - dup->ptr)), "3003020105");
  gsleioMBerReset(nullptr, dup, GSLE_WAS_READING);
  EXPECT_EQ(dup->ptr, dup->end);
  char byte = 0;
  EXPECT_EQ(gsleioABerFilbuf(nullptr, ber, 10) + gsleioBBerRead(nullptr, ber, &byte, 1), -2);
  gsleioGBerFree(nullptr, dup);
  gsleioGBerFree(nullptr, ber);
  EXPECT_EQ(qtest::TestAllocator::live, 0);
}

}  // namespace
