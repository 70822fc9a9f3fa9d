// core/output.cc - formatted output and the file operations. Contracts in
// core/output.h.
//
// Standard output has a buffer of its own: the conversion writes one LDIF
// record per call, and a write(2) per record would dominate the run time.
#include "core/output.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

#include "core/context_internal.h"
#include "core/convert.h"
#include "core/format.h"
#include "core/memory.h"
#include "core/output_internal.h"
#include "core/pool.h"
#include "core/utf8.h"

namespace gslu {

namespace {

constexpr std::size_t kStackBufferSize = 32768;
constexpr uint32_t kFirstHeapBlockSize = 65536;
constexpr std::size_t kPieceSize = GSLUF_PIECE_BYTES;  // text bytes per piece
constexpr std::size_t kPieceBufferSize = 32768;
constexpr std::size_t kStdoutBufferSize = 64 * 1024;
constexpr int kStdoutFd = 1;

// ---- Standard output -------------------------------------------------------

// Writes all n bytes to fd, across interrupted and short writes.
[[nodiscard]] bool writeAll(int fd, const char *data, std::size_t n) {
  while (n > 0) {
    const ssize_t w = ::write(fd, data, n);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) return false;
    data += w;
    n -= static_cast<std::size_t>(w);
  }
  return true;
}

void flushStdoutAtExit();

// The buffer of file descriptor 1, process-wide like the descriptor.
class StdoutBuffer {
 public:
  // Appends data; false when standard output has failed or is closed.
  [[nodiscard]] bool append(const char *data, std::size_t n) {
    Guard guard(lock_);
    if (failed_ || closed_) return false;
    if (used_ == 0) {
      // Asked again whenever the buffer starts over: cheap, as it happens
      // once per 64 KiB unless every call writes through anyway.
      interactive_ = isatty(kStdoutFd) != 0;
      registerAtExit();
    }
    if (n > kStdoutBufferSize - used_ && !flushLocked()) return false;
    if (n >= kStdoutBufferSize) return writeLocked(data, n);
    std::memcpy(buffer_ + used_, data, n);
    used_ += n;
    return true;
  }

  // The end of one call: a terminal sees its output at once.
  [[nodiscard]] bool endOfCall() {
    Guard guard(lock_);
    if (interactive_ && !flushLocked()) return false;
    return !failed_ && !closed_;
  }

  // Hands everything buffered to the operating system; false once any
  // write has failed.
  bool flush() {
    Guard guard(lock_);
    return flushLocked();
  }

  [[nodiscard]] bool close() {
    Guard guard(lock_);
    (void)flushLocked();
    if (!closed_) {
      closed_ = true;
      // Whatever the C library still holds for stdout goes first.
      if (std::fflush(stdout) != 0) failed_ = true;
      // EBADF: it was never open, and then every write has failed already.
      if (::close(kStdoutFd) != 0 && errno != EBADF) failed_ = true;
      occupyWithNull();
    }
    return !failed_;
  }

  void reset() {
    Guard guard(lock_);
    used_ = 0;
    failed_ = false;
    closed_ = false;
  }

 private:
  struct Guard {
    explicit Guard(pthread_mutex_t &m) : m_(m) { pthread_mutex_lock(&m_); }
    ~Guard() { pthread_mutex_unlock(&m_); }
    Guard(const Guard &) = delete;
    Guard &operator=(const Guard &) = delete;
    pthread_mutex_t &m_;
  };

  bool flushLocked() {
    const std::size_t n = used_;
    used_ = 0;
    return n == 0 ? !failed_ : writeLocked(buffer_, n);
  }

  bool writeLocked(const char *data, std::size_t n) {
    if (!failed_ && !writeAll(kStdoutFd, data, n)) failed_ = true;
    return !failed_;
  }

  void registerAtExit() {
    if (!at_exit_registered_) at_exit_registered_ = std::atexit(flushStdoutAtExit) == 0;
  }

  // Keeps descriptor 1 taken after the close, so that the next file opened
  // does not become standard output.
  static void occupyWithNull() {
    const int fd = ::open("/dev/null", O_WRONLY);
    if (fd >= 0 && fd != kStdoutFd) {
      (void)::dup2(fd, kStdoutFd);
      (void)::close(fd);
    }
  }

