// What libquillomat.so and the quillomat executable export is exactly the
// checked-in list ber/exported_symbols.txt.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <string>

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

// The defined dynamic symbols of a binary. Versioned names belong to other
// libraries (data the executable holds a copy of, such as stderr@GLIBC_2.2.5)
// and are left out.
Names exported(const std::string &path) {
  Names names;
  FILE *nm = popen(("nm -D --defined-only '" + path + "'").c_str(), "r");
  if (nm == nullptr) return names;
  char line[512];
  while (std::fgets(line, sizeof line, nm) != nullptr) {
    std::string text(line);
    const size_t name = text.find_last_of(' ');
    std::string symbol = text.substr(name + 1, text.find('\n') - name - 1);
    if (symbol.find('@') == std::string::npos) names.insert(symbol);
  }
  EXPECT_EQ(pclose(nm), 0) << path;
  return names;
}

TEST(BerExports, SharedLibraryExportsExactlyTheList) {
  const Names list = listed();
  ASSERT_FALSE(list.empty()) << "no names read from " << QUILLOMAT_EXPORT_LIST;
  EXPECT_EQ(exported(QUILLOMAT_SHARED_LIBRARY), list);
}

TEST(BerExports, ExecutableExportsExactlyTheList) {
  EXPECT_EQ(exported(QUILLOMAT_BIN), listed());
}

}  // namespace
