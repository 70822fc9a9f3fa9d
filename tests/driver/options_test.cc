// End-to-end runs of the quillomat binary with its options: --strict against
// the default output and its warning, --no-wrap, -o with and without a
// failure, --continue, --progress, the option syntax, and the runs a
// planted fault once got past (--help --version, "-- --", a file: URI
// naming LOCALHOST, a final flush that fails).
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/driver/run_support.h"

namespace {

using qtest::document;
using qtest::entry;
using qtest::failed;
using qtest::record;
using qtest::RunResult;

class OptionsTest : public ::testing::Test {
 protected:
  RunResult run(const std::vector<std::string> &args, qtest::RunOptions o = {}) {
    o.cwd = dir_.path();
    return qtest::runQuillomat(args, o);
  }
  std::string path(const std::string &name) const { return dir_.path() + "/" + name; }
  // The names in the run's directory: no temporary file may be left.
  std::vector<std::string> names() const {
    std::vector<std::string> out;
    for (const auto &e : std::filesystem::directory_iterator(dir_.path())) {
      out.push_back(e.path().filename().string());
    }
    std::sort(out.begin(), out.end());
    return out;
  }
  qtest::TempDir dir_;
};

// One entry with an attribute d of the given values (DSML text, base64 ones
// marked b64:).
std::string withValues(const std::vector<std::string> &values) {
  std::string attr = "<entry dn=\"cn=a,o=ex\"><attr name=\"d\">";
  for (const std::string &v : values) {
    attr += v.starts_with("b64:") ? "<value encoding=\"base64\">" + v.substr(4) + "</value>"
                                  : "<value>" + v + "</value>";
  }
  return document(attr + "</attr></entry>\n");
}

const std::string kWarningEnd = "); quillomat --strict writes LDIF that every RFC 2849 reader loads\n";

// ---- What RFC 2849 does not allow: the default's warning, --strict's base64 ------

struct ValueCase {
  const char *name;
  std::vector<std::string> values;  // of attribute d
  std::vector<std::string> args;
  std::string out;  // after "dn: cn=a,o=ex\n"
  std::string err;
};

void PrintTo(const ValueCase &c, std::ostream *os) { *os << c.name; }

class ValueFormTest : public OptionsTest, public ::testing::WithParamInterface<ValueCase> {};

TEST_P(ValueFormTest, WritesTheValuesAndSaysWhatIsNotRfc2849) {
  dir_.write("v.dsml", withValues(GetParam().values));
  std::vector<std::string> args = GetParam().args;
  args.push_back("v.dsml");
  const RunResult r = run(args);
  EXPECT_EQ(r.out, "dn: cn=a,o=ex\n" + GetParam().out + "\n");
  EXPECT_EQ(r.err, GetParam().err);
  EXPECT_EQ(r.status, 0);
}

const std::string kLong(100, 'x');

INSTANTIATE_TEST_SUITE_P(
    Values, ValueFormTest,
    ::testing::Values(
        // "YQBi" is a, NUL, b; "PHg=" is "<x"; "YWIg" is "ab ".
        ValueCase{"DefaultCutsAtNulAndWritesLtPlain",
                  {"b64:YQBi", "&lt;x", "ab ", "b64:PGE+AGI="},
                  {},
                  "d: a\nd: <x\nd: ab \nd: <a>\n",
                  "quillomat: warning: the LDIF written is not valid RFC 2849 (plain values cut "
                  "at a NUL byte: 2, plain values starting with '<': 2" +
                      kWarningEnd},
        ValueCase{"WholeRecordsStillSaysSo",
                  {"&lt;x"},
                  {"-w"},
                  "d: <x\n",
                  "quillomat: warning: the LDIF written is not valid RFC 2849 (plain values "
                  "starting with '<': 1" +
                      kWarningEnd},
        ValueCase{"StrictWritesThemInBase64Whole",
                  {"b64:YQBi", "&lt;x", "ab ", "a&lt;", "plain"},
                  {"--strict"},
                  "d:: YQBi\nd:: PHg=\nd:: YWIg\nd: a<\nd: plain\n",
                  ""},
        ValueCase{"NothingToSayAboutRfc2849Values", {"plain", " lead", ""}, {}, "d: plain\nd:: IGxlYWQ=\nd: \n", ""},
        ValueCase{"NoWrapKeepsLongLinesWhole",
                  {kLong, "b64:" + std::string(100, 'Q')},
                  {"--no-wrap"},
                  "d: " + kLong + "\nd:: " + std::string(100, 'Q') + "\n",
                  ""},
        ValueCase{"NoWrapWithStrict",
                  {"&lt;" + kLong},
                  {"-s", "--no-wrap"},
                  "d:: PHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh"
                  "4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHg=\n",
                  ""}),
    [](const auto &info) { return std::string(info.param.name); });

// Records cut into pieces are counted once each; -w and -s write them
// whole.
TEST_F(OptionsTest, RecordsCutIntoPiecesAreCounted) {
  dir_.write("big.dsml", withValues({std::string(40000, 'b')}) );
  const std::string warning = "quillomat: warning: the LDIF written is not valid RFC 2849 (records "
                              "cut into pieces of 32763 bytes: 2" + kWarningEnd;
  EXPECT_EQ(run({"big.dsml", "big.dsml"}).err, warning);
  for (const char *whole : {"-w", "--strict"}) {
    const RunResult r = run({whole, "big.dsml"});
    EXPECT_EQ(r.err, "") << whole;
    EXPECT_EQ(r.out.find("\n\n"), r.out.size() - 2) << whole;  // one record, whole
  }
}

// ---- Names -----------------------------------------------------------------------

// A colon would end the attribute type early, in every mode; --strict holds
// names to RFC 4512 too.
TEST_F(OptionsTest, NamesWithAColonAreRefusedEverywhereAndStrictWantsRfc4512) {
  const auto doc = [&](const std::string &name) {
    return dir_.write("n.dsml", document(entry("a1") + "<entry dn=\"cn=b,o=ex\"><attr name=\"" +
                                         name + "\"><value>v</value></attr></entry>\n"));
  };
  const std::string refused = "n.dsml:4:23: invalid attribute name \"";
  const std::string why = "\" (it would change the structure of the LDIF)";
  for (const char *name : {"seeAlso:", "description:&lt; file:///etc/shadow"}) {
    doc(name);
    const std::string shown = std::string(name) == "seeAlso:" ? "seeAlso:"
                                                              : "description:< file:///etc/shadow";
    for (const std::vector<std::string> &options :
         {std::vector<std::string>{}, {"-w"}, {"--strict"}}) {
      std::vector<std::string> args = options;
      args.push_back("n.dsml");
      const RunResult r = run(args);
      EXPECT_EQ(r.out, record("a1")) << name;
      EXPECT_EQ(r.err, failed(refused + shown + why)) << name;
      EXPECT_EQ(r.status, 1);
    }
  }
  doc("x_y");
  EXPECT_EQ(run({"n.dsml"}).status, 0);
  const RunResult strict = run({"-s", "n.dsml"});
  EXPECT_EQ(strict.err, failed(refused + "x_y" + why));
  EXPECT_EQ(strict.status, 1);
}

// The locale's character set is not UTF-8: the default converts text and
// the base64 of text; --strict writes UTF-8.
TEST_F(OptionsTest, StrictWritesUtf8WhateverTheLocale) {
  const std::string locales = qtest::latin1Locales(dir_);
  if (locales.empty()) GTEST_SKIP() << "localedef cannot build en_US.ISO-8859-1 here";
  dir_.write("l.dsml", document("<entry dn=\"cn=a\"><attr name=\"cn\"><value>\xc3\xa9</value>"
                                "</attr></entry>"));
  const qtest::RunOptions latin1 = {.env = {{"LOCPATH", locales}, {"LANG", "en_US.ISO-8859-1"}}};
  EXPECT_EQ(run({"l.dsml"}, latin1).out, "dn: cn=a\ncn:: 6Q==\n\n");        // Latin-1 é
  EXPECT_EQ(run({"--strict", "l.dsml"}, latin1).out, "dn: cn=a\ncn:: w6k=\n\n");  // UTF-8 é
}

// ---- -o FILE and --continue ---------------------------------------------------------

TEST_F(OptionsTest, OutputFileIsWrittenOnlyWhenTheRunSucceeds) {
  dir_.write("a.dsml", document(entry("a1") + entry("a2")));
  dir_.write("bad.dsml", document(entry("b1") + "<entry/>\n"));
  dir_.write("old.ldif", "old\n");
  ASSERT_EQ(chmod(path("old.ldif").c_str(), 0640), 0);
  const std::vector<std::string> before = {"a.dsml", "bad.dsml", "old.ldif"};

  // Success: the file has the LDIF, standard output nothing; the file keeps
  // its permissions.
  RunResult r = run({"-o", "old.ldif", "a.dsml"});
  EXPECT_EQ(r.out + r.err + std::to_string(r.status), "0");
  EXPECT_EQ(qtest::readFile(path("old.ldif")), record("a1") + record("a2"));
  struct stat st {};
  ASSERT_EQ(stat(path("old.ldif").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);

  // A failure: neither the old file nor a new one changes, nothing is left.
  dir_.write("old.ldif", "old\n");
  const std::string kept = "quillomat: old.ldif is left as it was\n";
  for (const std::vector<std::string> &args :
       {std::vector<std::string>{"--output=old.ldif", "a.dsml", "bad.dsml"},
        {"a.dsml", "-oold.ldif", "bad.dsml", "a.dsml"}}) {
    r = run(args);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, failed("bad.dsml:4:1: entry without a dn attribute") + kept);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(qtest::readFile(path("old.ldif")), "old\n");
    EXPECT_EQ(names(), before);
  }
  r = run({"-o", "new.ldif", "bad.dsml"});
  EXPECT_EQ(r.err, failed("bad.dsml:4:1: entry without a dn attribute") +
                       "quillomat: new.ldif is left as it was\n");
  EXPECT_EQ(names(), before);

  // --continue: the failure is told, the run goes on, the file is written,
  // and the status still says something failed.
  r = run({"-c", "-o", "old.ldif", "bad.dsml", "a.dsml"});
  EXPECT_EQ(r.err, failed("bad.dsml:4:1: entry without a dn attribute"));
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(qtest::readFile(path("old.ldif")), record("b1") + record("a1") + record("a2"));

  r = run({"-o", "nowhere/x.ldif", "a.dsml"});
  EXPECT_EQ(r.err, "quillomat: nowhere/x.ldif: cannot be written: No such file or directory\n");
  EXPECT_EQ(r.status, 1);
}

TEST_F(OptionsTest, ContinueGoesOnAfterEachFailure) {
  dir_.write("a.dsml", document(entry("a1")));
  dir_.write("bad.dsml", "<dsml><directory-entries>");
  const RunResult r = run({"--continue", "bad.dsml", "missing.dsml", "a.dsml"});
  EXPECT_EQ(r.out, record("a1"));
  EXPECT_EQ(r.err, failed("bad.dsml:1:26: no element found") +
                       failed("missing.dsml: cannot be opened: No such file or directory"));
  EXPECT_EQ(r.status, 1);
}

// Standard error is not a terminal here: a final line per document, and a
// line every ten seconds (too long for a test).
TEST_F(OptionsTest, ProgressEndsEachDocumentWithALine) {
  dir_.write("a.dsml", document(entry("a1") + entry("a2")));
  const RunResult r = run({"-p", "a.dsml", "-"}, {.stdin_text = document(entry("s"))});
  EXPECT_EQ(r.out, record("a1") + record("a2") + record("s"));
  const std::size_t second = r.err.find('\n') + 1;
  EXPECT_TRUE(r.err.starts_with("quillomat: a.dsml: 0.0 MB, 2 records in ")) << r.err;
  EXPECT_TRUE(r.err.substr(second).starts_with("quillomat: <stdin>: 0.0 MB, 1 records in "))
      << r.err;
  EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 2) << r.err;
  EXPECT_EQ(r.status, 0);
}

