// fuzz/ldif_model.h - a second, deliberately plain rendering of LDIF value
// lines and records, written from their documented rules byte by byte with
// std::string, for the fuzz targets to compare the library's output with;
// and the checks any LDIF text the library writes must pass whatever it
// holds. Both assume output in UTF-8 (no character-set conversion), which
// qfuzz::setUpProcess() arranges.
#ifndef QUILLOMAT_FUZZ_LDIF_MODEL_H
#define QUILLOMAT_FUZZ_LDIF_MODEL_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "entry/entry.h"
#include "fuzz_support.h"

namespace qfuzz {

// A line is folded before a character written while the column is past 76.
inline constexpr size_t kFoldColumn = 76;
// The longest line the writer makes from a short type: a plain first line.
inline constexpr size_t kLineLimit = 78;

inline std::string base64(std::string_view bytes) {
  static constexpr char kDigits[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const uint32_t n = static_cast<uint32_t>(static_cast<unsigned char>(bytes[i])) << 16 |
                       static_cast<uint32_t>(static_cast<unsigned char>(bytes[i + 1])) << 8 |
                       static_cast<unsigned char>(bytes[i + 2]);
    for (int shift = 18; shift >= 0; shift -= 6) out.push_back(kDigits[(n >> shift) & 63]);
  }
  const size_t rest = bytes.size() - i;
  if (rest > 0) {
    uint32_t n = static_cast<uint32_t>(static_cast<unsigned char>(bytes[i])) << 16;
    if (rest == 2) n |= static_cast<uint32_t>(static_cast<unsigned char>(bytes[i + 1])) << 8;
    out.push_back(kDigits[(n >> 18) & 63]);
    out.push_back(kDigits[(n >> 12) & 63]);
    out.push_back(rest == 2 ? kDigits[(n >> 6) & 63] : '=');
    out.push_back('=');
  }
  return out;
}

// Whether a type may start a line (the contract of gsldlVTypeCheck): no
// control character, no leading space or '#'.
inline bool typeAllowed(std::string_view type) {
  if (!type.empty() && (type[0] == ' ' || type[0] == '#')) return false;
  for (const char ch : type) {
    const auto c = static_cast<unsigned char>(ch);
    if (c < 0x20 || c == 0x7f) return false;
  }
  return true;
}

// Whether an attribute name may stand in a record (the contract of
// gslclecnCheckAttrName): an allowed type without a colon that is not "dn",
// "changetype" or "control" in any letter case, trailing spaces not
// counted.
inline bool nameAllowed(std::string_view name) {
  if (!typeAllowed(name) || name.find(':') != std::string_view::npos) return false;
  while (!name.empty() && name.back() == ' ') name.remove_suffix(1);
  std::string lower(name);
  for (char &c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower != "dn" && lower != "changetype" && lower != "control";
}

// How a value is shown: in base64, or plain up to `shown` bytes.
struct ValueForm {
  bool base64;
  size_t shown;
};

// safe: RFC 2849's rule in full, where a leading '<', a trailing space and a
// NUL anywhere also make base64.
inline ValueForm valueForm(std::string_view v, bool safe = false) {
  if (v.empty()) return {false, 0};
  const auto first = static_cast<unsigned char>(v[0]);
  if (first == 0 || first == ':' || first == ' ' || (first >= '\t' && first <= '\r')) {
    return {true, 0};
  }
  if (safe && (first == '<' || v.back() == ' ')) return {true, 0};
  for (size_t i = 0; i < v.size(); ++i) {
    const auto c = static_cast<unsigned char>(v[i]);
    if (c == 0 && !safe) return {false, i};  // a plain value ends at its first NUL
    if (c < 0x20 || c > 0x7e) return {true, 0};
  }
  return {false, v.size()};
}

// Appends body to out, folding: the column starts at `column`.
inline void appendFolded(std::string &out, size_t column, std::string_view body) {
  for (const char c : body) {
    if (column > kFoldColumn) {
      out += "\n ";
      column = 1;
    }
    out.push_back(c);
    ++column;
  }
}

// The whole line for type and value, final newline included.
inline std::string valueLine(std::string_view type, std::string_view value, bool safe = false) {
  std::string out(type);
  const ValueForm form = valueForm(value, safe);
  if (form.base64) {
    out += ":: ";
    appendFolded(out, type.size() + 3, base64(value));
  } else {
    out += ": ";
    appendFolded(out, type.size() + 1, value.substr(0, form.shown));
  }
  out += "\n";
  return out;
}

inline std::string_view valueOf(const LDAPAttribute *a, uint32_t i) {
  if (a->value_kind == GSLCLE_VALUES_BINARY) {
    const auto *v = static_cast<const BERVal *>(a->values[i]);
    return {v->bytes, v->length};
  }
  return static_cast<const char *>(a->values[i]);
}

// The lines of one attribute, with its modify header when asked for.
inline std::string attributeLines(const LDAPAttribute *a, bool header, bool safe = false) {
  std::string out;
  if (header) {
    switch (a->change_type) {
      case GSLCLE_ATTR_ADD: out += "add: "; break;
      case GSLCLE_ATTR_DELETE: out += "delete: "; break;
      case GSLCLE_ATTR_REPLACE: out += "replace: "; break;
      default: break;
    }
    out += std::string(a->name) + "\n";
  }
  if (a->count == 0) {
    if (a->change_type == GSLCLE_ATTR_ADD) out += std::string(a->name) + ": \n";
    return out;
  }
  for (uint32_t i = 0; i < a->count; ++i) out += valueLine(a->name, valueOf(a, i), safe);
  return out;
}

template <class Fn>
void forEachAttribute(const LDAPEntry *entry, Fn fn) {
  if (entry->attributes == nullptr) return;
  for (auto *a = static_cast<const LDAPAttribute *>(entry->attributes->head); a != nullptr;
       a = static_cast<const LDAPAttribute *>(a->next)) {
    fn(a);
  }
}

// The body of a content record (the attribute lines).
inline std::string contentBody(const LDAPEntry *entry, bool safe = false) {
  std::string out;
  forEachAttribute(entry, [&](const LDAPAttribute *a) { out += attributeLines(a, false, safe); });
  return out;
}

// The body of a modify or explicit add record; "-" only between blocks.
inline std::string modifyBody(const LDAPEntry *entry) {
  std::string out =
      entry->change_type == GSLCLE_CHANGE_ADD ? "changetype: add\n" : "changetype: modify\n";
  bool first = true;
  forEachAttribute(entry, [&](const LDAPAttribute *a) {
    if (!first) out += "-\n";
    first = false;
    out += attributeLines(a, true);
  });
  return out;
}

inline std::string modRdnBody(const LDAPEntry *entry) {
  std::string out = "changetype: modrdn\nnewrdn: ";
  if (entry->new_rdn != nullptr) out += entry->new_rdn;
  out += "\ndeleteoldrdn: ";
  out += entry->delete_old_rdn != 0 ? "1\n" : "0\n";
  if (entry->new_superior != nullptr)
    out += std::string("newsuperior: ") + entry->new_superior + "\n";
  return out;
}

inline uint32_t attributeCount(const LDAPEntry *entry) {
  uint32_t n = 0;
  forEachAttribute(entry, [&](const LDAPAttribute *) { ++n; });
  return n;
}

// Whether the writer must refuse the entry: a name that may not stand in a
// record, or a rename field with a line break.
inline bool recordRefused(const LDAPEntry *entry) {
  bool refused = false;
  forEachAttribute(entry,
                   [&](const LDAPAttribute *a) { refused = refused || !nameAllowed(a->name); });
  for (const char *field : {entry->new_rdn, entry->new_superior}) {
    if (field != nullptr && std::strpbrk(field, "\r\n") != nullptr) refused = true;
  }
  return refused;
}

// The whole record of an entry the writer accepts.
inline std::string record(const LDAPEntry *entry) {
  std::string out = valueLine("dn", entry->dn);
  const bool has_attributes = attributeCount(entry) > 0;
  switch (entry->change_type) {
    case GSLCLE_CHANGE_ADD:
      if (entry->explicit_change_type == 0) {
        out += contentBody(entry);
      } else if (has_attributes) {
        out += modifyBody(entry);
      }
      break;
    case GSLCLE_CHANGE_MODIFY:
      if (has_attributes) out += modifyBody(entry);
      break;
    case GSLCLE_CHANGE_MODRDN: out += modRdnBody(entry); break;
    default: out += "changetype: delete\n"; break;
  }
  return out;
}

// ---- The RFC 2849 forms of change records --------------------------------------
// What common LDIF readers take: controls after the dn line, an add record's
// attributes as a content record has them, a "-" after every modification,
// the rename fields as value lines.

// Whether oid is a numeric OID: a digit 0 to 2, then one or more groups of
// "." and digits.
inline bool numericOid(std::string_view oid) {
  if (oid.size() < 3 || oid[0] < '0' || oid[0] > '2') return false;
  size_t i = 1;
  while (i < oid.size()) {
    if (oid[i++] != '.') return false;
    const size_t digits = i;
    while (i < oid.size() && oid[i] >= '0' && oid[i] <= '9') ++i;
    if (i == digits) return false;
  }
  return true;
}

template <class Fn>
void forEachControl(const LDAPEntry *entry, Fn fn) {
  if (entry->controls == nullptr) return;
  for (auto *c = static_cast<const LDAPEntryControl *>(entry->controls->head); c != nullptr;
       c = static_cast<const LDAPEntryControl *>(c->next)) {
    fn(c);
  }
}

// "control: OID true" or "false": a whole line without a value, else the
// type of the value line that holds it.
inline std::string controlType(const LDAPEntryControl *c) {
  return std::string("control: ") + c->oid + (c->critical != 0 ? " true" : " false");
}

inline std::string controlLines(const LDAPEntry *entry) {
  std::string out;
  forEachControl(entry, [&](const LDAPEntryControl *c) {
    if (c->has_value == 0) {
      out += controlType(c) + "\n";
    } else {
      out += valueLine(controlType(c), {c->value.bytes, c->value.length}, true);
    }
  });
  return out;
}

// A modification's block: its header, its values, and "-" whatever it holds.
inline std::string modificationLines(const LDAPAttribute *a) {
  std::string out;
  switch (a->change_type) {
    case GSLCLE_ATTR_ADD: out += "add: "; break;
    case GSLCLE_ATTR_DELETE: out += "delete: "; break;
    case GSLCLE_ATTR_REPLACE: out += "replace: "; break;
    case GSLCLE_ATTR_INCREMENT: out += "increment: "; break;
    default: break;
  }
  out += std::string(a->name) + "\n";
  for (uint32_t i = 0; i < a->count; ++i) out += valueLine(a->name, valueOf(a, i), true);
  return out + "-\n";
}

// The whole record of an entry in the RFC 2849 form, every value in the safe
// forms, as DSML v2 records are written. A content record carries no
// control.
inline std::string rfcRecord(const LDAPEntry *entry) {
  std::string out = valueLine("dn", entry->dn, true);
  if (entry->change_type == GSLCLE_CHANGE_ADD && entry->explicit_change_type == 0) {
    return out + contentBody(entry, true);
  }
  out += controlLines(entry);
  switch (entry->change_type) {
    case GSLCLE_CHANGE_ADD: out += "changetype: add\n" + contentBody(entry, true); break;
    case GSLCLE_CHANGE_MODIFY:
      out += "changetype: modify\n";
      forEachAttribute(entry, [&](const LDAPAttribute *a) { out += modificationLines(a); });
      break;
    case GSLCLE_CHANGE_MODRDN:
      out += "changetype: modrdn\n";
      out += valueLine("newrdn", entry->new_rdn != nullptr ? entry->new_rdn : "", true);
      out += entry->delete_old_rdn != 0 ? "deleteoldrdn: 1\n" : "deleteoldrdn: 0\n";
      if (entry->new_superior != nullptr) {
        out += valueLine("newsuperior", entry->new_superior, true);
      }
      break;
    default: out += "changetype: delete\n"; break;
  }
  return out;
}

// Checks any LDIF text the library writes: it ends with a newline, holds no
// NUL and no empty line (which would end the record early), no line is
// longer than `limit`, and a line starting with a space (which an LDIF
// reader joins to the line before) only ever follows a line that was full,
// that is one the writer folded: 77 bytes or more.
inline void checkShape(std::string_view text, size_t limit) {
  FUZZ_CHECK(!text.empty() && text.back() == '\n');
  FUZZ_CHECK(text.find('\0') == std::string_view::npos);
  FUZZ_CHECK(text.find("\n\n") == std::string_view::npos);
  size_t previous = 0;
  for (size_t start = 0; start < text.size();) {
    const size_t end = text.find('\n', start);
    const size_t length = end - start;
    FUZZ_CHECK(length >= 1);
    FUZZ_CHECK(length <= limit);
    if (text[start] == ' ') {
      FUZZ_CHECK(start > 0 && previous >= kFoldColumn + 1);
      FUZZ_CHECK(length >= 2 && length <= kFoldColumn + 1);
    }
    previous = length;
    start = end + 1;
  }
}

}  // namespace qfuzz

#endif  // QUILLOMAT_FUZZ_LDIF_MODEL_H
