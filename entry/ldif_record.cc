// entry/ldif_record.cc - LDIF records of whole entries. A record that fits
// a buffer on the stack is written there in one walk over the entry, each
// value decided as it is written, and copied into a block of its exact
// size. Otherwise the same walk runs twice: the sizing pass decides each
// value's form, checks each name and adds up the sizes; the writing pass
// takes those decisions and writes into one block of exactly that size. So
// no line needs a block of its own and no value is looked at twice.
#include "entry/ldif_record.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "core/context_access.h"
#include "core/memory.h"
#include "core/owned.h"
#include "entry/ldif_line_internal.h"
#include "entry/names.h"

namespace {

using gslu::ldif::Conversion;
using gslu::ldif::Form;
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
constexpr std::string_view kNewRdnType = "newrdn";
constexpr std::string_view kNewSuperiorType = "newsuperior";
constexpr std::string_view kControl = "control: ";
constexpr std::string_view kCritical = " true";
constexpr std::string_view kNotCritical = " false";

// The header of an attribute's block in a modify record, by its change type.
struct HeaderPrefix {
  uint8_t change_type;
  std::string_view prefix;
};
constexpr HeaderPrefix kHeaderPrefixes[] = {
    {GSLCLE_ATTR_ADD, "add: "},
    {GSLCLE_ATTR_DELETE, "delete: "},
    {GSLCLE_ATTR_REPLACE, "replace: "},
    {GSLCLE_ATTR_INCREMENT, "increment: "},
};

[[nodiscard]] std::string_view headerPrefix(uint8_t change_type) {
  for (const HeaderPrefix &h : kHeaderPrefixes) {
    if (h.change_type == change_type) return h.prefix;
  }
  return {};
}

// The sizing pass's decisions in the order it took them, so that the
// writing pass takes each from here instead of looking at the value or the
// name again: the form of each value line and the length of each attribute
// name. A record with more of them than there are slots has the rest
// decided again by the writing pass, the same way.
class Decisions {
 public:
  void keepForm(Form form) { keep(uint64_t{form.shown} | (form.base64 ? kBase64 : 0)); }
  void keepLength(size_t length) { keep(length); }

  template <class Decide>
  [[nodiscard]] Form form(Decide decide) {
    const uint64_t *kept = next();
    if (kept == nullptr) return decide();
    return {(*kept & kBase64) != 0, static_cast<uint32_t>(*kept)};
  }
  template <class Decide>
  [[nodiscard]] size_t length(Decide decide) {
    const uint64_t *kept = next();
    return kept != nullptr ? static_cast<size_t>(*kept) : decide();
  }

 private:
  static constexpr size_t kSlots = 128;
  static constexpr uint64_t kBase64 = uint64_t{1} << 32;

  void keep(uint64_t decision) {
    if (kept_ < kSlots) slots_[kept_] = decision;
    ++kept_;
  }
  // The next decision kept, in the writing pass; null past the slots.
  [[nodiscard]] const uint64_t *next() {
    const size_t i = taken_++;
    return i < kept_ && i < kSlots ? &slots_[i] : nullptr;
  }

