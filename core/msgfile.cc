// core/msgfile.cc - message catalogues: reading, parsing, conversion, lookup.
//
// A catalogue is read once into one block, parsed into an array of entries
// sorted by number, with every text unescaped into one text block. Nothing
// here uses the standard library's allocating containers: start-up runs
// this code, and a failed allocation there must be a status, not an
// exception.
#include "core/msgfile.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <iconv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "core/context_internal.h"
#include "core/memory.h"

namespace gslu {

struct MessageCatalog {
  struct Entry {
    uint32_t number;
    uint32_t line;    // where the message stands in the file
    uint32_t offset;  // of its text in `texts`
    uint32_t length;
  };
  gsluctx *ctx;  // every block below comes from its allocator
  uint32_t references;
  Entry *entries;  // sorted by number
  uint32_t count;
  char *texts;
  uint32_t texts_used;
  uint32_t texts_capacity;
};

namespace {

using Entry = MessageCatalog::Entry;

constexpr std::size_t kMaxTextBytes = 2047;  // a 2048-byte buffer and its NUL
// A catalogue is a few kilobytes; this bound keeps every size below within
// 32 bits with room to spare.
constexpr std::size_t kMaxFileBytes = 64u * 1024 * 1024;
constexpr std::size_t kReadStep = 64 * 1024;
constexpr char kExecutableRelativeDir[] = "/../share/quillomat/mesg";
// From the directory of the installed shared library to the catalogues; set
// by the build from the installation layout.
#ifndef QUILLOMAT_LIBRARY_MESG_RELDIR
#define QUILLOMAT_LIBRARY_MESG_RELDIR "../share/quillomat/mesg"
#endif
constexpr char kLibraryRelativeDir[] = "/" QUILLOMAT_LIBRARY_MESG_RELDIR;
constexpr char kVestraHome[] = "VESTRA_HOME";

__attribute__((format(printf, 2, 3))) void setWhy(MsgWhy *why, const char *format, ...) {
  va_list ap;
  va_start(ap, format);
  std::vsnprintf(why->text, sizeof why->text, format, ap);
  va_end(ap);
}

// ---- The catalogue's blocks --------------------------------------------------

[[nodiscard]] MessageCatalog *newCatalog(gsluctx *ctx) {
  auto *cat = static_cast<MessageCatalog *>(gslummMalloc(ctx, sizeof(MessageCatalog)));
  if (cat == nullptr) return nullptr;
  *cat = MessageCatalog{};
  cat->ctx = ctx;
  cat->references = 1;
  return cat;
}

void freeCatalog(MessageCatalog *cat) {
  if (cat == nullptr) return;
  gsluctx *ctx = cat->ctx;
  (void)gslumfFree(ctx, cat->entries);
  (void)gslumfFree(ctx, cat->texts);
  (void)gslumfFree(ctx, cat);
}

struct CatalogFree {
  void operator()(MessageCatalog *cat) const noexcept { freeCatalog(cat); }
};
using OwnedCatalog = std::unique_ptr<MessageCatalog, CatalogFree>;

// Appends n bytes to the catalogue's texts and records them in *entry.
[[nodiscard]] bool appendText(MessageCatalog *cat, const char *bytes, std::size_t n, Entry *entry) {
  // Detect and prevent integer overflow: the texts stay below kMaxFileBytes
  // times the few bytes a character can grow by converting.
  if (n > UINT32_MAX - cat->texts_used) return false;
  const uint32_t need = cat->texts_used + static_cast<uint32_t>(n);
  if (need > cat->texts_capacity) {
    const uint64_t grown = std::max<uint64_t>(need, 2 * uint64_t{cat->texts_capacity});
    if (grown > UINT32_MAX) return false;
    void *p = cat->texts == nullptr ? gslummMalloc(cat->ctx, static_cast<uint32_t>(grown))
                                    : gslumrRealloc(cat->ctx, static_cast<uint32_t>(grown),
                                                    cat->texts, cat->texts_capacity);
    if (p == nullptr) return false;
    cat->texts = static_cast<char *>(p);
    cat->texts_capacity = static_cast<uint32_t>(grown);
  }
  if (n > 0) std::memcpy(cat->texts + cat->texts_used, bytes, n);
  entry->offset = cat->texts_used;
  entry->length = static_cast<uint32_t>(n);
  cat->texts_used = need;
  return true;
}

[[nodiscard]] std::string_view textOf(const MessageCatalog *cat, const Entry &e) {
  return {cat->texts + e.offset, e.length};
}

// ---- Reading the file ----------------------------------------------------------

// The whole file in one block of ctx (*size bytes, not terminated).
[[nodiscard]] bool readWhole(gsluctx *ctx, const char *path, Owned<char> *out, std::size_t *size,
                             MsgWhy *why) {
  const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    setWhy(why, "%s: cannot be opened (%s)", path, std::strerror(errno));
    return false;
  }
  struct FdCloser {
    int fd;
    ~FdCloser() { (void)::close(fd); }
  } closer{fd};
  Owned<char> data(nullptr, ContextFree{ctx});
  std::size_t used = 0;
  std::size_t capacity = 0;
  for (;;) {
    if (used == capacity) {
      if (capacity >= kMaxFileBytes) {
        setWhy(why, "%s: larger than %zu bytes", path, kMaxFileBytes);
        return false;
      }
      const std::size_t grown = std::min(kMaxFileBytes, capacity + kReadStep);
      void *p = data == nullptr ? gslummMalloc(ctx, static_cast<uint32_t>(grown))
                                : gslumrRealloc(ctx, static_cast<uint32_t>(grown), data.get(),
                                                static_cast<uint32_t>(capacity));
      if (p == nullptr) {
        setWhy(why, "%s: out of memory", path);
        return false;
      }
      (void)data.release();
      data.reset(static_cast<char *>(p));
      capacity = grown;
    }
    const ssize_t n = ::read(fd, data.get() + used, capacity - used);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      setWhy(why, "%s: read error (%s)", path, std::strerror(errno));
      return false;
    }
    if (n == 0) break;
    used += static_cast<std::size_t>(n);
  }
  *out = std::move(data);
  *size = used;
  return true;
}

