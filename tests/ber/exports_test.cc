// What libquillomat.so and the quillomat executable export is exactly the
// checked-in list ber/exported_symbols.txt (x86-64 ELF binaries).
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <string>
#include <vector>

namespace {

using Names = std::set<std::string>;

// The list file: one name per line; "#" lines are comments.
Names listed() {
  Names names;
  std::ifstream in(QUILLOMAT_EXPORT_LIST);
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line[0] != '#') names.insert(line);
  }
  return names;
}

// The lines a command prints.
std::vector<std::string> linesOf(const std::string &command) {
  std::vector<std::string> lines;
  FILE *out = popen(command.c_str(), "r");
  if (out == nullptr) return lines;
  char line[1024];
  while (std::fgets(line, sizeof line, out) != nullptr) {
    std::string text(line);
    if (!text.empty() && text.back() == '\n') text.pop_back();
    lines.push_back(text);
  }
  EXPECT_EQ(pclose(out), 0) << command;
  return lines;
}

// A symbol's name without its version ("stderr@GLIBC_2.2.5" -> "stderr").
std::string unversioned(const std::string &symbol) { return symbol.substr(0, symbol.find('@')); }

// Hooks a sanitizer build defines for the sanitizer runtime to call.
bool isSanitizerHook(const std::string &symbol) {
  for (const char *prefix : {"__asan_", "__lsan_", "__ubsan_"}) {
    if (symbol.rfind(prefix, 0) == 0) return true;
  }
  return false;
}

// The defined dynamic symbols of a binary, without those that are copies of
// another library's variables (an executable holds data it uses from a
// shared library, such as stderr, through a copy relocation) and without
// sanitizer hooks.
Names exported(const std::string &path) {
  Names copies;
  for (const std::string &line : linesOf("readelf -rW '" + path + "'")) {
    if (line.find("R_X86_64_COPY") == std::string::npos) continue;
    const size_t end = line.rfind(" + ");
    const size_t start = line.rfind(' ', end - 1) + 1;
    copies.insert(unversioned(line.substr(start, end - start)));
  }
  Names names;
  for (const std::string &line : linesOf("nm -D --defined-only '" + path + "'")) {
    const std::string symbol = unversioned(line.substr(line.find_last_of(' ') + 1));
    if (copies.count(symbol) == 0 && !isSanitizerHook(symbol)) names.insert(symbol);
  }
  return names;
}

TEST(BerExports, SharedLibraryExportsExactlyTheList) {
  const Names list = listed();
  ASSERT_FALSE(list.empty()) << "no names read from " << QUILLOMAT_EXPORT_LIST;
  EXPECT_EQ(exported(QUILLOMAT_SHARED_LIBRARY), list);
}

TEST(BerExports, ExecutableExportsExactlyTheList) { EXPECT_EQ(exported(QUILLOMAT_BIN), listed()); }

}  // namespace
