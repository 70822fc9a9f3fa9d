// The command's work driven inside the test process (driver/driver.h), with
// the failing allocator: whatever allocation fails, the run either converts
// everything exactly as without failures, or stops with a message after
// whole records, and leaves no block behind.
#include "driver/driver.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "core/output_internal.h"
#include "tests/driver/run_support.h"
#include "tests/support/test_allocator.h"

namespace {

using Alloc = qtest::TestAllocator;
using qtest::document;

// An entry "cn=<cn>,o=ex" whose record holds value, and a decoded one.
std::string entry(const std::string &cn, const std::string &value) {
  return "<entry dn=\"cn=" + cn +
         ",o=ex\"><objectclass><oc-value>top</oc-value></objectclass><attr name=\"cn\"><value>" +
         value + "</value><value encoding=\"base64\">QW5uIExlZQ==</value></attr></entry>";
}

class ConvertTest : public qtest::FreshContextTest {
 protected:
  // Runs convertAll with argc (by default the program's name and the
  // arguments), standard output and standard error sent to files.
  qtest::RunResult run(std::vector<std::string> args, int argc = -1) {
    std::vector<char *> argv{const_cast<char *>("quillomat")};
    for (std::string &a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    if (argc < 0) argc = static_cast<int>(args.size()) + 1;
    std::fflush(nullptr);
    const int saved[] = {dup(1), dup(2)};
    for (int fd : {1, 2}) {
      const int f = open(path(fd).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      dup2(f, fd);
      close(f);
    }
    gslu::stdoutResetForTesting();
    const int status = quillomat::convertAll(ctx_, argc, argc == 0 ? &argv.back() : argv.data());
    std::fflush(stderr);
    for (int fd : {1, 2}) {
      dup2(saved[fd - 1], fd);
      close(saved[fd - 1]);
    }
    gslu::stdoutResetForTesting();
    return {qtest::readFile(path(1)), qtest::readFile(path(2)), status};
  }
  std::string path(int fd) const { return dir_.path() + "/fd" + std::to_string(fd); }
  qtest::TempDir dir_;
};

// A process started without any argument at all has nothing to convert;
// only a count of exactly 1 (the program's name alone) is a usage error.
TEST_F(ConvertTest, NoArgumentVectorAtAllConvertsNothing) {
  const qtest::RunResult none = run({}, /*argc=*/0);
  EXPECT_EQ(none.out + none.err, "");
  EXPECT_EQ(none.status, quillomat::kExitSuccess);
  EXPECT_EQ(run({}).err, "usage: quillomat file1 file2 ...\n\n");
}

// The callback passes on the record writer's refusal; printing nothing and
// going on would lose the entry.
TEST_F(ConvertTest, TheCallbackPassesOnARenderingFailure) {
  LDAPEntry *entry = nullptr;
  ASSERT_EQ(gslcleceCreateLDAPEntry(nullptr, "cn=a", &entry), GSLCLE_OK);
  LDAPAttribute *forged = nullptr;
  ASSERT_EQ(gslcleclaCreateLDAPAttribute(nullptr, "changetype", GSLCLE_VALUES_BINARY, &forged),
            GSLCLE_OK);
  ASSERT_EQ(gslcleaaAddLDAPAttribute(nullptr, entry, forged), GSLCLE_OK);
  EXPECT_NE(s0gslPrintLDAPEntry(entry, nullptr), 0);
  (void)gslcledeDestroyLDAPEntry(nullptr, entry);
}

// Three documents, one record longer than the formatting buffers. Each
// allocation of the run fails in turn, alone: the run must then stop with a
// message after whole records (a run that goes on would have lost an entry),
// or, where the failure is harmless, convert everything all the same.
TEST_F(ConvertTest, EveryAllocationFailureEndsInWholeRecordsAndAMessage) {
  const std::vector<std::string> files = {
      dir_.write("a.dsml", document(entry("a1", "x") + entry("a2", "y"))),
      dir_.write("b.dsml", document(entry("b1", std::string(40000, 'b')))),
      dir_.write("c.dsml", document(entry("c1", "\xc3\xa9t\xc3\xa9") + entry("c2", "z"))),
  };
  const qtest::RunResult full = run(files);
  ASSERT_EQ(full.status, 0);
  ASSERT_NE(full.err.find("records cut into pieces"), std::string::npos) << full.err;
  Alloc::Scope allocator;
  size_t failures = 0;
  for (size_t n = 0;; ++n) {
    ASSERT_LT(n, 100000u);
    SCOPED_TRACE(testing::Message() << "allocation " << n << " fails");
    Alloc::reset();
    Alloc::fail_at = n;
    const qtest::RunResult r = run(files);
    EXPECT_EQ(Alloc::live, 0) << "blocks left behind";
    if (r.status == quillomat::kExitSuccess) {
      EXPECT_EQ(r.out, full.out);
      EXPECT_EQ(r.err, full.err);
      if (Alloc::calls <= n) break;  // nothing failed: every allocation was tried
      continue;
    }
    ++failures;
    if (r.err.empty() && r.out.empty()) {
      // Kept: a parser context that cannot be created ends the run with the
      // reader's status and no message.
      EXPECT_TRUE(r.status == 1 || r.status == 5) << r.status;
      continue;
    }
    EXPECT_EQ(r.status, quillomat::kExitFailure);
    EXPECT_NE(r.err.find("could not be converted"), std::string::npos) << r.err;
    EXPECT_TRUE(full.out.starts_with(r.out)) << "not a prefix of the full output";
    EXPECT_TRUE(r.out.empty() || r.out.ends_with("\n\n")) << "a record was cut";
  }
  EXPECT_GT(failures, 100u);
}

// The record is rendered, but the text cannot be printed: the entry must
// not vanish from an output that otherwise looks complete. Printing
// allocates only when it converts, so the run is in a Latin-1 locale.
TEST_F(ConvertTest, AFailedPrintStopsTheRun) {
  const std::string locales = qtest::latin1Locales(dir_);
  if (locales.empty()) GTEST_SKIP() << "localedef cannot build en_US.ISO-8859-1 here";
  qtest::dropContext();
  env_.set("LOCPATH", locales);
  env_.set("LANG", "en_US.ISO-8859-1");
  ctx_ = gsluizgcGetContext();
  ASSERT_NE(ctx_, nullptr);
  const std::string big = dir_.write(
      "big.dsml",
      document(entry("a1", "x") + entry("a2", std::string(40000, 'b')) + entry("a3", "z")));
  Alloc::Scope allocator;
  // Fails exactly the first block the printing of a long record asks for.
  static bool failed_once;
  failed_once = false;
  ASSERT_EQ(gslumsSetHooks(
                nullptr,
                [](gsluctx *, uint32_t size) -> void * {
                  if (size == 65536 && !failed_once) {
                    failed_once = true;
                    return nullptr;
                  }
                  return Alloc::allocate(nullptr, size);
                },
                nullptr, Alloc::reallocate, Alloc::release),
            0);
  const qtest::RunResult r = run({big});
  EXPECT_TRUE(failed_once);
  EXPECT_EQ(r.status, quillomat::kExitFailure);
  EXPECT_EQ(r.out, "dn: cn=a1,o=ex\nobjectclass: top\ncn: x\ncn: Ann Lee\n\n");
  EXPECT_NE(r.err.find("could not be converted"), std::string::npos) << r.err;
}

}  // namespace
