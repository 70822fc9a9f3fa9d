// Interoperability with OpenLDAP's liblber, an implementation nobody here
// wrote, used as a black box: for each case both sides encode the same
// format and values (the bytes must be equal), each side decodes the
// other's bytes (the values must come back), and every proper prefix of the
// encoding fails to decode on our side. Both run as separate processes of
// tests/ber/ber_driver.c (see there for the request language).
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tests/ber/driver_process.h"

namespace {

struct Case {
  const char *name;
  const char *mode;      // "ber" (five-byte sequence lengths) or "der"
  std::string encode;    // ber_printf letters
  std::string tokens;    // their values
  std::string decode;    // ber_scanf letters reading the encoding back
  std::string expected;  // the values decoding gives; empty: tokens
};
void PrintTo(const Case &c, std::ostream *os) { *os << c.name; }

// n bytes counting up from first, in hex; they include NUL bytes.
std::string countingHex(size_t n, unsigned first = 0) {
  static const char digits[] = "0123456789abcdef";
  std::string hex;
  for (size_t i = 0; i < n; ++i) {
    const auto byte = static_cast<unsigned char>(first + i);
    hex += digits[byte >> 4];
    hex += digits[byte & 0xf];
  }
  return n == 0 ? "-" : hex;
}

std::string textHex(const std::string &text) {
  std::string hex;
  static const char digits[] = "0123456789abcdef";
  for (unsigned char c : text) {
    hex += digits[c >> 4];
    hex += digits[c & 0xf];
  }
  return text.empty() ? "-" : hex;
}

const std::string kDn = textHex("cn=admin,o=ex");
const std::string kSecret = textHex(
    "s\xc3\xa9"
    "cret");

// Both drivers live for one test suite; at its end each must exit with
// status 0, which under the sanitizers also means it leaked nothing.
class Drivers : public ::testing::Test {
 public:
  static void SetUpTestSuite() {
    ours_ = new qtest::DriverProcess(QUILLOMAT_BER_DRIVER);
    theirs_ = new qtest::DriverProcess(QUILLOMAT_LIBLBER_ORACLE);
  }
  static void TearDownTestSuite() {
    EXPECT_EQ(ours_->finish(), 0);
    EXPECT_EQ(theirs_->finish(), 0);
    delete ours_;
    delete theirs_;
  }
  static qtest::DriverProcess &ours() { return *ours_; }
  static qtest::DriverProcess &theirs() { return *theirs_; }

