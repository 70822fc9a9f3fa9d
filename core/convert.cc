// core/convert.cc - character-set conversion on the C library's iconv.
// Contracts in core/convert.h.
//
// Each thread slot of the language service keeps one iconv descriptor per
// direction, opened on first use and re-opened only when the languages have
// changed, plus a scratch buffer for in-place conversions; shut-down
// releases them. Text that is pure ASCII goes to a target set that keeps
// ASCII as it is without iconv at all.
#include "core/convert.h"

#include <iconv.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "core/context_internal.h"
#include "core/lang.h"
#include "core/memory.h"
#include "core/utf8.h"

namespace gslu {

namespace {

enum class Role { kInternal, kEnvironment, kOutput };

struct DirectionRow {
  int32_t code;
  Role from;
  Role to;
};

// The direction codes; the last row also serves every unknown code.
constexpr DirectionRow kDirections[] = {
    {GSLUUC_INTERNAL_TO_ENVIRONMENT, Role::kInternal, Role::kEnvironment},
    {GSLUUC_INTERNAL_TO_OUTPUT, Role::kInternal, Role::kOutput},
    {GSLUUC_ENVIRONMENT_TO_INTERNAL, Role::kEnvironment, Role::kInternal},
    {GSLUUC_OUTPUT_TO_INTERNAL, Role::kOutput, Role::kInternal},
    {GSLUUC_ENVIRONMENT_TO_OUTPUT, Role::kEnvironment, Role::kOutput},
    {GSLUUC_OUTPUT_TO_ENVIRONMENT, Role::kOutput, Role::kEnvironment},
};
constexpr std::size_t kDirectionCount = std::size(kDirections);

[[nodiscard]] constexpr std::size_t rowOf(int32_t direction) {
  for (std::size_t i = 0; i + 1 < kDirectionCount; ++i) {
    if (kDirections[i].code == direction) return i;
  }
  return kDirectionCount - 1;
}

// The capacity rule: every target holds length * 5 + 10 bytes.
constexpr uint64_t kCapacityFactor = 5;
constexpr uint64_t kCapacityExtra = 10;

// Converted lengths that, with the error state set, make a refusal.
constexpr uint64_t kRefusedLengthA = 6;
constexpr uint64_t kRefusedLengthB = 8;

constexpr char kUnicodeReplacement[] = "\xEF\xBF\xBD";  // U+FFFD in UTF-8
constexpr char kAsciiReplacement[] = "?";

const iconv_t kNoDescriptor = reinterpret_cast<iconv_t>(-1);
constexpr std::size_t kIconvFailed = static_cast<std::size_t>(-1);
constexpr std::size_t kCodesetSize = sizeof(Language::codeset);

[[nodiscard]] bool allAscii(const char *s, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    if (static_cast<unsigned char>(s[i]) >= 0x80) return false;
  }
  return true;
}

// Converts all of in through cd into out; false on any error.
[[nodiscard]] bool convertWhole(iconv_t cd, const char *in, std::size_t n, char *out,
                                std::size_t cap, std::size_t *written) {
  (void)iconv(cd, nullptr, nullptr, nullptr, nullptr);
  char *src = const_cast<char *>(in);  // iconv's interface is not const-correct
  char *dst = out;
  std::size_t dst_left = cap;
  if (iconv(cd, &src, &n, &dst, &dst_left) == kIconvFailed) return false;
  if (iconv(cd, nullptr, nullptr, &dst, &dst_left) == kIconvFailed) return false;
  *written = cap - dst_left;
  return true;
}

// One open direction: the code sets it was opened for, its descriptor and
// what the target set looks like.
struct Converter {
  char from[kCodesetSize];
  char to[kCodesetSize];
  iconv_t cd = kNoDescriptor;
  bool from_utf8 = false;
  bool ascii_passthrough = false;  // UTF-8 source, target keeps ASCII as is
  char replacement[8] = {};
  std::size_t replacement_size = 0;

