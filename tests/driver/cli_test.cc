// End-to-end runs of the quillomat binary that a golden document cannot
// express: several files, the line that says which document failed, where
// and why, standard input, options, where standard output goes, start-up
// failures, memory limits and a Latin-1 locale.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/driver/run_support.h"

namespace {

using qtest::document;
using qtest::entry;
using qtest::failed;
using qtest::record;
using qtest::runQuillomat;
using qtest::RunResult;
using qtest::StdoutKind;

const std::string kUsage = "usage: quillomat file1 file2 ...\n\n";
// After a usage error: the usage line and where to read more.
const std::string kUsageError =
    "usage: quillomat [options] file1 file2 ...\nTry 'quillomat --help' for more information.\n";
const std::string kOutputLost =
    "quillomat: standard output could not be written; the LDIF written there is incomplete.\n";

class CliTest : public ::testing::Test {
 protected:
  // Runs in the test's directory, so that messages name files as given.
  RunResult run(const std::vector<std::string> &args, qtest::RunOptions o = {}) {
    o.cwd = dir_.path();
    return runQuillomat(args, o);
  }
  qtest::TempDir dir_;
};

// ---- Runs told by their files, arguments and three results ---------------------

struct RunCase {
  const char *name;
  std::vector<std::pair<std::string, std::string>> files;  // written into the run's directory
  std::vector<std::string> args;
  std::string out;
  std::string err;
  int status;
  std::map<std::string, std::string> env = {};
};

RunCase runCase(const char *name, std::vector<std::pair<std::string, std::string>> files,
                std::vector<std::string> args, std::string out, std::string err, int status,
                std::map<std::string, std::string> env = {}) {
  return {name,           std::move(files), std::move(args), std::move(out),
          std::move(err), status,           std::move(env)};
}

void PrintTo(const RunCase &c, std::ostream *os) { *os << c.name; }

class RunTest : public CliTest, public ::testing::WithParamInterface<RunCase> {};

TEST_P(RunTest, GivesItsOutputErrorAndStatus) {
  for (const auto &[name, content] : GetParam().files) dir_.write(name, content);
  const RunResult r = run(GetParam().args, {.env = GetParam().env});
  EXPECT_EQ(r.out, GetParam().out);
  EXPECT_EQ(r.err, GetParam().err);
  EXPECT_EQ(r.status, GetParam().status);
}

// A document whose second entry starts on line 3, after the entry a.
std::string afterA(const std::string &content) {
  return "<?xml version=\"1.0\"?>\n<dsml><directory-entries>" + entry("a") + content +
         "</directory-entries></dsml>\n";
}

// A document whose entry on line 4 has the attribute given, between two
// entries that convert; the line names the name with line breaks escaped.
RunCase forged(const char *name, const std::string &attr, const std::string &shown) {
  return runCase(name,
                 {{"forged.dsml", document(entry("a1") + "<entry dn=\"cn=Ann Lee,o=ex\">" + attr +
                                           "<value>x</value></attr></entry>\n" + entry("a2"))}},
                 {"forged.dsml"}, record("a1"),
                 failed("forged.dsml:4:29: invalid attribute name \"" + shown +
                        "\" (it would change the structure of the LDIF)"),
                 1);
}

// A run of one source that cannot be read (a directory folder.dsml exists).
RunCase unread(const char *name, const std::string &source, const std::string &why) {
  return runCase(name, {{"folder.dsml/x", ""}}, {source}, "", failed(source + ": " + why), 1);
}

// A usage error: nothing converted, the message, then the usage line.
RunCase usage(const char *name, std::vector<std::string> args, const std::string &message) {
  return runCase(name, {{"a.dsml", document(entry("a"))}}, args, "",
                 "quillomat: " + message + "\n" + kUsageError, 1);
}

const std::string kExamples = std::string(QUILLOMAT_SOURCE_DIR) + "/examples/";
const std::string kDocA = document(entry("a1") + entry("a2"));
const std::string kDocB = document(entry("b1"));

INSTANTIATE_TEST_SUITE_P(
    Runs, RunTest,
    ::testing::Values(
        runCase("NoArguments", {}, {}, "", kUsage, 1),
        // The README shows this run; the shipped LDIF must stay what it prints.
        runCase("TheShippedExample", {}, {kExamples + "people.dsml"},
                qtest::readFile(kExamples + "people.ldif"), "", 0),
        runCase("FilesInArgumentOrder", {{"a.dsml", kDocA}, {"b.dsml", kDocB}},
                {"b.dsml", "a.dsml", "b.dsml"},
                record("b1") + record("a1") + record("a2") + record("b1"), "", 0),
        runCase("TheFailingDocumentIsTheOneNamedAndStopsTheRun",
                {{"a.dsml", kDocA}, {"second.dsml", document("<entry/>")}},
                {"a.dsml", "second.dsml", "a.dsml"}, record("a1") + record("a2"),
                failed("second.dsml:3:1: entry without a dn attribute"), 1),
        // A document that is no DSML at all: a warning, and the run goes on.
        runCase("ARootOtherThanDsmlIsAWarning",
                {{"other.dsml",
                  "<directory xmlns=\"urn:oasis:names:tc:DSML:2:0:core\"><addRequest "
                  "dn=\"cn=a\"/></directory>\n"},
                 {"b.dsml", kDocB}},
                {"other.dsml", "b.dsml"}, record("b1"),
                "quillomat: other.dsml:1:1: warning: the root element is directory, not dsml; "
                "nothing was converted\n",
                0),
        runCase("UndecodableBase64IsToldAtTheEndOfItsValue",
                {{"doc.dsml", afterA("<entry dn=\"cn=b\"><attr name=\"cn\">\n<value "
                                     "encoding=\"base64\">\n!!!!</value></attr></entry>")}},
                {"doc.dsml"}, record("a"),
                failed("doc.dsml:5:5: the base64 text of this value cannot be decoded"), 1),
        runCase("ExternalEntityIsRefused",
                {{"x.dsml",
                  "<!DOCTYPE dsml [<!ENTITY e SYSTEM \"/etc/passwd\">]>\n<dsml>\n"
                  "<directory-entries>&e;</directory-entries></dsml>\n"}},
                {"x.dsml"}, "",
                failed("x.dsml:3:20: external entity refused (nothing outside the document is "
                       "loaded)"),
                1),
        unread("MissingFile", "missing.dsml", "cannot be opened: No such file or directory"),
        unread("Directory", "folder.dsml", "cannot be opened: Is a directory"),
        unread("OtherUriSchemesAreNotFetched", "http://example.com/x.dsml",
               "only local files and file: URIs are read"),
        unread("RelativeFileUri", "file:relative.dsml", "malformed file: URI"),
        runCase("DoubleDashEndsTheOptions",
                {{"-x", document(entry("x"))}, {"--help", document(entry("h"))}},
                {"--", "-x", "--help"}, record("x") + record("h"), "", 0),
        usage("UnknownShortOption", {"a.dsml", "-x"}, "unknown option -x"),
        usage("UnknownLongOption", {"a.dsml", "--whole"}, "unknown option --whole"),
        usage("OptionsKeepTheirCase", {"--HELP", "a.dsml"}, "unknown option --HELP"),
        usage("AnUnknownLetterInABundleIsNamed", {"a.dsml", "-wx"}, "unknown option -x"),
        usage("OptionsWithoutADocument", {"-w"}, "no document named"),
        usage("DoubleDashWithoutADocument", {"--"}, "no document named"),
        usage("StandardInputNamedTwice", {"-", "a.dsml", "-"},
              "standard input (-) can be named only once"),
        // Start-up failures say why; a catalogue without a message still
        // gives a line that explains the failure.
        runCase("MalformedCatalogue",
                {{"a.dsml", kDocA}, {"mesg/ldap.msg", "2101 fine\n2102 fine\nnot a message\n"}},
                {"a.dsml"}, "",
                "\nError initializing CORE context.\nquillomat: message catalogue: "
                "mesg/ldap.msg:3: expected a message number from 1 to 4294967295\n",
                1, {{"VSX_LDAP_MESGDIR", "mesg"}}),
        runCase("SparseCatalogue", {{"mesg/ldap.msg", "1 only this\n"}}, {"missing.dsml"}, "",
                failed("missing.dsml: No such file or directory"), 1,
                {{"VSX_LDAP_MESGDIR", "mesg"}}),
        // A document that could forge LDIF records through an attribute name
        // fails whole: the entries before it stay written, nothing of it is.
        forged("NewRecordThroughLineBreaks",
               "<attr name=\"description&#10;&#10;dn: cn=admin,o=ex&#10;changetype: "
               "delete&#10;&#10;dn: cn=Ann Lee,o=ex&#10;cn\">",
               "description\\n\\ndn: cn=admin,o=ex\\nchangetype: delete\\n\\ndn: cn=Ann "
               "Lee,o=ex\\ncn"),
        forged("CarriageReturn", "<attr name=\"cn&#13;\">", "cn\\r"),
        forged("LeadingSpaceContinuesTheDnLine", "<attr name=\" ,o=other\">", " ,o=other"),
        forged("HashMakesAComment", "<attr name=\"#cn\">", "#cn"),
        forged("ChangetypeFirst", "<attr name=\"changetype\">", "changetype"),
        forged("ControlInAnyCase", "<attr name=\"Control\">", "Control"),
        forged("SecondDn", "<attr name=\"dn\">", "dn")),
    [](const auto &info) { return std::string(info.param.name); });

// ---- Runs that need more than bytes compared -----------------------------------

// Unreadable files, entity bombs (in the parser's words) and the copy of
// the failure line in the error-level log when VESTRA_HOME is set.
TEST_F(CliTest, FailuresOutsideTheDocumentsElements) {
  if (geteuid() != 0) {  // root reads any file
    dir_.write("secret.dsml", document(entry("a")));
    ASSERT_EQ(chmod((dir_.path() + "/secret.dsml").c_str(), 0), 0);
    EXPECT_EQ(run({"secret.dsml"}).err, failed("secret.dsml: cannot be opened: Permission denied"));
  }
  std::string lol = "<!DOCTYPE dsml [<!ENTITY l0 \"lol\">";
  for (int i = 1; i < 10; ++i) {
    std::string ten;
    for (int j = 0; j < 10; ++j) ten += "&l" + std::to_string(i - 1) + ";";
    lol += "<!ENTITY l" + std::to_string(i) + " \"" + ten + "\">";
  }
  dir_.write("laughs.dsml", lol + "]>\n<dsml>&l9;</dsml>\n");
  const RunResult r = run({"laughs.dsml"});
  EXPECT_TRUE(r.err.starts_with("quillomat: laughs.dsml:2:")) << r.err;
  EXPECT_NE(r.err.find("amplification"), std::string::npos) << r.err;
  EXPECT_EQ(r.status, 1);

  std::filesystem::create_directories(dir_.path() + "/home/ldap/log");
  EXPECT_EQ(run({"missing.dsml"}, {.env = {{"VESTRA_HOME", dir_.path() + "/home"},
                                           {"VSX_LDAP_MESGDIR", QUILLOMAT_MESGDIR}}})
                .status,
            1);
  std::string log;
  for (const auto &f : std::filesystem::directory_iterator(dir_.path() + "/home/ldap/log")) {
    log += qtest::readFile(f.path().string());
  }
  EXPECT_NE(log.find(" * quillomat: missing.dsml: cannot be opened: No such file or directory;"),
            std::string::npos)
      << log;
}

// Several megabytes through a pipe give the bytes the same file gives.
TEST_F(CliTest, DashReadsStandardInput) {
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
  EXPECT_EQ(run({"-"}, {.stdin_text = "<dsml>"}).err, failed("<stdin>:1:7: no element found"));
}

TEST_F(CliTest, HelpAndVersionGoToStandardOutput) {
  const RunResult help = run({"--help"});
  EXPECT_TRUE(help.out.starts_with("usage: quillomat [options] file1 file2 ...\n")) << help.out;
  for (const char *mentioned : {"--whole-records", "--version", "Exit status", "quillomat(1)"}) {
    EXPECT_NE(help.out.find(mentioned), std::string::npos) << mentioned;
  }
  EXPECT_EQ(help.err + std::to_string(help.status), "0");
  const RunResult version = run({"missing.dsml", "--version"});
  EXPECT_TRUE(version.out.starts_with("quillomat " QUILLOMAT_VERSION " (expat_")) << version.out;
  EXPECT_NE(version.out.find(", ICU "), std::string::npos) << version.out;
  EXPECT_EQ(version.err + std::to_string(version.status), "0");
}

// A record holding a 100 KB value, written whole, is one valid LDIF record:
// python-ldap's LDIF reader gives back the very bytes of the value. By
// default the same record comes in pieces, each followed by a newline.
TEST_F(CliTest, WholeRecordsAreValidLdifForOtherReaders) {
  std::string value;
  for (int i = 0; value.size() < 100000; ++i) value += "line " + std::to_string(i) + " \xc3\xa9\n";
  dir_.write("big.dsml", document("<entry dn=\"cn=big,o=ex\"><attr name=\"description\"><value>" +
                                  value + "</value></attr></entry>" + entry("after")));
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
  const std::string pieces = run({"big.dsml"}).out;
  const std::string whole = run({"-w", "big.dsml"}).out;
  EXPECT_GT(std::count(pieces.begin(), pieces.end(), '\n'),
            std::count(whole.begin(), whole.end(), '\n'));
}

// The same bytes whether standard output is a file or a pipe, and with both
// streams on one file the failure message follows the entries it concerns.
TEST_F(CliTest, OutputIsTheSameThroughAPipeAndKeepsItsOrderWithErrors) {
  std::string entries;
  std::string expected;
  for (int i = 0; i < 2000; ++i) {  // well beyond one output buffer
    entries += entry(std::string("n").append(std::to_string(i)));
    expected += record(std::string("n").append(std::to_string(i)));
  }
  dir_.write("good.dsml", document(entries));
  dir_.write("bad.dsml", document(entry("last")) + "<junk>");
  const RunResult piped = run({"good.dsml"}, {.stdout_kind = StdoutKind::kPipe});
  EXPECT_EQ(piped.out, expected);
  EXPECT_EQ(piped.status, 0);
  const RunResult shared = run({"good.dsml", "bad.dsml"}, {.stdout_kind = StdoutKind::kShared});
  EXPECT_EQ(shared.err,
            expected + record("last") + failed("bad.dsml:5:1: junk after document element"));
  EXPECT_EQ(shared.status, 1);
}

// A closed pipe is noticed at the first write that fails: the run stops
// there with message 2102 alone, and the missing second file is never tried.
TEST_F(CliTest, AClosedPipeStopsTheRunAtTheFirstFailedWrite) {
  std::string entries;
  for (int i = 0; i < 3000; ++i) entries += entry(std::string("n").append(std::to_string(i)));
  dir_.write("big.dsml", document(entries));
  for (const std::vector<std::string> &args :
       {std::vector<std::string>{"big.dsml", "missing.dsml"}, {"big.dsml"}}) {
    const RunResult r = run(args, {.stdout_kind = StdoutKind::kClosedPipe, .ignore_sigpipe = true});
    EXPECT_EQ(r.err, kOutputLost);
    EXPECT_EQ(r.status, 1);
  }
}

// Under any address-space limit the run either converts everything, exactly
// as without a limit, or stops with a message and whole records before it;
// it never aborts. (The dynamic loader itself may fail first, with its own
// message, before any code of ours runs.)
TEST_F(CliTest, AnAddressSpaceLimitNeverCostsAnEntrySilently) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer needs more address space than any limit worth testing";
#else
  dir_.write("doc.dsml",
             document(entry("a1") + "<entry dn=\"cn=big,o=ex\"><attr name=\"x\"><value>" +
                      std::string(4 << 20, 'v') + "</value></attr></entry>\n" + entry("a2")));
  const RunResult full = run({"doc.dsml", "doc.dsml"});
  ASSERT_EQ(full.status, 0);
  int successes = 0;
  int failures = 0;
  for (rlim_t limit = 4u << 20; limit < (512u << 20) && successes < 8; limit += 512u << 10) {
    SCOPED_TRACE(testing::Message() << "limit " << (limit >> 10) << " KiB");
    const RunResult r = run({"doc.dsml", "doc.dsml"}, {.address_space = limit});
    if (r.status == 127) {
      EXPECT_NE(r.err.find("error while loading shared libraries"), std::string::npos) << r.err;
      continue;
    }
    if (r.status == 0) {
      ++successes;
      EXPECT_EQ(r.out, full.out);
      EXPECT_EQ(r.err, full.err);  // the warning about the records cut into pieces
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
    EXPECT_TRUE(full.out.starts_with(r.out)) << "output is not a prefix";
    EXPECT_TRUE(r.out.empty() || r.out.ends_with("\n\n")) << "a record was cut";
  }
  EXPECT_EQ(successes, 8);
  EXPECT_GT(failures, 0);
#endif
}

// A Latin-1 locale: non-ASCII text is converted before it is encoded in
// base64, except for binary attributes.
TEST_F(CliTest, Latin1LocaleConvertsTextButNotBinaryValues) {
  const std::string locales = qtest::latin1Locales(dir_);
  if (locales.empty()) GTEST_SKIP() << "localedef cannot build en_US.ISO-8859-1 here";
  // "J\xc3\xbcrgen" (UTF-8) is "J\xfcrgen" in Latin-1: SvxyZ2Vu.
  dir_.write("latin1.dsml",
             document("<entry dn=\"cn=J\xc3\xbcrgen,o=ex\"><attr name=\"cn\"><value>J\xc3\xbcrgen"
                      "</value></attr><attr name=\"jpegPhoto\"><value>J\xc3\xbcrgen</value></attr>"
                      "</entry>\n"));
  const RunResult r =
      run({"latin1.dsml"}, {.env = {{"LOCPATH", locales}, {"LANG", "en_US.ISO-8859-1"}}});
  EXPECT_EQ(r.out, "dn:: Y249SvxyZ2VuLG89ZXg=\ncn:: SvxyZ2Vu\njpegPhoto:: SsO8cmdlbg==\n\n");
  EXPECT_EQ(r.err + std::to_string(r.status), "0");
}

}  // namespace
