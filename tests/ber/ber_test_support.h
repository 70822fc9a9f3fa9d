// tests/ber/ber_test_support.h - what the codec's tests share: hex views of
// bytes, trace lines captured through the trace hook, and requests to the
// programs built from tests/ber/ber_driver.c.
#ifndef QUILLOMAT_TESTS_BER_TEST_SUPPORT_H
#define QUILLOMAT_TESTS_BER_TEST_SUPPORT_H

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "core/output.h"

namespace qtest {

inline std::string hexOf(const void *bytes, size_t length) {
  std::string hex;
  for (const auto *p = static_cast<const uint8_t *>(bytes); length-- > 0; ++p)
    hex += std::string(1, "0123456789abcdef"[*p >> 4]) + "0123456789abcdef"[*p & 0xf];
  return hex;
}
inline std::string hexOf(const std::string &bytes) { return hexOf(bytes.data(), bytes.size()); }

// Bytes from hex text; spaces are ignored.
inline std::string bytesOf(const std::string &hex) {
  std::string bytes;
  for (size_t i = 0; i < hex.size(); ++i) {
    if (hex[i] != ' ') bytes += static_cast<char>(std::stoi(hex.substr(i++, 2), nullptr, 16));
  }
  return bytes;
}

// A trace line as "<level> <format>[arg]...": numbers in decimal, characters
// and strings as they are.
using Traces = std::vector<std::string>;

// Captures every trace line of the process-wide context while alive.
class TraceCapture {
 public:
  TraceCapture() {
    lines().clear();
    EXPECT_EQ(gslutsSetTraceHook(nullptr, record), GSLUF_OK);
  }
  ~TraceCapture() { (void)gslutsSetTraceHook(nullptr, nullptr); }
  static Traces &lines() {
    static Traces captured;
    return captured;
  }

 private:
  static void record(uint32_t level, const char *format, const gsluArg *args, uint32_t count) {
    std::string line = std::to_string(level) + " " + format;
    for (const gsluArg *a = args; a != args + count; ++a) {
      line += '[';
      if (a->type == GSLUF_ARG_CHAR) line += static_cast<char>(a->value.ch);
      if (a->type == GSLUF_ARG_STRING) line += a->value.text != nullptr ? a->value.text : "(null)";
      if (a->type == GSLUF_ARG_INT32_PTR) line += std::to_string(*a->value.i32);
      if (a->type == GSLUF_ARG_INT64_PTR) line += std::to_string(*a->value.i64);
      line += ']';
    }
    lines().push_back(line);
  }
};

// Runs a ber_driver program over requests, one per line: its answers, one
// per request. It must exit with status 0, which under the sanitizers also
// means that it leaked nothing.
inline std::vector<std::string> ask(const char *driver, const std::vector<std::string> &requests) {
  char path[] = "/tmp/ber_requests_XXXXXX";
  const int fd = mkstemp(path);
  for (const std::string &r : requests) EXPECT_GT(write(fd, (r + "\n").data(), r.size() + 1), 0);
  close(fd);
  std::vector<std::string> answers;
  FILE *out = popen((std::string(driver) + " < " + path).c_str(), "r");
  for (std::string line; out != nullptr && !std::feof(out); line.clear()) {
    for (int c = std::fgetc(out); c != EOF && c != '\n'; c = std::fgetc(out))
      line += static_cast<char>(c);
    if (!line.empty()) answers.push_back(line);
  }
  EXPECT_EQ(out != nullptr ? pclose(out) : -1, 0) << driver;
  unlink(path);
  EXPECT_EQ(answers.size(), requests.size()) << driver;
  answers.resize(requests.size());
  return answers;
}

}  // namespace qtest

#endif  // QUILLOMAT_TESTS_BER_TEST_SUPPORT_H