  Converter() = default;
  Converter(const Converter &) = delete;
  Converter &operator=(const Converter &) = delete;
  ~Converter() { close(); }

  void close() {
    if (cd != kNoDescriptor) iconv_close(cd);
    cd = kNoDescriptor;
    from[0] = to[0] = '\0';
  }

  [[nodiscard]] bool isFor(const Language &f, const Language &t) const {
    return cd != kNoDescriptor && std::strcmp(from, f.codeset) == 0 &&
           std::strcmp(to, t.codeset) == 0;
  }

  [[nodiscard]] bool open(const Language &f, const Language &t) {
    close();
    cd = iconv_open(t.codeset, f.codeset);
    if (cd == kNoDescriptor) return false;
    std::memcpy(from, f.codeset, kCodesetSize);
    std::memcpy(to, t.codeset, kCodesetSize);
    from_utf8 = codesetIsUtf8(f.codeset);
    describeTarget(t.codeset);
    return true;
  }

  // The target's replacement character, and whether it keeps ASCII bytes:
  // asked once, of a descriptor from UTF-8.
  void describeTarget(const char *codeset) {
    iconv_t probe = iconv_open(codeset, kUtf8Codeset);
    replacement[0] = kAsciiReplacement[0];
    replacement_size = 1;
    if (probe == kNoDescriptor) return;
    std::size_t n = 0;
    if (convertWhole(probe, kUnicodeReplacement, 3, replacement, sizeof replacement, &n) ||
        convertWhole(probe, kAsciiReplacement, 1, replacement, sizeof replacement, &n)) {
      replacement_size = n;
    }
    char ascii[0x7f];
    char converted[sizeof ascii];
    for (std::size_t i = 0; i < sizeof ascii; ++i) ascii[i] = static_cast<char>(i + 1);
    ascii_passthrough = from_utf8 &&
                        convertWhole(probe, ascii, sizeof ascii, converted, sizeof converted, &n) &&
                        n == sizeof ascii && std::memcmp(ascii, converted, n) == 0;
    iconv_close(probe);
  }

  // Converts src into dst (cap bytes), replacing what the target cannot
  // take; sets *replaced when it did. Returns the converted length. Never
  // loops: each round consumes input or stops.
  [[nodiscard]] std::size_t run(const char *src, std::size_t n, char *dst, std::size_t cap,
                                bool *replaced) {
    *replaced = false;
    (void)iconv(cd, nullptr, nullptr, nullptr, nullptr);
    char *in = const_cast<char *>(src);  // iconv's interface is not const-correct
    char *out = dst;
    std::size_t out_left = cap;
    while (n > 0) {
      if (iconv(cd, &in, &n, &out, &out_left) != kIconvFailed) break;
      *replaced = true;
      if (errno != EILSEQ && errno != EINVAL) break;  // E2BIG: the target is full
      // One character of the source cannot be taken: skip it (a byte that
      // starts no well-formed character counts as one) and write the
      // replacement in its place.
      std::size_t skip = from_utf8 ? utf8::sequenceLength(in, n) : 0;
      if (skip == 0) skip = 1;
      in += skip;
      n -= skip;
      if (out_left < replacement_size) break;
      std::memcpy(out, replacement, replacement_size);
      out += replacement_size;
      out_left -= replacement_size;
    }
    (void)iconv(cd, nullptr, nullptr, &out, &out_left);  // end a shift state
    return cap - out_left;
  }
};

}  // namespace

struct SlotConverters {
  Converter by_direction[kDirectionCount];
  char *scratch = nullptr;
  std::size_t scratch_size = 0;

  SlotConverters() = default;
  SlotConverters(const SlotConverters &) = delete;
  SlotConverters &operator=(const SlotConverters &) = delete;
  ~SlotConverters() { std::free(scratch); }

  // A scratch buffer of at least size bytes, kept for later conversions.
  [[nodiscard]] char *scratchOf(std::size_t size) {
    if (size <= scratch_size) return scratch;
    char *bigger = static_cast<char *>(std::realloc(scratch, size));
    if (bigger == nullptr) return nullptr;
    scratch = bigger;
    scratch_size = size;
    return scratch;
  }
};