  uint64_t slots_[kSlots];
  size_t kept_ = 0;
  size_t taken_ = 0;
};

// How a record is written: gslclegalfGetAsLDIFForm's options worked out.
struct Style {
  bool rfc;               // change records in their RFC 2849 forms
  bool strict;            // RFC 2849's base64 rule in full
  size_t fold;            // kFoldColumn, or kNoFold
  int names;              // GSLCLE_NAMES_* for attribute names
  Conversion conversion;  // kNone: the text stays UTF-8
};

[[nodiscard]] constexpr bool has(int options, int option) { return (options & option) != 0; }

[[nodiscard]] Style styleOf(int options) {
  return {has(options, GSLCLE_LDIF_FORM_RFC2849), has(options, GSLCLE_LDIF_SAFE_VALUES),
          has(options, GSLCLE_LDIF_NO_WRAP) ? gslu::ldif::kNoFold : gslu::ldif::kFoldColumn,
          has(options, GSLCLE_LDIF_RFC4512_NAMES) ? GSLCLE_NAMES_RFC4512 : GSLCLE_NAMES_LDIF,
          has(options, GSLCLE_LDIF_NO_CONVERSION) ? Conversion::kNone : Conversion::kAsContext};
}

constexpr Style kLibraryStyle = {false, false, gslu::ldif::kFoldColumn, GSLCLE_NAMES_LDIF,
                                 Conversion::kAsContext};

// An attribute's name as it goes into a record; a name that the style's
// rule refuses sets *refused and gives no text, since the whole record is
// refused.
[[nodiscard]] std::string_view recordName(const LDAPAttribute *a, int rule, bool *refused) {
  const int64_t n = gslclenaAttrNameLength(a->name, rule);
  if (n < 0) *refused = true;
  return {a->name, n < 0 ? 0 : static_cast<size_t>(n)};
}

// Counts in notes a plain line that is not what RFC 2849 allows: a value
// cut at a NUL, or one that starts with '<'.
void note(GslcleLdifNotes *notes, const char *value, uint32_t length, Form form) {
  if (form.base64 || length == 0) return;
  if (form.shown < length) ++notes->values_cut;
  if (value[0] == '<') ++notes->values_leading_lt;
}

// The sizing pass: decides each line's form, checks each attribute name and
// adds up the sizes of what the record is made of.
class SizeSink {
 public:
  SizeSink(Decisions &decisions, const Style &style, GslcleLdifNotes *notes)
      : decisions_(decisions), style_(style), notes_(notes) {}
  void text(std::string_view s) { size_ += s.size(); }
  [[nodiscard]] std::string_view name(const LDAPAttribute *a) {
    const std::string_view name = recordName(a, style_.names, &refused_);
    decisions_.keepLength(name.size());
    return name;
  }
  void line(std::string_view type, const char *value, uint32_t length) {
    tail(type.size(), value, length);
    size_ += type.size();
  }
  void tail(size_t type_size, const char *value, uint32_t length) {
    const Form form = gslu::ldif::chooseForm(value, length, style_.strict);
    decisions_.keepForm(form);
    note(notes_, value, length, form);
    size_ += gslu::ldif::lineSize(type_size, form.base64, form.shown, style_.fold) - type_size;
  }
  [[nodiscard]] uint64_t size() const { return size_; }
  [[nodiscard]] bool refused() const { return refused_; }

