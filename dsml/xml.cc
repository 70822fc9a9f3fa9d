// dsml/xml.cc - the XML parser on expat: instances, reading the source in
// chunks, event delivery with whole texts and local names, attribute lists.
//
// The seven public functions are one-line shims over the parser proper
// (createInstance, parseSource), which takes the full argument lists of the
// parser interface, fixed values included.
#include "dsml/xml_internal.h"

#include <expat.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>
#include <type_traits>

#include "core/memory.h"
#include "core/owned.h"

static_assert(std::is_same_v<XML_Char, char>, "expat must hand over UTF-8 (char) text");
static_assert(sizeof(xmlsaxcb) == XMLIF_SLOT_COUNT * sizeof(xmlUnreportedHandler),
              "the handler table has exactly 20 pointer slots");
static_assert(offsetof(xmlsaxcb, characters) ==
                  (XMLIF_SLOT_CHARACTERS - 1) * sizeof(xmlUnreportedHandler),
              "slot numbers match the table's members");

// The attributes of one start tag: `count` name/value pointer pairs. An
// attribute node is the address of its pair.
struct xmlattrs {
  const XML_Char *const *pairs;
  uint32_t count;
};

namespace {

// Every size reaching the core allocator is 32-bit.
constexpr size_t kMaxAllocation = UINT32_MAX;

constexpr size_t kDefaultChunkSize = XMLIF_DEFAULT_CHUNK_SIZE;
std::atomic<size_t> g_chunkSize{kDefaultChunkSize};

// ---- expat's memory, through the core allocator ---------------------------
// expat's realloc gives no old size, but the core allocator hands one to its
// hooks and to a caller-supplied allocator (which may need it to copy). So
// each block given to expat starts with a header holding its size; the
// header keeps the block maximally aligned.
struct alignas(std::max_align_t) BlockHeader {
  uint32_t size;
};
constexpr size_t kHeaderSize = sizeof(BlockHeader);

// expat's suite has no user data; the instance being parsed names the
// context here for the duration of every call into expat.
thread_local gsluctx *t_expatContext = nullptr;

void *expatMalloc(size_t size) {
  // Detect and prevent integer overflow: header plus size must fit 32 bits.
  if (size > kMaxAllocation - kHeaderSize) return nullptr;
  auto *h = static_cast<BlockHeader *>(
      gslummMalloc(t_expatContext, static_cast<uint32_t>(size + kHeaderSize)));
  if (h == nullptr) return nullptr;
  h->size = static_cast<uint32_t>(size);
  return h + 1;
}

void *expatRealloc(void *block, size_t size) {
  if (block == nullptr) return expatMalloc(size);
  // Detect and prevent integer overflow: header plus size must fit 32 bits.
  if (size > kMaxAllocation - kHeaderSize) return nullptr;
  BlockHeader *old = static_cast<BlockHeader *>(block) - 1;
  auto *h = static_cast<BlockHeader *>(
      gslumrRealloc(t_expatContext, static_cast<uint32_t>(size + kHeaderSize), old,
                    static_cast<uint32_t>(old->size + kHeaderSize)));
  if (h == nullptr) return nullptr;  // the old block is still expat's
  h->size = static_cast<uint32_t>(size);
  return h + 1;
}

void expatFree(void *block) {
  if (block != nullptr) (void)gslumfFree(t_expatContext, static_cast<BlockHeader *>(block) - 1);
}

constexpr XML_Memory_Handling_Suite kExpatMemory = {expatMalloc, expatRealloc, expatFree};

// ---- A block that only grows ------------------------------------------------
// Kept by the instance across events and documents, so steady-state parsing
// allocates nothing; grows geometrically.
template <class T>
class GrowBuffer {
 public:
  explicit GrowBuffer(gsluctx *ctx) : ctx_(ctx) {}
  ~GrowBuffer() {
    if (data_ != nullptr) (void)gslumfFree(ctx_, data_);
  }
  GrowBuffer(const GrowBuffer &) = delete;
  GrowBuffer &operator=(const GrowBuffer &) = delete;

  T *data() const { return data_; }