// ---- Parsing -------------------------------------------------------------------

// Resolves "\n", "\t" and "\\" into out (room for in.size() bytes); false
// for any other escape. *n receives the bytes written.
[[nodiscard]] bool unescape(std::string_view in, char *out, std::size_t *n) {
  std::size_t k = 0;
  for (std::size_t i = 0; i < in.size(); ++i) {
    if (in[i] != '\\') {
      out[k++] = in[i];
      continue;
    }
    if (++i == in.size()) return false;
    switch (in[i]) {
      case 'n': out[k++] = '\n'; break;
      case 't': out[k++] = '\t'; break;
      case '\\': out[k++] = '\\'; break;
      default: return false;
    }
  }
  *n = k;
  return true;
}

// What one line of the file holds.
enum class LineKind { kNothing, kMessage, kMalformed };

struct ParsedLine {
  LineKind kind;
  uint32_t number;
  std::string_view text;  // still escaped
  const char *problem;    // for kMalformed
};

[[nodiscard]] ParsedLine parseLine(std::string_view line) {
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  const std::size_t first = line.find_first_not_of(" \t");
  if (first == std::string_view::npos || line[first] == '#')
    return {LineKind::kNothing, 0, {}, nullptr};
  if (first != 0) return {LineKind::kMalformed, 0, {}, "message lines start with their number"};
  uint32_t number = 0;
  const auto [end, ec] = std::from_chars(line.data(), line.data() + line.size(), number);
  if (ec != std::errc() || number == 0) {
    return {LineKind::kMalformed, 0, {}, "expected a message number from 1 to 4294967295"};
  }
  const std::string_view rest = line.substr(static_cast<std::size_t>(end - line.data()));
  const std::size_t text_at = rest.find_first_not_of(" \t");
  if (rest.empty() || (rest[0] != ' ' && rest[0] != '\t') || text_at == std::string_view::npos) {
    return {LineKind::kMalformed, 0, {}, "expected blank space and a text after the number"};
  }
  return {LineKind::kMessage, number, rest.substr(text_at), nullptr};
}

[[nodiscard]] std::size_t countLines(std::string_view data) {
  return static_cast<std::size_t>(std::count(data.begin(), data.end(), '\n')) + 1;
}

// Parses the file's bytes into cat (entries in file order).
[[nodiscard]] bool parseCatalog(std::string_view data, const char *path, MessageCatalog *cat,
                                MsgWhy *why) {
  const std::size_t lines = countLines(data);
  cat->entries =
      static_cast<Entry *>(gslummMalloc(cat->ctx, static_cast<uint32_t>(lines * sizeof(Entry))));
  if (cat->entries == nullptr) {
    setWhy(why, "%s: out of memory", path);
    return false;
  }
  uint32_t lineno = 0;
  while (!data.empty()) {
    ++lineno;
    const std::size_t eol = data.find('\n');
    const std::string_view line = data.substr(0, eol);
    data.remove_prefix(eol == std::string_view::npos ? data.size() : eol + 1);
    const ParsedLine parsed = parseLine(line);
    if (parsed.kind == LineKind::kNothing) continue;
    if (parsed.kind == LineKind::kMalformed) {
      setWhy(why, "%s:%u: %s", path, lineno, parsed.problem);
      return false;
    }
    // The unescaped text is never longer than the escaped one.
    if (parsed.text.size() > 2 * kMaxTextBytes + 2) {
      setWhy(why, "%s:%u: text longer than 2047 bytes", path, lineno);
      return false;
    }
    char unescaped[2 * kMaxTextBytes + 2];
    std::size_t n = 0;
    if (!unescape(parsed.text, unescaped, &n)) {
      setWhy(why, "%s:%u: unknown escape (only \\n, \\t and \\\\ are allowed)", path, lineno);
      return false;
    }
    if (n > kMaxTextBytes) {
      setWhy(why, "%s:%u: text longer than 2047 bytes", path, lineno);
      return false;
    }
    Entry &e = cat->entries[cat->count];
    e.number = parsed.number;
    e.line = lineno;
    if (!appendText(cat, unescaped, n, &e)) {
      setWhy(why, "%s: out of memory", path);
      return false;
    }
    ++cat->count;
  }
  return true;
}