 private:
  Decisions &decisions_;
  const Style &style_;
  GslcleLdifNotes *notes_;
  uint64_t size_ = 0;
  bool refused_ = false;
};

// The writing pass, into a block of the measured size, with the sizing
// pass's decisions. Only a value converted to a longer text can outgrow the
// block; when the context converts output the block is therefore checked
// before every line and grows, and is cut back to the exact size at the end.
class WriteSink {
 public:
  WriteSink(gsluctx *core, uint64_t measured, Decisions &decisions, const Style &style)
      : core_(core),
        decisions_(decisions),
        style_(style),
        block_(nullptr, {core}),
        converts_(style.conversion == Conversion::kAsContext && gslu::convertsOutput(core)) {
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
  [[nodiscard]] std::string_view name(const LDAPAttribute *a) {
    return {a->name, decisions_.length([a] { return std::strlen(a->name); })};
  }
  void line(std::string_view type, const char *value, uint32_t length) {
    const Form form = decide(value, length);
    if (!converts_) {
      // The sizing pass measured this very line: it fits.
      if (block_) {
        used_ = offsetOf(
            gslu::ldif::writeLine(end(), type, value, form.shown, form.base64, style_.fold));
      }
      return;
    }
    const ValueLine l(core_, type, value, length, form, Conversion::kAsContext, style_.fold);
    if (!reserve(l.size())) return;
    used_ = offsetOf(l.write(end()));
  }
  // Never converted, so it is the size measured; converted lines before it
  // may have grown the text, hence the reserve.
  void tail(size_t type_size, const char *value, uint32_t length) {
    const Form form = decide(value, length);
    if (!reserve(gslu::ldif::lineSize(type_size, form.base64, form.shown, style_.fold) -
                 type_size)) {
      return;
    }
    used_ = offsetOf(gslu::ldif::writeLineTail(end(), type_size, value, form.shown, form.base64,
                                               style_.fold));
  }
  [[nodiscard]] uint32_t length() const { return used_; }
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
  [[nodiscard]] Form decide(const char *value, uint32_t length) {
    return decisions_.form(
        [&] { return gslu::ldif::chooseForm(value, length, style_.strict); });
  }
  [[nodiscard]] char *end() const { return block_.get() + used_; }
  [[nodiscard]] uint32_t offsetOf(const char *p) const {
    return static_cast<uint32_t>(p - block_.get());
  }
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
  Decisions &decisions_;
  const Style &style_;
  gslu::Owned<char> block_;
  uint32_t capacity_ = 0;
  uint32_t used_ = 0;
  bool converts_;
};

// The single pass used whenever it can be: decides and writes each line at
// once into a buffer on the stack, so no value is looked at twice and no
// decision is kept; the text is then copied into a block of its exact size.
// A record that outgrows the buffer is left to the two passes above, as is
// every record of a context that converts output (its lines' sizes are
// known only once converted).
class StackSink {
 public:
  StackSink(char *buffer, size_t size, const Style &style, GslcleLdifNotes *notes)
      : buffer_(buffer), size_(size), style_(style), notes_(notes) {}
  void text(std::string_view s) {
    if (!reserve(s.size())) return;
    std::memcpy(buffer_ + used_, s.data(), s.size());
    used_ += s.size();
  }
  // A refused name refuses the record whether or not the record fits.
  [[nodiscard]] std::string_view name(const LDAPAttribute *a) {
    return recordName(a, style_.names, &refused_);
  }
  void line(std::string_view type, const char *value, uint32_t length) {
    const Form form = gslu::ldif::chooseForm(value, length, style_.strict);
    note(notes_, value, length, form);
    if (!reserve(gslu::ldif::lineSize(type.size(), form.base64, form.shown, style_.fold))) return;
    const char *end = gslu::ldif::writeLine(buffer_ + used_, type, value, form.shown, form.base64,
                                            style_.fold);
    used_ = static_cast<size_t>(end - buffer_);
  }
  void tail(size_t type_size, const char *value, uint32_t length) {
    const Form form = gslu::ldif::chooseForm(value, length, style_.strict);
    note(notes_, value, length, form);
    if (!reserve(gslu::ldif::lineSize(type_size, form.base64, form.shown, style_.fold) -
                 type_size)) {
      return;
    }
    const char *end = gslu::ldif::writeLineTail(buffer_ + used_, type_size, value, form.shown,
                                                form.base64, style_.fold);
    used_ = static_cast<size_t>(end - buffer_);
  }
  [[nodiscard]] bool refused() const { return refused_; }
  [[nodiscard]] bool overflowed() const { return overflowed_; }
  [[nodiscard]] std::string_view written() const { return {buffer_, used_}; }

 private:
  // Room for n more bytes; once a piece did not fit, nothing more is
  // written, as the record goes to the two passes.
  [[nodiscard]] bool reserve(uint64_t n) {
    if (!overflowed_ && n > size_ - used_) overflowed_ = true;
    return !overflowed_;
  }