  // Gives the block back when it holds more than `keep` elements: a single
  // long text must not stay allocated for the rest of the run.
  void shrink(size_t keep) {
    if (capacity_ <= keep) return;
    (void)gslumfFree(ctx_, data_);
    data_ = nullptr;
    capacity_ = 0;
  }

  // Room for at least n elements: XMLIF_OK, XMLIF_NO_MEMORY, or
  // XMLIF_TEXT_TOO_LONG when n elements cannot fit a 32-bit block.
  [[nodiscard]] int reserve(size_t n) {
    if (n <= capacity_) return XMLIF_OK;
    constexpr size_t kMaxElements = kMaxAllocation / sizeof(T);
    if (n > kMaxElements) return XMLIF_TEXT_TOO_LONG;
    const size_t grown = std::min(std::max({n, capacity_ * 2, kInitialElements}), kMaxElements);
    const auto bytes = static_cast<uint32_t>(grown * sizeof(T));
    void *p = data_ == nullptr
                  ? gslummMalloc(ctx_, bytes)
                  : gslumrRealloc(ctx_, bytes, data_, static_cast<uint32_t>(capacity_ * sizeof(T)));
    if (p == nullptr) return XMLIF_NO_MEMORY;
    data_ = static_cast<T *>(p);
    capacity_ = grown;
    return XMLIF_OK;
  }

 private:
  static constexpr size_t kInitialElements = 64;
  gsluctx *ctx_;
  T *data_ = nullptr;
  size_t capacity_ = 0;
};

// Configuration values, in the order the parser receives them.
constexpr size_t kConfigCount = 10;

// Text and attribute buffers up to this many bytes are kept from one text to
// the next; larger ones are given back once used.
constexpr size_t kRetainedBufferBytes = 64 * 1024;

constexpr size_t kErrorTextSize = 128;

}  // namespace

struct xmlctx {
  xmlctx(gsluctx *ctx, const xmlsaxcb *table, void *user_context,
         void *const (&values)[kConfigCount])
      : core(ctx),
        handlers(table != nullptr ? *table : xmlsaxcb{}),
        user(user_context),
        text(ctx),
        attributes(ctx) {
    std::copy(std::begin(values), std::end(values), config);
  }

  gsluctx *core;
  xmlsaxcb handlers;
  void *user;
  void *config[kConfigCount];  // kept for the instance's life; expat needs none
  uint32_t flags = 0;          // of the latest parse; see XMLIF_OPTION_BIT_*

  xmlProgressFn progress = nullptr;  // see xmlSetProgress
  void *progress_arg = nullptr;

  GrowBuffer<char> text;  // character data not yet delivered
  size_t text_length = 0;
  bool text_wanted = true;                  // see xmlWantText
  GrowBuffer<const XML_Char *> attributes;  // pairs left after dropping xmlns

  // Where the parse failed, once it has (see xmlPosition), and why.
  uint32_t error_line = 0;
  uint32_t error_column = 0;
  char error_text[kErrorTextSize] = {};  // see xmlErrorText

  // State of the parse under way.
  XML_Parser expat = nullptr;
  int failure = XMLIF_OK;  // why the parse stopped, when it was not expat
  bool stopped = false;    // no event reaches a handler once this is set
  bool parsing = false;
};

