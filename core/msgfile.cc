// core/msgfile.cc - message catalogues: parsing, conversion, lookup.
#include "core/msgfile.h"

#include <dlfcn.h>
#include <iconv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>
#include <sstream>
#include <string_view>
#include <vector>

namespace gslu {

struct MessageCatalog {
  struct Entry {
    uint32_t number;
    std::string text;
  };
  std::vector<Entry> entries;  // sorted by number
};

namespace {

constexpr std::size_t kMaxTextBytes = 2047;  // a 2048-byte buffer and its NUL
constexpr char kExecutableRelativeDir[] = "/../share/quillomat/mesg";
// From the directory of the installed shared library to the catalogues; set
// by the build from the installation layout.
#ifndef QUILLOMAT_LIBRARY_MESG_RELDIR
#define QUILLOMAT_LIBRARY_MESG_RELDIR "../share/quillomat/mesg"
#endif
constexpr char kLibraryRelativeDir[] = "/" QUILLOMAT_LIBRARY_MESG_RELDIR;

// The directory part of path ("" when it has none).
[[nodiscard]] std::string directoryOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string() : std::string(path.substr(0, slash));
}

[[nodiscard]] bool isDirectory(const std::string &path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The catalogue directory beside the module (executable or shared library)
// this code was loaded from; "" when the module cannot be found.
[[nodiscard]] std::string moduleRelativeDirectory() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void *>(&msgDefaultDirectory), &info) == 0 || info.dli_fname == nullptr) {
    return {};
  }
  const std::string dir = directoryOf(info.dli_fname);
  return dir.empty() ? std::string() : dir + kLibraryRelativeDir;
}

[[nodiscard]] std::string lineError(const std::string &path, std::size_t line, const char *what) {
  return path + ":" + std::to_string(line) + ": " + what;
}

// Resolves "\n", "\t" and "\\"; false for any other escape.
[[nodiscard]] bool unescape(std::string_view in, std::string *out) {
  out->clear();
  for (std::size_t i = 0; i < in.size(); ++i) {
    if (in[i] != '\\') {
      out->push_back(in[i]);
      continue;
    }
    if (++i == in.size()) return false;
    switch (in[i]) {
      case 'n': out->push_back('\n'); break;
      case 't': out->push_back('\t'); break;
      case '\\': out->push_back('\\'); break;
      default: return false;
    }
  }
  return true;
}

// Converts UTF-8 text to codeset; characters the target cannot hold become
// '?', as the language service's replacement character.
[[nodiscard]] bool convertText(const std::string &in, const char *codeset, std::string *out) {
  iconv_t cd = iconv_open(codeset, "UTF-8");
  if (cd == reinterpret_cast<iconv_t>(-1)) return false;
  out->assign(in.size() * 4 + 4, '\0');
  char *src = const_cast<char *>(in.data());
  std::size_t src_left = in.size();
  char *dst = out->data();
  std::size_t dst_left = out->size();
  bool ok = true;
  while (src_left > 0) {
    if (iconv(cd, &src, &src_left, &dst, &dst_left) != static_cast<std::size_t>(-1)) break;
    if (errno != EILSEQ && errno != EINVAL) {
      ok = false;
      break;
    }
    // Skip one whole UTF-8 character and put the replacement in its place.
    std::size_t skip = 1;
    while (skip < src_left && (static_cast<unsigned char>(src[skip]) & 0xC0) == 0x80) ++skip;
    src += skip;
    src_left -= skip;
    if (dst_left == 0) {
      ok = false;
      break;
    }
    *dst++ = '?';
    --dst_left;
  }
  iconv_close(cd);
  out->resize(out->size() - dst_left);
  return ok;
}

[[nodiscard]] bool parseLine(std::string_view line, const std::string &path, std::size_t lineno,
                             MessageCatalog::Entry *entry, bool *is_message, std::string *why) {
  *is_message = false;
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  std::size_t first = line.find_first_not_of(" \t");
  if (first == std::string_view::npos || line[first] == '#') return true;
  if (first != 0) {
    *why = lineError(path, lineno, "message lines start with their number");
    return false;
  }
  uint32_t number = 0;
  auto [end, ec] = std::from_chars(line.data(), line.data() + line.size(), number);
  if (ec != std::errc() || number == 0) {
    *why = lineError(path, lineno, "expected a message number from 1 to 4294967295");
    return false;
  }
  std::string_view rest = line.substr(static_cast<std::size_t>(end - line.data()));
  std::size_t text_at = rest.find_first_not_of(" \t");
  if (rest.empty() || (rest[0] != ' ' && rest[0] != '\t') || text_at == std::string_view::npos) {
    *why = lineError(path, lineno, "expected blank space and a text after the number");
    return false;
  }
  if (!unescape(rest.substr(text_at), &entry->text)) {
    *why = lineError(path, lineno, "unknown escape (only \\n, \\t and \\\\ are allowed)");
    return false;
  }
  entry->number = number;
  *is_message = true;
  return true;
}

