// Golden end-to-end cases: each tests/driver/cases/NNN-name.dsml is converted
// by the real binary, and its standard output, standard error and exit status
// must equal NNN-name.ldif, NNN-name.err (empty when absent) and
// NNN-name.status (0 when absent), byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/driver/run_support.h"

namespace {

namespace fs = std::filesystem;

const fs::path kCases = fs::path(QUILLOMAT_SOURCE_DIR) / "tests" / "driver" / "cases";

std::vector<std::string> caseNames() {
  std::vector<std::string> names;
  for (const auto &e : fs::directory_iterator(kCases)) {
    if (e.path().extension() == ".dsml") names.push_back(e.path().stem().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string optionalFile(const fs::path &p, const std::string &fallback) {
  return fs::exists(p) ? qtest::readFile(p.string()) : fallback;
}

class GoldenTest : public ::testing::TestWithParam<std::string> {};

TEST_P(GoldenTest, MatchesExpectedBytes) {
  const fs::path base = kCases / GetParam();
  // Run beside the case, so that messages name it as the command line does.
  qtest::RunResult r = qtest::runQuillomat({GetParam() + ".dsml"}, {.cwd = kCases.string()});
  EXPECT_EQ(r.out, qtest::readFile(base.string() + ".ldif"));
  EXPECT_EQ(r.err, optionalFile(base.string() + ".err", ""));
  EXPECT_EQ(r.status, std::stoi(optionalFile(base.string() + ".status", "0")));
}

INSTANTIATE_TEST_SUITE_P(Cases, GoldenTest, ::testing::ValuesIn(caseNames()), [](const auto &info) {
  std::string n = info.param;
  std::replace_if(
      n.begin(), n.end(), [](char c) { return !isalnum(c); }, '_');
  return n;
});

}  // namespace