// Sorts by number; a number given twice is named by its later line.
[[nodiscard]] bool sortEntries(MessageCatalog *cat, const char *path, MsgWhy *why) {
  Entry *begin = cat->entries;
  Entry *end = begin + cat->count;
  std::sort(begin, end, [](const Entry &a, const Entry &b) {
    return a.number != b.number ? a.number < b.number : a.line < b.line;
  });
  for (uint32_t i = 1; i < cat->count; ++i) {
    if (begin[i].number == begin[i - 1].number) {
      setWhy(why, "%s:%u: message number given twice", path, begin[i].line);
      return false;
    }
  }
  return true;
}

// ---- Conversion ------------------------------------------------------------------

class Iconv {
 public:
  Iconv(const char *to, const char *from) : cd_(iconv_open(to, from)) {}
  ~Iconv() {
    if (ok()) iconv_close(cd_);
  }
  Iconv(const Iconv &) = delete;
  Iconv &operator=(const Iconv &) = delete;
  [[nodiscard]] bool ok() const { return cd_ != reinterpret_cast<iconv_t>(-1); }
  [[nodiscard]] iconv_t get() const { return cd_; }

 private:
  iconv_t cd_;
};

// Converts UTF-8 text into out (at most kMaxTextBytes); characters the
// target cannot hold become '?', as the language service's replacement
// character. False when the result does not fit or iconv fails otherwise.
[[nodiscard]] bool convertText(const Iconv &cd, std::string_view in, char *out, std::size_t *n) {
  (void)iconv(cd.get(), nullptr, nullptr, nullptr, nullptr);  // initial shift state
  char *src = const_cast<char *>(in.data());
  std::size_t src_left = in.size();
  char *dst = out;
  std::size_t dst_left = kMaxTextBytes;
  while (src_left > 0) {
    if (iconv(cd.get(), &src, &src_left, &dst, &dst_left) != static_cast<std::size_t>(-1)) break;
    if (errno != EILSEQ && errno != EINVAL) return false;
    // Skip one whole UTF-8 character and put the replacement in its place.
    std::size_t skip = 1;
    while (skip < src_left && (static_cast<unsigned char>(src[skip]) & 0xC0) == 0x80) ++skip;
    src += skip;
    src_left -= skip;
    if (dst_left == 0) return false;
    *dst++ = '?';
    --dst_left;
  }
  if (iconv(cd.get(), nullptr, nullptr, &dst, &dst_left) == static_cast<std::size_t>(-1)) {
    return false;
  }
  *n = kMaxTextBytes - dst_left;
  return true;
}

// A copy of source with every text converted to codeset.
[[nodiscard]] MessageCatalog *convertedCatalog(const MessageCatalog *source, const char *codeset,
                                               MsgWhy *why) {
  OwnedCatalog cat(newCatalog(source->ctx));
  Iconv cd(codeset, kUtf8Codeset);
  if (cat == nullptr || !cd.ok()) {
    setWhy(why,
           cat == nullptr ? "message catalogue: out of memory"
                          : "message catalogue: no conversion to %s",
           codeset);
    return nullptr;
  }
  if (source->count > 0) {
    cat->entries = static_cast<Entry *>(
        gslummMalloc(source->ctx, static_cast<uint32_t>(source->count * sizeof(Entry))));
    if (cat->entries == nullptr) {
      setWhy(why, "message catalogue: out of memory");
      return nullptr;
    }
  }
  char converted[kMaxTextBytes];
  for (uint32_t i = 0; i < source->count; ++i) {
    const Entry &from = source->entries[i];
    Entry &to = cat->entries[i];
    to = from;
    std::size_t n = 0;
    if (!convertText(cd, textOf(source, from), converted, &n)) {
      setWhy(why, "message catalogue, line %u: text cannot be converted to %s", from.line, codeset);
      return nullptr;
    }
    if (!appendText(cat.get(), converted, n, &to)) {
      setWhy(why, "message catalogue: out of memory");
      return nullptr;
    }
    cat->count = i + 1;
  }
  return cat.release();
}

}  // namespace