  pthread_mutex_t lock_ = PTHREAD_MUTEX_INITIALIZER;
  char buffer_[kStdoutBufferSize] = {};
  std::size_t used_ = 0;
  bool interactive_ = false;
  bool failed_ = false;
  bool closed_ = false;
  bool at_exit_registered_ = false;
};

// Constant-initialised, so output from any static constructor finds it ready.
constinit StdoutBuffer g_stdout;

void flushStdoutAtExit() { (void)g_stdout.flush(); }

// ---- Streams -----------------------------------------------------------------

enum class StreamKind { kNone, kStdout, kFile };

struct Stream {
  StreamKind kind;
  FILE *file;
};

[[nodiscard]] FILE *standardStream(const gsluctx *ctx, std::size_t index, FILE *fallback) {
  return ctx->files != nullptr ? ctx->files->standard[index] : fallback;
}

// The stream a stream code stands for. Standard error is written through,
// after what is buffered for standard output, so the two keep their order
// on a shared terminal or file.
[[nodiscard]] Stream gslufzglGetLFIL(const gsluctx *ctx, uint64_t code) {
  switch (code) {
    case GSLUF_STREAM_NONE: return {StreamKind::kNone, nullptr};
    case GSLUF_STREAM_STDIN: return {StreamKind::kFile, standardStream(ctx, 0, stdin)};
    case GSLUF_STREAM_STDOUT: return {StreamKind::kStdout, nullptr};
    case GSLUF_STREAM_STDERR:
      (void)g_stdout.flush();
      return {StreamKind::kFile, standardStream(ctx, 2, stderr)};
    default: return {StreamKind::kFile, reinterpret_cast<const gslufFile *>(code)->handle};
  }
}

[[nodiscard]] bool writeTo(const Stream &s, const char *data, std::size_t n) {
  switch (s.kind) {
    case StreamKind::kStdout: return g_stdout.append(data, n);
    case StreamKind::kFile: return s.file != nullptr && std::fwrite(data, 1, n, s.file) == n;
    case StreamKind::kNone: break;
  }
  return false;
}

[[nodiscard]] bool flushStream(const Stream &s) {
  switch (s.kind) {
    case StreamKind::kStdout: return g_stdout.endOfCall();
    case StreamKind::kFile: return s.file != nullptr && std::fflush(s.file) == 0;
    case StreamKind::kNone: break;
  }
  return false;
}

// ---- Expansion -----------------------------------------------------------------

// The expanded text of one call: in the stack buffer, or in a heap block
// after the buffer proved too small.
class Expansion {
 public:
  explicit Expansion(gsluctx *ctx) : ctx_(ctx), heap_(nullptr, ContextFree{ctx}) {}

  [[nodiscard]] int run(const char *format, const gsluArg *args, uint32_t count) {
    Formatted f = formatTyped(stack_, kStackBufferSize, format, args, count);
    if (f.status == FormatStatus::kTooSmall) return retryOnHeap(format, args, count);
    return take(f, stack_, kStackBufferSize);
  }

  [[nodiscard]] char *text() const { return text_; }
  [[nodiscard]] std::size_t length() const { return length_; }
  [[nodiscard]] std::size_t room() const { return room_; }

 private:
  // Deliberate: the first heap try takes a 65536-byte block but keeps the
  // limit of 32768, so it gains nothing over the stack buffer; the limit
  // doubles only from the second try on, and each resize names half the
  // new limit as the old size. An allocator the caller installed sees exactly
  // this sequence (see expansionBlocksUnseen).
  [[nodiscard]] int retryOnHeap(const char *format, const gsluArg *args, uint32_t count) {
    heap_.reset(static_cast<char *>(gslummMalloc(ctx_, kFirstHeapBlockSize)));
    if (!heap_) return GSLUF_NO_MEMORY;
    uint32_t limit = kStackBufferSize;
    std::size_t block_size = kFirstHeapBlockSize;
    Formatted f = formatTyped(heap_.get(), limit, format, args, count);
    while (f.status == FormatStatus::kTooSmall) {
      // Detect and prevent integer overflow of the doubled limit.
      if (limit > std::numeric_limits<uint32_t>::max() / 2) return GSLUF_NO_MEMORY;
      limit *= 2;
      void *bigger = gslumrRealloc(ctx_, limit, heap_.get(), limit / 2);
      if (bigger == nullptr) return GSLUF_NO_MEMORY;
      (void)heap_.release();  // now owned as `bigger`
      heap_.reset(static_cast<char *>(bigger));
      block_size = limit;
      f = formatTyped(heap_.get(), limit, format, args, count);
    }
    return take(f, heap_.get(), block_size);
  }

