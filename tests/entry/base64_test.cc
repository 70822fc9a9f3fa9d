#include "entry/base64.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <vector>

namespace {

using Bytes = std::string;

// Buffers of exactly the advertised size on the heap, so ASan flags any
// access beyond them.
std::string encodeWith(const Bytes& in, uint32_t (*encoder)(const void*, uint32_t, char*),
                       size_t capacity) {
    std::vector<char> out(capacity);
    const uint32_t n = encoder(in.data(), static_cast<uint32_t>(in.size()), out.data());
    EXPECT_LE(n, capacity);
    return std::string(out.data(), n);
}

std::string encode(const Bytes& in) {
    return encodeWith(in, gsluztvb64e, gsluztvb64gol(static_cast<uint32_t>(in.size()), 1));
}

// Bound of gsluztvb64en stated in the header.
size_t enCapacity(size_t n) { return 4 * ((n + 2) / 3) + n / 48 + 2; }

// Decoded bytes, or kFail for a 0 result.
const Bytes kFail = "<fail>";
Bytes decode(const std::string& text) {
    const std::vector<char> in(text.begin(), text.end());
    std::vector<char> out(gsluztvb64gol(static_cast<uint32_t>(text.size()), 2));
    const uint32_t n = gsluztvb64d(in.data(), static_cast<uint32_t>(in.size()), out.data());
    return n == GSLUZTV_B64_MALFORMED ? kFail : Bytes(out.data(), n);
}

struct Vector { const char* name; Bytes plain; std::string text; };
void PrintTo(const Vector& v, std::ostream* os) { *os << v.name; }
class KnownAnswer : public ::testing::TestWithParam<Vector> {};

TEST_P(KnownAnswer, EncodesAndDecodes) {
    EXPECT_EQ(encode(GetParam().plain), GetParam().text);
    EXPECT_EQ(decode(GetParam().text), GetParam().plain.empty() ? kFail : GetParam().plain);
}

INSTANTIATE_TEST_SUITE_P(Rfc4648, KnownAnswer, ::testing::Values(
    Vector{"Empty", "", ""}, Vector{"f", "f", "Zg=="}, Vector{"fo", "fo", "Zm8="},
    Vector{"foo", "foo", "Zm9v"}, Vector{"foob", "foob", "Zm9vYg=="},
    Vector{"fooba", "fooba", "Zm9vYmE="}, Vector{"foobar", "foobar", "Zm9vYmFy"},
    Vector{"M", "M", "TQ=="}, Vector{"Ma", "Ma", "TWE="}, Vector{"Man", "Man", "TWFu"},
    Vector{"HighBytes", Bytes("\xff\xfe\x00", 3), "//4A"}),
    [](const auto& info) { return std::string(info.param.name); });

// Decoder rules, junk handling and every malformed shape we decided on.
class Decode : public ::testing::TestWithParam<Vector> {};
TEST_P(Decode, YieldsBytesOrFails) { EXPECT_EQ(decode(GetParam().text), GetParam().plain); }

INSTANTIATE_TEST_SUITE_P(Rules, Decode, ::testing::Values(
    Vector{"JunkInsideGroupsIsSkipped", "ManM", "T W\nFu\tT\r\nQ=\n="},
    Vector{"TrailingJunkIsDropped", "Man", "TWFu\n \x01"},
    Vector{"PaddedGroupEndsTheData", "M", "TQ==TWFu"},
    Vector{"EqualsInUnpaddedGroupReadsAsZero", Bytes("M\0\0", 3), "TQ=A"},
    Vector{"InvalidDigitInFinalGroupFails", kFail, "T==="},
    Vector{"LeadingEqualsInFinalGroupFails", kFail, "=Q=="},
    Vector{"UnpaddedTailFails", kFail, "TWFuTWE"},
    Vector{"SingleCharacterFails", kFail, "T"},
    Vector{"AllJunkFails", kFail, " \n\x80\xff"},
    Vector{"NonAsciiIsJunk", "Man", "TW\xc3\xa9" "Fu"}),
    [](const auto& info) { return std::string(info.param.name); });

// The 8-bit line counter: {input length, line groups, expected newline
// offsets, expected output length}.
struct Shape { const char* name; uint32_t length; uint32_t groups; std::vector<size_t> newlines; size_t total; };
void PrintTo(const Shape& s, std::ostream* os) { *os << s.name; }
class LineShape : public ::testing::TestWithParam<Shape> {};

TEST_P(LineShape, PutsNewlinesWhereTheCounterMatches) {
    const Shape& s = GetParam();
    const Bytes in(s.length, 'x');
    std::vector<char> out(gsluztvb64gol(s.length, 1) + s.length);
    const uint32_t n = gsluztvb64ecr(in.data(), s.length, out.data(), s.groups);
    std::vector<size_t> newlines;
    for (size_t i = 0; i < n; ++i) if (out[i] == '\n') newlines.push_back(i);
    EXPECT_EQ(newlines, s.newlines);
    EXPECT_EQ(n, s.total);
}

INSTANTIATE_TEST_SUITE_P(Encoder, LineShape, ::testing::Values(
    Shape{"LineCounterWrapsAt256Digits", 192, 0, {256}, 257},
    Shape{"LineCounterWrapsAgainAfterReset", 387, 0, {256, 513}, 518},
    Shape{"NoNewlineAfterPartialGroup", 191, 0, {}, 256},
    Shape{"SixteenGroupsPerLine", 96, 16, {64, 129}, 130},
    Shape{"OneGroupPerLine", 7, 1, {4, 9}, 14},
    Shape{"SixtyFourGroupsNeverWrap", 3000, 64, {}, 4000},
    Shape{"HugeLineLengthNeverWraps", 3000, 0x40000000u, {}, 4000}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Base64, FoldedEncoderAddsTwoNewlinesOnlyAfterPartialGroup) {
    const Bytes b48(48, 'a'), b49(49, 'a');
    const std::string line = encode(b48);
    EXPECT_EQ(encodeWith(b48, gsluztvb64en, enCapacity(48)), line + "\n");
    EXPECT_EQ(encodeWith(b49, gsluztvb64en, enCapacity(49)), line + "\nYQ==\n\n");
}

TEST(Base64, GolEncodeFormulaIsKeptThoughFoldedEncoderExceedsIt) {
    EXPECT_EQ(gsluztvb64gol(48, GSLUZTV_B64_SIZE_ENCODE), 68u);
    EXPECT_EQ(gsluztvb64gol(64, GSLUZTV_B64_SIZE_DECODE), 48u);
    EXPECT_EQ(gsluztvb64gol(64, 3), 0u);
    EXPECT_EQ(gsluztvb64gol(UINT32_MAX, GSLUZTV_B64_SIZE_ENCODE), 5793731927u);
    EXPECT_EQ(gsluztvb64gol(1, GSLUZTV_B64_SIZE_ENCODE), 5u);  // gsluztvb64en writes 6
    EXPECT_EQ(encodeWith("a", gsluztvb64en, enCapacity(1)), "YQ==\n\n");
}

TEST(Base64, RandomRoundTripsAndEveryTruncatedPrefix) {
    std::mt19937 rng(4648);
    for (size_t len = 0; len <= 300; ++len) {
        Bytes in(len, '\0');
        for (char& c : in) c = static_cast<char>(rng());
        const std::string plain = encode(in), folded = encodeWith(in, gsluztvb64en, enCapacity(len));
        EXPECT_EQ(decode(plain), len == 0 ? kFail : in);
        EXPECT_EQ(decode(folded), len == 0 ? kFail : in);
        EXPECT_EQ(gsluztvb64scn(folded.data(), static_cast<uint32_t>(folded.size())), folded.size());
        size_t digits = 0;  // the prefix without the encoder's newlines
        for (size_t cut = 1; cut < plain.size(); ++cut) {
            digits += plain[cut - 1] != '\n';
            const Bytes expected = digits % 4 != 0 ? kFail : in.substr(0, digits / 4 * 3);
            ASSERT_EQ(decode(plain.substr(0, cut)), expected) << len << " cut at " << cut;
        }
    }
}

TEST(Base64, GetvalMapsExactlyTheAlphabet) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (int c = 0; c < 256; ++c) {
        const size_t expected = alphabet.find(static_cast<char>(c));
        int value = 99;
        const int rc = gsluztvb64_getval(static_cast<char>(c), &value);
        EXPECT_EQ(rc, expected == std::string::npos ? GSLUZTV_B64_NOT_DIGIT : GSLUZTV_B64_DIGIT) << c;
        EXPECT_EQ(value, expected == std::string::npos ? 0 : static_cast<int>(expected)) << c;
    }
}

TEST(Base64, CleanKeepsDigitsAndPaddingAndStopsAtFirstNul) {
    struct { std::string text; std::string kept; } cases[] = {
        {"TW Fu\n\tTQ\r\n==\n", "TWFuTQ=="}, {" \n", ""}, {std::string("TW\0Fu", 5), "TW"}};
    for (auto& c : cases) {
        std::vector<char> buf(c.text.begin(), c.text.end());
        buf.push_back('\0');
        uint32_t count = 99;
        EXPECT_EQ(gsluztvb64cln(buf.data(), static_cast<uint32_t>(c.text.size()), &count), GSLUZTV_B64_CLEANED);
        EXPECT_EQ(std::string(buf.data()), c.kept);
        EXPECT_EQ(count, c.kept.size());
    }
}

TEST(Base64, ScanStopsAtFirstInvalidGroupOrOverlongLine) {
    struct { std::string text; uint32_t valid; } cases[] = {
        {"TWFu\nTQ==\n\n", 11}, {"TWFuTW", 4}, {"TWFu!WFu", 4}, {"TQ==TWFu", 4},
        {"TW=u", 0}, {"T===", 0}, {"\nTWE=", 5}, {std::string(80, 'A'), 76},
        {std::string(76, 'A') + "\n" + std::string(4, 'A'), 81}};
    for (auto& c : cases) {
        EXPECT_EQ(gsluztvb64scn(c.text.data(), static_cast<uint32_t>(c.text.size())), c.valid) << c.text;
    }
}

TEST(Base64, NullArgumentsAndOversizedOutputDoNothing) {
    char out[8];
    uint32_t count = 7;
    EXPECT_EQ(gsluztvb64e(nullptr, 3, out), 0u);
    EXPECT_EQ(gsluztvb64d(nullptr, 4, out), 0u);
    EXPECT_EQ(gsluztvb64d("TWFu", 4, nullptr), 0u);
    EXPECT_EQ(gsluztvb64_getval('A', nullptr), GSLUZTV_B64_NOT_DIGIT);
    EXPECT_EQ(gsluztvb64cln(nullptr, 0, &count), GSLUZTV_B64_CLEANED);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(gsluztvb64scn(nullptr, 4), 0u);
    // Output whose count would pass 32 bits is refused before any access.
    EXPECT_EQ(gsluztvb64e(out, UINT32_MAX, out), 0u);
    EXPECT_EQ(gsluztvb64ecr(out, 0xC0000000u, out, 1), 0u);
}

}  // namespace
