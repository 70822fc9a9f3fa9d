// gslufpFprintf: the piece rule, the retry sequence, conversion, the
// buffered standard output and its write errors; the file operations.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>

#include "core/context_internal.h"
#include "core/convert.h"
#include "core/output.h"
#include "core/output_internal.h"
#include "tests/support/test_allocator.h"
#include "tests/support/test_support.h"

namespace {

// Points file descriptor `fd` elsewhere for one scope, then restores it.
// Standard output is left as the library found it: nothing buffered, no
// remembered error.
class Redirect {
 public:
  Redirect(int fd, int target) : fd_(fd) {
    std::fflush(nullptr);
    saved_ = dup(fd);
    dup2(target, fd);
  }
  Redirect(const Redirect &) = delete;
  Redirect &operator=(const Redirect &) = delete;
  ~Redirect() {
    dup2(saved_, fd_);
    close(saved_);
    gslu::stdoutResetForTesting();
  }

 private:
  int fd_;
  int saved_;
};

// What a pipe holds right now, without waiting.
std::string drain(int fd) {
  std::string out;
  char buf[65536];
  for (ssize_t n; (n = read(fd, buf, sizeof buf)) > 0;)
    out.append(buf, static_cast<std::size_t>(n));
  return out;
}

// A pipe whose read end never blocks and that holds the large cases.
struct Pipe {
  int read_end = -1;
  int write_end = -1;
  Pipe() {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return;
    read_end = fds[0];
    write_end = fds[1];
    fcntl(read_end, F_SETFL, O_NONBLOCK);
    fcntl(write_end, F_SETPIPE_SZ, 1 << 20);
  }
  ~Pipe() {  // an end closed early is -1 here, which close ignores
    close(read_end);
    close(write_end);
  }
};

class OutputTest : public qtest::FreshContextTest {
 protected:
  // Everything write() sent to standard output, read back from a file
  // after closing standard output (which must succeed and keep descriptor 1
  // taken, so that no file opened later becomes standard output).
  template <class Write>
  std::string captureStdout(Write write) {
    const std::string path = dir_.path() + "/stdout";
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    {
      Redirect redirect(1, fd);
      write();
      EXPECT_EQ(gslufcsCloseStdout(ctx_), GSLUF_OK);
      const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
      EXPECT_NE(next, 1);
      close(next);
    }
    close(fd);
    return qtest::readFile(path);
  }

  // A file opened for writing, as a stream code.
  uint64_t createFile(const char *name) {
    gslufFile *file = nullptr;
    EXPECT_EQ(gslufoOpen(ctx_, (dir_.path() + "/" + name).c_str(), GSLUF_MODE_CREATE, &file),
              GSLUF_OK);
    return reinterpret_cast<uint64_t>(file);
  }
  std::string closeAndRead(uint64_t stream, const char *name) {
    EXPECT_EQ(gslufcClose(ctx_, reinterpret_cast<gslufFile *>(stream)), GSLUF_OK);
    return qtest::readFile(dir_.path() + "/" + name);
  }