namespace {

// ---- Stopping ----------------------------------------------------------------
// Records the first reason for failing and stops expat if it is running.
// expat may still call back afterwards; every callback checks `stopped`.
void stopParse(xmlctx *x, int status) {
  if (x->stopped) return;
  x->stopped = true;
  x->failure = status;
  if (x->expat == nullptr) return;
  XML_ParsingStatus ps;
  XML_GetParsingStatus(x->expat, &ps);
  if (ps.parsing == XML_PARSING) (void)XML_StopParser(x->expat, XML_FALSE);
}

// A handler's status: true to go on; non-zero stops the parse.
[[nodiscard]] bool wentOn(xmlctx *x, int handler_status) {
  if (handler_status != 0) stopParse(x, XMLIF_HANDLER_FAILED);
  return handler_status == 0;
}

// ---- Positions ----------------------------------------------------------------
// Asked for only when needed: expat works a position out from the bytes read
// since it last did, and asking at every event would cost a call per event.
// expat counts lines from 1 and columns from 0; both are reported from 1.
void currentPosition(const xmlctx *x, uint32_t *line, uint32_t *column) {
  *line = static_cast<uint32_t>(XML_GetCurrentLineNumber(x->expat));
  *column = static_cast<uint32_t>(XML_GetCurrentColumnNumber(x->expat)) + 1;
}

void setErrorText(xmlctx *x, const char *text) {
  std::snprintf(x->error_text, sizeof x->error_text, "%s", text != nullptr ? text : "");
}

// ---- Names and attributes ----------------------------------------------------
// The part after the last ':'. expat runs in non-namespace mode, so a prefix
// is whatever the document wrote; it is dropped, never matched.
const char *localName(const XML_Char *qualified) {
  const char *colon = std::strrchr(qualified, ':');
  return colon != nullptr ? colon + 1 : qualified;
}

// xmlns and xmlns:* declare namespaces; they are not attributes.
bool isNamespaceDeclaration(const XML_Char *qualified) {
  // The first byte rules out nearly every attribute before any comparison.
  return qualified[0] == 'x' && std::strncmp(qualified, "xmlns", 5) == 0 &&
         (qualified[5] == '\0' || qualified[5] == ':');
}

// The attribute list of a start tag. expat's own array serves unless the
// tag declares namespaces; then the other pairs are copied to the
// instance's scratch array.
[[nodiscard]] int collectAttributes(xmlctx *x, const XML_Char **atts, xmlattrs *out) {
  size_t count = 0;
  bool declarations = false;
  for (const XML_Char **a = atts; *a != nullptr; a += 2) {
    ++count;
    declarations = declarations || isNamespaceDeclaration(*a);
  }
  if (!declarations) {
    *out = {atts, static_cast<uint32_t>(count)};
    return XMLIF_OK;
  }
  if (const int st = x->attributes.reserve(2 * count); st != XMLIF_OK) return st;
  const XML_Char **kept = x->attributes.data();
  uint32_t n = 0;
  for (const XML_Char **a = atts; *a != nullptr; a += 2) {
    if (isNamespaceDeclaration(a[0])) continue;
    kept[2 * n] = a[0];
    kept[2 * n + 1] = a[1];
    ++n;
  }
  *out = {kept, n};
  return XMLIF_OK;
}

// ---- Events ------------------------------------------------------------------
void releaseLargeBuffers(xmlctx *x) {
  x->text.shrink(kRetainedBufferBytes);
  x->attributes.shrink(kRetainedBufferBytes / sizeof(const XML_Char *));
}

// Delivers the pending text as one piece.
[[nodiscard]] bool flushText(xmlctx *x) {
  if (x->text_length == 0) return true;
  const auto n = static_cast<uint32_t>(x->text_length);  // reserve() capped it
  x->text_length = 0;
  const bool went_on = wentOn(x, x->handlers.characters(x->user, x->text.data(), n));
  x->text.shrink(kRetainedBufferBytes);
  return went_on;
}

void XMLCALL onCharacters(void *data, const XML_Char *s, int len) {
  auto *x = static_cast<xmlctx *>(data);
  if (x->stopped || len <= 0 || !x->text_wanted) return;
  const size_t needed = x->text_length + static_cast<size_t>(len);
  if (const int st = x->text.reserve(needed); st != XMLIF_OK) {
    stopParse(x, st);
    return;
  }
  std::memcpy(x->text.data() + x->text_length, s, static_cast<size_t>(len));
  x->text_length = needed;
}

void XMLCALL onStartElement(void *data, const XML_Char *name, const XML_Char **atts) {
  auto *x = static_cast<xmlctx *>(data);
  if (x->stopped || !flushText(x) || x->handlers.startElement == nullptr) return;
  xmlattrs list{};
  if (const int st = collectAttributes(x, atts, &list); st != XMLIF_OK) {
    stopParse(x, st);
    return;
  }
  (void)wentOn(x, x->handlers.startElement(x->user, localName(name), &list));
}

void XMLCALL onEndElement(void *data, const XML_Char *name) {
  auto *x = static_cast<xmlctx *>(data);
  if (x->stopped || !flushText(x) || x->handlers.endElement == nullptr) return;
  (void)wentOn(x, x->handlers.endElement(x->user, localName(name)));
}

[[nodiscard]] bool reportStartDocument(xmlctx *x) {
  return x->handlers.startDocument == nullptr || wentOn(x, x->handlers.startDocument(x->user));
}

[[nodiscard]] bool reportEndDocument(xmlctx *x) {
  return flushText(x) &&
         (x->handlers.endDocument == nullptr || wentOn(x, x->handlers.endDocument(x->user)));
}

// ---- Entities ------------------------------------------------------------------
// Nothing external is ever loaded. Leaving the reference out would silently
// drop part of a value, so the document fails instead.
int XMLCALL refuseExternalEntity(XML_Parser parser, const XML_Char *, const XML_Char *,
                                 const XML_Char *, const XML_Char *) {
  auto *x = static_cast<xmlctx *>(XML_GetUserData(parser));
  if (!x->stopped) {
    x->stopped = true;
    x->failure = XMLIF_ENTITY_REFUSED;
  }
  return XML_STATUS_ERROR;  // expat stops with an entity-handling error
}

// An entity declared only where expat does not read (an external DTD): its
// text is unknown, so likewise fail. Skipped parameter entities affect only
// the DTD and are harmless.
void XMLCALL onSkippedEntity(void *data, const XML_Char *, int is_parameter_entity) {
  auto *x = static_cast<xmlctx *>(data);
  if (!is_parameter_entity) stopParse(x, XMLIF_ENTITY_REFUSED);
}

// ---- Sources -------------------------------------------------------------------
bool isAsciiAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }

bool equalsIgnoreAsciiCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char p, char q) {
           auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
           return lower(p) == lower(q);
         });
}

// Length of the URI scheme that source starts with (RFC 3986: a letter,
// then letters, digits, '+', '-', '.'), 0 when it has none.
size_t schemeLength(std::string_view source) {
  if (source.empty() || !isAsciiAlpha(source[0])) return 0;
  for (size_t i = 1; i < source.size(); ++i) {
    const char c = source[i];
    if (c == ':') return i;
    if (!isAsciiAlpha(c) && !isAsciiDigit(c) && c != '+' && c != '-' && c != '.') return 0;
  }
  return 0;
}

int hexValue(char c) {
  if (isAsciiDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Percent-decodes an encoded path into a fresh NUL-terminated block.
[[nodiscard]] int percentDecode(gsluctx *ctx, std::string_view encoded, gslu::Owned<char> *out) {
  // Detect and prevent integer overflow: the block holds the path and a NUL.
  if (encoded.size() >= kMaxAllocation) return XMLIF_BAD_URI;
  gslu::Owned<char> path(
      static_cast<char *>(gslummMalloc(ctx, static_cast<uint32_t>(encoded.size() + 1))),
      gslu::ContextFree{ctx});
  if (path == nullptr) return XMLIF_NO_MEMORY;
  size_t n = 0;
  for (size_t i = 0; i < encoded.size(); ++i) {
    char c = encoded[i];
    if (c == '%') {
      const int hi = i + 2 < encoded.size() ? hexValue(encoded[i + 1]) : -1;
      const int lo = hi >= 0 ? hexValue(encoded[i + 2]) : -1;
      // A NUL would cut the path short behind the caller's back.
      if (lo < 0 || (hi == 0 && lo == 0)) return XMLIF_BAD_URI;
      c = static_cast<char>(hi * 16 + lo);
      i += 2;
    }
    path.get()[n++] = c;
  }
  path.get()[n] = '\0';
  *out = std::move(path);
  return XMLIF_OK;
}

// The local path a file: URI names (rest is what follows "file:"):
// "//" [ "" | "localhost" ] "/path", or "/path"; '?' or '#' ends the path.
[[nodiscard]] int fileUriPath(gsluctx *ctx, std::string_view rest, gslu::Owned<char> *out) {
  rest = rest.substr(0, rest.find_first_of("?#"));
  if (rest.starts_with("//")) {
    rest.remove_prefix(2);
    const size_t slash = rest.find('/');
    if (slash == std::string_view::npos) return XMLIF_BAD_URI;
    const std::string_view host = rest.substr(0, slash);
    if (!host.empty() && !equalsIgnoreAsciiCase(host, "localhost")) return XMLIF_UNSUPPORTED_SOURCE;
    rest.remove_prefix(slash);
  }
  if (!rest.starts_with('/')) return XMLIF_BAD_URI;
  return percentDecode(ctx, rest, out);
}

// The path to open: source itself, or the decoded path of a file: URI.
[[nodiscard]] int resolveSource(gsluctx *ctx, const char *source, gslu::Owned<char> *decoded,
                                const char **path) {
  const std::string_view s(source);
  const size_t scheme = schemeLength(s);
  if (scheme == 0) {
    *path = source;
    return XMLIF_OK;
  }
  // Only local files are read; other schemes would need the network.
  if (!equalsIgnoreAsciiCase(s.substr(0, scheme), "file")) return XMLIF_UNSUPPORTED_SOURCE;
  if (const int st = fileUriPath(ctx, s.substr(scheme + 1), decoded); st != XMLIF_OK) return st;
  *path = decoded->get();
  return XMLIF_OK;
}

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) (void)::close(fd_);
  }
  FileDescriptor(const FileDescriptor &) = delete;
  FileDescriptor &operator=(const FileDescriptor &) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// Up to size bytes; 0 at the end of the file, -1 on a read error.