 private:
  static inline qtest::DriverProcess *ours_ = nullptr;
  static inline qtest::DriverProcess *theirs_ = nullptr;
};

// Runs one case through both sides; the failures name it.
void checkCase(const std::string &mode, const std::string &encode, const std::string &tokens,
               const std::string &decode, const std::string &expected, bool prefixes) {
  const std::string request = "E " + mode + " " + encode + " " + tokens;
  const std::string mine = Drivers::ours().request(request);
  const std::string reference = Drivers::theirs().request(request);
  ASSERT_EQ(mine.substr(0, 3), "OK ") << request << " -> " << mine;
  EXPECT_EQ(mine, reference) << request;
  const std::string values = expected.empty() ? "OK" : "OK " + expected;
  const std::string our_bytes = mine.substr(3);
  const std::string their_bytes = reference.substr(0, 3) == "OK " ? reference.substr(3) : our_bytes;
  EXPECT_EQ(Drivers::ours().request("D " + decode + " " + their_bytes), values)
      << request << " read from " << their_bytes;
  EXPECT_EQ(Drivers::theirs().request("D " + decode + " " + our_bytes), values)
      << request << " read from " << our_bytes;
  if (!prefixes) return;
  for (size_t cut = 0; cut < our_bytes.size(); cut += 2) {
    const std::string prefix = cut == 0 ? "-" : our_bytes.substr(0, cut);
    ASSERT_EQ(Drivers::ours().request("D " + decode + " " + prefix), "ERR")
        << request << " cut " << cut / 2;
  }
}

class BerInterop : public Drivers, public ::testing::WithParamInterface<Case> {};

TEST_P(BerInterop, SameBytesEachReadsTheOtherAndPrefixesFail) {
  const Case &c = GetParam();
  checkCase(c.mode, c.encode, c.tokens, c.decode, c.expected.empty() ? c.tokens : c.expected, true);
}

const std::string kBind = "1 0x60 3 " + kDn + " 0x80 " + kSecret;
const std::string kSearch = "2 0x63 " + kDn + " 2 0 0 0 0 0xa3 " + textHex("cn") + " " +
                            textHex("a") + " 2 " + textHex("cn") + " " + textHex("mail");

INSTANTIATE_TEST_SUITE_P(
    Table, BerInterop,
    ::testing::Values(
        Case{"Integers", "der", "iiiiiiiiii",
             "0 127 128 -1 -129 -128 256 -2147483648 2147483647 65535", "iiiiiiiiii", ""},
        Case{"Enumerations", "der", "eee", "0 2 -3", "eie", ""},
        Case{"BooleansReadSignExtended", "der", "bbb", "1 0 -5", "bbb", "-1 0 -1"},
        Case{"Null", "der", "ni", "7", "ni", "7"},
        Case{"OctetStringLengths", "der", "ooooooo",
             countingHex(0) + " " + countingHex(1) + " " + countingHex(127) + " " +
                 countingHex(128) + " " + countingHex(255) + " " + countingHex(256) + " " +
                 countingHex(1025),
             "oOsoOso", ""},
        Case{"Strings", "ber", "ss", kDn + " " + kSecret, "aO", ""},
        Case{"BitStrings", "der", "BBBB", "80/1 ff80/9 abcd/16 fe/7", "BBBB", ""},
        Case{"TagsOfOneToFourBytes", "der", "tttotntbti",
             "0x80 0x5f20 0x5f8120 - 0x5f818120 0x81 1 0x9f1f -5", "totntbti",
             "0x5f8120 - 0x5f818120 0x81 -1 0x9f1f -5"},
        Case{"SequenceFiveByteLength", "ber", "{i}", "5", "{i}", ""},
        Case{"SequenceShortestLength", "der", "{i}", "5", "{i}", ""},
        Case{"EmptySequences", "ber", "{}[]", "", "{}[]", ""},
        Case{"Set", "ber", "[s]", textHex("ab"), "[a]", ""},
        Case{"TaggedSequence", "der", "t{i}", "0xa3 5", "Ti}", ""},
        Case{"TenNestedSequences", "ber", "{{{{{{{{{{i}}}}}}}}}}", "9", "{{{{{{{{{{i}}}}}}}}}}",
             ""},
        Case{"TenNestedShortest", "der", "{{{{{{{{{{i}}}}}}}}}}", "9", "{{{{{{{{{{i}}}}}}}}}}", ""},
        Case{"BindRequest", "der", "{it{ists}}", kBind, "{iTiato}", ""},
        Case{"SearchRequest", "ber", "{it{seeiibt{ss}{v}}}", kSearch, "{iTaeeiibTaa}v}}", ""},
        Case{"StringArrays", "der", "{v}{v}{V}",
             "0 3 61 6263 " + kDn + " 2 00ff " + countingHex(300), "vvV", ""},
        Case{"GrowthPastTheInlineBuffer", "ber", "{o{o}}",
             countingHex(1025) + " " + countingHex(3000, 7), "{o{o}}", ""},
        Case{"SkipAndPeekLength", "der", "{iso}", "1 " + textHex("x") + " " + countingHex(300),
             "{xxlo}", "300 " + countingHex(300)}),
    [](const auto &info) { return std::string(info.param.name); });

// Random documents of every letter, nested up to twelve deep, in both modes.
class Generator {
 public:
  explicit Generator(uint32_t seed) : rng_(seed) {}

  void document() {
    encode_.clear();
    tokens_.clear();
    decode_.clear();
    expected_.clear();
    const int count = pick(1, 4);
    for (int i = 0; i < count; ++i) element(0);
  }
  std::string encode() const { return encode_; }
  std::string tokens() const { return tokens_; }
  std::string decode() const { return decode_; }
  std::string expected() const { return expected_; }

