// End-to-end runs of the command line as users meet it: the line that says
// which document failed, where and why; standard input; options; whole
// records that an LDIF reader nobody here wrote reads back.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/driver/run_support.h"

namespace {

using qtest::runQuillomat;
using qtest::RunResult;

const std::string kUsage = "usage: quillomat file1 file2 ...\n\n";

using qtest::document;
using qtest::entry;
using qtest::failed;
using qtest::record;

class CliTest : public ::testing::Test {
 protected:
  // Runs in the test's directory, so that messages name files as given.
  RunResult run(const std::vector<std::string> &args, qtest::RunOptions o = {}) {
    o.cwd = dir_.path();
    return runQuillomat(args, o);
  }
  qtest::TempDir dir_;
};

// ---- Where and why ---------------------------------------------------------------

struct CauseCase {
  const char *name;
  std::string document;  // written to doc.dsml after an entry that converts
  std::string cause;     // what the line says between "quillomat: " and ";"
};

void PrintTo(const CauseCase &c, std::ostream *os) { *os << c.name; }

class CauseTest : public CliTest, public ::testing::WithParamInterface<CauseCase> {};

// The entry before the fault is written; the line names the element at
// fault (line 3 is the second entry; undecodable text is told at the end tag
// of its value).
TEST_P(CauseTest, NamesTheFileThePlaceAndTheCause) {
  dir_.write("doc.dsml", "<?xml version=\"1.0\"?>\n<dsml><directory-entries>" + entry("a") +
                             GetParam().document + "</directory-entries></dsml>\n");
  const RunResult r = run({"doc.dsml"});
  EXPECT_EQ(r.out, record("a"));
  EXPECT_EQ(r.err, failed(GetParam().cause));
  EXPECT_EQ(r.status, 1);
}

INSTANTIATE_TEST_SUITE_P(
    Causes, CauseTest,
    ::testing::Values(
        CauseCase{"MismatchedTag",
                  "<entry dn=\"cn=b\"><attr name=\"cn\"><value>b</vaule></attr></entry>",
                  "doc.dsml:3:44: mismatched tag"},
        CauseCase{"EntryWithoutDn", "<entry><attr name=\"cn\"><value>b</value></attr></entry>",
                  "doc.dsml:3:1: entry without a dn attribute"},
        CauseCase{"AttrWithoutName", "<entry dn=\"cn=b\"><attr><value>b</value></attr></entry>",
                  "doc.dsml:3:18: attr without a name attribute"},
        CauseCase{"ForgingName",
                  "<entry dn=\"cn=b\">\n  <attr name=\"description&#10;&#10;dn: "
                  "cn=admin,o=ex&#10;changetype: "
                  "delete\"><value>b</value></attr></entry>",
                  "doc.dsml:4:3: invalid attribute name \"description\\n\\ndn: "
                  "cn=admin,o=ex\\nchangetype: "
                  "delete\" (it would change the structure of the LDIF)"},
        CauseCase{"UndecodableBase64",
                  "<entry dn=\"cn=b\"><attr name=\"cn\">\n<value "
                  "encoding=\"base64\">\n!!!!</value></attr></entry>",
                  "doc.dsml:5:5: the base64 text of this value cannot be decoded"}),
    [](const auto &info) { return std::string(info.param.name); });

// Failures before or outside the document's elements.
TEST_F(CliTest, SourcesThatCannotBeReadAreNamedWithTheSystemsReason) {
  std::filesystem::create_directory(dir_.path() + "/folder.dsml");
  const struct {
    std::string argument;
    std::string cause;
  } cases[] = {
      {"missing.dsml", "missing.dsml: cannot be opened: No such file or directory"},
      {"folder.dsml", "folder.dsml: cannot be opened: Is a directory"},
      {"http://example.com/x.dsml",
       "http://example.com/x.dsml: only local files and file: URIs are read"},
      {"file:relative.dsml", "file:relative.dsml: malformed file: URI"},
  };
  for (const auto &c : cases) {
    const RunResult r = run({c.argument});
    EXPECT_EQ(r.err, failed(c.cause)) << c.argument;
    EXPECT_EQ(r.status, 1) << c.argument;
  }
  if (geteuid() != 0) {  // root reads any file
    dir_.write("secret.dsml", document(entry("a")));
    ASSERT_EQ(chmod((dir_.path() + "/secret.dsml").c_str(), 0), 0);
    EXPECT_EQ(run({"secret.dsml"}).err, failed("secret.dsml: cannot be opened: Permission denied"));
  }
}

TEST_F(CliTest, EntitiesRefusedAreNamedWhereTheyAreUsed) {
  dir_.write("external.dsml",
             "<!DOCTYPE dsml [<!ENTITY e SYSTEM \"/etc/passwd\">]>\n<dsml>\n<directory-entries>&e;"
             "</directory-entries></dsml>\n");
  EXPECT_EQ(
      run({"external.dsml"}).err,
      failed(
          "external.dsml:3:20: external entity refused (nothing outside the document is loaded)"));
  std::string lol = "<!DOCTYPE dsml [<!ENTITY l0 \"lol\">";
  for (int i = 1; i < 10; ++i) {
    const std::string prev = "&l" + std::to_string(i - 1) + ";";
    lol += "<!ENTITY l" + std::to_string(i) + " \"" + prev + prev + prev + prev + prev + prev +
           prev + prev + prev + prev + "\">";
  }
  dir_.write("laughs.dsml", lol + "]>\n<dsml>&l9;</dsml>\n");
  const RunResult r = run({"laughs.dsml"});
  EXPECT_TRUE(r.err.starts_with("quillomat: laughs.dsml:2:")) << r.err;
  EXPECT_NE(r.err.find("amplification"), std::string::npos) << r.err;
  EXPECT_EQ(r.status, 1);
}

TEST_F(CliTest, TheFailingDocumentIsTheOneNamed) {
  dir_.write("first.dsml", document(entry("a")));
  dir_.write("second.dsml", document("<entry/>"));
  const RunResult r = run({"first.dsml", "second.dsml", "first.dsml"});
  EXPECT_EQ(r.out, record("a"));
  EXPECT_EQ(r.err, failed("second.dsml:3:1: entry without a dn attribute"));
}

// A DSML v2 request is not DSML v1: nothing is converted, one warning says
// why, and the run still succeeds.
TEST_F(CliTest, ARootOtherThanDsmlIsAWarning) {
  dir_.write("v2.dsml",
             "<batchRequest xmlns=\"urn:oasis:names:tc:DSML:2:0:core\"><addRequest dn=\"cn=a\"/>"
             "</batchRequest>\n");
  dir_.write("v1.dsml", document(entry("a")));
  const RunResult r = run({"v2.dsml", "v1.dsml"});
  EXPECT_EQ(r.out, record("a"));
  EXPECT_EQ(
      r.err,
      "quillomat: v2.dsml:1:1: warning: the root element is batchRequest, not dsml; nothing was "
      "converted\n");
  EXPECT_EQ(r.status, 0);
}

// With VESTRA_HOME set, the failure also reaches the error-level log.
TEST_F(CliTest, TheFailureLineGoesToTheLogToo) {
  std::filesystem::create_directories(dir_.path() + "/home/ldap/log");
  const RunResult r = run({"missing.dsml"}, {.env = {{"VESTRA_HOME", dir_.path() + "/home"},
                                                     {"VSX_LDAP_MESGDIR", QUILLOMAT_MESGDIR}}});
  std::string log;
  for (const auto &f : std::filesystem::directory_iterator(dir_.path() + "/home/ldap/log")) {
    log += qtest::readFile(f.path().string());
  }
  EXPECT_NE(log.find(" * quillomat: missing.dsml: cannot be opened: No such file or directory;"),
            std::string::npos)
      << log;
  EXPECT_EQ(r.status, 1);
}

// ---- Standard input and options ----------------------------------------------------

// Several megabytes through a pipe give the bytes the same file gives.
TEST_F(CliTest, DashReadsStandardInputAnywhereOnce) {
  std::string entries;
  for (int i = 0; i < 30000; ++i) entries += entry(std::string("n").append(std::to_string(i)));
  const std::string doc = document(entries);
  ASSERT_GT(doc.size(), 2u << 20);
  dir_.write("big.dsml", doc);
  dir_.write("small.dsml", document(entry("s")));
  const RunResult file = run({"small.dsml", "big.dsml", "small.dsml"});
  const RunResult piped = run({"small.dsml", "-", "small.dsml"}, {.stdin_text = doc});
  EXPECT_EQ(piped.status, 0) << piped.err;
  EXPECT_TRUE(piped.out == file.out);
  const RunResult twice = run({"-", "small.dsml", "-"}, {.stdin_text = doc});
  EXPECT_EQ(twice.out, "");
  EXPECT_EQ(twice.err, "quillomat: standard input (-) can be named only once\n" + kUsage);
  EXPECT_EQ(twice.status, 1);
  const RunResult bad = run({"-"}, {.stdin_text = "<dsml>"});
  EXPECT_EQ(bad.err, failed("<stdin>:1:7: no element found"));
}

TEST_F(CliTest, DoubleDashEndsTheOptions) {
  dir_.write("-x", document(entry("x")));
  dir_.write("--help", document(entry("h")));
  const RunResult r = run({"--", "-x", "--help"});
  EXPECT_EQ(r.out, record("x") + record("h"));
  EXPECT_EQ(r.status, 0) << r.err;
}

TEST_F(CliTest, UnknownOptionsAndNoDocumentAreUsageErrors) {
  dir_.write("a.dsml", document(entry("a")));
  for (const std::string option : {"-x", "--whole", "--HELP", "-wx"}) {
    const RunResult r = run({"a.dsml", option});
    EXPECT_EQ(r.out, "") << option;
    EXPECT_EQ(r.err, "quillomat: unknown option " + option + "\n" + kUsage);
    EXPECT_EQ(r.status, 1);
  }
  for (const std::vector<std::string> &args : {std::vector<std::string>{"-w"}, {"--"}}) {
    const RunResult r = run(args);
    EXPECT_EQ(r.err, "quillomat: no document named\n" + kUsage);
    EXPECT_EQ(r.status, 1);
  }
}

TEST_F(CliTest, HelpAndVersionGoToStandardOutput) {
  const RunResult help = run({"--help"});
  EXPECT_TRUE(help.out.starts_with("usage: quillomat [options] file1 file2 ...\n")) << help.out;
  for (const char *mentioned : {"--whole-records", "--version", "Exit status", "quillomat(1)"}) {
    EXPECT_NE(help.out.find(mentioned), std::string::npos) << mentioned;
  }
  EXPECT_EQ(help.err, "");
  EXPECT_EQ(help.status, 0);
  const RunResult version = run({"missing.dsml", "--version"});
  EXPECT_TRUE(version.out.starts_with("quillomat " QUILLOMAT_VERSION " (expat_")) << version.out;
  EXPECT_NE(version.out.find(", ICU "), std::string::npos) << version.out;
  EXPECT_EQ(version.err, "");
  EXPECT_EQ(version.status, 0);
}

// A record holding a 100 KB value, written whole, is one valid LDIF record:
// python-ldap's LDIF reader gives back the very bytes of the value.
TEST_F(CliTest, WholeRecordsAreValidLdifForOtherReaders) {
  std::string value;
  for (int i = 0; value.size() < 100000; ++i)
    value.append("line ").append(std::to_string(i)).append(" \xc3\xa9\n");
  const std::string encoded = [&] {
    static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (size_t i = 0; i < value.size(); i += 3) {
      uint32_t n = static_cast<uint8_t>(value[i]) << 16;
      if (i + 1 < value.size()) n |= static_cast<uint8_t>(value[i + 1]) << 8;
      if (i + 2 < value.size()) n |= static_cast<uint8_t>(value[i + 2]);
      out += digits[n >> 18];
      out += digits[(n >> 12) & 63];
      out += i + 1 < value.size() ? digits[(n >> 6) & 63] : '=';
      out += i + 2 < value.size() ? digits[n & 63] : '=';
    }
    return out;
  }();
  dir_.write(
      "big.dsml",
      document("<entry dn=\"cn=big,o=ex\"><attr name=\"description\"><value encoding=\"base64\">" +
               encoded + "</value></attr></entry>" + entry("after")));
  dir_.write("value.bin", value);
  for (const std::string option : {"-w", "--whole-records"}) {
    const RunResult r = run({option, "big.dsml"});
    ASSERT_EQ(r.status, 0) << r.err;
    dir_.write("out.ldif", r.out);
    const std::string check = "cd " + dir_.path() +
                              " && /usr/bin/python3 -c 'import ldif; r = "
                              "ldif.LDIFRecordList(open(\"out.ldif\", \"rb\")); r.parse();"
                              " v = open(\"value.bin\", \"rb\").read();"
                              " assert [d for d, _ in r.all_records] == [\"cn=big,o=ex\", "
                              "\"cn=after,o=ex\"], r.all_records;"
                              " assert r.all_records[0][1][\"description\"] == [v]'";
    EXPECT_EQ(std::system(check.c_str()), 0) << option;
  }
  // By default the record reaches standard output in pieces, each followed
  // by a newline, which no LDIF reader takes for one record.
  const std::string pieces = run({"big.dsml"}).out;
  const std::string whole = run({"-w", "big.dsml"}).out;
  EXPECT_GT(std::count(pieces.begin(), pieces.end(), '\n'),
            std::count(whole.begin(), whole.end(), '\n'));
}

}  // namespace