  [[nodiscard]] int take(const Formatted &f, char *buffer, std::size_t room) {
    if (f.status != FormatStatus::kOk) return GSLUF_FORMAT_FAILED;
    text_ = buffer;
    length_ = f.length;
    room_ = room;
    return GSLUF_OK;
  }

  gsluctx *ctx_;
  // Neither buffer is zeroed before use: the formatter reports how much it
  // wrote and nothing reads beyond that, so zeroing 32 KiB or more per call
  // would be pure cost on the output path.
  char stack_[kStackBufferSize];
  Owned<char> heap_;
  char *text_ = nullptr;
  std::size_t length_ = 0;
  std::size_t room_ = 0;
};

// ---- Writing -------------------------------------------------------------------------

// Converts text (length bytes in room) in place when the context asks for
// it; false when the conversion fails.
[[nodiscard]] bool convertForOutput(gsluctx *ctx, char *text, std::size_t *length,
                                    std::size_t room) {
  if (ctx->output_conversion == 0) return true;
  uint64_t converted = 0;
  if (convertOutputInPlace(ctx, text, *length, room, &converted) != GSLUUC_OK) return false;
  *length = converted;
  return true;
}

// A text to write, held as a body and a suffix that follow each other, so
// that "%s\n" can be written without first copying the two together.
class Segments {
 public:
  Segments(std::string_view body, std::string_view suffix) : body_(body), suffix_(suffix) {}
  [[nodiscard]] std::size_t size() const { return body_.size() + suffix_.size(); }
  // Copies n bytes from offset on into out.
  void copy(std::size_t offset, std::size_t n, char *out) const {
    if (offset < body_.size()) {
      const std::size_t k = std::min(n, body_.size() - offset);
      std::memcpy(out, body_.data() + offset, k);
      out += k;
      n -= k;
      offset = body_.size();
    }
    if (n > 0) std::memcpy(out, suffix_.data() + (offset - body_.size()), n);
  }
  [[nodiscard]] bool writeAllTo(const Stream &s) const {
    return (body_.empty() || writeTo(s, body_.data(), body_.size())) &&
           (suffix_.empty() || writeTo(s, suffix_.data(), suffix_.size()));
  }