 private:
  int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng_); }

  void token(std::string &list, const std::string &t) { list += (list.empty() ? "" : " ") + t; }
  void both(const std::string &t) {
    token(tokens_, t);
    token(expected_, t);
  }

  int32_t integer() {
    static const int32_t edges[] = {0,        1,         -1,        127,      128,    -128,
                                    -129,     255,       256,       32767,    -32768, 65535,
                                    0x7fffff, -0x800000, INT32_MAX, INT32_MIN};
    if (pick(0, 1) == 0) return edges[pick(0, std::size(edges) - 1)];
    return static_cast<int32_t>(rng_());
  }

  std::string bytes(bool text) {
    const int length = pick(0, 9) == 0 ? pick(129, 1100) : pick(0, 40);
    std::string hex;
    static const char digits[] = "0123456789abcdef";
    for (int i = 0; i < length; ++i) {
      const int b = text ? pick(1, 255) : pick(0, 255);
      hex += digits[b >> 4];
      hex += digits[b & 0xf];
    }
    return length == 0 ? "-" : hex;
  }

  // A tag of one to four bytes, as held: its encoded bytes.
  std::string tag() {
    static const char *const tags[] = {"0x80",   "0x81",   "0xa0",     "0xa3",      "0x40",
                                       "0x9f1f", "0x5f20", "0xbf8101", "0x5f818120"};
    return tags[pick(0, std::size(tags) - 1)];
  }

  void primitive() {
    switch (pick(0, 6)) {
      case 0: {
        const std::string v = std::to_string(integer());
        encode_ += "i";
        decode_ += pick(0, 3) == 0 ? "x" : "i";
        token(tokens_, v);
        if (decode_.back() == 'i') token(expected_, v);
        break;
      }
      case 1:
        encode_ += "e";
        decode_ += "e";
        both(std::to_string(integer()));
        break;
      case 2: {
        const int v = pick(-2, 2);
        encode_ += "b";
        decode_ += "b";
        token(tokens_, std::to_string(v));
        token(expected_, v != 0 ? "-1" : "0");
        break;
      }
      case 3:
        encode_ += "n";
        decode_ += "n";
        break;
      case 4: {
        encode_ += "o";
        decode_ += "oOs"[pick(0, 2)];
        both(bytes(false));
        break;
      }
      case 5:
        encode_ += "s";
        decode_ += "aoOs"[pick(0, 3)];
        both(bytes(true));
        break;
      default: {
        // liblber refuses to read back bit strings without bits or with a
        // zero byte; ours reads those too (see the decoding rules).
        const int bits = pick(1, 70);
        std::string hex;
        for (int i = 0; i < (bits + 7) / 8; ++i)
          hex += countingHex(1, static_cast<unsigned>(pick(1, 255)));
        encode_ += "B";
        decode_ += "B";
        both(hex + "/" + std::to_string(bits));
        break;
      }
    }
  }

  void element(int depth) {
    const int kind = depth >= 12 ? 0 : pick(0, 9);
    if (kind <= 3) return primitive();
    if (kind == 4) {
      // A tag for the next element: peeked on the way back.
      const std::string t = tag();
      encode_ += "t";
      decode_ += "t";
      both(t);
      return primitive();
    }
    if (kind == 5 || kind == 6) {
      // An array of strings or bervals, in a sequence.
      const bool strings = kind == 5;
      const int count = pick(0, 3);
      encode_ += strings ? "{v}" : "{V}";
      decode_ += strings ? "v" : "V";
      both(std::to_string(count));
      for (int i = 0; i < count; ++i) both(bytes(strings));
      return;
    }
    // A sequence or set, tagged or not, read back whole or skipped.
    const bool set = kind == 7;
    const bool tagged = kind == 9;
    if (tagged) {
      encode_ += "t";
      token(tokens_, tag());
    }
    const bool skip = pick(0, 5) == 0;
    encode_ += set ? "[" : "{";
    if (skip) {
      decode_ += "x";
    } else if (tagged) {
      decode_ += "T";
      token(expected_, tokens_.substr(tokens_.rfind(' ') + 1));
    } else {
      decode_ += set ? "[" : "{";
    }
    std::string saved_decode = decode_;
    std::string saved_expected = expected_;
    const int children = pick(0, 3);
    for (int i = 0; i < children; ++i) element(depth + 1);
    encode_ += set ? "]" : "}";
    if (skip) {
      decode_ = saved_decode;
      expected_ = saved_expected;
    } else {
      decode_ += set ? "]" : "}";
    }
  }

  std::mt19937 rng_;
  std::string encode_, tokens_, decode_, expected_;
};

class BerInteropRandom : public Drivers {};

TEST_F(BerInteropRandom, RandomDocumentsRoundTripAndMatchLiblber) {
  Generator g(9);
  for (int i = 0; i < 400; ++i) {
    g.document();
    SCOPED_TRACE("document " + std::to_string(i) + ": " + g.encode() + " / " + g.decode());
    for (const char *mode : {"ber", "der"}) {
      checkCase(mode, g.encode(), g.tokens(), g.decode(), g.expected(), i % 10 == 0);
    }
    if (HasFatalFailure()) return;
  }
}

}  // namespace
