// End-to-end runs of the quillomat binary that a single golden document
// cannot express: several files, usage, where standard output goes, records
// longer than one output piece, and a Latin-1 locale.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/driver/run_support.h"

namespace {

using qtest::runQuillomat;
using qtest::RunResult;
using qtest::StdoutKind;

const std::string kOutputLost =
    "quillomat: standard output could not be written; the LDIF written there is incomplete.\n";
using qtest::document;
using qtest::entry;
using qtest::failed;
using qtest::record;

class DriverTest : public ::testing::Test {
 protected:
  std::string file(const std::string &name, const std::string &content) {
    return dir_.write(name, content);
  }
  qtest::TempDir dir_;
};

TEST_F(DriverTest, NoArgumentsPrintsTheUsageLine) {
  const RunResult r = runQuillomat({});
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "usage: quillomat file1 file2 ...\n\n");
  EXPECT_EQ(r.status, 1);
}

// The README shows this run; the shipped LDIF must stay what it prints.
TEST_F(DriverTest, TheShippedExampleGivesItsLdif) {
  const std::string examples = std::string(QUILLOMAT_SOURCE_DIR) + "/examples/";
  const RunResult r = runQuillomat({examples + "people.dsml"});
  EXPECT_EQ(r.out, qtest::readFile(examples + "people.ldif"));
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.status, 0);
}

TEST_F(DriverTest, FilesAreConvertedInArgumentOrder) {
  const std::string a = file("a.dsml", document(entry("a1") + entry("a2")));
  const std::string b = file("b.dsml", document(entry("b1")));
  const RunResult r = runQuillomat({b, a, b});
  EXPECT_EQ(r.out, record("b1") + record("a1") + record("a2") + record("b1"));
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.status, 0);
}

TEST_F(DriverTest, AMissingFileStopsTheRunAfterTheEntriesBeforeIt) {
  const std::string a = file("a.dsml", document(entry("a1") + entry("a2")));
  const std::string c = file("c.dsml", document(entry("c1")));
  const RunResult r = runQuillomat({a, dir_.path() + "/missing.dsml", c});
  EXPECT_EQ(r.out, record("a1") + record("a2"));
  EXPECT_EQ(r.err,
            failed(dir_.path() + "/missing.dsml: cannot be opened: No such file or directory"));
  EXPECT_EQ(r.status, 1);
}

TEST_F(DriverTest, FileUrisAreRead) {
  const std::string a = file("a b.dsml", document(entry("a1")));
  const RunResult r = runQuillomat({"file://" + dir_.path() + "/a%20b.dsml"});
  EXPECT_EQ(r.out, record("a1"));
  EXPECT_EQ(r.status, 0);
}

TEST_F(DriverTest, OtherUriSchemesAreNotFetched) {
  const RunResult r = runQuillomat({"http://localhost/x.dsml"});
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, failed("http://localhost/x.dsml: only local files and file: URIs are read"));
  EXPECT_EQ(r.status, 1);
}

// The same bytes whether standard output is a file or a pipe, and with both
// streams on one file the failure message follows the entries it concerns.
TEST_F(DriverTest, OutputIsTheSameThroughAPipeAndKeepsItsOrderWithErrors) {
  std::string entries;
  std::string expected;
  for (int i = 0; i < 2000; ++i) {  // well beyond one output buffer
    const std::string cn = std::string("n").append(std::to_string(i));
    entries += entry(cn);
    expected += record(cn);
  }
  const std::string good = file("good.dsml", document(entries));
  const std::string bad = file("bad.dsml", document(entry("last")) + "<junk>");
  const RunResult piped = runQuillomat({good}, {.stdout_kind = StdoutKind::kPipe});
  EXPECT_EQ(piped.out, expected);
  EXPECT_EQ(piped.status, 0);
  const RunResult shared = runQuillomat({good, bad}, {.stdout_kind = StdoutKind::kShared});
  EXPECT_EQ(shared.err,
            expected + record("last") + failed(bad + ":5:1: junk after document element"));
  EXPECT_EQ(shared.status, 1);
}

TEST_F(DriverTest, LostOutputIsAFailure) {
  const std::string a = file("a.dsml", document(entry("a1")));
  const RunResult r =
      runQuillomat({a}, {.stdout_kind = StdoutKind::kClosedPipe, .ignore_sigpipe = true});
  EXPECT_EQ(r.err, kOutputLost);
  EXPECT_EQ(r.status, 1);
}

