// tests/ber/ber_test_support.h - what the in-process codec tests share:
// hex views of bytes, and trace lines captured through the trace hook.
#ifndef QUILLOMAT_TESTS_BER_TEST_SUPPORT_H
#define QUILLOMAT_TESTS_BER_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ber/io.h"
#include "core/context.h"
#include "core/output.h"

namespace qtest {

inline std::string hexOf(const void *bytes, size_t length) {
  static const char digits[] = "0123456789abcdef";
  std::string hex;
  for (size_t i = 0; i < length; ++i) {
    const unsigned char b = static_cast<const unsigned char *>(bytes)[i];
    hex += digits[b >> 4];
    hex += digits[b & 0xf];
  }
  return hex;
}

// The bytes written to ber so far (buf to ptr), in hex.
inline std::string writtenHex(const gsleBerElement *ber) {
  return hexOf(ber->buf, static_cast<size_t>(ber->ptr - ber->buf));
}

// Bytes from hex text; spaces are ignored.
inline std::string bytesOf(const std::string &hex) {
  std::string digits;
  for (char c : hex) {
    if (c != ' ') digits += c;
  }
  std::string bytes;
  for (size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

inline std::string withoutSpaces(const std::string &hex) {
  return hexOf(bytesOf(hex).data(), bytesOf(hex).size());
}

// A trace line as the hook received it: level, format, and the arguments
// shown as text (numbers in decimal, characters and strings as they are).
struct Trace {
  uint32_t level;
  std::string format;
  std::vector<std::string> args;
  bool operator==(const Trace &) const = default;
};
inline void PrintTo(const Trace &t, std::ostream *os) {
  *os << t.level << " \"" << t.format << "\"";
  for (const std::string &a : t.args) *os << " [" << a << "]";
}

// Captures every trace line of the process-wide context while alive.
class TraceCapture {
 public:
  TraceCapture() {
    lines().clear();
    EXPECT_EQ(gslutsSetTraceHook(nullptr, record), GSLUF_OK);
  }
  TraceCapture(const TraceCapture &) = delete;
  TraceCapture &operator=(const TraceCapture &) = delete;
  ~TraceCapture() { (void)gslutsSetTraceHook(nullptr, nullptr); }
  static std::vector<Trace> &lines() {
    static std::vector<Trace> captured;
    return captured;
  }

 private:
  static void record(uint32_t level, const char *format, const gsluArg *args, uint32_t count) {
    Trace t{level, format, {}};
    for (uint32_t i = 0; i < count; ++i) {
      switch (args[i].type) {
        case GSLUF_ARG_CHAR: t.args.emplace_back(1, static_cast<char>(args[i].value.ch)); break;
        case GSLUF_ARG_STRING: t.args.emplace_back(args[i].value.text); break;
        case GSLUF_ARG_INT32_PTR: t.args.push_back(std::to_string(*args[i].value.i32)); break;
        default: t.args.push_back(std::to_string(*args[i].value.i64)); break;
      }
    }
    lines().push_back(t);
  }
};

// The address a dump shows for p.
inline std::string addressOf(const void *p) {
  return std::to_string(reinterpret_cast<uintptr_t>(p));
}

}  // namespace qtest

#endif  // QUILLOMAT_TESTS_BER_TEST_SUPPORT_H