ssize_t readSome(int fd, void *buffer, size_t size) {
  for (;;) {
    const ssize_t n = ::read(fd, buffer, size);
    if (n >= 0 || errno != EINTR) return n;
  }
}

// ---- Parsing -------------------------------------------------------------------
// One parse: marks the instance busy, routes expat's memory to its context,
// and on leaving frees expat and drops undelivered text (on failure it is
// an incomplete text).
class ParseScope {
 public:
  explicit ParseScope(xmlctx *x) : x_(x), saved_context_(t_expatContext) {
    x->parsing = true;
    x->stopped = false;
    x->failure = XMLIF_OK;
    x->text_length = 0;
    x->text_wanted = true;
    t_expatContext = x->core;
  }
  ~ParseScope() {
    if (x_->expat != nullptr) XML_ParserFree(x_->expat);
    x_->expat = nullptr;
    x_->text_length = 0;
    releaseLargeBuffers(x_);
    x_->parsing = false;
    t_expatContext = saved_context_;
  }
  ParseScope(const ParseScope &) = delete;
  ParseScope &operator=(const ParseScope &) = delete;

 private:
  xmlctx *x_;
  gsluctx *saved_context_;
};

[[nodiscard]] int createExpat(xmlctx *x, const char *encoding) {
  XML_Parser p = XML_ParserCreate_MM(encoding, &kExpatMemory, nullptr);
  if (p == nullptr) return XMLIF_NO_MEMORY;
  x->expat = p;
  XML_SetUserData(p, x);
  XML_SetElementHandler(p, onStartElement, onEndElement);
  // Without a character handler there is nothing to collect.
  if (x->handlers.characters != nullptr) XML_SetCharacterDataHandler(p, onCharacters);
  XML_SetExternalEntityRefHandler(p, refuseExternalEntity);
  XML_SetSkippedEntityHandler(p, onSkippedEntity);
  // expat's default, stated so that it stays: never read an external DTD or
  // parameter entity. Entity-expansion protection is on by default too.
  (void)XML_SetParamEntityParsing(p, XML_PARAM_ENTITY_PARSING_NEVER);
  return XMLIF_OK;
}