namespace {

// The converters and error word the calling thread may use: those of its
// slot when it owns the slot, else private ones for this conversion only.
class ConverterLease {
 public:
  explicit ConverterLease(LangSlot &slot) {
    const uint32_t me = currentThreadId();
    uint32_t expected = 0;
    std::atomic_ref<uint32_t> owner(slot.owner);
    if (owner.compare_exchange_strong(expected, me) || expected == me) {
      if (slot.converters == nullptr) slot.converters = new (std::nothrow) SlotConverters;
      set_ = slot.converters;
      error_ = &slot.error;
    } else {
      own_ = new (std::nothrow) SlotConverters;
      set_ = own_;
      error_ = &own_error_;
    }
  }
  ConverterLease(const ConverterLease &) = delete;
  ConverterLease &operator=(const ConverterLease &) = delete;
  ~ConverterLease() { delete own_; }

  [[nodiscard]] SlotConverters *set() const { return set_; }
  void setError(bool replaced) { *error_ = replaced ? 1 : 0; }
  [[nodiscard]] bool error() const { return *error_ != 0; }

 private:
  SlotConverters *set_ = nullptr;
  SlotConverters *own_ = nullptr;
  uint32_t *error_ = nullptr;
  uint32_t own_error_ = 0;
};

[[nodiscard]] const Language *languageOf(const gsluctx *ctx, Role role) {
  switch (role) {
    case Role::kInternal: return ctx->internal_lang;
    case Role::kEnvironment: return ctx->env_lang;
    case Role::kOutput: return ctx->output_lang;
  }
  return nullptr;
}

// The open converter for a direction, or null when iconv cannot serve it.
[[nodiscard]] Converter *converterFor(const gsluctx *ctx, SlotConverters *set, int32_t direction) {
  const DirectionRow &row = kDirections[rowOf(direction)];
  const Language *from = languageOf(ctx, row.from);
  const Language *to = languageOf(ctx, row.to);
  if (set == nullptr || from == nullptr || to == nullptr) return nullptr;
  Converter &c = set->by_direction[rowOf(direction)];
  if (c.isFor(*from, *to) || c.open(*from, *to)) return &c;
  return nullptr;
}

// Where a request's converted text is built before it reaches the
// destination: straight in it, in the caller's scratch buffer, or in the
// slot's scratch buffer (the in-place forms). Text built in a scratch
// buffer is copied over the destination with a NUL when it fits in `room`
// bytes there.
struct Target {
  char *scratch;
  bool slot_scratch;
  uint64_t room;
};
constexpr uint64_t kRoomUnknown = std::numeric_limits<uint64_t>::max();

[[nodiscard]] int finish(gsluucRequest *req, int status, uint64_t length) {
  req->length = length;
  req->status = status;
  return status;
}

// Copies the converted text (n bytes at from) and a NUL over the
// destination; refused when it does not fit.
[[nodiscard]] int copyBack(gsluucRequest *req, const char *from, uint64_t n, uint64_t room) {
  if (n >= room) return finish(req, GSLUUC_REFUSED, 0);
  if (from != req->destination) std::memcpy(req->destination, from, n);
  req->destination[n] = '\0';
  return finish(req, GSLUUC_OK, n);
}

[[nodiscard]] int perform(gsluucRequest *req, Target target) {
  gsluctx *ctx = resolveContext(req->ctx);
  if (ctx == nullptr) return finish(req, GSLUUC_NO_CONTEXT, 0);
  if ((req->source == nullptr && req->source_length > 0) || req->destination == nullptr) {
    return finish(req, GSLUUC_NULL_ARG, 0);
  }
  ConverterLease lease(threadSlot(ctx));
  Converter *c = converterFor(ctx, lease.set(), req->direction);
  if (c == nullptr) return finish(req, GSLUUC_REFUSED, 0);
  const std::size_t n = req->source_length;
  const std::size_t cap = req->length;
  const bool via_scratch = target.scratch != nullptr || target.slot_scratch;
  // Pure ASCII into a set that keeps it: the text is its own conversion.
  if (c->ascii_passthrough && n <= cap && allAscii(req->source, n)) {
    lease.setError(false);
    if (via_scratch) return copyBack(req, req->source, n, target.room);
    if (req->destination != req->source) std::memcpy(req->destination, req->source, n);
    return finish(req, GSLUUC_OK, n);
  }
  char *out = req->destination;
  if (target.scratch != nullptr) out = target.scratch;
  if (target.slot_scratch) out = lease.set()->scratchOf(cap);
  if (out == nullptr) return finish(req, GSLUUC_NO_MEMORY, 0);
  bool replaced = false;
  const std::size_t converted = c->run(req->source, n, out, cap, &replaced);
  lease.setError(replaced);
  // Deliberate: only these two lengths are refused when a character was
  // replaced; text of every other length goes out with its replacements.
  if (lease.error() && (converted == kRefusedLengthA || converted == kRefusedLengthB)) {
    return finish(req, GSLUUC_REFUSED, 0);
  }
  if (via_scratch) return copyBack(req, out, converted, target.room);
  return finish(req, GSLUUC_OK, converted);
}

// The capacity rule, or false when it does not fit the allocator's 32 bits.
[[nodiscard]] bool capacityFor(uint64_t length, uint32_t *capacity) {
  // Detect and prevent integer overflow of length * 5 + 10.
  if (length > (std::numeric_limits<uint32_t>::max() - kCapacityExtra) / kCapacityFactor)
    return false;
  *capacity = static_cast<uint32_t>(length * kCapacityFactor + kCapacityExtra);
  return true;
}

// The in-place form: converts through the slot's scratch buffer of the
// capacity rule's size, then over text (room bytes).
[[nodiscard]] int convertInPlace(gsluctx *ctx, int32_t direction, char *text, uint64_t length,
                                 uint64_t room, uint64_t *converted) {
  uint32_t capacity = 0;
  if (!capacityFor(length, &capacity)) return GSLUUC_NO_MEMORY;
  gsluucRequest req{ctx, text, text, length, capacity, direction, GSLUUC_OK};
  const int status = perform(&req, Target{nullptr, true, room});
  if (status == GSLUUC_OK) *converted = req.length;
  return status;
}

// Both conversion entry points: the capacity rule, then either a new block
// or the in-place form.
[[nodiscard]] int convertWithCapacityRule(gsluctx *ctx, int32_t direction, const char *text,
                                          uint64_t length, char **result, uint64_t *resultlength) {
  if (result != nullptr) *result = nullptr;
  if (resultlength != nullptr) *resultlength = 0;
  if (resultlength == nullptr || (text == nullptr && length > 0)) return GSLUUC_NULL_ARG;
  gsluctx *g = resolveContext(ctx);
  if (g == nullptr) return GSLUUC_NO_CONTEXT;
  static char empty[1] = "";
  if (text == nullptr) text = empty;  // length is 0 here
  if (result == nullptr) {
    // The caller guarantees the room of the in-place form.
    return convertInPlace(g, direction, const_cast<char *>(text), length, kRoomUnknown,
                          resultlength);
  }
  uint32_t capacity = 0;
  if (!capacityFor(length, &capacity)) return GSLUUC_NO_MEMORY;
  Owned<char> block(static_cast<char *>(gslummMalloc(g, capacity)), ContextFree{g});
  if (!block) return GSLUUC_NO_MEMORY;
  // One byte of the block is kept for the NUL after the converted text.
  gsluucRequest req{g, text, block.get(), length, capacity - 1u, direction, GSLUUC_OK};
  const int status = perform(&req, Target{nullptr, false, kRoomUnknown});
  if (status != GSLUUC_OK) return status;
  block.get()[req.length] = '\0';
  *resultlength = req.length;
  *result = block.release();
  return GSLUUC_OK;
}

[[nodiscard]] int setLanguage(gsluctx *ctx, const char *locale, Role role) {
  if (locale == nullptr) return GSLUUC_NULL_ARG;
  gsluctx *g = resolveContext(ctx);
  if (g == nullptr || g->internal_lang == nullptr) return GSLUUC_NO_CONTEXT;
  Language lang{};
  if (std::strcmp(locale, "C") == 0 || std::strcmp(locale, "POSIX") == 0) {
    lang = *g->internal_lang;
  } else if (!languageFromLocale(locale, &lang)) {
    return GSLUUC_UNKNOWN;
  }
  const uint32_t differs = languageSame(*g->internal_lang, lang) ? 0 : 1;
  if (role == Role::kEnvironment) {
    g->lang_storage[1] = lang;
    g->env_lang = &g->lang_storage[1];
    g->input_conversion = differs;
  } else {
    g->lang_storage[2] = lang;
    g->output_lang = &g->lang_storage[2];
    g->output_conversion = differs;
  }
  return GSLUUC_OK;
}

}  // namespace

