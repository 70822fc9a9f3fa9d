// The main() of a fuzz target built without libFuzzer: runs
// LLVMFuzzerTestOneInput once over every regular file of the directories
// (and every file) named on the command line, in name order, so that a seed
// corpus runs as an ordinary test under any compiler. A failing input stops
// the process (the targets abort), and the file being run is named on
// standard error first. Exits 1 when no input was found at all, so a
// misplaced corpus cannot pass unnoticed.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) __attribute__((weak));

namespace {

namespace fs = std::filesystem;

// The inputs a command-line argument names: the file itself, or the regular
// files directly inside the directory, sorted by name.
std::vector<fs::path> inputsOf(const fs::path &argument) {
  std::error_code ec;
  if (!fs::is_directory(argument, ec)) return {argument};
  std::vector<fs::path> files;
  for (const fs::directory_entry &e : fs::directory_iterator(argument, ec)) {
    if (e.is_regular_file(ec)) files.push_back(e.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

bool readFile(const fs::path &path, std::vector<uint8_t> *bytes) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  bytes->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return !in.bad();
}

}  // namespace

int main(int argc, char **argv) {
  if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
  size_t runs = 0;
  for (int i = 1; i < argc; ++i) {
    for (const fs::path &path : inputsOf(argv[i])) {
      std::vector<uint8_t> bytes;
      if (!readFile(path, &bytes)) {
        std::fprintf(stderr, "replay: cannot read %s\n", path.c_str());
        return 1;
      }
      std::fprintf(stderr, "replay: %s (%zu bytes)\n", path.c_str(), bytes.size());
      // An exact-size heap copy, so that the sanitizer sees any overrun.
      auto *data = new uint8_t[bytes.size() + (bytes.empty() ? 1 : 0)];
      std::copy(bytes.begin(), bytes.end(), data);
      LLVMFuzzerTestOneInput(data, bytes.size());
      delete[] data;
      ++runs;
    }
  }
  std::fprintf(stderr, "replay: %zu inputs\n", runs);
  return runs > 0 ? 0 : 1;
}
