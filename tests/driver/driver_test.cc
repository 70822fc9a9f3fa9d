// End-to-end runs of the quillomat binary that a single golden document
// cannot express: several files, usage, where standard output goes, records
// longer than one output piece, and a Latin-1 locale.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/driver/run_support.h"

namespace {

using qtest::RunResult;
using qtest::runQuillomat;
using qtest::StdoutKind;

const std::string kNotConverted =
    "quillomat: a DSML document could not be converted to LDIF; the entries before the failure "
    "were written in full.\n";
const std::string kOutputLost =
    "quillomat: standard output could not be written; the LDIF written there is incomplete.\n";

std::string document(const std::string &entries) {
  return "<?xml version=\"1.0\"?>\n<dsml><directory-entries>\n" + entries +
         "</directory-entries></dsml>\n";
}

std::string entry(const std::string &cn) {
  return "<entry dn=\"cn=" + cn + ",o=ex\"><attr name=\"cn\"><value>" + cn +
         "</value></attr></entry>\n";
}

std::string record(const std::string &cn) { return "dn: cn=" + cn + ",o=ex\ncn: " + cn + "\n\n"; }

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
  EXPECT_EQ(r.err, kNotConverted);
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
  EXPECT_EQ(r.err, kNotConverted);
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
  const RunResult piped = runQuillomat({good}, {}, StdoutKind::kPipe);
  EXPECT_EQ(piped.out, expected);
  EXPECT_EQ(piped.status, 0);
  const RunResult shared = runQuillomat({good, bad}, {}, StdoutKind::kShared);
  EXPECT_EQ(shared.err, expected + record("last") + kNotConverted);
  EXPECT_EQ(shared.status, 1);
}

TEST_F(DriverTest, LostOutputIsAFailure) {
  const std::string a = file("a.dsml", document(entry("a1")));
  const RunResult r = runQuillomat({a}, {}, StdoutKind::kClosedPipe, /*ignore_sigpipe=*/true);
  EXPECT_EQ(r.err, kOutputLost);
  EXPECT_EQ(r.status, 1);
}

// Deliberate: text over 32763 bytes reaches standard output in pieces of at
// most 32763 bytes, each followed by a newline.
TEST_F(DriverTest, ARecordLongerThanOnePieceIsCutWithNewlines) {
  const std::string value(40000, 'v');
  const std::string doc = document("<entry dn=\"o=ex\"><attr name=\"x\"><value>" + value +
                                   "</value></attr></entry>\n");
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
  const std::string cmd = "localedef -i en_US -f ISO-8859-1 " + locales +
                          "/en_US.ISO-8859-1 >/dev/null 2>&1";
  if (std::system(cmd.c_str()) != 0 &&
      !std::filesystem::exists(locales + "/en_US.ISO-8859-1")) {
    GTEST_SKIP() << "localedef cannot build en_US.ISO-8859-1 here (package locales missing)";
  }
  // "J\xc3\xbcrgen" (UTF-8) is "J\xfcrgen" in Latin-1: SvxyZ2Vu.
  const std::string doc = document(
      "<entry dn=\"cn=J\xc3\xbcrgen,o=ex\"><attr name=\"cn\"><value>J\xc3\xbcrgen</value></attr>"
      "<attr name=\"jpegPhoto\"><value>J\xc3\xbcrgen</value></attr></entry>\n");
  const RunResult r = runQuillomat({file("latin1.dsml", doc)},
                                   {{"LOCPATH", locales}, {"LANG", "en_US.ISO-8859-1"}});
  EXPECT_EQ(r.out, "dn:: Y249SvxyZ2VuLG89ZXg=\ncn:: SvxyZ2Vu\njpegPhoto:: SsO8cmdlbg==\n\n");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.status, 0);
}

}  // namespace
