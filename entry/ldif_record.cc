// entry/ldif_record.cc - LDIF records of whole entries. Every record is laid
// out twice by the same code: once to measure it, once to write it into a
// block of exactly that size, so no line needs a block of its own.
#include "entry/ldif_record.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "core/owned.h"
#include "core/memory.h"
#include "entry/ldif_line_internal.h"

namespace {

using gslu::ldif::Conversion;
using gslu::ldif::ValueLine;

constexpr std::string_view kNewline = "\n";
constexpr std::string_view kSeparator = ": ";
constexpr std::string_view kBlockEnd = "-\n";
constexpr std::string_view kDnType = "dn";
constexpr std::string_view kChangeAdd = "changetype: add\n";
constexpr std::string_view kChangeModify = "changetype: modify\n";
constexpr std::string_view kChangeModRdn = "changetype: modrdn\n";
constexpr std::string_view kChangeDelete = "changetype: delete\n";
constexpr std::string_view kNewRdn = "newrdn: ";
constexpr std::string_view kDeleteOldRdn = "deleteoldrdn: ";
constexpr std::string_view kNewSuperior = "newsuperior: ";
constexpr std::string_view kFalse = "0";
constexpr std::string_view kTrue = "1";

// The header of an attribute's block in a modify record, by its change type.
struct HeaderPrefix {
  uint8_t change_type;
  std::string_view prefix;
};
constexpr HeaderPrefix kHeaderPrefixes[] = {
    {GSLCLE_ATTR_ADD, "add: "},
    {GSLCLE_ATTR_DELETE, "delete: "},
    {GSLCLE_ATTR_REPLACE, "replace: "},
};

[[nodiscard]] std::string_view headerPrefix(uint8_t change_type) {
  for (const HeaderPrefix &h : kHeaderPrefixes) {
    if (h.change_type == change_type) return h.prefix;
  }
  return {};
}

// Adds up the sizes of what a record is made of.
class MeasureSink {
 public:
  explicit MeasureSink(gsluctx *core) : core_(core) {}
  void text(std::string_view s) { size_ += s.size(); }
  void line(std::string_view type, const char *value, uint32_t length) {
    size_ += ValueLine(core_, type, value, length, Conversion::kNone).size();
  }
  [[nodiscard]] uint64_t size() const { return size_; }

 private:
  gsluctx *core_;
  uint64_t size_ = 0;
};

// Writes a record into a block of the measured size. Only a value converted
// to a longer text can outgrow it; the block then grows, and is cut back to
// the exact size at the end.
class WriteSink {
 public:
  WriteSink(gsluctx *core, uint64_t measured) : core_(core), block_(nullptr, {core}) {
    // Detect and prevent integer overflow: the text and its NUL must fit 32 bits.
    if (measured + 1 > UINT32_MAX) return;
    capacity_ = static_cast<uint32_t>(measured + 1);
    block_.reset(static_cast<char *>(gslummMalloc(core, capacity_)));
  }
  void text(std::string_view s) {
    if (!reserve(s.size())) return;
    std::memcpy(block_.get() + used_, s.data(), s.size());
    used_ += static_cast<uint32_t>(s.size());
  }
  void line(std::string_view type, const char *value, uint32_t length) {
    const ValueLine l(core_, type, value, length, Conversion::kAsContext);
    if (!reserve(l.size())) return;
    used_ = static_cast<uint32_t>(l.write(block_.get() + used_) - block_.get());
  }
  // The finished text, or null when it could not be had.
  [[nodiscard]] char *finish() {
    if (!block_) return nullptr;
    block_.get()[used_] = '\0';
    if (used_ + 1 < capacity_) {
      // Benign: when the block cannot be cut back it is simply kept larger.
      if (void *cut = gslumrRealloc(core_, used_ + 1, block_.get(), capacity_)) {
        (void)block_.release();
        block_.reset(static_cast<char *>(cut));
      }
    }
    return block_.release();
  }

 private:
  // Room for n more bytes and the final NUL.
  [[nodiscard]] bool reserve(uint64_t n) {
    if (!block_) return false;
    const uint64_t need = static_cast<uint64_t>(used_) + n + 1;
    if (need <= capacity_) return true;
    // Detect and prevent integer overflow: sizes reaching the allocator are 32-bit.
    const uint64_t grown = std::max<uint64_t>(need, 2 * static_cast<uint64_t>(capacity_));
    if (grown > UINT32_MAX) return fail();
    void *moved = gslumrRealloc(core_, static_cast<uint32_t>(grown), block_.get(), capacity_);
    if (moved == nullptr) return fail();
    (void)block_.release();
    block_.reset(static_cast<char *>(moved));
    capacity_ = static_cast<uint32_t>(grown);
    return true;
  }
  bool fail() {
    block_.reset();
    return false;
  }