  char *buffer_;
  size_t size_;
  const Style &style_;
  GslcleLdifNotes *notes_;
  size_t used_ = 0;
  bool refused_ = false;
  bool overflowed_ = false;
};

// Records up to this size, nearly all of them, are written in one pass.
constexpr size_t kStackRecordBytes = 16 * 1024;

// A fresh block holding text and a NUL, or null when it cannot be had.
[[nodiscard]] char *copyToBlock(gsluctx *core, std::string_view text) {
  // The buffer's size keeps text + 1 far below the allocator's 32-bit limit.
  auto *block = static_cast<char *>(gslummMalloc(core, static_cast<uint32_t>(text.size() + 1)));
  if (block == nullptr) return nullptr;
  std::memcpy(block, text.data(), text.size());
  block[text.size()] = '\0';
  return block;
}

// Walks an entry's attributes in the order they were added.
template <class Fn>
void forEachAttribute(const LDAPEntry *entry, Fn fn) {
  if (entry->attributes == nullptr) return;
  for (auto *a = static_cast<const LDAPAttribute *>(entry->attributes->head); a != nullptr;
       a = static_cast<const LDAPAttribute *>(a->next)) {
    fn(a);
  }
}

// Rename fields are written as they stand, so a line break in one would
// start a line of the entry's choosing.
[[nodiscard]] bool breaksLine(const char *field) {
  return field != nullptr && std::strpbrk(field, "\r\n") != nullptr;
}

[[nodiscard]] bool renameFieldsWritable(const LDAPEntry *entry) {
  return !breaksLine(entry->new_rdn) && !breaksLine(entry->new_superior);
}

// Whether every attribute name of entry may be written, for the records
// whose sizing pass does not walk the attributes.
[[nodiscard]] bool namesWritable(const LDAPEntry *entry, int rule) {
  bool writable = true;
  forEachAttribute(entry, [&](const LDAPAttribute *a) {
    if (writable && gslclenaAttrNameLength(a->name, rule) < 0) writable = false;
  });
  return writable;
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

// The value lines of one attribute. A value too long for a line ends the
// attribute's lines there.
template <class Sink>
void putValues(Sink &sink, const LDAPAttribute *a, std::string_view name) {
  for (uint32_t i = 0; i < a->count; ++i) {
    const ValueBytes v = valueAt(a, i);
    if (v.length > UINT32_MAX) return;
    sink.line(name, v.bytes, static_cast<uint32_t>(v.length));
  }
}

template <class Sink>
void putHeader(Sink &sink, const LDAPAttribute *a, std::string_view name) {
  sink.text(headerPrefix(a->change_type));
  sink.text(name);
  sink.text(kNewline);
}

// The lines of one attribute: the header when asked for, then a line per
// value.
template <class Sink>
void putAttribute(Sink &sink, const LDAPAttribute *a, bool with_header) {
  const std::string_view name = sink.name(a);
  if (with_header) putHeader(sink, a, name);
  if (a->count == 0) {
    // An added attribute without values is written as one empty value.
    if (a->change_type == GSLCLE_ATTR_ADD) {
      sink.text(name);
      sink.text(kSeparator);
      sink.text(kNewline);
    }
    return;
  }
  putValues(sink, a, name);
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

// ---- The RFC 2849 forms -------------------------------------------------------
// What common LDIF readers (ldapmodify, python-ldap) take: an add record's
// attributes as in a content record, a "-" after every modification, and the
// rename fields written like any value, base64 when they need it.

// "control: OID true" or "false", then the value as the rest of that line
// when the control has one. Its value is data, never converted.
template <class Sink>
void putControls(Sink &sink, const LDAPEntry *entry) {
  if (entry->controls == nullptr) return;
  for (auto *c = static_cast<const LDAPEntryControl *>(entry->controls->head); c != nullptr;
       c = static_cast<const LDAPEntryControl *>(c->next)) {
    const std::string_view oid = c->oid;
    const std::string_view criticality = c->critical != 0 ? kCritical : kNotCritical;
    sink.text(kControl);
    sink.text(oid);
    sink.text(criticality);
    if (c->has_value == 0 || c->value.length > UINT32_MAX) {
      sink.text(kNewline);
      continue;
    }
    sink.tail(kControl.size() + oid.size() + criticality.size(), c->value.bytes,
              static_cast<uint32_t>(c->value.length));
  }
}

template <class Sink>
void putRfcAddBody(Sink &sink, const LDAPEntry *entry) {
  sink.text(kChangeAdd);
  putContentBody(sink, entry);
}

template <class Sink>
void putRfcModifyBody(Sink &sink, const LDAPEntry *entry) {
  sink.text(kChangeModify);
  forEachAttribute(entry, [&](const LDAPAttribute *a) {
    const std::string_view name = sink.name(a);
    putHeader(sink, a, name);
    putValues(sink, a, name);
    sink.text(kBlockEnd);
  });
}

// A rename field as a value line (an absent new RDN as an empty one).
template <class Sink>
void putRenameLine(Sink &sink, std::string_view type, const char *field) {
  const std::string_view value = field != nullptr ? field : "";
  if (value.size() > UINT32_MAX) return;
  sink.line(type, value.data(), static_cast<uint32_t>(value.size()));
}

template <class Sink>
void putRfcModRdnBody(Sink &sink, const LDAPEntry *entry) {
  sink.text(kChangeModRdn);
  putRenameLine(sink, kNewRdnType, entry->new_rdn);
  sink.text(kDeleteOldRdn);
  sink.text(entry->delete_old_rdn != 0 ? kTrue : kFalse);
  sink.text(kNewline);
  if (entry->new_superior != nullptr) putRenameLine(sink, kNewSuperiorType, entry->new_superior);
}

// The record bodies, by change type and form; kNone where a body has
// nothing to say.
enum class Body { kNone, kContent, kModify, kModRdn, kDelete, kRfcAdd, kRfcModify, kRfcModRdn };

[[nodiscard]] Body bodyOf(const LDAPEntry *entry, bool rfc) {
  switch (entry->change_type) {
    case GSLCLE_CHANGE_ADD:
      if (entry->explicit_change_type == 0) {
        return attributeCount(entry) == 0 ? Body::kNone : Body::kContent;
      }
      if (rfc) return Body::kRfcAdd;
      [[fallthrough]];
    case GSLCLE_CHANGE_MODIFY:
      if (rfc) return Body::kRfcModify;
      return attributeCount(entry) == 0 ? Body::kNone : Body::kModify;
    case GSLCLE_CHANGE_MODRDN: return rfc ? Body::kRfcModRdn : Body::kModRdn;
    default: return Body::kDelete;
  }
}

// Only change records can carry controls; a content record has no place
// for them.
[[nodiscard]] bool carriesControls(Body body) {
  return body != Body::kNone && body != Body::kContent && body != Body::kModify &&
         body != Body::kModRdn;
}

template <class Sink>
void putBody(Sink &sink, const LDAPEntry *entry, Body body) {
  switch (body) {
    case Body::kNone: break;
    case Body::kContent: putContentBody(sink, entry); break;
    case Body::kModify: putModifyBody(sink, entry); break;
    case Body::kModRdn: putModRdnBody(sink, entry); break;
    case Body::kDelete: sink.text(kChangeDelete); break;
    case Body::kRfcAdd: putRfcAddBody(sink, entry); break;
    case Body::kRfcModify: putRfcModifyBody(sink, entry); break;
    case Body::kRfcModRdn: putRfcModRdnBody(sink, entry); break;
  }
}

// What render() gives: the text and its length, or why there is none.
struct Rendered {
  char *text;
  size_t length;
  bool refused;  // a name that the style's rule refuses
};

// Writes what put() lays out in one pass when it fits the stack buffer,
// else sizes it, then writes it, each value decided once. No text
// when there is nothing (and empty text is not wanted), when a name is
// refused or when the text cannot be allocated. *notes counts what the
// text holds that RFC 2849 does not allow.
template <class Put>
[[nodiscard]] Rendered render(gsluctx *core, const Style &style, bool empty_is_null, Put put,
                              GslcleLdifNotes *notes) {
  if (style.conversion == Conversion::kNone || !gslu::convertsOutput(core)) {
    char buffer[kStackRecordBytes];  // not zeroed: only what was written is read
    GslcleLdifNotes one_notes{};
    StackSink one(buffer, sizeof buffer, style, &one_notes);
    put(one);
    if (one.refused()) return {nullptr, 0, true};
    if (!one.overflowed()) {
      if (one.written().empty() && empty_is_null) return {nullptr, 0, false};
      *notes = one_notes;
      return {copyToBlock(core, one.written()), one.written().size(), false};
    }
  }
  Decisions decisions;
  SizeSink size(decisions, style, notes);
  put(size);
  if (size.refused()) return {nullptr, 0, true};
  if (size.size() == 0 && empty_is_null) return {nullptr, 0, false};
  WriteSink write(core, size.size(), decisions, style);
  put(write);
  const size_t length = write.length();
  return {write.finish(), length, false};
}

// render() in the library's style, for the string builders.
template <class Put>
[[nodiscard]] char *renderText(gsluctx *core, Put put) {
  GslcleLdifNotes notes{};
  return render(core, kLibraryStyle, true, put, &notes).text;
}

[[nodiscard]] gsluctx *coreOf(const gslcClientHandle *ctx) { return gslccx_Getgsluctx(ctx); }

// Whether the body's sizing pass walks every attribute, and so checks every
// name itself.
[[nodiscard]] bool walksAttributes(Body body) {
  return body == Body::kContent || body == Body::kModify || body == Body::kRfcAdd ||
         body == Body::kRfcModify;
}

}  // namespace

extern "C" {

int gslclecnCheckAttrName(const char *name) {
  return gslclenaAttrNameLength(name, GSLCLE_NAMES_LDIF) < 0 ? GSLCLEGAL_REFUSED : GSLCLEGAL_OK;
}

int gslclegalGetAsLDIF(const gslcClientHandle *ctx, const LDAPEntry *entry, char **text) {
  return gslclegalfGetAsLDIFForm(ctx, entry, GSLCLE_LDIF_FORM_LIBRARY, text, nullptr, nullptr);
}

int gslclegalfGetAsLDIFForm(const gslcClientHandle *ctx, const LDAPEntry *entry, int options,
                            char **text, size_t *length, GslcleLdifNotes *notes) {
  gsluctx *core = coreOf(ctx);
  if (core == nullptr) return GSLCLEGAL_NO_CONTEXT;
  if (entry == nullptr || text == nullptr) return GSLCLEGAL_NULL_ARG;
  *text = nullptr;
  if (length != nullptr) *length = 0;
  GslcleLdifNotes counted{};
  if (notes != nullptr) *notes = counted;
  const Style style = styleOf(options);
  const Body body = bodyOf(entry, style.rfc);
  // The RFC forms write the rename fields as values, base64 when needed, so
  // a line break in one is written faithfully rather than refused.
  if ((!style.rfc && !renameFieldsWritable(entry)) ||
      (!walksAttributes(body) && !namesWritable(entry, style.names))) {
    return GSLCLEGAL_REFUSED;
  }
  const std::string_view dn = entry->dn != nullptr ? entry->dn : "";
  if (dn.size() > UINT32_MAX) return GSLCLEGAL_NO_MEMORY;
  const bool controls = style.rfc && carriesControls(body);
  const Rendered r = render(
      core, style, false,
      [&](auto &sink) {
        sink.line(kDnType, dn.data(), static_cast<uint32_t>(dn.size()));
        if (controls) putControls(sink, entry);
        putBody(sink, entry, body);
      },
      &counted);
  if (r.refused) return GSLCLEGAL_REFUSED;
  if (r.text == nullptr) return GSLCLEGAL_NO_MEMORY;
  *text = r.text;
  if (length != nullptr) *length = r.length;
  if (notes != nullptr) *notes = counted;
  return GSLCLEGAL_OK;
}

char *gslcleGetAddStr(const gslcClientHandle *ctx, const LDAPEntry *entry) {
  gsluctx *core = coreOf(ctx);
  if (core == nullptr || entry == nullptr || attributeCount(entry) == 0) return nullptr;
  if (!renameFieldsWritable(entry)) return nullptr;
  return renderText(core, [&](auto &sink) { putContentBody(sink, entry); });
}

char *gslcleGetModifyStr(const gslcClientHandle *ctx, const LDAPEntry *entry) {
  gsluctx *core = coreOf(ctx);
  if (core == nullptr || entry == nullptr || attributeCount(entry) == 0) return nullptr;
  if (!renameFieldsWritable(entry)) return nullptr;
  return renderText(core, [&](auto &sink) { putModifyBody(sink, entry); });
}

char *gslcleGetModRDNStr(const gslcClientHandle *ctx, const LDAPEntry *entry) {
  gsluctx *core = coreOf(ctx);
  if (core == nullptr || entry == nullptr) return nullptr;
  if (!renameFieldsWritable(entry) || !namesWritable(entry, GSLCLE_NAMES_LDIF)) return nullptr;
  return renderText(core, [&](auto &sink) { putModRdnBody(sink, entry); });
}

char *gslcleGetAttrAsLDIF(const gslcClientHandle *ctx, const LDAPAttribute *attribute,
                          int with_header) {
  gsluctx *core = coreOf(ctx);
  if (core == nullptr || attribute == nullptr) return nullptr;
  GslcleLdifNotes notes{};
  return render(
             core, kLibraryStyle, false,
             [&](auto &sink) { putAttribute(sink, attribute, with_header == GSLCLE_LDIF_HEADER); },
             &notes)
      .text;
}

}  // extern "C"