// ---- The option syntax, and runs a planted fault once got past -------------------

TEST_F(OptionsTest, TheFirstOfHelpAndVersionWins) {
  for (const auto &[args, first] :
       std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"--help", "--version"}, "usage: quillomat [options]"},
           {{"-h", "-V"}, "usage: quillomat [options]"},
           {{"--version", "--help"}, "quillomat " QUILLOMAT_VERSION " (expat_"},
           {{"-Vh"}, "quillomat " QUILLOMAT_VERSION " (expat_"}}) {
    const RunResult r = run(args);
    EXPECT_TRUE(r.out.starts_with(first)) << args[0] << ": " << r.out;
    EXPECT_EQ(r.err + std::to_string(r.status), "0");
  }
}

TEST_F(OptionsTest, BundlesAndValuesOfOptions) {
  dir_.write("--", document(entry("dash")));
  dir_.write("a.dsml", withValues({"&lt;x"}));
  // "-- --": the second is a document named "--".
  EXPECT_EQ(run({"--", "--"}).out, record("dash"));
  const RunResult bundled = run({"-sw", "a.dsml"});
  EXPECT_EQ(bundled.out, "dn: cn=a,o=ex\nd:: PHg=\n\n");
  const std::string usage =
      "usage: quillomat [options] file1 file2 ...\nTry 'quillomat --help' for more information.\n";
  EXPECT_EQ(run({"a.dsml", "-o"}).err, "quillomat: option -o needs a value\n" + usage);
  EXPECT_EQ(run({"--strict=yes", "a.dsml"}).err,
            "quillomat: option --strict=yes takes no value\n" + usage);
}

TEST_F(OptionsTest, AFileUriNamingLocalhostInCapitalsIsLocal) {
  dir_.write("a.dsml", document(entry("a1")));
  EXPECT_EQ(run({"file://LOCALHOST" + path("a.dsml")}).out, record("a1"));
}

// The record fits the output buffer, so the only write that fails is the
// flush at the end: that is output lost, not a document not converted.
TEST_F(OptionsTest, AFailedFinalFlushIsOutputLost) {
  dir_.write("a.dsml", document(entry("a1")));
  const RunResult r = run({"a.dsml"}, {.stdout_path = "/dev/full"});
  EXPECT_EQ(r.err,
            "quillomat: standard output could not be written; the LDIF written there is "
            "incomplete.\n");
  EXPECT_EQ(r.status, 1);
}

}  // namespace