// Why expat gave up: our own recorded reason first. Where and why expat
// failed is kept for xmlPosition and xmlErrorText; a handler's failure keeps
// the position of its event.
[[nodiscard]] int parseFailure(xmlctx *x) {
  const XML_Error code = XML_GetErrorCode(x->expat);
  if (code != XML_ERROR_NONE && x->failure != XMLIF_HANDLER_FAILED) {
    x->error_line = static_cast<uint32_t>(XML_GetErrorLineNumber(x->expat));
    x->error_column = static_cast<uint32_t>(XML_GetErrorColumnNumber(x->expat)) + 1;
    if (x->failure == XMLIF_OK) setErrorText(x, XML_ErrorString(code));
  }
  if (x->failure != XMLIF_OK) return x->failure;
  switch (code) {
    case XML_ERROR_NO_MEMORY: return XMLIF_NO_MEMORY;
    case XML_ERROR_AMPLIFICATION_LIMIT_BREACH: return XMLIF_ENTITY_REFUSED;
    default: return XMLIF_NOT_WELL_FORMED;
  }
}

size_t chunkSize() {
  return std::min<size_t>(g_chunkSize.load(std::memory_order_relaxed), INT_MAX);
}

// The size of the file open as fd when it is a regular file, else 0.
uint64_t regularFileSize(int fd) {
  struct stat st {};
  return ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) ? static_cast<uint64_t>(st.st_size) : 0;
}

// Reads the file chunk by chunk straight into expat's buffer. The document
// starts once its first read succeeded, so a source that cannot be read at
// all (a directory) reports no event.
[[nodiscard]] int feedDocument(xmlctx *x, int fd) {
  const size_t chunk = chunkSize();
  const uint64_t size = x->progress != nullptr ? regularFileSize(fd) : 0;
  uint64_t read = 0;
  for (bool started = false;; started = true) {
    void *buffer = XML_GetBuffer(x->expat, static_cast<int>(chunk));
    if (buffer == nullptr) return parseFailure(x);
    const ssize_t n = readSome(fd, buffer, chunk);
    if (n < 0) {
      setErrorText(x, std::strerror(errno));
      return XMLIF_SOURCE_UNREADABLE;
    }
    if (!started && !reportStartDocument(x)) return x->failure;
    if (x->progress != nullptr) {
      read += static_cast<uint64_t>(n);
      x->progress(x->progress_arg, read, size);
    }
    const bool last = n == 0;
    if (XML_ParseBuffer(x->expat, static_cast<int>(n), last) != XML_STATUS_OK || x->stopped) {
      return parseFailure(x);
    }
    if (last) return XMLIF_OK;
  }
}

// The parser's operations behind the shims.

xmlctx *createInstance(int *err, void *c1, void *fixed1, void *fixed2, void *fixed3, void *fixed4,
                       void *c2, void *c3, const xmlsaxcb *handlers, void *user, void *c4, void *c5,
                       void *c6) {
  int ignored = XMLIF_OK;
  int &status = err != nullptr ? *err : ignored;
  status = XMLIF_OK;
  gsluctx *core = gslu::resolveContext(nullptr);
  if (core == nullptr) {
    status = XMLIF_NO_CONTEXT;
    return nullptr;
  }
  void *block = gslummMalloc(core, sizeof(xmlctx));
  if (block == nullptr) {
    status = XMLIF_NO_MEMORY;
    return nullptr;
  }
  void *const config[kConfigCount] = {c1, fixed1, fixed2, fixed3, fixed4, c2, c3, c4, c5, c6};
  return new (block) xmlctx(core, handlers, user, config);
}