[[nodiscard]] bool parseCatalog(std::istream &in, const std::string &path, const Language &lang,
                                MessageCatalog *cat, std::string *why) {
  std::string line;
  std::vector<std::size_t> line_of;
  for (std::size_t lineno = 1; std::getline(in, line); ++lineno) {
    MessageCatalog::Entry e;
    bool is_message = false;
    if (!parseLine(line, path, lineno, &e, &is_message, why)) return false;
    if (!is_message) continue;
    if (!codesetIsUtf8(lang.codeset)) {
      std::string converted;
      if (!convertText(e.text, lang.codeset, &converted)) {
        *why = lineError(path, lineno, "text cannot be converted to the output character set");
        return false;
      }
      e.text = std::move(converted);
    }
    if (e.text.size() > kMaxTextBytes) {
      *why = lineError(path, lineno, "text longer than 2047 bytes");
      return false;
    }
    cat->entries.push_back(std::move(e));
    line_of.push_back(lineno);
  }
  if (in.bad()) {
    *why = path + ": read error";
    return false;
  }
  // Sort an index so a duplicate can be reported by its second line.
  std::vector<std::size_t> order(cat->entries.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    return cat->entries[a].number < cat->entries[b].number;
  });
  for (std::size_t i = 1; i < order.size(); ++i) {
    if (cat->entries[order[i]].number == cat->entries[order[i - 1]].number) {
      *why = lineError(path, line_of[order[i]], "message number given twice");
      return false;
    }
  }
  std::sort(cat->entries.begin(), cat->entries.end(),
            [](const auto &a, const auto &b) { return a.number < b.number; });
  return true;
}

}  // namespace

std::string msgDefaultDirectory(const char *product) {
  try {
    if (const char *home = std::getenv("VESTRA_HOME"); home != nullptr && home[0] != '\0') {
      return std::string(home) + "/" + product + "/mesg";
    }
    char exe[4096];
    ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n <= 0) return {};
    const std::string dir = directoryOf(std::string_view(exe, static_cast<std::size_t>(n)));
    if (dir.empty()) return {};
    const std::string beside_program = dir + kExecutableRelativeDir;
    // A program linked with libquillomat.so is installed anywhere: its
    // catalogues are found beside the library instead.
    if (!isDirectory(beside_program)) {
      if (std::string beside_library = moduleRelativeDirectory(); isDirectory(beside_library)) {
        return beside_library;
      }
    }
    return beside_program;
  } catch (...) {
    return {};
  }
}

bool msgOpen(MessageHandle *h, const char *dir, const char *facility, const Language &lang,
             std::string *why) {
  *h = MessageHandle{};
  try {
    std::string path = std::string(dir) + "/" + facility + ".msg";
    std::ifstream in(path, std::ios::binary);
    if (!in) {
      *why = path + ": cannot be opened";
      return false;
    }
    auto *cat = new MessageCatalog;
    if (!parseCatalog(in, path, lang, cat, why)) {
      delete cat;
      return false;
    }
    h->catalog = cat;
    return true;
  } catch (const std::bad_alloc &) {
    *why = "out of memory reading the message catalogue";
    return false;
  }
}

bool msgSetBuffer(MessageHandle *h, char *buffer, std::size_t size) {
  if (h->catalog == nullptr || buffer == nullptr || size == 0) return false;
  h->buffer = buffer;
  h->buffer_size = size;
  h->buffer[0] = '\0';
  return true;
}

bool msgBind(MessageHandle *h) {
  if (h->catalog == nullptr || h->buffer == nullptr) return false;
  h->bound = 1;
  return true;
}

const char *msgLookup(MessageHandle *h, uint32_t number) {
  constexpr uint32_t kStatusFound = 0;
  constexpr uint32_t kStatusUnknown = 1;
  if (h->bound == 0) {
    h->status = kStatusUnknown;
    h->error = 1;
    return "";
  }
  const auto &entries = h->catalog->entries;
  auto it = std::lower_bound(entries.begin(), entries.end(), number,
                             [](const auto &e, uint32_t n) { return e.number < n; });
  if (it == entries.end() || it->number != number) {
    h->buffer[0] = '\0';
    h->status = kStatusUnknown;
    h->error = 1;
    return h->buffer;
  }
  std::size_t n = std::min(it->text.size(), h->buffer_size - 1);
  std::memcpy(h->buffer, it->text.data(), n);
  h->buffer[n] = '\0';
  h->status = kStatusFound;
  h->error = 0;
  return h->buffer;
}

void msgClose(MessageHandle *h) {
  delete h->catalog;
  char *buffer = h->buffer;
  std::size_t size = h->buffer_size;
  *h = MessageHandle{};
  h->buffer = buffer;
  h->buffer_size = size;
}

}  // namespace gslu