  qtest::TempDir dir_;
};

// ---- The piece rule ----------------------------------------------------------------

struct PieceCase {
  const char *name;
  std::string text;
  std::string expected;
  std::string suffix = "";  // literal text after the %s
};

void PrintTo(const PieceCase &c, std::ostream *os) { *os << c.name; }

std::string repeat(char c, std::size_t n) { return std::string(n, c); }

class PieceTest : public OutputTest, public ::testing::WithParamInterface<PieceCase> {};

// A bare "%s" is written to standard output without being expanded; a
// precision forces the expansion. Both must cut the same pieces.
TEST_P(PieceTest, LongTextGetsNewlineAfterEveryPieceDeliberately) {
  const PieceCase &c = GetParam();
  for (const std::string &format : {"%s" + c.suffix, "%.1048576s" + c.suffix}) {
    const std::string out = captureStdout([&] {
      EXPECT_EQ(gslu::fprintf(ctx_, GSLUF_STREAM_STDOUT, format.c_str(), c.text.c_str()), GSLUF_OK);
    });
    EXPECT_EQ(out.size(), c.expected.size()) << format;
    EXPECT_TRUE(out == c.expected) << format;
  }
}

const std::string kE = "\xC3\xA9";

INSTANTIATE_TEST_SUITE_P(
    Sizes, PieceTest,
    ::testing::Values(
        PieceCase{"Exactly32763AsIs", repeat('a', 32763), repeat('a', 32763)},
        PieceCase{"Of32764InTwoPieces", repeat('a', 32764), repeat('a', 32763) + "\na\n"},
        PieceCase{"CharacterNotSplit", repeat('a', 32762) + kE + "b",
                  repeat('a', 32762) + "\n" + kE + "b\n"},
        PieceCase{"ThreePieces", repeat('x', 2 * 32763 + 1),
                  repeat('x', 32763) + "\n" + repeat('x', 32763) + "\nx\n"},
        PieceCase{"SuffixCompletes32763AsIs", repeat('a', 32762), repeat('a', 32762) + "\n", "\n"},
        PieceCase{"SuffixMakesASecondPiece", repeat('a', 32763), repeat('a', 32763) + "\n\n\n",
                  "\n"},
        PieceCase{"CharacterBeforeTheSuffixNotSplit", repeat('a', 32762) + kE,
                  repeat('a', 32762) + "\n" + kE + "\n\n", "\n"}),
    [](const auto &info) { return std::string(info.param.name); });

// ---- The retry sequence ------------------------------------------------------------

// Deliberate: the first heap retry keeps the limit, then it doubles. Rows:
// the text's length, every block asked for, every resize (new size, old
// size named). A long text to a file is written whole.
TEST_F(OutputTest, FirstHeapRetryKeepsLimitThenDoublesDeliberately) {
  const struct {
    std::size_t length;
    std::vector<uint32_t> sizes;
    std::vector<std::pair<uint32_t, uint32_t>> resizes;
  } cases[] = {{32767, {}, {}},
               {32768, {65536, 65536}, {{65536, 32768}}},
               {70000, {65536, 65536, 131072}, {{65536, 32768}, {131072, 65536}}}};
  for (const auto &c : cases) {
    const uint64_t file = createFile("retry");
    qtest::TestAllocator::install(ctx_);
    const std::string text = repeat('r', c.length);
    EXPECT_EQ(gslu::fprintf(ctx_, file, "%s", text.c_str()), GSLUF_OK);
    qtest::TestAllocator::uninstall(ctx_);
    EXPECT_EQ(qtest::TestAllocator::sizes, c.sizes) << c.length;
    EXPECT_EQ(qtest::TestAllocator::reallocations, c.resizes) << c.length;
    EXPECT_EQ(qtest::TestAllocator::live, 0);
    EXPECT_TRUE(closeAndRead(file, "retry") == text);
  }
}

// ---- An allocator of the caller's own -----------------------------------------------

// The counting allocator as a callback table, handed over with a client
// handle the way a client library's caller does.
const gsluMemCallbacks kCountingTable = {
    [](gsluctx *c, void *, uint32_t n) { return qtest::TestAllocator::allocate(c, n); },
    [](gsluctx *c, void *, uint32_t k, uint32_t n, const gsluMemCallbacks *) {
      return qtest::TestAllocator::allocateZeroed(c, k, n);
    },
    [](gsluctx *c, void *, uint32_t n, void *old, uint32_t old_n, const gsluMemCallbacks *) {
      return qtest::TestAllocator::reallocate(c, n, old, old_n);
    },
    [](gsluctx *c, void *, void *p) { qtest::TestAllocator::release(c, p); }, nullptr};

// kReallocHookOnly: the other three operations stay with the C library,
// so only the resizes are seen.
enum class Route { kCallbackTable, kHooks, kReallocHookOnly };

struct AllocatorCase {
  const char *name;
  Route route;
  std::size_t length;           // of the text printed with "%s\n" to standard output
  std::vector<uint32_t> sizes;  // every block asked of it, resizes included
  std::vector<std::pair<uint32_t, uint32_t>> resizes;  // (new size, old size named)
};

void PrintTo(const AllocatorCase &c, std::ostream *os) { *os << c.name; }

class CallerAllocatorTest : public OutputTest, public ::testing::WithParamInterface<AllocatorCase> {
 protected:
  // Prints the case's text with the counting allocator routed in, refusing
  // request number fail_at (from 0); what reached standard output.
  std::string printThroughAllocator(std::size_t fail_at, int *status) {
    const AllocatorCase &c = GetParam();
    const std::string text = repeat('m', c.length);
    return captureStdout([&] {
      qtest::TestAllocator::reset();
      if (c.route == Route::kHooks) {
        qtest::TestAllocator::install(ctx_);
      } else if (c.route == Route::kReallocHookOnly) {
        (void)gslumsSetHooks(ctx_, nullptr, nullptr, qtest::TestAllocator::reallocate, nullptr);
      } else {
        const gslcClientHandle handle = {ctx_, &kCountingTable, nullptr};
        ASSERT_EQ(gslccx_Getgsluctx(&handle), ctx_);
      }
      qtest::TestAllocator::fail_at = fail_at;
      *status = gslu::fprintf(ctx_, GSLUF_STREAM_STDOUT, "%s\n", text.c_str());
      ctx_->mem_table = nullptr;
      qtest::TestAllocator::uninstall(ctx_);
    });
  }
};

// Deliberate, as for any stream: the documented blocks, freed again, and
// the same bytes as with the C library's allocator.
TEST_P(CallerAllocatorTest, SeesTheDocumentedBlocksForStandardOutput) {
  const AllocatorCase &c = GetParam();
  const std::string text = repeat('m', c.length);
  const std::string expected = captureStdout(
      [&] { EXPECT_EQ(gslu::fprintf(ctx_, GSLUF_STREAM_STDOUT, "%s\n", text.c_str()), GSLUF_OK); });
  int status = -1;
  const std::string out = printThroughAllocator(qtest::TestAllocator::kUnlimited, &status);
  EXPECT_EQ(status, GSLUF_OK);
  EXPECT_EQ(qtest::TestAllocator::sizes, c.sizes);
  EXPECT_EQ(qtest::TestAllocator::reallocations, c.resizes);
  EXPECT_EQ(qtest::TestAllocator::live, 0);
  EXPECT_TRUE(out == expected);
}

// Refusing any one of those blocks fails the print before a byte is written.
TEST_P(CallerAllocatorTest, RefusedBlockGivesNoMemoryAndWritesNothing) {
  const AllocatorCase &c = GetParam();
  for (std::size_t n = 0; n < c.sizes.size(); ++n) {
    int status = -1;
    EXPECT_EQ(printThroughAllocator(n, &status), "") << "refused " << n;
    EXPECT_EQ(status, GSLUF_NO_MEMORY) << "refused " << n;
    EXPECT_EQ(qtest::TestAllocator::sizes.size(), n + 1) << "refused " << n;
    EXPECT_EQ(qtest::TestAllocator::live, 0) << "refused " << n;
  }
}

const std::vector<uint32_t> kTwoTries = {65536, 65536};
const std::vector<uint32_t> kThreeTries = {65536, 65536, 131072};
const std::vector<std::pair<uint32_t, uint32_t>> kOneResize = {{65536, 32768}};
const std::vector<std::pair<uint32_t, uint32_t>> kTwoResizes = {{65536, 32768}, {131072, 65536}};

INSTANTIATE_TEST_SUITE_P(
    Routes, CallerAllocatorTest,
    ::testing::Values(
        AllocatorCase{"Table40000", Route::kCallbackTable, 40000, kTwoTries, kOneResize},
        AllocatorCase{"Hooks40000", Route::kHooks, 40000, kTwoTries, kOneResize},
        AllocatorCase{"Table100000", Route::kCallbackTable, 100000, kThreeTries, kTwoResizes},
        AllocatorCase{"Hooks100000", Route::kHooks, 100000, kThreeTries, kTwoResizes},
        AllocatorCase{"ReallocHookOnly100000", Route::kReallocHookOnly, 100000, {65536, 131072},
                      kTwoResizes}),
    [](const auto &info) { return std::string(info.param.name); });

// ---- Formatting failures -------------------------------------------------------------

// Unknown type codes and arguments that do not match the format write
// nothing (the formatter's own cases are the format suite's).
TEST_F(OutputTest, TypeCodeErrorsGiveFormatFailure) {
  const int32_t n = 5;
  const uint64_t stream = createFile("errors");
  EXPECT_EQ(gslufpFprintf(ctx_, stream, "%d\n", 99, &n, 0), GSLUF_FORMAT_FAILED);
  EXPECT_EQ(gslufpFprintf(ctx_, stream, "%s %s\n", GSLUF_ARG_STRING, "x", 0), GSLUF_FORMAT_FAILED);
  EXPECT_EQ(gslufpFprintf(ctx_, stream, nullptr, 0), GSLUF_FORMAT_FAILED);
  const gsluArg bad{77, {}};
  EXPECT_EQ(gslufpaFprintfArgs(ctx_, stream, "x", &bad, 1), GSLUF_FORMAT_FAILED);
  EXPECT_EQ(
      gslufpFprintf(ctx_, stream, "%d|%s\n", GSLUF_ARG_INT32_PTR, &n, GSLUF_ARG_STRING, nullptr, 0),
      GSLUF_OK);
  EXPECT_EQ(closeAndRead(stream, "errors"), "5|<null arg>\n");
}

// ---- Conversion ---------------------------------------------------------------------------

TEST_F(OutputTest, ConvertsWhenFlagIsSet) {
  ASSERT_EQ(gsluucbSetOutputLanguage(ctx_, "en_US.ISO-8859-1"), GSLUUC_OK);
  const uint64_t stream = createFile("latin1");
  EXPECT_EQ(gslu::fprintf(ctx_, stream, "%s\n", "caf\xC3\xA9"), GSLUF_OK);
  // Six bytes after a replacement: the conversion refuses, nothing written.
  EXPECT_EQ(gslu::fprintf(ctx_, stream, "%s\n",
                          "ab\xE2\x82\xAC"
                          "cd"),
            GSLUF_FORMAT_FAILED);
  // With the flag set, long text goes in pieces whatever the stream.
  const std::string long_text = repeat('a', 32762) + kE + "b";
  EXPECT_EQ(gslu::fprintf(ctx_, stream, "%s", long_text.c_str()), GSLUF_OK);
  EXPECT_EQ(closeAndRead(stream, "latin1"), "caf\xE9\n" + repeat('a', 32762) +
                                                "\n\xE9"
                                                "b\n");
}

// ---- Standard output ----------------------------------------------------------------------

TEST_F(OutputTest, StdoutToPipeIsBufferedUntilStderrOr64KiB) {
  Pipe out;
  Pipe err;
  ASSERT_GE(out.read_end, 0);
  ASSERT_GE(err.read_end, 0);
  Redirect redirect_out(1, out.write_end);
  Redirect redirect_err(2, err.write_end);
  EXPECT_EQ(gslu::fprintf(ctx_, GSLUF_STREAM_STDOUT, "%s\n", "first"), GSLUF_OK);
  EXPECT_EQ(drain(out.read_end), "");
  // Standard error comes after what standard output holds.
  EXPECT_EQ(gslu::fprintf(ctx_, GSLUF_STREAM_STDERR, "%s\n", "warning"), GSLUF_OK);
  EXPECT_EQ(drain(out.read_end), "first\n");
  EXPECT_EQ(drain(err.read_end), "warning\n");
  // 64 KiB are never held back.
  const std::string chunk = repeat('c', 20000);
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(gslu::fprintf(ctx_, GSLUF_STREAM_STDOUT, "%s", chunk.c_str()), GSLUF_OK);
  const std::string early = drain(out.read_end);
  EXPECT_GE(early.size(), 60000u);
  EXPECT_EQ(gslufcsCloseStdout(ctx_), GSLUF_OK);
  EXPECT_EQ(early.size() + drain(out.read_end).size(), 80000u);
  // Closed: later output fails.
  EXPECT_EQ(gslu::fprintf(ctx_, GSLUF_STREAM_STDOUT, "%s\n", "late"), GSLUF_WRITE_FAILED);
}

TEST_F(OutputTest, TerminalSeesEveryCallAtOnce) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
    if (master >= 0) close(master);
    GTEST_SKIP() << "no pseudo-terminal available";
  }
  const int slave = open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(slave, 0);
  {
    Redirect redirect(1, slave);
    EXPECT_EQ(gslu::fprintf(ctx_, GSLUF_STREAM_STDOUT, "%s", "tty"), GSLUF_OK);
    pollfd p{master, POLLIN, 0};
    ASSERT_EQ(poll(&p, 1, 5000), 1);  // without a flush of ours nothing would come
    char buf[16] = {};
    EXPECT_EQ(read(master, buf, sizeof buf), 3);
    EXPECT_STREQ(buf, "tty");
  }
  close(slave);
  close(master);
}