int convertOutputInPlace(gsluctx *ctx, char *text, uint64_t length, uint64_t room,
                         uint64_t *converted) {
  *converted = 0;
  return convertInPlace(ctx, GSLUUC_INTERNAL_TO_OUTPUT, text, length, room, converted);
}

void convertersRelease(gsluctx *ctx) {
  for (LangSlot &slot : ctx->slots) {
    delete slot.converters;
    slot.converters = nullptr;
    slot.owner = 0;
    slot.error = 0;
  }
}

}  // namespace gslu

using namespace gslu;

extern "C" {

int gsluucvConvert(gsluucRequest *request, char *scratch) {
  if (request == nullptr) return GSLUUC_NULL_ARG;
  return perform(request, Target{scratch, false, kRoomUnknown});
}

int gsluucoConvertOutput(gsluctx *ctx, const char *text, uint64_t length, char **result,
                         uint64_t *resultlength) {
  return convertWithCapacityRule(ctx, GSLUUC_INTERNAL_TO_OUTPUT, text, length, result,
                                 resultlength);
}

int gsluuciConvertInput(gsluctx *ctx, const char *text, uint64_t length, char **result,
                        uint64_t *resultlength) {
  return convertWithCapacityRule(ctx, GSLUUC_ENVIRONMENT_TO_INTERNAL, text, length, result,
                                 resultlength);
}

int gsluuczGetCurrentLanguage(gsluctx *ctx, int which, char *buffer, size_t size) {
  if (buffer == nullptr || size == 0) return GSLUUC_NULL_ARG;
  buffer[0] = '\0';
  gsluctx *g = resolveContext(ctx);
  if (g == nullptr) return GSLUUC_NO_CONTEXT;
  constexpr Role kRoles[] = {Role::kInternal, Role::kEnvironment, Role::kOutput};
  if (which < 0 || static_cast<std::size_t>(which) >= std::size(kRoles)) return GSLUUC_NULL_ARG;
  const Language *lang = languageOf(g, kRoles[which]);
  if (lang == nullptr) return GSLUUC_NO_CONTEXT;
  const std::size_t name = std::strlen(lang->name);
  const std::size_t codeset = std::strlen(lang->codeset);
  // Detect and prevent overflow: name, dot, code set and NUL must fit.
  if (name + codeset + 2 > size) return GSLUUC_UNKNOWN;
  std::memcpy(buffer, lang->name, name);
  buffer[name] = '.';
  std::memcpy(buffer + name + 1, lang->codeset, codeset + 1);
  return GSLUUC_OK;
}

int gsluucaSetInputLanguage(gsluctx *ctx, const char *locale) {
  return setLanguage(ctx, locale, Role::kEnvironment);
}

int gsluucbSetOutputLanguage(gsluctx *ctx, const char *locale) {
  return setLanguage(ctx, locale, Role::kOutput);
}

}  // extern "C"