 private:
  std::string_view body_;
  std::string_view suffix_;
};

[[nodiscard]] int writePieces(gsluctx *ctx, const Stream &stream, const Segments &text) {
  // The cut is decided on the bytes around it: a character starting in the
  // last three bytes before the limit may need up to three bytes after it.
  constexpr std::size_t kCutWindow = kPieceSize + 3;
  static_assert(kCutWindow < kPieceBufferSize, "the window and the newline fit the piece buffer");
  char piece[kPieceBufferSize];  // not zeroed: see Expansion
  const std::size_t length = text.size();
  for (std::size_t offset = 0; offset < length;) {
    const std::size_t window = std::min(length - offset, kCutWindow);
    text.copy(offset, window, piece);
    // Backs up at most three bytes from kPieceSize, so every piece has text.
    std::size_t n = utf8::cutPoint(piece, window, kPieceSize);
    offset += n;
    // Deliberate: every piece, the last one too, ends with a newline, so a
    // long text comes out with a line break after each piece. Readers of
    // this output rely on lines of bounded length.
    piece[n++] = '\n';
    if (!convertForOutput(ctx, piece, &n, sizeof piece)) return GSLUF_FORMAT_FAILED;
    if (!writeTo(stream, piece, n)) return GSLUF_WRITE_FAILED;
  }
  return flushStream(stream) ? GSLUF_OK : GSLUF_WRITE_FAILED;
}

[[nodiscard]] bool isStandard(uint64_t code) {
  return code == GSLUF_STREAM_STDOUT || code == GSLUF_STREAM_STDERR;
}

[[nodiscard]] int writeText(gsluctx *ctx, uint64_t code, char *text, std::size_t length,
                            std::size_t room) {
  const Stream stream = gslufzglGetLFIL(ctx, code);
  if (length > kPieceSize && (isStandard(code) || ctx->output_conversion != 0)) {
    return writePieces(ctx, stream, Segments({text, length}, {}));
  }
  if (!convertForOutput(ctx, text, &length, room)) return GSLUF_FORMAT_FAILED;
  if (!writeTo(stream, text, length)) return GSLUF_WRITE_FAILED;
  return flushStream(stream) ? GSLUF_OK : GSLUF_WRITE_FAILED;
}

// The text of a format that is one "%s" and then literal text without
// conversions ("%s\n" for a record), when its argument is a text.
[[nodiscard]] bool plainText(const char *format, const gsluArg *args, uint32_t count,
                             std::string_view *body, std::string_view *suffix) {
  if (format[0] != '%' || format[1] != 's' || std::strchr(format + 2, '%') != nullptr) return false;
  if (count == 0 || args[0].type != GSLUF_ARG_STRING || args[0].value.text == nullptr) return false;
  *body = args[0].value.text;
  *suffix = format + 2;
  return true;
}

[[nodiscard]] bool hooksAre(const gsluctx *ctx, gsluMallocHook m, gsluCallocHook c,
                            gsluReallocHook r, gsluFreeHook f) {
  return ctx->hook_malloc == m && ctx->hook_calloc == c && ctx->hook_realloc == r &&
         ctx->hook_free == f;
}

// Whether nobody can see the blocks an expansion would take: the C library
// allocator serves ctx, or the small-block pool does. An allocator the
// caller routed memory to (a complete callback table, or hooks of its own)
// is promised the expansion's sequence of blocks, and its refusal must fail
// the print.
//
// The pool counts as the C library here: it hands every block above
// kPoolMaxSmall bytes straight to the C library, and the expansion's blocks
// are all larger, so they would be the C library's anyway. It is the
// program's own allocator, installed by main(), not one an embedder
// brings; counted as the caller's, it would send every record of a
// conversion through the expansion, one more copy of each record and, for
// records over 32767 bytes, blocks growing to twice their size.
[[nodiscard]] bool expansionBlocksUnseen(const gsluctx *ctx) {
  static_assert(kFirstHeapBlockSize > kPoolMaxSmall, "the pool passes expansion blocks on");
  if (callbackTableServes(ctx)) return false;
  return hooksAre(ctx, nullptr, nullptr, nullptr, nullptr) ||
         hooksAre(ctx, poolMalloc, poolCalloc, poolRealloc, poolFree);
}

// Standard output without conversion: a plain text goes to the buffer as it
// stands. Expanding it first would copy a record of any size into a block
// that grows by doubling, up to twice the record, only to copy it again.
// Only where skipping those blocks cannot be seen.
[[nodiscard]] bool writesDirectly(const gsluctx *ctx, uint64_t stream) {
  return stream == GSLUF_STREAM_STDOUT && ctx->output_conversion == 0 &&
         expansionBlocksUnseen(ctx);
}

// Whole text, converted chunk by chunk when the context converts output.
[[nodiscard]] int writeWhole(gsluctx *ctx, uint64_t code, const char *text, std::size_t length) {
  const Stream stream = gslufzglGetLFIL(ctx, code);
  if (ctx->output_conversion == 0) {
    if (length > 0 && !writeTo(stream, text, length)) return GSLUF_WRITE_FAILED;
    return flushStream(stream) ? GSLUF_OK : GSLUF_WRITE_FAILED;
  }
  char chunk[kPieceBufferSize];  // not zeroed: see Expansion
  for (std::size_t offset = 0; offset < length;) {
    std::size_t n = utf8::cutPoint(text + offset, length - offset, kPieceSize);
    std::memcpy(chunk, text + offset, n);
    offset += n;
    if (!convertForOutput(ctx, chunk, &n, sizeof chunk)) return GSLUF_FORMAT_FAILED;
    if (!writeTo(stream, chunk, n)) return GSLUF_WRITE_FAILED;
  }
  return flushStream(stream) ? GSLUF_OK : GSLUF_WRITE_FAILED;
}

[[nodiscard]] int writePlain(gsluctx *ctx, uint64_t code, const Segments &text) {
  const Stream stream = gslufzglGetLFIL(ctx, code);
  if (text.size() > kPieceSize) return writePieces(ctx, stream, text);
  if (!text.writeAllTo(stream)) return GSLUF_WRITE_FAILED;
  return flushStream(stream) ? GSLUF_OK : GSLUF_WRITE_FAILED;
}

}  // namespace