  gsluctx *core_;
  gslu::Owned<char> block_;
  uint32_t capacity_ = 0;
  uint32_t used_ = 0;
};

// Walks an entry's attributes in the order they were added.
template <class Fn>
void forEachAttribute(const LDAPEntry *entry, Fn fn) {
  if (entry->attributes == nullptr) return;
  for (auto *a = static_cast<const LDAPAttribute *>(entry->attributes->head); a != nullptr;
       a = static_cast<const LDAPAttribute *>(a->next)) {
    fn(a);
  }
}

// Names that an LDIF reader takes for the structure of a record rather than
// for an attribute: a second "dn" starts a record of the document's choosing,
// "changetype" or "control" turns a content record into a change record.
constexpr std::string_view kStructuralNames[] = {"dn", "changetype", "control"};

[[nodiscard]] bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

[[nodiscard]] bool isStructuralName(std::string_view name) {
  // Readers drop blanks between a type and its colon, so "dn " is "dn".
  while (!name.empty() && name.back() == ' ') name.remove_suffix(1);
  for (std::string_view s : kStructuralNames) {
    if (equalsIgnoringAsciiCase(name, s)) return true;
  }
  return false;
}

// Rename fields are written as they stand, so a line break in one would
// start a line of the entry's choosing.
[[nodiscard]] bool breaksLine(const char *field) {
  return field != nullptr && std::strpbrk(field, "\r\n") != nullptr;
}

// Whether every name and rename field of entry may be written.
[[nodiscard]] bool isWritable(const LDAPEntry *entry) {
  if (breaksLine(entry->new_rdn) || breaksLine(entry->new_superior)) return false;
  if (entry->attributes == nullptr) return true;
  for (auto *a = static_cast<const LDAPAttribute *>(entry->attributes->head); a != nullptr;
       a = static_cast<const LDAPAttribute *>(a->next)) {
    if (gslclecnCheckAttrName(a->name) != GSLCLEGAL_OK) return false;
  }
  return true;
}

[[nodiscard]] uint32_t attributeCount(const LDAPEntry *entry) {
  return entry->attributes == nullptr ? 0 : entry->attributes->count;
}

// One value of an attribute as bytes and a length: counted values as they
// are, text values up to their NUL.
struct ValueBytes {
  const char *bytes;
  uint64_t length;
};

[[nodiscard]] ValueBytes valueAt(const LDAPAttribute *a, uint32_t i) {
  if (a->value_kind == GSLCLE_VALUES_BINARY) {
    const auto *v = static_cast<const BERVal *>(a->values[i]);
    return {v->bytes, v->length};
  }
  const auto *s = static_cast<const char *>(a->values[i]);
  return {s, std::strlen(s)};
}

// The lines of one attribute: the header when asked for, then a line per
// value. A value too long for a line ends the attribute's lines there.
template <class Sink>
void putAttribute(Sink &sink, const LDAPAttribute *a, bool with_header) {
  const std::string_view name = a->name;
  if (with_header) {
    sink.text(headerPrefix(a->change_type));
    sink.text(name);
    sink.text(kNewline);
  }
  if (a->count == 0) {
    // An added attribute without values is written as one empty value.
    if (a->change_type == GSLCLE_ATTR_ADD) {
      sink.text(name);
      sink.text(kSeparator);
      sink.text(kNewline);
    }
    return;
  }
  for (uint32_t i = 0; i < a->count; ++i) {
    const ValueBytes v = valueAt(a, i);
    if (v.length > UINT32_MAX) return;
    sink.line(name, v.bytes, static_cast<uint32_t>(v.length));
  }
}

template <class Sink>
void putContentBody(Sink &sink, const LDAPEntry *entry) {
  forEachAttribute(entry, [&](const LDAPAttribute *a) { putAttribute(sink, a, false); });
}

// Deliberate: "-" separates the blocks but does not follow the last one.
template <class Sink>
void putModifyBody(Sink &sink, const LDAPEntry *entry) {
  sink.text(entry->change_type == GSLCLE_CHANGE_ADD ? kChangeAdd : kChangeModify);
  bool first = true;
  forEachAttribute(entry, [&](const LDAPAttribute *a) {
    if (!first) sink.text(kBlockEnd);
    first = false;
    putAttribute(sink, a, true);
  });
}

template <class Sink>
void putModRdnBody(Sink &sink, const LDAPEntry *entry) {
  sink.text(kChangeModRdn);
  sink.text(kNewRdn);
  if (entry->new_rdn != nullptr) sink.text(entry->new_rdn);
  sink.text(kNewline);
  sink.text(kDeleteOldRdn);
  sink.text(entry->delete_old_rdn != 0 ? kTrue : kFalse);
  sink.text(kNewline);
  if (entry->new_superior != nullptr) {
    sink.text(kNewSuperior);
    sink.text(entry->new_superior);
    sink.text(kNewline);
  }
}

// The record bodies, by change type; null where a body has nothing to say.
enum class Body { kNone, kContent, kModify, kModRdn, kDelete };

[[nodiscard]] Body bodyOf(const LDAPEntry *entry) {
  switch (entry->change_type) {
    case GSLCLE_CHANGE_ADD:
      if (entry->explicit_change_type == 0) {
        return attributeCount(entry) == 0 ? Body::kNone : Body::kContent;
      }
      [[fallthrough]];
    case GSLCLE_CHANGE_MODIFY:
      return attributeCount(entry) == 0 ? Body::kNone : Body::kModify;
    case GSLCLE_CHANGE_MODRDN:
      return Body::kModRdn;
    default:
      return Body::kDelete;
  }
}

template <class Sink>
void putBody(Sink &sink, const LDAPEntry *entry, Body body) {
  switch (body) {
    case Body::kNone: break;
    case Body::kContent: putContentBody(sink, entry); break;
    case Body::kModify: putModifyBody(sink, entry); break;
    case Body::kModRdn: putModRdnBody(sink, entry); break;
    case Body::kDelete: sink.text(kChangeDelete); break;
  }
}

// Measures, then writes, what put() lays out. Null when there is nothing
// (and empty text is not wanted) or the text cannot be allocated.
template <class Put>
char *render(gsluctx *core, bool empty_is_null, Put put) {
  MeasureSink measure(core);
  put(measure);
  if (measure.size() == 0 && empty_is_null) return nullptr;
  WriteSink write(core, measure.size());
  put(write);
  return write.finish();
}

[[nodiscard]] gsluctx *coreOf(const gslcClientHandle *ctx) { return gslccx_Getgsluctx(ctx); }

}  // namespace