namespace {

[[nodiscard]] bool isDirectory(const char *path) {
  struct stat st {};
  return ::stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

// dir (the directory part of path, length bytes) and then tail, into out.
[[nodiscard]] bool besidePath(std::string_view path, const char *tail, char *out,
                              std::size_t size) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return false;
  const int n = std::snprintf(out, size, "%.*s%s", static_cast<int>(slash), path.data(), tail);
  return n > 0 && static_cast<std::size_t>(n) < size;
}

}  // namespace

bool msgDefaultDirectory(const char *product, char *out, std::size_t size) {
  if (const char *home = std::getenv(kVestraHome); home != nullptr && home[0] != '\0') {
    const int n = std::snprintf(out, size, "%s/%s/mesg", home, product);
    return n > 0 && static_cast<std::size_t>(n) < size;
  }
  char exe[PATH_MAX];
  const ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (n <= 0 || !besidePath(std::string_view(exe, static_cast<std::size_t>(n)),
                            kExecutableRelativeDir, out, size)) {
    return false;
  }
  if (isDirectory(out)) return true;
  // A program linked with libquillomat.so may be installed anywhere: the
  // catalogues are then those of the library's installation.
  Dl_info info{};
  char beside_library[PATH_MAX];
  if (dladdr(reinterpret_cast<void *>(&msgDefaultDirectory), &info) != 0 &&
      info.dli_fname != nullptr &&
      besidePath(info.dli_fname, kLibraryRelativeDir, beside_library, sizeof beside_library) &&
      isDirectory(beside_library)) {
    return std::snprintf(out, size, "%s", beside_library) > 0;
  }
  return true;
}

bool msgOpen(MessageHandle *h, gsluctx *ctx, const char *dir, const char *facility,
             const Language &lang, MsgWhy *why) {
  *h = MessageHandle{};
  why->text[0] = '\0';
  char path[PATH_MAX];
  const int n = std::snprintf(path, sizeof path, "%s/%s.msg", dir, facility);
  if (n <= 0 || static_cast<std::size_t>(n) >= sizeof path) {
    setWhy(why, "%s/%s.msg: path too long", dir, facility);
    return false;
  }
  Owned<char> data(nullptr, ContextFree{ctx});
  std::size_t size = 0;
  if (!readWhole(ctx, path, &data, &size, why)) return false;
  OwnedCatalog cat(newCatalog(ctx));
  if (cat == nullptr) {
    setWhy(why, "%s: out of memory", path);
    return false;
  }
  if (!parseCatalog(std::string_view(data.get(), size), path, cat.get(), why) ||
      !sortEntries(cat.get(), path, why)) {
    return false;
  }
  h->catalog = cat.release();
  if (codesetIsUtf8(lang.codeset)) return true;
  // The texts are wanted in another character set: convert a copy, and name
  // the file if that fails.
  MessageHandle utf8 = *h;
  const bool converted = msgOpenFor(h, utf8, lang, why);
  msgClose(&utf8);
  if (!converted) {
    char detail[kMsgWhySize];
    std::snprintf(detail, sizeof detail, "%s", why->text);
    setWhy(why, "%s: %s", path, detail);
  }
  return converted;
}

bool msgOpenFor(MessageHandle *h, const MessageHandle &source, const Language &lang, MsgWhy *why) {
  *h = MessageHandle{};
  why->text[0] = '\0';
  if (source.catalog == nullptr) {
    setWhy(why, "message catalogue: not open");
    return false;
  }
  if (codesetIsUtf8(lang.codeset)) {
    ++source.catalog->references;
    h->catalog = source.catalog;
    return true;
  }
  h->catalog = convertedCatalog(source.catalog, lang.codeset, why);
  return h->catalog != nullptr;
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
  const MessageCatalog *cat = h->catalog;
  const Entry *end = cat->entries + cat->count;
  const Entry *it = std::lower_bound(static_cast<const Entry *>(cat->entries), end, number,
                                     [](const Entry &e, uint32_t n) { return e.number < n; });
  if (it == end || it->number != number) {
    h->buffer[0] = '\0';
    h->status = kStatusUnknown;
    h->error = 1;
    return h->buffer;
  }
  const std::size_t n = std::min<std::size_t>(it->length, h->buffer_size - 1);
  if (n > 0) std::memcpy(h->buffer, cat->texts + it->offset, n);
  h->buffer[n] = '\0';
  h->status = kStatusFound;
  h->error = 0;
  return h->buffer;
}

void msgClose(MessageHandle *h) {
  if (h->catalog != nullptr && --h->catalog->references == 0) freeCatalog(h->catalog);
  char *buffer = h->buffer;
  const std::size_t size = h->buffer_size;
  *h = MessageHandle{};
  h->buffer = buffer;
  h->buffer_size = size;
}

}  // namespace gslu