FILE *openStreamFile(const char *name, int mode) {
  switch (mode) {
    case GSLUF_MODE_READ: return std::fopen(name, "rbe");
    case GSLUF_MODE_CREATE: return std::fopen(name, "wbe");
    case GSLUF_MODE_APPEND: {
      // fopen's "a" would create the file; this mode wants it to exist.
      const int fd = ::open(name, O_WRONLY | O_APPEND | O_CLOEXEC);
      if (fd < 0) return nullptr;
      FILE *f = ::fdopen(fd, "ab");
      if (f == nullptr) (void)::close(fd);
      return f;
    }
    default: return nullptr;
  }
}

void stdoutResetForTesting() { g_stdout.reset(); }

}  // namespace gslu

using namespace gslu;

extern "C" {

int gslufpaFprintfArgs(gsluctx *ctx, uint64_t stream, const char *format, const gsluArg *args,
                       uint32_t count) {
  gsluctx *g = resolveContext(ctx);
  if (g == nullptr) return GSLUF_NO_CONTEXT;
  if (format == nullptr || !typedArgsValid(args, count)) return GSLUF_FORMAT_FAILED;
  std::string_view body;
  std::string_view suffix;
  if (writesDirectly(g, stream) && plainText(format, args, count, &body, &suffix)) {
    return writePlain(g, stream, Segments(body, suffix));
  }
  Expansion expansion(g);
  const int status = expansion.run(format, args, count);
  if (status != GSLUF_OK) return status;
  return writeText(g, stream, expansion.text(), expansion.length(), expansion.room());
}

int gslufpvFprintfV(gsluctx *ctx, uint64_t stream, const char *format, va_list ap) {
  gsluArg args[kMaxTypedArgs];
  uint32_t count = 0;
  if (!readTypedArgs(ap, args, &count)) return GSLUF_FORMAT_FAILED;
  return gslufpaFprintfArgs(ctx, stream, format, args, count);
}

int gslufpFprintf(gsluctx *ctx, uint64_t stream, const char *format, ...) {
  va_list ap;
  va_start(ap, format);
  const int status = gslufpvFprintfV(ctx, stream, format, ap);
  va_end(ap);
  return status;
}

int gslufwWriteWhole(gsluctx *ctx, uint64_t stream, const char *text, size_t length) {
  gsluctx *g = resolveContext(ctx);
  if (g == nullptr) return GSLUF_NO_CONTEXT;
  if (text == nullptr && length != 0) return GSLUF_NULL_ARG;
  return writeWhole(g, stream, text, length);
}

int gslufcsCloseStdout(gsluctx * /*ctx*/) {
  return g_stdout.close() ? GSLUF_OK : GSLUF_WRITE_FAILED;
}

int gslufoOpen(gsluctx *ctx, const char *name, int mode, gslufFile **out) {
  if (out != nullptr) *out = nullptr;
  if (name == nullptr || out == nullptr) return GSLUF_NULL_ARG;
  if (mode != GSLUF_MODE_READ && mode != GSLUF_MODE_APPEND && mode != GSLUF_MODE_CREATE) {
    return GSLUF_NULL_ARG;
  }
  gsluctx *g = resolveContext(ctx);
  Owned<gslufFile> file(static_cast<gslufFile *>(gslummMalloc(g, sizeof(gslufFile))),
                        ContextFree{g});
  if (!file) return GSLUF_NO_MEMORY;
  file->handle = openStreamFile(name, mode);
  if (file->handle == nullptr) return GSLUF_WRITE_FAILED;
  *out = file.release();
  return GSLUF_OK;
}

int gslufcClose(gsluctx *ctx, gslufFile *file) {
  if (file == nullptr) return GSLUF_NULL_ARG;
  const bool closed = file->handle == nullptr || std::fclose(file->handle) == 0;
  (void)gslumfFree(resolveContext(ctx), file);
  return closed ? GSLUF_OK : GSLUF_WRITE_FAILED;
}

}  // extern "C"