TEST_F(OutputTest, ClosedPipeGivesWriteFailureRememberedUntilClose) {
  auto previous = std::signal(SIGPIPE, SIG_IGN);
  {
    Pipe out;
    close(out.read_end);
    out.read_end = -1;
    Redirect redirect(1, out.write_end);
    EXPECT_EQ(gslu::fprintf(ctx_, GSLUF_STREAM_STDOUT, "%s\n", "buffered"), GSLUF_OK);
    const std::string big = repeat('b', 70000);
    EXPECT_EQ(gslu::fprintf(ctx_, GSLUF_STREAM_STDOUT, "%s", big.c_str()), GSLUF_WRITE_FAILED);
    EXPECT_EQ(gslu::fprintf(ctx_, GSLUF_STREAM_STDOUT, "%s\n", "small"), GSLUF_WRITE_FAILED);
    EXPECT_EQ(gslufcsCloseStdout(ctx_), GSLUF_WRITE_FAILED);
    EXPECT_EQ(gslufcsCloseStdout(ctx_), GSLUF_WRITE_FAILED);
  }
  std::signal(SIGPIPE, previous);
}

// exit() without gslufcsCloseStdout still delivers what was buffered.
TEST_F(OutputTest, BufferedOutputReachesPipeAtExit) {
  Pipe out;
  std::fflush(nullptr);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    dup2(out.write_end, 1);
    gslu::stdoutResetForTesting();
    (void)gslu::fprintf(nullptr, GSLUF_STREAM_STDOUT, "%s\n", "from the child");
    std::exit(0);
  }
  close(out.write_end);
  out.write_end = -1;
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(drain(out.read_end), "from the child\n");
}

}  // namespace
