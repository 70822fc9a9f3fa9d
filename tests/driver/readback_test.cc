// LDIF readers that nobody here wrote accept what DSML v2 documents become.
// For every v2 golden case that converts (exit status 0) and for the shipped
// v2 examples, python-ldap's LDIF parser and OpenLDAP's ldapmodify -n read
// the expected LDIF, and the program's output for the same document, and
// must both see the records that an independent reading of the expected
// file gives: dn, controls, change type, modifications and values.
// tests/driver/ldif_readback.py does the reading and the comparing.
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/driver/run_support.h"

namespace {

namespace fs = std::filesystem;

const fs::path kSource = QUILLOMAT_SOURCE_DIR;
const fs::path kCases = kSource / "tests" / "driver" / "cases";
const fs::path kScript = kSource / "tests" / "driver" / "ldif_readback.py";

// A document and the LDIF it must give: dir/stem.dsml and dir/stem.ldif.
struct Readback {
  std::string name;  // the test's name
  fs::path dir;
  std::string stem;
};

void PrintTo(const Readback &c, std::ostream *os) { *os << c.stem; }

bool convertsWholly(const std::string &stem) {
  const fs::path status = kCases / (stem + ".status");
  return !fs::exists(status) || std::stoi(qtest::readFile(status.string())) == 0;
}

std::vector<Readback> readbacks() {
  std::vector<Readback> all;
  for (const auto &e : fs::directory_iterator(kCases)) {
    const std::string stem = e.path().stem().string();
    if (e.path().extension() == ".dsml" && stem.find("-v2-") != std::string::npos &&
        convertsWholly(stem)) {
      all.push_back({stem, kCases, stem});
    }
  }
  for (const std::string example : {"changes", "search-response"}) {
    all.push_back({"example-" + example, kSource / "examples", example});
  }
  std::sort(all.begin(), all.end(),
            [](const Readback &a, const Readback &b) { return a.name < b.name; });
  return all;
}

// What the script printed, and its exit status.
struct Verdict {
  std::string said;
  int status = -1;
};

Verdict readBack(const fs::path &expected, const fs::path &actual) {
  const std::string command = "/usr/bin/python3 '" + kScript.string() + "' '" + expected.string() +
                              "' '" + actual.string() + "' 2>&1";
  Verdict v;
  FILE *pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return v;
  char buf[4096];
  for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) v.said.append(buf, n);
  const int status = pclose(pipe);
  v.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128;
  return v;
}

class ReadbackTest : public ::testing::TestWithParam<Readback> {};

// The expected file alone: if this fails, the golden file is what is wrong
// (or the readers changed), not the program.
TEST_P(ReadbackTest, ExpectedLdifReadsBackAsWritten) {
  const fs::path expected = GetParam().dir / (GetParam().stem + ".ldif");
  const Verdict v = readBack(expected, expected);
  EXPECT_EQ(v.status, 0) << v.said;
}

TEST_P(ReadbackTest, ProgramOutputReadsBackAsTheExpectedRecords) {
  const qtest::RunResult r =
      qtest::runQuillomat({GetParam().stem + ".dsml"}, {.cwd = GetParam().dir.string()});
  EXPECT_EQ(r.status, 0) << r.err;
  qtest::TempDir dir;
  const std::string actual = dir.write("out.ldif", r.out);
  const Verdict v = readBack(GetParam().dir / (GetParam().stem + ".ldif"), actual);
  EXPECT_EQ(v.status, 0) << v.said << "quillomat's standard error:\n" << r.err;
}

// The golden cases are compared byte for byte by the golden suite; the
// shipped examples, which the README points readers to, are compared here.
TEST(ShippedV2Examples, GiveTheirLdifByteForByte) {
  for (const std::string example : {"changes", "search-response"}) {
    const fs::path dir = kSource / "examples";
    const qtest::RunResult r = qtest::runQuillomat({example + ".dsml"}, {.cwd = dir.string()});
    EXPECT_EQ(r.out, qtest::readFile((dir / (example + ".ldif")).string())) << example;
    EXPECT_EQ(r.err + std::to_string(r.status), "0") << example;
  }
}

INSTANTIATE_TEST_SUITE_P(V2, ReadbackTest, ::testing::ValuesIn(readbacks()), [](const auto &info) {
  std::string n = info.param.name;
  std::replace_if(
      n.begin(), n.end(), [](char c) { return !isalnum(c); }, '_');
  return n;
});

}  // namespace