// A closed pipe is noticed at the first write that fails: the run stops
// there with message 2102 alone, and the missing second file is never tried.
TEST_F(DriverTest, AClosedPipeStopsTheRunAtTheFirstFailedWrite) {
  std::string entries;
  for (int i = 0; i < 3000; ++i) entries += entry(std::string("n").append(std::to_string(i)));
  const std::string big = file("big.dsml", document(entries));
  const RunResult r =
      runQuillomat({big, dir_.path() + "/missing.dsml"},
                   {.stdout_kind = StdoutKind::kClosedPipe, .ignore_sigpipe = true});
  EXPECT_EQ(r.err, kOutputLost);
  EXPECT_EQ(r.status, 1);
}

// A document that could forge LDIF records through an attribute name fails
// whole: the entries before it stay written, nothing of it is.
struct ForgedCase {
  const char *name;
  std::string attr;
};

void PrintTo(const ForgedCase &c, std::ostream *os) { *os << c.name; }

class ForgedNameTest : public DriverTest, public ::testing::WithParamInterface<ForgedCase> {};

TEST_P(ForgedNameTest, FailsTheDocumentAfterTheEntriesBeforeIt) {
  const std::string forged = "<entry dn=\"cn=Ann Lee,o=ex\">" + GetParam().attr + "</entry>\n";
  const RunResult run =
      runQuillomat({file("forged.dsml", document(entry("a1") + forged + entry("a2")))});
  EXPECT_EQ(run.out, record("a1"));
  // One line, naming the entry's line and the name with its line breaks
  // shown as escapes.
  EXPECT_TRUE(run.err.starts_with("quillomat: " + dir_.path() + "/forged.dsml:4:")) << run.err;
  EXPECT_NE(run.err.find(": invalid attribute name \""), std::string::npos) << run.err;
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
  EXPECT_EQ(run.status, 1);
}

INSTANTIATE_TEST_SUITE_P(
    Names, ForgedNameTest,
    ::testing::Values(
        ForgedCase{
            "NewRecordThroughLineBreaks",
            "<attr name=\"description&#10;&#10;dn: cn=admin,o=ex&#10;changetype: delete&#10;&#10;"
            "dn: cn=Ann Lee,o=ex&#10;cn\"><value>x</value></attr>"},
        ForgedCase{"CarriageReturn", "<attr name=\"cn&#13;\"><value>x</value></attr>"},
        ForgedCase{"LeadingSpaceContinuesTheDnLine",
                   "<attr name=\" ,o=other\"><value>x</value></attr>"},
        ForgedCase{"HashMakesAComment", "<attr name=\"#cn\"><value>x</value></attr>"},
        ForgedCase{"ChangetypeFirst", "<attr name=\"changetype\"><value>delete</value></attr>"},
        ForgedCase{"ControlInAnyCase", "<attr name=\"Control\"><value>1.2.3</value></attr>"},
        ForgedCase{"SecondDn", "<attr name=\"dn\"><value>cn=admin</value></attr>"}),
    [](const auto &info) { return std::string(info.param.name); });

// Start-up failures say why; a catalogue without the failure message still
// gives a line that explains the failure.
TEST_F(DriverTest, CatalogueProblemsAreExplained) {
  const std::string malformed = dir_.path() + "/malformed";
  dir_.write("malformed/ldap.msg", "2101 fine\n2102 fine\nnot a message line\n");
  RunResult r = runQuillomat({file("a.dsml", document(entry("a1")))},
                             {.env = {{"VSX_LDAP_MESGDIR", malformed}}});
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "\nError initializing CORE context.\nquillomat: message catalogue: " +
                       malformed + "/ldap.msg:3: expected a message number from 1 to 4294967295\n");
  EXPECT_EQ(r.status, 1);

  const std::string sparse = dir_.path() + "/sparse";
  dir_.write("sparse/ldap.msg", "1 only this\n");
  r = runQuillomat({dir_.path() + "/missing.dsml"}, {.env = {{"VSX_LDAP_MESGDIR", sparse}}});
  EXPECT_EQ(r.err, failed(dir_.path() + "/missing.dsml: No such file or directory"));
  EXPECT_EQ(r.status, 1);
}

