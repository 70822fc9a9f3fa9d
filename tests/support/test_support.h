// tests/support/test_support.h - helpers shared by the test suites:
// scoped environment variables, temporary directories, a fresh core context
// and recording allocator hooks.
#ifndef QUILLOMAT_TESTS_SUPPORT_H
#define QUILLOMAT_TESTS_SUPPORT_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/context.h"
#include "core/memory.h"

namespace qtest {

// Sets (or unsets, with nullopt) environment variables for one scope.
class ScopedEnv {
 public:
  ScopedEnv() = default;
  ScopedEnv(const ScopedEnv &) = delete;
  ScopedEnv &operator=(const ScopedEnv &) = delete;
  ~ScopedEnv() {
    for (auto it = saved_.rbegin(); it != saved_.rend(); ++it) put(it->first.c_str(), it->second);
  }
  void set(const char *name, const std::optional<std::string> &value) {
    const char *old = std::getenv(name);
    saved_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
    put(name, value);
  }

 private:
  static void put(const char *name, const std::optional<std::string> &value) {
    if (value) {
      setenv(name, value->c_str(), 1);
    } else {
      unsetenv(name);
    }
  }
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

// A directory removed with its content at the end of the scope.
class TempDir {
 public:
  TempDir() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "quillomat-test-XXXXXX").string();
    path_ = mkdtemp(tmpl.data());
  }
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  const std::string &path() const { return path_; }
  std::string write(const std::string &name, const std::string &content) const {
    std::filesystem::path p = std::filesystem::path(path_) / name;
    std::filesystem::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << content;
    return p.string();
  }

 private:
  std::string path_;
};

// Shuts the process-wide context down, so the next use builds a new one
// under the environment the test has set.
inline void dropContext() {
  if (gsluctx *ctx = sgsluugGetContext()) gslushut(ctx);
  if (sgsluzGlobalContext != nullptr) gslushut(sgsluzGlobalContext);
}

// The whole content of a file ("" when it cannot be read).
inline std::string readFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A test that starts with a fresh process-wide context made under the
// built catalogue and no locale variables (so without conversion), and
// drops it at the end.
class FreshContextTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dropContext();
    env_.set("VSX_LDAP_MESGDIR", QUILLOMAT_MESGDIR);
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"}) env_.set(name, std::nullopt);
    ctx_ = gsluizgcGetContext();
    ASSERT_NE(ctx_, nullptr);
  }
  void TearDown() override { dropContext(); }

  ScopedEnv env_;
  gsluctx *ctx_ = nullptr;
};

}  // namespace qtest

#endif  // QUILLOMAT_TESTS_SUPPORT_H
