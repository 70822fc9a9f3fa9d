// driver/progress.cc - the progress lines of -p. Contracts in
// driver/progress.h.
#include "driver/progress.h"

#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "core/messages.h"
#include "core/output.h"
#include "driver/messages.h"

namespace quillomat {
namespace {

constexpr int64_t kNanosPerSecond = 1000000000;
constexpr int64_t kTerminalInterval = kNanosPerSecond / 4;
constexpr int64_t kLogInterval = 10 * kNanosPerSecond;
constexpr double kBytesPerMB = 1e6;

// Redraws the line in place: back to its start, the text, the rest of the
// old line cleared.
constexpr char kRedraw[] = "\r%s\033[K";
constexpr char kRedrawFinal[] = "\r%s\033[K\n";
constexpr char kLine[] = "%s\n";

int64_t nowNs() {
  timespec t{};
  (void)clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<int64_t>(t.tv_sec) * kNanosPerSecond + t.tv_nsec;
}

}  // namespace

Progress::Progress(gsluctx *ctx, bool enabled)
    : ctx_(ctx),
      enabled_(enabled),
      terminal_(enabled && ::isatty(STDERR_FILENO) == 1),
      interval_ns_(terminal_ ? kTerminalInterval : kLogInterval) {}

void Progress::hook(void *progress, uint64_t read, uint64_t size) {
  static_cast<Progress *>(progress)->chunk(read, size);
}

void Progress::startDocument(const char *name) {
  if (!enabled_) return;
  name_ = name;
  started_ns_ = drawn_ns_ = nowNs();
  read_ = size_ = records_ = 0;
}

void Progress::chunk(uint64_t read, uint64_t size) {
  read_ = read;
  size_ = size;
  if (!enabled_) return;
  const int64_t now = nowNs();
  if (now - drawn_ns_ < interval_ns_) return;
  drawn_ns_ = now;
  draw(false);
}

void Progress::endDocument() {
  if (!enabled_) return;
  draw(true);
}

void Progress::draw(bool final) {
  const double seconds = static_cast<double>(nowNs() - started_ns_) / kNanosPerSecond;
  const double mb = static_cast<double>(read_) / kBytesPerMB;
  char read_mb[32], size_mb[32], records[32], rate[32], percent[8], elapsed[32];
  std::snprintf(read_mb, sizeof read_mb, "%.1f", mb);
  std::snprintf(size_mb, sizeof size_mb, "%.1f", static_cast<double>(size_) / kBytesPerMB);
  std::snprintf(records, sizeof records, "%llu", static_cast<unsigned long long>(records_));
  std::snprintf(rate, sizeof rate, "%.1f", seconds > 0 ? mb / seconds : 0.0);
  std::snprintf(percent, sizeof percent, "%u",
                size_ != 0 ? static_cast<unsigned>(read_ * 100 / size_) : 0u);
  std::snprintf(elapsed, sizeof elapsed, "%.1f", seconds);
  char line[1024];
  if (final) {
    formatMessage(line, sizeof line, kMsgProgressDone, {name_, read_mb, records, elapsed, rate});
  } else if (size_ != 0) {
    formatMessage(line, sizeof line, kMsgProgressOf, {name_, percent, size_mb, records, rate});
  } else {
    formatMessage(line, sizeof line, kMsgProgress, {name_, read_mb, records, rate});
  }
  const char *format = !terminal_ ? kLine : final ? kRedrawFinal : kRedraw;
  (void)gslufpFprintf(ctx_, GSLUF_STREAM_STDERR, format, GSLUF_ARG_STRING, line, GSLUF_ARG_END);
}

}  // namespace quillomat