// Under any address-space limit the run either converts everything, exactly
// as without a limit, or stops with a message and whole records before it;
// it never aborts. (The dynamic loader itself may fail first, with its own
// message, before any code of ours runs.)
TEST_F(DriverTest, AnAddressSpaceLimitNeverCostsAnEntrySilently) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer needs more address space than any limit worth testing";
#else
  const std::string value(4 << 20, 'v');
  const std::string doc =
      file("doc.dsml", document(entry("a1") +
                                "<entry dn=\"cn=big,o=ex\"><attr name=\"x\">"
                                "<value>" +
                                value + "</value></attr></entry>\n" + entry("a2")));
  const RunResult full = runQuillomat({doc, doc});
  ASSERT_EQ(full.status, 0);
  int successes = 0;
  int failures = 0;
  for (rlim_t limit = 4u << 20; limit < (512u << 20) && successes < 8; limit += 512u << 10) {
    SCOPED_TRACE(testing::Message() << "limit " << (limit >> 10) << " KiB");
    const RunResult r = runQuillomat({doc, doc}, {.address_space = limit});
    if (r.status == 127) {
      EXPECT_NE(r.err.find("error while loading shared libraries"), std::string::npos) << r.err;
      continue;
    }
    if (r.status == 0) {
      ++successes;
      EXPECT_EQ(r.out, full.out);
      EXPECT_EQ(r.err, "");
      continue;
    }
    ++failures;
    if (r.err.empty()) {
      // Kept: a parser context that cannot be created ends the run with the
      // reader's status and no message, before any output.
      EXPECT_TRUE(r.status == 1 || r.status == 5) << r.status;
      EXPECT_EQ(r.out, "");
      continue;
    }
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_EQ(r.err.find("terminate"), std::string::npos) << r.err;
    EXPECT_EQ(full.out.compare(0, r.out.size(), r.out), 0) << "output is not a prefix";
    EXPECT_TRUE(r.out.empty() || r.out.ends_with("\n\n")) << "a record was cut";
  }
  EXPECT_EQ(successes, 8);
  EXPECT_GT(failures, 0);
#endif
}

// Deliberate: text over 32763 bytes reaches standard output in pieces of at
// most 32763 bytes, each followed by a newline.
TEST_F(DriverTest, ARecordLongerThanOnePieceIsCutWithNewlines) {
  const std::string value(40000, 'v');
  const std::string doc =
      document("<entry dn=\"o=ex\"><attr name=\"x\"><value>" + value + "</value></attr></entry>\n");
  // The record: "x: " and 75 characters, then continuation lines of 76.
  std::string rec = std::string("dn: o=ex\nx: ").append(value, 0, 75);
  for (size_t at = 75; at < value.size(); at += 76) rec.append("\n ").append(value, at, 76);
  rec += "\n\n";
  std::string expected;
  for (size_t at = 0; at < rec.size(); at += 32763) expected.append(rec, at, 32763).append("\n");
  const RunResult r = runQuillomat({file("big.dsml", doc)});
  EXPECT_EQ(r.out, expected);
  EXPECT_EQ(r.status, 0);
}

// A Latin-1 locale: non-ASCII text is converted before it is encoded in
// base64, except for binary attributes.
TEST_F(DriverTest, Latin1LocaleConvertsTextButNotBinaryValues) {
  const std::string locales = dir_.path() + "/locales";
  std::filesystem::create_directories(locales);
  const std::string cmd =
      "localedef -i en_US -f ISO-8859-1 " + locales + "/en_US.ISO-8859-1 >/dev/null 2>&1";
  if (std::system(cmd.c_str()) != 0 && !std::filesystem::exists(locales + "/en_US.ISO-8859-1")) {
    GTEST_SKIP() << "localedef cannot build en_US.ISO-8859-1 here (package locales missing)";
  }
  // "J\xc3\xbcrgen" (UTF-8) is "J\xfcrgen" in Latin-1: SvxyZ2Vu.
  const std::string doc = document(
      "<entry dn=\"cn=J\xc3\xbcrgen,o=ex\"><attr name=\"cn\"><value>J\xc3\xbcrgen</value></attr>"
      "<attr name=\"jpegPhoto\"><value>J\xc3\xbcrgen</value></attr></entry>\n");
  const RunResult r = runQuillomat({file("latin1.dsml", doc)},
                                   {.env = {{"LOCPATH", locales}, {"LANG", "en_US.ISO-8859-1"}}});
  EXPECT_EQ(r.out, "dn:: Y249SvxyZ2VuLG89ZXg=\ncn:: SvxyZ2Vu\njpegPhoto:: SsO8cmdlbg==\n\n");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.status, 0);
}

}  // namespace