extern "C" {

int gslclecnCheckAttrName(const char *name) {
  if (gsldlVTypeCheck(name) != GSLDL_TYPE_OK || isStructuralName(name)) return GSLCLEGAL_REFUSED;
  return GSLCLEGAL_OK;
}

int gslclegalGetAsLDIF(const gslcClientHandle *ctx, const LDAPEntry *entry, char **text) {
  gsluctx *core = coreOf(ctx);
  if (core == nullptr) return GSLCLEGAL_NO_CONTEXT;
  if (entry == nullptr || text == nullptr) return GSLCLEGAL_NULL_ARG;
  *text = nullptr;
  if (!isWritable(entry)) return GSLCLEGAL_REFUSED;
  const std::string_view dn = entry->dn != nullptr ? entry->dn : "";
  if (dn.size() > UINT32_MAX) return GSLCLEGAL_NO_MEMORY;
  const Body body = bodyOf(entry);
  *text = render(core, false, [&](auto &sink) {
    sink.line(kDnType, dn.data(), static_cast<uint32_t>(dn.size()));
    putBody(sink, entry, body);
  });
  return *text != nullptr ? GSLCLEGAL_OK : GSLCLEGAL_NO_MEMORY;
}

char *gslcleGetAddStr(const gslcClientHandle *ctx, const LDAPEntry *entry) {
  gsluctx *core = coreOf(ctx);
  if (core == nullptr || entry == nullptr || attributeCount(entry) == 0) return nullptr;
  if (!isWritable(entry)) return nullptr;
  return render(core, true, [&](auto &sink) { putContentBody(sink, entry); });
}

char *gslcleGetModifyStr(const gslcClientHandle *ctx, const LDAPEntry *entry) {
  gsluctx *core = coreOf(ctx);
  if (core == nullptr || entry == nullptr || attributeCount(entry) == 0) return nullptr;
  if (!isWritable(entry)) return nullptr;
  return render(core, true, [&](auto &sink) { putModifyBody(sink, entry); });
}

char *gslcleGetModRDNStr(const gslcClientHandle *ctx, const LDAPEntry *entry) {
  gsluctx *core = coreOf(ctx);
  if (core == nullptr || entry == nullptr || !isWritable(entry)) return nullptr;
  return render(core, true, [&](auto &sink) { putModRdnBody(sink, entry); });
}

char *gslcleGetAttrAsLDIF(const gslcClientHandle *ctx, const LDAPAttribute *attribute,
                          int with_header) {
  gsluctx *core = coreOf(ctx);
  if (core == nullptr || attribute == nullptr) return nullptr;
  if (gslclecnCheckAttrName(attribute->name) != GSLCLEGAL_OK) return nullptr;
  return render(core, false, [&](auto &sink) {
    putAttribute(sink, attribute, with_header == GSLCLE_LDIF_HEADER);
  });
}

}  // extern "C"
