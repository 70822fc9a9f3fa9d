// What libquillomat.so and the quillomat executable export is exactly the
// checked-in list ber/exported_symbols.txt (x86-64 ELF binaries).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>
#include <string>

namespace {

using Names = std::set<std::string>;

// The lines a command prints, each cut at its last space and at its "@".
Names lastWords(const std::string &command) {
  Names words;
  FILE *out = popen(command.c_str(), "r");
  char line[1024];
  while (out != nullptr && std::fgets(line, sizeof line, out) != nullptr) {
    std::string word(line, std::strcspn(line, "\n"));
    word = word.substr(word.find_last_of(' ') + 1);
    words.insert(word.substr(0, word.find('@')));
  }
  EXPECT_EQ(out != nullptr ? pclose(out) : -1, 0) << command;
  return words;
}

// The defined dynamic symbols of a binary, less the copies of another
// library's variables (an executable holds the stderr it uses through a
// copy relocation) and the hooks a sanitizer build defines.
Names exported(const std::string &path) {
  const Names copies = lastWords("readelf -rW '" + path + "' | awk '/R_X86_64_COPY/ {print $5}'");
  Names names;
  for (const std::string &symbol : lastWords("nm -D --defined-only '" + path + "'")) {
    const bool hook = symbol.rfind("__asan_", 0) == 0 || symbol.rfind("__lsan_", 0) == 0 ||
                      symbol.rfind("__ubsan_", 0) == 0;
    if (copies.count(symbol) == 0 && !hook) names.insert(symbol);
  }
  return names;
}

TEST(BerExports, SharedLibraryAndExecutableExportExactlyTheList) {
  Names listed;
  std::ifstream in(QUILLOMAT_EXPORT_LIST);
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line[0] != '#') listed.insert(line);
  }
  ASSERT_GT(listed.size(), 40u) << QUILLOMAT_EXPORT_LIST;
  EXPECT_EQ(exported(QUILLOMAT_SHARED_LIBRARY), listed);
  EXPECT_EQ(exported(QUILLOMAT_BIN), listed);
}

}  // namespace