// fixed1 and fixed2 are always null and 0 from the shim; expat has no use
// for them.
int parseSource(xmlctx *x, const char *source, const char *encoding, void * /*fixed1*/,
                uint32_t /*fixed2*/, uint32_t flags) {
  if (x == nullptr || source == nullptr) return XMLIF_NULL_ARGUMENT;
  if (x->parsing) return XMLIF_BUSY;
  x->flags = flags;
  x->error_line = x->error_column = 0;
  x->error_text[0] = '\0';
  gslu::Owned<char> decoded(nullptr, gslu::ContextFree{x->core});
  const char *path = nullptr;
  if (const int st = resolveSource(x->core, source, &decoded, &path); st != XMLIF_OK) return st;
  const FileDescriptor fd(::open(path, O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) {
    setErrorText(x, std::strerror(errno));
    return XMLIF_SOURCE_UNREADABLE;
  }

  const ParseScope scope(x);
  if (const int st = createExpat(x, encoding); st != XMLIF_OK) return st;
  if (const int st = feedDocument(x, fd.get()); st != XMLIF_OK) return st;
  if (!reportEndDocument(x)) return x->failure;
  return XMLIF_OK;
}

void destroyInstance(xmlctx *x) {
  if (x == nullptr) return;
  gsluctx *core = x->core;
  x->~xmlctx();
  (void)gslumfFree(core, x);
}

}  // namespace

extern "C" {

xmlctx *xmlinit(int *err, void *c1, void *c2, void *c3, const xmlsaxcb *handlers, void *user,
                void *c4, void *c5, void *c6) {
  return createInstance(err, c1, nullptr, nullptr, nullptr, nullptr, c2, c3, handlers, user, c4, c5,
                        c6);
}

int xmlparse(xmlctx *xml, const char *source, const char *encoding, uint32_t flags) {
  return parseSource(xml, source, encoding, nullptr, 0, flags);
}

void xmlterm(xmlctx *xml) { destroyInstance(xml); }

void xmlPosition(const xmlctx *xml, uint32_t *line, uint32_t *column) {
  uint32_t l = 0;
  uint32_t c = 0;
  if (xml != nullptr && xml->parsing && xml->expat != nullptr && !xml->stopped) {
    currentPosition(xml, &l, &c);
  } else if (xml != nullptr) {
    l = xml->error_line;
    c = xml->error_column;
  }
  if (line != nullptr) *line = l;
  if (column != nullptr) *column = c;
}

const char *xmlParserVersion(void) { return XML_ExpatVersion(); }

const char *xmlErrorText(const xmlctx *xml) { return xml != nullptr ? xml->error_text : ""; }

void xmlSetProgress(xmlctx *xml, xmlProgressFn fn, void *arg) {
  if (xml == nullptr) return;
  xml->progress = fn;
  xml->progress_arg = arg;
}

void xmlSetHandlers(xmlctx *xml, const xmlsaxcb *handlers, void *user) {
  if (xml == nullptr) return;
  xml->handlers = handlers != nullptr ? *handlers : xmlsaxcb{};
  xml->user = user;
  if (xml->expat != nullptr) {
    XML_SetCharacterDataHandler(
        xml->expat, xml->text_wanted && xml->handlers.characters != nullptr ? onCharacters : nullptr);
  }
}

void xmlWantText(xmlctx *xml, int wanted) {
  if (xml == nullptr || xml->text_wanted == (wanted != 0)) return;
  xml->text_wanted = wanted != 0;
  // Without a handler expat does not even call out for text nobody wants,
  // the white space between elements included.
  if (xml->expat != nullptr && xml->handlers.characters != nullptr) {
    XML_SetCharacterDataHandler(xml->expat, xml->text_wanted ? onCharacters : nullptr);
  }
}

uint32_t numAttributes(const xmlattrs *attrs) { return attrs != nullptr ? attrs->count : 0; }

const xmlattr *getAttributeIndex(const xmlattrs *attrs, uint32_t index) {
  if (attrs == nullptr || index >= attrs->count) return nullptr;
  return reinterpret_cast<const xmlattr *>(attrs->pairs + 2 * static_cast<size_t>(index));
}

const char *getAttrLocal(const xmlattr *attr) {
  if (attr == nullptr) return nullptr;
  return localName(reinterpret_cast<const XML_Char *const *>(attr)[0]);
}

const char *getAttrValue(const xmlattr *attr) {
  if (attr == nullptr) return nullptr;
  return reinterpret_cast<const XML_Char *const *>(attr)[1];
}

}  // extern "C"

void xmlSetChunkSizeForTesting(size_t size) {
  g_chunkSize.store(size != 0 ? size : kDefaultChunkSize, std::memory_order_relaxed);
}
